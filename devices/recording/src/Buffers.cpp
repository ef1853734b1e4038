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
    if (b->map)
        s.Error(Op::DestroyBuffer, Recording::HandleText(ResourceKind::Buffer, buffer.Value()) + ": destroyed while mapped");
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
    std::string const who = Recording::HandleText(ResourceKind::Buffer, buffer.Value());
    if (b->map) {
        s.Error(Op::MapBuffer, who + ": already mapped");
        return nullptr;
    }
    Recording::MapState map;
    map.mode = mode;
    if (fault == FaultKind::NullMap) {
        map.failed = true;
        b->map = std::move(map);
        return nullptr;
    }
    if (mode != MapMode::Read && mode != MapMode::Write) {
        s.Error(Op::MapBuffer, who + ": unknown map mode " + std::to_string(mode));
        map.failed = true;
    } else if ((b->description.flags & BufferUsage::Dynamic) == 0) {
        s.Error(Op::MapBuffer, who + ": mapped without the dynamic flag 0x20 (flags " +
                                   Recording::Hex(b->description.flags) + ")");
        map.failed = true;
    }
    if (map.failed) {
        // The unmap that must follow a failed map is still accepted.
        b->map = std::move(map);
        return nullptr;
    }
    // A staging copy, so that writes through a read map never reach the buffer.
    map.staging.assign(b->bytes.begin(), b->bytes.end());
    map.staging.resize(std::max<std::size_t>(map.staging.size(), 1));
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
    if (!b->map) {
        s.Error(Op::UnmapBuffer, Recording::HandleText(ResourceKind::Buffer, buffer.Value()) + ": not mapped");
        return;
    }
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
