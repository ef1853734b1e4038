#pragma once

// The device contract. The library owns no device: callers implement these
// interfaces over their graphics API (or use the reference GL device) and pass
// them in by reference. The library calls them from the caller's thread only.
//
// Every handle a create operation returns is later passed to the matching
// destroy operation exactly once. Map is always followed by Unmap, also when
// the map failed. Destroy and Unmap operations run on clean-up paths and must
// not throw.

#include <Rendering/Core.h>
#include <Rendering/Format.h>
#include <Rendering/Vertex.h>

#include <array>
#include <cstdint>
#include <string>

namespace Zorvan::Rendering {

// ---------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------

namespace BufferUsage {
inline constexpr std::uint32_t Vertex = 0x01;
inline constexpr std::uint32_t Index = 0x02;
inline constexpr std::uint32_t Constant = 0x04;
// CPU-writable through MapBuffer.
inline constexpr std::uint32_t Dynamic = 0x20;
} // namespace BufferUsage

struct BufferDescription {
    std::uint32_t size = 0; // bytes
    std::uint32_t flags = 0;

    friend constexpr bool operator==(BufferDescription const&, BufferDescription const&) = default;
};

// Map access modes.
namespace MapMode {
inline constexpr std::uint32_t Read = 0;
inline constexpr std::uint32_t Write = 1;
} // namespace MapMode

enum class QueryType : std::uint32_t {
    Timestamp = 0,          // sample query: one 64-bit tick count
    TimestampFrequency = 1, // range query: ticks per second over the range, 0 when unusable
};

// Stage bits, in the stage order of ShaderDescription.
namespace ShaderStage {
inline constexpr std::uint32_t Vertex = 1;
inline constexpr std::uint32_t TessellationControl = 2;
inline constexpr std::uint32_t TessellationEvaluation = 4;
inline constexpr std::uint32_t Geometry = 8;
inline constexpr std::uint32_t Fragment = 16;
} // namespace ShaderStage

// Source texts in the library's portable shader dialect, one per stage;
// unused stages are empty. One CreateShader call makes one program.
struct ShaderDescription {
    std::string vertex;
    std::string tessellationControl;
    std::string tessellationEvaluation;
    std::string geometry;
    std::string fragment;

    friend bool operator==(ShaderDescription const&, ShaderDescription const&) = default;
};

// Counts of 0 mean "all of the resource".
struct ShaderResourceViewDescription {
    std::uint32_t firstMipLevel = 0;
    std::uint32_t mipLevelCount = 0;
    std::uint32_t firstArraySlice = 0;
    std::uint32_t arraySliceCount = 0;

    friend constexpr bool operator==(ShaderResourceViewDescription const&,
                                     ShaderResourceViewDescription const&) = default;
};

struct RenderTargetViewDescription {
    std::uint32_t mipLevel = 0;
    std::uint32_t firstPlane = 0;     // the library writes 0
    std::uint32_t planeCount = 1;     // the library writes 1
    std::uint32_t firstArraySlice = 0;
    std::uint32_t arraySliceCount = 1;
    std::uint32_t reserved = 0;       // the library writes 0

    friend constexpr bool operator==(RenderTargetViewDescription const&,
                                     RenderTargetViewDescription const&) = default;
};

// What a device reports about an existing render-target view.
struct RenderTargetViewInfo {
    Format format = Format::None;
    std::uint32_t sampleCount = 1;
    Size size{};                      // extent of the viewed level
    ImageId image{};
    RenderTargetViewDescription description{};

    friend constexpr bool operator==(RenderTargetViewInfo const&, RenderTargetViewInfo const&) = default;
};

namespace SamplerFilter {
inline constexpr std::uint32_t Nearest = 0;
inline constexpr std::uint32_t Linear = 1;
} // namespace SamplerFilter
namespace SamplerAddress {
inline constexpr std::uint32_t Repeat = 0;
inline constexpr std::uint32_t Clamp = 1;
} // namespace SamplerAddress

struct SamplerDescription {
    std::uint32_t filter = SamplerFilter::Linear;
    std::uint32_t addressMode = SamplerAddress::Clamp;

    friend constexpr bool operator==(SamplerDescription const&, SamplerDescription const&) = default;
};

// One buffer per vertex-buffer slot; invalid = none.
struct VertexBufferBindings {
    std::array<BufferId, 4> buffers{};

    friend constexpr bool operator==(VertexBufferBindings const&, VertexBufferBindings const&) = default;
};

namespace PrimitiveTopology {
inline constexpr std::uint64_t Points = 0;
inline constexpr std::uint64_t Lines = 1;
inline constexpr std::uint64_t Triangles = 2;
inline constexpr std::uint64_t TriangleStrip = 3;
} // namespace PrimitiveTopology

namespace FillMode {
inline constexpr std::uint64_t Wireframe = 0;
inline constexpr std::uint64_t Solid = 1;
} // namespace FillMode

namespace CullMode {
inline constexpr std::uint32_t None = 0;
inline constexpr std::uint32_t Back = 1;
inline constexpr std::uint32_t Front = 2;
} // namespace CullMode

// Depth and stencil comparisons. 0 lets every fragment pass.
namespace Comparison {
inline constexpr std::uint32_t Always = 0;
inline constexpr std::uint32_t Never = 1;
inline constexpr std::uint32_t Less = 2;
inline constexpr std::uint32_t LessEqual = 3;
inline constexpr std::uint32_t Equal = 4;
inline constexpr std::uint32_t Greater = 5;
inline constexpr std::uint32_t GreaterEqual = 6;
inline constexpr std::uint32_t NotEqual = 7;
} // namespace Comparison

namespace BlendFactor {
inline constexpr std::uint32_t Zero = 0;
inline constexpr std::uint32_t One = 1;
inline constexpr std::uint32_t SourceAlpha = 2;
inline constexpr std::uint32_t OneMinusSourceAlpha = 3;
} // namespace BlendFactor

namespace BlendOperation {
inline constexpr std::uint32_t Add = 1;
inline constexpr std::uint32_t Subtract = 2;
inline constexpr std::uint32_t Min = 3;
inline constexpr std::uint32_t Max = 4;
} // namespace BlendOperation

// Everything a draw needs besides its bindings. Library operations start from
// these defaults and change only the fields they name.
struct PipelineStateDescription {
    InputLayout inputLayout{};
    std::array<std::uint64_t, 2> reserved{};
    ShaderId shader{};

    std::uint64_t topology = PrimitiveTopology::Triangles; // state value A
    std::uint64_t fillMode = FillMode::Solid;              // state value B

    std::uint32_t cullMode = CullMode::None;
    std::uint32_t frontClockwise = 0;   // 0: counter-clockwise triangles face forward
    float depthBias = 0.0f;
    float slopeScaledDepthBias = 0.0f;

    std::uint8_t stencilReadMask = 255;                    // state byte C
    std::uint32_t depthComparison = Comparison::Less;      // state value D
    std::uint8_t depthWriteEnable = 1;                     // state byte E

    std::uint32_t blendEnable = 0;
    std::uint32_t blendDestination = BlendFactor::Zero;
    std::uint32_t stencilEnable = 0;
    std::uint32_t stencilComparison = Comparison::Always;
    std::uint32_t stencilPassOperation = 0;                // 0 keep, 1 replace
    std::uint32_t stencilReference = 0;

    std::uint8_t stencilWriteMask = 255;                   // state byte F
    std::uint32_t blendSource = BlendFactor::One;          // state value G
    std::uint32_t blendOperation = BlendOperation::Add;    // state value H
    std::uint8_t colorWriteEnable = 1;                     // state byte I

    std::array<Format, 4> renderTargetFormats{};
    Format depthStencilFormat = Format::None;
    std::uint32_t sampleCount = 1;
};

struct ConstantBufferBinding {
    BufferId buffer{};
    std::uint32_t stages = 0;

    friend constexpr bool operator==(ConstantBufferBinding const&, ConstantBufferBinding const&) = default;
};

struct TextureBinding {
    SrvId view{};
    SamplerId sampler{};              // invalid: unfiltered fetches only
    std::uint32_t stages = 0;

    friend constexpr bool operator==(TextureBinding const&, TextureBinding const&) = default;
};

// Every resource the next draw reads or writes; all slots start empty.
struct BindingState {
    std::array<ConstantBufferBinding, 8> constantBuffers{};
    std::array<TextureBinding, 16> textures{};
    std::uint32_t reserved = 0;
    std::array<RtvId, 8> renderTargets{};
    RtvId depthStencil{};             // a render-target view of a depth image
    RtvId reservedView{};

    friend constexpr bool operator==(BindingState const&, BindingState const&) = default;
};

// A mapped image level. Pitches are bytes and may be negative (bottom-up).
struct MappedImage {
    void* data = nullptr;             // null when the map failed
    std::int32_t rowPitch = 0;
    std::int32_t slicePitch = 0;
};

// ---------------------------------------------------------------------------
// Interfaces
// ---------------------------------------------------------------------------

class IBufferFactory {
public:
    virtual ~IBufferFactory() = default;

    virtual std::uint32_t GetMaximumBufferSize() = 0;
    virtual BufferDescription GetBufferDescription(BufferId buffer) = 0;
    virtual BufferId CreateBuffer(BufferDescription const& description, void const* initialData) = 0;
    virtual void DestroyBuffer(BufferId buffer) noexcept = 0;
    // Null on failure; UnmapBuffer follows in every case.
    virtual void* MapBuffer(BufferId buffer, std::uint32_t mode) = 0;
    virtual void UnmapBuffer(BufferId buffer) noexcept = 0;

protected:
    IBufferFactory() = default;
    IBufferFactory(IBufferFactory const&) = default;
    IBufferFactory& operator=(IBufferFactory const&) = default;
};

class IImageFactory {
public:
    virtual ~IImageFactory() = default;

    virtual RenderTargetViewInfo GetRenderTargetViewDescription(RtvId view) = 0;
    virtual ImageDesc GetImageDescription(ImageId image) = 0;
    // mipLevels 0 asks for the full chain; the description read back tells.
    virtual ImageId CreateImage(ImageDesc const& description) = 0;
    virtual void DestroySampler(SamplerId sampler) noexcept = 0;
    virtual void DestroyRenderTargetView(RtvId view) noexcept = 0;
    virtual void DestroyShaderResourceView(SrvId view) noexcept = 0;
    virtual void DestroyImage(ImageId image) noexcept = 0;
    virtual SrvId CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description) = 0;
    virtual RtvId CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description) = 0;
    // Scales when the two sub-images differ in extent.
    virtual void CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                           SubImage const& destinationWhere) = 0;
    virtual void ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                              SubImage const& destinationWhere) = 0;
    // data is null on failure; UnmapImage follows in every case.
    virtual MappedImage MapImage(ImageId image, SubImage const& where, std::uint32_t mode) = 0;
    virtual void UnmapImage(ImageId image, SubImage const& where) noexcept = 0;
    virtual SamplerId CreateSampler(SamplerDescription const& description) = 0;

protected:
    IImageFactory() = default;
    IImageFactory(IImageFactory const&) = default;
    IImageFactory& operator=(IImageFactory const&) = default;
};

class IResourceFactory : public IBufferFactory, public IImageFactory {};

class IShaderFactory {
public:
    virtual ~IShaderFactory() = default;

    virtual ShaderId CreateShader(ShaderDescription const& description) = 0;
    virtual void DestroyShader(ShaderId shader) noexcept = 0;

protected:
    IShaderFactory() = default;
    IShaderFactory(IShaderFactory const&) = default;
    IShaderFactory& operator=(IShaderFactory const&) = default;
};

class ICommandContext {
public:
    virtual ~ICommandContext() = default;

    virtual void Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
                      std::uint32_t firstVertex) = 0;
    virtual void BeginQuery(QueryId query) = 0;
    virtual void EndQuery(QueryId query) = 0;
    virtual void RecordQuery(QueryId query) = 0;
    // Never blocks: reports what is available (a frequency query reads 0
    // while no usable result exists).
    virtual std::uint64_t GetQueryResult(QueryId query) = 0;

protected:
    ICommandContext() = default;
    ICommandContext(ICommandContext const&) = default;
    ICommandContext& operator=(ICommandContext const&) = default;
};

class IGpu : public IResourceFactory, public IShaderFactory, public ICommandContext {
public:
    virtual PsoId CreatePipelineState(PipelineStateDescription const& description) = 0;
    virtual void DestroyQuery(QueryId query) noexcept = 0;
    virtual void DestroyPipelineState(PsoId pipeline) noexcept = 0;
    virtual void BindPipelineState(PsoId pipeline, BindingState const& bindings) = 0;
    virtual QueryId CreateQuery(QueryType type) = 0;
};

// ---------------------------------------------------------------------------
// Release of owned resources (used by ScopedResource)
// ---------------------------------------------------------------------------

inline void ReleaseResource(IResourceFactory& owner, ImageId id) noexcept { owner.DestroyImage(id); }
inline void ReleaseResource(IResourceFactory& owner, BufferId id) noexcept { owner.DestroyBuffer(id); }
inline void ReleaseResource(IResourceFactory& owner, SrvId id) noexcept { owner.DestroyShaderResourceView(id); }
inline void ReleaseResource(IResourceFactory& owner, RtvId id) noexcept { owner.DestroyRenderTargetView(id); }
inline void ReleaseResource(IResourceFactory& owner, SamplerId id) noexcept { owner.DestroySampler(id); }
inline void ReleaseResource(IGpu& owner, ShaderId id) noexcept { owner.DestroyShader(id); }
inline void ReleaseResource(IGpu& owner, PsoId id) noexcept { owner.DestroyPipelineState(id); }
inline void ReleaseResource(IGpu& owner, QueryId id) noexcept { owner.DestroyQuery(id); }

} // namespace Zorvan::Rendering
