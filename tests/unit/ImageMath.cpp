#include <Rendering/Image.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

using namespace Zorvan::Rendering;
using Box = Zorvan::Math::boundingbox<float, 3>;

TEST(MipArithmetic, FullChainCount)
{
    EXPECT_EQ(CalculateFullMipChainCount({0, 0, 0}), 1u);
    EXPECT_EQ(CalculateFullMipChainCount({1, 0, 0}), 1u);
    EXPECT_EQ(CalculateFullMipChainCount({256, 0, 0}), 9u);
    EXPECT_EQ(CalculateFullMipChainCount({257, 0, 0}), 9u);
    EXPECT_EQ(CalculateFullMipChainCount({255, 0, 0}), 8u);
    EXPECT_EQ(CalculateFullMipChainCount({1024, 600, 0}), 11u);
    EXPECT_EQ(CalculateFullMipChainCount({3, 5, 4096}), 13u);
    // The largest extents stay below 2^32 and so below 33 levels.
    EXPECT_EQ(CalculateFullMipChainCount({0xFFFFFFFFu, 1, 1}), 32u);
    EXPECT_EQ(CalculateFullMipChainCount({0x80000000u, 0, 0}), 32u);
}

TEST(MipArithmetic, LevelSizeKeepsAbsentDimensionsAndClampsPresentOnes)
{
    EXPECT_EQ(CalculateMipLevelSize({7, 0, 0}, 2), (Size{1, 0, 0}));
    EXPECT_EQ(CalculateMipLevelSize({8, 8, 8}, 3), (Size{1, 1, 1}));
    EXPECT_EQ(CalculateMipLevelSize({8, 8, 8}, 5), (Size{1, 1, 1}));
    EXPECT_EQ(CalculateMipLevelSize({0, 5, 5}, 0), (Size{0, 0, 0}));
    EXPECT_EQ(CalculateMipLevelSize({5, 3, 0}, 1), (Size{2, 1, 0}));
    EXPECT_EQ(CalculateMipLevelSize({9, 0, 7}, 1), (Size{4, 0, 0}));
    EXPECT_EQ(CalculateMipLevelSize({64, 32, 16}, 2), (Size{16, 8, 4}));
    // The level wraps at 32.
    EXPECT_EQ(CalculateMipLevelSize({64, 32, 0}, 32), (Size{64, 32, 0}));
    EXPECT_EQ(CalculateMipLevelSize({64, 32, 0}, 33), (Size{32, 16, 0}));
}

ImageDesc Description(Size size, std::uint32_t samples, std::uint32_t flags)
{
    return ImageDesc{size, Format::R8G8B8A8, samples, 1, flags};
}

TEST(MipArithmetic, ImageDescriptionValidity)
{
    constexpr std::uint32_t cube = ImageUsage::CubeMap;
    EXPECT_TRUE(IsValidImageDescription(Description({64, 64, 0}, 1, cube)));
    EXPECT_FALSE(IsValidImageDescription(Description({64, 32, 0}, 1, cube)));
    EXPECT_FALSE(IsValidImageDescription(Description({64, 64, 1}, 1, cube)));
    EXPECT_FALSE(IsValidImageDescription(Description({0, 0, 0}, 1, cube)));
    EXPECT_FALSE(IsValidImageDescription(Description({4, 4, 4}, 4, 0)));
    EXPECT_TRUE(IsValidImageDescription(Description({4, 4, 4}, 1, 0)));
    EXPECT_TRUE(IsValidImageDescription(Description({4, 4, 0}, 4, 0)));
    // Without a height the sample count is not looked at.
    EXPECT_TRUE(IsValidImageDescription(Description({4, 0, 4}, 4, 0)));
    EXPECT_TRUE(IsValidImageDescription(Description({0, 0, 0}, 0, 0)));
}

Box Cube(float low, float high) { return Box{{low, low, low}, {high, high, high}}; }

TEST(VoxelBounds, GrowsByHalfAVoxelPerAxisWithSeveralSamples)
{
    EXPECT_EQ(SampleBounds2VoxelBounds(2, 2, 2, Cube(0, 1)), Cube(-0.5f, 1.5f));

    Box const line{{0, 0, 0}, {10, 0, 0}};
    EXPECT_EQ(SampleBounds2VoxelBounds(11, 1, 0, line), (Box{{-0.5f, 0, 0}, {10.5f, 0, 0}}));
    EXPECT_EQ(SampleBounds2VoxelBounds(1, 0, 1, line), line);
    // A degenerate axis stays degenerate.
    EXPECT_EQ(SampleBounds2VoxelBounds(11, 7, 7, line), (Box{{-0.5f, 0, 0}, {10.5f, 0, 0}}));
}

TEST(VoxelBounds, InvertedBoxComesOutOrdered)
{
    Box const inverted{{4, 0, 0}, {2, 1, 1}};
    Box const result = SampleBounds2VoxelBounds(3, 1, 1, inverted);
    EXPECT_EQ(result, (Box{{1.5f, 0, 0}, {4.5f, 1, 1}}));
}

} // namespace
