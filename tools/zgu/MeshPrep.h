#pragma once

// The demo's preparation of its one generated surface: crease-aware normals
// with the vertex remapping they imply, then the library's split into 16-bit
// submeshes in Tipsify order, with cache statistics before and after.
// `zgu mesh` prepares whole assets (MeshAssetPrep.h).

#include <Rendering/Mesh.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// One surface: positions and triangles over them (the demo's generated mesh).
struct MeshData {
    std::vector<Math::point<float, 3>> positions;
    std::vector<std::array<std::uint32_t, 3>> triangles;
};

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
};

using Progress = std::function<void(std::string const&)>;

PreparedMesh PrepareMesh(MeshData const& mesh, double creaseDegrees, std::uint16_t cacheSize,
                         Progress const& progress);

} // namespace Zorvan::Tool
