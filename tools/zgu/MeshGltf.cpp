// glTF 2.0, as JSON with a .bin beside it or as one GLB: one mesh whose
// primitives are the 16-bit submeshes, each with unsigned-short indices,
// float positions (with the bounds glTF requires), normals, every UV set and
// every colour set, and the material of its primitive.

#include "Errors.h"
#include "MeshExport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <bit>
#include <cmath>
#include <map>
#include <optional>
#include <set>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

using Json = nlohmann::ordered_json;

constexpr int ArrayBuffer = 34962;
constexpr int ElementArrayBuffer = 34963;
constexpr int Float = 5126;
constexpr int UnsignedShort = 5123;

// A relative path as a URI: unreserved characters and '/' as they are,
// everything else percent-encoded (spaces, '%', non-ASCII bytes).
std::string UriOf(std::string const& path)
{
    std::string uri;
    for (char const c : path) {
        auto const byte = static_cast<unsigned char>(c);
        if ((byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') ||
            c == '-' || c == '.' || c == '_' || c == '~' || c == '/') {
            uri += c;
        } else {
            static char const hex[] = "0123456789ABCDEF";
            uri += '%';
            uri += hex[byte >> 4];
            uri += hex[byte & 15];
        }
    }
    return uri;
}

class GltfBuilder {
public:
    GltfBuilder(std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                std::vector<std::pair<std::string, std::uint64_t>>& leftOut)
        : materials_(materials), images_(images), leftOut_(leftOut)
    {
    }

    Json Build(PreparedAsset const& prepared, std::string const& generator)
    {
        // Which UV sets every primitive of a material has: a texture may only
        // name a set they all have.
        std::map<std::uint32_t, std::size_t> uvSetsOf;
        for (MeshPart const& part : prepared.parts) {
            auto const [it, inserted] = uvSetsOf.try_emplace(part.material, part.uvSets.size());
            if (!inserted)
                it->second = std::min(it->second, part.uvSets.size());
        }
        Json primitives = Json::array();
        for (MeshPart const& part : prepared.parts)
            primitives.push_back(Primitive(part, uvSetsOf[part.material]));

        Json document;
        document["asset"] = {{"version", "2.0"}, {"generator", generator}};
        document["scene"] = 0;
        document["scenes"] = Json::array({{{"nodes", {0}}}});
        document["nodes"] = Json::array({{{"mesh", 0}}});
        document["meshes"] = Json::array({{{"primitives", std::move(primitives)}}});
        if (!materialJson_.empty())
            document["materials"] = materialJson_;
        if (!textures_.empty())
            document["textures"] = textures_;
        if (!imageJson_.empty())
            document["images"] = imageJson_;
        if (!samplers_.empty())
            document["samplers"] = samplers_;
        document["buffers"] = Json::array({{{"byteLength", binary_.size()}}});
        document["bufferViews"] = views_;
        document["accessors"] = accessors_;
        Add("embedded_images", droppedImages_.size());
        Add("textures_without_uv_sets", texturesWithoutUvs_);
        return document;
    }

    std::string& Binary() { return binary_; }

private:
    void Add(std::string const& what, std::uint64_t count)
    {
        if (count != 0)
            leftOut_.emplace_back(what, count);
    }

    std::size_t View(void const* data, std::size_t bytes, int target)
    {
        binary_.resize((binary_.size() + 3) & ~std::size_t(3), '\0');
        Json view = {{"buffer", 0}, {"byteOffset", binary_.size()}, {"byteLength", bytes}};
        if (target != 0)
            view["target"] = target;
        binary_.append(static_cast<char const*>(data), bytes);
        views_.push_back(std::move(view));
        return views_.size() - 1;
    }

    template <typename T>
    std::size_t Accessor(std::vector<T> const& values, char const* type)
    {
        std::size_t const view = View(values.data(), values.size() * sizeof(T), ArrayBuffer);
        accessors_.push_back(
            {{"bufferView", view}, {"componentType", Float}, {"count", values.size()}, {"type", type}});
        return accessors_.size() - 1;
    }

    std::size_t Positions(std::vector<Float3> const& positions)
    {
        std::array<float, 3> low = positions.front();
        std::array<float, 3> high = positions.front();
        for (Float3 const& p : positions)
            for (int k = 0; k < 3; ++k) {
                low[k] = std::min(low[k], p[k]);
                high[k] = std::max(high[k], p[k]);
            }
        std::size_t const accessor = Accessor(positions, "VEC3");
        accessors_[accessor]["min"] = {double(low[0]), double(low[1]), double(low[2])};
        accessors_[accessor]["max"] = {double(high[0]), double(high[1]), double(high[2])};
        return accessor;
    }

    Json Primitive(MeshPart const& part, std::size_t materialUvSets)
    {
        Json attributes;
        attributes["POSITION"] = Positions(part.positions);
        attributes["NORMAL"] = Accessor(part.normals, "VEC3");
        for (std::size_t s = 0; s < part.uvSets.size(); ++s) {
            // glTF's texture space starts at the top; Assimp's, at the bottom.
            std::vector<Float2> flipped(part.uvSets[s]);
            for (Float2& uv : flipped)
                uv[1] = 1.0f - uv[1];
            attributes["TEXCOORD_" + std::to_string(s)] = Accessor(flipped, "VEC2");
        }
        for (std::size_t s = 0; s < part.colorSets.size(); ++s) {
            // glTF's float colours lie in [0, 1].
            std::vector<Float4> clamped(part.colorSets[s]);
            for (Float4& color : clamped)
                for (float& c : color)
                    c = std::isnan(c) ? 0.0f : std::clamp(c, 0.0f, 1.0f);
            attributes["COLOR_" + std::to_string(s)] = Accessor(clamped, "VEC4");
        }

        std::vector<std::uint16_t> indices;
        indices.reserve(part.indices.size());
        for (std::uint32_t const index : part.indices) {
            if (index >= 0xFFFF)
                throw Failure("a submesh index does not fit 16 bits");
            indices.push_back(static_cast<std::uint16_t>(index));
        }
        std::size_t const view = View(indices.data(), indices.size() * 2, ElementArrayBuffer);
        accessors_.push_back({{"bufferView", view},
                              {"componentType", UnsignedShort},
                              {"count", indices.size()},
                              {"type", "SCALAR"}});
        Json primitive = {{"attributes", std::move(attributes)}, {"indices", accessors_.size() - 1}, {"mode", 4}};
        primitive["material"] = Material(part.material, materialUvSets);
        return primitive;
    }

    std::size_t Material(std::uint32_t index, std::size_t uvSets)
    {
        auto const known = materialIndex_.find(index);
        if (known != materialIndex_.end())
            return known->second;
        MeshMaterial const& material = materials_.at(index);
        Json pbr;
        pbr["baseColorFactor"] = {material.baseColor[0], material.baseColor[1], material.baseColor[2],
                                  material.baseColor[3]};
        pbr["metallicFactor"] = material.metallic;
        pbr["roughnessFactor"] = material.roughness;
        Json json;
        json["name"] = material.name;
        if (auto texture = TextureInfo(material.textures[BaseColorTexture], uvSets))
            pbr["baseColorTexture"] = *texture;
        if (auto texture = TextureInfo(material.textures[MetallicRoughnessTexture], uvSets))
            pbr["metallicRoughnessTexture"] = *texture;
        json["pbrMetallicRoughness"] = std::move(pbr);
        if (auto texture = TextureInfo(material.textures[NormalTexture], uvSets))
            json["normalTexture"] = *texture;
        if (auto texture = TextureInfo(material.textures[OcclusionTexture], uvSets))
            json["occlusionTexture"] = *texture;
        if (auto texture = TextureInfo(material.textures[EmissiveTexture], uvSets))
            json["emissiveTexture"] = *texture;
        if (material.emissive != Float3{0.0f, 0.0f, 0.0f})
            json["emissiveFactor"] = {std::min(material.emissive[0], 1.0f), std::min(material.emissive[1], 1.0f),
                                      std::min(material.emissive[2], 1.0f)};
        if (material.alphaMode == AlphaMode::Mask) {
            json["alphaMode"] = "MASK";
            json["alphaCutoff"] = material.alphaCutoff;
        } else if (material.alphaMode == AlphaMode::Blend) {
            json["alphaMode"] = "BLEND";
        }
        if (material.doubleSided)
            json["doubleSided"] = true;
        materialJson_.push_back(std::move(json));
        materialIndex_.emplace(index, materialJson_.size() - 1);
        return materialJson_.size() - 1;
    }

    std::optional<Json> TextureInfo(std::optional<MaterialTexture> const& texture, std::size_t uvSets)
    {
        if (!texture)
            return std::nullopt;
        if (texture->uvSet >= uvSets) {
            ++texturesWithoutUvs_;
            return std::nullopt;
        }
        auto const image = Image(*texture);
        if (!image)
            return std::nullopt;
        std::pair<int, int> const wrap{int(texture->wrapU), int(texture->wrapV)};
        auto [sampler, added] = samplerIndex_.try_emplace(wrap, samplers_.size());
        if (added)
            samplers_.push_back({{"wrapS", wrap.first}, {"wrapT", wrap.second}});
        auto const key = std::make_pair(*image, sampler->second);
        auto [textureIt, newTexture] = textureIndex_.try_emplace(key, textures_.size());
        if (newTexture)
            textures_.push_back({{"sampler", sampler->second}, {"source", *image}});
        Json info = {{"index", textureIt->second}};
        if (texture->uvSet != 0)
            info["texCoord"] = texture->uvSet;
        return info;
    }

    std::optional<std::size_t> Image(MaterialTexture const& texture)
    {
        // Embedded images by number, external ones by URI; -1 stands for none.
        auto const key = std::make_pair(texture.image, texture.image >= 0 ? std::string() : texture.uri);
        auto const known = imageIndex_.find(key);
        if (known != imageIndex_.end())
            return known->second;
        if (texture.image >= 0) {
            EmbeddedImage const& image = images_.at(static_cast<std::size_t>(texture.image));
            // glTF's core holds PNG and JPEG only.
            if (image.mimeType != "image/png" && image.mimeType != "image/jpeg") {
                droppedImages_.insert(texture.image);
                return std::nullopt;
            }
            std::size_t const view = View(image.bytes.data(), image.bytes.size(), 0);
            imageJson_.push_back({{"bufferView", view}, {"mimeType", image.mimeType}});
        } else {
            imageJson_.push_back({{"uri", UriOf(texture.uri)}});
        }
        imageIndex_.emplace(key, imageJson_.size() - 1);
        return imageJson_.size() - 1;
    }

    std::vector<MeshMaterial> const& materials_;
    std::vector<EmbeddedImage> const& images_;
    std::vector<std::pair<std::string, std::uint64_t>>& leftOut_;
    std::string binary_;
    Json views_ = Json::array();
    Json accessors_ = Json::array();
    Json materialJson_ = Json::array();
    Json textures_ = Json::array();
    Json imageJson_ = Json::array();
    Json samplers_ = Json::array();
    std::map<std::uint32_t, std::size_t> materialIndex_;
    std::map<std::pair<std::int32_t, std::string>, std::size_t> imageIndex_;
    std::map<std::pair<int, int>, std::size_t> samplerIndex_;
    std::map<std::pair<std::size_t, std::size_t>, std::size_t> textureIndex_;
    std::set<std::int32_t> droppedImages_;
    std::uint64_t texturesWithoutUvs_ = 0;
};

template <typename T>
void AppendRaw(std::string& out, T const& value)
{
    out.append(reinterpret_cast<char const*>(&value), sizeof value);
}

} // namespace

WrittenMesh WriteGltf(fs::path const& path, bool binary, PreparedAsset const& prepared,
                      std::vector<MeshMaterial> const& materials, std::vector<EmbeddedImage> const& images,
                      MeshWriteSettings const& settings, std::vector<std::pair<std::string, std::uint64_t>>& leftOut)
{
    GltfBuilder builder(materials, images, leftOut);
    Json document = builder.Build(prepared, settings.generator);
    std::string& bin = builder.Binary();
    WrittenMesh written;
    written.files = {path};
    fs::path const binPath = fs::path(path).replace_extension(".bin");
    if (!binary) {
        document["buffers"][0]["uri"] = UriOf(binPath.filename().string());
        written.files.push_back(binPath);
    }
    // Names that are not UTF-8 (a material's, from an old file) become U+FFFD
    // rather than an invalid document.
    std::string json = document.dump(binary ? -1 : 2, ' ', false, Json::error_handler_t::replace);

    if (binary) {
        static_assert(std::endian::native == std::endian::little, "GLB is written as little-endian");
        json.resize((json.size() + 3) & ~std::size_t(3), ' ');
        bin.resize((bin.size() + 3) & ~std::size_t(3), '\0');
        std::uint64_t const total = 12 + 8 + json.size() + 8 + bin.size();
        if (total > 0xFFFFFFFFull)
            throw Failure("the mesh is too large for one GLB file (4 GiB); write .gltf instead");
        std::string file;
        file.reserve(static_cast<std::size_t>(total));
        file += "glTF";
        AppendRaw(file, std::uint32_t(2));
        AppendRaw(file, static_cast<std::uint32_t>(total));
        AppendRaw(file, static_cast<std::uint32_t>(json.size()));
        file += "JSON";
        file += json;
        AppendRaw(file, static_cast<std::uint32_t>(bin.size()));
        file.append("BIN\0", 4);
        file += bin;
        WriteWholeFile(path, file);
    } else {
        json += '\n';
        WriteWholeFile(path, json);
        WriteWholeFile(binPath, bin);
    }

    written.triangles = prepared.TrianglesOut();
    written.vertices = prepared.VerticesOut();
    written.parts = prepared.parts.size();
    written.indexBits = 16;
    return written;
}

} // namespace Zorvan::Tool
