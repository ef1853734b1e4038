#include "HalfKernels.h"

#include <immintrin.h>

namespace zgu_bench {

void F16cFloatToHalf(float const* in, std::uint16_t* out, std::size_t n)
{
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8) {
        __m128i const h = _mm256_cvtps_ph(_mm256_loadu_ps(in + i), _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), h);
    }
    for (; i < n; ++i)
        out[i] = _cvtss_sh(in[i], _MM_FROUND_TO_ZERO | _MM_FROUND_NO_EXC);
}

void F16cHalfToFloat(std::uint16_t const* in, float* out, std::size_t n)
{
    std::size_t i = 0;
    for (; i + 8 <= n; i += 8)
        _mm256_storeu_ps(out + i, _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<__m128i const*>(in + i))));
    for (; i < n; ++i)
        out[i] = _cvtsh_ss(in[i]);
}

} // namespace zgu_bench
