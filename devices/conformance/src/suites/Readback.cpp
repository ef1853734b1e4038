// Typed and byte readback over the device: float families, mip levels and
// slices checked before any device work, blue-first formats swizzled, the
// caller's pitch, 1D images read as nothing, unreadable images refused.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Image.h>

#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Bytes = std::vector<unsigned char>;

constexpr std::uint32_t HostReadWrite = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t ViaCopies = ImageUsage::HostWrite | ImageUsage::CopySource;

std::vector<float> Ramp(std::size_t n, float first)
{
    std::vector<float> values(n);
    std::iota(values.begin(), values.end(), first);
    return values;
}

class ImageReadback : public DeviceTest {};
class ImageReadbackCubes : public DeviceTest {};

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

TEST_P(ImageReadbackCubes, FacesAreChecked)
{
    ScopedImage cube = MakeImage(Gpu(), {2, 2, 0}, Format::R32F, HostReadWrite | ImageUsage::CubeMap);
    WriteLevel(Gpu(), cube.Get(), {0, 5}, std::vector<float>{1, 2, 3, 4});
    EXPECT_EQ(GetR32F(Gpu(), cube.Get(), SubImage{0, 5}), (std::vector<float>{1, 2, 3, 4}));
    EXPECT_TRUE(GetR32F(Gpu(), cube.Get(), SubImage{0, 6}).empty());
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(ImageReadback, Capability::None);
INSTANTIATE_CONFORMANCE_SUITE(ImageReadbackCubes, Capability::CubeMaps);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Readback)
