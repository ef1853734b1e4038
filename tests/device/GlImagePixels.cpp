// Image utilities and timing on a device with real storage and a real clock:
// every format group survives upload, device copy and readback, multisampled
// targets read back resolved, and a stopwatch around real work reads a time.
// (Box-filtered mip chains are checked on every device that filters, by the
// conformance kit's ScaledCopies.)

#include "GlPixelsSupport.h"

#include <Rendering/ShaderOps.h>
#include <Rendering/Timing.h>

#include <random>

namespace {

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::TestSupport;

class GlImagePixels : public DeviceTest {};

// Stored values of one format, decoded from host bytes the way the format
// names them (raw: integers stay integers).
std::vector<double> RawValues(Format format, std::vector<std::uint8_t> const& bytes)
{
    std::vector<double> values;
    auto const read = [&bytes](std::size_t at, auto zero) {
        decltype(zero) value{};
        std::memcpy(&value, bytes.data() + at, sizeof value);
        return value;
    };
    unsigned const v = static_cast<unsigned>(format);
    for (std::size_t at = 0; at < bytes.size();) {
        if (v <= 6 || (v >= 16 && v <= 18)) {
            values.push_back(read(at, std::uint8_t{}));
            at += 1;
        } else if ((v >= 7 && v <= 9) || (v >= 19 && v <= 21)) {
            values.push_back(read(at, std::uint16_t{}));
            at += 2;
        } else if ((v >= 10 && v <= 12) || (v >= 25 && v <= 27)) {
            values.push_back(read(at, std::int8_t{}));
            at += 1;
        } else if ((v >= 13 && v <= 15) || (v >= 28 && v <= 30)) {
            values.push_back(read(at, std::int16_t{}));
            at += 2;
        } else if (v >= 22 && v <= 24) {
            values.push_back(read(at, std::uint32_t{}));
            at += 4;
        } else if (v >= 31 && v <= 33) {
            values.push_back(read(at, std::int32_t{}));
            at += 4;
        } else if (v >= 34 && v <= 36) {
            values.push_back(half2float(read(at, std::uint16_t{})));
            at += 2;
        } else {
            values.push_back(read(at, float{}));
            at += 4;
        }
    }
    return values;
}

// One format of every group goes up through a host map, is copied on the
// device into a read-back image and comes back through ReadAsDoubles.
TEST_P(GlImagePixels, EveryFormatGroupRoundTripsThroughDeviceCopies)
{
    Format const formats[] = {Format::B8G8R8,       Format::B8G8R8A8,     Format::R8G8B8A8,      Format::R16G16B16A16,
                              Format::R8G8B8A8SN,   Format::R16SN,        Format::R8G8U,         Format::R16U,
                              Format::R32G32U,      Format::R8I,          Format::R16G16I,       Format::R32G32B32A32I,
                              Format::R16G16B16A16F, Format::R32G32B32F, Format::R32F};
    std::mt19937 random(11);
    for (Format format : formats) {
        SCOPED_TRACE(ToString(format));
        std::vector<std::uint8_t> bytes(std::size_t{GetSize(format)} * 3 * 2);
        for (auto& byte : bytes)
            byte = static_cast<std::uint8_t>(random());
        // Finite floats only: keep exponents away from all ones.
        if (format == Format::R16G16B16A16F)
            for (std::size_t i = 1; i < bytes.size(); i += 2)
                bytes[i] &= 0xBB;
        if (format == Format::R32G32B32F || format == Format::R32F)
            for (std::size_t i = 3; i < bytes.size(); i += 4)
                bytes[i] &= 0xBF;
        PixelImage const image =
            MakePixelImage(Gpu(), {3, 2, 0}, format, ImageUsage::HostWrite | ImageUsage::CopySource);
        WritePixels(Gpu(), image.Get(), {}, bytes);
        EXPECT_EQ(ReadAsDoubles(Gpu(), image.Get(), true, {}), RawValues(format, bytes));
    }
}

// A multisampled target goes through a resolve image and a read-back image
// on its way to the host; every sample holds the clear colour, so the
// resolved pixels are that colour exactly, in every readback form.
TEST_P(GlImagePixels, MultisampledTargetsReadBackResolved)
{
    PixelImage const image = MakePixelImage(Gpu(), {7, 5, 0}, Format::R8G8B8A8,
                                            ImageUsage::RenderTarget | ImageUsage::Resolvable, 1, 4);
    PixelView const view(&Gpu(), Gpu().CreateRenderTargetView(image.Get(), {}));
    ShaderBasedImageClear clear(Gpu());
    clear.Clear(view.Get(), 1.0f, 0.0f, 0.2f, 0.6f);
    std::vector<unsigned char> expected;
    for (int i = 0; i < 7 * 5; ++i)
        expected.insert(expected.end(), {255, 0, 51, 153});
    EXPECT_EQ(GetR8G8B8A8(Gpu(), image.Get()), expected);
    std::vector<double> const doubles = ReadAsDoubles(Gpu(), image.Get(), true, {});
    EXPECT_EQ(doubles, std::vector<double>(expected.begin(), expected.end()));
}

TEST_P(GlImagePixels, StopWatchAroundRealWorkReadsATimeOnceTheDeviceIsDone)
{
    PixelImage const image = MakePixelImage(Gpu(), {256, 256, 0}, Format::R32G32B32A32F, ImageUsage::RenderTarget);
    PixelView const view(&Gpu(), Gpu().CreateRenderTargetView(image.Get(), {}));
    ShaderBasedImageClear clear(Gpu());
    clear.Clear(view.Get(), 0.0f, 0.0f, 0.0f, 0.0f); // shaders compile outside the measurement
    GpuStopWatch watch(Gpu());
    watch.Start();
    for (int i = 0; i < 8; ++i)
        clear.Clear(view.Get(), static_cast<float>(i), 1.0f, 2.0f, 3.0f);
    watch.Stop();
    Provider().WaitIdle();
    double const seconds = watch.GetSeconds();
    EXPECT_GE(seconds, 0.0);
    EXPECT_LT(seconds, 60.0);
}

INSTANTIATE_DEVICE_TEST_SUITE(GlImagePixels, DeviceCapability::RealPixels);

} // namespace
