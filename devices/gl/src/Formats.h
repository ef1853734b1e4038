#pragma once

// The library's formats as GL texture formats and pixel-transfer layouts.

#include "GlApi.h"

#include <Rendering/Format.h>

#include <cstddef>
#include <cstdint>
#include <span>

namespace Zorvan::Rendering::Gl::detail {

enum class ChannelKind { Float, SignedInteger, UnsignedInteger, Depth };

// How host bytes differ from what GL transfers for a format.
enum class HostLayout {
    Same,
    Depth24InLowBits, // host: depth in bits 0..23 (stencil or padding above); GL: depth in the top 24 bits
};

struct GlFormat {
    Format format = Format::None;
    GLenum internalFormat = 0;
    GLenum transferFormat = 0; // blue-first formats transfer as GL_BGR(A): the swap happens on transfer
    GLenum transferType = 0;
    std::uint32_t pixelBytes = 0;
    ChannelKind kind = ChannelKind::Float;
    bool stencil = false;
    HostLayout hostLayout = HostLayout::Same;

    bool Supported() const noexcept { return internalFormat != 0; }
    bool IsDepth() const noexcept { return kind == ChannelKind::Depth; }
    bool IsInteger() const noexcept
    {
        return kind == ChannelKind::SignedInteger || kind == ChannelKind::UnsignedInteger;
    }
    // Framebuffer attachment point for render-target views of this format.
    GLenum Attachment() const noexcept
    {
        return !IsDepth() ? GL_COLOR_ATTACHMENT0 : stencil ? GL_DEPTH_STENCIL_ATTACHMENT : GL_DEPTH_ATTACHMENT;
    }
};

// The entry for any 32-bit value; unsupported values have internalFormat 0.
GlFormat const& LookUpFormat(Format format) noexcept;

// Converts a staged level between host and GL layouts in place.
void ToGlLayout(GlFormat const& format, std::span<std::byte> pixels) noexcept;
void ToHostLayout(GlFormat const& format, std::span<std::byte> pixels) noexcept;

// Vertex attribute layout of a format: component count, type, normalized,
// integer; count 0 when the format cannot feed a vertex attribute.
struct VertexFormat {
    GLint components = 0;
    GLenum type = 0;
    GLboolean normalized = GL_FALSE;
    bool integer = false;
};
VertexFormat LookUpVertexFormat(Format format) noexcept;

} // namespace Zorvan::Rendering::Gl::detail
