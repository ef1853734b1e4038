#include "Formats.h"

#include <array>
#include <cstring>

namespace Zorvan::Rendering::Gl::detail {

namespace {

using K = ChannelKind;

constexpr GlFormat Entry(Format f, GLenum internal, GLenum transfer, GLenum type, std::uint32_t bytes, K kind,
                         bool stencil = false, HostLayout layout = HostLayout::Same)
{
    return GlFormat{f, internal, transfer, type, bytes, kind, stencil, layout};
}

constexpr std::array<GlFormat, FormatCount> Table{{
    Entry(Format::None, 0, 0, 0, 0, K::Float),
    Entry(Format::B8G8R8, GL_RGB8, GL_BGR, GL_UNSIGNED_BYTE, 3, K::Float),
    Entry(Format::B8G8R8A8, GL_RGBA8, GL_BGRA, GL_UNSIGNED_BYTE, 4, K::Float),
    // The padding byte lives in alpha so it survives a round trip.
    Entry(Format::B8G8R8X8, GL_RGBA8, GL_BGRA, GL_UNSIGNED_BYTE, 4, K::Float),
    Entry(Format::R8, GL_R8, GL_RED, GL_UNSIGNED_BYTE, 1, K::Float),
    Entry(Format::R8G8, GL_RG8, GL_RG, GL_UNSIGNED_BYTE, 2, K::Float),
    Entry(Format::R8G8B8A8, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE, 4, K::Float),
    Entry(Format::R16, GL_R16, GL_RED, GL_UNSIGNED_SHORT, 2, K::Float),
    Entry(Format::R16G16, GL_RG16, GL_RG, GL_UNSIGNED_SHORT, 4, K::Float),
    Entry(Format::R16G16B16A16, GL_RGBA16, GL_RGBA, GL_UNSIGNED_SHORT, 8, K::Float),
    Entry(Format::R8SN, GL_R8_SNORM, GL_RED, GL_BYTE, 1, K::Float),
    Entry(Format::R8G8SN, GL_RG8_SNORM, GL_RG, GL_BYTE, 2, K::Float),
    Entry(Format::R8G8B8A8SN, GL_RGBA8_SNORM, GL_RGBA, GL_BYTE, 4, K::Float),
    Entry(Format::R16SN, GL_R16_SNORM, GL_RED, GL_SHORT, 2, K::Float),
    Entry(Format::R16G16SN, GL_RG16_SNORM, GL_RG, GL_SHORT, 4, K::Float),
    Entry(Format::R16G16B16A16SN, GL_RGBA16_SNORM, GL_RGBA, GL_SHORT, 8, K::Float),
    Entry(Format::R8U, GL_R8UI, GL_RED_INTEGER, GL_UNSIGNED_BYTE, 1, K::UnsignedInteger),
    Entry(Format::R8G8U, GL_RG8UI, GL_RG_INTEGER, GL_UNSIGNED_BYTE, 2, K::UnsignedInteger),
    Entry(Format::R8G8B8A8U, GL_RGBA8UI, GL_RGBA_INTEGER, GL_UNSIGNED_BYTE, 4, K::UnsignedInteger),
    Entry(Format::R16U, GL_R16UI, GL_RED_INTEGER, GL_UNSIGNED_SHORT, 2, K::UnsignedInteger),
    Entry(Format::R16G16U, GL_RG16UI, GL_RG_INTEGER, GL_UNSIGNED_SHORT, 4, K::UnsignedInteger),
    Entry(Format::R16G16B16A16U, GL_RGBA16UI, GL_RGBA_INTEGER, GL_UNSIGNED_SHORT, 8, K::UnsignedInteger),
    Entry(Format::R32U, GL_R32UI, GL_RED_INTEGER, GL_UNSIGNED_INT, 4, K::UnsignedInteger),
    Entry(Format::R32G32U, GL_RG32UI, GL_RG_INTEGER, GL_UNSIGNED_INT, 8, K::UnsignedInteger),
    Entry(Format::R32G32B32A32U, GL_RGBA32UI, GL_RGBA_INTEGER, GL_UNSIGNED_INT, 16, K::UnsignedInteger),
    Entry(Format::R8I, GL_R8I, GL_RED_INTEGER, GL_BYTE, 1, K::SignedInteger),
    Entry(Format::R8G8I, GL_RG8I, GL_RG_INTEGER, GL_BYTE, 2, K::SignedInteger),
    Entry(Format::R8G8B8A8I, GL_RGBA8I, GL_RGBA_INTEGER, GL_BYTE, 4, K::SignedInteger),
    Entry(Format::R16I, GL_R16I, GL_RED_INTEGER, GL_SHORT, 2, K::SignedInteger),
    Entry(Format::R16G16I, GL_RG16I, GL_RG_INTEGER, GL_SHORT, 4, K::SignedInteger),
    Entry(Format::R16G16B16A16I, GL_RGBA16I, GL_RGBA_INTEGER, GL_SHORT, 8, K::SignedInteger),
    Entry(Format::R32I, GL_R32I, GL_RED_INTEGER, GL_INT, 4, K::SignedInteger),
    Entry(Format::R32G32I, GL_RG32I, GL_RG_INTEGER, GL_INT, 8, K::SignedInteger),
    Entry(Format::R32G32B32A32I, GL_RGBA32I, GL_RGBA_INTEGER, GL_INT, 16, K::SignedInteger),
    Entry(Format::R16F, GL_R16F, GL_RED, GL_HALF_FLOAT, 2, K::Float),
    Entry(Format::R16G16F, GL_RG16F, GL_RG, GL_HALF_FLOAT, 4, K::Float),
    Entry(Format::R16G16B16A16F, GL_RGBA16F, GL_RGBA, GL_HALF_FLOAT, 8, K::Float),
    Entry(Format::R32F, GL_R32F, GL_RED, GL_FLOAT, 4, K::Float),
    Entry(Format::R32G32F, GL_RG32F, GL_RG, GL_FLOAT, 8, K::Float),
    Entry(Format::R32G32B32F, GL_RGB32F, GL_RGB, GL_FLOAT, 12, K::Float),
    Entry(Format::R32G32B32A32F, GL_RGBA32F, GL_RGBA, GL_FLOAT, 16, K::Float),
    Entry(Format::D32F, GL_DEPTH_COMPONENT32F, GL_DEPTH_COMPONENT, GL_FLOAT, 4, K::Depth),
    // Float depth, then stencil in the low byte of the second word: GL's
    // packed layout already matches the host's.
    Entry(Format::D32FS8X24, GL_DEPTH32F_STENCIL8, GL_DEPTH_STENCIL, GL_FLOAT_32_UNSIGNED_INT_24_8_REV, 8, K::Depth,
          true),
    Entry(Format::D24S8, GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4, K::Depth, true,
          HostLayout::Depth24InLowBits),
    // Stored with a stencil byte that stands in for the padding, so the
    // transfer is the same packed word as for D24S8.
    Entry(Format::D24X8, GL_DEPTH24_STENCIL8, GL_DEPTH_STENCIL, GL_UNSIGNED_INT_24_8, 4, K::Depth, false,
          HostLayout::Depth24InLowBits),
    Entry(Format::D16, GL_DEPTH_COMPONENT16, GL_DEPTH_COMPONENT, GL_UNSIGNED_SHORT, 2, K::Depth),
}};

constexpr bool TableIsInOrder()
{
    for (std::uint32_t i = 0; i < Table.size(); ++i)
        if (static_cast<std::uint32_t>(Table[i].format) != i)
            return false;
    return true;
}
static_assert(TableIsInOrder(), "one entry per format, in enumeration order");

template <typename F>
void ForEachWord(std::span<std::byte> pixels, F&& transform) noexcept
{
    for (std::size_t at = 0; at + 4 <= pixels.size(); at += 4) {
        std::uint32_t word = 0;
        std::memcpy(&word, pixels.data() + at, 4);
        word = transform(word);
        std::memcpy(pixels.data() + at, &word, 4);
    }
}

} // namespace

GlFormat const& LookUpFormat(Format format) noexcept
{
    auto const index = static_cast<std::uint32_t>(format);
    return index < Table.size() ? Table[index] : Table[0];
}

void ToGlLayout(GlFormat const& format, std::span<std::byte> pixels) noexcept
{
    if (format.hostLayout == HostLayout::Depth24InLowBits)
        ForEachWord(pixels, [](std::uint32_t w) { return (w << 8) | (w >> 24); });
}

void ToHostLayout(GlFormat const& format, std::span<std::byte> pixels) noexcept
{
    if (format.hostLayout == HostLayout::Depth24InLowBits)
        ForEachWord(pixels, [](std::uint32_t w) { return (w >> 8) | (w << 24); });
}

VertexFormat LookUpVertexFormat(Format format) noexcept
{
    GlFormat const& entry = LookUpFormat(format);
    if (!entry.Supported() || entry.IsDepth())
        return {};
    GLint components = GetChannelCount(format);
    if (format == Format::B8G8R8A8 || format == Format::B8G8R8X8)
        return {GL_BGRA, GL_UNSIGNED_BYTE, GL_TRUE, false};
    if (format == Format::B8G8R8)
        return {}; // GL has no three-byte blue-first attribute
    bool const integer = entry.IsInteger();
    bool const normalized = IsNormalizedFormat(format);
    return {components, entry.transferType, static_cast<GLboolean>(normalized ? GL_TRUE : GL_FALSE), integer};
}

} // namespace Zorvan::Rendering::Gl::detail
