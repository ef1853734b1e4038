#include <Rendering/Format.h>

#include <array>
#include <cstdint>

namespace Zorvan::Rendering {
namespace {

struct FormatFacts {
    char const* name;
    unsigned int size;
    int channels;
    bool alpha;
    bool normalized;
    bool isSigned;
    bool depth;
    bool stencil;
    char const* shaderType;
};

constexpr char const* Unsupported = "<unsupported format>";

// Indexed by the enumerator value; the rows are the catalogue as published.
constexpr FormatFacts Catalogue[] = {
    //  name              bytes ch  alpha  norm   signed depth  stencil shader type
    {"None",               0, -1, false, false, false, false, false, Unsupported},
    {"B8G8R8",             3,  3, false, true,  false, false, false, Unsupported},
    {"B8G8R8A8",           4,  4, true,  true,  false, false, false, Unsupported},
    {"B8G8R8X8",           4,  4, false, true,  false, false, false, Unsupported},
    {"R8",                 1,  1, false, true,  false, false, false, "float"},
    {"R8G8",               2,  2, false, true,  false, false, false, "float2"},
    {"R8G8B8A8",           4,  4, true,  true,  false, false, false, "float4"},
    {"R16",                2,  1, false, true,  false, false, false, "float"},
    {"R16G16",             4,  2, false, true,  false, false, false, "float2"},
    {"R16G16B16A16",       8,  4, true,  true,  false, false, false, "float4"},
    {"R8SN",               1,  1, false, true,  true,  false, false, "float"},
    {"R8G8SN",             2,  2, false, true,  true,  false, false, "float2"},
    {"R8G8B8A8SN",         4,  4, true,  true,  true,  false, false, "float4"},
    {"R16SN",              2,  1, false, true,  true,  false, false, "float"},
    {"R16G16SN",           4,  2, false, true,  true,  false, false, "float2"},
    {"R16G16B16A16SN",     8,  4, true,  true,  true,  false, false, "float4"},
    {"R8U",                1,  1, false, false, false, false, false, "uint"},
    {"R8G8U",              2,  2, false, false, false, false, false, "uint2"},
    {"R8G8B8A8U",          4,  4, true,  false, false, false, false, "uint4"},
    {"R16U",               2,  1, false, false, false, false, false, "uint"},
    {"R16G16U",            4,  2, false, false, false, false, false, "uint2"},
    {"R16G16B16A16U",      8,  4, true,  false, false, false, false, "uint4"},
    {"R32U",               4,  1, false, false, false, false, false, "uint"},
    {"R32G32U",            8,  2, false, false, false, false, false, "uint2"},
    {"R32G32B32A32U",     16,  4, true,  false, false, false, false, "uint4"},
    {"R8I",                1,  1, false, false, true,  false, false, "int"},
    {"R8G8I",              2,  2, false, false, true,  false, false, "int2"},
    {"R8G8B8A8I",          4,  4, true,  false, true,  false, false, "int4"},
    {"R16I",               2,  1, false, false, true,  false, false, "int"},
    {"R16G16I",            4,  2, false, false, true,  false, false, "int2"},
    {"R16G16B16A16I",      8,  4, true,  false, true,  false, false, "int4"},
    {"R32I",               4,  1, false, false, true,  false, false, "int"},
    {"R32G32I",            8,  2, false, false, true,  false, false, "int2"},
    {"R32G32B32A32I",     16,  4, true,  false, true,  false, false, "int4"},
    {"R16F",               2,  1, false, false, true,  false, false, "float"},
    {"R16G16F",            4,  2, false, false, true,  false, false, "float2"},
    {"R16G16B16A16F",      8,  4, true,  false, true,  false, false, "float4"},
    {"R32F",               4,  1, false, false, true,  false, false, "float"},
    {"R32G32F",            8,  2, false, false, true,  false, false, "float2"},
    {"R32G32B32F",        12,  3, false, false, true,  false, false, "float3"},
    {"R32G32B32A32F",     16,  4, true,  false, true,  false, false, "float4"},
    {"D32F",               4,  1, false, false, false, true,  false, Unsupported},
    {"D32FS8X24",          8,  3, false, false, false, true,  true,  Unsupported},
    {"D24S8",              4,  2, false, false, false, true,  true,  Unsupported},
    {"D24X8",              4,  2, false, false, false, true,  false, Unsupported},
    {"D16",                2,  1, false, false, false, true,  false, Unsupported},
};
static_assert(std::size(Catalogue) == FormatCount, "one catalogue row per Format value");
static_assert(static_cast<std::uint32_t>(Format::D16) + 1 == FormatCount, "Format values are dense from 0");

// Unknown values answer like None.
constexpr FormatFacts const& Facts(Format format) noexcept
{
    auto const value = static_cast<std::uint32_t>(format);
    return value < FormatCount ? Catalogue[value] : Catalogue[0];
}

} // namespace

int GetChannelCount(Format format) { return Facts(format).channels; }
unsigned int GetSize(Format format) { return Facts(format).size; }
bool HasAlphaChannel(Format format) { return Facts(format).alpha; }
bool IsDepthFormat(Format format) { return Facts(format).depth; }
bool IsNormalizedFormat(Format format) { return Facts(format).normalized; }
bool IsSignedFormat(Format format) { return Facts(format).isSigned; }
bool IsStencilFormat(Format format) { return Facts(format).stencil; }
char const* ToShaderType(Format format) { return Facts(format).shaderType; }

char const* ToString(Format format)
{
    return static_cast<std::uint32_t>(format) < FormatCount ? Catalogue[static_cast<std::uint32_t>(format)].name
                                                            : "<unknown Zorvan::Rendering::Format>";
}

} // namespace Zorvan::Rendering
