// Buffers: immutable storage, mapped straight from GL.

#include "DeviceCore.h"

namespace Zorvan::Rendering::Gl {

using namespace detail;

std::uint32_t GlDevice::GetMaximumBufferSize()
{
    return static_cast<std::uint32_t>(state_->info.maxBufferSize);
}

BufferDescription GlDevice::GetBufferDescription(BufferId buffer)
{
    auto* record = state_->Find(state_->buffers, buffer, "GetBufferDescription", "buffer");
    return record != nullptr ? record->description : BufferDescription{};
}

BufferId GlDevice::CreateBuffer(BufferDescription const& description, void const* initialData)
{
    auto& s = *state_;
    s.MakeCurrent();
    if (description.size > s.info.maxBufferSize) {
        s.Error("CreateBuffer: " + std::to_string(description.size) + " bytes exceed the maximum buffer size");
        return BufferId{};
    }
    GLuint name = 0;
    glCreateBuffers(1, &name);
    BufferRecord record{GlBuffer(name), description, false};
    // GL refuses empty storage; an empty buffer keeps one unused byte.
    GLsizeiptr const bytes = description.size == 0 ? 1 : description.size;
    glNamedBufferStorage(name, bytes, description.size == 0 ? nullptr : initialData,
                         GL_MAP_READ_BIT | GL_MAP_WRITE_BIT | GL_DYNAMIC_STORAGE_BIT);
    s.CheckGlErrors("CreateBuffer");
    return BufferId{s.buffers.Insert(std::move(record))};
}

void GlDevice::DestroyBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    auto record = s.buffers.Remove(buffer.Value(), result);
    if (!record) {
        s.ReportLookup(result, buffer.Value(), "DestroyBuffer", "buffer");
        return;
    }
    if (record->mapped) {
        glUnmapNamedBuffer(record->name.Get());
        s.Error("DestroyBuffer: buffer " + HandleText(buffer.Value()) + " destroyed while mapped");
    }
}

void* GlDevice::MapBuffer(BufferId buffer, std::uint32_t mode)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.buffers, buffer, "MapBuffer", "buffer");
    if (record == nullptr)
        return nullptr;
    std::string const name = "buffer " + HandleText(buffer.Value());
    if (record->mapped) {
        s.Error("MapBuffer: " + name + " is already mapped");
        return nullptr;
    }
    if (mode != MapMode::Read && mode != MapMode::Write) {
        s.Error("MapBuffer: unknown map mode " + std::to_string(mode) + " for " + name);
        return nullptr;
    }
    if (mode == MapMode::Write && (record->description.flags & BufferUsage::Dynamic) == 0) {
        s.Error("MapBuffer: " + name + " is not dynamic and cannot be mapped for writing");
        return nullptr;
    }
    if (record->description.size == 0)
        return nullptr;
    void* data = glMapNamedBufferRange(record->name.Get(), 0, record->description.size,
                                       mode == MapMode::Write ? GL_MAP_WRITE_BIT : GL_MAP_READ_BIT);
    s.CheckGlErrors("MapBuffer");
    record->mapped = data != nullptr;
    return data;
}

void GlDevice::UnmapBuffer(BufferId buffer) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.buffers, buffer, "UnmapBuffer", "buffer");
    // A failed map is followed by an unmap as well: nothing to do then.
    if (record == nullptr || !record->mapped)
        return;
    glUnmapNamedBuffer(record->name.Get());
    record->mapped = false;
    s.CheckGlErrors("UnmapBuffer");
}

} // namespace Zorvan::Rendering::Gl
