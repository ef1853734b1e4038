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

TEST_P(ImageReadback, FloatFamiliesReadTheirLevel)
{
    ScopedImage rg = MakeImage(Gpu(), {3, 2, 0}, Format::R32G32F, ViaCopies, 2);
    std::vector<float> const level1 = {-1.5f, 2.25f};
    WriteLevel(Gpu(), rg.Get(), {1, 0}, level1);
    EXPECT_EQ(GetR32G32F(Gpu(), rg.Get(), SubImage{1, 0}), level1);

    ScopedImage rgba = MakeImage(Gpu(), {2, 2, 0}, Format::R32G32B32A32F, HostReadWrite);
    std::vector<float> const pixels = Ramp(16, -3.0f);
    WriteLevel(Gpu(), rgba.Get(), {}, pixels);
    EXPECT_EQ(GetR32G32B32A32F(Gpu(), rgba.Get()), pixels);
    std::vector<float> tooSmall(15);
    EXPECT_FALSE(GetR32G32B32A32F(Gpu(), rgba.Get(), tooSmall));
}

TEST_P(ImageReadback, MipLevelsAndSlicesAreChecked)
{
    ScopedImage three = MakeImage(Gpu(), {5, 5, 0}, Format::R32F, HostReadWrite, 3);
    WriteLevel(Gpu(), three.Get(), {2, 0}, std::vector<float>{42.0f});
    EXPECT_EQ(GetR32F(Gpu(), three.Get(), SubImage{2, 0}), std::vector<float>{42.0f});
    EXPECT_TRUE(GetR32F(Gpu(), three.Get(), SubImage{3, 0}).empty());
    EXPECT_TRUE(GetR32F(Gpu(), three.Get(), SubImage{0, 1}).empty());

    // mipLevels 0: the limit is the full chain, 3 levels for 5 x 5.
    ScopedImage full = MakeImage(Gpu(), {5, 5, 0}, Format::R32F, HostReadWrite, 0);
    WriteLevel(Gpu(), full.Get(), {2, 0}, std::vector<float>{7.0f});
    EXPECT_EQ(GetR32F(Gpu(), full.Get(), SubImage{2, 0}), std::vector<float>{7.0f});
    float dummy = 0.0f;
    EXPECT_FALSE(GetBytes(Gpu(), full.Get(), {3, 0}, &dummy, 4));

    ScopedImage cube = MakeImage(Gpu(), {2, 2, 0}, Format::R32F, HostReadWrite | ImageUsage::CubeMap);
    WriteLevel(Gpu(), cube.Get(), {0, 5}, std::vector<float>{1, 2, 3, 4});
    EXPECT_EQ(GetR32F(Gpu(), cube.Get(), SubImage{0, 5}), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(GetR32F(Gpu(), cube.Get(), SubImage{0, 6}).empty());
}

TEST_P(ImageReadback, Rgba8SwizzlesBlueFirstFormatsAndRejectsOthers)
{
    Bytes const stored = {10, 20, 30, 40, 11, 21, 31, 41};
    ScopedImage bgrx = MakeImage(Gpu(), {2, 1, 0}, Format::B8G8R8X8, HostReadWrite);
    ScopedImage bgra = MakeImage(Gpu(), {2, 1, 0}, Format::B8G8R8A8, ViaCopies);
    ScopedImage rgba = MakeImage(Gpu(), {2, 1, 0}, Format::R8G8B8A8, HostReadWrite);
    ScopedImage rgbaU = MakeImage(Gpu(), {2, 1, 0}, Format::R8G8B8A8U, HostReadWrite);
    for (ImageId image : {bgrx.Get(), bgra.Get(), rgba.Get(), rgbaU.Get()})
        WriteLevel(Gpu(), image, {}, stored);

    EXPECT_EQ(GetR8G8B8A8(Gpu(), bgrx.Get()), (Bytes{30, 20, 10, 255, 31, 21, 11, 255}));
    EXPECT_EQ(GetR8G8B8A8(Gpu(), bgra.Get()), (Bytes{30, 20, 10, 40, 31, 21, 11, 41}));
    EXPECT_EQ(GetR8G8B8A8(Gpu(), rgba.Get()), stored);
    EXPECT_TRUE(GetR8G8B8A8(Gpu(), rgbaU.Get()).empty());
}

TEST_P(ImageReadback, OneDimensionalImagesReadNothingSuccessfully)
{
    ScopedImage line = MakeImage(Gpu(), {4, 0, 0}, Format::R32F, HostReadWrite);
    std::vector<float> out;
    EXPECT_TRUE(GetR32F(Gpu(), line.Get(), out));
    EXPECT_TRUE(GetBytes(Gpu(), line.Get(), {}, 16).empty()) << "sized by level 0's height, which is 0";
}

TEST_P(ImageReadback, ByteFormsUseTheCallersPitch)
{
    ScopedImage image = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, HostReadWrite, 2);
    Bytes level1(2 * 2 * 4);
    std::iota(level1.begin(), level1.end(), 100);
    WriteLevel(Gpu(), image.Get(), {1, 0}, level1);

    // The vector has level 0's height (4) rows of the pitch; level 1 fills 2.
    Bytes const bytes = GetBytes(Gpu(), image.Get(), {1, 0}, 12);
    ASSERT_EQ(bytes.size(), 4u * 12u);
    for (std::size_t row = 0; row < 4; ++row)
        for (std::size_t i = 0; i < 12; ++i) {
            unsigned char const expected = row < 2 && i < 8 ? level1[row * 8 + i] : 0;
            EXPECT_EQ(bytes[row * 12 + i], expected) << row << ',' << i;
        }

    // A pitch shorter than the row keeps only its first bytes of each row.
    Bytes narrow(2 * 4, 0xEE);
    EXPECT_TRUE(GetBytes(Gpu(), image.Get(), {1, 0}, narrow.data(), 4));
    EXPECT_EQ(narrow, (Bytes{100, 101, 102, 103, 108, 109, 110, 111}));

    // Failures write nothing and still give the vector.
    EXPECT_EQ(GetBytes(Gpu(), image.Get(), {2, 0}, 12), Bytes(4 * 12, 0));
}

TEST_P(ImageReadback, UnreadableImagesAreRefused)
{
    ScopedImage hidden = MakeImage(Gpu(), {2, 2, 0}, Format::R32F, ImageUsage::ShaderResource | ImageUsage::HostWrite);
    EXPECT_TRUE(GetR32F(Gpu(), hidden.Get()).empty());
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
