#pragma once

// The half-float conversion tables and the per-value conversions on them, for
// loops inside the library. Fetch a table set once per loop, then convert
// inline: the fetch is a guard check on a function-local static, built on
// first use by thread-safe static initialisation.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>

namespace Zorvan::Rendering::detail {

struct FloatToHalfTables {
    std::array<std::uint16_t, 512> base;
    std::array<std::uint8_t, 512> shift;
};

struct HalfToFloatTables {
    std::array<std::uint32_t, 2048> mantissa;
    std::array<std::uint32_t, 64> exponent;
};

FloatToHalfTables const& FloatToHalfTablesInstance() noexcept;
HalfToFloatTables const& HalfToFloatTablesInstance() noexcept;

inline std::uint16_t FloatToHalf(FloatToHalfTables const& tables, float value) noexcept
{
    std::uint32_t const bits = std::bit_cast<std::uint32_t>(value);
    std::uint32_t const index = bits >> 23;
    return static_cast<std::uint16_t>(tables.base[index] + ((bits & 0x007FFFFFu) >> tables.shift[index]));
}

inline float HalfToFloat(HalfToFloatTables const& tables, std::uint16_t value) noexcept
{
    std::uint32_t const h = value;
    std::uint32_t const offset = ((h >> 10) & 31u) != 0 ? 1024u : 0u;
    return std::bit_cast<float>(tables.mantissa[(h & 0x3FFu) + offset] + tables.exponent[h >> 10]);
}

} // namespace Zorvan::Rendering::detail
