// Smooth normals and remapping on arbitrary positions (NaN, infinities,
// degenerate and huge triangles included) and in-range indices: no crash, no
// sanitizer report, the remapping equal to the plain oracle's grouping of the
// corner normals (bit for bit), and the grouping step alone equal to it on
// arbitrary normals.

#include "FuzzInput.h"
#include "oracles/RemapOracle.h"

#include "mesh/Remapping.h"

#include <Rendering/Mesh.h>

#include <array>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

using namespace Zorvan;

namespace {

template <typename I>
bool Same(Rendering::SmoothNormalRemapping<I> const& a, Rendering::SmoothNormalRemapping<I> const& b)
{
    return a.remapping == b.remapping && a.vertices == b.vertices && a.normals.size() == b.normals.size() &&
           (a.normals.empty() ||
            std::memcmp(a.normals.data(), b.normals.data(), a.normals.size() * sizeof(a.normals[0])) == 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    auto const vertexCount = static_cast<std::uint32_t>(in.Range(1, 64));
    double const angle = static_cast<double>(in.Take<float>());
    auto const mode = in.Take<std::uint8_t>();
    bool const useDouble = (mode & 1) != 0;
    bool const wideIndices = (mode & 2) != 0;

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
    std::vector<std::array<std::uint64_t, 3>> wide;
    for (auto const& t : triangles)
        wide.push_back({t[0], t[1], t[2]});

    auto const normals = useDouble ? Rendering::CalculateSmoothTriangleVertexNormals(
                                         std::span<Math::point<double, 3> const>(positionsD), triangles, angle)
                                   : Rendering::CalculateSmoothTriangleVertexNormals(
                                         std::span<Math::point<float, 3> const>(positions), triangles, angle);
    if (normals.size() != 3 * triangles.size())
        std::abort();

    if (wideIndices) {
        auto const remap = useDouble ? Rendering::CalculateSmoothNormalRemapping(
                                           std::span<Math::point<double, 3> const>(positionsD), wide, angle)
                                     : Rendering::CalculateSmoothNormalRemapping(
                                           std::span<Math::point<float, 3> const>(positions), wide, angle);
        if (!Same(remap, Oracles::GroupCornerNormals(wide, normals)))
            std::abort();
    } else {
        auto const remap = useDouble ? Rendering::CalculateSmoothNormalRemapping(
                                           std::span<Math::point<double, 3> const>(positionsD), triangles, angle)
                                     : Rendering::CalculateSmoothNormalRemapping(
                                           std::span<Math::point<float, 3> const>(positions), triangles, angle);
        if (!Same(remap, Oracles::GroupCornerNormals(triangles, normals)))
            std::abort();
    }

    // The grouping step on normals straight from the input: any bit pattern,
    // NaN payloads and signed zeros included.
    std::vector<Math::point<float, 3>> raw(normals.size());
    for (auto& n : raw)
        for (int c = 0; c < 3; ++c) {
            // Mostly values that tie, or tie but for the sign of zero.
            auto const kind = in.Take<std::uint8_t>() % 4;
            n[c] = kind == 0 ? 0.0f : kind == 1 ? -0.0f : kind == 2 ? 1.0f : std::bit_cast<float>(in.Take<std::uint32_t>());
        }
    auto const adjacency = Rendering::BuildCornerAdjacency<std::uint32_t>(
        vertexCount, Rendering::span<std::array<std::uint32_t, 3> const>(triangles));
    auto const grouped =
        Rendering::GroupCornerNormals<std::uint32_t>(adjacency, Rendering::span<Math::point<float, 3> const>(raw));
    if (!Same(grouped, Oracles::GroupCornerNormals(triangles, raw)))
        std::abort();
    return 0;
}
