// Crease-aware per-corner normals: each corner averages, weighted by area, the
// faces around its vertex whose normal lies within the crease angle of its own
// face. The vertex -> triangle adjacency is built sequentially while the face
// normals are computed in parallel; the corner loop then reads only shared
// inputs and writes its own triangle's three entries, so the result does not
// depend on the thread count.

#include "Normals.h"

#include <Rendering/Mesh.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>
#include <oneapi/tbb/task_group.h>

#include <cstddef>

namespace Zorvan::Rendering {
namespace {

// For each vertex, the triangles using it in increasing order (twice if a
// triangle names it twice), as one offsets array and one flat list.
struct VertexTriangleAdjacency {
    std::vector<std::uint64_t> offsets; // vertexCount + 1
    std::vector<std::uint64_t> list;    // 3 per triangle
};

template <typename I>
VertexTriangleAdjacency BuildAdjacency(std::size_t vertexCount, span<std::array<I, 3> const> triangles)
{
    VertexTriangleAdjacency adjacency;
    std::vector<std::uint64_t>& offsets = adjacency.offsets;
    offsets.assign(vertexCount + 1, 0);
    for (std::array<I, 3> const& triangle : triangles)
        for (I const v : triangle)
            ++offsets[static_cast<std::size_t>(v) + 1];
    for (std::size_t v = 0; v < vertexCount; ++v)
        offsets[v + 1] += offsets[v];

    // offsets[v] serves as v's cursor; afterwards it holds v + 1's start, so a
    // shift by one restores the offsets without a second array.
    adjacency.list.resize(3 * triangles.size());
    std::uint64_t* const list = adjacency.list.data();
    for (std::size_t t = 0; t < triangles.size(); ++t)
        for (I const v : triangles[t])
            list[offsets[static_cast<std::size_t>(v)]++] = t;
    for (std::size_t v = vertexCount; v > 0; --v)
        offsets[v] = offsets[v - 1];
    offsets[0] = 0;
    return adjacency;
}

} // namespace

template <typename T, typename I>
std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(span<Math::point<T, 3> const> positions,
                                                                      span<std::array<I, 3> const> triangles,
                                                                      double angle)
{
    if (triangles.empty())
        return {};

    std::vector<TriangleNormal> faces;
    VertexTriangleAdjacency adjacency;
    tbb::task_group group;
    group.run([&] { faces = CalculateTriangleNormals(positions, triangles); });
    group.run([&] { adjacency = BuildAdjacency(positions.size(), triangles); });
    // The calling thread's own share while the tasks run: the threshold, and
    // zero-filling the result, whose page faults would otherwise be serial.
    float const threshold = static_cast<float>(std::cos(angle));
    std::vector<Math::point<float, 3>> result(3 * triangles.size());
    group.wait();

    double const limit = threshold;
    TriangleNormal const* const face = faces.data();
    std::uint64_t const* const offsets = adjacency.offsets.data();
    std::uint64_t const* const list = adjacency.list.data();

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
                    for (std::uint64_t e = offsets[v], end = offsets[v + 1]; e != end; ++e) {
                        TriangleNormal const& other = face[list[e]];
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

template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<float, 3> const>, span<std::array<std::uint32_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<double, 3> const>, span<std::array<std::uint32_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<float, 3> const>, span<std::array<std::uint64_t, 3> const>, double);
template std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(
    span<Math::point<double, 3> const>, span<std::array<std::uint64_t, 3> const>, double);

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
