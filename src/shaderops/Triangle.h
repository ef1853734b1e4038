#pragma once

// The one triangle the copy and the resolver draw: it covers the whole
// target, and with uv = (pos + 1) / 2 the visible target spans uv 0..1.

#include <Rendering/Device.h>

#include <array>

namespace Zorvan::Rendering::detail {

inline constexpr std::array<float, 6> FullScreenTriangle{-1.0f, -1.0f, 3.0f, -1.0f, -1.0f, 3.0f};

// A static 24-byte vertex buffer holding the triangle.
inline BufferId CreateTriangleBuffer(IGpu& gpu)
{
    return gpu.CreateBuffer(BufferDescription{sizeof(FullScreenTriangle), BufferUsage::Vertex},
                            FullScreenTriangle.data());
}

// Default pipeline state reading two-float positions from slot 0.
inline PipelineStateDescription TrianglePipelineDescription(ShaderId program) noexcept
{
    PipelineStateDescription description{};
    description.inputLayout[0] = AttributeDesc{PositionSemantic, 0, Format::R32G32F, 0, 0, 0};
    description.shader = program;
    return description;
}

inline VertexBufferBindings TriangleBindings(BufferId triangle) noexcept
{
    VertexBufferBindings bindings{};
    bindings.buffers[0] = triangle;
    return bindings;
}

} // namespace Zorvan::Rendering::detail
