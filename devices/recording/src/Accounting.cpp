// Handle table, misuse records and the leak report of RecordingGpu.

#include "DeviceState.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace Zorvan::Rendering::Testing {

namespace {

constexpr std::array<char const*, Recording::OpCount> OpNames{
    "GetMaximumBufferSize", "GetBufferDescription", "CreateBuffer", "DestroyBuffer", "MapBuffer", "UnmapBuffer",
    "GetRenderTargetViewDescription", "GetImageDescription", "CreateImage", "DestroySampler",
    "DestroyRenderTargetView", "DestroyShaderResourceView", "DestroyImage", "CreateShaderResourceView",
    "CreateRenderTargetView", "CopyImage", "ResolveImage", "MapImage", "UnmapImage", "CreateSampler",
    "CreateShader", "DestroyShader", "Draw", "BeginQuery", "EndQuery", "RecordQuery", "GetQueryResult",
    "DrawIndexed", "CreatePipelineState", "DestroyQuery", "DestroyPipelineState", "BindPipelineState", "CreateQuery",
};

constexpr std::array<char const*, ResourceKindCount> KindNames{
    "Buffer", "Image", "ShaderResourceView", "RenderTargetView", "Sampler", "Shader", "Pipeline", "Query",
};

bool IsDestroy(Op op) noexcept
{
    switch (op) {
    case Op::DestroyBuffer:
    case Op::DestroySampler:
    case Op::DestroyRenderTargetView:
    case Op::DestroyShaderResourceView:
    case Op::DestroyImage:
    case Op::DestroyShader:
    case Op::DestroyQuery:
    case Op::DestroyPipelineState: return true;
    default: return false;
    }
}

// What a live resource is, for the leak report.
std::string Describe(Recording::Resource const& resource)
{
    std::ostringstream out;
    std::visit(
        [&out](auto const& r) {
            using R = std::decay_t<decltype(r)>;
            if constexpr (std::is_same_v<R, Recording::BufferResource>) {
                out << r.description.size << " bytes, flags 0x" << std::hex << r.description.flags;
            } else if constexpr (std::is_same_v<R, Recording::ImageResource>) {
                auto const& d = r.description;
                out << d.size.width << 'x' << d.size.height << 'x' << d.size.depth << ' '
                    << Rendering::ToString(d.format) << ", " << r.levels << " level(s), " << d.sampleCount
                    << " sample(s), flags 0x" << std::hex << d.flags;
            } else if constexpr (std::is_same_v<R, Recording::ViewResource>) {
                out << "of " << Recording::HandleText(ResourceKind::Image, r.image.Value());
            } else if constexpr (std::is_same_v<R, Recording::TargetResource>) {
                out << "of " << Recording::HandleText(ResourceKind::Image, r.image.Value()) << " mip "
                    << r.description.mipLevel;
            } else if constexpr (std::is_same_v<R, Recording::QueryResource>) {
                out << (r.type == QueryType::TimestampFrequency ? "TimestampFrequency" : "Timestamp");
            } else {
                out << "created";
            }
        },
        resource);
    return out.str();
}

void Section(std::ostringstream& out, char const* title, std::vector<std::string> const& lines)
{
    if (lines.empty())
        return;
    out << title << " (" << lines.size() << "):\n";
    for (auto const& line : lines)
        out << "  " << line << '\n';
}

} // namespace

char const* ToString(Op op)
{
    auto const i = static_cast<std::size_t>(op);
    return i < OpNames.size() ? OpNames[i] : "<unknown Op>";
}

char const* ToString(ResourceKind kind)
{
    auto const i = static_cast<std::size_t>(kind);
    return i < KindNames.size() ? KindNames[i] : "<unknown ResourceKind>";
}

namespace Recording {

std::string HandleText(ResourceKind kind, std::uint64_t handle)
{
    if (static_cast<std::uint32_t>(handle) == ~std::uint32_t{0})
        return std::string("invalid ") + ToString(kind) + " handle";
    return std::string(ToString(kind)) + "(" + std::to_string(SlotIndex(handle)) + ", gen " +
           std::to_string(handle >> 32) + ")";
}

std::string PackedHandleText(std::uint32_t handle)
{
    if (handle == ~std::uint32_t{0})
        return "invalid packed RenderTargetView handle";
    return "RenderTargetView(" + std::to_string(handle & SlotMask) + ", packed gen " +
           std::to_string(handle >> SlotBits) + ")";
}

std::string Hex(std::uint32_t value)
{
    std::ostringstream out;
    out << "0x" << std::hex << value;
    return out.str();
}

void DeviceState::Error(Op op, std::string const& message)
{
    errors.push_back(std::string(ToString(op)) + ": " + message);
}

Slot* DeviceState::Lookup(Op op, std::uint64_t handle, ResourceKind kind)
{
    auto const index = SlotIndex(handle);
    auto const generation = static_cast<std::uint32_t>(handle >> 32);
    std::string const who = HandleText(kind, handle);
    if (static_cast<std::uint32_t>(handle) == ~std::uint32_t{0}) {
        Error(op, who);
        return nullptr;
    }
    if (index >= slots.size()) {
        Error(op, who + ": unknown handle, never created");
        return nullptr;
    }
    Slot& slot = slots[index];
    if (generation < slot.generation) {
        Error(op, who + (IsDestroy(op) ? ": already destroyed (double destroy)" : ": stale handle, already destroyed"));
        return nullptr;
    }
    auto const liveKind = static_cast<ResourceKind>(slot.resource.index());
    if (generation > slot.generation || !slot.live || handle != MakeHandle(index, generation, liveKind)) {
        Error(op, who + ": unknown handle, never created");
        return nullptr;
    }
    if (liveKind != kind) {
        Error(op, who + ": wrong kind, the handle names a live " + ToString(liveKind));
        return nullptr;
    }
    return &slot;
}

TargetResource* DeviceState::FindPackedView(Op op, std::uint32_t handle)
{
    auto const index = handle & SlotMask;
    auto const shortGeneration = handle >> SlotBits;
    std::string const who = PackedHandleText(handle);
    if (handle == ~std::uint32_t{0}) {
        Error(op, who);
        return nullptr;
    }
    if (shortGeneration == 0 || index >= slots.size() ||
        (slots[index].generation < 0xFFFu && shortGeneration > ShortGeneration(slots[index].generation))) {
        Error(op, who + ": unknown view, never created");
        return nullptr;
    }
    Slot& slot = slots[index];
    auto* target = std::get_if<TargetResource>(&slot.resource);
    if (!slot.live || target == nullptr ||
        handle != static_cast<std::uint32_t>(MakeHandle(index, slot.generation, ResourceKind::RenderTargetView))) {
        Error(op, who + ": stale view, already destroyed");
        return nullptr;
    }
    return target;
}

Slot const* DeviceState::LiveSlot(std::uint64_t handle, ResourceKind kind) const noexcept
{
    auto const index = SlotIndex(handle);
    if (index >= slots.size())
        return nullptr;
    Slot const& slot = slots[index];
    if (!slot.live || static_cast<ResourceKind>(slot.resource.index()) != kind ||
        handle != MakeHandle(index, slot.generation, kind))
        return nullptr;
    return &slot;
}

void DeviceState::ThrowNotLive(ResourceKind kind, std::uint64_t handle, char const* what)
{
    throw std::invalid_argument(std::string("RecordingGpu::") + what + ": " + HandleText(kind, handle) +
                                " is not a live resource");
}

std::uint64_t DeviceState::Add(Resource resource)
{
    std::size_t const kind = resource.index();
    if (kind >= ResourceKindCount)
        throw std::invalid_argument("RecordingGpu: a resource without a value");
    std::uint32_t index = 0;
    if (!freeSlots.empty()) {
        index = freeSlots.back();
        freeSlots.pop_back();
    } else {
        if (slots.size() >= MaxSlots)
            throw std::length_error("RecordingGpu: more than " + std::to_string(MaxSlots) + " live resources");
        index = static_cast<std::uint32_t>(slots.size());
        slots.emplace_back();
    }
    Slot& slot = slots[index];
    slot.live = true;
    slot.resource = std::move(resource);
    ++created[kind];
    ++live[kind];
    return MakeHandle(index, slot.generation, static_cast<ResourceKind>(kind));
}

void DeviceState::Remove(std::uint64_t handle) noexcept
{
    auto const index = SlotIndex(handle);
    Slot& slot = slots[index];
    --live[slot.resource.index()];
    slot.live = false;
    ++slot.generation;
    slot.resource = ShaderResource{}; // frees image and buffer storage now
    freeSlots.push_back(index);
}

} // namespace Recording

RecordingGpu::RecordingGpu() : state_(std::make_unique<State>()) {}
RecordingGpu::~RecordingGpu() = default;

std::size_t RecordingGpu::LiveCount(ResourceKind kind) const noexcept
{
    return state_->live[static_cast<std::size_t>(kind)];
}

std::size_t RecordingGpu::LiveCount() const noexcept
{
    std::size_t total = 0;
    for (auto n : state_->live)
        total += n;
    return total;
}

std::size_t RecordingGpu::CreatedCount(ResourceKind kind) const noexcept
{
    return state_->created[static_cast<std::size_t>(kind)];
}

std::vector<std::string> const& RecordingGpu::Errors() const noexcept { return state_->errors; }

std::size_t RecordingGpu::OpenMaps() const noexcept
{
    std::size_t open = 0;
    for (auto const& slot : state_->slots) {
        if (!slot.live)
            continue;
        if (auto const* buffer = std::get_if<Recording::BufferResource>(&slot.resource))
            open += buffer->map.has_value() ? 1 : 0;
        else if (auto const* image = std::get_if<Recording::ImageResource>(&slot.resource))
            open += image->maps.size();
    }
    return open;
}

std::size_t RecordingGpu::OpenQueries() const noexcept
{
    std::size_t open = 0;
    for (auto const& slot : state_->slots)
        if (auto const* query = std::get_if<Recording::QueryResource>(&slot.resource); slot.live && query != nullptr)
            open += query->open ? 1 : 0;
    return open;
}

std::string RecordingGpu::Problems() const
{
    auto const& s = *state_;
    std::vector<std::string> liveLines;
    std::vector<std::string> mapLines;
    std::vector<std::string> queryLines;
    // Grouped by kind so that a leak report reads like an inventory.
    for (std::size_t kind = 0; kind < ResourceKindCount; ++kind) {
        for (std::size_t index = 0; index < s.slots.size(); ++index) {
            auto const& slot = s.slots[index];
            if (!slot.live || slot.resource.index() != kind)
                continue;
            std::uint64_t const handle =
                Recording::MakeHandle(static_cast<std::uint32_t>(index), slot.generation, static_cast<ResourceKind>(kind));
            std::string const who = Recording::HandleText(static_cast<ResourceKind>(kind), handle);
            liveLines.push_back(who + ": " + Describe(slot.resource));
            if (auto const* buffer = std::get_if<Recording::BufferResource>(&slot.resource); buffer && buffer->map)
                mapLines.push_back(who + (buffer->map->mode == MapMode::Write ? " mapped for writing" : " mapped for reading"));
            if (auto const* image = std::get_if<Recording::ImageResource>(&slot.resource)) {
                for (auto const& [where, map] : image->maps)
                    mapLines.push_back(who + " mip " + std::to_string(where.first) + " slice " +
                                       std::to_string(where.second) +
                                       (map.mode == MapMode::Write ? " mapped for writing" : " mapped for reading") +
                                       (map.failed ? " (the map failed)" : ""));
            }
            if (auto const* query = std::get_if<Recording::QueryResource>(&slot.resource); query && query->open)
                queryLines.push_back(who + " begun and not ended");
        }
    }
    std::ostringstream out;
    Section(out, "errors", s.errors);
    Section(out, "live resources", liveLines);
    Section(out, "open maps", mapLines);
    Section(out, "open queries", queryLines);
    return out.str();
}

void RecordingGpu::ResetAccounting() noexcept
{
    state_->errors.clear();
    state_->created.fill(0);
}

bool RecordingGpu::IsLive(std::uint64_t handle, ResourceKind kind) const noexcept
{
    return state_->LiveSlot(handle, kind) != nullptr;
}

} // namespace Zorvan::Rendering::Testing
