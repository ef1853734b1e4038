#include "RowCopy.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Zorvan::Rendering::detail {

void CopyRows(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
              std::size_t rowBytes, std::int64_t rows) noexcept
{
    for (std::int64_t row = 0; row < rows; ++row) {
        std::memcpy(to, from, rowBytes);
        from += fromPitch;
        to += toPitch;
    }
}

#if defined(__SSE2__)

namespace {

constexpr std::size_t Line = 64;

void StreamRow(unsigned char const* from, unsigned char* to, std::size_t n) noexcept
{
    // Plain stores up to the destination's next line boundary, then whole
    // lines, so that each streamed line is written in full.
    std::size_t const head = (Line - reinterpret_cast<std::uintptr_t>(to) % Line) % Line;
    if (n < head + Line) {
        std::memcpy(to, from, n);
        return;
    }
    std::memcpy(to, from, head);
    std::size_t i = head;
    for (; i + Line <= n; i += Line) {
        __m128i const a = _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + i));
        __m128i const b = _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + i + 16));
        __m128i const c = _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + i + 32));
        __m128i const d = _mm_loadu_si128(reinterpret_cast<__m128i const*>(from + i + 48));
        _mm_stream_si128(reinterpret_cast<__m128i*>(to + i), a);
        _mm_stream_si128(reinterpret_cast<__m128i*>(to + i + 16), b);
        _mm_stream_si128(reinterpret_cast<__m128i*>(to + i + 32), c);
        _mm_stream_si128(reinterpret_cast<__m128i*>(to + i + 48), d);
    }
    std::memcpy(to + i, from + i, n - i);
}

} // namespace

void StreamRows(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
                std::size_t rowBytes, std::int64_t rows) noexcept
{
    for (std::int64_t row = 0; row < rows; ++row) {
        StreamRow(from, to, rowBytes);
        from += fromPitch;
        to += toPitch;
    }
    // Streaming stores are weakly ordered: make them visible before anything
    // the caller writes next.
    _mm_sfence();
}

#else

void StreamRows(unsigned char const* from, std::int64_t fromPitch, unsigned char* to, std::int64_t toPitch,
                std::size_t rowBytes, std::int64_t rows) noexcept
{
    CopyRows(from, fromPitch, to, toPitch, rowBytes, rows);
}

#endif

} // namespace Zorvan::Rendering::detail
