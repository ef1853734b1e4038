#include "Hashing.h"

#include <Rendering/ShaderOps.h>

namespace Zorvan::Rendering::detail {

std::uint64_t HashCombine(std::uint64_t seed, std::uint64_t value) noexcept
{
    constexpr std::uint64_t m = 0xc6a4a7935bd1e995ull;
    std::uint64_t k = Fnv1aBytes(value);
    k *= m;
    k ^= k >> 47;
    k *= m;
    seed ^= k;
    seed *= m;
    seed += 0xe6546b64ull;
    return seed;
}

std::string_view ClearTypeName(ClearValueType type) noexcept
{
    switch (type) {
    case ClearValueType::Int4: return "int4";
    case ClearValueType::Uint4: return "uint4";
    case ClearValueType::Float4: return "float4";
    }
    return "float4";
}

std::uint64_t ClearTypeHash(ClearValueType type) noexcept
{
    switch (type) {
    case ClearValueType::Int4: {
        static std::uint64_t const hash = Fnv1a(ClearTypeName(ClearValueType::Int4));
        return hash;
    }
    case ClearValueType::Uint4: {
        static std::uint64_t const hash = Fnv1a(ClearTypeName(ClearValueType::Uint4));
        return hash;
    }
    case ClearValueType::Float4: break;
    }
    static std::uint64_t const hash = Fnv1a(ClearTypeName(ClearValueType::Float4));
    return hash;
}

std::uint64_t ClearNameHash() noexcept
{
    static std::uint64_t const hash = Fnv1a("Zorvan.Rendering.Gpu.Utilities-ShaderBasedImageClear");
    return hash;
}

std::uint64_t ClearShaderKey(ClearValueType type) noexcept
{
    return HashCombine(ClearNameHash(), Fnv1aBytes(ClearTypeHash(type)));
}

std::uint64_t ClearPipelineKey(std::uint64_t shaderKey, Format format, std::uint32_t sampleCount) noexcept
{
    std::uint64_t const withFormat = HashCombine(shaderKey, Fnv1aBytes(static_cast<std::uint32_t>(format)));
    return HashCombine(withFormat, Fnv1aBytes(sampleCount));
}

std::size_t ResolverKeyHash::operator()(ResolverShaderKey const& key) const noexcept
{
    std::uint64_t seed = 0;
    seed = HashCombine(seed, Fnv1aBytes(key.mode));
    seed = HashCombine(seed, Fnv1aBytes(key.sampleCount));
    return static_cast<std::size_t>(seed);
}

std::size_t ResolverKeyHash::operator()(ResolverPipelineKey const& key) const noexcept
{
    std::uint64_t seed = 0;
    seed = HashCombine(seed, Fnv1aBytes(key.mode));
    seed = HashCombine(seed, Fnv1aBytes(key.format));
    seed = HashCombine(seed, Fnv1aBytes(key.sampleCount));
    return static_cast<std::size_t>(seed);
}

} // namespace Zorvan::Rendering::detail
