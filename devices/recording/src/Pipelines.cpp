// Shaders, pipeline states, binding and draws of RecordingGpu: recorded and
// checked for stale handles, never executed.

#include "DeviceState.h"

namespace Zorvan::Rendering::Testing {

namespace {

// Handles inside records may be invalid ("none"); any other value must name a
// live resource of the right kind.
template <typename R, typename IdType>
void CheckOptional(Recording::DeviceState& s, Op op, IdType id)
{
    if (id.IsValid())
        s.Find<R>(op, id.Value());
}

} // namespace

ShaderId RecordingGpu::CreateShader(ShaderDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateShader, .payload = description}) == FaultKind::InvalidHandle)
        return ShaderId{};
    std::uint64_t const handle = s.Add(Recording::ShaderResource{description});
    s.Current().result = handle;
    return ShaderId{handle};
}

void RecordingGpu::DestroyShader(ShaderId shader) noexcept
{
    auto& s = *state_;
    s.Enter({.op = Op::DestroyShader, .handles = {shader.Value(), Recording::NoHandle}});
    if (s.Find<Recording::ShaderResource>(Op::DestroyShader, shader.Value()) != nullptr)
        s.Remove(shader.Value());
}

PsoId RecordingGpu::CreatePipelineState(PipelineStateDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreatePipelineState, .payload = description}) == FaultKind::InvalidHandle)
        return PsoId{};
    CheckOptional<Recording::ShaderResource>(s, Op::CreatePipelineState, description.shader);
    std::uint64_t const handle = s.Add(Recording::PipelineResource{description});
    s.Current().result = handle;
    return PsoId{handle};
}

void RecordingGpu::DestroyPipelineState(PsoId pipeline) noexcept
{
    auto& s = *state_;
    s.Enter({.op = Op::DestroyPipelineState, .handles = {pipeline.Value(), Recording::NoHandle}});
    if (s.Find<Recording::PipelineResource>(Op::DestroyPipelineState, pipeline.Value()) != nullptr)
        s.Remove(pipeline.Value());
}

void RecordingGpu::BindPipelineState(PsoId pipeline, BindingState const& bindings)
{
    auto& s = *state_;
    s.Enter({.op = Op::BindPipelineState, .handles = {pipeline.Value(), Recording::NoHandle}, .payload = bindings});
    s.Find<Recording::PipelineResource>(Op::BindPipelineState, pipeline.Value());
    for (auto const& binding : bindings.constantBuffers)
        CheckOptional<Recording::BufferResource>(s, Op::BindPipelineState, binding.buffer);
    for (auto const& binding : bindings.textures) {
        CheckOptional<Recording::ViewResource>(s, Op::BindPipelineState, binding.view);
        CheckOptional<Recording::SamplerResource>(s, Op::BindPipelineState, binding.sampler);
    }
    for (auto const& target : bindings.renderTargets)
        CheckOptional<Recording::TargetResource>(s, Op::BindPipelineState, target);
    CheckOptional<Recording::TargetResource>(s, Op::BindPipelineState, bindings.depthStencil);
    CheckOptional<Recording::TargetResource>(s, Op::BindPipelineState, bindings.reservedView);
}

void RecordingGpu::Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
                        std::uint32_t firstVertex)
{
    auto& s = *state_;
    s.Enter({.op = Op::Draw, .value = vertexCount, .value2 = firstVertex, .payload = vertexBuffers});
    for (auto const& buffer : vertexBuffers.buffers)
        CheckOptional<Recording::BufferResource>(s, Op::Draw, buffer);
}

ShaderDescription const& RecordingGpu::Shader(ShaderId shader) const
{
    return state_->Expect<Recording::ShaderResource>(shader.Value(), "Shader").description;
}

PipelineStateDescription const& RecordingGpu::Pipeline(PsoId pipeline) const
{
    return state_->Expect<Recording::PipelineResource>(pipeline.Value(), "Pipeline").description;
}

} // namespace Zorvan::Rendering::Testing
