// Uses the installed package the way a renderer would: format facts, a layout,
// and a texture round trip through the shipped test double.
#include <Rendering/Format.h>
#include <Rendering/Image.h>
#include <Rendering/Testing/RecordingGpu.h>
#include <Rendering/Vertex.h>
#if defined(ZGU_CONSUMER_HAS_GL)
#include <Rendering/Gl/GlDevice.h>
#endif

#include <cstdio>
#include <cstring>
#include <vector>

using namespace Zorvan::Rendering;

int main()
{
    int failures = 0;
    auto check = [&](bool ok, char const* what) {
        if (!ok) {
            std::fprintf(stderr, "package consumer: %s failed\n", what);
            ++failures;
        }
    };

    check(GetSize(Format::R32G32B32F) == 12 && std::strcmp(ToString(Format::D16), "D16") == 0, "format queries");
    check(half2float(float2half(1.5f)) == 1.5f, "half round trip");

    VertexDescription description{1, 1, 1, 0};
    auto layout = VertexDescription2InputLayout(description);
    check(CalculateStrides(layout)[0] == 32 && InputLayout2VertexDescription(layout) == description, "vertex layout");

    Testing::RecordingGpu gpu;
    {
        std::vector<unsigned char> pixels{1, 2, 3, 4, 5, 6, 7, 8};
        ImageDesc desc{Size{2, 1, 0}, Format::R8G8B8A8, 1, 1,
                       ImageUsage::ShaderResource | ImageUsage::CopySource | ImageUsage::CopyDestination};
        ScopedResource<ImageId, IResourceFactory> image(&gpu, gpu.CreateImage(desc));
        FillRgbaTexture(gpu, image.Get(), SubImage{}, pixels);
        check(GetR8G8B8A8(gpu, image.Get()) == pixels, "texture round trip");
    }
    check(gpu.Problems().empty(), "device clean");

#if defined(ZGU_CONSUMER_HAS_GL)
    // Where no EGL display exists the device says so instead of crashing.
    try {
        Gl::GlDevice gl;
        std::vector<unsigned char> pixels{9, 8, 7, 6};
        ImageDesc desc{Size{1, 1, 0}, Format::R8G8B8A8, 1, 1,
                       ImageUsage::ShaderResource | ImageUsage::CopySource | ImageUsage::CopyDestination};
        {
            ScopedResource<ImageId, IResourceFactory> image(&gl, gl.CreateImage(desc));
            FillRgbaTexture(gl, image.Get(), SubImage{}, pixels);
            check(GetR8G8B8A8(gl, image.Get()) == pixels, "GL texture round trip");
        }
        check(gl.Problems().empty(), "GL device clean");
    } catch (Gl::GlDeviceError const& error) {
        std::printf("package consumer: no GL device here (%s)\n", error.what());
    }
#endif

    if (failures == 0)
        std::puts("package consumer: 1 passed, 0 failed");
    return failures == 0 ? 0 : 1;
}
