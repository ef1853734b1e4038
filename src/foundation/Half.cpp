// Table-driven binary32 <-> binary16 conversion after Jeroen van der Zijp,
// "Fast Half Float Conversions" (2008). Each conversion is two table reads, a
// mask, a shift and an add. Rounding is toward zero on purpose, and NaNs are
// not special-cased: both are part of the published bit patterns we keep.
// The array forms reach the same bits faster through kernels picked once per
// process (HalfArrayKernels.h).

#include "HalfArrayKernels.h"
#include "HalfTables.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace Zorvan::Rendering {
namespace detail {
namespace {

// The builders stay out of line and cold: inlined, the registers their loops
// need were saved and restored on every conversion, not just the first.
[[gnu::noinline, gnu::cold]] FloatToHalfTables BuildFloatToHalfTables() noexcept
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
[[gnu::noinline, gnu::cold]] std::array<std::uint32_t, 2048> BuildMantissaTable() noexcept
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

[[gnu::noinline, gnu::cold]] HalfToFloatTables BuildHalfToFloatTables() noexcept
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

FloatToHalfTables const& FloatToHalfTablesInstance() noexcept
{
    static FloatToHalfTables const tables = BuildFloatToHalfTables();
    return tables;
}

HalfToFloatTables const& HalfToFloatTablesInstance() noexcept
{
    static HalfToFloatTables const tables = BuildHalfToFloatTables();
    return tables;
}

HalfArrayKernels const& SelectedHalfArrayKernels() noexcept
{
    static HalfArrayKernels const kernels = [] {
#if defined(__x86_64__) || defined(__i386__)
        if (HasAvx512Kernels())
            return HalfArrayKernels{&FloatToHalfAvx512, &HalfToFloatF16c};
        if (HasF16cKernels())
            return HalfArrayKernels{&FloatToHalfF16c, &HalfToFloatF16c};
#endif
        return HalfArrayKernels{&FloatToHalfPortable, &HalfToFloatPortable};
    }();
    return kernels;
}

} // namespace detail

unsigned short float2half(float value)
{
    return detail::FloatToHalf(detail::FloatToHalfTablesInstance(), value);
}

float half2float(unsigned short value)
{
    return detail::HalfToFloat(detail::HalfToFloatTablesInstance(), value);
}

void float2half(std::span<float const> in, std::span<unsigned short> out)
{
    detail::SelectedHalfArrayKernels().floatToHalf(in.data(), out.data(), std::min(in.size(), out.size()));
}

void half2float(std::span<unsigned short const> in, std::span<float> out)
{
    detail::SelectedHalfArrayKernels().halfToFloat(in.data(), out.data(), std::min(in.size(), out.size()));
}

} // namespace Zorvan::Rendering
