#include <Rendering/Image.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using Bytes = std::vector<unsigned char>;

Bytes Counting(std::size_t n, unsigned char first = 1)
{
    Bytes b(n);
    std::iota(b.begin(), b.end(), first);
    return b;
}

constexpr unsigned char Untouched = 0xEE;

TEST(CopyImageBuffer, EqualLayoutsMoveTheWholeBlockPaddingIncluded)
{
    Bytes const src = Counting(2 * 24);
    Bytes dst(64, Untouched);
    // 3 rows of 8 bytes, 2 slices of 24; width 1 does not limit a block copy.
    CopyImageBuffer(src.data(), 8, 24, dst.data(), 8, 24, 1, 3, 2);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 48), src);
    EXPECT_EQ(dst[48], Untouched);
}

TEST(CopyImageBuffer, UnequalPitchesMoveTheShorterPitchPerRow)
{
    Bytes const src = Counting(3 * 16);
    Bytes dst(3 * 12 + 4, Untouched);
    CopyImageBuffer(src.data(), 16, 48, dst.data(), 12, 36, 1, 3, 1);
    for (int row = 0; row < 3; ++row)
        for (int i = 0; i < 12; ++i)
            EXPECT_EQ(dst[row * 12 + i], src[row * 16 + i]) << row << ',' << i;
    EXPECT_EQ(dst[36], Untouched);

    // The other way round: 12 of each 16-byte destination row are written.
    Bytes wide(3 * 16, Untouched);
    CopyImageBuffer(dst.data(), 12, 36, wide.data(), 16, 48, 100, 3, 1);
    for (int row = 0; row < 3; ++row) {
        EXPECT_EQ(wide[row * 16 + 11], src[row * 16 + 11]);
        EXPECT_EQ(wide[row * 16 + 12], Untouched);
    }
}

TEST(CopyImageBuffer, OppositePitchSignsFlipRows)
{
    Bytes const src = Counting(3 * 4);
    Bytes dst(3 * 4, Untouched);
    // Source handed bottom-up: the pointer names the last row.
    CopyImageBuffer(src.data() + 8, -4, -12, dst.data(), 4, 12, 1, 3, 1);
    EXPECT_EQ(dst, (Bytes{9, 10, 11, 12, 5, 6, 7, 8, 1, 2, 3, 4}));
}

TEST(CopyImageBuffer, EqualNegativePitchesCopyOneBlockFromTheLowestAddress)
{
    Bytes const src = Counting(2 * 3 * 4);
    Bytes dst(src.size(), Untouched);
    // Pointers at the last row of the last slice; the block keeps its layout.
    CopyImageBuffer(src.data() + 20, -4, -12, dst.data() + 20, -4, -12, 1, 3, 2);
    EXPECT_EQ(dst, src);
}

TEST(CopyImageBuffer, BlockOffsetsWrapAt32Bits)
{
    // (rows - 1) * pitch = -2^32 + 16, whose low 32 bits are +16: the block
    // starts 16 bytes after the pointers instead of 4 GiB before them.
    std::int64_t const pitch = -(std::int64_t{1} << 32) + 16;
    Bytes const src = Counting(64);
    Bytes dst(64, Untouched);
    CopyImageBuffer(src.data(), pitch, 32, dst.data(), pitch, 32, 1, 2, 1);
    for (int i = 0; i < 64; ++i)
        EXPECT_EQ(dst[i], (i >= 16 && i < 48) ? src[i] : Untouched) << i;
}

TEST(CopyImageBuffer, RowsBelowOneCopyOneRowForwards)
{
    Bytes const src = Counting(32);
    Bytes dst(32, Untouched);
    // Pitches lose their sign; 8 = min(16, 8) bytes move; slices are ignored.
    CopyImageBuffer(src.data(), -16, -16, dst.data(), 8, 8, 1, 0, 5);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 8), Bytes(src.begin(), src.begin() + 8));
    EXPECT_EQ(dst[8], Untouched);
}

TEST(CopyImageBuffer, SlicesBelowOneUseRowsTimesPitch)
{
    Bytes const src = Counting(64);
    Bytes dst(64, Untouched);
    // Given slice pitches differ, but with slices 0 both become 2 * 8.
    CopyImageBuffer(src.data(), 8, 100, dst.data(), 8, 200, 1, 2, 0);
    EXPECT_EQ(Bytes(dst.begin(), dst.begin() + 16), Bytes(src.begin(), src.begin() + 16));
    EXPECT_EQ(dst[16], Untouched);
}

TEST(CopyImageBuffer, RowBySliceGathersPaddedSlices)
{
    // Source slices of 2 rows x 4 bytes with 4 bytes of slice padding.
    Bytes const src = Counting(2 * 12);
    Bytes dst(16, Untouched);
    CopyImageBuffer(src.data(), 4, 12, dst.data(), 4, 8, 1, 2, 2);
    EXPECT_EQ(dst, (Bytes{1, 2, 3, 4, 5, 6, 7, 8, 13, 14, 15, 16, 17, 18, 19, 20}));
}

TEST(CopyImageBuffer, NothingMovesWithoutWidthOrPitch)
{
    Bytes const src = Counting(16);
    Bytes dst(16, Untouched);
    CopyImageBuffer(src.data(), 8, 16, dst.data(), 8, 16, 0, 2, 1);
    CopyImageBuffer(src.data(), 0, 16, dst.data(), 8, 16, 1, 2, 1);
    CopyImageBuffer(src.data(), 8, 16, dst.data(), 0, 16, 1, 2, 1);
    CopyImageBuffer1D(src.data(), 8, dst.data(), 8, 0);
    CopyImageBuffer2D(src.data(), 8, dst.data(), 8, 1, 0); // unlike the general form's rows 0
    EXPECT_EQ(dst, Bytes(16, Untouched));
}

TEST(Swizzle, BlueFirstToRedFirstRespectsRowPitch)
{
    // Two rows of two pixels with 4 bytes of row padding.
    Bytes pixels{10, 20, 30, 40, 11, 21, 31, 41, 99, 99, 99, 99,
                 12, 22, 32, 42, 13, 23, 33, 43, 99, 99, 99, 99};
    Bytes withAlpha = pixels;
    bgra2rgba(withAlpha.data(), 2, 2, 12);
    EXPECT_EQ(withAlpha, (Bytes{30, 20, 10, 40, 31, 21, 11, 41, 99, 99, 99, 99,
                                32, 22, 12, 42, 33, 23, 13, 43, 99, 99, 99, 99}));
    Bytes opaque = pixels;
    bgrx2rgba(opaque.data(), 2, 2, 12);
    EXPECT_EQ(opaque, (Bytes{30, 20, 10, 255, 31, 21, 11, 255, 99, 99, 99, 99,
                             32, 22, 12, 255, 33, 23, 13, 255, 99, 99, 99, 99}));

    Bytes untouched = pixels;
    bgrx2rgba(untouched.data(), 2, 0, 12);
    EXPECT_EQ(untouched, pixels);
}

} // namespace
