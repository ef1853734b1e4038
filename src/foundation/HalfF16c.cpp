// The array conversions on the F16C conversion instructions. The instructions
// give the tables' bits except in a few lanes: float -> half truncating
// saturates overflow to 65504 where the tables give infinity, and both
// directions quiet signalling NaNs where the tables keep the payload as it is
// (a float NaN with only low payload bits even becomes an infinity). A cheap
// test finds the groups that hold such a lane, and only those are patched.
//
// Every function names its target instead of the file being compiled with
// -mavx2: inline functions from headers instantiated here would otherwise be
// AVX2 code that the linker may keep for the whole program.

#include "HalfArrayKernels.h"

#if defined(__x86_64__) || defined(__i386__)

#include <cpuid.h>
#include <immintrin.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace Zorvan::Rendering::detail {
namespace {

constexpr int TowardZero = _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC;

// How many floats one pass converts before it looks at its test; a group
// that needs patching is converted again from its input.
constexpr std::size_t FloatBlock = 256;

// Converting floats to halves raises overflow, underflow, invalid and inexact
// where the tables raise nothing. While a guard lives those exceptions are
// masked, so a caller that unmasked them does not trap here, and the caller's
// status flags are put back when it ends. Rounding and flush-to-zero modes do
// not matter: the rounding is in the instruction, and F16C ignores
// flush-to-zero and denormals-are-zero.
class QuietExceptions {
public:
    QuietExceptions() noexcept : saved_(_mm_getcsr())
    {
        if ((saved_ & AllMasks) != AllMasks)
            _mm_setcsr(saved_ | AllMasks);
    }
    ~QuietExceptions()
    {
        if (_mm_getcsr() != saved_)
            _mm_setcsr(saved_);
    }
    QuietExceptions(QuietExceptions const&) = delete;
    QuietExceptions& operator=(QuietExceptions const&) = delete;

private:
    static constexpr unsigned AllMasks = 0x1F80u;
    unsigned saved_;
};

// ---- float -> half --------------------------------------------------------

// The instruction's eight halves with the tables' result in every lane whose
// magnitude is 65536 or more, infinite or NaN: signed infinity, and for a NaN
// the top ten payload bits under the all-ones exponent, quiet bit or not.
[[gnu::target("avx2,f16c")]] __m128i FloatToHalfEight(__m256 x) noexcept
{
    __m128i const converted = _mm256_cvtps_ph(x, TowardZero);
    __m256i const bits = _mm256_castps_si256(x);
    __m256i const magnitude = _mm256_and_si256(bits, _mm256_set1_epi32(0x7FFFFFFF));
    __m256i const patched = _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x477FFFFF));
    __m256i const nan = _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x7F800000));
    __m256i const payload = _mm256_and_si256(nan, _mm256_and_si256(_mm256_srli_epi32(bits, 13), _mm256_set1_epi32(0x3FF)));
    __m256i const sign = _mm256_and_si256(_mm256_srli_epi32(bits, 16), _mm256_set1_epi32(0x8000));
    __m256i const table = _mm256_or_si256(_mm256_or_si256(sign, _mm256_set1_epi32(0x7C00)), payload);
    __m256i const merged = _mm256_blendv_epi8(_mm256_cvtepu16_epi32(converted), table, patched);
    // Every lane fits 16 bits, so the saturating pack is exact; it packs each
    // 128-bit half on its own, hence the reorder.
    __m256i const packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(merged, merged), 0xD8);
    return _mm256_castsi256_si128(packed);
}

// A block again, patching only the groups of eight whose results ask for it.
[[gnu::target("avx2,f16c")]] void FloatToHalfPatched(float const* from, unsigned short* to, std::size_t n) noexcept
{
    for (std::size_t i = 0; i < n; i += 8) {
        __m256 const x = _mm256_loadu_ps(from + i);
        __m128i halves = _mm256_cvtps_ph(x, TowardZero);
        __m128i const suspect = _mm_cmpgt_epi16(_mm_and_si128(halves, _mm_set1_epi16(0x7FFF)), _mm_set1_epi16(0x7BFE));
        if (_mm_movemask_epi8(suspect) != 0)
            halves = FloatToHalfEight(x);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), halves);
    }
}

// Fewer than a whole group: through a zero-padded copy.
[[gnu::target("avx2,f16c")]] void FloatToHalfRest(float const* from, unsigned short* to, std::size_t n) noexcept
{
    for (std::size_t i = 0; i < n; i += 8) {
        std::size_t const count = std::min<std::size_t>(n - i, 8);
        float in[8] = {};
        unsigned short out[8];
        std::memcpy(in, from + i, count * sizeof(float));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out), FloatToHalfEight(_mm256_loadu_ps(in)));
        std::memcpy(to + i, out, count * sizeof(unsigned short));
    }
}

// A result that needs patching is 0x7BFF (overflow saturated, or a value that
// truly truncates to 65504: patching gives the same) or has the all-ones
// exponent, so after dropping the sign it is above 0x7BFE. The running
// maximum is tested once a block.
[[gnu::target("avx2,f16c")]] bool NeedsPatch(__m256i maximum) noexcept
{
    return _mm256_movemask_epi8(_mm256_cmpgt_epi16(maximum, _mm256_set1_epi16(0x7BFE))) != 0;
}

// n is a multiple of 16.
[[gnu::target("avx2,f16c")]] void FloatToHalfBlockAvx2(float const* from, unsigned short* to, std::size_t n) noexcept
{
    __m256i const noSign = _mm256_set1_epi16(0x7FFF);
    __m256i maximum = _mm256_setzero_si256();
    for (std::size_t i = 0; i < n; i += 16) {
        __m128i const low = _mm256_cvtps_ph(_mm256_loadu_ps(from + i), TowardZero);
        __m128i const high = _mm256_cvtps_ph(_mm256_loadu_ps(from + i + 8), TowardZero);
        __m256i const halves = _mm256_set_m128i(high, low);
        maximum = _mm256_max_epi16(maximum, _mm256_and_si256(halves, noSign));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i), halves);
    }
    if (NeedsPatch(maximum)) [[unlikely]]
        FloatToHalfPatched(from, to, n);
}

// The zero-masking form with every lane selected is the plain instruction;
// the plain intrinsic leaves GCC 12 warning about its undefined merge source.
[[gnu::target("avx512f,avx2,f16c")]] __m256i ConvertSixteen(__m512 x) noexcept
{
    return _mm512_maskz_cvtps_ph(0xFFFF, x, TowardZero);
}

// n is a multiple of 32. The 512-bit instruction converts sixteen floats at
// once, which leaves room for the test beside it.
[[gnu::target("avx512f,avx2,f16c")]] void FloatToHalfBlockAvx512(float const* from, unsigned short* to,
                                                                 std::size_t n) noexcept
{
    __m256i const noSign = _mm256_set1_epi16(0x7FFF);
    __m256i maximum0 = _mm256_setzero_si256();
    __m256i maximum1 = _mm256_setzero_si256();
    for (std::size_t i = 0; i < n; i += 32) {
        __m256i const halves0 = ConvertSixteen(_mm512_loadu_ps(from + i));
        __m256i const halves1 = ConvertSixteen(_mm512_loadu_ps(from + i + 16));
        maximum0 = _mm256_max_epi16(maximum0, _mm256_and_si256(halves0, noSign));
        maximum1 = _mm256_max_epi16(maximum1, _mm256_and_si256(halves1, noSign));
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i), halves0);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + i + 16), halves1);
    }
    if (NeedsPatch(_mm256_max_epi16(maximum0, maximum1))) [[unlikely]]
        FloatToHalfPatched(from, to, n);
}

// ---- half -> float --------------------------------------------------------

// The instruction's eight floats with the tables' bits in every NaN lane: the
// payload shifted under the all-ones exponent, its quiet bit as it was. NaN
// lanes reach the instruction as zeros: a signalling NaN is the one input on
// which it raises an exception, so this direction needs no guard.
[[gnu::target("avx2,f16c")]] __m256 HalfToFloatEight(__m128i packed) noexcept
{
    __m128i const nanHalves =
        _mm_cmpgt_epi16(_mm_and_si128(packed, _mm_set1_epi16(0x7FFF)), _mm_set1_epi16(0x7C00));
    __m256 const converted = _mm256_cvtph_ps(_mm_andnot_si128(nanHalves, packed));
    __m256i const h = _mm256_cvtepu16_epi32(packed);
    __m256i const nan = _mm256_cmpgt_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0x7FFF)), _mm256_set1_epi32(0x7C00));
    __m256i const sign = _mm256_slli_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0x8000)), 16);
    __m256i const payload = _mm256_slli_epi32(_mm256_and_si256(h, _mm256_set1_epi32(0x3FF)), 13);
    __m256i const table = _mm256_or_si256(_mm256_or_si256(sign, _mm256_set1_epi32(0x7F800000)), payload);
    return _mm256_castsi256_ps(_mm256_blendv_epi8(_mm256_castps_si256(converted), table, nan));
}

[[gnu::target("avx2,f16c")]] __m128i LoadEightHalves(unsigned short const* from) noexcept
{
    return _mm_loadu_si128(reinterpret_cast<__m128i const*>(from));
}

} // namespace

// The compilers' processor checks include the operating system's support for
// the wider registers; F16C is asked of cpuid itself, as not every compiler
// knows its name.
bool HasF16cKernels() noexcept
{
    __builtin_cpu_init();
    unsigned eax = 0;
    unsigned ebx = 0;
    unsigned ecx = 0;
    unsigned edx = 0;
    return __builtin_cpu_supports("avx2") && __get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0 && (ecx & bit_F16C) != 0;
}

bool HasAvx512Kernels() noexcept
{
    __builtin_cpu_init();
    return HasF16cKernels() && __builtin_cpu_supports("avx512f");
}

[[gnu::target("avx2,f16c")]] void FloatToHalfF16c(float const* from, unsigned short* to, std::size_t n) noexcept
{
    QuietExceptions const quiet;
    std::size_t i = 0;
    while (n - i >= 16) {
        std::size_t const count = std::min(n - i, FloatBlock) & ~std::size_t{15};
        FloatToHalfBlockAvx2(from + i, to + i, count);
        i += count;
    }
    FloatToHalfRest(from + i, to + i, n - i);
}

[[gnu::target("avx512f,avx2,f16c")]] void FloatToHalfAvx512(float const* from, unsigned short* to,
                                                            std::size_t n) noexcept
{
    QuietExceptions const quiet;
    std::size_t i = 0;
    while (n - i >= 32) {
        std::size_t const count = std::min(n - i, FloatBlock) & ~std::size_t{31};
        FloatToHalfBlockAvx512(from + i, to + i, count);
        i += count;
    }
    FloatToHalfRest(from + i, to + i, n - i);
}

// Thirty-two halves a step: the NaN test is made on two 256-bit loads of the
// halves, the conversions read the same memory again. Without NaNs the
// instruction raises nothing (subnormal halves included), so the floating-point
// environment is left alone.
[[gnu::target("avx2,f16c")]] void HalfToFloatF16c(unsigned short const* from, float* to, std::size_t n) noexcept
{
    __m256i const noSign = _mm256_set1_epi16(0x7FFF);
    __m256i const infinity = _mm256_set1_epi16(0x7C00);
    std::size_t i = 0;
    for (; i + 32 <= n; i += 32) {
        __m256i const first = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from + i));
        __m256i const second = _mm256_loadu_si256(reinterpret_cast<__m256i const*>(from + i + 16));
        __m256i const largest = _mm256_max_epi16(_mm256_and_si256(first, noSign), _mm256_and_si256(second, noSign));
        if (_mm256_movemask_epi8(_mm256_cmpgt_epi16(largest, infinity)) != 0) [[unlikely]] {
            for (std::size_t j = 0; j < 32; j += 8)
                _mm256_storeu_ps(to + i + j, HalfToFloatEight(LoadEightHalves(from + i + j)));
            continue;
        }
        for (std::size_t j = 0; j < 32; j += 8)
            _mm256_storeu_ps(to + i + j, _mm256_cvtph_ps(LoadEightHalves(from + i + j)));
    }
    for (; i < n; i += 8) {
        std::size_t const count = std::min<std::size_t>(n - i, 8);
        unsigned short in[8] = {};
        float out[8];
        std::memcpy(in, from + i, count * sizeof(unsigned short));
        _mm256_storeu_ps(out, HalfToFloatEight(LoadEightHalves(in)));
        std::memcpy(to + i, out, count * sizeof(float));
    }
}

} // namespace Zorvan::Rendering::detail

#endif
