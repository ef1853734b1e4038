// Checked upload and whole-level readback: round trips through every path a
// device offers, every slice and face, and the reasons given when a read or
// a fill cannot happen, before any device work.

#include "ImageTestHelpers.h"

#include <Rendering/ShaderOps.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

namespace Zorvan::Rendering::TestSupport {
namespace {

using Testing::Op;
using Bytes = std::vector<unsigned char>;

Bytes Pattern(std::size_t n, unsigned char first)
{
    Bytes bytes(n);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

class ImageLevelAccess : public DeviceTest {};
class ImageLevelAccessRecorded : public ImageLevelAccess {};
class ImageLevelAccessPixels : public ImageLevelAccess {};

TEST_P(ImageLevelAccess, RoundTripsThroughMapsAndThroughCopies)
{
    struct Path {
        std::uint32_t flags;
        char const* what;
    };
    Path const paths[] = {
        {ImageUsage::HostRead | ImageUsage::HostWrite, "maps both ways"},
        {ImageUsage::CopySource | ImageUsage::CopyDestination, "copies both ways"},
        {ImageUsage::ShaderResource | ImageUsage::CopyDestination | ImageUsage::HostRead, "copy in, map out"},
    };
    for (Path const& path : paths) {
        for (Format format : {Format::R8G8B8A8, Format::R32F, Format::R16G16B16A16F}) {
            SCOPED_TRACE(std::string(path.what) + ", " + ToString(format));
            std::size_t const bytes = std::size_t{5} * 3 * GetSize(format);
            Bytes const data = Pattern(bytes, 3);
            TextureFromData made = CreateTextureFromData(Gpu(), {{5, 3, 0}, format, 1, 1, path.flags}, data);
            ASSERT_TRUE(made) << ToString(made.error);
            ImageLevel const level = ReadImageLevel(Gpu(), made.image.Get(), 0);
            ASSERT_TRUE(level) << ToString(level.error);
            EXPECT_EQ(level.size, (Size{5, 3, 0}));
            EXPECT_EQ(level.slices, 1u);
            EXPECT_EQ(level.bytes, data);
        }
    }
}

TEST_P(ImageLevelAccess, ReadsEverySliceAndFaceWhereTypedReadbackReadsOne)
{
    std::uint32_t const flags = ImageUsage::CopySource | ImageUsage::CopyDestination;

    // 3D: the typed readback gives the first slice, the level read all four.
    Bytes const volume = Pattern(2 * 3 * 4 * 4, 1);
    TextureFromData deep = CreateTextureFromData(Gpu(), {{2, 3, 4}, Format::R8G8B8A8, 1, 1, flags}, volume);
    ASSERT_TRUE(deep) << ToString(deep.error);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), deep.image.Get()), Bytes(volume.begin(), volume.begin() + 2 * 3 * 4));
    ImageLevel const whole = ReadImageLevel(Gpu(), deep.image.Get(), 0);
    ASSERT_TRUE(whole) << ToString(whole.error);
    EXPECT_EQ(whole.slices, 4u);
    EXPECT_EQ(whole.bytes, volume);

    // 1D: the typed readback gives nothing yet succeeds; the level read one row.
    Bytes const row = Pattern(7 * 4, 9);
    TextureFromData line = CreateTextureFromData(Gpu(), {{7, 0, 0}, Format::R8G8B8A8, 1, 1, flags}, row);
    ASSERT_TRUE(line) << ToString(line.error);
    Bytes none;
    EXPECT_TRUE(GetR8G8B8A8(Gpu(), line.image.Get(), array_view<unsigned char>(none)));
    EXPECT_EQ(ReadImageLevel(Gpu(), line.image.Get(), 0).bytes, row);

    // Cube map: six distinct faces in order.
    Bytes const faces = Pattern(6 * 2 * 2 * 4, 0);
    TextureFromData cube =
        CreateTextureFromData(Gpu(), {{2, 2, 0}, Format::R8G8B8A8, 1, 1, flags | ImageUsage::CubeMap}, faces);
    ASSERT_TRUE(cube) << ToString(cube.error);
    ImageLevel const cubeLevel = ReadImageLevel(Gpu(), cube.image.Get(), 0);
    EXPECT_EQ(cubeLevel.slices, 6u);
    EXPECT_EQ(cubeLevel.bytes, faces);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), cube.image.Get(), SubImage{0, 5}), Bytes(faces.end() - 16, faces.end()));
}

TEST_P(ImageLevelAccess, ReadsLowerLevelsAndRefusesMissingOnes)
{
    ScopedImage image = MakeImage(Gpu(), {4, 4, 0}, Format::R32F, ImageUsage::HostRead | ImageUsage::HostWrite, 2);
    std::vector<float> const level1{1.5f, -2.0f, 3.25f, 8.0f};
    WriteLevel(Gpu(), image.Get(), {1, 0}, level1);
    ImageLevel const read = ReadImageLevel(Gpu(), image.Get(), 1);
    ASSERT_TRUE(read) << ToString(read.error);
    EXPECT_EQ(read.size, (Size{2, 2, 0}));
    ASSERT_EQ(read.bytes.size(), level1.size() * sizeof(float));
    EXPECT_EQ(std::memcmp(read.bytes.data(), level1.data(), read.bytes.size()), 0);
    EXPECT_EQ(ReadImageLevel(Gpu(), image.Get(), 2).error, ImageAccessError::NoSuchLevel);
}

// Each refusal names the missing requirement, and comes before any device
// work (checked on the call log where there is one).
TEST_P(ImageLevelAccess, SaysWhyBeforeAskingTheDevice)
{
    // Device calls since `before`, where the device counts them.
    auto const now = [&] { return Recording() != nullptr ? Recording()->CallCount() : 0; };
    auto const expectCallsSince = [&](std::uint64_t before, std::uint64_t calls) {
        if (Recording() != nullptr) {
            EXPECT_EQ(Recording()->CallCount() - before, calls) << Recording()->Dump();
        }
    };

    // The fixed texture functions make textures readback cannot read.
    Bytes const pixels = Pattern(4 * 4 * 4, 0);
    ScopedImage texture = CreateRgbaTexture(Gpu(), {4, 4, 0}, pixels);
    std::uint64_t before = now();
    EXPECT_TRUE(GetR8G8B8A8(Gpu(), texture.Get()).empty());
    ImageLevel const unreadable = ReadImageLevel(Gpu(), texture.Get(), 0);
    EXPECT_EQ(unreadable.error, ImageAccessError::NeedsHostReadOrCopySource);
    EXPECT_FALSE(unreadable);
    EXPECT_TRUE(unreadable.bytes.empty());
    expectCallsSince(before, 2); // one description per read, nothing else

    ScopedImage msaa = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, ImageUsage::RenderTarget, 1, 4);
    before = now();
    EXPECT_EQ(ReadImageLevel(Gpu(), msaa.Get(), 0).error, ImageAccessError::NeedsResolvable);
    expectCallsSince(before, 1);

    struct Refused {
        ImageDesc description;
        std::size_t bytes;
        ImageAccessError error;
    };
    std::uint32_t const hostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
    Refused const refused[] = {
        {{{4, 4, 0}, Format::R8G8B8A8, 4, 1, ImageUsage::RenderTarget | ImageUsage::CopyDestination}, 64,
         ImageAccessError::MultisampledUpload},
        {{{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::ShaderResource | ImageUsage::HostRead}, 64,
         ImageAccessError::NeedsHostWriteOrCopyDestination},
        {{{4, 4, 2}, Format::R8G8B8A8, 1, 1, hostIo}, 64, ImageAccessError::DataTooShort},
        {{{2, 2, 0}, Format::R8G8B8A8, 1, 1, hostIo | ImageUsage::CubeMap}, 16 * 5, ImageAccessError::DataTooShort},
        {{{4, 4, 0}, Format::None, 1, 1, hostIo}, 64, ImageAccessError::NoPixelSize},
    };
    for (Refused const& r : refused) {
        SCOPED_TRACE(ToString(r.error));
        before = now();
        TextureFromData const made = CreateTextureFromData(Gpu(), r.description, Bytes(r.bytes, 1));
        EXPECT_EQ(made.error, r.error);
        EXPECT_FALSE(made.image.IsValid());
        expectCallsSince(before, 0);
    }
}

TEST_P(ImageLevelAccessRecorded, ReportsDeviceFailuresAndLeavesNothingBehind)
{
    Testing::RecordingGpu& gpu = *Recording();
    Bytes const pixels = Pattern(4 * 4 * 4, 0);
    ImageDesc const viaCopies{{4, 4, 0}, Format::R8G8B8A8, 1, 1,
                              ImageUsage::CopySource | ImageUsage::CopyDestination};

    gpu.InjectFault(Op::CreateImage, 0, Testing::FaultKind::InvalidHandle);
    EXPECT_EQ(CreateTextureFromData(gpu, viaCopies, pixels).error, ImageAccessError::CreateFailed);
    gpu.InjectFault(Op::CreateImage, 1, Testing::FaultKind::InvalidHandle); // the upload image
    EXPECT_EQ(CreateTextureFromData(gpu, viaCopies, pixels).error, ImageAccessError::CreateFailed);
    EXPECT_EQ(gpu.LiveCount(), 0u);

    TextureFromData made = CreateTextureFromData(gpu, viaCopies, pixels);
    ASSERT_TRUE(made);
    gpu.InjectFault(Op::CreateImage, 0, Testing::FaultKind::InvalidHandle); // the read-back image
    EXPECT_EQ(ReadImageLevel(gpu, made.image.Get(), 0).error, ImageAccessError::CreateFailed);
    gpu.InjectFault(Op::MapImage, 0, Testing::FaultKind::NullMap);
    EXPECT_EQ(ReadImageLevel(gpu, made.image.Get(), 0).error, ImageAccessError::MapFailed);
    EXPECT_EQ(gpu.Count(Op::CopyImage), 2u) << "no copy into an image that was not made";
    EXPECT_EQ(gpu.LiveCount(), 1u);

    // Thrown faults at every step release every temporary.
    ExpectCleanUnderFaults([](Testing::RecordingGpu&) { return 0; }, [&](Testing::RecordingGpu& device, int) {
        TextureFromData texture = CreateTextureFromData(device, viaCopies, pixels);
        if (!texture)
            return;
        ImageLevel const level = ReadImageLevel(device, texture.image.Get(), 0);
        if (level) {
            EXPECT_EQ(level.bytes, pixels);
        }
    });
}

TEST_P(ImageLevelAccessRecorded, BottomUpAndPaddedMapsReadTheSameBytes)
{
    Recording()->SetRowPitchPadding(20);
    Recording()->SetNegativeRowPitch(true);
    Bytes const volume = Pattern(3 * 2 * 2 * 4, 5);
    TextureFromData made = CreateTextureFromData(
        Gpu(), {{3, 2, 2}, Format::R8G8B8A8, 1, 1, ImageUsage::HostRead | ImageUsage::HostWrite}, volume);
    ASSERT_TRUE(made);
    EXPECT_EQ(ReadImageLevel(Gpu(), made.image.Get(), 0).bytes, volume);
}

// A multisampled level is resolved on the way: every sample cleared to one
// colour reads back as that colour.
TEST_P(ImageLevelAccessPixels, ResolvesMultisampledImages)
{
    ScopedImage msaa = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8,
                                 ImageUsage::RenderTarget | ImageUsage::Resolvable, 1, 4);
    {
        ScopedResource<RtvId, IResourceFactory> view(&Gpu(), Gpu().CreateRenderTargetView(msaa.Get(), {}));
        ShaderBasedImageClear clear(Gpu());
        clear.Clear(view.Get(), 1.0f, 0.0f, 1.0f, 1.0f);
    }
    ImageLevel const level = ReadImageLevel(Gpu(), msaa.Get(), 0);
    ASSERT_TRUE(level) << ToString(level.error);
    Bytes expected;
    for (int i = 0; i < 16; ++i)
        expected.insert(expected.end(), {255, 0, 255, 255});
    EXPECT_EQ(level.bytes, expected);
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageLevelAccess, DeviceCapability::None);
INSTANTIATE_DEVICE_TEST_SUITE(ImageLevelAccessRecorded, DeviceCapability::CallLog);
INSTANTIATE_DEVICE_TEST_SUITE(ImageLevelAccessPixels, DeviceCapability::RealPixels);

} // namespace Zorvan::Rendering::TestSupport
