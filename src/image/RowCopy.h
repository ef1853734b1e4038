#pragma once

// The row loop of CopyImageBuffer's row-by-row case, in two flavours that
// move the same bytes.

#include <cstddef>
#include <cstdint>

namespace Zorvan::Rendering::detail {

// From this many destination bytes on, a row-by-row copy streams past the
// caches. A single memcpy switches to non-temporal stores for large blocks;
// one memcpy per row only ever sees a row's size and never does, so every
// destination line was first read from memory, then written back: a third
// more traffic on copies far larger than a last-level cache. Smaller copies
// stay in the caches, where the caller usually reads them next.
inline constexpr std::uint64_t StreamingCopyBytes = std::uint64_t{32} << 20;

// `rows` rows of rowBytes bytes, each pointer stepping by its signed pitch:
// one memcpy per row.
void CopyRows(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
              std::size_t rowBytes, std::int64_t rows) noexcept;

// The same bytes, written with non-temporal stores in whole destination cache
// lines where the processor has them (plain stores for the partial lines at
// either end of a row), fenced before it returns.
void StreamRows(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
                std::size_t rowBytes, std::int64_t rows) noexcept;

} // namespace Zorvan::Rendering::detail
