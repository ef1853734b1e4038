// Mip chains over the device: the builder's full chain carries a source of
// one colour down every level, whatever filter the device's scaling copies use.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Image.h>

#include <cstdint>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

class ImageMipChain : public DeviceTest {};

TEST_P(ImageMipChain, FullChainCarriesTheSourceDownEveryLevel)
{
    ScopedImage source = MakeImage(Gpu(), {8, 4, 0}, Format::R8G8B8A8, ImageUsage::HostWrite | ImageUsage::CopySource);
    // One colour everywhere, so every filter gives the same levels.
    std::vector<unsigned char> pixels;
    for (int i = 0; i < 8 * 4; ++i)
        pixels.insert(pixels.end(), {12, 34, 56, 78});
    WriteLevel(Gpu(), source.Get(), {}, pixels);

    MipMapBuilder builder(Gpu());
    ScopedImage chain = builder.BuildMipMapChain(source.Get(), 0, ImageUsage::HostRead);
    ASSERT_TRUE(chain.IsValid());
    EXPECT_EQ(chain.GetOwner(), static_cast<IResourceFactory*>(&Gpu()));
    ImageDesc const description = Gpu().GetImageDescription(chain.Get());
    EXPECT_EQ(description.mipLevels, 4u);
    EXPECT_EQ(description.flags & 0x68u, 0x68u);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), chain.Get()), pixels);
    for (unsigned level = 1; level < 4; ++level) {
        Size const size = CalculateMipLevelSize({8, 4, 0}, level);
        std::vector<unsigned char> expected(pixels.begin(), pixels.begin() + size.width * size.height * 4);
        EXPECT_EQ(GetR8G8B8A8(Gpu(), chain.Get(), SubImage{level, 0}), expected) << "level " << level;
    }
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(ImageMipChain, Capability::None);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(MipChain)
