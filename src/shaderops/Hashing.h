#pragma once

// Cache keys of the shader-based operations: FNV-1a 64 of a field's bytes,
// mixed into a seed with a MurmurHash64A-style step. A field is hashed with
// FNV-1a and that hash is hashed again inside HashCombine; the layering is
// part of the key definition.

#include <Rendering/Format.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Zorvan::Rendering::detail {

inline constexpr std::uint64_t FnvOffsetBasis = 0xcbf29ce484222325ull;
inline constexpr std::uint64_t FnvPrime = 0x100000001b3ull;

// FNV-1a 64 over the characters, no terminator.
constexpr std::uint64_t Fnv1a(std::string_view text) noexcept
{
    std::uint64_t hash = FnvOffsetBasis;
    for (char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= FnvPrime;
    }
    return hash;
}

// FNV-1a 64 over the value's little-endian bytes, whatever the host order.
template <std::unsigned_integral T>
constexpr std::uint64_t Fnv1aBytes(T value) noexcept
{
    std::uint64_t hash = FnvOffsetBasis;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
        hash ^= static_cast<std::uint64_t>(value >> (8 * i)) & 0xffu;
        hash *= FnvPrime;
    }
    return hash;
}

std::uint64_t HashCombine(std::uint64_t seed, std::uint64_t value) noexcept;

// Value types a clear can write.
enum class ClearValueType { Int4, Uint4, Float4 };

// "int4", "uint4" or "float4".
std::string_view ClearTypeName(ClearValueType type) noexcept;
// FNV-1a of the type name, computed once per type.
std::uint64_t ClearTypeHash(ClearValueType type) noexcept;
// FNV-1a of the clear's module-and-class name, computed once.
std::uint64_t ClearNameHash() noexcept;

std::uint64_t ClearShaderKey(ClearValueType type) noexcept;
// The pipeline key contains the shader key, so one entry never mixes types.
std::uint64_t ClearPipelineKey(std::uint64_t shaderKey, Format format, std::uint32_t sampleCount) noexcept;

} // namespace Zorvan::Rendering::detail
