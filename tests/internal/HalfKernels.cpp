#include "foundation/HalfArrayKernels.h"
#include "foundation/HalfTables.h"

#include <gtest/gtest.h>

#include <bit>
#include <cfenv>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <vector>

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

// Sanitizer builds run every suite too; there the walks over all 2^32 floats
// would take minutes, so they visit one chunk in 61 (every exponent and sign
// still, with whole runs of mantissas) and sample more thinly elsewhere.
// Release builds walk every float.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZGU_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZGU_SANITIZED 1
#endif
#endif

namespace Zorvan::Rendering::detail {
namespace {

#if defined(ZGU_SANITIZED)
constexpr std::uint32_t ChunkStride = 61;
#else
constexpr std::uint32_t ChunkStride = 1;
#endif

struct FloatKernel {
    char const* name;
    FloatToHalfKernel convert;
    bool (*available)();
};

struct HalfKernel {
    char const* name;
    HalfToFloatKernel convert;
    bool (*available)();
};

void PrintTo(FloatKernel const& kernel, std::ostream* out) { *out << kernel.name; }
void PrintTo(HalfKernel const& kernel, std::ostream* out) { *out << kernel.name; }

bool Always() { return true; }

std::vector<FloatKernel> FloatKernels()
{
    return {
        {"Portable", &FloatToHalfPortable, &Always},
#if defined(__x86_64__) || defined(__i386__)
        {"F16c", &FloatToHalfF16c, &HasF16cKernels},
        {"Avx512", &FloatToHalfAvx512, &HasAvx512Kernels},
#endif
    };
}

std::vector<HalfKernel> HalfKernels()
{
    return {
        {"Portable", &HalfToFloatPortable, &Always},
#if defined(__x86_64__) || defined(__i386__)
        {"F16c", &HalfToFloatF16c, &HasF16cKernels},
#endif
    };
}

std::uint16_t TableHalf(std::uint32_t bits)
{
    return FloatToHalf(FloatToHalfTablesInstance(), std::bit_cast<float>(bits));
}

std::uint32_t TableFloatBits(std::uint16_t half)
{
    return std::bit_cast<std::uint32_t>(HalfToFloat(HalfToFloatTablesInstance(), half));
}

// Normal floats and halves around the special ones, so that a test of a whole
// group sees one odd lane among ordinary ones.
float Ordinary(std::size_t i)
{
    // Magnitudes from 2^-14 to below 32768, both signs.
    auto const k = static_cast<std::uint32_t>(i) * 0x9E3779B1u;
    return std::bit_cast<float>((k & 0x80000000u) | (0x38800000u + (k >> 1) % 0x0E800000u));
}

// Every lane the instructions can get wrong, and the ones next to them.
std::vector<std::uint32_t> const SpecialFloats = {
    0x47800000u, // 65536: the tables give infinity, truncating hardware 65504
    0xC7800000u, 0x7F7FFFFFu, 0xFF7FFFFFu, 0x4F000000u,
    0x477FFFFFu, // just below 65536: truly 65504
    0xC77FE000u, 0x477FE000u, // 65504 itself
    0x7F800000u, 0xFF800000u, // infinities
    0x7F800001u, 0x7F801FFFu, 0xFF800001u, // NaNs with only low payload bits: infinity
    0x7F802000u, 0x7FA00000u, 0xFFBFE000u, // signalling NaNs with high payload bits
    0x7FC00000u, 0xFFC00001u, 0x7FFFFFFFu, // quiet NaNs
    0x00000001u, 0x80000001u, 0x33800000u, 0xB37FFFFFu, 0x387FFFFFu, // subnormal results and zeros
    0x00000000u, 0x80000000u,
};

std::vector<std::uint16_t> const SpecialHalves = {
    0x7C01u, 0x7DFFu, 0xFC01u, 0xFD55u, // signalling NaNs: hardware quiets them
    0x7E00u, 0xFFFFu, 0x7C00u, 0xFC00u, 0x0001u, 0x83FFu, 0x8000u, 0x7BFFu,
};

class FloatToHalfKernels : public testing::TestWithParam<FloatKernel> {
protected:
    void SetUp() override
    {
        if (!GetParam().available())
            GTEST_SKIP() << GetParam().name << " needs instructions this processor does not have";
    }
};

// Every float in order, in chunks of 2^16 that share their top nine bits, so
// the reference is the table formula with that chunk's two entries.
TEST_P(FloatToHalfKernels, EveryFloatGivesTheTableBits)
{
    constexpr std::uint32_t Chunk = 1u << 16;
    FloatToHalfTables const& tables = FloatToHalfTablesInstance();
    std::vector<std::uint32_t> in(Chunk);
    std::vector<std::uint16_t> out(Chunk);
    std::vector<std::uint16_t> expected(Chunk);
    for (std::uint64_t first = 0; first < (std::uint64_t{1} << 32); first += std::uint64_t{Chunk} * ChunkStride) {
        auto const start = static_cast<std::uint32_t>(first);
        std::uint16_t const base = tables.base[start >> 23];
        std::uint8_t const shift = tables.shift[start >> 23];
        for (std::uint32_t i = 0; i < Chunk; ++i) {
            in[i] = start + i;
            expected[i] = static_cast<std::uint16_t>(base + (((start + i) & 0x007FFFFFu) >> shift));
        }
        GetParam().convert(reinterpret_cast<float const*>(in.data()), out.data(), Chunk);
        if (out != expected) {
            for (std::uint32_t i = 0; i < Chunk; ++i)
                ASSERT_EQ(out[i], expected[i]) << "float bits " << std::hex << in[i];
        }
    }
}

// One odd lane among ordinary ones at every position of two blocks and a
// tail, for lengths that end on and off whole groups: the test that picks
// the groups to patch must see every lane, and the tail nothing beyond n.
TEST_P(FloatToHalfKernels, OneSpecialLaneAnywhereIsPatched)
{
    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{7}, std::size_t{8}, std::size_t{31},
                          std::size_t{32}, std::size_t{255}, std::size_t{256}, std::size_t{512 + 45}}) {
        for (std::uint32_t special : SpecialFloats) {
            for (std::size_t at = 0; at < n; ++at) {
                std::vector<float> in(n);
                for (std::size_t i = 0; i < n; ++i)
                    in[i] = Ordinary(i);
                in[at] = std::bit_cast<float>(special);
                std::vector<std::uint16_t> out(n + 3, 0xABCD);
                GetParam().convert(in.data(), out.data(), n);
                for (std::size_t i = 0; i < n; ++i)
                    ASSERT_EQ(out[i], TableHalf(std::bit_cast<std::uint32_t>(in[i])))
                        << "n " << n << ", special " << std::hex << special << " at " << std::dec << at << ", lane " << i;
                for (std::size_t i = n; i < out.size(); ++i)
                    ASSERT_EQ(out[i], 0xABCD) << "written past n = " << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, FloatToHalfKernels, testing::ValuesIn(FloatKernels()),
                         [](testing::TestParamInfo<FloatKernel> const& kernel) { return std::string(kernel.param.name); });

class HalfToFloatKernels : public testing::TestWithParam<HalfKernel> {
protected:
    void SetUp() override
    {
        if (!GetParam().available())
            GTEST_SKIP() << GetParam().name << " needs instructions this processor does not have";
    }
};

// Every half in order, then the same values scattered (an odd multiplier
// permutes them), so that each group mixes NaNs with ordinary lanes.
TEST_P(HalfToFloatKernels, EveryHalfGivesTheTableBits)
{
    for (std::uint32_t multiplier : {1u, 40503u}) {
        std::vector<std::uint16_t> in(0x10000);
        for (std::uint32_t i = 0; i < 0x10000; ++i)
            in[i] = static_cast<std::uint16_t>(i * multiplier);
        std::vector<float> out(in.size());
        GetParam().convert(in.data(), out.data(), in.size());
        for (std::size_t i = 0; i < in.size(); ++i)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]), TableFloatBits(in[i])) << "half " << std::hex << in[i];
    }
}

TEST_P(HalfToFloatKernels, OneSpecialLaneAnywhereIsPatched)
{
    for (std::size_t n : {std::size_t{0}, std::size_t{1}, std::size_t{9}, std::size_t{31}, std::size_t{32},
                          std::size_t{64 + 13}}) {
        for (std::uint16_t special : SpecialHalves) {
            for (std::size_t at = 0; at < n; ++at) {
                std::vector<std::uint16_t> in(n);
                for (std::size_t i = 0; i < n; ++i)
                    in[i] = static_cast<std::uint16_t>(0x3C00u + i * 37u % 0x3000u);
                in[at] = special;
                std::vector<float> out(n + 3, 7.0f);
                GetParam().convert(in.data(), out.data(), n);
                for (std::size_t i = 0; i < n; ++i)
                    ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]), TableFloatBits(in[i]))
                        << "n " << n << ", special " << std::hex << special << " at " << std::dec << at << ", lane " << i;
                for (std::size_t i = n; i < out.size(); ++i)
                    ASSERT_EQ(out[i], 7.0f) << "written past n = " << n;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(, HalfToFloatKernels, testing::ValuesIn(HalfKernels()),
                         [](testing::TestParamInfo<HalfKernel> const& kernel) { return std::string(kernel.param.name); });

#if defined(__x86_64__) || defined(__i386__)

// Sets MXCSR for the life of the object and puts the old value back.
class Mxcsr {
public:
    explicit Mxcsr(unsigned value) : saved_(_mm_getcsr()) { _mm_setcsr(value); }
    ~Mxcsr() { _mm_setcsr(saved_); }
    Mxcsr(Mxcsr const&) = delete;
    Mxcsr& operator=(Mxcsr const&) = delete;

private:
    unsigned saved_;
};

constexpr unsigned FlushToZero = 0x8000u;
constexpr unsigned DenormalsAreZero = 0x0040u;
constexpr unsigned ExceptionMasks = 0x1F80u;
constexpr unsigned ExceptionFlags = 0x003Fu;

// Flush-to-zero and denormals-are-zero must not reach subnormal halves or the
// floats that become them.
TEST_P(FloatToHalfKernels, FlushToZeroModesChangeNothing)
{
    std::vector<std::uint32_t> bits;
    for (std::uint32_t sign : {0u, 0x80000000u})
        for (std::uint32_t exponent : {0u, 103u, 108u, 112u})
            for (std::uint32_t mantissa = 0; mantissa < 0x800000u; mantissa += 3 * ChunkStride)
                bits.push_back(sign | exponent << 23 | mantissa);
    std::vector<std::uint16_t> out(bits.size());
    {
        Mxcsr const modes(ExceptionMasks | FlushToZero | DenormalsAreZero);
        GetParam().convert(reinterpret_cast<float const*>(bits.data()), out.data(), bits.size());
    }
    for (std::size_t i = 0; i < bits.size(); ++i)
        ASSERT_EQ(out[i], TableHalf(bits[i])) << "float bits " << std::hex << bits[i];
}

TEST_P(HalfToFloatKernels, FlushToZeroModesChangeNothing)
{
    std::vector<std::uint16_t> in(0x10000);
    for (std::uint32_t i = 0; i < 0x10000; ++i)
        in[i] = static_cast<std::uint16_t>(i);
    std::vector<float> out(in.size());
    {
        Mxcsr const modes(ExceptionMasks | FlushToZero | DenormalsAreZero);
        GetParam().convert(in.data(), out.data(), in.size());
    }
    for (std::size_t i = 0; i < in.size(); ++i)
        ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]), TableFloatBits(in[i])) << "half " << std::hex << in[i];
}

// The tables raise no floating-point exception; neither may a kernel, even on
// overflow, NaNs, subnormal results and truncation. With every exception
// unmasked, one that escaped would stop the test with SIGFPE; the status
// flags must come back empty as well.
TEST_P(FloatToHalfKernels, RaiseNoFloatingPointException)
{
    std::vector<float> in;
    for (std::size_t i = 0; i < 40; ++i)
        for (std::uint32_t special : SpecialFloats)
            in.push_back(i % 2 == 0 ? std::bit_cast<float>(special) : Ordinary(i));
    std::vector<std::uint16_t> out(in.size());
    unsigned after = 0;
    {
        Mxcsr const modes(0); // every exception unmasked, no flag set
        GetParam().convert(in.data(), out.data(), in.size());
        after = _mm_getcsr();
    }
    EXPECT_EQ(after, 0u);
    for (std::size_t i = 0; i < in.size(); ++i)
        ASSERT_EQ(out[i], TableHalf(std::bit_cast<std::uint32_t>(in[i])));
}

TEST_P(HalfToFloatKernels, RaiseNoFloatingPointException)
{
    std::vector<std::uint16_t> in;
    for (std::size_t i = 0; i < 40; ++i)
        for (std::uint16_t special : SpecialHalves)
            in.push_back(i % 2 == 0 ? special : static_cast<std::uint16_t>(0x3C00u + i));
    std::vector<float> out(in.size());
    unsigned after = 0;
    {
        Mxcsr const modes(0);
        GetParam().convert(in.data(), out.data(), in.size());
        after = _mm_getcsr();
    }
    EXPECT_EQ(after, 0u);
    for (std::size_t i = 0; i < in.size(); ++i)
        ASSERT_EQ(std::bit_cast<std::uint32_t>(out[i]), TableFloatBits(in[i]));
}

// A caller's flags survive a conversion that would have raised others.
TEST_P(FloatToHalfKernels, KeepTheCallersStatusFlags)
{
    std::vector<float> const in = {std::bit_cast<float>(0x7F800001u), 1e30f, 1.1f, 1e-30f};
    std::vector<std::uint16_t> out(in.size());
    unsigned const before = ExceptionMasks | 0x0002u; // denormal flag only
    unsigned after = 0;
    {
        Mxcsr const modes(before);
        GetParam().convert(in.data(), out.data(), in.size());
        after = _mm_getcsr();
    }
    EXPECT_EQ(after & ExceptionFlags, before & ExceptionFlags);
    EXPECT_EQ(after, before);
}

#endif

} // namespace
} // namespace Zorvan::Rendering::detail
