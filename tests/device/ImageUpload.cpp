#include "ImageTestHelpers.h"

#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

namespace Zorvan::Rendering::TestSupport {
namespace {

using Testing::Op;
using Bytes = std::vector<unsigned char>;

class ImageUpload : public DeviceTest {};

Bytes Pattern(std::size_t n, unsigned char first)
{
    Bytes bytes(n);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

template <typename T>
std::vector<T> Packed(std::vector<std::byte> const& bytes)
{
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

// What only a device with a call log and scripting shows.
class ImageUploadRecorded : public ImageUpload {};

TEST_P(ImageUpload, FillsHostWritableFloatImagesDirectly)
{
    ScopedImage image =
        MakeImage(Gpu(), {3, 2, 0}, Format::R32G32B32A32F, ImageUsage::HostRead | ImageUsage::HostWrite);
    std::vector<float> pixels(3 * 2 * 4);
    std::iota(pixels.begin(), pixels.end(), -7.25f);
    if (Recording() != nullptr)
        Recording()->ClearLog();
    FillRgbaTexture(Gpu(), image.Get(), {}, pixels);
    if (Recording() != nullptr) {
        EXPECT_EQ(ImageTraffic(*Recording()), (std::vector<Op>{Op::MapImage, Op::UnmapImage}));
    }
    EXPECT_EQ(GetR32G32B32A32F(Gpu(), image.Get()), pixels);
}

TEST_P(ImageUploadRecorded, StagesOneUploadImageAtTheLevelSize)
{
    ScopedImage image = MakeImage(Gpu(), {5, 3, 0}, Format::R8G8B8A8, ImageUsage::CopyDestination, 2);
    Recording()->ClearLog();
    Bytes const pixels = Pattern(2 * 1 * 4, 9);
    FillRgbaTexture(Gpu(), image.Get(), {1, 0}, pixels);

    EXPECT_EQ(ImageTraffic(*Recording()), (std::vector<Op>{Op::CreateImage, Op::MapImage, Op::UnmapImage,
                                                           Op::CopyImage, Op::DestroyImage}));
    auto const created = Recording()->Calls(Op::CreateImage);
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0]->As<ImageDesc>(), (ImageDesc{{2, 1, 0}, Format::R8G8B8A8, 1, 1, 0x30}));
    Testing::Call const& copy = *Recording()->Calls(Op::CopyImage)[0];
    EXPECT_EQ(copy.handles[0], created[0]->result);
    EXPECT_EQ(copy.handles[1], image.Get().Value());
    EXPECT_EQ(copy.subImages[1], (SubImage{1, 0}));
    EXPECT_EQ(Packed<unsigned char>(Recording()->ReadImage(image.Get(), {1, 0})), pixels);
}

TEST_P(ImageUploadRecorded, CreationFunctionsMakeFilledTexturesOfTheirFormat)
{
    Size const size{3, 2, 0};
    std::vector<float> floats(3 * 2 * 4);
    std::iota(floats.begin(), floats.end(), 0.5f);
    Bytes const bytes = Pattern(3 * 2 * 4, 3);

    struct Case {
        ScopedImage texture;
        Format format;
        std::size_t bytes;
    };
    Case cases[] = {
        {CreateRedTexture(Gpu(), size, floats), Format::R32F, 3 * 2 * 4},
        {CreateRgTexture(Gpu(), size, floats), Format::R32G32F, 3 * 2 * 8},
        {CreateRgbaTexture(Gpu(), size, floats), Format::R32G32B32A32F, 3 * 2 * 16},
        {CreateRgbaTexture(Gpu(), size, bytes), Format::R8G8B8A8, 3 * 2 * 4},
    };
    for (Case const& c : cases) {
        ASSERT_TRUE(c.texture.IsValid());
        EXPECT_EQ(c.texture.GetOwner(), static_cast<IResourceFactory*>(&Gpu()));
        EXPECT_EQ(Recording()->Description(c.texture.Get()), (ImageDesc{size, c.format, 1, 1, 0x41}));
        auto const stored = Recording()->ReadImage(c.texture.Get());
        ASSERT_EQ(stored.size(), c.bytes) << ToString(c.format);
        void const* expected = c.format == Format::R8G8B8A8 ? static_cast<void const*>(bytes.data()) : floats.data();
        EXPECT_EQ(std::memcmp(stored.data(), expected, c.bytes), 0) << ToString(c.format);
    }

    // The bare form hands the id over: the caller releases it.
    ImageId const raw = CreateRawRedTexture(Gpu(), size, floats);
    EXPECT_EQ(Packed<float>(Recording()->ReadImage(raw)), std::vector<float>(floats.begin(), floats.begin() + 6));
    Gpu().DestroyImage(raw);
}

TEST_P(ImageUploadRecorded, TooLittleDataLeavesTheTextureUnfilledSilently)
{
    std::vector<float> const floats(32, 1.0f);
    ScopedImage shortRg = CreateRgTexture(Gpu(), {4, 4, 0}, array_view<float const>(floats.data(), 31));
    EXPECT_TRUE(shortRg.IsValid());
    EXPECT_EQ(Recording()->Count(Op::MapImage), 0u);
    ScopedImage fullRg = CreateRgTexture(Gpu(), {4, 4, 0}, floats);
    EXPECT_EQ(Recording()->Count(Op::MapImage), 1u);
    EXPECT_EQ(Recording()->Count(Op::UnmapImage), 1u);

    Bytes const bytes(16, 7);
    ScopedImage shortRgba = CreateRgbaTexture(Gpu(), {2, 2, 0}, array_view<unsigned char const>(bytes.data(), 15));
    EXPECT_EQ(Recording()->Count(Op::MapImage), 1u);
    // Depth is not part of the count: a view of 2 x 2 pixels passes for a
    // 2 x 2 x 3 texture, and the upload then reads all three slices.
    Bytes const slices = Pattern(2 * 2 * 3 * 4, 1);
    ScopedImage deep = CreateRgbaTexture(Gpu(), {2, 2, 3}, array_view<unsigned char const>(slices.data(), 16));
    EXPECT_EQ(Recording()->Count(Op::MapImage), 2u);
    EXPECT_EQ(Packed<unsigned char>(Recording()->ReadImage(deep.Get())), slices);
}

TEST_P(ImageUploadRecorded, PaddedAndBottomUpMapsRoundTrip)
{
    Recording()->SetRowPitchPadding(12);
    Recording()->SetNegativeRowPitch(true);
    ScopedImage image = MakeImage(Gpu(), {3, 4, 0}, Format::R8G8B8A8, ImageUsage::CopySource |
                                                                           ImageUsage::CopyDestination |
                                                                           ImageUsage::HostWrite);
    Bytes const pixels = Pattern(3 * 4 * 4, 40);
    FillRgbaTexture(Gpu(), image.Get(), {}, pixels);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), image.Get()), pixels);
}

TEST_P(ImageUploadRecorded, DeviceFailuresLeaveNothingBehind)
{
    std::vector<float> const floats(4 * 4 * 2, 0.25f);
    ExpectCleanUnderFaults([](Testing::RecordingGpu&) { return 0; },
                           [&](Testing::RecordingGpu& gpu, int) { ScopedImage t = CreateRgTexture(gpu, {4, 4, 0}, floats); });
    ExpectCleanUnderFaults([](Testing::RecordingGpu&) { return 0; }, [&](Testing::RecordingGpu& gpu, int) {
        ImageId const raw = CreateRawRgTexture(gpu, {4, 4, 0}, floats);
        gpu.DestroyImage(raw);
    });
    Bytes const bytes = Pattern(2 * 2 * 4, 1);
    ExpectCleanUnderFaults(
        [](Testing::RecordingGpu& gpu) {
            return ScopedImage(&gpu, gpu.CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 2, ImageUsage::CopyDestination}));
        },
        [&](Testing::RecordingGpu& gpu, ScopedImage& image) { FillRgbaTexture(gpu, image.Get(), {1, 0}, bytes); });
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageUpload, DeviceCapability::None);
INSTANTIATE_DEVICE_TEST_SUITE(ImageUploadRecorded, DeviceCapability::CallLog);

} // namespace Zorvan::Rendering::TestSupport
