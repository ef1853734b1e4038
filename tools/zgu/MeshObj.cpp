// Wavefront OBJ with its material library: a group per submesh, each over
// vertices of its own, so that a loader making one mesh per group gets
// meshes of at most 65,535 vertices; the first UV set; materials as .mtl
// entries (the PBR extension's Pr and Pm, `norm` for normal maps), embedded
// images as files beside the mesh.

#include "Errors.h"
#include "MeshExport.h"

#include <cctype>
#include <map>
#include <set>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

// Material names are single words in a .mtl; clashes get a number.
std::vector<std::string> MaterialNames(std::vector<MeshMaterial> const& materials)
{
    std::vector<std::string> names;
    std::set<std::string> taken;
    for (std::size_t m = 0; m < materials.size(); ++m) {
        std::string name = materials[m].name;
        for (char& c : name)
            if (std::isspace(static_cast<unsigned char>(c)) || std::iscntrl(static_cast<unsigned char>(c)))
                c = '_';
        if (name.empty())
            name = "material" + std::to_string(m);
        std::string unique = name;
        for (int n = 2; taken.count(unique) != 0; ++n)
            unique = name + "_" + std::to_string(n);
        taken.insert(unique);
        names.push_back(unique);
    }
    return names;
}

char const* ExtensionOf(std::string const& mimeType)
{
    return mimeType == "image/jpeg" ? "jpg" : "png";
}

void AppendTriple(std::string& out, char const* prefix, float a, float b, float c)
{
    out += prefix;
    AppendFloat(out, a);
    out += ' ';
    AppendFloat(out, b);
    out += ' ';
    AppendFloat(out, c);
    out += '\n';
}

} // namespace

WrittenMesh WriteObj(fs::path const& path, PreparedAsset const& prepared, std::vector<MeshMaterial> const& materials,
                     std::vector<EmbeddedImage> const& images, MeshWriteSettings const& settings,
                     std::vector<std::pair<std::string, std::uint64_t>>& leftOut)
{
    WrittenMesh written;
    written.files = {path};
    std::string const stem = path.stem().string();
    fs::path const mtlPath = fs::path(path).replace_extension(".mtl");
    std::vector<std::string> const names = MaterialNames(materials);

    // Embedded images the materials use, each as a file of its own.
    std::map<std::int32_t, std::string> imageFiles;
    std::set<std::int32_t> droppedImages;
    for (MeshMaterial const& material : materials)
        for (auto const& texture : material.textures) {
            if (!texture || texture->image < 0 || imageFiles.count(texture->image) != 0)
                continue;
            EmbeddedImage const& image = images.at(static_cast<std::size_t>(texture->image));
            if (image.mimeType != "image/png" && image.mimeType != "image/jpeg") {
                droppedImages.insert(texture->image);
                continue;
            }
            std::string const name = stem + "_image" + std::to_string(texture->image) + "." +
                                     ExtensionOf(image.mimeType);
            WriteWholeFile(path.parent_path() / name, image.bytes);
            written.files.push_back(path.parent_path() / name);
            imageFiles.emplace(texture->image, name);
        }
    if (!droppedImages.empty())
        leftOut.emplace_back("embedded_images", droppedImages.size());

    std::string mtl = "# written by " + settings.generator + "\n";
    for (std::size_t m = 0; m < materials.size(); ++m) {
        MeshMaterial const& material = materials[m];
        mtl += "\nnewmtl " + names[m] + "\n";
        AppendTriple(mtl, "Kd ", material.baseColor[0], material.baseColor[1], material.baseColor[2]);
        if (material.baseColor[3] < 1.0f) {
            mtl += "d ";
            AppendFloat(mtl, material.baseColor[3]);
            mtl += '\n';
        }
        AppendTriple(mtl, "Ke ", material.emissive[0], material.emissive[1], material.emissive[2]);
        mtl += "Pr ";
        AppendFloat(mtl, material.roughness);
        mtl += "\nPm ";
        AppendFloat(mtl, material.metallic);
        mtl += '\n';
        auto const map = [&](char const* keyword, TextureSlot slot) {
            auto const& texture = material.textures[slot];
            if (!texture)
                return;
            if (texture->image >= 0) {
                auto const file = imageFiles.find(texture->image);
                if (file == imageFiles.end())
                    return;
                mtl += keyword + (" " + file->second) + "\n";
            } else {
                mtl += keyword + (" " + texture->uri) + "\n";
            }
        };
        map("map_Kd", BaseColorTexture);
        map("norm", NormalTexture);
        map("map_Ke", EmissiveTexture);
    }
    WriteWholeFile(mtlPath, mtl);
    written.files.push_back(mtlPath);

    std::string obj = "# written by " + settings.generator + "\nmtllib " + mtlPath.filename().string() + "\n";
    std::uint64_t base = 1;
    for (std::size_t p = 0; p < prepared.parts.size(); ++p) {
        MeshPart const& part = prepared.parts[p];
        bool const uv = !part.uvSets.empty();
        obj.reserve(obj.size() + part.positions.size() * (uv ? 90 : 70) + part.indices.size() * 12);
        obj += "g part" + std::to_string(p) + "\nusemtl " + names.at(part.material) + "\n";
        for (Float3 const& v : part.positions)
            AppendTriple(obj, "v ", v[0], v[1], v[2]);
        if (uv)
            for (Float2 const& t : part.uvSets[0]) {
                obj += "vt ";
                AppendFloat(obj, t[0]);
                obj += ' ';
                AppendFloat(obj, t[1]);
                obj += '\n';
            }
        for (Float3 const& n : part.normals)
            AppendTriple(obj, "vn ", n[0], n[1], n[2]);
        for (std::size_t i = 0; i < part.indices.size(); i += 3) {
            obj += 'f';
            for (int k = 0; k < 3; ++k) {
                std::string const index = std::to_string(base + part.indices[i + k]);
                obj += ' ';
                obj += index;
                obj += uv ? "/" : "//";
                if (uv) {
                    obj += index;
                    obj += '/';
                }
                obj += index;
            }
            obj += '\n';
        }
        base += part.positions.size();
    }
    WriteWholeFile(path, obj);

    written.vertices = prepared.VerticesOut();
    written.triangles = prepared.TrianglesOut();
    written.parts = prepared.parts.size();
    written.indexBits = 0;
    return written;
}

} // namespace Zorvan::Tool
