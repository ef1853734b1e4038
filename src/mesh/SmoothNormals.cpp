// Crease-aware per-corner normals: each corner averages, weighted by area, the
// faces around its vertex whose normal lies within the crease angle of its own
// face. The vertex -> corner adjacency is built sequentially while the face
// normals are computed in parallel; the corner loop then reads only shared
// inputs and writes its own triangle's three entries, so the result does not
// depend on the thread count. Listing corners rather than triangles costs a
// division by 3 per entry and lets the remapping reuse the adjacency as its
// grouping of corners by vertex.

#include "Smoothing.h"

#include <Rendering/Mesh.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>

#include <cstddef>

namespace Zorvan::Rendering {

template <typename Index, typename I>
CornerAdjacency<Index> BuildCornerAdjacency(std::size_t vertexCount, span<std::array<I, 3> const> triangles)
{
    CornerAdjacency<Index> adjacency;
    std::vector<Index>& offsets = adjacency.offsets;
    offsets.assign(vertexCount + 1, 0);
    for (std::array<I, 3> const& triangle : triangles)
        for (I const v : triangle)
            ++offsets[static_cast<std::size_t>(v) + 1];
    for (std::size_t v = 0; v < vertexCount; ++v)
        offsets[v + 1] += offsets[v];

    // offsets[v] serves as v's cursor; afterwards it holds v + 1's start, so a
    // shift by one restores the offsets without a second array.
    adjacency.corners = std::make_unique_for_overwrite<Index[]>(3 * triangles.size());
    Index* const corners = adjacency.corners.get();
    Index corner = 0;
    for (std::array<I, 3> const& triangle : triangles)
        for (I const v : triangle)
            corners[offsets[static_cast<std::size_t>(v)]++] = corner++;
    for (std::size_t v = vertexCount; v > 0; --v)
        offsets[v] = offsets[v - 1];
    offsets[0] = 0;
    return adjacency;
}

namespace {

template <typename Index, typename T, typename I>
std::vector<Math::point<float, 3>> CornerNormals(span<Math::point<T, 3> const> positions,
                                                 span<std::array<I, 3> const> triangles, double angle)
{
    if (triangles.empty())
        return {};

    // The calling thread zero-fills the result while the tasks run, so that
    // its page faults are not serial.
    std::vector<Math::point<float, 3>> result;
    SmoothingInputs<Index> const inputs =
        PrepareSmoothing<Index>(positions, triangles, angle, [&] { result.resize(3 * triangles.size()); });

    double const limit = inputs.limit;
    TriangleNormal const* const face = inputs.faces.data();
    Index const* const offsets = inputs.adjacency.offsets.data();
    Index const* const corners = inputs.adjacency.corners.get();

    tbb::parallel_for(
        tbb::blocked_range<std::size_t>(0, triangles.size(), 1),
        [&](tbb::blocked_range<std::size_t> const& range) {
            for (std::size_t t = range.begin(); t != range.end(); ++t) {
                double const nx = face[t].normal[0];
                double const ny = face[t].normal[1];
                double const nz = face[t].normal[2];
                for (std::size_t k = 0; k < 3; ++k) {
                    std::size_t const v = static_cast<std::size_t>(triangles[t][k]);
                    float sx = 0.0f, sy = 0.0f, sz = 0.0f;
                    for (Index e = offsets[v], end = offsets[v + 1]; e != end; ++e) {
                        TriangleNormal const& other = face[corners[e] / 3];
                        double const dot = nx * other.normal[0] + ny * other.normal[1] + nz * other.normal[2];
                        if (dot > limit) {
                            sx += other.normal[0] * other.magnitude;
                            sy += other.normal[1] * other.magnitude;
                            sz += other.normal[2] * other.magnitude;
                        }
                    }
                    // No guard: a corner nothing passed for divides 0 by 0.
                    double const length = VectorLength(sx, sy, sz);
                    result[3 * t + k] = {{static_cast<float>(sx / length), static_cast<float>(sy / length),
                                          static_cast<float>(sz / length)}};
                }
            }
        },
        tbb::auto_partitioner());
    return result;
}

} // namespace

template <typename T, typename I>
std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(span<Math::point<T, 3> const> positions,
                                                                      span<std::array<I, 3> const> triangles,
                                                                      double angle)
{
    if (HasThirtyTwoBitCorners(triangles.size()))
        return CornerNormals<std::uint32_t>(positions, triangles, angle);
    return CornerNormals<std::uint64_t>(positions, triangles, angle);
}

template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<float, 3> const>, span<std::array<std::uint32_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<double, 3> const>, span<std::array<std::uint32_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<float, 3> const>, span<std::array<std::uint64_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<double, 3> const>, span<std::array<std::uint64_t, 3> const>, double);

template CornerAdjacency<std::uint32_t> BuildCornerAdjacency(std::size_t, span<std::array<std::uint32_t, 3> const>);
template CornerAdjacency<std::uint32_t> BuildCornerAdjacency(std::size_t, span<std::array<std::uint64_t, 3> const>);
template CornerAdjacency<std::uint64_t> BuildCornerAdjacency(std::size_t, span<std::array<std::uint32_t, 3> const>);
template CornerAdjacency<std::uint64_t> BuildCornerAdjacency(std::size_t, span<std::array<std::uint64_t, 3> const>);

std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(positions, triangles, angle);
}
std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(positions, triangles, angle);
}
std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<VertexP const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(AsPoints(positions), triangles, angle);
}
std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(positions, triangles, angle);
}
std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(positions, triangles, angle);
}
std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<VertexP const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateTriangleVertexNormalsImpl(AsPoints(positions), triangles, angle);
}

} // namespace Zorvan::Rendering
