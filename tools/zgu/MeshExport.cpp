#include "MeshExport.h"

#include "Errors.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

MeshFormat const Formats[] = {
    {"glb", "GLB", PartLayout::Submeshes16, true, 8, 8, true, false, {}},
    {"gltf", "glTF", PartLayout::Submeshes16, true, 8, 8, true, false, {"bin"}},
    {"obj", "OBJ", PartLayout::Submeshes16, true, 1, 0, true, false, {"mtl"}},
    {"ply", "PLY", PartLayout::OneList, false, 1, 1, true, true, {}},
    {"stl", "STL", PartLayout::OneList, false, 0, 0, false, true, {}},
};

bool CarriesSomething(MeshMaterial const& material)
{
    bool const defaultName = material.name.empty() || material.name == "default" ||
                             material.name == "DefaultMaterial";
    bool const textured = std::any_of(material.textures.begin(), material.textures.end(),
                                      [](auto const& texture) { return texture.has_value(); });
    return !defaultName || textured;
}

void Add(std::vector<std::pair<std::string, std::uint64_t>>& list, std::string const& what, std::uint64_t count)
{
    if (count != 0)
        list.emplace_back(what, count);
}

template <typename T>
void AppendRaw(std::string& out, T const& value)
{
    out.append(reinterpret_cast<char const*>(&value), sizeof value);
}

void AppendUnsigned(std::string& out, std::uint64_t value)
{
    char buffer[24];
    auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

std::uint8_t Byte(float value)
{
    return static_cast<std::uint8_t>(std::lround(std::clamp(std::isnan(value) ? 0.0f : value, 0.0f, 1.0f) * 255.0f));
}

MeshPart const& OnlyPart(PreparedAsset const& prepared, char const* format)
{
    if (prepared.parts.size() != 1)
        throw Failure(std::string("the ") + format + " writer takes the whole mesh as one part, not " +
                      std::to_string(prepared.parts.size()));
    return prepared.parts.front();
}

std::string PercentDecoded(std::string const& text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size() && std::isxdigit(static_cast<unsigned char>(text[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(text[i + 2]))) {
            out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

} // namespace

MeshFormat const* FindMeshFormat(std::string_view extension)
{
    if (!extension.empty() && extension.front() == '.')
        extension.remove_prefix(1);
    std::string lower(extension);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    for (MeshFormat const& format : Formats)
        if (lower == format.extension)
            return &format;
    return nullptr;
}

std::string MeshOutputExtensions()
{
    std::string list;
    std::size_t const count = std::size(Formats);
    for (std::size_t i = 0; i < count; ++i) {
        if (i != 0)
            list += i + 1 == count ? " or " : ", ";
        list += '.';
        list += Formats[i].extension;
    }
    return list;
}

std::vector<std::pair<std::string, std::uint64_t>> LeftOutBy(MeshFormat const& format, MeshAsset const& asset,
                                                              std::vector<MeshMaterial> const& materials)
{
    std::vector<std::pair<std::string, std::uint64_t>> list;
    std::size_t uvSets = 0;
    std::size_t colorSets = 0;
    for (MeshPrimitive const& primitive : asset.primitives) {
        uvSets = std::max(uvSets, primitive.uvSets.size());
        colorSets = std::max(colorSets, primitive.colorSets.size());
    }
    if (!format.materials)
        Add(list, "materials", std::count_if(materials.begin(), materials.end(), CarriesSomething));
    Add(list, "uv_sets", uvSets > format.uvSets ? uvSets - format.uvSets : 0);
    Add(list, "color_sets", colorSets > format.colorSets ? colorSets - format.colorSets : 0);
    Add(list, "normal_sets", format.vertexNormals ? 0 : 1);
    if (format.materials && std::string_view(format.extension) == "obj") {
        auto const with = [&materials](TextureSlot slot) {
            return std::count_if(materials.begin(), materials.end(),
                                 [slot](MeshMaterial const& m) { return m.textures[slot].has_value(); });
        };
        Add(list, "metallic_roughness_textures", with(MetallicRoughnessTexture));
        Add(list, "occlusion_textures", with(OcclusionTexture));
    }
    return list;
}

std::vector<MeshMaterial> MaterialsForOutput(std::vector<MeshMaterial> materials, fs::path const& inputFolder,
                                             fs::path const& outputFolder, std::vector<std::string>& missing)
{
    std::error_code error;
    fs::path const to = fs::weakly_canonical(fs::absolute(outputFolder.empty() ? "." : outputFolder, error), error);
    for (MeshMaterial& material : materials)
        for (auto& texture : material.textures) {
            if (!texture || texture->image >= 0 || texture->uri.empty())
                continue;
            // Written on Windows, percent-encoded by a glTF writer, relative
            // in Blender's way ("//"), or pointing into the author's machine
            // while the file itself lies beside the mesh.
            std::string name = texture->uri;
            std::replace(name.begin(), name.end(), '\\', '/');
            if (name.rfind("file://", 0) == 0)
                name.erase(0, 7);
            else if (name.rfind("//", 0) == 0)
                name.erase(0, 2);
            fs::path found;
            for (std::string const& candidate : {name, PercentDecoded(name), fs::path(name).filename().string()}) {
                if (candidate.empty())
                    continue;
                fs::path const path = fs::path(candidate).is_absolute() ? fs::path(candidate) : inputFolder / candidate;
                if (fs::is_regular_file(path, error)) {
                    found = path;
                    break;
                }
            }
            if (found.empty()) {
                if (std::find(missing.begin(), missing.end(), texture->uri) == missing.end())
                    missing.push_back(texture->uri);
                // Where the input expects it, seen from the output; a path on
                // another machine's drive stays as it is.
                bool const drive = name.size() >= 2 && std::isalpha(static_cast<unsigned char>(name[0])) &&
                                   name[1] == ':';
                if (drive || fs::path(name).is_absolute()) {
                    texture->uri = name;
                    continue;
                }
                found = inputFolder / name;
            }
            fs::path const from = fs::weakly_canonical(fs::absolute(found, error), error);
            fs::path const relative = from.lexically_relative(to);
            texture->uri = (relative.empty() ? from : relative).generic_string();
        }
    return materials;
}

WrittenMesh WriteMesh(MeshFormat const& format, fs::path const& path, PreparedAsset const& prepared,
                      std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                      MeshWriteSettings const& settings, std::vector<std::pair<std::string, std::uint64_t>>& leftOut)
{
    std::string_view const extension = format.extension;
    if (extension == "glb" || extension == "gltf")
        return WriteGltf(path, extension == "glb", prepared, materials, images, settings, leftOut);
    if (extension == "obj")
        return WriteObj(path, prepared, materials, images, settings, leftOut);
    if (extension == "ply")
        return WritePly(path, prepared, settings);
    return WriteStl(path, prepared, settings);
}

void WriteWholeFile(fs::path const& path, std::string_view bytes)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!file)
        throw Failure("cannot write " + Quoted(path) + ": " + std::strerror(errno));
    if (std::fwrite(bytes.data(), 1, bytes.size(), file.get()) != bytes.size() || std::fflush(file.get()) != 0)
        throw Failure("cannot write " + Quoted(path) + ": " + std::strerror(errno));
}

void AppendFloat(std::string& out, float value)
{
    char buffer[32];
    auto const result = std::to_chars(buffer, buffer + sizeof buffer, value);
    out.append(buffer, result.ptr);
}

WrittenMesh WritePly(fs::path const& path, PreparedAsset const& prepared, MeshWriteSettings const& settings)
{
    MeshPart const& part = OnlyPart(prepared, "PLY");
    bool const uv = !part.uvSets.empty();
    bool const color = !part.colorSets.empty();
    std::size_t const vertices = part.positions.size();
    std::size_t const triangles = part.indices.size() / 3;

    std::string out;
    out += "ply\nformat ";
    out += settings.text ? "ascii" : "binary_little_endian";
    out += " 1.0\ncomment written by ";
    out += settings.generator;
    out += "\nelement vertex ";
    AppendUnsigned(out, vertices);
    out += "\nproperty float x\nproperty float y\nproperty float z\n"
           "property float nx\nproperty float ny\nproperty float nz\n";
    if (uv)
        out += "property float s\nproperty float t\n";
    if (color)
        out += "property uchar red\nproperty uchar green\nproperty uchar blue\nproperty uchar alpha\n";
    out += "element face ";
    AppendUnsigned(out, triangles);
    out += "\nproperty list uchar uint vertex_indices\nend_header\n";

    std::size_t const vertexBytes = 24 + (uv ? 8 : 0) + (color ? 4 : 0);
    out.reserve(out.size() + (settings.text ? 3 * vertexBytes : vertexBytes) * vertices +
                (settings.text ? 40 : 13) * triangles);
    static_assert(std::endian::native == std::endian::little, "binary PLY is written as little-endian");
    for (std::size_t v = 0; v < vertices; ++v) {
        float values[8];
        std::size_t count = 0;
        for (float const x : part.positions[v])
            values[count++] = x;
        for (float const x : part.normals[v])
            values[count++] = x;
        if (uv)
            for (float const x : part.uvSets[0][v])
                values[count++] = x;
        std::array<std::uint8_t, 4> rgba{};
        if (color)
            for (int c = 0; c < 4; ++c)
                rgba[c] = Byte(part.colorSets[0][v][c]);
        if (!settings.text) {
            out.append(reinterpret_cast<char const*>(values), count * sizeof(float));
            if (color)
                out.append(reinterpret_cast<char const*>(rgba.data()), 4);
            continue;
        }
        for (std::size_t i = 0; i < count; ++i) {
            if (i != 0)
                out += ' ';
            AppendFloat(out, values[i]);
        }
        for (int c = 0; color && c < 4; ++c) {
            out += ' ';
            AppendUnsigned(out, rgba[c]);
        }
        out += '\n';
    }
    for (std::size_t t = 0; t < triangles; ++t) {
        if (!settings.text) {
            out += char(3);
            for (int k = 0; k < 3; ++k)
                AppendRaw(out, part.indices[3 * t + k]);
            continue;
        }
        out += '3';
        for (int k = 0; k < 3; ++k) {
            out += ' ';
            AppendUnsigned(out, part.indices[3 * t + k]);
        }
        out += '\n';
    }
    WriteWholeFile(path, out);

    WrittenMesh written;
    written.vertices = vertices;
    written.triangles = triangles;
    written.parts = 1;
    written.indexBits = 32;
    written.files = {path};
    return written;
}

WrittenMesh WriteStl(fs::path const& path, PreparedAsset const& prepared, MeshWriteSettings const& settings)
{
    MeshPart const& part = OnlyPart(prepared, "STL");
    std::size_t const triangles = part.indices.size() / 3;
    if (!settings.text && triangles > 0xFFFFFFFFu)
        throw Failure("binary STL holds at most 4,294,967,295 triangles; this mesh has " + std::to_string(triangles));
    auto const normal = [&part](std::size_t t) {
        Float3 const& a = part.positions[part.indices[3 * t]];
        Float3 const& b = part.positions[part.indices[3 * t + 1]];
        Float3 const& c = part.positions[part.indices[3 * t + 2]];
        double const e1[3] = {double(b[0]) - a[0], double(b[1]) - a[1], double(b[2]) - a[2]};
        double const e2[3] = {double(c[0]) - a[0], double(c[1]) - a[1], double(c[2]) - a[2]};
        double const n[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2],
                             e1[0] * e2[1] - e1[1] * e2[0]};
        double const length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        return length > 0.0 ? Float3{float(n[0] / length), float(n[1] / length), float(n[2] / length)}
                            : Float3{0.0f, 0.0f, 0.0f};
    };

    std::string out;
    if (settings.text) {
        out.reserve(triangles * 250 + 64);
        out += "solid zgu\n";
        for (std::size_t t = 0; t < triangles; ++t) {
            Float3 const n = normal(t);
            out += "facet normal ";
            AppendFloat(out, n[0]);
            out += ' ';
            AppendFloat(out, n[1]);
            out += ' ';
            AppendFloat(out, n[2]);
            out += "\n outer loop\n";
            for (int k = 0; k < 3; ++k) {
                Float3 const& p = part.positions[part.indices[3 * t + k]];
                out += "  vertex ";
                AppendFloat(out, p[0]);
                out += ' ';
                AppendFloat(out, p[1]);
                out += ' ';
                AppendFloat(out, p[2]);
                out += '\n';
            }
            out += " endloop\nendfacet\n";
        }
        out += "endsolid zgu\n";
    } else {
        // A binary header must not start with "solid", or readers take it for text.
        std::string header = "binary STL written by " + settings.generator;
        header.resize(80, ' ');
        out.reserve(84 + 50 * triangles);
        out += header;
        AppendRaw(out, static_cast<std::uint32_t>(triangles));
        for (std::size_t t = 0; t < triangles; ++t) {
            Float3 const n = normal(t);
            AppendRaw(out, n);
            for (int k = 0; k < 3; ++k)
                AppendRaw(out, part.positions[part.indices[3 * t + k]]);
            AppendRaw(out, std::uint16_t(0));
        }
    }
    WriteWholeFile(path, out);

    WrittenMesh written;
    written.vertices = 3 * triangles;
    written.triangles = triangles;
    written.parts = 1;
    written.indexBits = 0;
    written.files = {path};
    return written;
}

} // namespace Zorvan::Tool
