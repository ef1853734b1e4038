#include "MeshPrep.h"

#include <chrono>
#include <cmath>
#include <limits>
#include <numbers>

namespace Zorvan::Tool {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Cuts the remapped triangle list into runs of consecutive triangles that
// each reference at most MaxSubmeshVertices vertices, numbered locally in
// order of first use.
std::vector<Submesh> Split(std::vector<std::uint32_t> const& corners, std::size_t vertexCount)
{
    constexpr auto none = std::numeric_limits<std::uint32_t>::max();
    std::vector<Submesh> submeshes;
    std::vector<std::uint32_t> local(vertexCount, none);
    std::vector<std::uint32_t> owner(vertexCount, none); // submesh that numbered the vertex
    for (std::size_t c = 0; c < corners.size(); c += 3) {
        auto const current = static_cast<std::uint32_t>(submeshes.size() - 1);
        std::size_t fresh = 0;
        if (!submeshes.empty())
            for (std::size_t k = 0; k < 3; ++k)
                fresh += owner[corners[c + k]] != current ? 1 : 0;
        if (submeshes.empty() || submeshes.back().vertices.size() + fresh > MaxSubmeshVertices)
            submeshes.emplace_back();
        auto const index = static_cast<std::uint32_t>(submeshes.size() - 1);
        Submesh& sub = submeshes.back();
        for (std::size_t k = 0; k < 3; ++k) {
            std::uint32_t const v = corners[c + k];
            if (owner[v] != index) {
                owner[v] = index;
                local[v] = static_cast<std::uint32_t>(sub.vertices.size());
                sub.vertices.push_back(v);
            }
            sub.indices.push_back(static_cast<std::uint16_t>(local[v]));
        }
    }
    return submeshes;
}

} // namespace

std::size_t PreparedMesh::OutputVertexCount() const
{
    std::size_t count = 0;
    for (Submesh const& sub : submeshes)
        count += sub.vertices.size();
    return count;
}

std::vector<std::uint32_t> PreparedMesh::GlobalIndices() const
{
    std::vector<std::uint32_t> indices;
    for (Submesh const& sub : submeshes)
        for (std::uint16_t i : sub.indices)
            indices.push_back(sub.vertices[i]);
    return indices;
}

std::vector<MeshPart> PreparedMesh::Parts(MeshData const& source) const
{
    std::vector<MeshPart> parts;
    for (Submesh const& sub : submeshes) {
        MeshPart& part = parts.emplace_back();
        for (std::uint32_t v : sub.vertices) {
            std::uint32_t const from = remapping.vertices[v];
            auto n = remapping.normals[v];
            if (std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]))
                n = {};
            part.positions.push_back(source.positions[from]);
            part.normals.push_back(n);
            if (!source.texcoords.empty())
                part.texcoords.push_back(source.texcoords[from]);
        }
        part.indices.assign(sub.indices.begin(), sub.indices.end());
    }
    return parts;
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

    auto const vertexCount = static_cast<std::uint32_t>(prepared.remapping.vertices.size());
    std::vector<std::uint32_t> const& corners = prepared.remapping.remapping;
    prepared.before = AnalyseFifoCache(corners, vertexCount, cacheSize);

    start = Clock::now();
    prepared.submeshes = Split(corners, vertexCount);
    std::vector<std::uint16_t> reordered;
    for (std::size_t s = 0; s < prepared.submeshes.size(); ++s) {
        Submesh& sub = prepared.submeshes[s];
        if (prepared.submeshes.size() > 1)
            progress("reordering submesh " + std::to_string(s + 1) + " of " +
                     std::to_string(prepared.submeshes.size()));
        reordered.assign(sub.indices.size(), 0);
        Rendering::Tipsify(sub.indices.data(), reordered.data(), static_cast<unsigned>(sub.indices.size()),
                           static_cast<unsigned>(sub.vertices.size()), 3, cacheSize);
        sub.indices.swap(reordered);
    }
    prepared.reorderSeconds = SecondsSince(start);
    prepared.after = AnalyseFifoCache(prepared.GlobalIndices(), vertexCount, cacheSize);
    return prepared;
}

} // namespace Zorvan::Tool

