// Checked upload and whole-level readback: the reasons given when a read or
// a fill cannot happen, before any device work, and device failures on the
// way. Round trips over every path, slice and face are in the conformance
// kit (devices/conformance/src/suites/CheckedAccess.cpp).

#include "ImageTestHelpers.h"

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

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageLevelAccess, DeviceCapability::None);
INSTANTIATE_DEVICE_TEST_SUITE(ImageLevelAccessRecorded, DeviceCapability::CallLog);

} // namespace Zorvan::Rendering::TestSupport
