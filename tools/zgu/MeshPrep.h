#pragma once

// The preparation both `mesh` and `demo` run: crease-aware normals with the
// vertex remapping they imply, then the library's split into 16-bit
// submeshes in Tipsify order, with cache statistics before and after.

#include "MeshIo.h"

#include <Rendering/Mesh.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Zorvan::Tool {

struct PreparedMesh {
    Rendering::SmoothNormalRemapping<std::uint32_t> remapping;
    std::vector<Rendering::Submesh> submeshes; // their vertices name remapped vertices
    Rendering::VertexCacheStatistics before;   // the remapped triangles in input order
    Rendering::VertexCacheStatistics after;    // the submeshes, each drawn with an empty cache
    double normalsSeconds = 0.0;
    double reorderSeconds = 0.0;               // split and Tipsify

    std::size_t OutputVertexCount() const;
    // The reordered index list over remapped vertices, submesh after submesh.
    std::vector<std::uint32_t> GlobalIndices() const;
    // One part per submesh, carrying positions, normals and texture
    // coordinates of the source mesh; NaN normals (corners of degenerate
    // triangles) are written as zero vectors.
    std::vector<MeshPart> Parts(MeshData const& source) const;
};

using Progress = std::function<void(std::string const&)>;

PreparedMesh PrepareMesh(MeshData const& mesh, double creaseDegrees, std::uint16_t cacheSize,
                         Progress const& progress);

} // namespace Zorvan::Tool
