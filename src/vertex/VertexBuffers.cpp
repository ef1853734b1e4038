// Sizing and filling of vertex buffers through the caller's factory.

#include <Rendering/Device.h>
#include <Rendering/Vertex.h>

#include <cstring>

namespace Zorvan::Rendering {

namespace {

// Large counts are whole pairs of triangles, small ones a single triangle;
// fewer than three vertices are passed through unchanged.
unsigned int RoundToWholeTriangles(unsigned int v) noexcept
{
    if (v >= 6)
        return v / 6 * 6;
    return v < 3 ? v : 3;
}

// Unmaps on scope exit, so the buffer is unmapped also when the map failed
// or an exception passes between map and unmap.
class UnmapGuard {
public:
    UnmapGuard(IResourceFactory& factory, BufferId buffer) noexcept : factory_(factory), buffer_(buffer) {}
    ~UnmapGuard() { factory_.UnmapBuffer(buffer_); }
    UnmapGuard(UnmapGuard const&) = delete;
    UnmapGuard& operator=(UnmapGuard const&) = delete;

private:
    IResourceFactory& factory_;
    BufferId buffer_;
};

} // namespace

unsigned int CalculateMaximumVertexCount(IResourceFactory& factory)
{
    return RoundToWholeTriangles(factory.GetMaximumBufferSize() >> 5);
}

unsigned int CalculateMaximumVertexCount(IResourceFactory& factory, unsigned int vertexSize)
{
    return RoundToWholeTriangles(factory.GetMaximumBufferSize() / vertexSize);
}

void Update(BufferId buffer, IResourceFactory& factory, unsigned int size, void const* data)
{
    void* target = factory.MapBuffer(buffer, MapMode::Write);
    UnmapGuard const unmap(factory, buffer);
    if (target != nullptr)
        std::memcpy(target, data, size);
}

BufferId UpdateDynamicVertexBuffer(BufferId buffer, IResourceFactory& factory, unsigned int size, void const* data)
{
    constexpr std::uint32_t dynamicVertex = BufferUsage::Vertex | BufferUsage::Dynamic;

    if (buffer.IsValid()) {
        BufferDescription const current = factory.GetBufferDescription(buffer);
        bool const reusable = current.size >= size && (current.flags & BufferUsage::Vertex) != 0 &&
                              (current.flags & BufferUsage::Dynamic) != 0;
        if (!reusable) {
            factory.DestroyBuffer(buffer);
            buffer = BufferId{};
        }
    }
    if (!buffer.IsValid())
        buffer = factory.CreateBuffer(BufferDescription{size, dynamicVertex}, nullptr);

    Update(buffer, factory, size, data);
    return buffer;
}

} // namespace Zorvan::Rendering
