#pragma once

// `zgu mesh`'s preparation of a whole asset: degenerate triangles out,
// crease-aware normals over the surface of every primitive together, a
// vertex wherever a corner differs in any carried attribute or its normal,
// and per primitive either 16-bit submeshes in Tipsify order or one index
// list in that same order, for formats that hold no submeshes.

#include "MeshAsset.h"
#include "MeshPrep.h"

#include <Rendering/Mesh.h>

#include <cstdint>
#include <vector>

namespace Zorvan::Tool {

// One draw as written: a primitive's submesh (or, in one-list layout, the
// whole asset) with its own vertices.
struct MeshPart {
    std::uint32_t material = 0;
    std::vector<Float3> positions;
    std::vector<Float3> normals; // unit length, finite
    std::vector<std::vector<Float2>> uvSets;
    std::vector<std::vector<Float4>> colorSets;
    std::vector<std::uint32_t> indices; // three per triangle, below positions.size()
};

enum class PartLayout {
    Submeshes16, // every part at most MaxSubmeshVertexCount vertices, one or more per primitive
    OneList,     // one part holding every primitive, indices of any size
};

struct PreparedAsset {
    std::vector<MeshPart> parts;
    std::size_t trianglesIn = 0;          // as imported
    std::size_t degenerateTriangles = 0;  // removed: a repeated position or zero area
    std::size_t verticesIn = 0;           // distinct input vertices, per primitive
    std::size_t verticesRemapped = 0;     // after the splits for normals and attributes, per primitive
    Rendering::VertexCacheStatistics before; // the remapped triangles in input order, per primitive
    Rendering::VertexCacheStatistics after;  // the parts as written, each drawn with an empty cache
    double normalsSeconds = 0.0;          // joining, degenerates, normals, remapping
    double reorderSeconds = 0.0;          // split and Tipsify

    std::size_t TrianglesOut() const;
    std::size_t VerticesOut() const;
};

PreparedAsset PrepareAsset(MeshAsset const& asset, double creaseDegrees, std::uint16_t cacheSize, PartLayout layout,
                           Progress const& progress);

} // namespace Zorvan::Tool
