#pragma once

#include <Rendering/Export.h>

#include <cstdint>
#include <span>

namespace Zorvan::Rendering {

// Every pixel format an image can have. The numbering crosses the device
// interface and is part of the contract. Names list channels in memory order
// with their widths; no suffix = unsigned normalized, SN = signed normalized,
// U/I = unsigned/signed integer, F = float, D/S/X = depth/stencil/unused bits.
enum class Format : std::uint32_t {
    None = 0,
    B8G8R8 = 1,
    B8G8R8A8 = 2,
    B8G8R8X8 = 3,
    R8 = 4,
    R8G8 = 5,
    R8G8B8A8 = 6,
    R16 = 7,
    R16G16 = 8,
    R16G16B16A16 = 9,
    R8SN = 10,
    R8G8SN = 11,
    R8G8B8A8SN = 12,
    R16SN = 13,
    R16G16SN = 14,
    R16G16B16A16SN = 15,
    R8U = 16,
    R8G8U = 17,
    R8G8B8A8U = 18,
    R16U = 19,
    R16G16U = 20,
    R16G16B16A16U = 21,
    R32U = 22,
    R32G32U = 23,
    R32G32B32A32U = 24,
    R8I = 25,
    R8G8I = 26,
    R8G8B8A8I = 27,
    R16I = 28,
    R16G16I = 29,
    R16G16B16A16I = 30,
    R32I = 31,
    R32G32I = 32,
    R32G32B32A32I = 33,
    R16F = 34,
    R16G16F = 35,
    R16G16B16A16F = 36,
    R32F = 37,
    R32G32F = 38,
    R32G32B32F = 39,
    R32G32B32A32F = 40,
    D32F = 41,
    D32FS8X24 = 42,
    D24S8 = 43,
    D24X8 = 44,
    D16 = 45,
};

// Number of formats in the catalogue (values 0 .. FormatCount - 1).
inline constexpr std::uint32_t FormatCount = 46;

// The queries below are total: any 32-bit value may be passed, values outside
// the catalogue answer like "None" (ToString names them as unknown).

// Channels named by the format, unused ones included ("B8G8R8X8" has 4,
// "D32FS8X24" has 3); -1 for None and unknown values.
ZGU_API int GetChannelCount(Format format);
// Bytes per pixel; 0 for None and unknown values.
ZGU_API unsigned int GetSize(Format format);
ZGU_API bool HasAlphaChannel(Format format);
ZGU_API bool IsDepthFormat(Format format);
// True for the blue-first, unsigned-normalized and signed-normalized formats.
ZGU_API bool IsNormalizedFormat(Format format);
// True for signed-normalized, signed-integer and all floating-point formats;
// false for every depth format.
ZGU_API bool IsSignedFormat(Format format);
ZGU_API bool IsStencilFormat(Format format);
// Shader-dialect type a shader reads this format as ("float4", "uint2", ...),
// or "<unsupported format>" for None, blue-first, depth and unknown formats.
ZGU_API char const* ToShaderType(Format format);
// The enumerator name, or "<unknown Zorvan::Rendering::Format>".
ZGU_API char const* ToString(Format format);

// binary32 -> binary16, rounding toward zero. Magnitudes below 2^-24 become
// signed zero, 65536 and above become infinity, and a NaN keeps the top ten
// bits of its mantissa (so a NaN with only low payload bits turns infinite).
ZGU_API unsigned short float2half(float value);
// binary16 -> binary32, exact for every half (signs, subnormals, NaN payloads).
ZGU_API float half2float(unsigned short value);
// Array forms for whole images: element i of out is the scalar conversion of
// element i of in, bit for bit. min(in.size(), out.size()) values are
// converted; the rest of out is left as it was; in and out must not overlap.
// They use the processor's conversion instructions where it has them, with
// no trap and no floating-point status flag left behind.
ZGU_API void float2half(std::span<float const> in, std::span<unsigned short> out);
ZGU_API void half2float(std::span<unsigned short const> in, std::span<float> out);

} // namespace Zorvan::Rendering
