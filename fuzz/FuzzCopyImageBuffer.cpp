// CopyImageBuffer with pitches, counts and signs drawn from the input. Both
// buffers live in arenas sized from the parameters, so any access outside the
// documented footprint is caught by AddressSanitizer; the copied bytes are
// compared with a plain re-statement of the copy rules. The streaming row copy,
// which the library uses only for copies of many megabytes, is run on the same
// rows and compared too.

#include "FuzzInput.h"
#include "image/RowCopy.h"

#include <Rendering/Image.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct Footprint {
    std::int64_t lowest = 0;
    std::int64_t end = 0; // one past the highest byte
};

// Bytes a walk of `rows` rows of `rowBytes` at rowPitch, repeated for `slices`
// slices at slicePitch, touches relative to the start pointer.
// The start pointer itself (offset 0) is always inside, so that it points
// into the arena even when nothing is copied.
Footprint Walk(std::int64_t rowPitch, std::int64_t slicePitch, std::int64_t rows, std::int64_t slices,
               std::int64_t rowBytes)
{
    Footprint f{0, 0};
    for (std::int64_t s = 0; s < slices; ++s)
        for (std::int64_t r = 0; r < rows; ++r) {
            std::int64_t const at = s * slicePitch + r * rowPitch;
            f.lowest = std::min(f.lowest, at);
            f.end = std::max(f.end, at + rowBytes);
        }
    return f;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    std::int64_t srcRowPitch = in.Range(-96, 96);
    std::int64_t dstRowPitch = in.Range(-96, 96);
    std::int64_t srcSlicePitch = in.Range(-2048, 2048);
    std::int64_t dstSlicePitch = in.Range(-2048, 2048);
    std::int64_t const width = in.Range(-2, 24);
    std::int64_t rows = in.Range(-2, 12);
    std::int64_t slices = in.Range(-2, 6);
    bool const equalLayouts = (in.Take<std::uint8_t>() & 1) != 0;
    if (equalLayouts) {
        dstRowPitch = srcRowPitch;
        dstSlicePitch = srcSlicePitch;
    }

    // The copy's own normalisation, restated to size the arenas.
    if (width < 1 || srcRowPitch == 0 || dstRowPitch == 0) {
        Zorvan::Rendering::CopyImageBuffer(nullptr, srcRowPitch, srcSlicePitch, nullptr, dstRowPitch, dstSlicePitch,
                                           width, rows, slices);
        return 0;
    }
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
    bool const block = srcRowPitch == dstRowPitch && srcSlicePitch == dstSlicePitch;
    std::int64_t blockLowest = 0;
    std::int64_t const blockBytes = std::llabs(srcSlicePitch) * slices;
    std::int64_t const rowBytes = block ? std::llabs(srcRowPitch) : std::min(std::llabs(srcRowPitch), std::llabs(dstRowPitch));

    Footprint src = Walk(srcRowPitch, srcSlicePitch, rows, slices, rowBytes);
    Footprint dst = Walk(dstRowPitch, dstSlicePitch, rows, slices, rowBytes);
    if (block) {
        // One memcpy of |slicePitch| * slices bytes from the lowest corner.
        if (srcSlicePitch < 0)
            blockLowest += (slices - 1) * srcSlicePitch;
        if (srcRowPitch < 0)
            blockLowest += (rows - 1) * srcRowPitch;
        src = dst = Footprint{std::min<std::int64_t>(blockLowest, 0),
                              std::max<std::int64_t>(blockLowest + blockBytes, 0)};
    }

    // One spare byte keeps the arenas non-empty (a real pointer) when nothing moves.
    std::vector<std::uint8_t> source(static_cast<std::size_t>(src.end - src.lowest) + 1);
    for (std::size_t i = 0; i < source.size(); ++i)
        source[i] = static_cast<std::uint8_t>(i * 131 + 7);
    std::vector<std::uint8_t> target(static_cast<std::size_t>(dst.end - dst.lowest) + 1, 0xEE);
    std::vector<std::uint8_t> expected = target;

    std::uint8_t const* srcStart = source.data() - src.lowest;
    std::uint8_t* dstStart = target.data() - dst.lowest;
    Zorvan::Rendering::CopyImageBuffer(srcStart, srcRowPitch, srcSlicePitch, dstStart, dstRowPitch, dstSlicePitch,
                                       width, rows, slices);

    std::uint8_t* expectedStart = expected.data() - dst.lowest;
    if (block) {
        std::memcpy(expectedStart + blockLowest, srcStart + blockLowest, static_cast<std::size_t>(blockBytes));
    } else {
        for (std::int64_t s = 0; s < slices; ++s)
            for (std::int64_t r = 0; r < rows; ++r)
                std::memcpy(expectedStart + s * dstSlicePitch + r * dstRowPitch,
                            srcStart + s * srcSlicePitch + r * srcRowPitch, static_cast<std::size_t>(rowBytes));
    }
    if (target != expected)
        std::abort();

    if (!block) {
        std::vector<std::uint8_t> streamed(expected.size(), 0xEE);
        std::uint8_t* streamedStart = streamed.data() - dst.lowest;
        for (std::int64_t s = 0; s < slices; ++s)
            Zorvan::Rendering::detail::StreamRows(srcStart + s * srcSlicePitch, srcRowPitch,
                                                  streamedStart + s * dstSlicePitch, dstRowPitch,
                                                  static_cast<std::size_t>(rowBytes), rows);
        if (streamed != expected)
            std::abort();
    }
    return 0;
}
