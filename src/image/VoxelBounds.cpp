#include <Rendering/Image.h>

#include <cstdint>

namespace Zorvan::Rendering {

Math::boundingbox<float, 3> SampleBounds2VoxelBounds(std::uint64_t countX, std::uint64_t countY,
                                                     std::uint64_t countZ,
                                                     Math::boundingbox<float, 3> const& sampleBounds)
{
    std::uint64_t const counts[3] = {countX, countY, countZ};
    Math::boundingbox<float, 3> result{};
    for (int axis = 0; axis < 3; ++axis) {
        double low = sampleBounds.minimum[axis];
        double high = sampleBounds.maximum[axis];
        if (counts[axis] > 1) {
            // Half a voxel: the span covers count - 1 voxel widths.
            double const half = (high - low) / static_cast<double>(2 * counts[axis] - 2);
            low -= half;
            high += half;
        }
        auto const a = static_cast<float>(low);
        auto const b = static_cast<float>(high);
        // An inverted box comes out ordered.
        result.minimum[axis] = a > b ? b : a;
        result.maximum[axis] = b > a ? b : a;
    }
    return result;
}

} // namespace Zorvan::Rendering
