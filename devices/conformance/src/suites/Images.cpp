// What every device does with images: creation and descriptions, refusals,
// maps of every level at the pitches it chooses, copies that move bytes
// unchanged, copies that scale, and refused copies that change nothing.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <cstdint>
#include <numeric>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Testing::Rule;
using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t HostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t Copies = ImageUsage::CopySource | ImageUsage::CopyDestination;

Bytes Pattern(std::size_t n, unsigned char first)
{
    Bytes bytes(n);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

void AppendPixel(Bytes& bytes, Bytes const& pixel) { bytes.insert(bytes.end(), pixel.begin(), pixel.end()); }

// Filtering may round a weighted sum of equal values by an ulp or so.
void ExpectAllNear(std::vector<float> const& values, std::size_t count, float value)
{
    ASSERT_EQ(values.size(), count);
    for (std::size_t i = 0; i < count; ++i)
        ASSERT_NEAR(values[i], value, 1e-6f) << "element " << i;
}

bool Contains(std::vector<Rule> const& rules, Rule rule)
{
    return std::find(rules.begin(), rules.end(), rule) != rules.end();
}

class Images : public DeviceTest {};

TEST_P(Images, DescribesImagesAsCreatedAndMakesFullChainsForZeroLevels)
{
    ImageDesc const asked{{8, 4, 0}, Format::R16G16B16A16F, 1, 2, HostIo | Copies | ImageUsage::ShaderResource};
    ScopedImage image = MakeImage(Gpu(), asked.size, asked.format, asked.flags, asked.mipLevels);
    EXPECT_EQ(Gpu().GetImageDescription(image.Get()), asked);

    ScopedImage chain = MakeImage(Gpu(), {8, 4, 0}, Format::R8G8B8A8, HostIo, 0);
    EXPECT_EQ(Gpu().GetImageDescription(chain.Get()).mipLevels, 4u);
    ScopedImage line = MakeImage(Gpu(), {5, 0, 0}, Format::R32F, HostIo, 0);
    EXPECT_EQ(Gpu().GetImageDescription(line.Get()).mipLevels, 3u);
}

TEST_P(Images, RefusesImagesNoDeviceMakesWithTheInvalidHandle)
{
    struct Case {
        ImageDesc description;
        char const* what;
    };
    Case const cases[] = {
        {{{0, 0, 0}, Format::R8G8B8A8, 1, 1, HostIo}, "an empty extent"},
        {{{4, 0, 3}, Format::R8G8B8A8, 1, 1, HostIo}, "depth without height"},
        {{{4, 4, 0}, Format::None, 1, 1, HostIo}, "no format"},
        {{{4, 4, 0}, Format::R8G8B8A8, 0, 1, HostIo}, "no samples"},
        {{{4, 4, 0}, Format::R8G8B8A8, 1, 4, HostIo}, "more levels than the chain"},
        {{{4, 2, 0}, Format::R8G8B8A8, 1, 1, HostIo | ImageUsage::CubeMap}, "a cube map of oblong faces"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.what);
        ImageId made{};
        std::vector<Rule> const broken = BreaksRules([&] { made = Gpu().CreateImage(c.description); });
        EXPECT_TRUE(Contains(broken, Rule::ImageDescription));
        EXPECT_FALSE(made.IsValid());
        if (made.IsValid())
            Gpu().DestroyImage(made);
    }
}

// Every format size, every level, through the maps the device hands out
// (the validator checks their pitches).
TEST_P(Images, MapsEveryLevelOfEveryPixelSize)
{
    for (Format format : {Format::R8, Format::R8G8, Format::R8G8B8A8, Format::R16G16B16A16F,
                          Format::R32G32B32A32F}) {
        SCOPED_TRACE(ToString(format));
        ScopedImage image = MakeImage(Gpu(), {7, 5, 0}, format, HostIo, 3);
        ImageDesc const description = Gpu().GetImageDescription(image.Get());
        std::vector<Bytes> levels;
        for (std::uint32_t level = 0; level < 3; ++level) {
            levels.push_back(Pattern(LevelBytes(description, level), static_cast<unsigned char>(level * 50)));
            WriteLevel(Gpu(), image.Get(), {level, 0}, levels.back());
        }
        for (std::uint32_t level = 0; level < 3; ++level)
            EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), image.Get(), {level, 0}), levels[level]) << "level " << level;
    }
}

TEST_P(Images, CopiesMoveBytesUnchangedBetweenFormatsOfOneSize)
{
    Bytes const pixels = Pattern(3 * 2 * 4, 10);
    ScopedImage rgba = MakeImage(Gpu(), {3, 2, 0}, Format::R8G8B8A8, HostIo | Copies);
    ScopedImage bgra = MakeImage(Gpu(), {3, 2, 0}, Format::B8G8R8A8, HostIo | Copies);
    ScopedImage floats = MakeImage(Gpu(), {3, 2, 0}, Format::R32F, HostIo | Copies);
    WriteLevel(Gpu(), rgba.Get(), {}, pixels);
    Gpu().CopyImage(rgba.Get(), {}, bgra.Get(), {});
    Gpu().CopyImage(bgra.Get(), {}, floats.Get(), {});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), bgra.Get()), pixels) << "no channel swap";
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), floats.Get()), pixels) << "no conversion";
}

TEST_P(Images, CopiesBetweenLevelsOfOneImage)
{
    ScopedImage image = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8, HostIo | Copies, 3);
    Bytes const level1 = Pattern(2 * 2 * 4, 7);
    WriteLevel(Gpu(), image.Get(), {1, 0}, level1);
    ScopedImage other = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostIo | Copies);
    Gpu().CopyImage(image.Get(), {1, 0}, other.Get(), {});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), other.Get()), level1);
}

// Any filter keeps a region of one value that value: halves of two values
// stay apart when the image is halved, and one value stays everywhere when
// it grows.
TEST_P(Images, CopiesBetweenExtentsScale)
{
    Bytes source;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 8; ++x)
            AppendPixel(source, x < 4 ? Bytes{10, 20, 30, 255} : Bytes{200, 100, 50, 255});
    ScopedImage wide = MakeImage(Gpu(), {8, 2, 0}, Format::R8G8B8A8, HostIo | Copies);
    WriteLevel(Gpu(), wide.Get(), {}, source);
    ScopedImage half = MakeImage(Gpu(), {4, 1, 0}, Format::R8G8B8A8, HostIo | Copies);
    Gpu().CopyImage(wide.Get(), {}, half.Get(), {});
    Bytes expected;
    for (int x = 0; x < 4; ++x)
        AppendPixel(expected, x < 2 ? Bytes{10, 20, 30, 255} : Bytes{200, 100, 50, 255});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), half.Get()), expected);

    std::vector<float> const one(2 * 2, 0.625f);
    ScopedImage small = MakeImage(Gpu(), {2, 2, 0}, Format::R32F, HostIo | Copies);
    WriteLevel(Gpu(), small.Get(), {}, one);
    ScopedImage large = MakeImage(Gpu(), {6, 5, 0}, Format::R32F, HostIo | Copies);
    Gpu().CopyImage(small.Get(), {}, large.Get(), {});
    ExpectAllNear(ReadMapped<float>(Gpu(), large.Get()), 6 * 5, 0.625f);
}

TEST_P(Images, RefusedCopiesAndMapsChangeNothing)
{
    Bytes const kept = Pattern(2 * 2 * 4, 1);
    ScopedImage destination = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostIo | Copies);
    WriteLevel(Gpu(), destination.Get(), {}, kept);
    ScopedImage noCopySource = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostIo);
    WriteLevel(Gpu(), noCopySource.Get(), {}, Bytes(16, 99));
    ScopedImage wider = MakeImage(Gpu(), {2, 2, 0}, Format::R16G16B16A16F, HostIo | Copies);
    ScopedImage writeOnly = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, ImageUsage::HostWrite);

    EXPECT_TRUE(Contains(BreaksRules([&] { Gpu().CopyImage(noCopySource.Get(), {}, destination.Get(), {}); }),
                         Rule::CopyFlags));
    EXPECT_TRUE(Contains(BreaksRules([&] { Gpu().CopyImage(wider.Get(), {}, destination.Get(), {}); }),
                         Rule::CopyPixelSizes));
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), destination.Get()), kept);

    MappedImage mapped{};
    EXPECT_TRUE(Contains(BreaksRules([&] {
                             mapped = Gpu().MapImage(writeOnly.Get(), {}, MapMode::Read);
                             Gpu().UnmapImage(writeOnly.Get(), {});
                         }),
                         Rule::MapFlags));
    EXPECT_EQ(mapped.data, nullptr);
    EXPECT_TRUE(Contains(BreaksRules([&] {
                             mapped = Gpu().MapImage(destination.Get(), {3, 0}, MapMode::Read);
                             Gpu().UnmapImage(destination.Get(), {3, 0});
                         }),
                         Rule::SubImageOutside));
    EXPECT_EQ(mapped.data, nullptr);
}

// The library's upload and readback over the device: the fixed texture
// functions, conversion to doubles and a mip chain built by scaling copies
// (the checked pair has a suite of its own, CheckedAccess).
TEST_P(Images, CarriesTheLibrarysUploadsReadbacksAndMipChains)
{
    ScopedImage image = MakeImage(Gpu(), {2, 1, 0}, Format::R8G8B8A8, Copies);
    FillRgbaTexture(Gpu(), image.Get(), {}, Bytes{0, 51, 255, 102, 255, 0, 0, 0});
    EXPECT_EQ(GetR8G8B8A8(Gpu(), image.Get()), (Bytes{0, 51, 255, 102, 255, 0, 0, 0}));
    EXPECT_EQ(ReadAsDoubles(Gpu(), image.Get(), false, {}),
              (std::vector<double>{0.0, 0.2, 1.0, 0.4, 1.0, 0.0, 0.0, 0.0}));

    std::vector<float> const grey(8 * 8 * 4, 0.5f);
    ScopedImage texture = MakeImage(Gpu(), {8, 8, 0}, Format::R32G32B32A32F, Copies);
    FillRgbaTexture(Gpu(), texture.Get(), {}, grey);
    ScopedImage chain = MipMapBuilder(Gpu()).BuildMipMapChain(texture.Get(), 0, 0);
    ASSERT_TRUE(chain.IsValid());
    EXPECT_EQ(Gpu().GetImageDescription(chain.Get()).mipLevels, 4u);
    for (std::uint32_t level = 0; level < 4; ++level) {
        Size const size = CalculateMipLevelSize({8, 8, 0}, level);
        SCOPED_TRACE(level);
        ExpectAllNear(GetR32G32B32A32F(Gpu(), chain.Get(), SubImage{level, 0}),
                      std::size_t{size.width} * size.height * 4, 0.5f);
    }
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(Images, Capability::None);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Images)
