#include <Rendering/Image.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace Zorvan::Rendering {

unsigned int CalculateFullMipChainCount(Size const& size)
{
    std::uint32_t const largest = std::max({size.width, size.height, size.depth});
    // log2(0) is minus infinity, whose truncation has zero low bits: one level.
    if (largest == 0)
        return 1;
    // Truncating the double logarithm, not counting bits, is the rule callers
    // have always seen; for 32-bit extents both agree.
    return static_cast<unsigned int>(static_cast<std::int64_t>(std::log2(static_cast<double>(largest)))) + 1;
}

Size CalculateMipLevelSize(Size const& size, unsigned int level)
{
    unsigned int const shift = level % 32;
    auto const halve = [shift](std::uint32_t extent) { return std::max<std::uint32_t>(extent >> shift, 1); };
    if (size.width == 0)
        return {0, 0, 0};
    if (size.height == 0)
        return {halve(size.width), 0, 0};
    if (size.depth == 0)
        return {halve(size.width), halve(size.height), 0};
    return {halve(size.width), halve(size.height), halve(size.depth)};
}

bool IsValidImageDescription(ImageDesc const& description)
{
    Size const& size = description.size;
    if ((description.flags & ImageUsage::CubeMap) != 0)
        return size.width != 0 && size.height != 0 && size.depth == 0 && size.width == size.height;
    if (size.width == 0 || size.height == 0)
        return true;
    if (size.depth != 0)
        return description.sampleCount == 1;
    return true;
}

} // namespace Zorvan::Rendering
