#include "HalfKernels.h"

// Imath's header silently swaps its software conversions for F16C when the
// compiler may use it; this anchor must stay the software path.
#if defined(__F16C__)
#error "the Imath anchor must be compiled without -mf16c"
#endif
#include <Imath/half.h>
#if !defined(IMATH_HALF_USE_LOOKUP_TABLE) || defined(IMATH_HALF_NO_LOOKUP_TABLE)
#error "expected Imath's default configuration (half -> float through its lookup table)"
#endif

namespace zgu_bench {

void ImathFloatToHalf(float const* in, std::uint16_t* out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        out[i] = Imath::half(in[i]).bits();
}

void ImathHalfToFloat(std::uint16_t const* in, float* out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i) {
        Imath::half h;
        h.setBits(in[i]);
        out[i] = static_cast<float>(h);
    }
}

} // namespace zgu_bench
