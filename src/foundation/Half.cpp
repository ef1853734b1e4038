// Table-driven binary32 <-> binary16 conversion after Jeroen van der Zijp,
// "Fast Half Float Conversions" (2008). Each conversion is two table reads, a
// mask, a shift and an add. Rounding is toward zero on purpose, and NaNs are
// not special-cased: both are part of the published bit patterns we keep.

#include "HalfTables.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

} // namespace detail

unsigned short float2half(float value)
{
    return detail::FloatToHalf(detail::FloatToHalfTablesInstance(), value);
}

float half2float(unsigned short value)
{
    return detail::HalfToFloat(detail::HalfToFloatTablesInstance(), value);
}

// The array forms make no call and no guard check per value. float2half
// fetches the tables once, then loops over loads, shifts and adds, which the
// compiler unrolls.
void float2half(std::span<float const> in, std::span<unsigned short> out)
{
    detail::FloatToHalfTables const& tables = detail::FloatToHalfTablesInstance();
    std::size_t const n = std::min(in.size(), out.size());
    float const* __restrict from = in.data();
    unsigned short* __restrict to = out.data();
#pragma GCC unroll 8
    for (std::size_t i = 0; i < n; ++i)
        to[i] = detail::FloatToHalf(tables, from[i]);
}

namespace detail {
namespace {

using U16x8 = std::uint16_t __attribute__((vector_size(16)));
using U32x8 = std::uint32_t __attribute__((vector_size(32)));
using I32x8 = std::int32_t __attribute__((vector_size(32)));
using F32x8 = float __attribute__((vector_size(32)));

// Eight halves at a time to the float bits the tables give, by arithmetic: a
// table read per lane would need a gather, which is slower than this. Normal
// halves are their shifted bits with the exponent rebiased; the all-ones
// exponent is rebiased twice to land on the float's; a subnormal m is the
// integer m converted and scaled by 2^-24, both exact, on normal operands
// with a normal result, so flush-to-zero or denormals-are-zero modes cannot
// change it. The tests compare all 65536 halves with the table.
[[gnu::always_inline]] inline std::size_t HalfToFloatGroups(unsigned short const* from, float* to,
                                                           std::size_t n) noexcept
{
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        U16x8 packed;
        std::memcpy(&packed, from + i, sizeof packed);
        U32x8 const h = __builtin_convertvector(packed, U32x8);
        U32x8 const exponent = h & 0x7C00u;
        U32x8 normal = ((h & 0x7FFFu) << 13) + 0x38000000u;
        normal += reinterpret_cast<U32x8>(exponent == 0x7C00u) & 0x38000000u;
        F32x8 const scaled = __builtin_convertvector(reinterpret_cast<I32x8>(h & 0x3FFu), F32x8) * 0x1p-24f;
        U32x8 const magnitude = exponent == 0u ? reinterpret_cast<U32x8>(scaled) : normal;
        U32x8 const bits = ((h & 0x8000u) << 16) | magnitude;
        std::memcpy(to + i, &bits, sizeof bits);
    }
    return i;
}

} // namespace

#if defined(__x86_64__) || defined(__i386__)
[[gnu::target("avx2")]] std::size_t HalfToFloatGroupsAvx2(unsigned short const* from, float* to,
                                                           std::size_t n) noexcept
{
    return HalfToFloatGroups(from, to, n);
}
#endif

std::size_t HalfToFloatGroupsBaseline(unsigned short const* from, float* to, std::size_t n) noexcept
{
    return HalfToFloatGroups(from, to, n);
}

} // namespace detail

void half2float(std::span<unsigned short const> in, std::span<float> out)
{
    std::size_t const n = std::min(in.size(), out.size());
    unsigned short const* from = in.data();
    float* to = out.data();
#if defined(__x86_64__) || defined(__i386__)
    std::size_t i = __builtin_cpu_supports("avx2") ? detail::HalfToFloatGroupsAvx2(from, to, n)
                                                   : detail::HalfToFloatGroupsBaseline(from, to, n);
#else
    std::size_t i = detail::HalfToFloatGroupsBaseline(from, to, n);
#endif
    if (i == n)
        return;
    detail::HalfToFloatTables const& tables = detail::HalfToFloatTablesInstance();
    for (; i < n; ++i)
        to[i] = detail::HalfToFloat(tables, from[i]);
}

} // namespace Zorvan::Rendering
