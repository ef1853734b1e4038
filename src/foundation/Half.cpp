// Table-driven binary32 <-> binary16 conversion after Jeroen van der Zijp,
// "Fast Half Float Conversions" (2008). Each conversion is two table reads, a
// mask, a shift and an add. Rounding is toward zero on purpose, and NaNs are
// not special-cased: both are part of the published bit patterns we keep.

#include <Rendering/Format.h>

#include <array>
#include <bit>
#include <cstdint>

namespace Zorvan::Rendering {
namespace {

struct FloatToHalfTables {
    std::array<std::uint16_t, 512> base;
    std::array<std::uint8_t, 512> shift;
};

FloatToHalfTables BuildFloatToHalfTables() noexcept
{
    FloatToHalfTables t{};
    for (int i = 0; i < 256; ++i) {
        int const e = i - 127;
        std::uint16_t base;
        std::uint8_t shift;
        if (e < -24) { // too small for a half subnormal: signed zero
            base = 0x0000;
            shift = 24;
        } else if (e < -14) { // half subnormals; the implicit one enters through the base
            base = static_cast<std::uint16_t>(0x0400 >> (-e - 14));
            shift = static_cast<std::uint8_t>(-e - 1);
        } else if (e <= 15) { // normal halves
            base = static_cast<std::uint16_t>((e + 15) << 10);
            shift = 13;
        } else if (e < 128) { // overflow: infinity
            base = 0x7C00;
            shift = 24;
        } else { // infinity and NaN keep the top mantissa bits
            base = 0x7C00;
            shift = 13;
        }
        t.base[static_cast<std::size_t>(i)] = base;
        t.base[static_cast<std::size_t>(i) | 0x100] = static_cast<std::uint16_t>(base | 0x8000);
        t.shift[static_cast<std::size_t>(i)] = shift;
        t.shift[static_cast<std::size_t>(i) | 0x100] = shift;
    }
    return t;
}

// Subnormal half mantissas are renormalised into float exponent/mantissa pairs.
std::array<std::uint32_t, 2048> BuildMantissaTable() noexcept
{
    std::array<std::uint32_t, 2048> table{};
    table[0] = 0;
    for (std::uint32_t i = 1; i < 1024; ++i) {
        std::uint32_t m = i << 13;
        std::uint32_t x = 0;
        while ((m & 0x00800000u) == 0) {
            x -= 0x00800000u;
            m <<= 1;
        }
        table[i] = (m & ~0x00800000u) | (x + 0x38800000u);
    }
    for (std::uint32_t i = 1024; i < 2048; ++i)
        table[i] = 0x38000000u + ((i - 1024) << 13);
    return table;
}

struct HalfToFloatTables {
    std::array<std::uint32_t, 2048> mantissa;
    std::array<std::uint32_t, 64> exponent;
};

HalfToFloatTables BuildHalfToFloatTables() noexcept
{
    HalfToFloatTables t{};
    auto const mantissa = BuildMantissaTable();
    t.mantissa = mantissa;
    t.exponent[0] = 0;
    for (std::uint32_t i = 1; i < 31; ++i)
        t.exponent[i] = i << 23;
    t.exponent[31] = 0x47800000u;
    t.exponent[32] = 0x80000000u;
    for (std::uint32_t i = 33; i < 63; ++i)
        t.exponent[i] = 0x80000000u + ((i - 32) << 23);
    t.exponent[63] = 0xC7800000u;
    return t;
}

} // namespace

unsigned short float2half(float value)
{
    static FloatToHalfTables const tables = BuildFloatToHalfTables();
    std::uint32_t const bits = std::bit_cast<std::uint32_t>(value);
    std::uint32_t const index = bits >> 23;
    return static_cast<unsigned short>(tables.base[index] + ((bits & 0x007FFFFFu) >> tables.shift[index]));
}

float half2float(unsigned short value)
{
    static HalfToFloatTables const tables = BuildHalfToFloatTables();
    std::uint32_t const h = value;
    std::uint32_t const offset = ((h >> 10) & 31u) != 0 ? 1024u : 0u;
    return std::bit_cast<float>(tables.mantissa[(h & 0x3FFu) + offset] + tables.exponent[h >> 10]);
}

} // namespace Zorvan::Rendering
