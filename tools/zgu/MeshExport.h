#pragma once

// The mesh files zgu writes, each by a writer of its own: what every format
// can hold decides how the asset is laid out for it and what the report names
// as left out.
//
//   glb, gltf  16-bit submeshes as primitives, materials with their textures
//              (embedded images in the binary buffer), every UV and colour set
//   obj        a group per submesh over vertices of its own, materials in a
//              .mtl beside it (embedded images as files beside it), one UV set
//   ply        one vertex and index list (32-bit), one UV and one colour set;
//              binary unless asked for text
//   stl        triangles with face normals only; binary unless asked for text

#include "MeshAsset.h"
#include "MeshAssetPrep.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zorvan::Tool {

struct MeshFormat {
    char const* extension;          // "glb"
    char const* name;               // "GLB", for messages
    PartLayout layout;
    bool materials;                 // materials and their textures
    std::size_t uvSets;             // most UV sets it holds
    std::size_t colorSets;          // most colour sets it holds
    bool vertexNormals;
    bool binaryOrText;              // has both forms (binary unless --text)
    std::vector<char const*> sides; // extensions of files written beside it
};

// The format for an extension ("glb", ".GLB"); null when zgu writes none.
MeshFormat const* FindMeshFormat(std::string_view extension);
// ".glb, .gltf, .obj, .ply or .stl", for messages and help.
std::string MeshOutputExtensions();

struct MeshWriteSettings {
    bool text = false;      // PLY and STL as text
    std::string generator;  // "zgu 1.2.3", recorded where the format has a place for it
};

// The materials with every external texture's URI made relative to the
// output's folder (where the input's folder named it relative to itself), so
// that the output finds the same files; textures not found are kept as
// named, and their names added to `missing`.
std::vector<MeshMaterial> MaterialsForOutput(std::vector<MeshMaterial> materials,
                                             std::filesystem::path const& inputFolder,
                                             std::filesystem::path const& outputFolder,
                                             std::vector<std::string>& missing);

// What a writer put in the file, for a report that describes it exactly.
struct WrittenMesh {
    std::size_t vertices = 0;  // vertex records written
    std::size_t triangles = 0;
    std::size_t parts = 0;     // submeshes (glTF primitives, OBJ groups); 1 for PLY and STL
    int indexBits = 0;         // 16 or 32; 0 where the format has no index buffer (OBJ, STL)
    std::vector<std::filesystem::path> files; // every file written, the main one first
};

// What the asset holds that the format cannot, by the report's names:
// "materials", "uv_sets", "color_sets", "normal_sets", and for OBJ
// "metallic_roughness_textures", "occlusion_textures". Materials count only
// where they carry something (a name of their own, a colour, a texture).
std::vector<std::pair<std::string, std::uint64_t>> LeftOutBy(MeshFormat const& format, MeshAsset const& asset,
                                                              std::vector<MeshMaterial> const& materials);

// Writes `prepared` (laid out as format.layout asks) as `path`, and its side
// files beside it, named after its stem. `materials` are the asset's with
// texture URIs relative to the output's folder; `images` the embedded ones
// (PNG and JPEG are written; others count in `leftOut` as
// "embedded_images"). Throws Failure.
WrittenMesh WriteMesh(MeshFormat const& format, std::filesystem::path const& path, PreparedAsset const& prepared,
                      std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                      MeshWriteSettings const& settings,
                      std::vector<std::pair<std::string, std::uint64_t>>& leftOut);

// The writers behind WriteMesh.
WrittenMesh WriteGltf(std::filesystem::path const& path, bool binary, PreparedAsset const& prepared,
                      std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                      MeshWriteSettings const& settings, std::vector<std::pair<std::string, std::uint64_t>>& leftOut);
WrittenMesh WriteObj(std::filesystem::path const& path, PreparedAsset const& prepared,
                     std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                     MeshWriteSettings const& settings, std::vector<std::pair<std::string, std::uint64_t>>& leftOut);
WrittenMesh WritePly(std::filesystem::path const& path, PreparedAsset const& prepared,
                     MeshWriteSettings const& settings);
WrittenMesh WriteStl(std::filesystem::path const& path, PreparedAsset const& prepared,
                     MeshWriteSettings const& settings);

// Shared by the writers: a file written in one piece, or Failure.
void WriteWholeFile(std::filesystem::path const& path, std::string_view bytes);
// Appends the shortest text that reads back as exactly `value`.
void AppendFloat(std::string& out, float value);

} // namespace Zorvan::Tool
