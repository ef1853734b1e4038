// Images of many slices: a map or copy of a 3D level covers every depth
// slice; the six faces of a cube map are separate sub-images.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Image.h>

#include <numeric>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Bytes = std::vector<unsigned char>;
constexpr std::uint32_t HostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t Copies = ImageUsage::CopySource | ImageUsage::CopyDestination;

Bytes Pattern(std::size_t n, unsigned char first)
{
    Bytes bytes(n);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

class VolumeImages : public DeviceTest {};
class CubeMaps : public DeviceTest {};

TEST_P(VolumeImages, MapsAndCopiesCoverEveryDepthSlice)
{
    ScopedImage volume = MakeImage(Gpu(), {3, 2, 4}, Format::R8G8B8A8, HostIo | Copies, 2);
    Bytes const level0 = Pattern(3 * 2 * 4 * 4, 0);
    Bytes const level1 = Pattern(1 * 1 * 2 * 4, 200);
    WriteLevel(Gpu(), volume.Get(), {0, 0}, level0);
    WriteLevel(Gpu(), volume.Get(), {1, 0}, level1);
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), volume.Get(), {0, 0}), level0);
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), volume.Get(), {1, 0}), level1);

    ScopedImage copy = MakeImage(Gpu(), {3, 2, 4}, Format::R8G8B8A8, HostIo | Copies);
    Gpu().CopyImage(volume.Get(), {}, copy.Get(), {});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), copy.Get()), level0);

    ImageLevel const read = ReadImageLevel(Gpu(), volume.Get(), 0);
    EXPECT_EQ(read.slices, 4u);
    EXPECT_EQ(read.bytes, level0);
}

TEST_P(CubeMaps, FacesAreSeparateSubImages)
{
    ScopedImage cube = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostIo | Copies | ImageUsage::CubeMap);
    std::vector<Bytes> faces;
    for (std::uint32_t face = 0; face < 6; ++face) {
        faces.push_back(Pattern(2 * 2 * 4, static_cast<unsigned char>(face * 40)));
        WriteLevel(Gpu(), cube.Get(), {0, face}, faces.back());
    }
    for (std::uint32_t face = 0; face < 6; ++face)
        EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), cube.Get(), {0, face}), faces[face]) << "face " << face;

    ScopedImage flat = MakeImage(Gpu(), {2, 2, 0}, Format::R8G8B8A8, HostIo | Copies);
    Gpu().CopyImage(cube.Get(), {0, 4}, flat.Get(), {});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), flat.Get()), faces[4]);
    Gpu().CopyImage(flat.Get(), {}, cube.Get(), {0, 1});
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), cube.Get(), {0, 1}), faces[4]);
    EXPECT_EQ(ReadMapped<unsigned char>(Gpu(), cube.Get(), {0, 2}), faces[2]);
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(VolumeImages, Capability::VolumeImages);
INSTANTIATE_CONFORMANCE_SUITE(CubeMaps, Capability::CubeMaps);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Slices)
