// Copying by sampling one image into a render target of another, with
// temporaries for images that can only be copied from or to.

#include "ShaderTexts.h"
#include "Triangle.h"

#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>

namespace Zorvan::Rendering {

namespace {

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

// A single-level image of the region's extent, for sampling or rendering
// what the original cannot.
ImageDesc TemporaryFor(ImageDesc description, std::uint32_t mipLevel, std::uint32_t usage) noexcept
{
    description.size = CalculateMipLevelSize(description.size, mipLevel);
    description.mipLevels = 1;
    description.flags = usage;
    return description;
}

// One end of a region copy: the image itself when it has the usage the draw
// needs, else a temporary when it can be copied instead; neither: unusable.
struct CopyEnd {
    ImageId image{};
    SubImage where{};
    ScopedImage temporary{};  // held, valid or not, when the end goes through one
    bool viaTemporary = false;
    bool usable = true;
};

CopyEnd Reach(IGpu& gpu, ImageId image, ImageDesc const& description, SubImage const& region, std::uint32_t direct,
              std::uint32_t viaCopy, std::uint32_t temporaryUsage)
{
    CopyEnd end;
    if ((description.flags & direct) != 0) {
        end.image = image;
        end.where = region;
    } else if ((description.flags & viaCopy) != 0) {
        end.temporary.Reset(&gpu, gpu.CreateImage(TemporaryFor(description, region.mipLevel, temporaryUsage)));
        end.image = end.temporary.Get();
        end.viaTemporary = true;
    } else {
        end.usable = false;
    }
    return end;
}

} // namespace

ShaderBasedImageCopy::ShaderBasedImageCopy(IGpu& gpu) noexcept : gpu_(gpu) {}

ShaderBasedImageCopy::~ShaderBasedImageCopy() = default;

void ShaderBasedImageCopy::Copy(SrvId source, RtvId target)
{
    if (!shader_.IsValid()) {
        ShaderDescription program{};
        program.vertex = detail::CopyVertexShaderText();
        program.fragment = detail::CopyFragmentShaderText();
        shader_.Reset(&gpu_, gpu_.CreateShader(program));
    }
    if (!sampler_.IsValid())
        sampler_.Reset(&gpu_, gpu_.CreateSampler(SamplerDescription{SamplerFilter::Linear, SamplerAddress::Clamp}));
    if (!vertexBuffer_.IsValid())
        vertexBuffer_.Reset(&gpu_, detail::CreateTriangleBuffer(gpu_));

    RenderTargetViewInfo const info = gpu_.GetRenderTargetViewDescription(target);
    PipelineStateDescription description = detail::TrianglePipelineDescription(shader_.Get());
    description.renderTargetFormats[0] = info.format;
    description.sampleCount = info.sampleCount;
    // Not cached: every copy makes and releases its own pipeline state.
    ScopedResource<PsoId, IGpu> const pipeline(&gpu_, gpu_.CreatePipelineState(description));

    BindingState bindings{};
    bindings.textures[0] = TextureBinding{source, sampler_.Get(), ShaderStage::Fragment};
    bindings.renderTargets[0] = target;
    gpu_.BindPipelineState(pipeline.Get(), bindings);
    gpu_.Draw(detail::TriangleBindings(vertexBuffer_.Get()), 3, 0);
}

void ShaderBasedImageCopy::Copy(ImageId source, SubImage const& sourceRegion, ImageId target,
                                SubImage const& targetRegion)
{
    ImageDesc const sourceDescription = gpu_.GetImageDescription(source);
    ImageDesc const targetDescription = gpu_.GetImageDescription(target);

    CopyEnd const sampled = Reach(gpu_, source, sourceDescription, sourceRegion, ImageUsage::ShaderResource,
                                  ImageUsage::CopySource, ImageUsage::ShaderResource | ImageUsage::CopyDestination);
    if (sampled.viaTemporary)
        gpu_.CopyImage(source, sourceRegion, sampled.image, SubImage{});
    CopyEnd const rendered = Reach(gpu_, target, targetDescription, targetRegion, ImageUsage::RenderTarget,
                                   ImageUsage::CopyDestination, ImageUsage::RenderTarget | ImageUsage::CopySource);

    if (!sampled.usable || !rendered.usable)
        return;

    // Declared in this order so the render-target view is released first.
    ScopedResource<SrvId, IResourceFactory> const view(
        &gpu_, gpu_.CreateShaderResourceView(
                   sampled.image, ShaderResourceViewDescription{sampled.where.mipLevel, 1, sampled.where.arraySlice, 1}));
    ScopedResource<RtvId, IResourceFactory> const targetView(
        &gpu_, gpu_.CreateRenderTargetView(rendered.image, RenderTargetViewDescription{rendered.where.mipLevel, 0, 1,
                                                                                       rendered.where.arraySlice, 1, 0}));
    Copy(view.Get(), targetView.Get());
    if (rendered.viaTemporary)
        gpu_.CopyImage(rendered.image, SubImage{}, target, targetRegion);
}

} // namespace Zorvan::Rendering
