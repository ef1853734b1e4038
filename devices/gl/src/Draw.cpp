// Draws with the bound pipeline state.

#include "DeviceCore.h"
#include "ImageStore.h"

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

constexpr GLenum Topologies[] = {GL_POINTS, GL_LINES, GL_TRIANGLES, GL_TRIANGLE_STRIP};

// Binds the vertex buffers the pipeline reads; null when the draw cannot run.
PipelineRecord* PrepareDraw(DeviceCore& s, VertexBufferBindings const& vertexBuffers, char const* operation)
{
    if (!s.boundPipeline.IsValid()) {
        s.Error(std::string(operation) + ": no usable pipeline state is bound; nothing drawn");
        return nullptr;
    }
    auto* pipeline = s.Find(s.pipelines, s.boundPipeline, operation, "bound pipeline state");
    if (pipeline == nullptr || !s.targetsComplete)
        return nullptr;
    for (std::size_t slot = 0; slot < vertexBuffers.buffers.size(); ++slot) {
        if (!pipeline->slotUsed[slot])
            continue;
        BufferId const id = vertexBuffers.buffers[slot];
        if (!id.IsValid()) {
            s.Error(std::string(operation) + ": the pipeline reads vertex slot " + std::to_string(slot) +
                    " but no buffer is bound there; nothing drawn");
            return nullptr;
        }
        auto* buffer = s.Find(s.buffers, id, operation, "vertex buffer");
        if (buffer == nullptr)
            return nullptr;
        glVertexArrayVertexBuffer(pipeline->vertexArray.Get(), static_cast<GLuint>(slot), buffer->name.Get(), 0,
                                  static_cast<GLsizei>(pipeline->strides[slot]));
    }
    glBindVertexArray(pipeline->vertexArray.Get());
    PrepareDrawTextures(s);
    return pipeline;
}

} // namespace

void GlDevice::Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount, std::uint32_t firstVertex)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* pipeline = PrepareDraw(s, vertexBuffers, "Draw");
    if (pipeline == nullptr)
        return;
    glDrawArrays(Topologies[static_cast<std::size_t>(pipeline->description.topology)], static_cast<GLint>(firstVertex),
                 static_cast<GLsizei>(vertexCount));
    DrawTexturesWritten(s);
    s.CheckGlErrors("Draw");
}

void GlDevice::DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer, std::uint32_t indexCount,
                           std::uint32_t firstIndex)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* indices = s.Find(s.buffers, indexBuffer, "DrawIndexed", "index buffer");
    if (indices == nullptr)
        return;
    if ((indices->description.flags & BufferUsage::Index) == 0)
        return s.Error("DrawIndexed: buffer " + HandleText(indexBuffer.Value()) + " is not an index buffer");
    if ((std::uint64_t{firstIndex} + indexCount) * 4 > indices->description.size)
        return s.Error("DrawIndexed: indices " + std::to_string(firstIndex) + " + " + std::to_string(indexCount) +
                       " reach past the index buffer");
    auto* pipeline = PrepareDraw(s, vertexBuffers, "DrawIndexed");
    if (pipeline == nullptr)
        return;
    glVertexArrayElementBuffer(pipeline->vertexArray.Get(), indices->name.Get());
    glDrawElements(Topologies[static_cast<std::size_t>(pipeline->description.topology)], static_cast<GLsizei>(indexCount), GL_UNSIGNED_INT,
                   reinterpret_cast<void const*>(std::uintptr_t{firstIndex} * 4));
    DrawTexturesWritten(s);
    s.CheckGlErrors("DrawIndexed");
}

} // namespace Zorvan::Rendering::Gl
