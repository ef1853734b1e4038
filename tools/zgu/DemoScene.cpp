#include "DemoScene.h"

#include "Errors.h"

#include <Rendering/Vertex.h>

#include <cmath>
#include <numbers>

namespace Zorvan::Tool {
namespace {

using namespace Rendering;

// Row i of the matrix is dotted with the position, so the vertex stage needs
// only dot products. Only the vertex stage declares the buffer (it hands the
// light on): the GL device names a buffer's block per stage, and GLSL will not
// link two blocks that declare the same member names.
constexpr char const* ConstantsDeclaration =
    "CBUFFER(constant_buffer, 0) { float4 row0; float4 row1; float4 row2; float4 row3; float4 light; };\n";

constexpr char const* LitVertexBody = R"(
[in float3 pos : position]
[in float3 nrm : normal]
[out float3 n : normal_ws]
[out float3 l : light_ws]
void main()
{
    float4 p = float4($pos$, 1.0);
    $Position$ = float4(dot(row0, p), dot(row1, p), dot(row2, p), dot(row3, p));
    $n$ = $nrm$;
    $l$ = light.xyz;
}
)";

// Tinted by the normal so creases show as colour steps, lit by one
// directional light over an ambient floor.
constexpr char const* LitFragmentBody = R"(
[in float3 n : normal_ws]
[in float3 l : light_ws]
[out float4 color : 0]
void main()
{
    float3 unit = normalize($n$);
    float diffuse = max(dot(unit, $l$), 0.0);
    float3 tint = float3(0.62, 0.56, 0.48) + unit * 0.3;
    $color$ = float4(tint * (0.3 + 0.7 * diffuse), 1.0);
}
)";

constexpr char const* FullScreenVertex = R"(
void main()
{
    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;
    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;
    $Position$ = float4(x, y, 0.0, 1.0);
}
)";

constexpr char const* DepthClearFragment = R"(
void main()
{
    $FragDepth$ = 1.0;
}
)";

struct Constants {
    Matrix rows;
    std::array<float, 4> light;
};
static_assert(sizeof(Constants) == 80, "five float4 rows, as the shader declares");

using Vec = std::array<double, 3>;

Vec Sub(Vec a, Vec b) { return {a[0] - b[0], a[1] - b[1], a[2] - b[2]}; }
double Dot(Vec a, Vec b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }
Vec Cross(Vec a, Vec b) { return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]}; }
Vec Normalized(Vec a)
{
    double const length = std::sqrt(Dot(a, a));
    return {a[0] / length, a[1] / length, a[2] / length};
}

// The device's own diagnostics, if any, reach the user through the caller's
// check of the device after the failure.
template <typename Id, typename Owner>
ScopedResource<Id, Owner> Checked(Owner& owner, Id id, char const* what)
{
    if (!id.IsValid())
        throw Failure(std::string("the device could not create the demo's ") + what);
    return ScopedResource<Id, Owner>(&owner, id);
}

} // namespace

Matrix LookAtPerspective(std::array<double, 3> eye, std::array<double, 3> target, double verticalFovDegrees,
                         double aspect, double nearPlane, double farPlane)
{
    Vec const forward = Normalized(Sub(target, eye));
    Vec const right = Normalized(Cross(forward, Vec{0.0, 0.0, 1.0}));
    Vec const up = Cross(right, forward);
    double const view[4][4] = {{right[0], right[1], right[2], -Dot(right, eye)},
                               {up[0], up[1], up[2], -Dot(up, eye)},
                               {-forward[0], -forward[1], -forward[2], Dot(forward, eye)},
                               {0.0, 0.0, 0.0, 1.0}};
    double const f = 1.0 / std::tan(verticalFovDegrees * std::numbers::pi / 360.0);
    double const projection[4][4] = {{f / aspect, 0.0, 0.0, 0.0},
                                     {0.0, f, 0.0, 0.0},
                                     {0.0, 0.0, farPlane / (nearPlane - farPlane),
                                      nearPlane * farPlane / (nearPlane - farPlane)},
                                     {0.0, 0.0, -1.0, 0.0}};
    Matrix result{};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            double sum = 0.0;
            for (int k = 0; k < 4; ++k)
                sum += projection[r][k] * view[k][c];
            result[r][c] = float(sum);
        }
    return result;
}

DemoScene::DemoScene(IGpu& gpu, MeshData const& mesh, PreparedMesh const& prepared, Format colorFormat,
                     Format depthFormat, std::uint32_t sampleCount)
    : gpu_(gpu)
{
    // Interleaved position and normal per remapped vertex.
    auto const& remapping = prepared.remapping;
    std::vector<float> interleaved;
    interleaved.reserve(remapping.vertices.size() * 6);
    for (std::size_t v = 0; v < remapping.vertices.size(); ++v) {
        auto const& p = mesh.positions[remapping.vertices[v]];
        auto const& n = remapping.normals[v];
        interleaved.insert(interleaved.end(), {p[0], p[1], p[2], n[0], n[1], n[2]});
    }
    std::vector<std::uint32_t> const indexList = prepared.GlobalIndices();
    indexCount_ = static_cast<std::uint32_t>(indexList.size());

    vertices_ = Checked(static_cast<IResourceFactory&>(gpu),
                        gpu.CreateBuffer({static_cast<std::uint32_t>(interleaved.size() * sizeof(float)),
                                          BufferUsage::Vertex},
                                         interleaved.data()),
                        "vertex buffer");
    indices_ = Checked(static_cast<IResourceFactory&>(gpu),
                       gpu.CreateBuffer({static_cast<std::uint32_t>(indexList.size() * sizeof(std::uint32_t)),
                                         BufferUsage::Index},
                                        indexList.data()),
                       "index buffer");
    Constants const initial{};
    constants_ = Checked(static_cast<IResourceFactory&>(gpu),
                         gpu.CreateBuffer({sizeof(Constants), BufferUsage::Constant | BufferUsage::Dynamic}, &initial),
                         "constant buffer");

    ShaderDescription lit;
    lit.vertex = std::string(ConstantsDeclaration) + LitVertexBody;
    lit.fragment = LitFragmentBody;
    litShader_ = Checked(gpu, gpu.CreateShader(lit), "lit shader");
    ShaderDescription depthClear;
    depthClear.vertex = FullScreenVertex;
    depthClear.fragment = DepthClearFragment;
    depthClearShader_ = Checked(gpu, gpu.CreateShader(depthClear), "depth-clear shader");

    PipelineStateDescription drawState;
    drawState.inputLayout[0] = {PositionSemantic, 0, Format::R32G32B32F, 0, 0, 0};
    drawState.inputLayout[1] = {NormalSemantic, 0, Format::R32G32B32F, 12, 0, 0};
    drawState.shader = litShader_.Get();
    drawState.renderTargetFormats[0] = colorFormat;
    drawState.depthStencilFormat = depthFormat;
    drawState.sampleCount = sampleCount;
    litPipeline_ = Checked(gpu, gpu.CreatePipelineState(drawState), "draw pipeline");

    PipelineStateDescription clearState;
    clearState.shader = depthClearShader_.Get();
    clearState.depthComparison = Comparison::Always;
    clearState.depthStencilFormat = depthFormat;
    clearState.sampleCount = sampleCount;
    depthClearPipeline_ =
        Checked(gpu, gpu.CreatePipelineState(clearState), "depth-clear pipeline");
}

void DemoScene::SetCamera(Matrix const& viewProjection, std::array<float, 3> lightDirection)
{
    Constants constants{viewProjection, {lightDirection[0], lightDirection[1], lightDirection[2], 0.0f}};
    Update(constants_.Get(), gpu_, sizeof(Constants), &constants);
}

void DemoScene::ClearDepth(RtvId depth)
{
    BindingState bindings;
    bindings.depthStencil = depth;
    gpu_.BindPipelineState(depthClearPipeline_.Get(), bindings);
    gpu_.Draw(VertexBufferBindings{}, 3, 0);
}

void DemoScene::Draw(RtvId color, RtvId depth)
{
    BindingState bindings;
    bindings.constantBuffers[0] = {constants_.Get(), ShaderStage::Vertex};
    bindings.renderTargets[0] = color;
    bindings.depthStencil = depth;
    gpu_.BindPipelineState(litPipeline_.Get(), bindings);
    VertexBufferBindings buffers;
    buffers.buffers[0] = vertices_.Get();
    gpu_.DrawIndexed(buffers, indices_.Get(), indexCount_, 0);
}

} // namespace Zorvan::Tool
