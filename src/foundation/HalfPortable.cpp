// The array conversions for any processor: what runs where the conversion
// instructions are missing.

#include "HalfArrayKernels.h"
#include "HalfTables.h"

#include <cstdint>
#include <cstring>

namespace Zorvan::Rendering::detail {
namespace {

using U16x8 = std::uint16_t __attribute__((vector_size(16)));
using U32x8 = std::uint32_t __attribute__((vector_size(32)));
using I32x8 = std::int32_t __attribute__((vector_size(32)));
using F32x8 = float __attribute__((vector_size(32)));

// Eight halves to the float bits the tables give, by arithmetic: a table read
// per lane would need a gather, which is slower than this. Normal halves are
// their shifted bits with the exponent rebiased; the all-ones exponent is
// rebiased twice to land on the float's; a subnormal m is the integer m
// converted and scaled by 2^-24, both exact, on normal operands with a normal
// result, so flush-to-zero or denormals-are-zero modes cannot change it.
void HalfToFloatEight(unsigned short const* from, float* to) noexcept
{
    U16x8 packed;
    std::memcpy(&packed, from, sizeof packed);
    U32x8 const h = __builtin_convertvector(packed, U32x8);
    U32x8 const exponent = h & 0x7C00u;
    U32x8 normal = ((h & 0x7FFFu) << 13) + 0x38000000u;
    normal += reinterpret_cast<U32x8>(exponent == 0x7C00u) & 0x38000000u;
    F32x8 const scaled = __builtin_convertvector(reinterpret_cast<I32x8>(h & 0x3FFu), F32x8) * 0x1p-24f;
    U32x8 const magnitude = exponent == 0u ? reinterpret_cast<U32x8>(scaled) : normal;
    U32x8 const bits = ((h & 0x8000u) << 16) | magnitude;
    std::memcpy(to, &bits, sizeof bits);
}

} // namespace

// The loop fetches the tables once and makes no call per value; the compiler
// unrolls it.
void FloatToHalfPortable(float const* from, unsigned short* to, std::size_t n) noexcept
{
    FloatToHalfTables const& tables = FloatToHalfTablesInstance();
    float const* __restrict in = from;
    unsigned short* __restrict out = to;
#pragma GCC unroll 8
    for (std::size_t i = 0; i < n; ++i)
        out[i] = FloatToHalf(tables, in[i]);
}

void HalfToFloatPortable(unsigned short const* from, float* to, std::size_t n) noexcept
{
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8)
        HalfToFloatEight(from + i, to + i);
    if (i == n)
        return;
    HalfToFloatTables const& tables = HalfToFloatTablesInstance();
    for (; i < n; ++i)
        to[i] = HalfToFloat(tables, from[i]);
}

} // namespace Zorvan::Rendering::detail
