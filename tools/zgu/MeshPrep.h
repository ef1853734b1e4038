#pragma once

// The preparation both `mesh` and `demo` run: crease-aware normals with the
// vertex remapping they imply, a split into 16-bit submeshes, and Tipsify on
// each, with cache statistics before and after.

#include "CacheStats.h"
#include "MeshIo.h"

#include <Rendering/Mesh.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// Consecutive triangles whose vertices fit 16-bit indices.
struct Submesh {
    std::vector<std::uint32_t> vertices; // local vertex -> remapped vertex
    std::vector<std::uint16_t> indices;  // Tipsify order
};

struct PreparedMesh {
    Rendering::SmoothNormalRemapping<std::uint32_t> remapping;
    std::vector<Submesh> submeshes;
    CacheStats before;
    CacheStats after;
    double normalsSeconds = 0.0;
    double reorderSeconds = 0.0;

    std::size_t OutputVertexCount() const;
    // The reordered index list over remapped vertices, submesh after submesh.
    std::vector<std::uint32_t> GlobalIndices() const;
    // One part per submesh, carrying positions, normals and texture
    // coordinates of the source mesh; NaN normals (corners of degenerate
    // triangles) are written as zero vectors.
    std::vector<MeshPart> Parts(MeshData const& source) const;
};

inline constexpr std::uint32_t MaxSubmeshVertices = 65535;

using Progress = std::function<void(std::string const&)>;

PreparedMesh PrepareMesh(MeshData const& mesh, double creaseDegrees, std::uint16_t cacheSize,
                         Progress const& progress);

} // namespace Zorvan::Tool
