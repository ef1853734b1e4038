#pragma once

// Source texts of the shader-based operations, in the device layer's portable
// dialect. The fixed texts are kept character for character (odd indentation
// included): devices and tests may key on them.

#include <cstdint>
#include <string>
#include <string_view>

namespace Zorvan::Rendering::detail {

// Full-screen triangle built from the vertex id alone (clear).
std::string_view ClearVertexShaderText() noexcept;
// Writes the constant buffer's ClearColor of the given type ("int4",
// "uint4" or "float4") to colour target 0.
std::string ClearFragmentShaderText(std::string_view typeName);

// Passes a two-float position through and derives uv = (pos + 1) / 2 (copy).
std::string_view CopyVertexShaderText() noexcept;
// Samples texture slot 0 at uv (copy).
std::string_view CopyFragmentShaderText() noexcept;

// Passes the position through (resolver).
std::string_view ResolveVertexShaderText() noexcept;
// Writes the minimum (mode 0) or maximum (any other mode) depth of the
// sampleCount samples of the texel under the fragment.
std::string ResolveFragmentShaderText(std::uint32_t mode, std::uint32_t sampleCount);

} // namespace Zorvan::Rendering::detail
