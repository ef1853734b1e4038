#include "ImageTestHelpers.h"

#include <cstddef>
#include <functional>
#include <numeric>
#include <type_traits>
#include <vector>

namespace Zorvan::Rendering::TestSupport {
namespace {

using Testing::Op;
using Bytes = std::vector<unsigned char>;

class ImageReadback : public DeviceTest {};

constexpr std::uint32_t HostReadWrite = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t ViaCopies = ImageUsage::HostWrite | ImageUsage::CopySource;

std::vector<float> Ramp(std::size_t n, float first)
{
    std::vector<float> values(n);
    std::iota(values.begin(), values.end(), first);
    return values;
}

// What only a device with a call log and scripting shows.
class ImageReadbackRecorded : public ImageReadback {};

TEST_P(ImageReadback, ViewFormsCheckTheirSizeBeforeTouchingTheImage)
{
    ScopedImage image = MakeImage(Gpu(), {4, 3, 0}, Format::R32F, HostReadWrite);
    std::vector<float> const values = Ramp(12, 1.0f);
    WriteLevel(Gpu(), image.Get(), {}, values);
    if (Recording() != nullptr)
        Recording()->ClearLog();

    std::vector<float> out(12, -1.0f);
    EXPECT_FALSE(GetR32F(Gpu(), image.Get(), array_view<float>(out.data(), 11)));
    EXPECT_EQ(out, std::vector<float>(12, -1.0f));
    if (Recording() != nullptr) {
        EXPECT_EQ(Recording()->Ops(), (std::vector<Op>{Op::GetImageDescription}));
    }
    EXPECT_TRUE(GetR32F(Gpu(), image.Get(), out));
    EXPECT_EQ(out, values);
}

// Every entry point asks for the description once and passes it down, so a
// direct read is one description, one map, one unmap.
TEST_P(ImageReadbackRecorded, EveryEntryPointReadsTheDescriptionOnce)
{
    ScopedImage image = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostReadWrite);
    ImageId const id = image.Get();
    std::vector<float> floats(16);
    Bytes bytes(16);
    std::vector<std::function<void()>> reads{
        [&] { GetBytes(Gpu(), id, {}, bytes.data(), 8); },
        [&] { GetBytes(Gpu(), id, {}, 8); },
        [&] { GetR8G8B8A8(Gpu(), id, SubImage{}, bytes.data(), 8); },
        [&] { ReadAsDoubles(Gpu(), id, false, {}); },
    };
    // The four overloads of a family: vector and array forms, with and without a sub-image.
    auto const family = [&](auto get, auto& out) {
        using Element = typename std::remove_reference_t<decltype(out)>::value_type;
        reads.push_back([&, get] { get(Gpu(), id); });
        reads.push_back([&, get] { get(Gpu(), id, SubImage{}); });
        reads.push_back([&, get] { get(Gpu(), id, array_view<Element>(out)); });
        reads.push_back([&, get] { get(Gpu(), id, array_view<Element>(out), SubImage{}); });
    };
    family([](auto&&... a) { return GetR32F(a...); }, floats);
    family([](auto&&... a) { return GetR32G32F(a...); }, floats);
    family([](auto&&... a) { return GetR32G32B32A32F(a...); }, floats);
    family([](auto&&... a) { return GetR8G8B8A8(a...); }, bytes);
    for (std::size_t i = 0; i < reads.size(); ++i) {
        Recording()->ClearLog();
        reads[i]();
        EXPECT_EQ(Recording()->Ops(), (std::vector<Op>{Op::GetImageDescription, Op::MapImage, Op::UnmapImage}))
            << "entry point " << i << "\n"
            << Recording()->Dump();
    }
}

TEST_P(ImageReadbackRecorded, MultisampledImagesAreResolvedThenCopied)
{
    ScopedImage image = MakeImage(Gpu(), {4, 2, 0}, Format::R32F, ImageUsage::Resolvable | ImageUsage::RenderTarget, 1, 4);
    std::vector<float> const values = Ramp(8, 3.0f);
    Recording()->WriteImage(image.Get(), {}, std::as_bytes(std::span(values)));
    Recording()->ClearLog();

    EXPECT_EQ(GetR32F(Gpu(), image.Get()), values);
    EXPECT_EQ(ImageTraffic(*Recording()),
              (std::vector<Op>{Op::CreateImage, Op::ResolveImage, Op::CreateImage, Op::CopyImage, Op::MapImage,
                               Op::UnmapImage, Op::DestroyImage, Op::DestroyImage}));
    auto const created = Recording()->Calls(Op::CreateImage);
    EXPECT_EQ(created[0]->As<ImageDesc>(), (ImageDesc{{4, 2, 0}, Format::R32F, 1, 1, 0x120}));
    EXPECT_EQ(created[1]->As<ImageDesc>(), (ImageDesc{{4, 2, 0}, Format::R32F, 1, 1, 0x48}));

    ScopedImage unresolvable = MakeImage(Gpu(), {4, 2, 0}, Format::R32F, ImageUsage::CopySource | ImageUsage::HostRead, 1, 4);
    Recording()->ClearLog();
    EXPECT_TRUE(GetR32F(Gpu(), unresolvable.Get()).empty());
    EXPECT_EQ(Recording()->Count(Op::CreateImage), 0u);
}

TEST_P(ImageReadbackRecorded, DeviceFailuresLeaveNothingBehind)
{
    auto multisampled = [](Testing::RecordingGpu& gpu) {
        return ScopedImage(&gpu, gpu.CreateImage({{4, 2, 0}, Format::B8G8R8A8, 4, 1, ImageUsage::Resolvable}));
    };
    ExpectCleanUnderFaults(multisampled, [](Testing::RecordingGpu& gpu, ScopedImage& image) {
        std::vector<unsigned char> const bytes = GetR8G8B8A8(gpu, image.Get());
        EXPECT_TRUE(bytes.size() == 4 * 2 * 4 || bytes.empty());
    });
    auto copied = [](Testing::RecordingGpu& gpu) {
        return ScopedImage(&gpu, gpu.CreateImage({{4, 2, 0}, Format::R32F, 1, 1, ImageUsage::CopySource}));
    };
    ExpectCleanUnderFaults(copied, [](Testing::RecordingGpu& gpu, ScopedImage& image) {
        std::vector<float> out(8);
        (void)GetR32F(gpu, image.Get(), out);
    });
}

TEST_P(ImageReadbackRecorded, FailedMapReportsFalse)
{
    ScopedImage image = MakeImage(Gpu(), {2, 2, 0}, Format::R32F, HostReadWrite);
    Recording()->InjectFault(Op::MapImage, 0, Testing::FaultKind::NullMap);
    std::vector<float> out(4, -1.0f);
    EXPECT_FALSE(GetR32F(Gpu(), image.Get(), out));
    EXPECT_EQ(out, std::vector<float>(4, -1.0f));
    EXPECT_EQ(Recording()->Count(Op::UnmapImage), 1u) << "unmapped after the failed map too";
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageReadback, DeviceCapability::None);
INSTANTIATE_DEVICE_TEST_SUITE(ImageReadbackRecorded, DeviceCapability::CallLog);

} // namespace Zorvan::Rendering::TestSupport
