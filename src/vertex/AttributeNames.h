#pragma once

// Semantic names are C strings that callers usually share by pointer; when
// the pointers differ, only the first 200 characters decide, so two names
// that agree that far are the same name (deliberately).

#include <Rendering/Vertex.h>

#include <cstddef>
#include <cstring>

namespace Zorvan::Rendering::detail {

inline constexpr std::size_t NameCompareLength = AttributeNameLength;

// Same pointer, or both non-null and equal in their first 200 characters:
// the rule AttributeDesc's equality uses too.
inline bool SameName(char const* a, char const* b) noexcept { return SameAttributeName(a, b); }

// Three-way order: same pointer equal, null before non-null, else bounded
// character comparison.
inline int CompareNames(char const* a, char const* b) noexcept
{
    if (a == b)
        return 0;
    if (a == nullptr)
        return -1;
    if (b == nullptr)
        return 1;
    return std::strncmp(a, b, NameCompareLength);
}

} // namespace Zorvan::Rendering::detail
