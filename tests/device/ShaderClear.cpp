// Shader-based clear: call sequence, caches, failure paths and, on devices
// that run shaders, the values written.

#include "DeviceTestSupport.h"
#include "ShaderOpsExpectations.h"

#include <Rendering/ShaderOps.h>

#include <cstring>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::TestSupport;
using Testing::Op;
using Testing::ResourceKind;

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;
using ScopedRtv = ScopedResource<RtvId, IResourceFactory>;

constexpr char clearVertex[] = "\nvoid main()\n    {\n    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                               "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                               "    $Position$ = float4(x, y, 0.0, 1.0);\n  }\n";

class ShaderClear : public DeviceTest {
protected:
    // Release before the base checks the device for leaks.
    void TearDown() override
    {
        views_.clear();
        images_.clear();
        DeviceTest::TearDown();
    }

    // A render target that can also be copied out for reading back.
    RtvId Target(Format format, std::uint32_t samples = 1)
    {
        ImageDesc description{};
        description.size = Size{4, 4, 0};
        description.format = format;
        description.sampleCount = samples;
        description.flags = ImageUsage::RenderTarget | (samples == 1 ? ImageUsage::CopySource : 0u);
        images_.emplace_back(&Gpu(), Gpu().CreateImage(description));
        views_.emplace_back(&Gpu(), Gpu().CreateRenderTargetView(images_.back().Get(), RenderTargetViewDescription{}));
        return views_.back().Get();
    }

    // Bytes of the single-sample image behind the last target, top level.
    std::vector<unsigned char> ReadBack(std::uint32_t pixelSize)
    {
        ImageId const image = images_.back().Get();
        ImageDesc description = Gpu().GetImageDescription(image);
        description.flags = ImageUsage::HostRead | ImageUsage::CopyDestination;
        ScopedImage const staging(&Gpu(), Gpu().CreateImage(description));
        Gpu().CopyImage(image, SubImage{}, staging.Get(), SubImage{});

        std::vector<unsigned char> bytes(description.size.width * description.size.height * pixelSize);
        MappedImage const mapped = Gpu().MapImage(staging.Get(), SubImage{}, MapMode::Read);
        if (mapped.data != nullptr)
            for (std::uint32_t y = 0; y < description.size.height; ++y)
                std::memcpy(bytes.data() + y * description.size.width * pixelSize,
                            static_cast<unsigned char const*>(mapped.data) + std::int64_t{y} * mapped.rowPitch,
                            description.size.width * pixelSize);
        Gpu().UnmapImage(staging.Get(), SubImage{});
        return bytes;
    }

private:
    std::vector<ScopedImage> images_;
    std::vector<ScopedRtv> views_;
};

// What only a device with a call log and scripting shows.
class ShaderClearRecorded : public ShaderClear {};
// What only a device that renders real pixels shows.
class ShaderClearPixels : public ShaderClear {};

TEST_P(ShaderClearRecorded, DrawsOneTriangleWithTheClearColourInAConstantBuffer)
{
    RtvId const target = Target(Format::R8G8B8A8);
    if (Recording() != nullptr)
        Recording()->ClearLog();
    {
        ShaderBasedImageClear clear(Gpu());
        clear.Clear(target, 1.0f, 0.5f, 0.25f, 0.0f);
    }
    Testing::RecordingGpu& gpu = *Recording();

    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::CreateBuffer, Op::MapBuffer, Op::UnmapBuffer,
                                          Op::GetRenderTargetViewDescription, Op::CreateShader,
                                          Op::CreatePipelineState, Op::BindPipelineState, Op::Draw,
                                          Op::DestroyBuffer, Op::DestroyPipelineState, Op::DestroyShader}))
        << gpu.Dump();

    auto const& create = *gpu.Calls(Op::CreateBuffer)[0];
    EXPECT_EQ(create.As<BufferDescription>(), (BufferDescription{16, 36}));
    BufferId const constants{create.result};
    EXPECT_EQ(gpu.Calls(Op::MapBuffer)[0]->value, MapMode::Write);
    EXPECT_EQ(gpu.Calls(Op::DestroyBuffer)[0]->handles[0], constants.Value());

    ShaderDescription expectedShader{};
    expectedShader.vertex = clearVertex;
    expectedShader.fragment = "CBUFFER(constant_buffer, 0) { float4 ClearColor; };\n"
                              "[out float4 color : 0]\nvoid main() { $color$ = ClearColor; }\n";
    EXPECT_EQ(gpu.Calls(Op::CreateShader)[0]->As<ShaderDescription>(), expectedShader);

    PipelineStateDescription expectedPipeline{};
    expectedPipeline.shader = ShaderId{gpu.Calls(Op::CreateShader)[0]->result};
    expectedPipeline.renderTargetFormats[0] = Format::R8G8B8A8;
    EXPECT_SAME_PIPELINE(gpu.Calls(Op::CreatePipelineState)[0]->As<PipelineStateDescription>(), expectedPipeline);

    BindingState expectedBindings{};
    expectedBindings.constantBuffers[0] = ConstantBufferBinding{constants, ShaderStage::Fragment};
    expectedBindings.renderTargets[0] = target;
    auto const& bind = *gpu.Calls(Op::BindPipelineState)[0];
    EXPECT_EQ(bind.handles[0], gpu.Calls(Op::CreatePipelineState)[0]->result);
    EXPECT_EQ(bind.As<BindingState>(), expectedBindings);

    auto const& draw = *gpu.Calls(Op::Draw)[0];
    EXPECT_EQ(draw.As<VertexBufferBindings>(), VertexBufferBindings{});
    EXPECT_EQ(draw.value, 3u);
    EXPECT_EQ(draw.value2, 0u);
}

TEST_P(ShaderClearRecorded, CachesOneShaderPerTypeAndOnePipelinePerFormatAndSampleCount)
{
    RtvId const first = Target(Format::R8G8B8A8);
    RtvId const sameKind = Target(Format::R8G8B8A8);
    RtvId const otherFormat = Target(Format::R16G16B16A16F);
    RtvId const multisampled = Target(Format::R8G8B8A8, 4);
    RtvId const integer = Target(Format::R8G8B8A8I);
    RtvId const unsignedInteger = Target(Format::R8G8B8A8U);

    ShaderBasedImageClear clear(Gpu());
    clear.Clear(first, 0.0f, 0.0f, 0.0f, 1.0f);
    clear.Clear(sameKind, 1.0f, 1.0f, 1.0f, 1.0f);
    clear.Clear(first, 0.5f, 0.0f, 0.0f, 1.0f);
    EXPECT_EQ(clear.Shaders().size(), 1u);
    EXPECT_EQ(clear.Pipelines().size(), 1u);

    clear.Clear(otherFormat, 0.0f, 0.0f, 0.0f, 1.0f);
    clear.Clear(multisampled, 0.0f, 0.0f, 0.0f, 1.0f);
    EXPECT_EQ(clear.Shaders().size(), 1u);
    EXPECT_EQ(clear.Pipelines().size(), 3u);

    clear.Clear(integer, -1, 2, -3, 4);
    clear.Clear(unsignedInteger, 1u, 2u, 3u, 4u);
    EXPECT_EQ(clear.Shaders().size(), 3u);
    EXPECT_EQ(clear.Pipelines().size(), 5u);

    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.Count(Op::CreateShader), 3u);
    EXPECT_EQ(gpu.Count(Op::CreatePipelineState), 5u);
    // Only shaders and pipelines persist: every clear has its own buffer.
    EXPECT_EQ(gpu.Count(Op::CreateBuffer), 7u);
    EXPECT_EQ(gpu.Count(Op::DestroyBuffer), 7u);
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Buffer), 0u);

    std::vector<std::uint32_t> sampleCounts;
    for (auto const* call : gpu.Calls(Op::CreatePipelineState))
        sampleCounts.push_back(call->As<PipelineStateDescription>().sampleCount);
    EXPECT_EQ(sampleCounts, (std::vector<std::uint32_t>{1, 1, 4, 1, 1}));
    EXPECT_NE(gpu.Calls(Op::CreateShader)[1]->As<ShaderDescription>().fragment.find("{ int4 ClearColor; }"),
              std::string::npos);
    EXPECT_NE(gpu.Calls(Op::CreateShader)[2]->As<ShaderDescription>().fragment.find("[out uint4 color : 0]"),
              std::string::npos);
}

TEST_P(ShaderClearRecorded, ThrowingDeviceLeavesNothingBehind)
{
    RtvId const target = Target(Format::R8G8B8A8);
    SweepThrowingCalls(*Recording(), [&] {
        ShaderBasedImageClear clear(Gpu());
        clear.Clear(target, 1u, 2u, 3u, 4u);
    });

    // A failure after the pipeline was made leaves it cached, and usable.
    ShaderBasedImageClear clear(Gpu());
    Recording()->ClearLog();
    Recording()->InjectFault(Op::Draw, 0, Testing::FaultKind::Throw);
    EXPECT_THROW(clear.Clear(target, 1, 2, 3, 4), Testing::InjectedFault);
    EXPECT_EQ(clear.Pipelines().size(), 1u);
    clear.Clear(target, 1, 2, 3, 4);
    EXPECT_EQ(Recording()->Count(Op::CreatePipelineState), 1u);
}

// Values a float path would round (2^24 + 1) or clamp reach the target as given.
TEST_P(ShaderClearPixels, WritesValuesUnconverted)
{
    ShaderBasedImageClear clear(Gpu());

    auto expectEveryPixel = [&](auto const (&value)[4]) {
        std::vector<unsigned char> const bytes = ReadBack(16);
        for (std::size_t offset = 0; offset < bytes.size(); offset += 16)
            ASSERT_EQ(std::memcmp(bytes.data() + offset, value, 16), 0) << "pixel " << offset / 16;
    };

    unsigned int const u[4] = {0xffffffffu, 16777217u, 0u, 7u};
    clear.Clear(Target(Format::R32G32B32A32U), u[0], u[1], u[2], u[3]);
    expectEveryPixel(u);

    int const i[4] = {-2147483647 - 1, -16777217, 2147483647, -1};
    clear.Clear(Target(Format::R32G32B32A32I), i[0], i[1], i[2], i[3]);
    expectEveryPixel(i);

    float const f[4] = {0.1f, -3.5f, 1e30f, 2.0f};
    clear.Clear(Target(Format::R32G32B32A32F), f[0], f[1], f[2], f[3]);
    expectEveryPixel(f);
}

INSTANTIATE_DEVICE_TEST_SUITE(ShaderClearRecorded, DeviceCapability::CallLog);
INSTANTIATE_DEVICE_TEST_SUITE(ShaderClearPixels, DeviceCapability::RealPixels);

} // namespace
