#include "MeshIo.h"

#include "Errors.h"

#include <assimp/GltfMaterial.h>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/material.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <map>
#include <new>
#include <string_view>
#include <unordered_set>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

std::string LowerExtension(fs::path const& path)
{
    std::string ext = path.extension().string();
    if (!ext.empty() && ext.front() == '.')
        ext.erase(0, 1);
    std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

// ---------------------------------------------------------------------------
// Declared counts against the file's size
// ---------------------------------------------------------------------------

constexpr std::uint64_t Unbounded = std::numeric_limits<std::uint64_t>::max();

std::uint64_t SaturatingProduct(std::uint64_t a, std::uint64_t b)
{
    return (b != 0 && a > Unbounded / b) ? Unbounded : a * b;
}

std::uint64_t SaturatingSum(std::uint64_t a, std::uint64_t b)
{
    return a > Unbounded - b ? Unbounded : a + b;
}

// A count as written: digits only, saturating rather than wrapping.
bool ParseCount(std::string_view token, std::uint64_t& value)
{
    if (token.empty() || !std::all_of(token.begin(), token.end(), [](char c) { return c >= '0' && c <= '9'; }))
        return false;
    auto const [end, error] = std::from_chars(token.data(), token.data() + token.size(), value);
    if (error == std::errc::result_out_of_range)
        value = Unbounded;
    return end == token.data() + token.size() || error == std::errc::result_out_of_range;
}

// A file a little short of its counts is truncated, and its importer reads
// what there is; one whose counts need more than twice what it holds would
// have memory reserved for elements it cannot contain.
bool Lies(std::uint64_t needed, std::uint64_t body)
{
    return needed > SaturatingSum(SaturatingProduct(body, 2), 4096);
}

void RefuseCounts(fs::path const& path, std::string const& claim, std::uint64_t bodyBytes)
{
    throw Failure(Quoted(path) + " declares " + claim + " but holds only " + std::to_string(bodyBytes) +
                  " bytes for them; it is truncated or corrupt");
}

// Every element of an ASCII file takes at least a digit and a separator per
// value.
void CheckOff(fs::path const& path, std::string const& head, std::uint64_t fileSize)
{
    std::size_t at = 0;
    auto const next = [&]() -> std::string_view {
        for (;;) {
            while (at < head.size() && std::isspace(static_cast<unsigned char>(head[at])))
                ++at;
            if (at < head.size() && head[at] == '#') {
                while (at < head.size() && head[at] != '\n')
                    ++at;
                continue;
            }
            break;
        }
        std::size_t const start = at;
        while (at < head.size() && !std::isspace(static_cast<unsigned char>(head[at])))
            ++at;
        return std::string_view(head).substr(start, at - start);
    };
    std::string_view token = next();
    std::uint64_t dimensions = 3;
    std::uint64_t extra = 0; // values beyond the position per vertex
    if (token.size() >= 3 && token.substr(token.size() - 3) == "OFF") {
        std::string_view const prefix = token.substr(0, token.size() - 3);
        extra += prefix.find("ST") != std::string_view::npos ? 2 : 0;
        extra += prefix.find('C') != std::string_view::npos ? 3 : 0;
        extra += prefix.find('N') != std::string_view::npos ? 3 : 0;
        extra += prefix.find('4') != std::string_view::npos ? 1 : 0;
        token = next();
        if (!prefix.empty() && prefix.back() == 'n') {
            if (!ParseCount(token, dimensions))
                return;
            token = next();
        }
    }
    std::uint64_t vertices = 0;
    std::uint64_t faces = 0;
    if (!ParseCount(token, vertices) || !ParseCount(next(), faces))
        return; // not a header this check understands; the importer decides
    std::uint64_t const body = fileSize - std::min<std::uint64_t>(at, fileSize);
    std::uint64_t const needed = SaturatingSum(SaturatingProduct(vertices, 2 * SaturatingSum(dimensions, extra)),
                                               SaturatingProduct(faces, 2));
    if (Lies(needed, body))
        RefuseCounts(path, std::to_string(vertices) + " vertices and " + std::to_string(faces) + " faces", body);
}

std::uint64_t PlyScalarSize(std::string_view type)
{
    if (type == "char" || type == "uchar" || type == "int8" || type == "uint8")
        return 1;
    if (type == "short" || type == "ushort" || type == "int16" || type == "uint16")
        return 2;
    if (type == "int" || type == "uint" || type == "float" || type == "int32" || type == "uint32" ||
        type == "float32")
        return 4;
    if (type == "double" || type == "float64")
        return 8;
    return 1; // unknown: the importer refuses it; count it as small as can be
}

void CheckPly(fs::path const& path, std::string const& head, std::uint64_t fileSize)
{
    struct Element {
        std::string name;
        std::uint64_t count = 0;
        std::uint64_t minimumBytes = 0;
    };
    std::vector<Element> elements;
    bool ascii = false;
    std::size_t at = 0;
    bool ended = false;
    while (at < head.size() && !ended) {
        std::size_t end = head.find('\n', at);
        if (end == std::string::npos)
            return; // the header goes on past what was read; the importer decides
        std::string_view line = std::string_view(head).substr(at, end - at);
        at = end + 1;
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        std::vector<std::string_view> words;
        for (std::size_t i = 0; i < line.size();) {
            while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i])))
                ++i;
            std::size_t const start = i;
            while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i])))
                ++i;
            if (i > start)
                words.push_back(line.substr(start, i - start));
        }
        if (words.empty())
            continue;
        if (words[0] == "format" && words.size() >= 2) {
            ascii = words[1] == "ascii";
        } else if (words[0] == "element" && words.size() >= 3) {
            Element element;
            element.name = std::string(words[1]);
            if (!ParseCount(words[2], element.count))
                return;
            elements.push_back(element);
        } else if (words[0] == "property" && !elements.empty()) {
            std::uint64_t bytes = 0;
            if (ascii)
                bytes = 2;
            else if (words.size() >= 3 && words[1] == "list")
                bytes = PlyScalarSize(words[2]);
            else if (words.size() >= 2)
                bytes = PlyScalarSize(words[1]);
            elements.back().minimumBytes += bytes;
        } else if (words[0] == "end_header") {
            ended = true;
        }
    }
    if (!ended)
        return;
    std::uint64_t const body = fileSize - std::min<std::uint64_t>(at, fileSize);
    std::uint64_t needed = 0;
    for (Element const& element : elements)
        needed = SaturatingSum(needed, SaturatingProduct(element.count, element.minimumBytes));
    if (Lies(needed, body)) {
        std::string claim;
        for (Element const& element : elements) {
            if (!claim.empty())
                claim += ", ";
            claim += std::to_string(element.count);
            claim += ' ';
            claim += element.name;
            claim += " elements";
        }
        RefuseCounts(path, claim, body);
    }
}

// ---------------------------------------------------------------------------
// Assimp's scene to a MeshAsset
// ---------------------------------------------------------------------------

float Finite(float value, float fallback)
{
    return std::isfinite(value) ? value : fallback;
}

float Unit(float value, float fallback)
{
    return std::clamp(Finite(value, fallback), 0.0f, 1.0f);
}

// -0 joins +0 so that identical vertices compare equal bit for bit.
float Canonical(float value)
{
    return value == 0.0f ? 0.0f : value;
}

WrapMode WrapOf(aiTextureMapMode mode)
{
    switch (mode) {
    case aiTextureMapMode_Clamp:
    case aiTextureMapMode_Decal:
        return WrapMode::Clamp;
    case aiTextureMapMode_Mirror:
        return WrapMode::Mirror;
    default:
        return WrapMode::Repeat;
    }
}

std::string MimeTypeOf(aiTexture const& texture)
{
    std::string hint(texture.achFormatHint, strnlen(texture.achFormatHint, sizeof texture.achFormatHint));
    std::transform(hint.begin(), hint.end(), hint.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    if (hint == "jpg" || hint == "jpeg")
        return "image/jpeg";
    // A hint of nothing is common; the data says what it is.
    auto const* data = reinterpret_cast<unsigned char const*>(texture.pcData);
    if (texture.mWidth >= 8 && data[0] == 0x89 && data[1] == 'P' && data[2] == 'N' && data[3] == 'G')
        return "image/png";
    if (texture.mWidth >= 3 && data[0] == 0xFF && data[1] == 0xD8 && data[2] == 0xFF)
        return "image/jpeg";
    return "image/" + (hint.empty() ? std::string("unknown") : hint);
}

class SceneConverter {
public:
    // `emptied`: meshes whose every face was invalid, which are no point clouds.
    SceneConverter(aiScene const& scene, std::unordered_set<aiMesh const*> const& emptied, MeshAsset& asset)
        : scene_(scene), emptied_(emptied), asset_(asset)
    {
    }

    void Convert()
    {
        CountSceneContent();
        CollectInstances();
        BuildPrimitives();
    }

private:
    struct Instance {
        aiMesh const* mesh;
        aiMatrix4x4 transform;
    };

    void CountSceneContent()
    {
        asset_.Drop("animations", scene_.mNumAnimations);
        asset_.Drop("cameras", scene_.mNumCameras);
        asset_.Drop("lights", scene_.mNumLights);
    }

    bool Usable(unsigned meshIndex) const
    {
        if (meshIndex >= scene_.mNumMeshes || scene_.mMeshes == nullptr)
            return false;
        aiMesh const* mesh = scene_.mMeshes[meshIndex];
        return mesh != nullptr && mesh->mVertices != nullptr && mesh->mNumVertices != 0;
    }

    // Every mesh where the node tree places it (a mesh placed twice is
    // emitted twice); without a node tree, every mesh as it is. Meshes no
    // node places are left out, unless the tree holds a missing node (an
    // importer's bug): then they were meant to be placed, and are, as they are.
    void CollectInstances()
    {
        std::vector<bool> placed(scene_.mNumMeshes, false);
        bool broken = scene_.mRootNode == nullptr;
        // Iterative, and each node once: a node tree that loops or shares
        // nodes (a broken file) cannot recurse without end.
        std::unordered_set<aiNode const*> seen;
        std::vector<std::pair<aiNode const*, aiMatrix4x4>> stack;
        if (scene_.mRootNode != nullptr)
            stack.emplace_back(scene_.mRootNode, aiMatrix4x4());
        while (!stack.empty()) {
            auto const [node, parent] = stack.back();
            stack.pop_back();
            if (node == nullptr) {
                broken = true;
                continue;
            }
            if (!seen.insert(node).second)
                continue;
            aiMatrix4x4 const transform = parent * node->mTransformation;
            for (unsigned i = 0; node->mMeshes != nullptr && i < node->mNumMeshes; ++i) {
                unsigned const mesh = node->mMeshes[i];
                if (!Usable(mesh)) {
                    asset_.Drop("invalid_meshes", 1);
                    continue;
                }
                placed[mesh] = true;
                instances_.push_back({scene_.mMeshes[mesh], transform});
            }
            for (unsigned i = node->mNumChildren; node->mChildren != nullptr && i > 0; --i)
                stack.emplace_back(node->mChildren[i - 1], transform);
        }
        for (unsigned m = 0; m < scene_.mNumMeshes; ++m) {
            if (placed[m] || !Usable(m))
                continue;
            if (broken)
                instances_.push_back({scene_.mMeshes[m], aiMatrix4x4()});
            else
                asset_.Drop("unplaced_meshes", 1);
        }
    }

    static unsigned UvSetCount(aiMesh const& mesh)
    {
        unsigned count = 0;
        for (unsigned c = 0; c < AI_MAX_NUMBER_OF_TEXTURECOORDS; ++c)
            if (mesh.mTextureCoords[c] != nullptr)
                count = c + 1;
        return count;
    }

    static unsigned ColorSetCount(aiMesh const& mesh)
    {
        unsigned count = 0;
        for (unsigned c = 0; c < AI_MAX_NUMBER_OF_COLOR_SETS; ++c)
            if (mesh.mColors[c] != nullptr)
                count = c + 1;
        return count;
    }

    void BuildPrimitives()
    {
        // One primitive per material in use, in material order.
        std::map<unsigned, std::vector<Instance const*>> byMaterial;
        for (Instance const& instance : instances_) {
            unsigned material = instance.mesh->mMaterialIndex;
            if (material >= scene_.mNumMaterials || scene_.mMaterials == nullptr ||
                scene_.mMaterials[material] == nullptr)
                material = Fallback;
            byMaterial[material].push_back(&instance);
        }
        std::unordered_set<aiMesh const*> counted;
        for (auto const& [material, instances] : byMaterial) {
            MeshPrimitive primitive;
            primitive.material = static_cast<std::uint32_t>(asset_.materials.size());
            unsigned uvSets = 0;
            unsigned colorSets = 0;
            for (Instance const* instance : instances) {
                uvSets = std::max(uvSets, UvSetCount(*instance->mesh));
                colorSets = std::max(colorSets, ColorSetCount(*instance->mesh));
            }
            primitive.uvSets.resize(uvSets);
            primitive.colorSets.resize(colorSets);
            for (Instance const* instance : instances)
                Append(*instance, primitive, counted.insert(instance->mesh).second);
            if (primitive.triangles.empty())
                continue;
            asset_.materials.push_back(material == Fallback ? FallbackMaterial()
                                                            : ConvertMaterial(*scene_.mMaterials[material]));
            asset_.primitives.push_back(std::move(primitive));
        }
    }

    // Appends one placed mesh; `first` counts what it drops only once per
    // mesh, however often it is placed.
    void Append(Instance const& instance, MeshPrimitive& primitive, bool first)
    {
        aiMesh const& mesh = *instance.mesh;
        if (first) {
            bool const faceless = mesh.mFaces == nullptr || mesh.mNumFaces == 0;
            asset_.Drop("point_clouds", faceless && emptied_.count(&mesh) == 0 ? 1 : 0);
            asset_.Drop("skinned_meshes", mesh.mNumBones != 0 ? 1 : 0);
            asset_.Drop("morph_targets", mesh.mNumAnimMeshes);
            asset_.Drop("tangent_sets", mesh.mTangents != nullptr ? 1 : 0);
        }
        std::size_t const base = primitive.positions.size();
        if (base + mesh.mNumVertices > std::numeric_limits<std::uint32_t>::max())
            throw Failure("the mesh has more than 4,294,967,295 vertices");
        // A mirroring transform turns the winding; swapping two corners turns it back.
        bool const mirrored = instance.transform.Determinant() < 0.0f;

        for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
            aiVector3D const p = instance.transform * mesh.mVertices[v];
            primitive.positions.push_back({Canonical(p.x), Canonical(p.y), Canonical(p.z)});
        }
        for (std::size_t c = 0; c < primitive.uvSets.size(); ++c) {
            auto& set = primitive.uvSets[c];
            aiVector3D const* uvs = c < AI_MAX_NUMBER_OF_TEXTURECOORDS ? mesh.mTextureCoords[c] : nullptr;
            bool dropsW = false;
            for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
                aiVector3D const uv = uvs != nullptr ? uvs[v] : aiVector3D();
                set.push_back({Canonical(uv.x), Canonical(uv.y)});
                dropsW = dropsW || (mesh.mNumUVComponents[c] == 3 && uv.z != 0.0f);
            }
            if (first && dropsW)
                asset_.Drop("uv_w_components", 1);
        }
        for (std::size_t c = 0; c < primitive.colorSets.size(); ++c) {
            auto& set = primitive.colorSets[c];
            aiColor4D const* colors = c < AI_MAX_NUMBER_OF_COLOR_SETS ? mesh.mColors[c] : nullptr;
            for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
                // A mesh without this set among meshes with it: white, which
                // leaves the material's colour as it is.
                aiColor4D const color = colors != nullptr ? colors[v] : aiColor4D(1.0f, 1.0f, 1.0f, 1.0f);
                set.push_back({Canonical(color.r), Canonical(color.g), Canonical(color.b), Canonical(color.a)});
            }
        }

        std::uint64_t pointsAndLines = 0;
        std::uint64_t invalid = 0;
        for (unsigned f = 0; mesh.mFaces != nullptr && f < mesh.mNumFaces; ++f) {
            aiFace const& face = mesh.mFaces[f];
            if (face.mNumIndices == 1 || face.mNumIndices == 2) {
                ++pointsAndLines;
                continue;
            }
            if (face.mNumIndices != 3 || face.mIndices == nullptr || face.mIndices[0] >= mesh.mNumVertices ||
                face.mIndices[1] >= mesh.mNumVertices || face.mIndices[2] >= mesh.mNumVertices) {
                ++invalid;
                continue;
            }
            auto const corner = [&](unsigned k) { return static_cast<std::uint32_t>(base + face.mIndices[k]); };
            primitive.triangles.push_back(mirrored ? Triangle{corner(0), corner(2), corner(1)}
                                                   : Triangle{corner(0), corner(1), corner(2)});
        }
        if (first) {
            asset_.Drop("points_and_lines", pointsAndLines);
            asset_.Drop("invalid_faces", invalid);
        }
    }

    MeshMaterial FallbackMaterial() const
    {
        MeshMaterial material;
        material.name = "default";
        return material;
    }

    std::optional<MaterialTexture> Texture(aiMaterial const& source, aiTextureType type)
    {
        if (source.GetTextureCount(type) == 0)
            return std::nullopt;
        aiString path;
        aiTextureMapping mapping = aiTextureMapping_UV;
        unsigned uvIndex = 0;
        aiTextureMapMode modes[2] = {aiTextureMapMode_Wrap, aiTextureMapMode_Wrap};
        if (source.GetTexture(type, 0, &path, &mapping, &uvIndex, nullptr, nullptr, modes) != aiReturn_SUCCESS ||
            path.length == 0)
            return std::nullopt;
        MaterialTexture texture;
        texture.uvSet = uvIndex;
        texture.wrapU = WrapOf(modes[0]);
        texture.wrapV = WrapOf(modes[1]);
        if (mapping != aiTextureMapping_UV)
            asset_.Drop("projected_texture_mappings", 1);
        aiUVTransform transform;
        if (source.Get(AI_MATKEY_UVTRANSFORM(type, 0), transform) == aiReturn_SUCCESS &&
            (transform.mTranslation != aiVector2D(0.0f, 0.0f) || transform.mScaling != aiVector2D(1.0f, 1.0f) ||
             transform.mRotation != 0.0f))
            asset_.Drop("texture_transforms", 1);

        auto const [embedded, index] = scene_.GetEmbeddedTextureAndIndex(path.C_Str());
        if (embedded != nullptr && embedded->pcData != nullptr) {
            texture.image = Image(*embedded, index);
            if (texture.image < 0)
                return std::nullopt;
        } else if (path.data[0] == '*') {
            asset_.Drop("missing_embedded_images", 1);
            return std::nullopt;
        } else {
            texture.uri = path.C_Str();
        }
        return texture;
    }

    std::int32_t Image(aiTexture const& texture, int index)
    {
        auto const known = images_.find(index);
        if (known != images_.end())
            return known->second;
        EmbeddedImage image;
        if (texture.mHeight == 0) {
            image.mimeType = MimeTypeOf(texture);
            image.bytes.assign(reinterpret_cast<char const*>(texture.pcData), texture.mWidth);
        } else {
            image.width = texture.mWidth;
            image.height = texture.mHeight;
            std::uint64_t const bytes = std::uint64_t(texture.mWidth) * texture.mHeight * 4;
            // aiTexel is B, G, R, A bytes.
            image.bytes.assign(reinterpret_cast<char const*>(texture.pcData), bytes);
        }
        auto const result = static_cast<std::int32_t>(asset_.images.size());
        asset_.images.push_back(std::move(image));
        images_.emplace(index, result);
        return result;
    }

    // The texture of the first type among `types` that has one, and the
    // types it took, so that the rest can be counted.
    std::optional<MaterialTexture> Slot(aiMaterial const& source, std::initializer_list<aiTextureType> types,
                                        std::vector<std::pair<aiTextureType, std::string>>& used)
    {
        for (aiTextureType const type : types) {
            auto texture = Texture(source, type);
            if (!texture)
                continue;
            aiString path;
            source.GetTexture(type, 0, &path);
            used.emplace_back(type, path.C_Str());
            return texture;
        }
        return std::nullopt;
    }

    MeshMaterial ConvertMaterial(aiMaterial const& source)
    {
        MeshMaterial material;
        aiString name;
        material.name = source.Get(AI_MATKEY_NAME, name) == aiReturn_SUCCESS ? name.C_Str() : "";

        aiColor4D color(1.0f, 1.0f, 1.0f, 1.0f);
        bool const pbr = source.Get(AI_MATKEY_BASE_COLOR, color) == aiReturn_SUCCESS;
        if (!pbr) {
            color = aiColor4D(1.0f, 1.0f, 1.0f, 1.0f);
            source.Get(AI_MATKEY_COLOR_DIFFUSE, color);
            float opacity = 1.0f;
            if (source.Get(AI_MATKEY_OPACITY, opacity) == aiReturn_SUCCESS)
                color.a = opacity;
        }
        material.baseColor = {Unit(color.r, 1.0f), Unit(color.g, 1.0f), Unit(color.b, 1.0f), Unit(color.a, 1.0f)};

        aiColor3D emissive(0.0f, 0.0f, 0.0f);
        source.Get(AI_MATKEY_COLOR_EMISSIVE, emissive);
        float intensity = 1.0f;
        source.Get(AI_MATKEY_EMISSIVE_INTENSITY, intensity);
        intensity = std::max(0.0f, Finite(intensity, 1.0f));
        material.emissive = {std::max(0.0f, Finite(emissive.r * intensity, 0.0f)),
                             std::max(0.0f, Finite(emissive.g * intensity, 0.0f)),
                             std::max(0.0f, Finite(emissive.b * intensity, 0.0f))};

        float value = 0.0f;
        if (source.Get(AI_MATKEY_METALLIC_FACTOR, value) == aiReturn_SUCCESS)
            material.metallic = Unit(value, 0.0f);
        if (source.Get(AI_MATKEY_ROUGHNESS_FACTOR, value) == aiReturn_SUCCESS) {
            material.roughness = Unit(value, 1.0f);
        } else if (source.Get(AI_MATKEY_SHININESS, value) == aiReturn_SUCCESS && value > 0.0f) {
            // A Blinn-Phong exponent as the roughness of about the same highlight.
            material.roughness = Unit(std::sqrt(2.0f / (value + 2.0f)), 1.0f);
        }

        aiString alphaMode;
        if (source.Get(AI_MATKEY_GLTF_ALPHAMODE, alphaMode) == aiReturn_SUCCESS) {
            std::string_view const mode = alphaMode.C_Str();
            material.alphaMode = mode == "MASK" ? AlphaMode::Mask : mode == "BLEND" ? AlphaMode::Blend
                                                                                      : AlphaMode::Opaque;
        } else if (material.baseColor[3] < 1.0f) {
            material.alphaMode = AlphaMode::Blend;
        }
        if (source.Get(AI_MATKEY_GLTF_ALPHACUTOFF, value) == aiReturn_SUCCESS)
            material.alphaCutoff = Unit(value, 0.5f);
        int twoSided = 0;
        material.doubleSided = source.Get(AI_MATKEY_TWOSIDED, twoSided) == aiReturn_SUCCESS && twoSided != 0;

        std::vector<std::pair<aiTextureType, std::string>> used;
        auto& textures = material.textures;
        textures[BaseColorTexture] = Slot(source, {aiTextureType_BASE_COLOR, aiTextureType_DIFFUSE}, used);
        textures[NormalTexture] = Slot(source, {aiTextureType_NORMALS, aiTextureType_NORMAL_CAMERA}, used);
        textures[EmissiveTexture] = Slot(source, {aiTextureType_EMISSIVE, aiTextureType_EMISSION_COLOR}, used);
        textures[MetallicRoughnessTexture] = Slot(source, {aiTextureType_UNKNOWN}, used);
        textures[OcclusionTexture] = Slot(source, {aiTextureType_AMBIENT_OCCLUSION, aiTextureType_LIGHTMAP}, used);
        CountOtherTextures(source, used);
        return material;
    }

    // Every texture of the material that no slot took, except copies of one
    // that did (glTF's importer files the base colour under two types).
    void CountOtherTextures(aiMaterial const& source, std::vector<std::pair<aiTextureType, std::string>> const& used)
    {
        std::uint64_t others = 0;
        for (int t = aiTextureType_DIFFUSE; t <= AI_TEXTURE_TYPE_MAX; ++t) {
            auto const type = static_cast<aiTextureType>(t);
            for (unsigned i = 0; i < source.GetTextureCount(type); ++i) {
                aiString path;
                if (source.GetTexture(type, i, &path) != aiReturn_SUCCESS)
                    continue;
                bool const taken = std::any_of(used.begin(), used.end(), [&](auto const& slot) {
                    return (slot.first == type && i == 0) || slot.second == path.C_Str();
                });
                others += taken ? 0 : 1;
            }
        }
        asset_.Drop("other_textures", others);
    }

    static constexpr unsigned Fallback = std::numeric_limits<unsigned>::max();

    aiScene const& scene_;
    std::unordered_set<aiMesh const*> const& emptied_;
    MeshAsset& asset_;
    std::vector<Instance> instances_;
    std::map<int, std::int32_t> images_;
};

// Faces that Assimp's triangulation asserts on (no indices) or reads out of
// bounds with (an index past the mesh's vertices) go before it runs, and each
// mesh's primitive types are set from the faces it keeps: the triangulation
// asserts that a mesh said to hold polygons holds one.
std::uint64_t RemoveInvalidFaces(aiScene& scene, std::unordered_set<aiMesh const*>& emptied)
{
    std::uint64_t removed = 0;
    for (unsigned m = 0; scene.mMeshes != nullptr && m < scene.mNumMeshes; ++m) {
        aiMesh* mesh = scene.mMeshes[m];
        if (mesh == nullptr)
            continue;
        if (mesh->mFaces == nullptr) {
            mesh->mNumFaces = 0;
            mesh->mPrimitiveTypes = 0;
            continue;
        }
        // Polygons are cut along their vertices' positions.
        bool const positions = mesh->mVertices != nullptr;
        unsigned kept = 0;
        unsigned types = 0;
        for (unsigned f = 0; f < mesh->mNumFaces; ++f) {
            aiFace& face = mesh->mFaces[f];
            bool valid = positions && face.mNumIndices != 0 && face.mIndices != nullptr;
            for (unsigned i = 0; valid && i < face.mNumIndices; ++i)
                valid = face.mIndices[i] < mesh->mNumVertices;
            if (!valid) {
                ++removed;
                continue;
            }
            types |= face.mNumIndices == 1 ? aiPrimitiveType_POINT
                     : face.mNumIndices == 2 ? aiPrimitiveType_LINE
                     : face.mNumIndices == 3 ? aiPrimitiveType_TRIANGLE
                                             : aiPrimitiveType_POLYGON;
            // Swapped, not copied: every face keeps an array of its own for
            // the mesh's destructor to free.
            std::swap(mesh->mFaces[kept].mNumIndices, face.mNumIndices);
            std::swap(mesh->mFaces[kept].mIndices, face.mIndices);
            ++kept;
        }
        if (kept == 0 && mesh->mNumFaces != 0)
            emptied.insert(mesh);
        mesh->mNumFaces = kept;
        mesh->mPrimitiveTypes = types;
    }
    return removed;
}

} // namespace

bool IsMeshFile(fs::path const& path)
{
    return !path.extension().empty() && Assimp::Importer().IsExtensionSupported(path.extension().string());
}

void CheckDeclaredCounts(fs::path const& path)
{
    std::string const extension = LowerExtension(path);
    if (extension != "off" && extension != "ply")
        return;
    std::error_code error;
    std::uint64_t const size = fs::file_size(path, error);
    if (error)
        return;
    std::ifstream in(path, std::ios::binary);
    std::string head(std::min<std::uint64_t>(size, 1 << 16), '\0');
    in.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(in.gcount()));
    if (extension == "off")
        CheckOff(path, head, size);
    else
        CheckPly(path, head, size);
}

MeshAsset ImportMeshAsset(fs::path const& path)
{
    std::error_code error;
    fs::file_status const status = fs::status(path, error);
    if (status.type() == fs::file_type::not_found)
        throw UsageError("cannot read " + Quoted(path) + ": no such file");
    if (status.type() == fs::file_type::directory)
        throw UsageError("cannot read " + Quoted(path) + ": it is a folder, not a mesh file");
    if (status.type() != fs::file_type::regular)
        throw UsageError("cannot read " + Quoted(path) + ": not a regular file");
    Assimp::Importer importer;
    if (!importer.IsExtensionSupported(path.extension().string()))
        throw UsageError("cannot read " + Quoted(path) + ": unsupported mesh format '" + path.extension().string() +
                         "'");
    CheckDeclaredCounts(path);

    // Skeletons drawn as meshes are not the asset's geometry.
    importer.SetPropertyBool(AI_CONFIG_IMPORT_NO_SKELETON_MESHES, true);
    aiScene const* scene = importer.ReadFile(path.string(), 0);
    std::uint64_t invalidFaces = 0;
    std::unordered_set<aiMesh const*> emptied;
    if (scene != nullptr) {
        invalidFaces = RemoveInvalidFaces(*const_cast<aiScene*>(scene), emptied);
        scene = importer.ApplyPostProcessing(aiProcess_Triangulate);
    }
    if (scene == nullptr) {
        std::string const reason = importer.GetErrorString();
        // Importers catch their own failed allocations; the memory limit
        // deserves its own message.
        if (reason.find("bad_alloc") != std::string::npos)
            throw std::bad_alloc();
        throw Failure("cannot read " + Quoted(path) + ": " + reason);
    }

    MeshAsset asset;
    asset.Drop("invalid_faces", invalidFaces);
    SceneConverter(*scene, emptied, asset).Convert();
    if (asset.primitives.empty()) {
        std::string held;
        for (auto const& [what, count] : asset.dropped) {
            held += held.empty() ? " (it holds " : ", ";
            held += what;
            held += ' ';
            held += std::to_string(count);
        }
        throw Failure(Quoted(path) + " holds no triangles" + (held.empty() ? "" : held + ")"));
    }
    return asset;
}

} // namespace Zorvan::Tool
