#include "MeshPrep.h"

#include <chrono>
#include <numbers>

namespace Zorvan::Tool {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

std::size_t PreparedMesh::OutputVertexCount() const
{
    std::size_t count = 0;
    for (Rendering::Submesh const& sub : submeshes)
        count += sub.vertices.size();
    return count;
}

std::vector<std::uint32_t> PreparedMesh::GlobalIndices() const
{
    std::vector<std::uint32_t> indices;
    for (Rendering::Submesh const& sub : submeshes)
        for (std::uint16_t i : sub.indices)
            indices.push_back(sub.vertices[i]);
    return indices;
}

PreparedMesh PrepareMesh(MeshData const& mesh, double creaseDegrees, std::uint16_t cacheSize,
                         Progress const& progress)
{
    PreparedMesh prepared;

    progress("smoothing normals over " + std::to_string(mesh.triangles.size()) + " triangles");
    auto start = Clock::now();
    prepared.remapping = Rendering::CalculateSmoothNormalRemapping(
        std::span<Math::point<float, 3> const>(mesh.positions),
        std::span<std::array<std::uint32_t, 3> const>(mesh.triangles), creaseDegrees * std::numbers::pi / 180.0);
    prepared.normalsSeconds = SecondsSince(start);

    std::vector<Math::point<float, 3>> remappedPositions;
    remappedPositions.reserve(prepared.remapping.vertices.size());
    for (std::uint32_t from : prepared.remapping.vertices)
        remappedPositions.push_back(mesh.positions[from]);
    std::vector<std::uint32_t> const& corners = prepared.remapping.remapping;
    prepared.before = Rendering::AnalyzeFifoVertexCache(corners, remappedPositions.size(), cacheSize);

    if (remappedPositions.size() > Rendering::MaxSubmeshVertexCount)
        progress("splitting " + std::to_string(remappedPositions.size()) +
                 " vertices into 16-bit submeshes and reordering each");
    start = Clock::now();
    prepared.submeshes = Rendering::SplitInto16BitSubmeshes(std::span<Math::point<float, 3> const>(remappedPositions),
                                                            std::span<std::uint32_t const>(corners), cacheSize);
    prepared.reorderSeconds = SecondsSince(start);
    if (prepared.submeshes.size() > 1)
        progress("split into " + std::to_string(prepared.submeshes.size()) + " submeshes holding " +
                 std::to_string(prepared.OutputVertexCount()) + " vertices");
    prepared.after = Rendering::AnalyzeFifoVertexCache(prepared.submeshes, cacheSize);
    return prepared;
}

} // namespace Zorvan::Tool

