#pragma once

// Mesh preprocessing on host arrays: vertex-cache reordering and crease-aware
// per-corner normals. None of these touch a device; the normal routines run
// data-parallel on oneTBB's worker threads and are deterministic whatever the
// thread count.

#include <Rendering/Core.h>
#include <Rendering/Export.h>
#include <Rendering/Vertex.h>

#include <array>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {

// Reorders the primitives of a 16-bit indexed mesh for a post-transform vertex
// cache of cacheSize entries (Tipsify: Sander, Nehab, Barczak, "Fast
// Triangle Reordering for Vertex Locality and Reduced Overdraw", 2007).
// Writes (indexCount / primitiveSize) * primitiveSize indices to result: every
// primitive once, corners in their input order. Does nothing when a pointer is
// null or any count is 0. Indices must be below vertexCount and indexCount a
// whole multiple of primitiveSize (neither is checked).
ZGU_API void Tipsify(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount,
                     unsigned int vertexCount, unsigned int primitiveSize, std::uint16_t cacheSize);

// One unit normal per triangle corner (entry 3t + k for corner k of triangle
// t), averaged over the triangles sharing the corner's vertex index, weighted
// by area, for faces whose normals differ from the corner's face by less than
// angle (radians). A corner nothing contributes to is NaN (degenerate faces).
// Only shared indices blend: coincident positions under different indices do
// not.
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<VertexP const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);
ZGU_API std::vector<Math::point<float, 3>> CalculateSmoothTriangleVertexNormals(
    span<VertexP const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);

// A mesh re-expressed with one normal per vertex.
template <typename I>
struct SmoothNormalRemapping {
    std::vector<I> remapping;                     // per corner (3t + k): the new vertex
    std::vector<I> vertices;                      // per new vertex: its source vertex index
    std::vector<Math::point<float, 3>> normals;   // per new vertex: its normal
};

// Splits every source vertex into as many new vertices as its corners have
// distinct smoothed normals (exact float equality, no tolerance, so -0 and +0
// are one value) and maps every corner to its new vertex. New vertices are
// numbered in ascending order of (source index, normal x, y, z); unused source
// vertices yield none. A corner whose normal has a NaN component (nothing but
// zero-area faces around it) equals no other: it gets a new vertex of its own,
// numbered after the other new vertices of its source vertex, in corner
// order. Corners whose normals differ only in the sign of a zero share a new
// vertex that keeps the lowest-numbered corner's bits. The result is the same
// on every run, whatever the thread count.
ZGU_API SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API SmoothNormalRemapping<std::uint32_t> CalculateSmoothNormalRemapping(
    span<VertexP const> positions, span<std::array<std::uint32_t, 3> const> triangles, double angle);
ZGU_API SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<Math::point<float, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);
ZGU_API SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<Math::point<double, 3> const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);
ZGU_API SmoothNormalRemapping<std::uint64_t> CalculateSmoothNormalRemapping(
    span<VertexP const> positions, span<std::array<std::uint64_t, 3> const> triangles, double angle);

} // namespace Zorvan::Rendering
