#include "image/RowCopy.h"

#include <Rendering/Image.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <vector>

namespace Zorvan::Rendering::detail {
namespace {

using Bytes = std::vector<unsigned char>;
using RowCopy = void (*)(unsigned char const*, std::int64_t, unsigned char*, std::int64_t, std::size_t,
                         std::int64_t) noexcept;

constexpr unsigned char Untouched = 0xEE;

// Byte by byte, as the copy is described: row r of rowBytes bytes from
// from + r * fromPitch to to + r * toPitch.
void Oracle(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
            std::size_t rowBytes, std::int64_t rows)
{
    for (std::int64_t r = 0; r < rows; ++r)
        for (std::size_t i = 0; i < rowBytes; ++i)
            to[r * toPitch + static_cast<std::int64_t>(i)] = from[r * fromPitch + static_cast<std::int64_t>(i)];
}

std::size_t FirstDifference(Bytes const& a, Bytes const& b)
{
    std::size_t i = 0;
    while (i < a.size() && a[i] == b[i])
        ++i;
    return i;
}

Bytes Pattern(std::size_t n, unsigned seed)
{
    Bytes b(n);
    for (std::size_t i = 0; i < n; ++i)
        b[i] = static_cast<unsigned char>((i * 131 + seed * 29 + (i >> 8)) & 0xFF);
    return b;
}

// Row lengths around the 64-byte lines the streaming copy writes whole, every
// destination alignment within a line, both pitch signs, and pitches wider
// than the rows. The destination buffer has room on both sides that must stay
// untouched.
void ExpectSameBytesAsTheOracle(RowCopy copy)
{
    for (std::size_t rowBytes : {0, 1, 15, 16, 63, 64, 65, 127, 128, 129, 200, 1000}) {
        for (std::int64_t spare : {0, 7, 64}) {
            for (std::size_t offset = 0; offset < 64; offset += 5) {
                for (int signs = 0; signs < 4; ++signs) {
                    std::int64_t const rows = 3;
                    auto const toSpan = static_cast<std::int64_t>(rowBytes) + spare;
                    auto const fromSpan = static_cast<std::int64_t>(rowBytes) + 2 * spare + 3;
                    std::int64_t const fromPitch = (signs & 1) != 0 ? -fromSpan : fromSpan;
                    std::int64_t const toPitch = (signs & 2) != 0 ? -toSpan : toSpan;
                    Bytes const source = Pattern(static_cast<std::size_t>(fromSpan * rows), static_cast<unsigned>(offset));
                    // 64 bytes of margin, then the destination at `offset` into a line.
                    std::size_t const size = static_cast<std::size_t>(toSpan * rows) + 192;
                    Bytes actual(size, Untouched);
                    Bytes expected(size, Untouched);
                    auto const address = reinterpret_cast<std::uintptr_t>(actual.data()) + 64;
                    std::int64_t const start = static_cast<std::int64_t>(64 + (offset + 64 - address % 64) % 64) +
                                               (toPitch < 0 ? toSpan * (rows - 1) : 0);
                    unsigned char const* from = source.data() + (fromPitch < 0 ? fromSpan * (rows - 1) : 0);
                    copy(from, fromPitch, actual.data() + start, toPitch, rowBytes, rows);
                    Oracle(from, fromPitch, expected.data() + start, toPitch, rowBytes, rows);
                    ASSERT_EQ(FirstDifference(actual, expected), size)
                        << "row bytes " << rowBytes << ", spare " << spare << ", offset "
                                                << offset << ", signs " << signs;
                }
            }
        }
    }
}

TEST(ImageRowCopy, CopyRowsMovesTheOraclesBytes)
{
    ExpectSameBytesAsTheOracle(&CopyRows);
}

TEST(ImageRowCopy, StreamRowsMovesTheOraclesBytes)
{
    ExpectSameBytesAsTheOracle(&StreamRows);
}

// A padded layout large enough for CopyImageBuffer to stream, in two slices
// of bottom-up rows, against the oracle row by row.
TEST(ImageRowCopy, LargeCopiesThatStreamMatchTheOracle)
{
    std::int64_t const rowBytes = 4096 + 40;
    std::int64_t const srcPitch = rowBytes + 24;
    std::int64_t const rows = static_cast<std::int64_t>(StreamingCopyBytes / 2 / static_cast<std::uint64_t>(rowBytes)) + 3;
    std::int64_t const slices = 2;
    ASSERT_GE(static_cast<std::uint64_t>(rowBytes * rows * slices), StreamingCopyBytes);
    Bytes const source = Pattern(static_cast<std::size_t>(srcPitch * rows * slices), 3);
    Bytes actual(static_cast<std::size_t>(rowBytes * rows * slices), Untouched);
    Bytes expected = actual;
    // Source slices stored top-down, destination rows bottom-up within each slice.
    unsigned char* lastRow = actual.data() + rowBytes * (rows - 1);
    CopyImageBuffer(source.data(), srcPitch, srcPitch * rows, lastRow, -rowBytes, rowBytes * rows, rowBytes / 4, rows,
                    slices);
    for (std::int64_t s = 0; s < slices; ++s)
        Oracle(source.data() + s * srcPitch * rows, srcPitch, expected.data() + rowBytes * (rows - 1) + s * rowBytes * rows,
               -rowBytes, static_cast<std::size_t>(rowBytes), rows);
    EXPECT_EQ(FirstDifference(actual, expected), actual.size());
}

} // namespace
} // namespace Zorvan::Rendering::detail
