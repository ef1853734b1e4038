#pragma once

// The demo's drawing through the device contract alone: the prepared mesh in
// one vertex and one index buffer, a lit shader in the library's portable
// dialect, and a depth clear (the library's shader clear writes colour
// targets only).

#include "MeshPrep.h"

#include <Rendering/Device.h>

#include <array>

namespace Zorvan::Tool {

// Column vectors: clip = viewProjection * (x, y, z, 1). Depth maps to [0, w],
// which stays inside the clip volume whichever depth convention the device
// uses.
using Matrix = std::array<std::array<float, 4>, 4>;
Matrix LookAtPerspective(std::array<double, 3> eye, std::array<double, 3> target, double verticalFovDegrees,
                         double aspect, double nearPlane, double farPlane);

class DemoScene {
public:
    // Throws Failure naming what the device could not create.
    DemoScene(Rendering::IGpu& gpu, MeshData const& mesh, PreparedMesh const& prepared,
              Rendering::Format colorFormat, Rendering::Format depthFormat, std::uint32_t sampleCount);

    void SetCamera(Matrix const& viewProjection, std::array<float, 3> lightDirection);
    // Writes depth 1 everywhere.
    void ClearDepth(Rendering::RtvId depth);
    void Draw(Rendering::RtvId color, Rendering::RtvId depth);

private:
    using Buffer = Rendering::ScopedResource<Rendering::BufferId, Rendering::IResourceFactory>;
    using Shader = Rendering::ScopedResource<Rendering::ShaderId, Rendering::IGpu>;
    using Pipeline = Rendering::ScopedResource<Rendering::PsoId, Rendering::IGpu>;

    Rendering::IGpu& gpu_;
    Buffer vertices_;
    Buffer indices_;
    Buffer constants_;
    std::uint32_t indexCount_ = 0;
    Shader litShader_;
    Shader depthClearShader_;
    Pipeline litPipeline_;
    Pipeline depthClearPipeline_;
};

} // namespace Zorvan::Tool
