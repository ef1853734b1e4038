// Black-box tests of the recording test device.

#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::Testing;

namespace {

std::vector<std::byte> Ramp(std::size_t n, unsigned start = 1)
{
    std::vector<std::byte> bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::byte>(start + i);
    return bytes;
}

ImageDesc Image2D(std::uint32_t w, std::uint32_t h, std::uint32_t flags, Format format = Format::R8G8B8A8)
{
    return {{w, h, 0}, format, 1, 1, flags};
}

} // namespace

TEST(RecordingGpu, WriteMapRoundTripsThroughStorage)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Image2D(3, 2, ImageUsage::HostWrite | ImageUsage::HostRead));
    auto const pixels = Ramp(3 * 2 * 4);
    MappedImage map = gpu.MapImage(image, {}, MapMode::Write);
    ASSERT_NE(map.data, nullptr);
    for (int y = 0; y < 2; ++y)
        std::memcpy(static_cast<std::byte*>(map.data) + y * map.rowPitch, pixels.data() + y * 12, 12);
    gpu.UnmapImage(image, {});
    EXPECT_EQ(gpu.ReadImage(image), pixels);
    gpu.DestroyImage(image);
    EXPECT_EQ(gpu.Problems(), "") << gpu.Dump();
}
