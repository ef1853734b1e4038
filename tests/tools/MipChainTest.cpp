// The host mip chain and the texel codings behind `zgu image`, compiled from
// the tool's own sources.

#include "MipChain.h"
#include "TexelCoding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

using namespace Zorvan::Tool;

LinearImage Filled(std::uint32_t width, std::uint32_t height, unsigned seed, bool randomAlpha)
{
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> value(0.0f, 1.0f);
    LinearImage image{width, height, std::vector<float>(std::size_t(width) * height * 4)};
    for (std::size_t i = 0; i < image.texels.size(); ++i)
        image.texels[i] = i % 4 == 3 && !randomAlpha ? 1.0f : value(random);
    return image;
}

DecodedImage Decoded8(std::uint32_t width, std::uint32_t height, std::vector<unsigned char> rgba)
{
    DecodedImage image;
    image.width = width;
    image.height = height;
    image.type = SampleType::U8;
    image.samples = std::move(rgba);
    return image;
}

double Mean(LinearImage const& image, int channel)
{
    double sum = 0.0;
    for (std::size_t i = channel; i < image.texels.size(); i += 4)
        sum += image.texels[i];
    return sum / (double(image.width) * image.height);
}

// Exact box filters keep a level's mean: a dropped edge texel, a weight that
// does not sum to one or a wrong extent shows as drift.
TEST(MipChain, EveryLevelKeepsTheMeanAtEveryExtent)
{
    for (std::uint32_t width = 1; width <= 19; ++width) {
        for (std::uint32_t height = 1; height <= 19; height += (height < 6 ? 1 : 4)) {
            LinearImage const source = Filled(width, height, width * 131 + height, false);
            auto const chain = BuildMipChain(source, ChainOptions{});
            ASSERT_EQ(chain.back().width, 1u);
            ASSERT_EQ(chain.back().height, 1u);
            for (std::size_t level = 1; level < chain.size(); ++level) {
                EXPECT_EQ(chain[level].width, std::max(1u, chain[level - 1].width / 2));
                EXPECT_EQ(chain[level].height, std::max(1u, chain[level - 1].height / 2));
                for (int c = 0; c < 4; ++c)
                    EXPECT_NEAR(Mean(chain[level], c), Mean(source, c), 1e-5)
                        << width << "x" << height << " level " << level << " channel " << c;
            }
        }
    }
}

TEST(MipChain, OddExtentsWeighEveryTexelEqually)
{
    // 3 -> 1: a third each, whichever texel is lit.
    for (int lit = 0; lit < 3; ++lit) {
        LinearImage row{3, 1, std::vector<float>(12, 0.0f)};
        for (int x = 0; x < 3; ++x)
            row.texels[x * 4 + 3] = 1.0f;
        row.texels[lit * 4] = 1.0f;
        LinearImage const one = Downsample(row, ChainOptions{});
        ASSERT_EQ(one.width, 1u);
        EXPECT_NEAR(one.texels[0], 1.0f / 3.0f, 1e-7f) << "lit texel " << lit;
    }
    // 5 -> 2: outputs cover texels 0..2.5 and 2.5..5, so texel 2 is split.
    LinearImage row{5, 1, std::vector<float>(20, 1.0f)};
    for (int x = 0; x < 5; ++x)
        row.texels[x * 4] = x == 2 ? 1.0f : 0.0f;
    LinearImage const two = Downsample(row, ChainOptions{});
    ASSERT_EQ(two.width, 2u);
    EXPECT_NEAR(two.texels[0], 0.2f, 1e-7f);
    EXPECT_NEAR(two.texels[4], 0.2f, 1e-7f);
}

TEST(MipChain, TransparentTexelsAddNoColour)
{
    // Opaque red beside transparent green, then all transparent.
    LinearImage image{2, 2, {1, 0, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0}};
    LinearImage const weighted = Downsample(image, ChainOptions{});
    EXPECT_FLOAT_EQ(weighted.texels[0], 1.0f);
    EXPECT_FLOAT_EQ(weighted.texels[1], 0.0f);
    EXPECT_FLOAT_EQ(weighted.texels[3], 0.25f);

    ChainOptions separate;
    separate.alphaWeighted = false;
    LinearImage const plain = Downsample(image, separate);
    EXPECT_FLOAT_EQ(plain.texels[0], 0.25f);
    EXPECT_FLOAT_EQ(plain.texels[1], 0.75f);

    // With nothing visible the colour is the plain average, not black.
    LinearImage hidden{2, 1, {1, 0, 0, 0, 0, 0, 1, 0}};
    LinearImage const invisible = Downsample(hidden, ChainOptions{});
    EXPECT_FLOAT_EQ(invisible.texels[0], 0.5f);
    EXPECT_FLOAT_EQ(invisible.texels[2], 0.5f);
    EXPECT_FLOAT_EQ(invisible.texels[3], 0.0f);
}

TEST(MipChain, NormalMapsStayUnitLengthAfterEightBitCoding)
{
    std::mt19937 random(7);
    std::uniform_int_distribution<int> byte(0, 255);
    std::vector<unsigned char> rgba;
    for (int i = 0; i < 37 * 23; ++i)
        rgba.insert(rgba.end(), {static_cast<unsigned char>(byte(random)), static_cast<unsigned char>(byte(random)),
                                 static_cast<unsigned char>(128 + byte(random) / 2), 255});
    ChainOptions options;
    options.normalMap = true;
    auto const chain = BuildMipChain(ToLinear(Decoded8(37, 23, rgba), Coding::Normal), options);
    ASSERT_EQ(chain.size(), 6u);
    for (std::size_t level = 0; level < chain.size(); ++level) {
        auto const bytes = ToUnorm8(chain[level], Coding::Normal);
        for (std::size_t i = 0; i < bytes.size(); i += 4) {
            double length = 0.0;
            for (int c = 0; c < 3; ++c)
                length += std::pow(bytes[i + c] / 255.0 * 2.0 - 1.0, 2.0);
            ASSERT_NEAR(std::sqrt(length), 1.0, 1.0 / 127.0) << "level " << level << " texel " << i / 4;
        }
    }

    // Opposite vectors cancel: the average has no direction, +Z stands in.
    LinearImage opposite{2, 1, {1, 0, 0, 1, -1, 0, 0, 1}};
    LinearImage const flat = Downsample(opposite, options);
    EXPECT_FLOAT_EQ(flat.texels[0], 0.0f);
    EXPECT_FLOAT_EQ(flat.texels[2], 1.0f);
}

TEST(MipChain, CheckerboardsAverageInLinearLight)
{
    for (std::uint32_t size : {2u, 64u}) {
        std::vector<unsigned char> rgba;
        for (std::uint32_t y = 0; y < size; ++y)
            for (std::uint32_t x = 0; x < size; ++x) {
                unsigned char const v = (x + y) % 2 == 0 ? 0 : 255;
                rgba.insert(rgba.end(), {v, v, v, 255});
            }
        auto const chain = BuildMipChain(ToLinear(Decoded8(size, size, rgba), Coding::Srgb), ChainOptions{});
        auto const last = ToUnorm8(chain.back(), Coding::Srgb);
        EXPECT_NEAR(last[0], 188, 1) << size;
        EXPECT_EQ(last[3], 255);
        // Stored as data instead, the same texels average to the middle.
        auto const data = BuildMipChain(ToLinear(Decoded8(size, size, rgba), Coding::Linear), ChainOptions{});
        EXPECT_NEAR(ToUnorm8(data.back(), Coding::Linear)[0], 128, 1) << size;
    }
}

// Decoding then encoding must give back every stored value: the tables and
// the transfer functions have to agree to the last step.
TEST(TexelCoding, EveryStoredValueSurvivesARoundTrip)
{
    for (Coding coding : {Coding::Srgb, Coding::Linear, Coding::Normal}) {
        std::vector<unsigned char> bytes;
        for (int v = 0; v < 256; ++v)
            bytes.insert(bytes.end(), {static_cast<unsigned char>(v), static_cast<unsigned char>(255 - v),
                                       static_cast<unsigned char>(v), static_cast<unsigned char>(v)});
        DecodedImage const image = Decoded8(256, 1, bytes);
        EXPECT_EQ(ToUnorm8(ToLinear(image, coding), coding), bytes) << int(coding);

        DecodedImage wide;
        wide.width = 65536;
        wide.height = 1;
        wide.type = SampleType::U16;
        std::vector<std::uint16_t> samples;
        for (std::uint32_t v = 0; v < 65536; ++v)
            samples.insert(samples.end(), {std::uint16_t(v), std::uint16_t(65535 - v), std::uint16_t(v), 65535});
        wide.samples.resize(samples.size() * 2);
        std::memcpy(wide.samples.data(), samples.data(), wide.samples.size());
        EXPECT_EQ(ToUnorm16(ToLinear(wide, coding), coding), samples) << int(coding);
    }
}

// 8-bit sRGB coding searches precomputed bounds; the plain formula is the
// oracle, near every bound and across the range.
TEST(TexelCoding, EightBitSrgbMatchesTheFormulaEverywhere)
{
    std::vector<float> values;
    for (int k = 0; k < 255; ++k) {
        float const bound = static_cast<float>(SrgbToLinear((k + 0.5) / 255.0));
        float below = bound;
        float above = bound;
        for (int step = 0; step < 4; ++step) {
            values.insert(values.end(), {below, above});
            below = std::nextafter(below, 0.0f);
            above = std::nextafter(above, 1.0f);
        }
    }
    std::mt19937 random(11);
    std::uniform_real_distribution<float> any(-0.1f, 1.1f);
    for (int i = 0; i < 200000; ++i)
        values.push_back(any(random));
    values.insert(values.end(), {0.0f, 1.0f, -0.0f, 2.0f, -5.0f, 1e-30f});
    while (values.size() % 4 != 0)
        values.push_back(0.5f);

    LinearImage image{static_cast<std::uint32_t>(values.size() / 4), 1, values};
    auto const coded = ToUnorm8(image, Coding::Srgb);
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i % 4 == 3)
            continue; // alpha is linear
        double const expected = std::lround(std::clamp(LinearToSrgb(values[i]), 0.0, 1.0) * 255.0);
        ASSERT_EQ(coded[i], expected) << "linear value " << values[i];
    }
}

TEST(TexelCoding, FloatsStayLinearAndHalvesRoundToNearest)
{
    float const ulp = 1.0f / 1024.0f; // of a half just above 1
    LinearImage image{2, 1, {0.5f, 2.0f, -1.0f, 1.0f, 1.0f + 0.75f * ulp, 1.0f + 0.5f * ulp, 1.0f + 1.5f * ulp, 0.25f}};
    EXPECT_EQ(ToFloat32(image, Coding::Srgb), image.texels); // float formats carry linear light
    EXPECT_FLOAT_EQ(ToFloat32(image, Coding::Normal)[2], 0.0f);

    auto const halves = ToFloat16(image, Coding::Linear);
    EXPECT_EQ(halves[0], 0x3800);
    EXPECT_EQ(halves[1], 0x4000);
    EXPECT_EQ(halves[4], 0x3C01); // three quarters of a step up: the nearest is above (truncation stays below)
    EXPECT_EQ(halves[5], 0x3C00); // halfway: to the even neighbour
    EXPECT_EQ(halves[6], 0x3C02); // halfway: to the even neighbour, here the upper one
}

TEST(TexelCoding, SrgbTransferFunctionsAreTheExactPiecewiseOnes)
{
    EXPECT_DOUBLE_EQ(SrgbToLinear(0.04045), 0.04045 / 12.92);
    EXPECT_NEAR(SrgbToLinear(0.5), 0.214041, 1e-6);
    EXPECT_NEAR(LinearToSrgb(0.5) * 255.0, 187.516, 1e-3);
    for (double v = 0.0; v <= 1.0; v += 1.0 / 64.0)
        EXPECT_NEAR(LinearToSrgb(SrgbToLinear(v)), v, 1e-12);
}

} // namespace
