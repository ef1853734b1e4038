// Splits vertices along creases: every corner's smoothed normal is keyed by
// its source vertex, the keys are ordered, and runs of exactly equal keys
// become one new vertex. No tolerance on purpose: corners that summed the same
// faces in the same order already hold bit-identical normals.
//
// The corners come grouped by source vertex, in corner order, from the
// adjacency the normals were smoothed over, so only each vertex's few corners
// need ordering by normal. That is done per vertex in parallel, with corner
// number as the last key: the order is total, hence the same on any thread
// count, and NaN normals (zero-area neighbourhoods) have a place of their own
// instead of upsetting the comparison. A second parallel pass numbers the new
// vertices from each source vertex's exclusive prefix of group counts.

#include "Remapping.h"
#include "Smoothing.h"

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>
#include <oneapi/tbb/partitioner.h>

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace Zorvan::Rendering {
namespace {

template <typename Index>
struct CornerRecord {
    Math::point<float, 3> normal;
    Index corner;
};

// Without short-circuits: three compares and two ORs, no branches.
bool HasNan(Math::point<float, 3> const& n) noexcept
{
    return (static_cast<int>(n[0] != n[0]) | static_cast<int>(n[1] != n[1]) | static_cast<int>(n[2] != n[2])) != 0;
}

// Within one vertex, for normals without NaN: by x, then y, then z, compared
// as floats, then by corner, so that the order is total.
template <typename Index>
bool Before(CornerRecord<Index> const& a, CornerRecord<Index> const& b) noexcept
{
    for (std::size_t i = 0; i < 3; ++i)
        if (a.normal[i] != b.normal[i])
            return a.normal[i] < b.normal[i];
    return a.corner < b.corner;
}

// A vertex has a handful of corners: insertion sort, unless a fan is large.
template <typename Index>
void SortCorners(CornerRecord<Index>* first, CornerRecord<Index>* last)
{
    if (last - first > 16) {
        std::sort(first, last, Before<Index>);
        return;
    }
    for (CornerRecord<Index>* i = first + 1; i < last; ++i) {
        CornerRecord<Index> const record = *i;
        CornerRecord<Index>* j = i;
        for (; j != first && Before(record, j[-1]); --j)
            *j = j[-1];
        *j = record;
    }
}

// Writes one vertex's n corners as records in their final order and returns
// how many new vertices they make; normalOf(i) is the normal of corners[i].
// NaN normals are set aside as they come, so they end up behind the others
// in corner order and the sort never sees them; corners that all share one
// normal (a smooth vertex) are already in order.
template <typename Index, typename NormalOf>
Index OrderVertex(NormalOf const& normalOf, Index const* corners, std::size_t n, CornerRecord<Index>* out)
{
    CornerRecord<Index>* valid = out;
    std::size_t nans = 0;
    for (std::size_t i = 0; i < n; ++i) {
        Math::point<float, 3> const normal = normalOf(i);
        bool const nan = HasNan(normal);
        *valid = {normal, corners[i]};
        valid += nan ? 0 : 1;
        nans += nan ? 1 : 0;
    }
    if (nans != 0) {
        CornerRecord<Index>* tail = valid;
        for (std::size_t i = 0; i < n; ++i)
            if (Math::point<float, 3> const normal = normalOf(i); HasNan(normal))
                *tail++ = {normal, corners[i]};
    }
    if (valid == out)
        return static_cast<Index>(nans);

    bool uniform = true;
    for (CornerRecord<Index> const* r = out + 1; r != valid; ++r)
        uniform &= r->normal == out->normal;
    if (uniform)
        return static_cast<Index>(1 + nans);
    SortCorners(out, valid);
    // A corner joins the group whose first normal it equals (float ==, so
    // -0 and +0 meet); the sort made equal normals adjacent.
    Index groups = 1;
    for (CornerRecord<Index> const* r = out + 1; r != valid; ++r)
        groups += r->normal == r[-1].normal ? 0 : 1;
    return static_cast<Index>(groups + nans);
}

// Vertices per task: some microseconds of work.
constexpr std::size_t VerticesPerTask = 512;

// Runs body over [0, vertexCount) in ranges on oneTBB's workers, or at once
// on the calling thread when there are at most sequentialUpTo vertices: too
// little work to repay waking the workers and joining them, which costs
// tens of microseconds, more on a busy machine.
template <typename Body>
void ForVertices(std::size_t vertexCount, std::size_t sequentialUpTo, Body const& body)
{
    if (vertexCount <= sequentialUpTo) {
        body(tbb::blocked_range<std::size_t>(0, vertexCount));
        return;
    }
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, vertexCount, VerticesPerTask), body,
                      tbb::auto_partitioner());
}

// Completes a remapping whose per-corner vector is already sized (and
// zero-filled, wherever the caller found time for that), with both passes
// on the calling thread up to sequentialUpTo vertices. makeOrderer() gives
// each task a callable, with scratch of its own, that is called as
// (corners, n, out) for one vertex's n corners, listed at corners: it finds
// their normals and passes them to OrderVertex with out. The first pass
// orders each vertex's corners and counts its new vertices, the second
// numbers them from the running total.
template <typename I, typename Index, typename MakeOrderer>
SmoothNormalRemapping<I> Remap(SmoothNormalRemapping<I> result, CornerAdjacency<Index> const& adjacency,
                               std::size_t sequentialUpTo, MakeOrderer const& makeOrderer)
{
    std::size_t const cornerCount = result.remapping.size();
    if (cornerCount == 0)
        return result;

    std::size_t const vertexCount = adjacency.offsets.size() - 1;
    Index const* const offsets = adjacency.offsets.data();
    Index const* const corners = adjacency.corners.get();
    auto const records = std::make_unique_for_overwrite<CornerRecord<Index>[]>(cornerCount);
    // Per source vertex: its count of new vertices, then the first one's number.
    auto const first = std::make_unique_for_overwrite<Index[]>(vertexCount);

    ForVertices(vertexCount, sequentialUpTo, [&](tbb::blocked_range<std::size_t> const& range) {
        auto order = makeOrderer();
        for (std::size_t v = range.begin(); v != range.end(); ++v)
            first[v] = order(corners + offsets[v], offsets[v + 1] - offsets[v], records.get() + offsets[v]);
    });

    Index total = 0;
    for (std::size_t v = 0; v < vertexCount; ++v) {
        Index const groups = first[v];
        first[v] = total;
        total += groups;
    }
    result.vertices.resize(total);
    result.normals.resize(total);

    I* const remapping = result.remapping.data();
    I* const vertices = result.vertices.data();
    Math::point<float, 3>* const normals = result.normals.data();
    ForVertices(vertexCount, sequentialUpTo, [&](tbb::blocked_range<std::size_t> const& range) {
        for (std::size_t v = range.begin(); v != range.end(); ++v) {
            CornerRecord<Index> const* const begin = records.get() + offsets[v];
            CornerRecord<Index> const* const end = records.get() + offsets[v + 1];
            Index next = first[v];
            for (CornerRecord<Index> const* r = begin; r != end; ++r) {
                if (r == begin || !(r->normal == r[-1].normal)) {
                    vertices[next] = static_cast<I>(v);
                    normals[next] = r->normal;
                    ++next;
                }
                remapping[r->corner] = static_cast<I>(next - 1);
            }
        }
    });
    return result;
}

} // namespace

template <typename I, typename Index>
SmoothNormalRemapping<I> GroupCornerNormals(CornerAdjacency<Index> const& adjacency,
                                            span<Math::point<float, 3> const> cornerNormals)
{
    SmoothNormalRemapping<I> result;
    result.remapping.resize(cornerNormals.size());
    // Reading the normals is light work: a few thousand vertices stay on
    // the calling thread.
    return Remap(std::move(result), adjacency, 8 * VerticesPerTask, [cornerNormals] {
        return [cornerNormals](Index const* corners, std::size_t n, CornerRecord<Index>* out) {
            return OrderVertex([&](std::size_t i) { return cornerNormals[corners[i]]; }, corners, n, out);
        };
    });
}

template SmoothNormalRemapping<std::uint32_t> GroupCornerNormals(CornerAdjacency<std::uint32_t> const&,
                                                                 span<Math::point<float, 3> const>);
template SmoothNormalRemapping<std::uint32_t> GroupCornerNormals(CornerAdjacency<std::uint64_t> const&,
                                                                 span<Math::point<float, 3> const>);
template SmoothNormalRemapping<std::uint64_t> GroupCornerNormals(CornerAdjacency<std::uint32_t> const&,
                                                                 span<Math::point<float, 3> const>);
template SmoothNormalRemapping<std::uint64_t> GroupCornerNormals(CornerAdjacency<std::uint64_t> const&,
                                                                 span<Math::point<float, 3> const>);

namespace {

// The whole job: the corner normals are smoothed vertex by vertex inside the
// grouping pass, straight into that vertex's records, so they never make the
// round trip through a per-corner array.
template <typename Index, typename T, typename I>
SmoothNormalRemapping<I> RemapWith(span<Math::point<T, 3> const> positions, span<std::array<I, 3> const> triangles,
                                   double angle)
{
    if (triangles.empty())
        return {};
    // The calling thread zero-fills the per-corner result while the tasks run.
    SmoothNormalRemapping<I> result;
    SmoothingInputs<Index> const inputs = PrepareSmoothing<Index>(
        positions, triangles, angle, [&] { result.remapping.resize(3 * triangles.size()); });
    TriangleNormal const* const faces = inputs.faces.data();
    double const limit = inputs.limit;
    // Smoothing is heavier: only the smallest meshes stay on the calling thread.
    return Remap(std::move(result), inputs.adjacency, 2 * VerticesPerTask, [faces, limit] {
        return [faces, limit, smoother = VertexSmoother(), normals = std::vector<Math::point<float, 3>>()](
                   Index const* corners, std::size_t n, CornerRecord<Index>* out) mutable {
            if (normals.size() < n)
                normals.resize(n);
            smoother.Smooth(faces, corners, n, limit, normals.data());
            return OrderVertex([&](std::size_t i) { return normals[i]; }, corners, n, out);
        };
    });
}

template <typename T, typename I>
SmoothNormalRemapping<I> CalculateSmoothNormalRemappingImpl(span<Math::point<T, 3> const> positions,
                                                            span<std::array<I, 3> const> triangles, double angle)
{
    if (HasThirtyTwoBitCorners(triangles.size()))
        return RemapWith<std::uint32_t>(positions, triangles, angle);
    return RemapWith<std::uint64_t>(positions, triangles, angle);
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
