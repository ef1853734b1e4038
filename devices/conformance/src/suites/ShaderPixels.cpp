// The shader-based operations on a device that runs shaders: the values they
// write, bit for bit. Running them also proves that the library's shaders
// translate, compile and link on the device.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/ShaderOps.h>

#include <bit>
#include <climits>
#include <cmath>
#include <limits>

#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using ScopedShader = ScopedResource<ShaderId, IGpu>;
using ScopedPipeline = ScopedResource<PsoId, IGpu>;

class ShaderPixels : public DeviceTest {};
class ShaderPixelsMultisampled : public DeviceTest {};

template <typename T>
std::vector<T> Repeat(std::vector<T> const& pixel, std::size_t count)
{
    std::vector<T> all;
    for (std::size_t i = 0; i < count; ++i)
        all.insert(all.end(), pixel.begin(), pixel.end());
    return all;
}

TEST_P(ShaderPixels, ClearWritesFloatIntAndUnsignedTargetsBitExactly)
{
    ShaderBasedImageClear clear(Gpu());
    std::uint32_t const flags = ImageUsage::RenderTarget | ImageUsage::CopySource;
    auto const target = [&](Format format) {
        ScopedImage image = MakeImage(Gpu(), {4, 3, 0}, format, flags);
        ScopedTarget view(&Gpu(), Gpu().CreateRenderTargetView(image.Get(), {}));
        return std::pair{std::move(image), std::move(view)};
    };

    // NaN payload, negative zero, infinity and the largest float pass unchanged.
    float const nan = std::bit_cast<float>(0x7FC01234u);
    auto const [floats, floatView] = target(Format::R32G32B32A32F);
    clear.Clear(floatView.Get(), nan, -0.0f, -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::max());
    std::vector<std::uint32_t> const floatBits{0x7FC01234u, 0x80000000u, 0xFF800000u, 0x7F7FFFFFu};
    EXPECT_EQ(ReadPixels<std::uint32_t>(Gpu(), floats.Get()), Repeat(floatBits, 12));

    auto const [ints, intView] = target(Format::R32G32B32A32I);
    clear.Clear(intView.Get(), INT_MIN, -1, 0, INT_MAX);
    EXPECT_EQ(ReadPixels<std::int32_t>(Gpu(), ints.Get()), Repeat<std::int32_t>({INT_MIN, -1, 0, INT_MAX}, 12));

    auto const [uints, uintView] = target(Format::R32G32B32A32U);
    clear.Clear(uintView.Get(), 0xFFFFFFFFu, 0x80000000u, 1u, 0u);
    EXPECT_EQ(ReadPixels<std::uint32_t>(Gpu(), uints.Get()),
              Repeat<std::uint32_t>({0xFFFFFFFFu, 0x80000000u, 1u, 0u}, 12));

    // Narrow integer targets keep the low bits of what fits.
    auto const [bytes, byteView] = target(Format::R8G8B8A8I);
    clear.Clear(byteView.Get(), -128, 127, -1, 0);
    EXPECT_EQ(ReadPixels<std::int8_t>(Gpu(), bytes.Get()), Repeat<std::int8_t>({-128, 127, -1, 0}, 12));
}

// 64x64 -> 32x32: every target texel samples exactly between four source
// texels, so linear filtering gives their box average; small multiples of four
// keep the float arithmetic exact. The rows must not be flipped.
TEST_P(ShaderPixels, ScaledCopyIsTheTwoByTwoBoxAverage)
{
    auto const value = [](std::uint32_t x, std::uint32_t y, std::uint32_t c) {
        return static_cast<float>((x * 3 + y * 17 + c * 7) % 61 * 4);
    };
    std::vector<float> source;
    for (std::uint32_t y = 0; y < 64; ++y)
        for (std::uint32_t x = 0; x < 64; ++x)
            for (std::uint32_t c = 0; c < 4; ++c)
                source.push_back(value(x, y, c));
    ScopedImage const from = MakeImage(Gpu(), {64, 64, 0}, Format::R32G32B32A32F,
                                           ImageUsage::ShaderResource | ImageUsage::HostWrite);
    ScopedImage const to = MakeImage(Gpu(), {32, 32, 0}, Format::R32G32B32A32F,
                                         ImageUsage::RenderTarget | ImageUsage::CopySource);
    WriteLevel(Gpu(), from.Get(), {}, source);
    {
        ShaderBasedImageCopy copy(Gpu());
        copy.Copy(from.Get(), {}, to.Get(), {});
    }
    std::vector<float> const result = ReadPixels<float>(Gpu(), to.Get());
    ASSERT_EQ(result.size(), 32u * 32u * 4u);
    int mismatches = 0;
    for (std::uint32_t y = 0; y < 32; ++y)
        for (std::uint32_t x = 0; x < 32; ++x)
            for (std::uint32_t c = 0; c < 4; ++c) {
                float const expected = (value(2 * x, 2 * y, c) + value(2 * x + 1, 2 * y, c) +
                                        value(2 * x, 2 * y + 1, c) + value(2 * x + 1, 2 * y + 1, c)) /
                                       4.0f;
                float const got = result[(y * 32 + x) * 4 + c];
                if (got != expected && mismatches++ < 5)
                    ADD_FAILURE() << "texel " << x << "," << y << " channel " << c << ": " << got << " != " << expected;
            }
    EXPECT_EQ(mismatches, 0);
}

// One sample: the resolve is a copy of the depth, through the same loop.
TEST_P(ShaderPixels, ResolvingASingleSampleCopiesTheDepth)
{
    std::vector<float> depths(4 * 4);
    for (std::size_t i = 0; i < depths.size(); ++i)
        depths[i] = static_cast<float>(i) / 16.0f + 1.0f / 64.0f;
    ScopedImage const source = MakeImage(Gpu(), {4, 4, 0}, Format::D32F,
                                             ImageUsage::ShaderResource | ImageUsage::HostWrite);
    WriteLevel(Gpu(), source.Get(), {}, depths);
    ScopedImage const destination =
        MakeImage(Gpu(), {4, 4, 0}, Format::D32F, ImageUsage::RenderTarget | ImageUsage::CopySource);
    {
        ShaderBasedMsaaDepthResolver resolver(Gpu());
        resolver.Resolve(source.Get(), destination.Get(), DepthSelectionMode::Min);
    }
    EXPECT_EQ(ReadPixels<float>(Gpu(), destination.Get()), depths);
}

// Per-sample depths written by a shader that reads the sample index, then
// resolved to their minimum and maximum.
TEST_P(ShaderPixelsMultisampled, MsaaDepthResolveKeepsTheMinimumOrMaximumSample)
{
    ScopedImage const depth = MakeImage(Gpu(), {8, 8, 0}, Format::D32F,
                                            ImageUsage::ShaderResource | ImageUsage::RenderTarget, 1, 4);
    std::uint32_t const samples = Gpu().GetImageDescription(depth.Get()).sampleCount;
    ASSERT_GE(samples, 2u);
    {
        ScopedTarget const view(&Gpu(), Gpu().CreateRenderTargetView(depth.Get(), {}));
        ShaderDescription program;
        program.vertex = "\nvoid main()\n    {\n    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                         "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                         "    $Position$ = float4(x, y, 0.0, 1.0);\n  }\n";
        program.fragment = "void main() { $FragDepth$ = float(uint($FragCoord$.x) * 8u + uint($FragCoord$.y) * 64u + "
                           "$SampleId$ + 1u) / 1024.0; }\n";
        ScopedShader const shader(&Gpu(), Gpu().CreateShader(program));
        PipelineStateDescription description;
        description.shader = shader.Get();
        description.depthComparison = Comparison::Always;
        description.depthStencilFormat = Format::D32F;
        description.sampleCount = samples;
        ScopedPipeline const pipeline(&Gpu(), Gpu().CreatePipelineState(description));
        BindingState bindings;
        bindings.depthStencil = view.Get();
        Gpu().BindPipelineState(pipeline.Get(), bindings);
        Gpu().Draw({}, 3, 0);
    }
    std::uint32_t const flags = ImageUsage::RenderTarget | ImageUsage::CopySource;
    ScopedImage const minimum = MakeImage(Gpu(), {8, 8, 0}, Format::D32F, flags);
    ScopedImage const maximum = MakeImage(Gpu(), {8, 8, 0}, Format::D32F, flags);
    {
        ShaderBasedMsaaDepthResolver resolver(Gpu());
        resolver.Resolve(depth.Get(), minimum.Get(), DepthSelectionMode::Min);
        resolver.Resolve(depth.Get(), maximum.Get());
    }
    std::vector<float> const low = ReadPixels<float>(Gpu(), minimum.Get());
    std::vector<float> const high = ReadPixels<float>(Gpu(), maximum.Get());
    ASSERT_EQ(low.size(), 64u);
    ASSERT_EQ(high.size(), 64u);
    for (std::uint32_t y = 0; y < 8; ++y)
        for (std::uint32_t x = 0; x < 8; ++x) {
            std::uint32_t const base = x * 8 + y * 64;
            EXPECT_EQ(low[y * 8 + x], static_cast<float>(base + 1) / 1024.0f) << x << "," << y;
            EXPECT_EQ(high[y * 8 + x], static_cast<float>(base + samples) / 1024.0f) << x << "," << y;
        }
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(ShaderPixels, Capability::Shaders);
INSTANTIATE_CONFORMANCE_SUITE(ShaderPixelsMultisampled, Capability::Shaders | Capability::Multisampling);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(ShaderPixels)
