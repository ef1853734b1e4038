// Stored extents of the recording device's images.

#include "DeviceState.h"

#include <algorithm>

namespace Zorvan::Rendering::Testing::Recording {

Extent ImageResource::LevelExtent(std::uint32_t level) const noexcept
{
    Size const s = LevelSize(description.size, level);
    return {s.width, std::max(s.height, 1u), std::max(s.depth, 1u)};
}

} // namespace Zorvan::Rendering::Testing::Recording
