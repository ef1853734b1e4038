// Splits vertices along creases: every corner's smoothed normal is keyed by
// its source vertex, the keys are sorted, and runs of exactly equal keys
// become one new vertex. No tolerance on purpose: corners that summed the same
// faces in the same order already hold bit-identical normals.

#include "Normals.h"

#include <Rendering/Mesh.h>

#include <oneapi/tbb/parallel_sort.h>

#include <cstddef>

namespace Zorvan::Rendering {
namespace {

template <typename I>
struct TriangleVertexNormal {
    I vertex;
    Math::point<float, 3> normal;
    std::uint64_t corner; // 3t + k
};

// By source vertex, then normal x, y, z. The corner is not part of the key:
// equal keys land in one group whatever their order.
template <typename I>
bool Before(TriangleVertexNormal<I> const& a, TriangleVertexNormal<I> const& b) noexcept
{
    if (a.vertex != b.vertex)
        return a.vertex < b.vertex;
    if (a.normal[0] != b.normal[0])
        return a.normal[0] < b.normal[0];
    if (a.normal[1] != b.normal[1])
        return a.normal[1] < b.normal[1];
    return a.normal[2] < b.normal[2];
}

template <typename I>
bool SameKey(TriangleVertexNormal<I> const& a, TriangleVertexNormal<I> const& b) noexcept
{
    return a.vertex == b.vertex && a.normal[0] == b.normal[0] && a.normal[1] == b.normal[1] &&
           a.normal[2] == b.normal[2];
}

template <typename T, typename I>
SmoothNormalRemapping<I> CalculateSmoothNormalRemappingImpl(span<Math::point<T, 3> const> positions,
                                                            span<std::array<I, 3> const> triangles, double angle)
{
    std::vector<Math::point<float, 3>> const cornerNormals =
        CalculateTriangleVertexNormalsImpl(positions, triangles, angle);

    std::vector<TriangleVertexNormal<I>> records;
    records.reserve(3 * triangles.size());
    for (std::size_t t = 0; t < triangles.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            records.push_back({triangles[t][k], cornerNormals[3 * t + k], 3 * t + k});

    SmoothNormalRemapping<I> result;
    result.remapping.resize(records.size());
    if (records.empty())
        return result;

    tbb::parallel_sort(records.begin(), records.end(),
                       [](TriangleVertexNormal<I> const& a, TriangleVertexNormal<I> const& b) { return Before(a, b); });

    // A NaN normal never equals its group's key, so each such corner opens a
    // group of its own.
    I counter = 0;
    TriangleVertexNormal<I> const* key = &records.front();
    result.vertices.push_back(key->vertex);
    result.normals.push_back(key->normal);
    result.remapping[key->corner] = 0;
    for (std::size_t r = 1; r < records.size(); ++r) {
        TriangleVertexNormal<I> const& record = records[r];
        if (!SameKey(record, *key)) {
            ++counter;
            key = &record;
            result.vertices.push_back(record.vertex);
            result.normals.push_back(record.normal);
        }
        result.remapping[record.corner] = counter;
    }
    return result;
}

} // namespace

SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(positions, triangles, angle);
}
SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(positions, triangles, angle);
}
SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<VertexP const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(AsPoints(positions), triangles, angle);
}
SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(positions, triangles, angle);
}
SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(positions, triangles, angle);
}
SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<VertexP const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle)
{
    return CalculateSmoothNormalRemappingImpl(AsPoints(positions), triangles, angle);
}

} // namespace Zorvan::Rendering
