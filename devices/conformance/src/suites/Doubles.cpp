// ReadAsDoubles over the device: one format of every group, normalized and
// raw, through maps and through copies; formats without colour and
// unreadable images give nothing; a 3D level gives every depth slice.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

constexpr std::uint32_t HostReadWrite = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t ViaCopies = ImageUsage::HostWrite | ImageUsage::CopySource;

template <typename T>
std::vector<unsigned char> Stored(std::vector<T> const& values)
{
    std::vector<unsigned char> bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

struct GroupCase {
    Format format;
    std::uint32_t width; // pixels in one row
    std::vector<unsigned char> stored;
    std::vector<double> normalized;
    std::vector<double> raw;
};

std::vector<GroupCase> OneFormatPerGroup()
{
    return {
        {Format::R8G8B8A8, 1, {255, 0, 128, 64}, {1.0, 0.0, 128 / 255.0, 64 / 255.0}, {255, 0, 128, 64}},
        // Blue-first formats report their channels in memory order.
        {Format::B8G8R8X8, 1, {10, 20, 30, 40}, {10 / 255.0, 20 / 255.0, 30 / 255.0, 40 / 255.0}, {10, 20, 30, 40}},
        {Format::R16G16, 1, Stored<std::uint16_t>({65535, 1}), {1.0, 1 / 65535.0}, {65535, 1}},
        {Format::R8G8B8A8SN, 1, Stored<std::int8_t>({-128, 127, -64, 0}), {-1.0, 1.0, -64 / 127.0, 0.0},
         {-128, 127, -64, 0}},
        {Format::R16SN, 2, Stored<std::int16_t>({-32768, -32767}), {-1.0, -1.0}, {-32768, -32767}},
        {Format::R8U, 4, {200, 0, 1, 255}, {200, 0, 1, 255}, {200, 0, 1, 255}},
        {Format::R16G16U, 1, Stored<std::uint16_t>({60000, 7}), {60000, 7}, {60000, 7}},
        {Format::R32U, 1, Stored<std::uint32_t>({4000000000u}), {4000000000.0}, {4000000000.0}},
        {Format::R8G8I, 2, Stored<std::int8_t>({-5, 5, -128, 127}), {-5, 5, -128, 127}, {-5, 5, -128, 127}},
        {Format::R16I, 1, Stored<std::int16_t>({-30000}), {-30000}, {-30000}},
        {Format::R32G32I, 1, Stored<std::int32_t>({-2000000000, 3}), {-2000000000.0, 3}, {-2000000000.0, 3}},
        {Format::R16G16F, 1, Stored<std::uint16_t>({0x3C00, 0xC000}), {1.0, -2.0}, {1.0, -2.0}},
        {Format::R32F, 2, Stored<float>({0.1f, -3.5f}), {double{0.1f}, -3.5}, {double{0.1f}, -3.5}},
    };
}

class ImageDoubles : public DeviceTest {};
class ImageDoublesVolumes : public DeviceTest {};

TEST_P(ImageDoubles, OneFormatOfEveryGroup)
{
    for (GroupCase const& c : OneFormatPerGroup()) {
        SCOPED_TRACE(ToString(c.format));
        // Alternate the direct and the copying read path.
        std::uint32_t const flags = static_cast<std::uint32_t>(c.format) % 2 == 0 ? HostReadWrite : ViaCopies;
        ScopedImage image = MakeImage(Gpu(), {c.width, 1, 0}, c.format, flags);
        WriteLevel(Gpu(), image.Get(), {}, c.stored);
        EXPECT_EQ(ReadAsDoubles(Gpu(), image.Get(), false, {}), c.normalized);
        EXPECT_EQ(ReadAsDoubles(Gpu(), image.Get(), true, {}), c.raw);
    }
}

// Every byte value of both 8-bit normalized kinds against the division the
// conversion is defined by, bit for bit, the signed ones clamped at -1.
TEST_P(ImageDoubles, EveryByteOfTheNormalizedFormatsIsTheExactQuotient)
{
    std::vector<unsigned char> bytes(256);
    for (std::size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 167u); // odd multiplier: every value once, scattered
    for (Format const format : {Format::R8G8B8A8, Format::R8G8B8A8SN}) {
        SCOPED_TRACE(static_cast<int>(format));
        ScopedImage image = MakeImage(Gpu(), {64, 1, 0}, format, HostReadWrite);
        WriteLevel(Gpu(), image.Get(), {}, bytes);
        std::vector<double> const values = ReadAsDoubles(Gpu(), image.Get(), false, {});
        ASSERT_EQ(values.size(), bytes.size());
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            double const expected = format == Format::R8G8B8A8
                                        ? bytes[i] / 255.0
                                        : std::max(static_cast<std::int8_t>(bytes[i]) / 127.0, -1.0);
            ASSERT_EQ(std::bit_cast<std::uint64_t>(values[i]), std::bit_cast<std::uint64_t>(expected)) << i;
        }
    }
}

TEST_P(ImageDoubles, FormatsWithoutColourGiveNothing)
{
    for (Format format : {Format::D32F, Format::D24S8}) {
        ScopedImage depth = MakeImage(Gpu(), {2, 2, 0}, format, ImageUsage::RenderTarget | ImageUsage::CopySource);
        EXPECT_TRUE(ReadAsDoubles(Gpu(), depth.Get(), false, {}).empty()) << ToString(format);
    }
}

TEST_P(ImageDoubles, UnreadableImagesGiveNothing)
{
    ScopedImage hidden = MakeImage(Gpu(), {2, 2, 0}, Format::R8, ImageUsage::ShaderResource | ImageUsage::HostWrite);
    EXPECT_TRUE(ReadAsDoubles(Gpu(), hidden.Get(), true, {}).empty());
}

TEST_P(ImageDoublesVolumes, ReadsEveryDepthSliceOfTheLevel)
{
    ScopedImage volume = MakeImage(Gpu(), {4, 4, 2}, Format::R32G32F, HostReadWrite, 2);
    std::vector<float> level0(4 * 4 * 2 * 2);
    for (std::size_t i = 0; i < level0.size(); ++i)
        level0[i] = static_cast<float>(i) * 0.5f;
    std::vector<float> const level1 = {1, 2, 3, 4, 5, 6, 7, 8};
    WriteLevel(Gpu(), volume.Get(), {0, 0}, level0);
    WriteLevel(Gpu(), volume.Get(), {1, 0}, level1);

    EXPECT_EQ(ReadAsDoubles(Gpu(), volume.Get(), false, {0, 0}), std::vector<double>(level0.begin(), level0.end()));
    EXPECT_EQ(ReadAsDoubles(Gpu(), volume.Get(), true, {1, 0}), std::vector<double>(level1.begin(), level1.end()));
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(ImageDoubles, Capability::None);
INSTANTIATE_CONFORMANCE_SUITE(ImageDoublesVolumes, Capability::VolumeImages);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Doubles)
