#include "RowCopy.h"

#include <Rendering/Image.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace Zorvan::Rendering {
namespace {

// Offsets of the whole-block copy are formed in 32 bits: the low half of the
// product, read as signed. Kept for compatibility with existing callers, so a
// block with negative pitches must span less than 2 GiB.
std::int64_t BlockOffset(std::int64_t count, std::int64_t pitch) noexcept
{
    auto const product = static_cast<std::uint64_t>(count) * static_cast<std::uint64_t>(pitch);
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(product));
}

} // namespace

void CopyImageBuffer(void const* src, std::int64_t srcRowPitch, std::int64_t srcSlicePitch, void* dst,
                     std::int64_t dstRowPitch, std::int64_t dstSlicePitch, std::int64_t width, std::int64_t rows,
                     std::int64_t slices)
{
    if (width < 1 || srcRowPitch == 0 || dstRowPitch == 0)
        return;

    if (rows < 1) {
        rows = 1;
        slices = 1;
        srcRowPitch = std::llabs(srcRowPitch);
        dstRowPitch = std::llabs(dstRowPitch);
        srcSlicePitch = srcRowPitch;
        dstSlicePitch = dstRowPitch;
    } else if (slices < 1) {
        slices = 1;
        srcSlicePitch = std::llabs(srcRowPitch * rows);
        dstSlicePitch = std::llabs(dstRowPitch * rows);
    }

    auto const* from = static_cast<unsigned char const*>(src);
    auto* to = static_cast<unsigned char*>(dst);

    if (srcRowPitch == dstRowPitch && srcSlicePitch == dstSlicePitch) {
        // Identical layouts: start from the lowest address and move one block.
        if (srcSlicePitch < 0) {
            std::int64_t const offset = BlockOffset(slices - 1, srcSlicePitch);
            from += offset;
            to += offset;
        }
        if (srcRowPitch < 0) {
            std::int64_t const offset = BlockOffset(rows - 1, srcRowPitch);
            from += offset;
            to += offset;
        }
        std::memcpy(to, from, static_cast<std::size_t>(std::llabs(srcSlicePitch) * slices));
        return;
    }

    // The whole shorter pitch moves, not width * pixel size: padding bytes
    // travel with the row.
    auto const rowBytes = static_cast<std::size_t>(std::min(std::llabs(srcRowPitch), std::llabs(dstRowPitch)));
    // Only picks how the bytes are written; unsigned, so a product no memory
    // could hold wraps instead of overflowing.
    std::uint64_t const total = std::uint64_t{rowBytes} * static_cast<std::uint64_t>(rows) *
                                static_cast<std::uint64_t>(slices);
    auto* const copyRows = total >= detail::StreamingCopyBytes ? &detail::StreamRows : &detail::CopyRows;
    for (std::int64_t slice = 0; slice < slices; ++slice)
        copyRows(from + slice * srcSlicePitch, srcRowPitch, to + slice * dstSlicePitch, dstRowPitch, rowBytes, rows);
}

void CopyImageBuffer1D(void const* src, std::int64_t srcRowPitch, void* dst, std::int64_t dstRowPitch,
                       std::int64_t width)
{
    if (width < 1)
        return;
    CopyImageBuffer(src, srcRowPitch, srcRowPitch, dst, dstRowPitch, dstRowPitch, width, 1, 1);
}

void CopyImageBuffer2D(void const* src, std::int64_t srcRowPitch, void* dst, std::int64_t dstRowPitch,
                       std::int64_t width, std::int64_t rows)
{
    if (width < 1 || rows < 1)
        return;
    CopyImageBuffer(src, srcRowPitch, srcRowPitch * rows, dst, dstRowPitch, dstRowPitch * rows, width, rows, 1);
}

namespace {

template <bool OpaqueAlpha>
void SwapRedBlue(unsigned char* data, std::int64_t width, std::int64_t height, std::int64_t rowPitch) noexcept
{
    if (height < 1)
        return;
    for (std::int64_t row = 0; row < height; ++row) {
        unsigned char* pixel = data + row * rowPitch;
        for (std::int64_t x = 0; x < width; ++x, pixel += 4) {
            std::swap(pixel[0], pixel[2]);
            if constexpr (OpaqueAlpha)
                pixel[3] = 255;
        }
    }
}

} // namespace

void bgra2rgba(unsigned char* data, std::int64_t width, std::int64_t height, std::int64_t rowPitch)
{
    SwapRedBlue<false>(data, width, height, rowPitch);
}

void bgrx2rgba(unsigned char* data, std::int64_t width, std::int64_t height, std::int64_t rowPitch)
{
    SwapRedBlue<true>(data, width, height, rowPitch);
}

} // namespace Zorvan::Rendering
