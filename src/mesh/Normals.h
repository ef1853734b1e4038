#pragma once

// Face normals, the scaled vector length they share with the corner normals,
// and the crease-aware corner smoothing behind CalculateSmoothTriangleVertexNormals
// and CalculateSmoothNormalRemapping.

#include <Rendering/Core.h>
#include <Rendering/Vertex.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <vector>

namespace Zorvan::Rendering {

struct TriangleNormal {
    Math::point<float, 3> normal; // unit, or the raw cross product when magnitude is 0
    float magnitude;              // |e1 x e2|, twice the area
};

// Length of (a, b, c) without overflow or underflow: the two smaller
// components are scaled by the largest before squaring. Zero for a zero
// vector; NaN in gives NaN out.
inline double VectorLength(double a, double b, double c) noexcept
{
    double const x = std::fabs(a);
    double const y = std::fabs(b);
    double const z = std::fabs(c);
    double m, u, w;
    if (x >= y && x >= z) {
        m = x, u = y, w = z;
    } else if (y >= z) {
        m = y, u = x, w = z;
    } else {
        m = z, u = x, w = y;
    }
    double const d = std::max(m, 4.9406564584124654e-324);
    u /= d;
    w /= d;
    return m * std::sqrt(1.0 + (u * u + w * w));
}

// VertexP has the layout of point<float, 3>, so positions need no copy.
inline span<Math::point<float, 3> const> AsPoints(span<VertexP const> positions) noexcept
{
    return {reinterpret_cast<Math::point<float, 3> const*>(positions.data()), positions.size()};
}

// For each vertex, the corners 3t + k that reference it, in increasing order
// (by triangle, then by corner within a triangle), as one offsets array and
// one flat list. Index is 32-bit whenever the corner count allows it.
template <typename Index>
struct CornerAdjacency {
    std::vector<Index> offsets;       // vertexCount + 1
    std::unique_ptr<Index[]> corners; // 3 per triangle
};

// Whether the corners of triangleCount triangles can be numbered in 32 bits.
inline bool HasThirtyTwoBitCorners(std::size_t triangleCount) noexcept
{
    return triangleCount <= std::numeric_limits<std::uint32_t>::max() / 3;
}

template <typename Index, typename I>
CornerAdjacency<Index> BuildCornerAdjacency(std::size_t vertexCount, span<std::array<I, 3> const> triangles);

// One entry per triangle; empty input starts no parallel work.
template <typename T, typename I>
std::vector<TriangleNormal> CalculateTriangleNormals(span<Math::point<T, 3> const> positions,
                                                     span<std::array<I, 3> const> triangles);

// Entry 3t + k: the normal of corner k of triangle t, the area-weighted sum of
// the normals of the triangles around that corner's vertex whose face normal
// lies within angle of t's, divided by its length (NaN when nothing passes).
template <typename T, typename I>
std::vector<Math::point<float, 3>> CalculateTriangleVertexNormalsImpl(span<Math::point<T, 3> const> positions,
                                                                      span<std::array<I, 3> const> triangles,
                                                                      double angle);

} // namespace Zorvan::Rendering
