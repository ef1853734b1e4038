// Splits a large mesh into 16-bit submeshes. Cutting the triangles in input
// order would scatter every submesh over the whole mesh when that order has
// no locality (a shuffled mesh stores each vertex in many submeshes), so
// triangles are first sorted along a 3D Hilbert curve through their
// centroids; a greedy cut of that order yields compact regions that share
// only their borders. Each submesh is then reordered with Tipsify and its
// vertices renumbered in order of first use, which also serves the
// pre-transform (fetch) cache.

#include "HilbertCurve.h"
#include "Normals.h"

#include <Rendering/Mesh.h>

#include <oneapi/tbb/blocked_range.h>
#include <oneapi/tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <numeric>

namespace Zorvan::Rendering {
namespace {

constexpr std::uint32_t None = std::numeric_limits<std::uint32_t>::max();

// Whole triangles of a flat index list or of an array of triangles.
struct FlatTriangles {
    span<std::uint32_t const> indices;
    std::size_t Count() const noexcept { return indices.size() / 3; }
    std::uint32_t Corner(std::size_t t, std::size_t k) const noexcept { return indices[3 * t + k]; }
};

struct ArrayTriangles {
    span<std::array<std::uint32_t, 3> const> triangles;
    std::size_t Count() const noexcept { return triangles.size(); }
    std::uint32_t Corner(std::size_t t, std::size_t k) const noexcept { return triangles[t][k]; }
};

// Bounds of the positions that triangles use, finite coordinates only.
struct UsedVertices {
    std::size_t count = 0;
    double lower[3] = {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::infinity(),
                       std::numeric_limits<double>::infinity()};
    double upper[3] = {-std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
                       -std::numeric_limits<double>::infinity()};
};

template <typename T>
UsedVertices MeasureUsedVertices(span<Math::point<T, 3> const> positions, std::vector<bool> const& used)
{
    UsedVertices result;
    for (std::size_t v = 0; v < positions.size(); ++v) {
        if (!used[v])
            continue;
        ++result.count;
        for (std::size_t a = 0; a < 3; ++a) {
            auto const c = static_cast<double>(positions[v][a]);
            if (std::isfinite(c)) {
                result.lower[a] = std::min(result.lower[a], c);
                result.upper[a] = std::max(result.upper[a], c);
            }
        }
    }
    return result;
}

struct KeyedTriangle {
    std::uint64_t key;
    std::size_t triangle;
};

// Sorts by key, then triangle number. A stable counting sort on the key's
// top bits leaves small buckets, already in triangle order, which are then
// sorted by the whole key in parallel; the order is total, so the result
// does not depend on how buckets fall to threads.
std::vector<KeyedTriangle> SortByKey(std::vector<KeyedTriangle> const& keyed)
{
    constexpr unsigned bucketBits = 16;
    constexpr unsigned shift = 64 - bucketBits;
    std::vector<std::size_t> start((std::size_t{1} << bucketBits) + 1, 0);
    for (KeyedTriangle const& k : keyed)
        ++start[(k.key >> shift) + 1];
    std::partial_sum(start.begin(), start.end(), start.begin());
    std::vector<KeyedTriangle> sorted(keyed.size());
    std::vector<std::size_t> next(start.begin(), start.end() - 1);
    for (KeyedTriangle const& k : keyed)
        sorted[next[k.key >> shift]++] = k;

    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, std::size_t{1} << bucketBits, 256),
                      [&](tbb::blocked_range<std::size_t> const& r) {
                          for (std::size_t b = r.begin(); b != r.end(); ++b)
                              if (start[b + 1] - start[b] > 1)
                                  std::sort(sorted.begin() + static_cast<std::ptrdiff_t>(start[b]),
                                            sorted.begin() + static_cast<std::ptrdiff_t>(start[b + 1]),
                                            [](KeyedTriangle const& x, KeyedTriangle const& y) {
                                                return x.key != y.key ? x.key < y.key : x.triangle < y.triangle;
                                            });
                      });
    return sorted;
}

// Triangle numbers sorted by the Hilbert index of their centroid in the
// bounding cube of the used vertices (one scale for all axes, so the cells
// are cubes and a flat mesh is not stretched), ties in input order. A
// centroid with a non-finite coordinate sorts after every finite one.
template <typename T, typename Triangles>
std::vector<KeyedTriangle> SpatialOrder(span<Math::point<T, 3> const> positions, Triangles const& triangles,
                                        UsedVertices const& bounds)
{
    double extent = 0.0;
    for (std::size_t a = 0; a < 3; ++a)
        extent = std::max(extent, bounds.upper[a] - bounds.lower[a]);
    // A flat or point-like mesh (or one with no finite position) gets one cell.
    double const scale = extent > 0.0 && std::isfinite(extent) ? double(HilbertCells - 1) / extent : 0.0;

    std::size_t const count = triangles.Count();
    std::vector<KeyedTriangle> keyed(count);
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, count, 4096), [&](tbb::blocked_range<std::size_t> const& r) {
        for (std::size_t t = r.begin(); t != r.end(); ++t) {
            std::uint32_t cell[3];
            bool finite = true;
            for (std::size_t a = 0; a < 3; ++a) {
                double const centroid = (static_cast<double>(positions[triangles.Corner(t, 0)][a]) +
                                         static_cast<double>(positions[triangles.Corner(t, 1)][a]) +
                                         static_cast<double>(positions[triangles.Corner(t, 2)][a])) /
                                        3.0;
                double const offset = (centroid - bounds.lower[a]) * scale;
                finite = finite && std::isfinite(offset);
                // The clamp also catches a centroid a rounding step outside the bounds.
                cell[a] = finite ? static_cast<std::uint32_t>(std::clamp(offset, 0.0, double(HilbertCells - 1))) : 0;
            }
            keyed[t] = {finite ? HilbertIndex(cell[0], cell[1], cell[2]) : std::numeric_limits<std::uint64_t>::max(),
                        t};
        }
    });
    return SortByKey(keyed);
}

// Submeshes with their vertices, and their local indices still in one list,
// submesh after submesh (Tipsify then reads its slice in place).
struct Cutting {
    std::vector<Submesh> submeshes;       // vertices only
    std::vector<std::size_t> firstCorner; // per submesh, plus the end
    std::vector<std::uint16_t> corners;
};

// Walks triangles in the given order and opens a new submesh whenever the
// next triangle's vertices would not fit the current one. Local vertices are
// numbered in order of first use.
template <typename Triangles, typename Order>
Cutting Cut(Triangles const& triangles, Order order, std::size_t vertexCount)
{
    Cutting cutting;
    std::size_t const count = triangles.Count();
    cutting.corners.resize(3 * count);
    std::vector<std::uint32_t> owner(vertexCount, None); // the submesh that numbered the vertex
    std::vector<std::uint16_t> local(vertexCount);
    std::uint32_t current = None;
    Submesh* submesh = nullptr;
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t const t = order(i);
        std::uint32_t const a = triangles.Corner(t, 0);
        std::uint32_t const b = triangles.Corner(t, 1);
        std::uint32_t const c = triangles.Corner(t, 2);
        std::size_t const fresh = (owner[a] != current ? 1 : 0) + (b != a && owner[b] != current ? 1 : 0) +
                                  (c != a && c != b && owner[c] != current ? 1 : 0);
        if (submesh == nullptr || submesh->vertices.size() + fresh > MaxSubmeshVertexCount) {
            submesh = &cutting.submeshes.emplace_back();
            cutting.firstCorner.push_back(3 * i);
            current = static_cast<std::uint32_t>(cutting.submeshes.size() - 1);
        }
        std::uint16_t* out = &cutting.corners[3 * i];
        for (std::uint32_t v : {a, b, c}) {
            if (owner[v] != current) {
                owner[v] = current;
                local[v] = static_cast<std::uint16_t>(submesh->vertices.size());
                submesh->vertices.push_back(v);
            }
            *out++ = local[v];
        }
    }
    cutting.firstCorner.push_back(3 * count);
    return cutting;
}

// Tipsify, then local vertices renumbered in order of first use.
void Reorder(Submesh& submesh, std::uint16_t const* corners, std::size_t cornerCount, std::uint16_t cacheSize)
{
    submesh.indices.resize(cornerCount);
    Tipsify(corners, submesh.indices.data(), static_cast<unsigned int>(cornerCount),
            static_cast<unsigned int>(submesh.vertices.size()), 3, cacheSize);

    constexpr std::uint16_t unnumbered = 0xFFFF; // never a local vertex
    std::vector<std::uint16_t> renumber(submesh.vertices.size(), unnumbered);
    std::vector<std::uint32_t> vertices;
    vertices.reserve(submesh.vertices.size());
    for (std::uint16_t& index : submesh.indices) {
        if (renumber[index] == unnumbered) {
            renumber[index] = static_cast<std::uint16_t>(vertices.size());
            vertices.push_back(submesh.vertices[index]);
        }
        index = renumber[index];
    }
    submesh.vertices = std::move(vertices);
}

template <typename T, typename Triangles>
std::vector<Submesh> Split(span<Math::point<T, 3> const> positions, Triangles const& triangles,
                           std::uint16_t cacheSize)
{
    std::size_t const count = triangles.Count();
    std::vector<bool> used(positions.size(), false);
    for (std::size_t t = 0; t < count; ++t)
        for (std::size_t k = 0; k < 3; ++k) {
            std::uint32_t const v = triangles.Corner(t, k);
            if (v >= positions.size())
                return {};
            used[v] = true;
        }
    if (count == 0)
        return {};

    UsedVertices const bounds = MeasureUsedVertices(positions, used);
    used = {};
    Cutting cutting;
    if (bounds.count <= MaxSubmeshVertexCount) {
        cutting = Cut(triangles, [](std::size_t i) { return i; }, positions.size());
    } else {
        std::vector<KeyedTriangle> const order = SpatialOrder(positions, triangles, bounds);
        cutting = Cut(triangles, [&order](std::size_t i) { return order[i].triangle; }, positions.size());
    }

    std::vector<Submesh>& submeshes = cutting.submeshes;
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, submeshes.size(), 1),
                      [&](tbb::blocked_range<std::size_t> const& r) {
                          for (std::size_t s = r.begin(); s != r.end(); ++s) {
                              std::uint16_t const* first = cutting.corners.data() + cutting.firstCorner[s];
                              std::size_t const size = cutting.firstCorner[s + 1] - cutting.firstCorner[s];
                              if (cacheSize != 0)
                                  Reorder(submeshes[s], first, size, cacheSize);
                              else
                                  submeshes[s].indices.assign(first, first + size);
                          }
                      });
    return std::move(submeshes);
}

} // namespace

std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<float, 3> const> positions,
                                             span<std::array<std::uint32_t, 3> const> triangles,
                                             std::uint16_t cacheSize)
{
    return Split(positions, ArrayTriangles{triangles}, cacheSize);
}

std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<double, 3> const> positions,
                                             span<std::array<std::uint32_t, 3> const> triangles,
                                             std::uint16_t cacheSize)
{
    return Split(positions, ArrayTriangles{triangles}, cacheSize);
}

std::vector<Submesh> SplitInto16BitSubmeshes(span<VertexP const> positions,
                                             span<std::array<std::uint32_t, 3> const> triangles,
                                             std::uint16_t cacheSize)
{
    return Split(AsPoints(positions), ArrayTriangles{triangles}, cacheSize);
}

std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<float, 3> const> positions,
                                             span<std::uint32_t const> indices, std::uint16_t cacheSize)
{
    return Split(positions, FlatTriangles{indices}, cacheSize);
}

std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<double, 3> const> positions,
                                             span<std::uint32_t const> indices, std::uint16_t cacheSize)
{
    return Split(positions, FlatTriangles{indices}, cacheSize);
}

std::vector<Submesh> SplitInto16BitSubmeshes(span<VertexP const> positions, span<std::uint32_t const> indices,
                                             std::uint16_t cacheSize)
{
    return Split(AsPoints(positions), FlatTriangles{indices}, cacheSize);
}

} // namespace Zorvan::Rendering
