// Buffer operations of RecordingGpu.

#include "DeviceState.h"

#include <algorithm>
#include <cstring>

namespace Zorvan::Rendering::Testing {

using Recording::BufferResource;

std::uint32_t RecordingGpu::GetMaximumBufferSize()
{
    auto& s = *state_;
    s.Enter({.op = Op::GetMaximumBufferSize});
    s.Current().result = s.maximumBufferSize;
    return s.maximumBufferSize;
}

BufferDescription RecordingGpu::GetBufferDescription(BufferId buffer)
{
    auto& s = *state_;
    auto const* b = s.EnterOn<BufferResource>(Op::GetBufferDescription, buffer.Value());
    return b == nullptr ? BufferDescription{} : b->description;
}

BufferId RecordingGpu::CreateBuffer(BufferDescription const& description, void const* initialData)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateBuffer, .payload = description}) == FaultKind::InvalidHandle)
        return BufferId{};
    if (description.size > s.maximumBufferSize) {
        s.Error(Op::CreateBuffer, std::to_string(description.size) + " bytes exceed the maximum buffer size of " +
                                      std::to_string(s.maximumBufferSize));
        return BufferId{};
    }
    BufferResource buffer{description, std::vector<std::byte>(description.size), std::nullopt};
    if (initialData != nullptr && description.size != 0)
        std::memcpy(buffer.bytes.data(), initialData, description.size);
    return s.Created<BufferId>(std::move(buffer));
}

void RecordingGpu::DestroyBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    auto const* b = s.EnterOn<BufferResource>(Op::DestroyBuffer, buffer.Value());
    if (b == nullptr)
        return;
    Checks::Findings found;
    Checks::DestroyBuffer(Recording::HandleText(ResourceKind::Buffer, buffer.Value()), b->map.has_value(), found);
    s.Refuse(Op::DestroyBuffer, found);
    s.Remove(buffer.Value());
}

void* RecordingGpu::MapBuffer(BufferId buffer, std::uint32_t mode)
{
    auto& s = *state_;
    auto const fault = s.Enter({.op = Op::MapBuffer, .handles = {buffer.Value(), Recording::NoHandle}, .value = mode});
    s.Current().result = 0;
    auto* b = s.Find<BufferResource>(Op::MapBuffer, buffer.Value());
    if (b == nullptr)
        return nullptr;
    Checks::Findings found;
    Checks::MapBuffer(Recording::HandleText(ResourceKind::Buffer, buffer.Value()), b->description, mode,
                      b->map.has_value(), found);
    if (!found.empty() && found[0].rule == Rule::MapTwice) {
        s.Refuse(Op::MapBuffer, found);
        return nullptr;
    }
    Recording::MapState map;
    map.mode = mode;
    if (s.Refuse(Op::MapBuffer, found) || fault == FaultKind::NullMap) {
        // The unmap that must follow a failed map is still accepted.
        map.failed = true;
        b->map = std::move(map);
        return nullptr;
    }
    // A staging copy, so that writes through a read map never reach the buffer.
    map.staging.assign(b->bytes.begin(), b->bytes.end());
    if (map.staging.empty())
        map.staging.assign(1, std::byte{0});
    map.data = map.staging.data();
    b->map = std::move(map);
    s.Current().result = 1;
    return b->map->data;
}

void RecordingGpu::UnmapBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    auto* b = s.EnterOn<BufferResource>(Op::UnmapBuffer, buffer.Value());
    if (b == nullptr)
        return;
    Checks::Findings found;
    Checks::UnmapBuffer(Recording::HandleText(ResourceKind::Buffer, buffer.Value()), b->map.has_value(), found);
    if (s.Refuse(Op::UnmapBuffer, found))
        return;
    if (!b->map->failed && b->map->mode == MapMode::Write) {
        std::copy_n(b->map->staging.begin(), b->bytes.size(), b->bytes.begin());
        s.Current().written = b->bytes;
    }
    b->map.reset();
}

std::vector<std::byte> const& RecordingGpu::BufferBytes(BufferId buffer) const
{
    return state_->Expect<BufferResource>(buffer.Value(), "BufferBytes").bytes;
}

BufferDescription const& RecordingGpu::Description(BufferId buffer) const
{
    return state_->Expect<BufferResource>(buffer.Value(), "Description").description;
}

void RecordingGpu::SetMaximumBufferSize(std::uint32_t bytes) noexcept { state_->maximumBufferSize = bytes; }

} // namespace Zorvan::Rendering::Testing
