#include "ImageTestHelpers.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <vector>

namespace Zorvan::Rendering::TestSupport {
namespace {

using Testing::Op;

class ImageDoubles : public DeviceTest {};

// ReadAsDoubles by value on every device is in the conformance kit
// (devices/conformance/src/suites/Doubles.cpp).

constexpr std::uint32_t HostReadWrite = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t ViaCopies = ImageUsage::HostWrite | ImageUsage::CopySource;

// What only a device with a call log and scripting shows.
class ImageDoublesRecorded : public ImageDoubles {};

TEST_P(ImageDoublesRecorded, StagesALevelSizedReadbackOfAllSlices)
{
    Recording()->SetRowPitchPadding(8);
    Recording()->SetNegativeRowPitch(true);
    ScopedImage volume = MakeImage(Gpu(), {6, 4, 4}, Format::R16, ViaCopies, 2);
    std::vector<std::uint16_t> level1(3 * 2 * 2);
    for (std::size_t i = 0; i < level1.size(); ++i)
        level1[i] = static_cast<std::uint16_t>(1000 * i);
    WriteLevel(Gpu(), volume.Get(), {1, 0}, level1);
    Recording()->ClearLog();

    std::vector<double> expected;
    for (std::uint16_t v : level1)
        expected.push_back(v / 65535.0);
    EXPECT_EQ(ReadAsDoubles(Gpu(), volume.Get(), false, {1, 0}), expected);
    auto const created = Recording()->Calls(Op::CreateImage);
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0]->As<ImageDesc>(), (ImageDesc{{3, 2, 2}, Format::R16, 1, 1, 0x48}));
}

TEST_P(ImageDoublesRecorded, EveryHalfThroughPaddedBottomUpRowsMatchesHalf2Float)
{
    Recording()->SetRowPitchPadding(6);
    Recording()->SetNegativeRowPitch(true);
    ScopedImage image = MakeImage(Gpu(), {256, 256, 0}, Format::R16F, HostReadWrite);
    std::vector<std::uint16_t> halves(0x10000);
    for (std::size_t i = 0; i < halves.size(); ++i)
        halves[i] = static_cast<std::uint16_t>(i * 40503u); // odd multiplier: every value once, scattered
    WriteLevel(Gpu(), image.Get(), {}, halves);

    std::vector<double> const values = ReadAsDoubles(Gpu(), image.Get(), true, {});
    ASSERT_EQ(values.size(), halves.size());
    for (std::size_t i = 0; i < halves.size(); ++i)
        ASSERT_EQ(std::bit_cast<std::uint64_t>(values[i]),
                  std::bit_cast<std::uint64_t>(static_cast<double>(half2float(halves[i]))))
            << std::hex << halves[i];
}

TEST_P(ImageDoublesRecorded, DeviceFailuresLeaveNothingBehind)
{
    ExpectCleanUnderFaults(
        [](Testing::RecordingGpu& gpu) {
            return ScopedImage(&gpu, gpu.CreateImage({{3, 2, 0}, Format::R16G16B16A16F, 2, 1, ImageUsage::Resolvable}));
        },
        [](Testing::RecordingGpu& gpu, ScopedImage& image) {
            std::vector<double> const values = ReadAsDoubles(gpu, image.Get(), false, {});
            EXPECT_TRUE(values.size() == 3 * 2 * 4 || values.empty());
        });
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageDoublesRecorded, DeviceCapability::CallLog);

} // namespace Zorvan::Rendering::TestSupport
