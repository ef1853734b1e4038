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

    ScopedImage sourceTemporary;
    bool canSample = true;
    ImageId sampled;
    SubImage sampledWhere;
    if ((sourceDescription.flags & ImageUsage::ShaderResource) != 0) {
        sampled = source;
        sampledWhere = sourceRegion;
    } else if ((sourceDescription.flags & ImageUsage::CopySource) != 0) {
        sourceTemporary.Reset(&gpu_, gpu_.CreateImage(TemporaryFor(sourceDescription, sourceRegion.mipLevel,
                                                                   ImageUsage::ShaderResource |
                                                                       ImageUsage::CopyDestination)));
        sampled = sourceTemporary.Get();
        gpu_.CopyImage(source, sourceRegion, sampled, SubImage{});
    } else {
        canSample = false;
    }

    ScopedImage targetTemporary;
    bool canRender = true;
    bool renderIntoTemporary = false;
    ImageId rendered;
    SubImage renderedWhere;
    if ((targetDescription.flags & ImageUsage::RenderTarget) != 0) {
        rendered = target;
        renderedWhere = targetRegion;
    } else if ((targetDescription.flags & ImageUsage::CopyDestination) != 0) {
        targetTemporary.Reset(&gpu_, gpu_.CreateImage(TemporaryFor(targetDescription, targetRegion.mipLevel,
                                                                   ImageUsage::RenderTarget |
                                                                       ImageUsage::CopySource)));
        rendered = targetTemporary.Get();
        renderIntoTemporary = true;
    } else {
        canRender = false;
    }

    if (!canSample || !canRender)
        return;

    // Declared in this order so the render-target view is released first.
    ScopedResource<SrvId, IResourceFactory> const view(
        &gpu_, gpu_.CreateShaderResourceView(
                   sampled, ShaderResourceViewDescription{sampledWhere.mipLevel, 1, sampledWhere.arraySlice, 1}));
    ScopedResource<RtvId, IResourceFactory> const targetView(
        &gpu_, gpu_.CreateRenderTargetView(
                   rendered, RenderTargetViewDescription{renderedWhere.mipLevel, 0, 1, renderedWhere.arraySlice, 1, 0}));
    Copy(view.Get(), targetView.Get());
    if (renderIntoTemporary)
        gpu_.CopyImage(rendered, SubImage{}, target, targetRegion);
}

} // namespace Zorvan::Rendering
