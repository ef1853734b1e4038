#include "MeshAsset.h"

#include "Errors.h"

#include <cstring>
#include <type_traits>

namespace Zorvan::Tool {
namespace {

// Parent and child are the same executable, so host byte order and layouts
// match; the magic catches a child that sent something else entirely.
constexpr char Magic[8] = {'z', 'g', 'u', 'm', 'e', 's', 'h', '1'};

class Writer {
public:
    template <typename T>
    void Value(T const& value)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        bytes_.append(reinterpret_cast<char const*>(&value), sizeof value);
    }
    void Text(std::string const& text)
    {
        Value<std::uint64_t>(text.size());
        bytes_.append(text);
    }
    template <typename T>
    void Array(std::vector<T> const& values)
    {
        static_assert(std::is_trivially_copyable_v<T>);
        Value<std::uint64_t>(values.size());
        bytes_.append(reinterpret_cast<char const*>(values.data()), values.size() * sizeof(T));
    }
    std::string Take() { return std::move(bytes_); }

private:
    std::string bytes_;
};

class Reader {
public:
    explicit Reader(std::string const& bytes) : bytes_(bytes) {}

    template <typename T>
    T Value()
    {
        T value;
        std::memcpy(&value, Take(sizeof value), sizeof value);
        return value;
    }
    std::string Text()
    {
        std::size_t const size = Count(1);
        return std::string(Take(size), size);
    }
    template <typename T>
    std::vector<T> Array()
    {
        std::size_t const count = Count(sizeof(T));
        std::vector<T> values(count);
        if (count != 0)
            std::memcpy(values.data(), Take(count * sizeof(T)), count * sizeof(T));
        return values;
    }
    // A count of items of `size` bytes each, checked against what is left
    // before anything is allocated for them.
    std::size_t Count(std::size_t size)
    {
        auto const count = Value<std::uint64_t>();
        if (size != 0 && count > (bytes_.size() - offset_) / size)
            Malformed();
        return static_cast<std::size_t>(count);
    }
    bool AtEnd() const { return offset_ == bytes_.size(); }
    [[noreturn]] static void Malformed() { throw Failure("the importer sent a malformed mesh"); }

private:
    char const* Take(std::size_t size)
    {
        if (size > bytes_.size() - offset_)
            Malformed();
        char const* data = bytes_.data() + offset_;
        offset_ += size;
        return data;
    }

    std::string const& bytes_;
    std::size_t offset_ = 0;
};

void WriteTexture(Writer& out, std::optional<MaterialTexture> const& texture)
{
    out.Value<std::uint8_t>(texture ? 1 : 0);
    if (!texture)
        return;
    out.Text(texture->uri);
    out.Value(texture->image);
    out.Value(texture->uvSet);
    out.Value(texture->wrapU);
    out.Value(texture->wrapV);
}

WrapMode ReadWrap(Reader& in)
{
    auto const mode = in.Value<WrapMode>();
    if (mode != WrapMode::Repeat && mode != WrapMode::Clamp && mode != WrapMode::Mirror)
        Reader::Malformed();
    return mode;
}

std::optional<MaterialTexture> ReadTexture(Reader& in, std::size_t imageCount)
{
    if (in.Value<std::uint8_t>() == 0)
        return std::nullopt;
    MaterialTexture texture;
    texture.uri = in.Text();
    texture.image = in.Value<std::int32_t>();
    texture.uvSet = in.Value<std::uint32_t>();
    texture.wrapU = ReadWrap(in);
    texture.wrapV = ReadWrap(in);
    if (texture.image < -1 || (texture.image >= 0 && std::size_t(texture.image) >= imageCount))
        Reader::Malformed();
    return texture;
}

} // namespace

std::size_t MeshAsset::TriangleCount() const
{
    std::size_t count = 0;
    for (MeshPrimitive const& primitive : primitives)
        count += primitive.triangles.size();
    return count;
}

void MeshAsset::Drop(std::string const& what, std::uint64_t count)
{
    if (count == 0)
        return;
    for (auto& [name, total] : dropped)
        if (name == what) {
            total += count;
            return;
        }
    dropped.emplace_back(what, count);
}

std::string SerializeMeshAsset(MeshAsset const& asset)
{
    Writer out;
    out.Value(Magic);
    out.Value<std::uint64_t>(asset.images.size());
    for (EmbeddedImage const& image : asset.images) {
        out.Text(image.mimeType);
        out.Value(image.width);
        out.Value(image.height);
        out.Text(image.bytes);
    }
    out.Value<std::uint64_t>(asset.materials.size());
    for (MeshMaterial const& material : asset.materials) {
        out.Text(material.name);
        out.Value(material.baseColor);
        out.Value(material.emissive);
        out.Value(material.metallic);
        out.Value(material.roughness);
        out.Value(material.alphaMode);
        out.Value(material.alphaCutoff);
        out.Value<std::uint8_t>(material.doubleSided ? 1 : 0);
        for (auto const& texture : material.textures)
            WriteTexture(out, texture);
    }
    out.Value<std::uint64_t>(asset.primitives.size());
    for (MeshPrimitive const& primitive : asset.primitives) {
        out.Value(primitive.material);
        out.Array(primitive.positions);
        out.Value<std::uint64_t>(primitive.uvSets.size());
        for (auto const& set : primitive.uvSets)
            out.Array(set);
        out.Value<std::uint64_t>(primitive.colorSets.size());
        for (auto const& set : primitive.colorSets)
            out.Array(set);
        out.Array(primitive.triangles);
    }
    out.Value<std::uint64_t>(asset.dropped.size());
    for (auto const& [name, count] : asset.dropped) {
        out.Text(name);
        out.Value(count);
    }
    return out.Take();
}

MeshAsset DeserializeMeshAsset(std::string const& bytes)
{
    Reader in(bytes);
    if (std::memcmp(in.Value<std::array<char, sizeof Magic>>().data(), Magic, sizeof Magic) != 0)
        Reader::Malformed();
    MeshAsset asset;
    // Each image, material and primitive takes several bytes, which bounds
    // the counts before anything is reserved for them.
    asset.images.resize(in.Count(8));
    for (EmbeddedImage& image : asset.images) {
        image.mimeType = in.Text();
        image.width = in.Value<std::uint32_t>();
        image.height = in.Value<std::uint32_t>();
        image.bytes = in.Text();
        if (image.mimeType.empty() && image.bytes.size() != std::uint64_t(image.width) * image.height * 4)
            Reader::Malformed();
    }
    asset.materials.resize(in.Count(8));
    for (MeshMaterial& material : asset.materials) {
        material.name = in.Text();
        material.baseColor = in.Value<Float4>();
        material.emissive = in.Value<Float3>();
        material.metallic = in.Value<float>();
        material.roughness = in.Value<float>();
        material.alphaMode = in.Value<AlphaMode>();
        material.alphaCutoff = in.Value<float>();
        material.doubleSided = in.Value<std::uint8_t>() != 0;
        if (material.alphaMode > AlphaMode::Blend)
            Reader::Malformed();
        for (auto& texture : material.textures)
            texture = ReadTexture(in, asset.images.size());
    }
    asset.primitives.resize(in.Count(8));
    for (MeshPrimitive& primitive : asset.primitives) {
        primitive.material = in.Value<std::uint32_t>();
        primitive.positions = in.Array<Float3>();
        primitive.uvSets.resize(in.Count(8));
        for (auto& set : primitive.uvSets)
            set = in.Array<Float2>();
        primitive.colorSets.resize(in.Count(8));
        for (auto& set : primitive.colorSets)
            set = in.Array<Float4>();
        primitive.triangles = in.Array<Triangle>();
        if (primitive.material >= asset.materials.size())
            Reader::Malformed();
        for (auto const& set : primitive.uvSets)
            if (set.size() != primitive.positions.size())
                Reader::Malformed();
        for (auto const& set : primitive.colorSets)
            if (set.size() != primitive.positions.size())
                Reader::Malformed();
        for (Triangle const& triangle : primitive.triangles)
            for (std::uint32_t const index : triangle)
                if (index >= primitive.positions.size())
                    Reader::Malformed();
    }
    asset.dropped.resize(in.Count(16));
    for (auto& [name, count] : asset.dropped) {
        name = in.Text();
        count = in.Value<std::uint64_t>();
    }
    if (!in.AtEnd())
        Reader::Malformed();
    return asset;
}

} // namespace Zorvan::Tool
