#pragma once

// Array conversions of the two anchors, each in a translation unit compiled
// for its own instruction set (see bench/CMakeLists.txt).

#include <cstddef>
#include <cstdint>

namespace zgu_bench {

// Imath 3.1 half on its portable path: bit arithmetic for float -> half, the
// 65536-entry table for half -> float, rounding to nearest even.
void ImathFloatToHalf(float const* in, std::uint16_t* out, std::size_t n);
void ImathHalfToFloat(std::uint16_t const* in, float* out, std::size_t n);

// F16C instructions, eight values at a time, rounding toward zero like our
// float2half (overflow and NaNs still come out differently).
// Only call when the processor has F16C and AVX.
void F16cFloatToHalf(float const* in, std::uint16_t* out, std::size_t n);
void F16cHalfToFloat(std::uint16_t const* in, float* out, std::size_t n);

} // namespace zgu_bench
