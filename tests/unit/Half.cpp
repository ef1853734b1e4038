#include <Rendering/Format.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <limits>

using namespace Zorvan::Rendering;

namespace {

float FromBits(std::uint32_t bits) { return std::bit_cast<float>(bits); }
std::uint32_t Bits(float f) { return std::bit_cast<std::uint32_t>(f); }

// Truncating binary32 -> binary16 written from the formats' definitions, with
// the two kept quirks: overflow is infinity, NaN keeps the top ten payload bits.
std::uint16_t ReferenceFloat2Half(float value)
{
    std::uint32_t const b = Bits(value);
    std::uint32_t const sign = (b >> 16) & 0x8000u;
    int const exponent = static_cast<int>((b >> 23) & 0xFFu) - 127;
    std::uint32_t const mantissa = b & 0x7FFFFFu;
    if (exponent == 128)
        return static_cast<std::uint16_t>(sign | 0x7C00u | (mantissa >> 13));
    if (exponent >= 16)
        return static_cast<std::uint16_t>(sign | 0x7C00u);
    if (exponent >= -14)
        return static_cast<std::uint16_t>(sign | static_cast<std::uint32_t>(exponent + 15) << 10 | mantissa >> 13);
    if (exponent >= -24) // half subnormal: whole multiples of 2^-24, truncated
        return static_cast<std::uint16_t>(sign | (0x800000u | mantissa) >> (-1 - exponent));
    return static_cast<std::uint16_t>(sign);
}

TEST(Half, EveryHalfRoundTripsExactly)
{
    for (std::uint32_t h = 0; h < 0x10000; ++h)
        ASSERT_EQ(float2half(half2float(static_cast<unsigned short>(h))), h) << std::hex << h;
}

TEST(Half, Float2HalfBoundaries)
{
    EXPECT_EQ(float2half(1.0f), 0x3C00);
    EXPECT_EQ(float2half(-2.0f), 0xC000);
    EXPECT_EQ(float2half(65504.0f), 0x7BFF);
    EXPECT_EQ(float2half(65535.0f), 0x7BFF); // truncated, not rounded to infinity
    EXPECT_EQ(float2half(65536.0f), 0x7C00);
    EXPECT_EQ(float2half(-1e30f), 0xFC00);
    EXPECT_EQ(float2half(1.0009765625f), 0x3C01);
    EXPECT_EQ(float2half(std::nextafter(1.0009765625f, 0.0f)), 0x3C00);
    EXPECT_EQ(float2half(std::numeric_limits<float>::denorm_min()), 0x0000);
    EXPECT_EQ(float2half(-0.0f), 0x8000);
    EXPECT_EQ(float2half(std::ldexp(1.0f, -24)), 0x0001);
    EXPECT_EQ(float2half(std::ldexp(1.0f, -25)), 0x0000);
    EXPECT_EQ(float2half(std::ldexp(1.0f, -14)), 0x0400);
    EXPECT_EQ(float2half(std::nextafter(std::ldexp(1.0f, -14), 0.0f)), 0x03FF);
    EXPECT_EQ(float2half(std::numeric_limits<float>::infinity()), 0x7C00);
    EXPECT_EQ(float2half(FromBits(0x7F801FFFu)), 0x7C00); // NaN with only low payload bits turns infinite
    EXPECT_EQ(float2half(FromBits(0xFFC02000u)), 0xFE01); // NaN keeps sign and top payload bits
}

TEST(Half, Half2FloatSpecials)
{
    EXPECT_EQ(half2float(0x7C00), std::numeric_limits<float>::infinity());
    EXPECT_EQ(half2float(0xFC00), -std::numeric_limits<float>::infinity());
    EXPECT_EQ(half2float(0x0001), std::ldexp(1.0f, -24));
    EXPECT_EQ(half2float(0x03FF), std::ldexp(1023.0f, -24));
    EXPECT_EQ(Bits(half2float(0x8000)), 0x80000000u);
    EXPECT_EQ(Bits(half2float(0x7E00)), 0x7FC00000u);
    EXPECT_EQ(half2float(0x7BFF), 65504.0f);
    EXPECT_EQ(half2float(0x3C00), 1.0f);
}

TEST(Half, Float2HalfTruncatesLikeTheReferenceOverSampledFloats)
{
    // A stride that is odd and prime walks every exponent and sign with varied mantissas.
    std::uint64_t mismatches = 0;
    for (std::uint64_t b = 0; b <= 0xFFFFFFFFu; b += 1021) {
        float const f = FromBits(static_cast<std::uint32_t>(b));
        if (float2half(f) != ReferenceFloat2Half(f) && ++mismatches <= 5)
            ADD_FAILURE() << "bits " << std::hex << b << ": " << float2half(f) << " vs " << ReferenceFloat2Half(f);
    }
    EXPECT_EQ(mismatches, 0u);
}

} // namespace
