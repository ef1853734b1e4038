// Clearing a render target by drawing a full-screen triangle whose fragment
// shader writes a constant, so integer targets receive their value unconverted.

#include "Caches.h"
#include "Hashing.h"
#include "ShaderTexts.h"

#include <Rendering/ShaderOps.h>
#include <Rendering/Vertex.h>

#include <array>

namespace Zorvan::Rendering {

namespace {

constexpr std::uint32_t constantBufferFlags = BufferUsage::Constant | BufferUsage::Dynamic;

PsoId GetOrCreateClearPipeline(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, detail::ClearValueType type,
                               RenderTargetViewInfo const& target)
{
    std::uint64_t const shaderKey = detail::ClearShaderKey(type);
    std::uint64_t const pipelineKey = detail::ClearPipelineKey(shaderKey, target.format, target.sampleCount);
    return detail::GetOrCreate(pipelines, pipelineKey, gpu, [&] {
        PipelineStateDescription description{};
        description.renderTargetFormats[0] = target.format;
        description.sampleCount = target.sampleCount;
        description.shader = detail::GetOrCreate(shaders, shaderKey, gpu, [&] {
            ShaderDescription program{};
            program.vertex = detail::ClearVertexShaderText();
            program.fragment = detail::ClearFragmentShaderText(detail::ClearTypeName(type));
            return gpu.CreateShader(program);
        });
        return gpu.CreatePipelineState(description);
    });
}

template <typename T>
void Clear(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, detail::ClearValueType type,
           std::array<T, 4> const& value)
{
    static_assert(sizeof(value) == 16);
    ScopedResource<BufferId, IGpu> const constants(&gpu,
                                                   gpu.CreateBuffer(BufferDescription{16, constantBufferFlags}, nullptr));
    Update(constants.Get(), gpu, 16, value.data());

    PsoId const pipeline =
        GetOrCreateClearPipeline(gpu, shaders, pipelines, type, gpu.GetRenderTargetViewDescription(target));

    BindingState bindings{};
    bindings.constantBuffers[0] = ConstantBufferBinding{constants.Get(), ShaderStage::Fragment};
    bindings.renderTargets[0] = target;
    gpu.BindPipelineState(pipeline, bindings);
    // The vertex shader builds the triangle from the vertex id: no buffers.
    gpu.Draw(VertexBufferBindings{}, 3, 0);
}

} // namespace

void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, int r, int g, int b, int a)
{
    Clear(gpu, shaders, pipelines, target, detail::ClearValueType::Int4, std::array<int, 4>{r, g, b, a});
}

void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, unsigned int r, unsigned int g,
                unsigned int b, unsigned int a)
{
    Clear(gpu, shaders, pipelines, target, detail::ClearValueType::Uint4, std::array<unsigned int, 4>{r, g, b, a});
}

void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, float r, float g, float b,
                float a)
{
    Clear(gpu, shaders, pipelines, target, detail::ClearValueType::Float4, std::array<float, 4>{r, g, b, a});
}

ShaderBasedImageClear::ShaderBasedImageClear(IGpu& gpu) : gpu_(gpu) {}

ShaderBasedImageClear::~ShaderBasedImageClear() = default;

void ShaderBasedImageClear::Clear(RtvId target, int r, int g, int b, int a)
{
    ClearImage(gpu_, shaders_, pipelines_, target, r, g, b, a);
}

void ShaderBasedImageClear::Clear(RtvId target, unsigned int r, unsigned int g, unsigned int b, unsigned int a)
{
    ClearImage(gpu_, shaders_, pipelines_, target, r, g, b, a);
}

void ShaderBasedImageClear::Clear(RtvId target, float r, float g, float b, float a)
{
    ClearImage(gpu_, shaders_, pipelines_, target, r, g, b, a);
}

} // namespace Zorvan::Rendering
