// Smooth normals and remapping on arbitrary positions (NaN, infinities,
// degenerate and huge triangles included) and in-range indices: no crash, no
// sanitizer report, and the remapping keeps its invariants.

#include "FuzzInput.h"

#include <Rendering/Mesh.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

using namespace Zorvan;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    auto const vertexCount = static_cast<std::uint32_t>(in.Range(1, 64));
    double const angle = static_cast<double>(in.Take<float>());
    bool const useDouble = (in.Take<std::uint8_t>() & 1) != 0;

    std::vector<Math::point<float, 3>> positions(vertexCount);
    std::vector<Math::point<double, 3>> positionsD(vertexCount);
    for (std::uint32_t v = 0; v < vertexCount; ++v)
        for (int c = 0; c < 3; ++c) {
            positions[v][c] = in.Take<float>();
            positionsD[v][c] = positions[v][c];
        }
    std::vector<std::array<std::uint32_t, 3>> triangles(std::min<std::size_t>(in.Remaining() / 3, 256));
    for (auto& t : triangles)
        for (auto& index : t)
            index = in.Take<std::uint8_t>() % vertexCount;

    auto const normals = useDouble ? Rendering::CalculateSmoothTriangleVertexNormals(
                                         std::span<Math::point<double, 3> const>(positionsD), triangles, angle)
                                   : Rendering::CalculateSmoothTriangleVertexNormals(
                                         std::span<Math::point<float, 3> const>(positions), triangles, angle);
    auto const remap = useDouble ? Rendering::CalculateSmoothNormalRemapping(
                                       std::span<Math::point<double, 3> const>(positionsD), triangles, angle)
                                 : Rendering::CalculateSmoothNormalRemapping(
                                       std::span<Math::point<float, 3> const>(positions), triangles, angle);

    if (normals.size() != 3 * triangles.size() || remap.remapping.size() != 3 * triangles.size() ||
        remap.vertices.size() != remap.normals.size())
        std::abort();
    for (std::size_t corner = 0; corner < remap.remapping.size(); ++corner) {
        std::uint32_t const v = remap.remapping[corner];
        if (v >= remap.vertices.size() || remap.vertices[v] != triangles[corner / 3][corner % 3])
            std::abort();
        // A corner maps to a vertex carrying its own normal, unless NaN (never merged).
        auto const& n = normals[corner];
        bool const hasNan = std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]);
        if (!hasNan && !(remap.normals[v] == n))
            std::abort();
    }
    return 0;
}
