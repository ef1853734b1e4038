#pragma once

// The kernels behind the array forms of float2half / half2float. Each converts
// all n values to exactly the bits of the scalar, table-driven forms, writes
// nothing past to[n - 1] and leaves the floating-point environment as it found
// it. One portable pair runs anywhere; where the processor has F16C and AVX2,
// kernels built on the conversion instructions take over, float -> half on
// 512-bit registers where AVX-512 is there too. The choice is made once per
// process.

#include <cstddef>

namespace Zorvan::Rendering::detail {

using FloatToHalfKernel = void (*)(float const* from, unsigned short* to, std::size_t n) noexcept;
using HalfToFloatKernel = void (*)(unsigned short const* from, float* to, std::size_t n) noexcept;

struct HalfArrayKernels {
    FloatToHalfKernel floatToHalf;
    HalfToFloatKernel halfToFloat;
};

// Table loop one way; eight halves at a time by integer arithmetic the other.
void FloatToHalfPortable(float const* from, unsigned short* to, std::size_t n) noexcept;
void HalfToFloatPortable(unsigned short const* from, float* to, std::size_t n) noexcept;

#if defined(__x86_64__) || defined(__i386__)
// True when the processor and the operating system support F16C and AVX2;
// the second also asks for AVX-512F.
bool HasF16cKernels() noexcept;
bool HasAvx512Kernels() noexcept;
// The conversion instructions, with the lanes where they differ from the
// tables (overflow, NaNs) patched. Call only where the matching Has... holds.
void FloatToHalfF16c(float const* from, unsigned short* to, std::size_t n) noexcept;
void FloatToHalfAvx512(float const* from, unsigned short* to, std::size_t n) noexcept;
void HalfToFloatF16c(unsigned short const* from, float* to, std::size_t n) noexcept;
#endif

// The fastest pair this processor runs, chosen on first use.
HalfArrayKernels const& SelectedHalfArrayKernels() noexcept;

} // namespace Zorvan::Rendering::detail
