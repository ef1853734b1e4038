// Mip arithmetic of the recording device, kept private so that the device
// does not depend on the library's image code it is used to test.

#include "DeviceState.h"

#include <algorithm>
#include <bit>

namespace Zorvan::Rendering::Testing::Recording {

std::uint32_t FullChainLength(Size const& size) noexcept
{
    std::uint32_t const m = std::max({size.width, size.height, size.depth});
    // floor(log2(m)) + 1, and 1 for an empty size.
    return m == 0 ? 1u : static_cast<std::uint32_t>(std::bit_width(m));
}

Size LevelSize(Size const& size, std::uint32_t level) noexcept
{
    unsigned const shift = level % 32;
    auto half = [shift](std::uint32_t v) { return std::max(v >> shift, 1u); };
    if (size.width == 0)
        return {};
    if (size.height == 0)
        return {half(size.width), 0, 0};
    if (size.depth == 0)
        return {half(size.width), half(size.height), 0};
    return {half(size.width), half(size.height), half(size.depth)};
}

Extent ImageResource::LevelExtent(std::uint32_t level) const noexcept
{
    Size const s = LevelSize(description.size, level);
    return {s.width, std::max(s.height, 1u), std::max(s.depth, 1u)};
}

} // namespace Zorvan::Rendering::Testing::Recording
