#pragma once

// Mesh preprocessing on host arrays: vertex-cache reordering, crease-aware
// per-corner normals, the split of large meshes into 16-bit submeshes and a
// vertex cache analyser. None of these touch a device; the normal routines and
// the split run data-parallel on oneTBB's worker threads and are deterministic
// whatever the thread count.

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
// not. The test is strict and the corner's own face takes it too, against
// cos(angle) rounded to float: at an angle of 0, or one below about 2.4e-4
// where that cosine rounds to 1, a corner whose face normal came out of its
// division no longer than 1 gets NaN rather than its face normal. For flat
// shading pass a small angle such as 1e-3 (faces within 0.06 degrees of
// each other still blend).
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

// ---------------------------------------------------------------------------
// Mesh preparation: 16-bit submeshes and vertex cache analysis
// ---------------------------------------------------------------------------

// Most vertices one submesh may hold. Local indices run from 0 to 65534, so
// the all-ones index 0xFFFF is never used and stays free as a primitive
// restart value.
inline constexpr std::uint32_t MaxSubmeshVertexCount = 65535;

// One draw's worth of a split mesh: a triangle list with 16-bit indices over
// vertices of its own. Any per-vertex attribute array of the source mesh is
// carried over by gathering: local vertex i takes source vertex vertices[i].
struct Submesh {
    std::vector<std::uint32_t> vertices; // local vertex -> source vertex; distinct, in order of first use in indices
    std::vector<std::uint16_t> indices;  // triangle list over local vertices, three per triangle

    friend bool operator==(Submesh const&, Submesh const&) = default;
};

// Splits a 32-bit-indexed triangle list into submeshes of at most
// MaxSubmeshVertexCount vertices each and reorders every submesh for a
// post-transform vertex cache of cacheSize entries (Tipsify).
// When every referenced vertex fits one submesh, the result is that one
// submesh. Otherwise triangles are first put in spatial order (their
// centroids along a 3D Hilbert curve over the mesh's bounding cube) and the
// order is cut greedily, so each submesh covers a compact region and only
// vertices on the borders between regions are stored twice; triangles with a
// non-finite centroid come last, in input order. Every triangle appears in
// exactly one submesh with its corners in input order (never rotated);
// vertices no triangle uses appear in none.
// cacheSize 0 skips Tipsify: each submesh keeps the spatial order.
// Returns no submesh for no triangles, and none when any index is not below
// positions.size() (checked). The flat form reads indices.size() / 3 whole
// triangles and ignores a trailing partial one. The result depends on the
// input only, never on the thread count.
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<float, 3> const> positions,
                                                     span<std::array<std::uint32_t, 3> const> triangles,
                                                     std::uint16_t cacheSize);
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<double, 3> const> positions,
                                                     span<std::array<std::uint32_t, 3> const> triangles,
                                                     std::uint16_t cacheSize);
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<VertexP const> positions,
                                                     span<std::array<std::uint32_t, 3> const> triangles,
                                                     std::uint16_t cacheSize);
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<float, 3> const> positions,
                                                     span<std::uint32_t const> indices, std::uint16_t cacheSize);
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<Math::point<double, 3> const> positions,
                                                     span<std::uint32_t const> indices, std::uint16_t cacheSize);
ZGU_API std::vector<Submesh> SplitInto16BitSubmeshes(span<VertexP const> positions, span<std::uint32_t const> indices,
                                                     std::uint16_t cacheSize);

// How well an index order uses a post-transform vertex cache.
struct VertexCacheStatistics {
    std::uint64_t misses = 0; // references the cache did not hold: vertices transformed
    double acmr = 0.0;        // misses per triangle; 3 is the worst, about 0.5 the best on large regular meshes
    double atvr = 0.0;        // misses per distinct vertex referenced; 1 is the best

    friend bool operator==(VertexCacheStatistics const&, VertexCacheStatistics const&) = default;
};

// Runs a triangle list through a FIFO cache of cacheSize vertices, the model
// of most hardware: a miss loads the vertex and evicts the one loaded
// longest ago; a hit refreshes nothing. cacheSize 0 models no cache (every
// reference misses). Only indices.size() / 3 whole triangles are read. ATVR
// divides by the vertices the triangles reference, not by vertexCount, so
// unused vertices do not flatter it. Returns all zeros for no triangle and
// when any index is not below vertexCount (checked).
ZGU_API VertexCacheStatistics AnalyzeFifoVertexCache(span<std::uint32_t const> indices, std::size_t vertexCount,
                                                     unsigned int cacheSize);

// The same for submeshes drawn one after another, as a GPU sees them: the
// cache starts empty for each submesh (each is its own draw over its own
// vertex buffer). ACMR divides by the triangles of all submeshes; ATVR by the
// distinct source vertices they reference, so a vertex stored in two
// submeshes raises ATVR above 1. Returns all zeros for no triangle and when a
// submesh's index is not below its vertex count (checked).
ZGU_API VertexCacheStatistics AnalyzeFifoVertexCache(span<Submesh const> submeshes, unsigned int cacheSize);

} // namespace Zorvan::Rendering
