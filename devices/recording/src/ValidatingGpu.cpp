// ValidatingGpu: each operation checks its arguments against what the
// tracker knows, forwards the call unchanged, then records what the device
// returned (only once it returned: a call that throws changes nothing).

#include "ValidatorState.h"

namespace Zorvan::Rendering::Testing {

using Validation::BufferEntry;
using Validation::ImageEntry;
using Validation::QueryEntry;
using Validation::ViewEntry;

namespace {

using Kind = ResourceKind;

std::string Role(char const* role, Kind kind, std::uint64_t handle)
{
    return std::string(role) + " " + Validation::Tracker::Name(kind, handle);
}

} // namespace

ValidatingGpu::ValidatingGpu(IGpu& device, ViolationCallback onViolation)
    : device_(device), state_(std::make_unique<State>(std::move(onViolation)))
{
}

ValidatingGpu::~ValidatingGpu() = default;

IGpu& ValidatingGpu::Device() const noexcept { return device_; }
std::vector<Violation> const& ValidatingGpu::Violations() const noexcept { return state_->violations; }
void ValidatingGpu::ClearViolations() noexcept { state_->violations.clear(); }
std::size_t ValidatingGpu::LiveCount() const noexcept { return state_->LiveCount(); }
std::size_t ValidatingGpu::OpenMaps() const noexcept { return state_->OpenMaps(); }
std::size_t ValidatingGpu::OpenQueries() const noexcept { return state_->OpenQueries(); }
std::string ValidatingGpu::Problems() const { return state_->Problems(); }

// ---- Buffers

std::uint32_t ValidatingGpu::GetMaximumBufferSize() { return device_.GetMaximumBufferSize(); }

BufferDescription ValidatingGpu::GetBufferDescription(BufferId buffer)
{
    state_->Find(Op::GetBufferDescription, Kind::Buffer, buffer.Value());
    return device_.GetBufferDescription(buffer);
}

BufferId ValidatingGpu::CreateBuffer(BufferDescription const& description, void const* initialData)
{
    BufferId const buffer = device_.CreateBuffer(description, initialData);
    if (buffer.IsValid())
        state_->Add(Op::CreateBuffer, Kind::Buffer, buffer.Value(), BufferEntry{description});
    return buffer;
}

void ValidatingGpu::DestroyBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<BufferEntry>(Op::DestroyBuffer, Kind::Buffer, buffer.Value())) {
        Checks::Findings found;
        Checks::DestroyBuffer(s.Name(Kind::Buffer, buffer.Value()), entry->mapped, found);
        s.Report(Op::DestroyBuffer, found);
    }
    device_.DestroyBuffer(buffer);
    s.Remove(Kind::Buffer, buffer.Value());
}

void* ValidatingGpu::MapBuffer(BufferId buffer, std::uint32_t mode)
{
    auto& s = *state_;
    auto* entry = s.FindAs<BufferEntry>(Op::MapBuffer, Kind::Buffer, buffer.Value());
    bool const wasMapped = entry != nullptr && entry->mapped;
    if (entry != nullptr) {
        Checks::Findings found;
        Checks::MapBuffer(s.Name(Kind::Buffer, buffer.Value()), entry->description, mode, wasMapped, found);
        s.Report(Op::MapBuffer, found);
    }
    void* const data = device_.MapBuffer(buffer, mode);
    // Failed maps count too: their unmap follows as well. (The device cannot
    // reach the tracker, so the entry is still where it was.)
    if (entry != nullptr)
        entry->mapped = true;
    return data;
}

void ValidatingGpu::UnmapBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<BufferEntry>(Op::UnmapBuffer, Kind::Buffer, buffer.Value())) {
        Checks::Findings found;
        Checks::UnmapBuffer(s.Name(Kind::Buffer, buffer.Value()), entry->mapped, found);
        s.Report(Op::UnmapBuffer, found);
        entry->mapped = false;
    }
    device_.UnmapBuffer(buffer);
}

// ---- Images and views

RenderTargetViewInfo ValidatingGpu::GetRenderTargetViewDescription(RtvId view)
{
    auto& s = *state_;
    if (s.Find(Op::GetRenderTargetViewDescription, Kind::RenderTargetView, view.Value()) != nullptr)
        s.CheckViewedImage(Op::GetRenderTargetViewDescription, Kind::RenderTargetView, view.Value());
    return device_.GetRenderTargetViewDescription(view);
}

ImageDesc ValidatingGpu::GetImageDescription(ImageId image)
{
    auto& s = *state_;
    auto* entry = s.FindAs<ImageEntry>(Op::GetImageDescription, Kind::Image, image.Value());
    ImageDesc const description = device_.GetImageDescription(image);
    if (entry != nullptr) {
        Checks::Findings found;
        Checks::DescriptionReadBack(s.Name(Kind::Image, image.Value()), entry->created, description, found);
        s.Report(Op::GetImageDescription, found);
        // The device's word from now on, as the library takes it.
        if (found.empty()) {
            auto maps = std::move(entry->maps);
            entry->facts = Checks::FactsOf(description);
            entry->maps = std::move(maps);
            entry->samplesKnown = true;
        }
    }
    return description;
}

ImageId ValidatingGpu::CreateImage(ImageDesc const& description)
{
    auto& s = *state_;
    Checks::Findings found;
    Checks::CreateImage(description, found);
    s.Report(Op::CreateImage, found);
    ImageId const image = device_.CreateImage(description);
    if (image.IsValid())
        s.Add(Op::CreateImage, Kind::Image, image.Value(),
              ImageEntry{description, Checks::FactsOf(description), description.sampleCount <= 1, {}});
    return image;
}

void ValidatingGpu::DestroySampler(SamplerId sampler) noexcept
{
    state_->Find(Op::DestroySampler, Kind::Sampler, sampler.Value());
    device_.DestroySampler(sampler);
    state_->Remove(Kind::Sampler, sampler.Value());
}

void ValidatingGpu::DestroyRenderTargetView(RtvId view) noexcept
{
    state_->Find(Op::DestroyRenderTargetView, Kind::RenderTargetView, view.Value());
    device_.DestroyRenderTargetView(view);
    state_->Remove(Kind::RenderTargetView, view.Value());
}

void ValidatingGpu::DestroyShaderResourceView(SrvId view) noexcept
{
    state_->Find(Op::DestroyShaderResourceView, Kind::ShaderResourceView, view.Value());
    device_.DestroyShaderResourceView(view);
    state_->Remove(Kind::ShaderResourceView, view.Value());
}

void ValidatingGpu::DestroyImage(ImageId image) noexcept
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<ImageEntry>(Op::DestroyImage, Kind::Image, image.Value())) {
        std::vector<SubImage> open;
        for (auto const& [where, failed] : entry->maps)
            open.push_back({where.first, where.second});
        Checks::Findings found;
        Checks::DestroyImage(s.Name(Kind::Image, image.Value()), open, found);
        s.Report(Op::DestroyImage, found);
    }
    device_.DestroyImage(image);
    s.Remove(Kind::Image, image.Value());
}

SrvId ValidatingGpu::CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description)
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<ImageEntry>(Op::CreateShaderResourceView, Kind::Image, image.Value())) {
        Checks::Findings found;
        Checks::CreateShaderResourceView(s.Name(Kind::Image, image.Value()), entry->facts, description, found);
        s.Report(Op::CreateShaderResourceView, found);
    }
    SrvId const view = device_.CreateShaderResourceView(image, description);
    if (view.IsValid())
        s.Add(Op::CreateShaderResourceView, Kind::ShaderResourceView, view.Value(), ViewEntry{image.Value()});
    return view;
}

RtvId ValidatingGpu::CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description)
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<ImageEntry>(Op::CreateRenderTargetView, Kind::Image, image.Value())) {
        Checks::Findings found;
        Checks::CreateRenderTargetView(s.Name(Kind::Image, image.Value()), entry->facts, description, found);
        s.Report(Op::CreateRenderTargetView, found);
    }
    RtvId const view = device_.CreateRenderTargetView(image, description);
    if (view.IsValid())
        s.Add(Op::CreateRenderTargetView, Kind::RenderTargetView, view.Value(), ViewEntry{image.Value()});
    return view;
}

void ValidatingGpu::CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                              SubImage const& destinationWhere)
{
    auto& s = *state_;
    std::string const from = Role("source", Kind::Image, source.Value());
    std::string const to = Role("destination", Kind::Image, destination.Value());
    auto* a = s.FindAs<ImageEntry>(Op::CopyImage, Kind::Image, source.Value(), "source");
    auto* b = s.FindAs<ImageEntry>(Op::CopyImage, Kind::Image, destination.Value(), "destination");
    if (a != nullptr && b != nullptr) {
        Checks::ImageFacts sourceFacts = a->facts;
        Checks::ImageFacts destinationFacts = b->facts;
        // Two multisampled counts compare only once the device has told both.
        if (sourceFacts.samples > 1 && destinationFacts.samples > 1 && !(a->samplesKnown && b->samplesKnown))
            destinationFacts.samples = sourceFacts.samples;
        Checks::Findings found;
        Checks::CopyImage({from, sourceFacts, sourceWhere}, {to, destinationFacts, destinationWhere}, a == b, found);
        s.Report(Op::CopyImage, found);
    }
    device_.CopyImage(source, sourceWhere, destination, destinationWhere);
}

void ValidatingGpu::ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                                 SubImage const& destinationWhere)
{
    auto& s = *state_;
    std::string const from = Role("source", Kind::Image, source.Value());
    std::string const to = Role("destination", Kind::Image, destination.Value());
    auto* a = s.FindAs<ImageEntry>(Op::ResolveImage, Kind::Image, source.Value(), "source");
    auto* b = s.FindAs<ImageEntry>(Op::ResolveImage, Kind::Image, destination.Value(), "destination");
    if (a != nullptr && b != nullptr) {
        Checks::Findings found;
        Checks::ResolveImage({from, a->facts, sourceWhere}, {to, b->facts, destinationWhere}, found);
        s.Report(Op::ResolveImage, found);
    }
    device_.ResolveImage(source, sourceWhere, destination, destinationWhere);
}

MappedImage ValidatingGpu::MapImage(ImageId image, SubImage const& where, std::uint32_t mode)
{
    auto& s = *state_;
    auto const key = std::make_pair(where.mipLevel, where.arraySlice);
    auto* entry = s.FindAs<ImageEntry>(Op::MapImage, Kind::Image, image.Value());
    if (entry != nullptr) {
        Checks::Findings found;
        Checks::MapImage(s.Name(Kind::Image, image.Value()), entry->facts, where, mode, entry->maps.contains(key),
                         found);
        s.Report(Op::MapImage, found);
    }
    bool const opens = entry != nullptr && !entry->maps.contains(key);
    MappedImage const mapped = device_.MapImage(image, where, mode);
    if (opens) {
        // A failed map needs its unmap as well.
        entry->maps[key] = mapped.data == nullptr;
        if (mapped.data != nullptr && where.mipLevel < entry->facts.levels) {
            Checks::Findings found;
            Checks::MapPitches(s.Name(Kind::Image, image.Value()), entry->facts, where, mapped, found);
            s.Report(Op::MapImage, found);
        }
    }
    return mapped;
}

void ValidatingGpu::UnmapImage(ImageId image, SubImage const& where) noexcept
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<ImageEntry>(Op::UnmapImage, Kind::Image, image.Value())) {
        auto const key = std::make_pair(where.mipLevel, where.arraySlice);
        Checks::Findings found;
        Checks::UnmapImage(s.Name(Kind::Image, image.Value()), where, entry->maps.contains(key), found);
        s.Report(Op::UnmapImage, found);
        entry->maps.erase(key);
    }
    device_.UnmapImage(image, where);
}

SamplerId ValidatingGpu::CreateSampler(SamplerDescription const& description)
{
    SamplerId const sampler = device_.CreateSampler(description);
    if (sampler.IsValid())
        state_->Add(Op::CreateSampler, Kind::Sampler, sampler.Value(), {});
    return sampler;
}

// ---- Shaders and pipelines

ShaderId ValidatingGpu::CreateShader(ShaderDescription const& description)
{
    ShaderId const shader = device_.CreateShader(description);
    if (shader.IsValid())
        state_->Add(Op::CreateShader, Kind::Shader, shader.Value(), {});
    return shader;
}

void ValidatingGpu::DestroyShader(ShaderId shader) noexcept
{
    state_->Find(Op::DestroyShader, Kind::Shader, shader.Value());
    device_.DestroyShader(shader);
    state_->Remove(Kind::Shader, shader.Value());
}

PsoId ValidatingGpu::CreatePipelineState(PipelineStateDescription const& description)
{
    state_->CheckOptional(Op::CreatePipelineState, Kind::Shader, description.shader.Value(), "program");
    PsoId const pipeline = device_.CreatePipelineState(description);
    if (pipeline.IsValid())
        state_->Add(Op::CreatePipelineState, Kind::Pipeline, pipeline.Value(), {});
    return pipeline;
}

void ValidatingGpu::DestroyPipelineState(PsoId pipeline) noexcept
{
    state_->Find(Op::DestroyPipelineState, Kind::Pipeline, pipeline.Value());
    device_.DestroyPipelineState(pipeline);
    state_->Remove(Kind::Pipeline, pipeline.Value());
}

void ValidatingGpu::BindPipelineState(PsoId pipeline, BindingState const& bindings)
{
    auto& s = *state_;
    constexpr Op op = Op::BindPipelineState;
    s.Find(op, Kind::Pipeline, pipeline.Value());
    for (std::size_t i = 0; i < bindings.constantBuffers.size(); ++i)
        s.CheckOptional(op, Kind::Buffer, bindings.constantBuffers[i].buffer.Value(),
                        "constant buffer " + std::to_string(i));
    for (std::size_t i = 0; i < bindings.textures.size(); ++i) {
        std::uint64_t const view = bindings.textures[i].view.Value();
        s.CheckOptional(op, Kind::ShaderResourceView, view, "texture " + std::to_string(i));
        s.CheckViewedImage(op, Kind::ShaderResourceView, view);
        s.CheckOptional(op, Kind::Sampler, bindings.textures[i].sampler.Value(), "sampler " + std::to_string(i));
    }
    for (std::size_t i = 0; i < bindings.renderTargets.size(); ++i)
        s.CheckPackedView(op, bindings.renderTargets[i], "target " + std::to_string(i));
    s.CheckPackedView(op, bindings.depthStencil, "depth-stencil");
    s.CheckPackedView(op, bindings.reservedView, "reserved view");
    device_.BindPipelineState(pipeline, bindings);
}

// ---- Draws and queries

void ValidatingGpu::Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
                         std::uint32_t firstVertex)
{
    for (std::size_t i = 0; i < vertexBuffers.buffers.size(); ++i)
        state_->CheckOptional(Op::Draw, Kind::Buffer, vertexBuffers.buffers[i].Value(), "slot " + std::to_string(i));
    device_.Draw(vertexBuffers, vertexCount, firstVertex);
}

void ValidatingGpu::DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer,
                                std::uint32_t indexCount, std::uint32_t firstIndex)
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<BufferEntry>(Op::DrawIndexed, Kind::Buffer, indexBuffer.Value(), "index")) {
        Checks::Findings found;
        Checks::DrawIndexed(s.Name(Kind::Buffer, indexBuffer.Value()), entry->description, indexCount, firstIndex,
                            found);
        s.Report(Op::DrawIndexed, found);
    }
    for (std::size_t i = 0; i < vertexBuffers.buffers.size(); ++i)
        s.CheckOptional(Op::DrawIndexed, Kind::Buffer, vertexBuffers.buffers[i].Value(), "slot " + std::to_string(i));
    device_.DrawIndexed(vertexBuffers, indexBuffer, indexCount, firstIndex);
}

QueryId ValidatingGpu::CreateQuery(QueryType type)
{
    Checks::Findings found;
    Checks::CreateQuery(type, found);
    state_->Report(Op::CreateQuery, found);
    QueryId const query = device_.CreateQuery(type);
    if (query.IsValid())
        state_->Add(Op::CreateQuery, Kind::Query, query.Value(), QueryEntry{type});
    return query;
}

void ValidatingGpu::DestroyQuery(QueryId query) noexcept
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<QueryEntry>(Op::DestroyQuery, Kind::Query, query.Value())) {
        Checks::Findings found;
        Checks::DestroyQuery(s.Name(Kind::Query, query.Value()), entry->begun, found);
        s.Report(Op::DestroyQuery, found);
    }
    device_.DestroyQuery(query);
    s.Remove(Kind::Query, query.Value());
}

void ValidatingGpu::BeginQuery(QueryId query)
{
    auto& s = *state_;
    auto* entry = s.FindAs<QueryEntry>(Op::BeginQuery, Kind::Query, query.Value());
    if (entry != nullptr) {
        Checks::Findings found;
        Checks::BeginQuery(s.Name(Kind::Query, query.Value()), entry->type, entry->begun, found);
        s.Report(Op::BeginQuery, found);
    }
    device_.BeginQuery(query);
    if (entry != nullptr)
        entry->begun = entry->type == QueryType::TimestampFrequency;
}

void ValidatingGpu::EndQuery(QueryId query)
{
    auto& s = *state_;
    auto* entry = s.FindAs<QueryEntry>(Op::EndQuery, Kind::Query, query.Value());
    if (entry != nullptr) {
        Checks::Findings found;
        Checks::EndQuery(s.Name(Kind::Query, query.Value()), entry->type, entry->begun, found);
        s.Report(Op::EndQuery, found);
    }
    device_.EndQuery(query);
    if (entry != nullptr)
        entry->begun = false;
}

void ValidatingGpu::RecordQuery(QueryId query)
{
    auto& s = *state_;
    if (auto* entry = s.FindAs<QueryEntry>(Op::RecordQuery, Kind::Query, query.Value())) {
        Checks::Findings found;
        Checks::RecordQuery(s.Name(Kind::Query, query.Value()), entry->type, found);
        s.Report(Op::RecordQuery, found);
    }
    device_.RecordQuery(query);
}

std::uint64_t ValidatingGpu::GetQueryResult(QueryId query)
{
    state_->Find(Op::GetQueryResult, Kind::Query, query.Value());
    return device_.GetQueryResult(query);
}

} // namespace Zorvan::Rendering::Testing
