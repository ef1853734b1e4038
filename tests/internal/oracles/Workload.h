#pragma once

// How much of a differential sweep to run. Release builds run all of it;
// sanitized builds run many times slower and take every n-th case, unless
// ZGU_FULL_DIFFERENTIAL=1 asks for everything anyway.

#include <cstdlib>

namespace Oracles {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool Sanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool Sanitized = true;
#else
inline constexpr bool Sanitized = false;
#endif
#else
inline constexpr bool Sanitized = false;
#endif

// 1 in release builds (or when asked for the full sweep), else stride.
inline unsigned SweepStride(unsigned stride)
{
    char const* full = std::getenv("ZGU_FULL_DIFFERENTIAL");
    return Sanitized && !(full != nullptr && full[0] == '1') ? stride : 1;
}

} // namespace Oracles
