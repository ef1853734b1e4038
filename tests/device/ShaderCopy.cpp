// Shader-based copy: view-to-view draws, the choice of temporaries in region
// copies, release on every path and, on devices that run shaders, the pixels.

#include "DeviceTestSupport.h"
#include "ShaderOpsExpectations.h"

#include <Rendering/ShaderOps.h>

#include <array>
#include <cstring>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::TestSupport;
using Testing::Op;
using Testing::ResourceKind;

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

constexpr std::uint32_t sampled = ImageUsage::ShaderResource;
constexpr std::uint32_t renderTarget = ImageUsage::RenderTarget;
constexpr std::uint32_t copySource = ImageUsage::CopySource;
constexpr std::uint32_t copyDestination = ImageUsage::CopyDestination;

class ShaderCopy : public DeviceTest {
protected:
    // Release before the base checks the device for leaks.
    void TearDown() override
    {
        images_.clear();
        DeviceTest::TearDown();
    }

    ImageId Image(std::uint32_t flags, std::uint32_t extent = 8, std::uint32_t mipLevels = 1)
    {
        ImageDesc description{};
        description.size = Size{extent, extent, 0};
        description.format = Format::R8G8B8A8;
        description.mipLevels = mipLevels;
        description.flags = flags;
        images_.emplace_back(&Gpu(), Gpu().CreateImage(description));
        return images_.back().Get();
    }

    // Writes tightly packed RGBA8 texels into the top level through a host
    // staging image (image needs copy destination).
    void Fill(ImageId image, std::vector<unsigned char> const& texels, std::uint32_t extent)
    {
        ImageDesc description = Gpu().GetImageDescription(image);
        description.mipLevels = 1;
        description.flags = ImageUsage::HostWrite | copySource;
        ScopedImage const staging(&Gpu(), Gpu().CreateImage(description));
        MappedImage const mapped = Gpu().MapImage(staging.Get(), SubImage{}, MapMode::Write);
        if (mapped.data != nullptr)
            for (std::uint32_t y = 0; y < extent; ++y)
                std::memcpy(static_cast<unsigned char*>(mapped.data) + std::int64_t{y} * mapped.rowPitch,
                            texels.data() + y * extent * 4, extent * 4);
        Gpu().UnmapImage(staging.Get(), SubImage{});
        Gpu().CopyImage(staging.Get(), SubImage{}, image, SubImage{});
    }

    std::vector<unsigned char> Read(ImageId image, std::uint32_t extent)
    {
        ImageDesc description = Gpu().GetImageDescription(image);
        description.mipLevels = 1;
        description.flags = ImageUsage::HostRead | copyDestination;
        ScopedImage const staging(&Gpu(), Gpu().CreateImage(description));
        Gpu().CopyImage(image, SubImage{}, staging.Get(), SubImage{});
        std::vector<unsigned char> texels(extent * extent * 4);
        MappedImage const mapped = Gpu().MapImage(staging.Get(), SubImage{}, MapMode::Read);
        if (mapped.data != nullptr)
            for (std::uint32_t y = 0; y < extent; ++y)
                std::memcpy(texels.data() + y * extent * 4,
                            static_cast<unsigned char const*>(mapped.data) + std::int64_t{y} * mapped.rowPitch,
                            extent * 4);
        Gpu().UnmapImage(staging.Get(), SubImage{});
        return texels;
    }

    Testing::Call const& Only(Op op)
    {
        EXPECT_EQ(Recording()->Count(op), 1u) << Testing::ToString(op) << '\n' << Recording()->Dump();
        return *Recording()->Calls(op).at(0);
    }

private:
    std::vector<ScopedImage> images_;
};

// What only a device with a call log and scripting shows.
class ShaderCopyRecorded : public ShaderCopy {};
// What only a device that renders real pixels shows.
class ShaderCopyPixels : public ShaderCopy {};

TEST_P(ShaderCopyRecorded, ViewCopyMakesItsObjectsOnceAndAPipelinePerCall)
{
    ImageId const source = Image(sampled);
    ImageId const target = Image(renderTarget);
    ScopedResource<SrvId, IResourceFactory> const view(
        &Gpu(), Gpu().CreateShaderResourceView(source, ShaderResourceViewDescription{0, 1, 0, 1}));
    ScopedResource<RtvId, IResourceFactory> const targetView(
        &Gpu(), Gpu().CreateRenderTargetView(target, RenderTargetViewDescription{}));
    if (Recording() != nullptr)
        Recording()->ClearLog();

    ShaderBasedImageCopy copy(Gpu());
    copy.Copy(view.Get(), targetView.Get());
    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::CreateShader, Op::CreateSampler, Op::CreateBuffer,
                                          Op::GetRenderTargetViewDescription, Op::CreatePipelineState,
                                          Op::BindPipelineState, Op::Draw, Op::DestroyPipelineState}))
        << gpu.Dump();

    ShaderDescription expectedShader{};
    expectedShader.vertex = "\n[in float2 pos : position]\n[out float2 uv :  tex_coord]\nvoid main()\n"
                            "        {\n        $Position$ = float4($pos$, 0.0, 1.0);\n"
                            "        $uv$ = ($pos$ + float2(1.0,1.0)) * 0.5;\n        }\n";
    expectedShader.fragment = "\nTEXTURE_2D(float4, source_image, 0);\n[in float2 uv : tex_coord]\n"
                              "[out float4 color : 0]\nvoid main()\n        {\n"
                              "        $color$ = SAMPLE(source_image, $uv$);\n        }\n";
    EXPECT_EQ(Only(Op::CreateShader).As<ShaderDescription>(), expectedShader);
    EXPECT_EQ(Only(Op::CreateSampler).As<SamplerDescription>(), (SamplerDescription{SamplerFilter::Linear, SamplerAddress::Clamp}));
    SamplerId const sampler{Only(Op::CreateSampler).result};

    EXPECT_EQ(Only(Op::CreateBuffer).As<BufferDescription>(), (BufferDescription{24, 1}));
    BufferId const triangle{Only(Op::CreateBuffer).result};
    std::array<float, 6> const corners{-1.0f, -1.0f, 3.0f, -1.0f, -1.0f, 3.0f};
    ASSERT_EQ(gpu.BufferBytes(triangle).size(), sizeof corners);
    EXPECT_EQ(std::memcmp(gpu.BufferBytes(triangle).data(), corners.data(), sizeof corners), 0);

    PipelineStateDescription expectedPipeline{};
    expectedPipeline.inputLayout[0] = AttributeDesc{"position", 0, Format::R32G32F, 0, 0, 0};
    expectedPipeline.shader = ShaderId{Only(Op::CreateShader).result};
    expectedPipeline.renderTargetFormats[0] = Format::R8G8B8A8;
    EXPECT_SAME_PIPELINE(Only(Op::CreatePipelineState).As<PipelineStateDescription>(), expectedPipeline);

    BindingState expectedBindings{};
    expectedBindings.textures[0] = TextureBinding{view.Get(), sampler, ShaderStage::Fragment};
    expectedBindings.renderTargets[0] = targetView.Get();
    EXPECT_EQ(Only(Op::BindPipelineState).As<BindingState>(), expectedBindings);

    VertexBufferBindings expectedBuffers{};
    expectedBuffers.buffers[0] = triangle;
    EXPECT_EQ(Only(Op::Draw).As<VertexBufferBindings>(), expectedBuffers);
    EXPECT_EQ(Only(Op::Draw).value, 3u);
    EXPECT_EQ(Only(Op::Draw).value2, 0u);
    EXPECT_EQ(Only(Op::DestroyPipelineState).handles[0], Only(Op::CreatePipelineState).result);

    // Program, sampler and buffer persist; the pipeline is never cached.
    gpu.ClearLog();
    copy.Copy(view.Get(), targetView.Get());
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::GetRenderTargetViewDescription, Op::CreatePipelineState,
                                          Op::BindPipelineState, Op::Draw, Op::DestroyPipelineState}));
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Pipeline), 0u);
}

TEST_P(ShaderCopyRecorded, RegionCopyUsesImagesDirectlyWhenItCan)
{
    ImageId const source = Image(sampled | copyDestination, 8, 3);
    ImageId const target = Image(renderTarget | copySource, 4);
    if (Recording() != nullptr)
        Recording()->ClearLog();

    ShaderBasedImageCopy copy(Gpu());
    copy.Copy(source, SubImage{1, 0}, target, SubImage{0, 0});
    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.Count(Op::CreateImage), 0u);
    EXPECT_EQ(gpu.Count(Op::CopyImage), 0u);
    EXPECT_EQ(Only(Op::CreateShaderResourceView).handles[0], source.Value());
    EXPECT_EQ(Only(Op::CreateShaderResourceView).As<ShaderResourceViewDescription>(),
              (ShaderResourceViewDescription{1, 1, 0, 1}));
    EXPECT_EQ(Only(Op::CreateRenderTargetView).handles[0], target.Value());
    EXPECT_EQ(Only(Op::CreateRenderTargetView).As<RenderTargetViewDescription>(),
              (RenderTargetViewDescription{0, 0, 1, 0, 1, 0}));
    // Views go after the draw, the render-target view first.
    EXPECT_EQ(gpu.Ops({Op::Draw, Op::DestroyRenderTargetView, Op::DestroyShaderResourceView}),
              (std::vector<Op>{Op::Draw, Op::DestroyRenderTargetView, Op::DestroyShaderResourceView}));
}

TEST_P(ShaderCopyRecorded, CopyOnlyImagesGoThroughTemporariesOfTheRegionsLevel)
{
    ImageId const source = Image(copySource, 8, 2);
    ImageId const target = Image(copyDestination, 16, 3);
    if (Recording() != nullptr)
        Recording()->ClearLog();

    ShaderBasedImageCopy copy(Gpu());
    copy.Copy(source, SubImage{1, 0}, target, SubImage{2, 0});
    Testing::RecordingGpu& gpu = *Recording();
    EXPECT_EQ(gpu.Ops({Op::CreateImage, Op::CopyImage, Op::CreateShaderResourceView, Op::CreateRenderTargetView,
                       Op::Draw, Op::DestroyRenderTargetView, Op::DestroyShaderResourceView, Op::DestroyImage}),
              (std::vector<Op>{Op::CreateImage, Op::CopyImage, Op::CreateImage, Op::CreateShaderResourceView,
                               Op::CreateRenderTargetView, Op::Draw, Op::CopyImage, Op::DestroyRenderTargetView,
                               Op::DestroyShaderResourceView, Op::DestroyImage, Op::DestroyImage}))
        << gpu.Dump();

    auto const creates = gpu.Calls(Op::CreateImage);
    auto const copies = gpu.Calls(Op::CopyImage);
    ImageDesc expectedSource{Size{4, 4, 0}, Format::R8G8B8A8, 1, 1, sampled | copyDestination};
    ImageDesc expectedTarget{Size{4, 4, 0}, Format::R8G8B8A8, 1, 1, renderTarget | copySource};
    EXPECT_EQ(creates[0]->As<ImageDesc>(), expectedSource);
    EXPECT_EQ(creates[1]->As<ImageDesc>(), expectedTarget);
    std::uint64_t const sourceTemporary = creates[0]->result;
    std::uint64_t const targetTemporary = creates[1]->result;

    // In: the source region into the temporary's top level.
    EXPECT_EQ(copies[0]->handles, (std::array<std::uint64_t, 2>{source.Value(), sourceTemporary}));
    EXPECT_EQ(copies[0]->subImages, (std::array<SubImage, 2>{SubImage{1, 0}, SubImage{0, 0}}));
    // Out: the rendered temporary into the target region.
    EXPECT_EQ(copies[1]->handles, (std::array<std::uint64_t, 2>{targetTemporary, target.Value()}));
    EXPECT_EQ(copies[1]->subImages, (std::array<SubImage, 2>{SubImage{0, 0}, SubImage{2, 0}}));

    EXPECT_EQ(Only(Op::CreateShaderResourceView).handles[0], sourceTemporary);
    EXPECT_EQ(Only(Op::CreateShaderResourceView).As<ShaderResourceViewDescription>(),
              (ShaderResourceViewDescription{0, 1, 0, 1}));
    EXPECT_EQ(Only(Op::CreateRenderTargetView).handles[0], targetTemporary);
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Image), 2u);
}

TEST_P(ShaderCopyRecorded, RegionCopyWithoutAWayInOrOutDrawsNothing)
{
    ImageId const unreadable = Image(renderTarget);
    ImageId const unwritable = Image(sampled);
    ImageId const readable = Image(sampled);
    ImageId const writable = Image(renderTarget);
    if (Recording() != nullptr)
        Recording()->ClearLog();

    ShaderBasedImageCopy copy(Gpu());
    copy.Copy(unreadable, SubImage{}, writable, SubImage{});
    copy.Copy(readable, SubImage{}, unwritable, SubImage{});
    EXPECT_EQ(Recording()->Count(Op::Draw), 0u);
    EXPECT_EQ(Recording()->Count(Op::CreateShaderResourceView), 0u);
    EXPECT_EQ(Recording()->Count(Op::CreateImage), 0u);
}

TEST_P(ShaderCopyRecorded, ThrowingDeviceLeavesNothingBehind)
{
    ImageId const source = Image(copySource, 8, 2);
    ImageId const target = Image(copyDestination, 8, 2);
    SweepThrowingCalls(*Recording(), [&] {
        ShaderBasedImageCopy copy(Gpu());
        copy.Copy(source, SubImage{1, 0}, target, SubImage{1, 0});
    });
}

TEST_P(ShaderCopyPixels, SameSizeCopyReproducesTheTexels)
{
    constexpr std::uint32_t extent = 4;
    std::vector<unsigned char> texels(extent * extent * 4);
    for (std::size_t i = 0; i < texels.size(); ++i)
        texels[i] = static_cast<unsigned char>(i * 37 + 11);

    ImageId const source = Image(sampled | copyDestination, extent);
    ImageId const target = Image(renderTarget | copySource, extent);
    Fill(source, texels, extent);
    ShaderBasedImageCopy copy(Gpu());
    copy.Copy(source, SubImage{}, target, SubImage{});
    EXPECT_EQ(Read(target, extent), texels);
}

INSTANTIATE_DEVICE_TEST_SUITE(ShaderCopyRecorded, DeviceCapability::CallLog);
INSTANTIATE_DEVICE_TEST_SUITE(ShaderCopyPixels, DeviceCapability::RealPixels);

} // namespace
