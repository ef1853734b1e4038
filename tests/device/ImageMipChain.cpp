#include "ImageTestHelpers.h"

#include <cstdint>
#include <vector>

namespace Zorvan::Rendering::TestSupport {
namespace {

using Testing::Op;

class ImageMipChain : public DeviceTest {};

// What only a device with a call log and scripting shows.
class ImageMipChainRecorded : public ImageMipChain {};

TEST_P(ImageMipChainRecorded, CopiesEachLevelFromTheOneAbove)
{
    ScopedImage source = MakeImage(Gpu(), {256, 128, 0}, Format::R8, ImageUsage::CopySource);
    Recording()->ClearLog();
    ScopedImage chain = MipMapBuilder(Gpu()).BuildMipMapChain(source.Get(), 0, 0);
    ASSERT_TRUE(chain.IsValid());

    auto const created = Recording()->Calls(Op::CreateImage);
    ASSERT_EQ(created.size(), 1u);
    EXPECT_EQ(created[0]->As<ImageDesc>(), (ImageDesc{{256, 128, 0}, Format::R8, 1, 0, 0x60}));

    auto const copies = Recording()->Calls(Op::CopyImage);
    ASSERT_EQ(copies.size(), 9u);
    EXPECT_EQ(copies[0]->handles[0], source.Get().Value());
    EXPECT_EQ(copies[0]->handles[1], chain.Get().Value());
    for (std::uint32_t level = 1; level < 9; ++level) {
        Testing::Call const& copy = *copies[level];
        EXPECT_EQ(copy.handles[0], chain.Get().Value());
        EXPECT_EQ(copy.handles[1], chain.Get().Value());
        EXPECT_EQ(copy.subImages[0], (SubImage{level - 1, 0}));
        EXPECT_EQ(copy.subImages[1], (SubImage{level, 0}));
    }
}

TEST_P(ImageMipChainRecorded, OneLevelIsOneCopyAndFailuresReleaseTheChain)
{
    ScopedImage source = MakeImage(Gpu(), {16, 16, 0}, Format::R32F, ImageUsage::CopySource);
    Recording()->ClearLog();
    {
        ScopedImage chain = MipMapBuilder(Gpu()).BuildMipMapChain(source.Get(), 1, 0x08);
        EXPECT_EQ(Recording()->Count(Op::CopyImage), 1u);
        EXPECT_EQ(Recording()->Description(chain.Get()).flags, 0x68u);
    }

    // A creation failure ends the build quietly.
    Recording()->ClearLog();
    Recording()->InjectFault(Op::CreateImage, 0, Testing::FaultKind::InvalidHandle);
    ScopedImage none = MipMapBuilder(Gpu()).BuildMipMapChain(source.Get(), 0, 0);
    EXPECT_FALSE(none.IsValid());
    EXPECT_EQ(Recording()->Ops(), (std::vector<Op>{Op::GetImageDescription, Op::CreateImage}));

    ExpectCleanUnderFaults(
        [](Testing::RecordingGpu& gpu) {
            return ScopedImage(&gpu, gpu.CreateImage({{16, 8, 0}, Format::R32F, 1, 1, ImageUsage::CopySource}));
        },
        [](Testing::RecordingGpu& gpu, ScopedImage& image) {
            ScopedImage chain = MipMapBuilder(gpu).BuildMipMapChain(image.Get(), 3, 0);
        });
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(ImageMipChainRecorded, DeviceCapability::CallLog);

} // namespace Zorvan::Rendering::TestSupport
