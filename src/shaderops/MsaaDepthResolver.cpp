// Resolving a multisampled depth image by drawing: the fragment shader keeps
// the minimum or maximum of each texel's samples, where averaging would
// invent depths that no surface has.

#include "Caches.h"
#include "ShaderTexts.h"
#include "Triangle.h"

#include <Rendering/ShaderOps.h>

namespace Zorvan::Rendering {

ShaderBasedMsaaDepthResolver::ShaderBasedMsaaDepthResolver(IGpu& gpu)
    : gpu_(gpu), vertexBuffer_(&gpu, detail::CreateTriangleBuffer(gpu))
{
}

ShaderBasedMsaaDepthResolver::~ShaderBasedMsaaDepthResolver() = default;

void ShaderBasedMsaaDepthResolver::Resolve(ImageId source, ImageId destination, DepthSelectionMode mode)
{
    std::uint32_t const sampleCount = gpu_.GetImageDescription(source).sampleCount;
    Format const depthFormat = gpu_.GetImageDescription(destination).format;
    auto const modeValue = static_cast<std::uint32_t>(mode);

    detail::ResolverPipelineKey const pipelineKey{modeValue, static_cast<std::uint32_t>(depthFormat), sampleCount};
    PsoId const pipeline = detail::GetOrCreate(pipelines_, pipelineKey, gpu_, [&] {
        ShaderId const program = detail::GetOrCreate(shaders_, detail::ResolverShaderKey{modeValue, sampleCount}, gpu_, [&] {
            ShaderDescription text{};
            text.vertex = detail::ResolveVertexShaderText();
            text.fragment = detail::ResolveFragmentShaderText(modeValue, sampleCount);
            return gpu_.CreateShader(text);
        });
        PipelineStateDescription description = detail::TrianglePipelineDescription(program);
        // Every fragment must pass so the resolved depth replaces what was there.
        description.depthComparison = Comparison::Always;
        description.depthStencilFormat = depthFormat;
        description.sampleCount = 1;
        return gpu_.CreatePipelineState(description);
    });

    // Declared in this order so the destination view is released first.
    ScopedResource<SrvId, IResourceFactory> const samples(
        &gpu_, gpu_.CreateShaderResourceView(source, ShaderResourceViewDescription{0, 0, 0, 0}));
    ScopedResource<RtvId, IResourceFactory> const depthTarget(
        &gpu_, gpu_.CreateRenderTargetView(destination, RenderTargetViewDescription{0, 0, 1, 0, 1, 0}));

    BindingState bindings{};
    // Samples are fetched, not filtered: no sampler.
    bindings.textures[0] = TextureBinding{samples.Get(), SamplerId{}, ShaderStage::Fragment};
    bindings.depthStencil = depthTarget.Get();
    gpu_.BindPipelineState(pipeline, bindings);
    gpu_.Draw(detail::TriangleBindings(vertexBuffer_.Get()), 3, 0);
}

void ShaderBasedMsaaDepthResolver::Resolve(ImageId source, ImageId destination)
{
    Resolve(source, destination, DepthSelectionMode::Max);
}

} // namespace Zorvan::Rendering
