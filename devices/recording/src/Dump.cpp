// The call log as text, for failure messages.

#include "DeviceState.h"

#include <Rendering/Format.h>

#include <sstream>

namespace Zorvan::Rendering::Testing {

namespace {

// The kind of resource the handle arguments of an operation name.
ResourceKind ArgumentKind(Op op) noexcept
{
    switch (op) {
    case Op::GetBufferDescription:
    case Op::DestroyBuffer:
    case Op::MapBuffer:
    case Op::UnmapBuffer:
    case Op::DrawIndexed: return ResourceKind::Buffer;
    case Op::GetRenderTargetViewDescription:
    case Op::DestroyRenderTargetView: return ResourceKind::RenderTargetView;
    case Op::DestroyShaderResourceView: return ResourceKind::ShaderResourceView;
    case Op::DestroySampler: return ResourceKind::Sampler;
    case Op::DestroyShader: return ResourceKind::Shader;
    case Op::DestroyPipelineState:
    case Op::BindPipelineState: return ResourceKind::Pipeline;
    case Op::BeginQuery:
    case Op::EndQuery:
    case Op::RecordQuery:
    case Op::GetQueryResult:
    case Op::DestroyQuery: return ResourceKind::Query;
    default: return ResourceKind::Image;
    }
}

// The kind of resource a create operation returns.
ResourceKind ResultKind(Op op) noexcept
{
    switch (op) {
    case Op::CreateBuffer: return ResourceKind::Buffer;
    case Op::CreateShaderResourceView: return ResourceKind::ShaderResourceView;
    case Op::CreateRenderTargetView: return ResourceKind::RenderTargetView;
    case Op::CreateSampler: return ResourceKind::Sampler;
    case Op::CreateShader: return ResourceKind::Shader;
    case Op::CreatePipelineState: return ResourceKind::Pipeline;
    case Op::CreateQuery: return ResourceKind::Query;
    default: return ResourceKind::Image;
    }
}

void Payload(std::ostringstream& out, Call::Payload const& payload)
{
    if (auto const* b = std::get_if<BufferDescription>(&payload)) {
        out << b->size << " bytes, flags " << Recording::Hex(b->flags);
    } else if (auto const* d = std::get_if<ImageDesc>(&payload)) {
        out << d->size.width << 'x' << d->size.height << 'x' << d->size.depth << ' ' << Rendering::ToString(d->format)
            << ", " << d->sampleCount << " sample(s), " << d->mipLevels << " mip(s), flags " << Recording::Hex(d->flags);
    } else if (auto const* v = std::get_if<ShaderResourceViewDescription>(&payload)) {
        out << "mips " << v->firstMipLevel << '+' << v->mipLevelCount << ", slices " << v->firstArraySlice << '+'
            << v->arraySliceCount;
    } else if (auto const* r = std::get_if<RenderTargetViewDescription>(&payload)) {
        out << "mip " << r->mipLevel << ", slices " << r->firstArraySlice << '+' << r->arraySliceCount;
    } else if (auto const* bindings = std::get_if<BindingState>(&payload)) {
        char const* separator = "";
        auto slot = [&](char const* name, std::size_t index, ResourceKind kind, std::uint64_t handle) {
            out << separator << name << index << ' ' << Recording::HandleText(kind, handle);
            separator = ", ";
        };
        for (std::size_t i = 0; i < bindings->constantBuffers.size(); ++i)
            if (bindings->constantBuffers[i].buffer.IsValid())
                slot("cb", i, ResourceKind::Buffer, bindings->constantBuffers[i].buffer.Value());
        for (std::size_t i = 0; i < bindings->textures.size(); ++i) {
            if (bindings->textures[i].view.IsValid())
                slot("texture", i, ResourceKind::ShaderResourceView, bindings->textures[i].view.Value());
            if (bindings->textures[i].sampler.IsValid())
                slot("sampler", i, ResourceKind::Sampler, bindings->textures[i].sampler.Value());
        }
        auto view = [&](char const* name, std::size_t index, PackedRtvId handle) {
            if (handle.IsValid()) {
                out << separator << name << index << ' ' << Recording::PackedHandleText(handle.Handle());
                separator = ", ";
            }
        };
        for (std::size_t i = 0; i < bindings->renderTargets.size(); ++i)
            view("target", i, bindings->renderTargets[i]);
        view("depth", 0, bindings->depthStencil);
        view("view", 0, bindings->reservedView);
    } else if (auto const* vertices = std::get_if<VertexBufferBindings>(&payload)) {
        char const* separator = "";
        for (std::size_t i = 0; i < vertices->buffers.size(); ++i) {
            if (vertices->buffers[i].IsValid()) {
                out << separator << "slot " << i << ' '
                    << Recording::HandleText(ResourceKind::Buffer, vertices->buffers[i].Value());
                separator = ", ";
            }
        }
    } else if (auto const* p = std::get_if<PipelineStateDescription>(&payload)) {
        out << Recording::HandleText(ResourceKind::Shader, p->shader.Value()) << ", target "
            << Rendering::ToString(p->renderTargetFormats[0]) << ", depth " << Rendering::ToString(p->depthStencilFormat)
            << ", " << p->sampleCount << " sample(s)";
    }
}

std::string Value(Call const& call)
{
    switch (call.op) {
    case Op::MapBuffer:
    case Op::MapImage: return call.value == MapMode::Write ? "write" : call.value == MapMode::Read ? "read" : "mode " + std::to_string(call.value);
    case Op::CreateQuery: return call.value == 1 ? "TimestampFrequency" : call.value == 0 ? "Timestamp" : "type " + std::to_string(call.value);
    case Op::Draw: return std::to_string(call.value) + " vertices from " + std::to_string(call.value2);
    case Op::DrawIndexed: return std::to_string(call.value) + " indices from " + std::to_string(call.value2);
    default: return {};
    }
}

} // namespace

std::string RecordingGpu::Dump() const
{
    auto const& log = state_->log;
    std::uint64_t index = state_->callCount - log.size();
    std::ostringstream out;
    for (auto const& call : log) {
        out << index++ << ' ' << ToString(call.op) << '(';
        char const* separator = "";
        for (std::size_t i = 0; i < call.handles.size(); ++i) {
            if (call.handles[i] == Recording::NoHandle)
                continue;
            out << separator << Recording::HandleText(ArgumentKind(call.op), call.handles[i]);
            if (call.op == Op::CopyImage || call.op == Op::ResolveImage || call.op == Op::MapImage ||
                call.op == Op::UnmapImage)
                out << " mip " << call.subImages[i].mipLevel << " slice " << call.subImages[i].arraySlice;
            separator = ", ";
        }
        std::ostringstream payload;
        Payload(payload, call.payload);
        if (!payload.str().empty()) {
            out << separator << '{' << payload.str() << '}';
            separator = ", ";
        }
        if (std::string const value = Value(call); !value.empty())
            out << separator << value;
        out << ')';
        if (Recording::IsCreate(call.op))
            out << " -> " << Recording::HandleText(ResultKind(call.op), call.result);
        else if (call.result != Recording::NoHandle)
            out << " -> " << call.result;
        if (call.faulted)
            out << " [faulted]";
        out << '\n';
    }
    return out.str();
}

} // namespace Zorvan::Rendering::Testing
