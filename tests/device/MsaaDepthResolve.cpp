// Multisample depth resolver: call sequence, caches keyed by mode, format and
// sample count, and release on every path.

#include "DeviceTestSupport.h"
#include "ShaderOpsExpectations.h"

#include <Rendering/ShaderOps.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::TestSupport;
using Testing::Op;
using Testing::ResourceKind;

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

class MsaaDepthResolve : public DeviceTest {
protected:
    // Release before the base checks the device for leaks.
    void TearDown() override
    {
        images_.clear();
        DeviceTest::TearDown();
    }

    // Multisampled depth that has been rendered to and may be sampled.
    ImageId Source(std::uint32_t samples, Format format = Format::D32F)
    {
        return Image(format, samples, ImageUsage::ShaderResource | ImageUsage::RenderTarget);
    }
    ImageId Destination(Format format = Format::D32F) { return Image(format, 1, ImageUsage::RenderTarget); }

    std::string Fragment(std::size_t shader)
    {
        return Recording()->Calls(Op::CreateShader).at(shader)->As<ShaderDescription>().fragment;
    }

private:
    ImageId Image(Format format, std::uint32_t samples, std::uint32_t flags)
    {
        ImageDesc description{};
        description.size = Size{8, 8, 0};
        description.format = format;
        description.sampleCount = samples;
        description.flags = flags;
        images_.emplace_back(&Gpu(), Gpu().CreateImage(description));
        return images_.back().Get();
    }

    std::vector<ScopedImage> images_;
};

TEST_P(MsaaDepthResolve, DrawsDepthOnlyFromASampledViewOfEverySample)
{
    ImageId const source = Source(4);
    ImageId const destination = Destination();
    if (Recording() != nullptr)
        Recording()->ClearLog();

    ShaderBasedMsaaDepthResolver resolver(Gpu());
    resolver.Resolve(source, destination, DepthSelectionMode::Min);
    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::CreateBuffer, Op::GetImageDescription, Op::GetImageDescription,
                                          Op::CreateShader, Op::CreatePipelineState, Op::CreateShaderResourceView,
                                          Op::CreateRenderTargetView, Op::BindPipelineState, Op::Draw,
                                          Op::DestroyRenderTargetView, Op::DestroyShaderResourceView}))
        << gpu.Dump();

    auto const& create = *gpu.Calls(Op::CreateBuffer)[0];
    EXPECT_EQ(create.As<BufferDescription>(), (BufferDescription{24, 1}));
    BufferId const triangle{create.result};
    std::array<float, 6> const corners{-1.0f, -1.0f, 3.0f, -1.0f, -1.0f, 3.0f};
    EXPECT_EQ(std::memcmp(gpu.BufferBytes(triangle).data(), corners.data(), sizeof corners), 0);
    EXPECT_EQ(gpu.Calls(Op::GetImageDescription)[0]->handles[0], source.Value());
    EXPECT_EQ(gpu.Calls(Op::GetImageDescription)[1]->handles[0], destination.Value());

    ShaderDescription expectedShader{};
    expectedShader.vertex = "\n[in float4 pos : position]\nvoid main() { $Position$ = $pos$; }\n";
    expectedShader.fragment =
        "TEXTURE_2DMS(float4, msaaDepth, 0);\nvoid main()\n  {\n  $FragDepth$ = 1;\n  [unroll]\n"
        "  for (uint i = 0; i < uint(4); ++i)\n"
        "    $FragDepth$ = min($FragDepth$, READ_SAMPLE(msaaDepth, uint2($FragCoord$.xy), i).x);\n  }\n";
    EXPECT_EQ(gpu.Calls(Op::CreateShader)[0]->As<ShaderDescription>(), expectedShader);

    PipelineStateDescription expectedPipeline{};
    expectedPipeline.inputLayout[0] = AttributeDesc{"position", 0, Format::R32G32F, 0, 0, 0};
    expectedPipeline.shader = ShaderId{gpu.Calls(Op::CreateShader)[0]->result};
    expectedPipeline.depthComparison = Comparison::Always;
    expectedPipeline.depthStencilFormat = Format::D32F;
    expectedPipeline.sampleCount = 1;
    EXPECT_SAME_PIPELINE(gpu.Calls(Op::CreatePipelineState)[0]->As<PipelineStateDescription>(), expectedPipeline);

    auto const& sourceView = *gpu.Calls(Op::CreateShaderResourceView)[0];
    EXPECT_EQ(sourceView.handles[0], source.Value());
    EXPECT_EQ(sourceView.As<ShaderResourceViewDescription>(), (ShaderResourceViewDescription{0, 0, 0, 0}));
    auto const& depthView = *gpu.Calls(Op::CreateRenderTargetView)[0];
    EXPECT_EQ(depthView.handles[0], destination.Value());
    EXPECT_EQ(depthView.As<RenderTargetViewDescription>(), (RenderTargetViewDescription{0, 0, 1, 0, 1, 0}));

    BindingState expectedBindings{};
    expectedBindings.textures[0] = TextureBinding{SrvId{sourceView.result}, SamplerId{}, ShaderStage::Fragment};
    expectedBindings.depthStencil = RtvId{depthView.result};
    EXPECT_EQ(gpu.Calls(Op::BindPipelineState)[0]->As<BindingState>(), expectedBindings);
    EXPECT_EQ(gpu.Calls(Op::BindPipelineState)[0]->handles[0], gpu.Calls(Op::CreatePipelineState)[0]->result);

    VertexBufferBindings expectedBuffers{};
    expectedBuffers.buffers[0] = triangle;
    EXPECT_EQ(gpu.Calls(Op::Draw)[0]->As<VertexBufferBindings>(), expectedBuffers);
    EXPECT_EQ(gpu.Calls(Op::Draw)[0]->value, 3u);
    EXPECT_EQ(gpu.Calls(Op::DestroyRenderTargetView)[0]->handles[0], depthView.result);
    EXPECT_EQ(gpu.Calls(Op::DestroyShaderResourceView)[0]->handles[0], sourceView.result);
}

TEST_P(MsaaDepthResolve, CachesShadersByModeAndSamplesAndPipelinesAlsoByFormat)
{
    ImageId const fourSamples = Source(4);
    ImageId const twoSamples = Source(2);
    ImageId const single = Source(1);
    ImageId const depth32 = Destination(Format::D32F);
    ImageId const depth16 = Destination(Format::D16);

    ShaderBasedMsaaDepthResolver resolver(Gpu());
    resolver.Resolve(fourSamples, depth32, DepthSelectionMode::Min);
    resolver.Resolve(fourSamples, depth32, DepthSelectionMode::Min);
    resolver.Resolve(fourSamples, depth16, DepthSelectionMode::Min); // new pipeline, same shader
    resolver.Resolve(fourSamples, depth32);                          // Max: new shader
    resolver.Resolve(twoSamples, depth32);                           // new sample count
    resolver.Resolve(single, depth16, static_cast<DepthSelectionMode>(7));
    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Shader), 4u);
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Pipeline), 5u);
    EXPECT_EQ(gpu.Count(Op::Draw), 6u);

    std::vector<std::uint32_t> formats;
    for (auto const* call : gpu.Calls(Op::CreatePipelineState))
        formats.push_back(static_cast<std::uint32_t>(call->As<PipelineStateDescription>().depthStencilFormat));
    EXPECT_EQ(formats, (std::vector<std::uint32_t>{41, 45, 41, 41, 45}));

    // The two-argument form keeps the maximum; any mode but Min acts as Max.
    EXPECT_NE(Fragment(1).find("$FragDepth$ = 0;\n"), std::string::npos);
    EXPECT_NE(Fragment(1).find("= max($FragDepth$"), std::string::npos);
    EXPECT_NE(Fragment(2).find("i < uint(2)"), std::string::npos);
    EXPECT_NE(Fragment(3).find("i < uint(1)"), std::string::npos);
    EXPECT_NE(Fragment(3).find("= max($FragDepth$"), std::string::npos);
}

TEST_P(MsaaDepthResolve, ThrowingDeviceLeavesNothingBehind)
{
    ImageId const source = Source(4);
    ImageId const destination = Destination();
    SweepThrowingCalls(*Recording(), [&] {
        ShaderBasedMsaaDepthResolver resolver(Gpu());
        resolver.Resolve(source, destination, DepthSelectionMode::Max);
    });
}

INSTANTIATE_DEVICE_TEST_SUITE(MsaaDepthResolve, DeviceCapability::CallLog);

} // namespace
