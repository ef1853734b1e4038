#pragma once

// Mesh files through Assimp: triangles and positions (plus the first texture
// coordinate set when present) in; split, re-normalled submeshes out.

#include <Rendering/Core.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Zorvan::Tool {

struct MeshData {
    std::vector<Math::point<float, 3>> positions;
    std::vector<std::array<std::uint32_t, 3>> triangles;
    std::vector<Math::point<float, 2>> texcoords; // per position, or empty
};

// One exported part: its own vertices and 16-bit-range triangle indices.
struct MeshPart {
    std::vector<Math::point<float, 3>> positions;
    std::vector<Math::point<float, 3>> normals;
    std::vector<Math::point<float, 2>> texcoords; // empty when the input had none
    std::vector<std::uint32_t> indices;
};

// Every mesh of the file merged into one, node transforms applied, polygons
// triangulated, identical vertices joined; input normals are dropped so that
// vertices split only by normals join again (zgu computes its own).
// Throws UsageError for formats Assimp cannot read, Failure for files it
// cannot parse.
MeshData ImportMesh(std::filesystem::path const& path);

// Whether Assimp has an importer for the file's extension (for folder inputs).
bool IsMeshFile(std::filesystem::path const& path);

// The Assimp exporter for the file's extension; throws UsageError when none.
std::string ExportFormatFor(std::filesystem::path const& path);
// Throws Failure when Assimp cannot write the file.
void ExportMesh(std::filesystem::path const& path, std::string const& formatId, std::vector<MeshPart> const& parts);

} // namespace Zorvan::Tool
