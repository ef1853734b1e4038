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
#include <oneapi/tbb/parallel_sort.h>

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
    // Key, then triangle number: a total order, so the result is the same
    // whatever the sort's split between threads.
    tbb::parallel_sort(keyed.begin(), keyed.end(), [](KeyedTriangle const& a, KeyedTriangle const& b) {
        return a.key != b.key ? a.key < b.key : a.triangle < b.triangle;
    });
    return keyed;
}

// Walks triangles in the given order and opens a new submesh whenever the
// next triangle's vertices would not fit the current one. Local vertices are
// numbered in order of first use.
template <typename Triangles, typename Order>
std::vector<Submesh> Cut(Triangles const& triangles, Order order, std::size_t vertexCount)
{
    std::vector<Submesh> submeshes;
    std::vector<std::uint32_t> owner(vertexCount, None); // the submesh that numbered the vertex
    std::vector<std::uint16_t> local(vertexCount);
    std::size_t const count = triangles.Count();
    for (std::size_t i = 0; i < count; ++i) {
        std::size_t const t = order(i);
        std::uint32_t const a = triangles.Corner(t, 0);
        std::uint32_t const b = triangles.Corner(t, 1);
        std::uint32_t const c = triangles.Corner(t, 2);
        auto const current = submeshes.empty() ? None : static_cast<std::uint32_t>(submeshes.size() - 1);
        std::size_t const fresh = (owner[a] != current ? 1 : 0) + (b != a && owner[b] != current ? 1 : 0) +
                                  (c != a && c != b && owner[c] != current ? 1 : 0);
        if (submeshes.empty() || submeshes.back().vertices.size() + fresh > MaxSubmeshVertexCount)
            submeshes.emplace_back();
        auto const index = static_cast<std::uint32_t>(submeshes.size() - 1);
        Submesh& submesh = submeshes.back();
        for (std::uint32_t v : {a, b, c}) {
            if (owner[v] != index) {
                owner[v] = index;
                local[v] = static_cast<std::uint16_t>(submesh.vertices.size());
                submesh.vertices.push_back(v);
            }
            submesh.indices.push_back(local[v]);
        }
    }
    return submeshes;
}

// Tipsify, then local vertices renumbered in order of first use.
void Reorder(Submesh& submesh, std::uint16_t cacheSize)
{
    std::vector<std::uint16_t> reordered(submesh.indices.size());
    Tipsify(submesh.indices.data(), reordered.data(), static_cast<unsigned int>(submesh.indices.size()),
            static_cast<unsigned int>(submesh.vertices.size()), 3, cacheSize);

    constexpr std::uint16_t unnumbered = 0xFFFF; // never a local vertex
    std::vector<std::uint16_t> renumber(submesh.vertices.size(), unnumbered);
    std::vector<std::uint32_t> vertices;
    vertices.reserve(submesh.vertices.size());
    for (std::uint16_t& index : reordered) {
        if (renumber[index] == unnumbered) {
            renumber[index] = static_cast<std::uint16_t>(vertices.size());
            vertices.push_back(submesh.vertices[index]);
        }
        index = renumber[index];
    }
    submesh.vertices = std::move(vertices);
    submesh.indices = std::move(reordered);
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
    std::vector<Submesh> submeshes;
    if (bounds.count <= MaxSubmeshVertexCount) {
        submeshes = Cut(triangles, [](std::size_t i) { return i; }, positions.size());
    } else {
        std::vector<KeyedTriangle> const order = SpatialOrder(positions, triangles, bounds);
        submeshes = Cut(triangles, [&order](std::size_t i) { return order[i].triangle; }, positions.size());
    }

    if (cacheSize != 0)
        tbb::parallel_for(tbb::blocked_range<std::size_t>(0, submeshes.size(), 1),
                          [&](tbb::blocked_range<std::size_t> const& r) {
                              for (std::size_t s = r.begin(); s != r.end(); ++s)
                                  Reorder(submeshes[s], cacheSize);
                          });
    return submeshes;
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
