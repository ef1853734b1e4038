#pragma once

// Helpers for suites that check real pixels: images with explicit flags,
// tightly packed level writes through the device's map and level reads
// through the library's readback.

#include "DeviceTestSupport.h"

#include <Rendering/Image.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

namespace Zorvan::Rendering::TestSupport {

using PixelImage = ScopedResource<ImageId, IResourceFactory>;
using PixelView = ScopedResource<RtvId, IResourceFactory>;

inline PixelImage MakePixelImage(IGpu& gpu, Size size, Format format, std::uint32_t flags, std::uint32_t mipLevels = 1,
                                 std::uint32_t samples = 1)
{
    PixelImage image(&gpu, gpu.CreateImage(ImageDesc{size, format, samples, mipLevels, flags}));
    EXPECT_TRUE(image.IsValid()) << "no " << ToString(format) << " image";
    return image;
}

// Writes one 2D level from tightly packed values; the image needs host write.
template <typename T>
void WritePixels(IGpu& gpu, ImageId image, SubImage where, std::vector<T> const& values)
{
    ImageDesc const description = gpu.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::uint32_t const rows = level.height == 0 ? 1 : level.height;
    std::size_t const rowBytes = std::size_t{GetSize(description.format)} * level.width;
    ASSERT_EQ(values.size() * sizeof(T), rowBytes * rows);
    MappedImage const mapped = gpu.MapImage(image, where, MapMode::Write);
    if (mapped.data != nullptr)
        for (std::uint32_t y = 0; y < rows; ++y)
            std::memcpy(static_cast<unsigned char*>(mapped.data) + std::int64_t{mapped.rowPitch} * y,
                        reinterpret_cast<unsigned char const*>(values.data()) + rowBytes * y, rowBytes);
    gpu.UnmapImage(image, where);
    ASSERT_NE(mapped.data, nullptr);
}

// Reads one 2D level as tightly packed values through the library's readback.
template <typename T>
std::vector<T> ReadPixels(IGpu& gpu, ImageId image, SubImage where = {})
{
    ImageDesc const description = gpu.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::uint32_t const rows = level.height == 0 ? 1 : level.height;
    std::size_t const rowBytes = std::size_t{GetSize(description.format)} * level.width;
    std::vector<T> values(rowBytes * rows / sizeof(T));
    EXPECT_TRUE(GetBytes(gpu, image, where, values.data(), static_cast<std::int64_t>(rowBytes)));
    return values;
}

} // namespace Zorvan::Rendering::TestSupport
