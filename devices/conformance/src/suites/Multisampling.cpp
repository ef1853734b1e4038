// Multisampled images: one level, never mapped, copied only to images of the
// same sample count, resolved into single-sampled ones. Their values are
// checked where the device also draws (Drawing).

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Testing::Rule;

bool Contains(std::vector<Rule> const& rules, Rule rule)
{
    return std::find(rules.begin(), rules.end(), rule) != rules.end();
}

class Multisampling : public DeviceTest {};

TEST_P(Multisampling, ResolvesButNeverMapsMultisampledImages)
{
    std::uint32_t const flags = ImageUsage::RenderTarget | ImageUsage::Resolvable | ImageUsage::CopySource |
                                ImageUsage::CopyDestination | ImageUsage::HostRead;
    ScopedImage msaa = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, flags, 1, 4);
    ImageDesc const description = Gpu().GetImageDescription(msaa.Get());
    EXPECT_GE(description.sampleCount, 4u);
    EXPECT_EQ(description.mipLevels, 1u);

    ScopedImage twin = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, flags, 1, 4);
    Gpu().CopyImage(msaa.Get(), {}, twin.Get(), {});

    ScopedImage resolved = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8,
                                     ImageUsage::ResolveDestination | ImageUsage::HostRead);
    Gpu().ResolveImage(twin.Get(), {}, resolved.Get(), {});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), resolved.Get()).size(), 4u * 4 * 4);

    MappedImage mapped{};
    EXPECT_TRUE(Contains(BreaksRules([&] {
                             mapped = Gpu().MapImage(msaa.Get(), {}, MapMode::Read);
                             Gpu().UnmapImage(msaa.Get(), {});
                         }),
                         Rule::MapMultisampled));
    EXPECT_EQ(mapped.data, nullptr);

    ScopedImage single = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, ImageUsage::CopyDestination);
    EXPECT_TRUE(Contains(BreaksRules([&] { Gpu().CopyImage(msaa.Get(), {}, single.Get(), {}); }),
                         Rule::CopySampleCounts));
}

// The library reads a multisampled image by resolving it first, and says so
// when the image cannot be resolved.
TEST_P(Multisampling, LibraryReadsResolveFirst)
{
    ScopedImage resolvable = MakeImage(Gpu(), {4, 2, 0}, Format::R32F,
                                       ImageUsage::RenderTarget | ImageUsage::Resolvable, 1, 2);
    ImageLevel const level = ReadImageLevel(Gpu(), resolvable.Get(), 0);
    ASSERT_TRUE(level) << ToString(level.error);
    EXPECT_EQ(level.bytes.size(), 4u * 2 * 4);

    ScopedImage closed = MakeImage(Gpu(), {4, 2, 0}, Format::R32F, ImageUsage::RenderTarget, 1, 2);
    EXPECT_EQ(ReadImageLevel(Gpu(), closed.Get(), 0).error, ImageAccessError::NeedsResolvable);
    EXPECT_TRUE(GetR32F(Gpu(), closed.Get()).empty());
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(Multisampling, Capability::Multisampling);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Multisampling)
