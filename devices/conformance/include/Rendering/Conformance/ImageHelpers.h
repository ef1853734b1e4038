#pragma once

// Helpers for device suites: images made with explicit flags, whole levels
// written and read through the device's own maps at the pitches it hands
// out, and levels read through the library's readback.

#include <Rendering/Device.h>
#include <Rendering/Image.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering::Conformance {

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;
using ScopedTarget = ScopedResource<RtvId, IResourceFactory>;

// A new image of one sample per pixel unless asked; a failure to create it
// fails the test (the image is then empty).
inline ScopedImage MakeImage(IResourceFactory& factory, Size size, Format format, std::uint32_t flags,
                             std::uint32_t mipLevels = 1, std::uint32_t samples = 1)
{
    ScopedImage image(&factory, factory.CreateImage(ImageDesc{size, format, samples, mipLevels, flags}));
    EXPECT_TRUE(image.IsValid()) << "the device could not create a " << size.width << 'x' << size.height << 'x'
                                 << size.depth << ' ' << ToString(format) << " image";
    return image;
}

// Tightly packed bytes of one sub-image: every row of every depth slice.
inline std::size_t LevelBytes(ImageDesc const& description, std::uint32_t mipLevel)
{
    Size const level = CalculateMipLevelSize(description.size, mipLevel);
    return std::size_t{GetSize(description.format)} * level.width * (level.height > 0 ? level.height : 1) *
           (level.depth > 0 ? level.depth : 1);
}

// Writes a tightly packed sub-image (all depth slices) through a write map;
// the image needs HostWrite.
template <typename T>
void WriteLevel(IResourceFactory& factory, ImageId image, SubImage where, std::vector<T> const& values)
{
    ImageDesc const description = factory.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::int64_t const rows = level.height > 0 ? level.height : 1;
    std::int64_t const slices = level.depth > 0 ? level.depth : 1;
    std::int64_t const rowBytes = std::int64_t{GetSize(description.format)} * level.width;
    ASSERT_EQ(values.size() * sizeof(T), LevelBytes(description, where.mipLevel)) << "values for a whole level";
    MappedImage const mapped = factory.MapImage(image, where, MapMode::Write);
    if (mapped.data != nullptr)
        CopyImageBuffer(values.data(), rowBytes, rowBytes * rows, mapped.data, mapped.rowPitch, mapped.slicePitch,
                        level.width, rows, slices);
    factory.UnmapImage(image, where);
    ASSERT_NE(mapped.data, nullptr) << "the write map failed";
}

// Reads a sub-image (all depth slices) tightly packed through a read map;
// the image needs HostRead. Empty when the map fails.
template <typename T>
std::vector<T> ReadMapped(IResourceFactory& factory, ImageId image, SubImage where = {})
{
    ImageDesc const description = factory.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::int64_t const rows = level.height > 0 ? level.height : 1;
    std::int64_t const slices = level.depth > 0 ? level.depth : 1;
    std::int64_t const rowBytes = std::int64_t{GetSize(description.format)} * level.width;
    std::vector<T> values(LevelBytes(description, where.mipLevel) / sizeof(T));
    MappedImage const mapped = factory.MapImage(image, where, MapMode::Read);
    if (mapped.data != nullptr)
        CopyImageBuffer(mapped.data, mapped.rowPitch, mapped.slicePitch, values.data(), rowBytes, rowBytes * rows,
                        level.width, rows, slices);
    factory.UnmapImage(image, where);
    if (mapped.data == nullptr)
        values.clear();
    return values;
}

// Reads one 2D level tightly packed through the library's readback (any
// readable image: resolved, copied or mapped as its flags allow).
template <typename T>
std::vector<T> ReadPixels(IResourceFactory& factory, ImageId image, SubImage where = {})
{
    ImageDesc const description = factory.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::size_t const rows = level.height == 0 ? 1 : level.height;
    std::size_t const rowBytes = std::size_t{GetSize(description.format)} * level.width;
    std::vector<T> values(rowBytes * rows / sizeof(T));
    EXPECT_TRUE(GetBytes(factory, image, where, values.data(), static_cast<std::int64_t>(rowBytes)))
        << "the library could not read the image back";
    return values;
}

} // namespace Zorvan::Rendering::Conformance
