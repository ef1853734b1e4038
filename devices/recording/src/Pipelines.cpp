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

void CheckOptionalView(Recording::DeviceState& s, PackedRtvId view)
{
    if (view.IsValid())
        s.FindPackedView(Op::BindPipelineState, view.Handle());
}

} // namespace

ShaderId RecordingGpu::CreateShader(ShaderDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateShader, .payload = description}) == FaultKind::InvalidHandle)
        return ShaderId{};
    return s.Created<ShaderId>(Recording::ShaderResource{description});
}

void RecordingGpu::DestroyShader(ShaderId shader) noexcept
{
    state_->Destroy<Recording::ShaderResource>(Op::DestroyShader, shader.Value());
}

PsoId RecordingGpu::CreatePipelineState(PipelineStateDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreatePipelineState, .payload = description}) == FaultKind::InvalidHandle)
        return PsoId{};
    CheckOptional<Recording::ShaderResource>(s, Op::CreatePipelineState, description.shader);
    return s.Created<PsoId>(Recording::PipelineResource{description});
}

void RecordingGpu::DestroyPipelineState(PsoId pipeline) noexcept
{
    state_->Destroy<Recording::PipelineResource>(Op::DestroyPipelineState, pipeline.Value());
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
        CheckOptionalView(s, target);
    CheckOptionalView(s, bindings.depthStencil);
    CheckOptionalView(s, bindings.reservedView);
}

void RecordingGpu::Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
                        std::uint32_t firstVertex)
{
    auto& s = *state_;
    s.Enter({.op = Op::Draw, .value = vertexCount, .value2 = firstVertex, .payload = vertexBuffers});
    for (auto const& buffer : vertexBuffers.buffers)
        CheckOptional<Recording::BufferResource>(s, Op::Draw, buffer);
}

void RecordingGpu::DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer,
                               std::uint32_t indexCount, std::uint32_t firstIndex)
{
    auto& s = *state_;
    s.Enter({.op = Op::DrawIndexed,
             .handles = {indexBuffer.Value(), Recording::NoHandle},
             .value = indexCount,
             .value2 = firstIndex,
             .payload = vertexBuffers});
    if (auto const* indices = s.Find<Recording::BufferResource>(Op::DrawIndexed, indexBuffer.Value())) {
        std::string const who = Recording::HandleText(ResourceKind::Buffer, indexBuffer.Value());
        if ((indices->description.flags & BufferUsage::Index) == 0)
            s.Error(Op::DrawIndexed, who + ": not an index buffer (flags " + Recording::Hex(indices->description.flags) +
                                         ")");
        else if ((std::uint64_t{firstIndex} + indexCount) * sizeof(std::uint32_t) > indices->description.size)
            s.Error(Op::DrawIndexed, who + ": indices " + std::to_string(firstIndex) + " + " +
                                         std::to_string(indexCount) + " reach past its " +
                                         std::to_string(indices->description.size) + " bytes");
    }
    for (auto const& buffer : vertexBuffers.buffers)
        CheckOptional<Recording::BufferResource>(s, Op::DrawIndexed, buffer);
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
