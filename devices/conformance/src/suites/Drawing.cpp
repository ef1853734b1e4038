// Devices that run the shader dialect: the library's shader-based clear and
// copy write the values they promise, and multisampled targets resolve to
// the colour every sample holds.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>

#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Bytes = std::vector<unsigned char>;

Bytes Repeated(Bytes const& pixel, std::size_t count)
{
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i)
        bytes.insert(bytes.end(), pixel.begin(), pixel.end());
    return bytes;
}

class Drawing : public DeviceTest {};
class DrawingMultisampled : public DeviceTest {};

TEST_P(Drawing, ClearsAndCopiesByShader)
{
    std::uint32_t const flags = ImageUsage::RenderTarget | ImageUsage::ShaderResource | ImageUsage::CopySource;
    ScopedImage target = MakeImage(Gpu(), {8, 4, 0}, Format::R8G8B8A8, flags);
    ScopedImage integers = MakeImage(Gpu(), {2, 2, 0}, Format::R32U, flags);
    ScopedImage copied = MakeImage(Gpu(), {4, 2, 0}, Format::R8G8B8A8, flags);
    {
        ShaderBasedImageClear clear(Gpu());
        ScopedTarget view(&Gpu(), Gpu().CreateRenderTargetView(target.Get(), {}));
        clear.Clear(view.Get(), 1.0f, 0.0f, 1.0f, 1.0f);
        ScopedTarget integerView(&Gpu(), Gpu().CreateRenderTargetView(integers.Get(), {}));
        clear.Clear(integerView.Get(), 123456789u, 0u, 0u, 0u);
        ShaderBasedImageCopy copy(Gpu());
        copy.Copy(target.Get(), {}, copied.Get(), {});
    }
    EXPECT_EQ(ReadImageLevel(Gpu(), target.Get(), 0).bytes, Repeated({255, 0, 255, 255}, 8 * 4));
    ImageLevel const words = ReadImageLevel(Gpu(), integers.Get(), 0);
    EXPECT_EQ(words.bytes, Repeated({0x15, 0xCD, 0x5B, 0x07}, 4));
    EXPECT_EQ(ReadImageLevel(Gpu(), copied.Get(), 0).bytes, Repeated({255, 0, 255, 255}, 4 * 2));
}

TEST_P(DrawingMultisampled, ResolvesToTheClearedColour)
{
    ScopedImage msaa = MakeImage(Gpu(), {4, 4, 0}, Format::R8G8B8A8,
                                 ImageUsage::RenderTarget | ImageUsage::Resolvable, 1, 4);
    {
        ShaderBasedImageClear clear(Gpu());
        ScopedTarget view(&Gpu(), Gpu().CreateRenderTargetView(msaa.Get(), {}));
        clear.Clear(view.Get(), 0.0f, 1.0f, 0.0f, 1.0f);
    }
    ImageLevel const level = ReadImageLevel(Gpu(), msaa.Get(), 0);
    ASSERT_TRUE(level) << ToString(level.error);
    EXPECT_EQ(level.bytes, Repeated({0, 255, 0, 255}, 16));
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(Drawing, Capability::Shaders);
INSTANTIATE_CONFORMANCE_SUITE(DrawingMultisampled, Capability::Shaders | Capability::Multisampling);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Drawing)
