// The library's checked upload and whole-level readback over the device:
// round trips through maps and through copies, lower levels, 1D rows,
// cube faces and depth slices, beside what the typed readback reads of them.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <cstdint>
#include <cstring>
#include <numeric>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Bytes = std::vector<unsigned char>;
constexpr std::uint32_t Copies = ImageUsage::CopySource | ImageUsage::CopyDestination;

Bytes Pattern(std::size_t n, unsigned char first)
{
    Bytes bytes(n);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

class CheckedAccess : public DeviceTest {};
class CheckedAccessVolumes : public DeviceTest {};
class CheckedAccessCubes : public DeviceTest {};

TEST_P(CheckedAccess, RoundTripsThroughMapsAndThroughCopies)
{
    struct Path {
        std::uint32_t flags;
        char const* what;
    };
    Path const paths[] = {
        {ImageUsage::HostRead | ImageUsage::HostWrite, "maps both ways"},
        {Copies, "copies both ways"},
        {ImageUsage::ShaderResource | ImageUsage::CopyDestination | ImageUsage::HostRead, "copy in, map out"},
    };
    for (Path const& path : paths) {
        for (Format format : {Format::R8G8B8A8, Format::R32F, Format::R16G16B16A16F, Format::R16G16B16A16U}) {
            SCOPED_TRACE(std::string(path.what) + ", " + ToString(format));
            Bytes const data = Pattern(std::size_t{5} * 3 * GetSize(format), 3);
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

// The fixed fill and typed readback, through device copies both ways.
TEST_P(CheckedAccess, FillsEveryLevelThroughAnUploadImageAndReadsItBack)
{
    // Copy source and destination only: both directions need device copies.
    ScopedImage image = MakeImage(Gpu(), {5, 3, 0}, Format::R8G8B8A8,
                                  ImageUsage::CopySource | ImageUsage::CopyDestination, 2);
    Bytes const level0 = Pattern(5 * 3 * 4, 1);
    Bytes const level1 = Pattern(2 * 1 * 4, 200);
    FillRgbaTexture(Gpu(), image.Get(), {0, 0}, level0);
    FillRgbaTexture(Gpu(), image.Get(), {1, 0}, level1);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), image.Get()), level0);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), image.Get(), SubImage{1, 0}), level1);
}

TEST_P(CheckedAccess, ReadsLowerLevelsAndRefusesMissingOnes)
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

// The typed readback reads one 2D level and succeeds with nothing for a 1D
// image; the level read gives its row.
TEST_P(CheckedAccess, ReadsTheRowOfA1DImage)
{
    Bytes const row = Pattern(7 * 4, 9);
    TextureFromData line = CreateTextureFromData(Gpu(), {{7, 0, 0}, Format::R8G8B8A8, 1, 1, Copies}, row);
    ASSERT_TRUE(line) << ToString(line.error);
    Bytes none;
    EXPECT_TRUE(GetR8G8B8A8(Gpu(), line.image.Get(), array_view<unsigned char>(none)));
    EXPECT_TRUE(GetR8G8B8A8(Gpu(), line.image.Get()).empty());
    EXPECT_EQ(ReadImageLevel(Gpu(), line.image.Get(), 0).bytes, row);
}

TEST_P(CheckedAccessVolumes, ReadsEverySliceWhereTypedReadbackReadsTheFirst)
{
    Bytes const volume = Pattern(2 * 3 * 4 * 4, 1);
    TextureFromData deep = CreateTextureFromData(Gpu(), {{2, 3, 4}, Format::R8G8B8A8, 1, 1, Copies}, volume);
    ASSERT_TRUE(deep) << ToString(deep.error);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), deep.image.Get()), Bytes(volume.begin(), volume.begin() + 2 * 3 * 4));
    ImageLevel const whole = ReadImageLevel(Gpu(), deep.image.Get(), 0);
    ASSERT_TRUE(whole) << ToString(whole.error);
    EXPECT_EQ(whole.slices, 4u);
    EXPECT_EQ(whole.bytes, volume);
}

TEST_P(CheckedAccessCubes, FillsAndReadsSixFacesInOrder)
{
    Bytes const faces = Pattern(6 * 2 * 2 * 4, 0);
    TextureFromData cube =
        CreateTextureFromData(Gpu(), {{2, 2, 0}, Format::R8G8B8A8, 1, 1, Copies | ImageUsage::CubeMap}, faces);
    ASSERT_TRUE(cube) << ToString(cube.error);
    ImageLevel const level = ReadImageLevel(Gpu(), cube.image.Get(), 0);
    EXPECT_EQ(level.slices, 6u);
    EXPECT_EQ(level.bytes, faces);
    EXPECT_EQ(GetR8G8B8A8(Gpu(), cube.image.Get(), SubImage{0, 5}), Bytes(faces.end() - 16, faces.end()));
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(CheckedAccess, Capability::None);
INSTANTIATE_CONFORMANCE_SUITE(CheckedAccessVolumes, Capability::VolumeImages);
INSTANTIATE_CONFORMANCE_SUITE(CheckedAccessCubes, Capability::CubeMaps);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(CheckedAccess)
