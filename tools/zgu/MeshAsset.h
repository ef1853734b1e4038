#pragma once

// A mesh asset as zgu carries it from an importer to a writer: one primitive
// per material, in world space, with every per-vertex attribute an engine
// keeps (texture coordinate sets, colour sets), the materials with their
// textures, and a count of whatever the input held that zgu does not carry,
// so that nothing goes missing without a word.

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan::Tool {

using Float2 = std::array<float, 2>;
using Float3 = std::array<float, 3>;
using Float4 = std::array<float, 4>;
using Triangle = std::array<std::uint32_t, 3>;

enum class AlphaMode : std::uint8_t { Opaque = 0, Mask = 1, Blend = 2 };

// How a texture repeats outside [0, 1]; the values are glTF's sampler codes.
enum class WrapMode : std::uint16_t { Repeat = 10497, Clamp = 33071, Mirror = 33648 };

struct MaterialTexture {
    std::string uri;         // as the input names it, relative to the input's folder; empty when embedded
    std::int32_t image = -1; // MeshAsset::images index when embedded
    std::uint32_t uvSet = 0;
    WrapMode wrapU = WrapMode::Repeat;
    WrapMode wrapV = WrapMode::Repeat;

    friend bool operator==(MaterialTexture const&, MaterialTexture const&) = default;
};

// The texture slots of glTF's metallic-roughness model, which the other
// writers map onto theirs.
enum TextureSlot : std::uint8_t { BaseColorTexture, NormalTexture, EmissiveTexture, MetallicRoughnessTexture,
                                  OcclusionTexture, TextureSlotCount };

struct MeshMaterial {
    std::string name;
    Float4 baseColor{1.0f, 1.0f, 1.0f, 1.0f};
    Float3 emissive{0.0f, 0.0f, 0.0f};
    float metallic = 0.0f; // inputs without the metallic-roughness model are dielectric
    float roughness = 1.0f;
    AlphaMode alphaMode = AlphaMode::Opaque;
    float alphaCutoff = 0.5f;
    bool doubleSided = false;
    std::array<std::optional<MaterialTexture>, TextureSlotCount> textures;

    friend bool operator==(MeshMaterial const&, MeshMaterial const&) = default;
};

// An image stored inside the input file. Encoded ones keep their bytes as
// they were (PNG, JPEG, ...); raw ones hold width x height BGRA texels top
// row first, for the caller to encode.
struct EmbeddedImage {
    std::string mimeType; // "image/png", "image/jpeg", ...; empty for raw texels
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::string bytes;

    friend bool operator==(EmbeddedImage const&, EmbeddedImage const&) = default;
};

struct MeshPrimitive {
    std::uint32_t material = 0;
    std::vector<Float3> positions;
    std::vector<std::vector<Float2>> uvSets;    // each one entry per position
    std::vector<std::vector<Float4>> colorSets; // each one entry per position; RGBA
    std::vector<Triangle> triangles;

    friend bool operator==(MeshPrimitive const&, MeshPrimitive const&) = default;
};

struct MeshAsset {
    std::vector<MeshMaterial> materials;
    std::vector<EmbeddedImage> images;
    std::vector<MeshPrimitive> primitives; // one per material used, in material order
    // What the input held that zgu does not carry, by the report's names
    // ("animations", "cameras", ...), in the order found; counts above 0.
    std::vector<std::pair<std::string, std::uint64_t>> dropped;

    std::size_t TriangleCount() const;
    void Drop(std::string const& what, std::uint64_t count);

    friend bool operator==(MeshAsset const&, MeshAsset const&) = default;
};

// The asset as bytes and back, to carry it out of the isolated importer.
// Deserializing checks every count against the bytes there are and every
// index against what it names; a mismatch throws Failure.
std::string SerializeMeshAsset(MeshAsset const& asset);
MeshAsset DeserializeMeshAsset(std::string const& bytes);

} // namespace Zorvan::Tool
