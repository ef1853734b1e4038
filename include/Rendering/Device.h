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
#include <cstddef>
#include <cstdint>
#include <string>

namespace Zorvan::Rendering {

// ---------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------

// The sizes and offsets asserted after each record are part of the contract:
// a device may hand these records to its API or across a process boundary as
// they are, so a reordered or widened field must not compile.

namespace BufferUsage {
inline constexpr std::uint32_t Vertex = 0x01;
inline constexpr std::uint32_t Index = 0x02;
inline constexpr std::uint32_t Constant = 0x04;
// CPU-writable through MapBuffer.
inline constexpr std::uint32_t Dynamic = 0x20;
} // namespace BufferUsage

struct BufferDescription {
    std::uint32_t size = 0; // bytes
    std::uint32_t flags = 0; // BufferUsage bits

    friend constexpr bool operator==(BufferDescription const&, BufferDescription const&) = default;
};

static_assert(sizeof(BufferDescription) == 8 && offsetof(BufferDescription, flags) == 4);

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

// Source texts in the library's portable shader dialect (docs/shader-dialect.md),
// one per stage; unused stages are empty. One CreateShader call makes one program.
struct ShaderDescription {
    std::string vertex;
    std::string tessellationControl;
    std::string tessellationEvaluation;
    std::string geometry;
    std::string fragment;

    friend bool operator==(ShaderDescription const&, ShaderDescription const&) = default;
};

// Counts of 0 mean "all of the resource from the first level or slice on".
struct ShaderResourceViewDescription {
    std::uint32_t firstMipLevel = 0;
    std::uint32_t mipLevelCount = 0;
    std::uint32_t firstArraySlice = 0;
    std::uint32_t arraySliceCount = 0;

    friend constexpr bool operator==(ShaderResourceViewDescription const&,
                                     ShaderResourceViewDescription const&) = default;
};

static_assert(sizeof(ShaderResourceViewDescription) == 16 &&
              offsetof(ShaderResourceViewDescription, mipLevelCount) == 4 &&
              offsetof(ShaderResourceViewDescription, firstArraySlice) == 8 &&
              offsetof(ShaderResourceViewDescription, arraySliceCount) == 12);

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

static_assert(sizeof(RenderTargetViewDescription) == 24 && offsetof(RenderTargetViewDescription, firstPlane) == 4 &&
              offsetof(RenderTargetViewDescription, planeCount) == 8 &&
              offsetof(RenderTargetViewDescription, firstArraySlice) == 12 &&
              offsetof(RenderTargetViewDescription, arraySliceCount) == 16 &&
              offsetof(RenderTargetViewDescription, reserved) == 20);

// What a device reports about an existing render-target view.
struct RenderTargetViewInfo {
    Format format = Format::None;
    std::uint32_t sampleCount = 1;
    Size size{};                      // extent of the viewed level
    ImageId image{};
    RenderTargetViewDescription description{};

    friend constexpr bool operator==(RenderTargetViewInfo const&, RenderTargetViewInfo const&) = default;
};

enum class SamplerFilter : std::uint32_t {
    Nearest = 0,
    Linear = 1,  // bilinear within a level
};

enum class SamplerAddress : std::uint32_t {
    Repeat = 0,
    Clamp = 1,   // coordinates outside [0, 1] read the edge texel
};

// The only sampler the library makes is this default one.
struct SamplerDescription {
    SamplerFilter filter = SamplerFilter::Linear;
    SamplerAddress addressMode = SamplerAddress::Clamp;

    friend constexpr bool operator==(SamplerDescription const&, SamplerDescription const&) = default;
};

static_assert(sizeof(SamplerDescription) == 8 && offsetof(SamplerDescription, addressMode) == 4);

// One buffer per vertex-buffer slot; invalid = none.
struct VertexBufferBindings {
    std::array<BufferId, 4> buffers{};

    friend constexpr bool operator==(VertexBufferBindings const&, VertexBufferBindings const&) = default;
};

static_assert(sizeof(VertexBufferBindings) == 32);

// How vertices assemble into primitives.
enum class PrimitiveTopology : std::uint64_t {
    Points = 0,
    Lines = 1,          // every two vertices
    Triangles = 2,      // every three vertices
    TriangleStrip = 3,  // each vertex after the second closes a triangle with the two before it
};

enum class FillMode : std::uint64_t {
    Wireframe = 0,      // polygon edges only
    Solid = 1,
};

// Which triangles are discarded by the way they face.
enum class CullMode : std::uint32_t {
    None = 0,
    Back = 1,
    Front = 2,
};

// Depth and stencil tests: the fragment's value (depth, or the stencil
// reference) compared with the stored one. Always lets every fragment pass.
enum class Comparison : std::uint32_t {
    Always = 0,
    Never = 1,
    Less = 2,
    LessEqual = 3,
    Equal = 4,
    Greater = 5,
    GreaterEqual = 6,
    NotEqual = 7,
};

// What a fragment passing the stencil test does to the stored stencil value.
enum class StencilOperation : std::uint32_t {
    Keep = 0,
    Replace = 1,        // writes the reference value
};

// Weights of the fragment's colour (source) and the target's (destination).
enum class BlendFactor : std::uint32_t {
    Zero = 0,
    One = 1,
    SourceAlpha = 2,
    OneMinusSourceAlpha = 3,
};

// How the weighted source and destination colours combine.
enum class BlendOperation : std::uint32_t {
    Add = 1,
    Subtract = 2,       // source minus destination
    Min = 3,
    Max = 4,
};

// Everything a draw needs besides its bindings. Library operations start from
// these defaults and change only the fields they name (the MSAA resolver sets
// depthComparison to Always; the library sets nothing in the reserved words).
struct PipelineStateDescription {
    InputLayout inputLayout{};                              // vertex attributes; empty: the shader makes its vertices
    std::array<std::uint64_t, 2> reserved{};                // the library leaves them 0
    ShaderId shader{};                                      // the program from CreateShader

    PrimitiveTopology topology = PrimitiveTopology::Triangles;
    FillMode fillMode = FillMode::Solid;

    // Rasterization.
    CullMode cullMode = CullMode::None;
    std::uint32_t frontClockwise = 0;                       // 0: counter-clockwise triangles face forward
    float depthBias = 0.0f;                                 // constant depth offset, in smallest depth steps
    float slopeScaledDepthBias = 0.0f;                      // depth offset per unit of depth slope

    std::uint8_t stencilReadMask = 255;                     // stencil bits the stencil test compares
    Comparison depthComparison = Comparison::Less;          // the depth test, while a depth view is bound
    std::uint8_t depthWriteEnable = 1;                      // passing fragments write their depth

    std::uint32_t blendEnable = 0;                          // non-zero: colours blend into the target
    BlendFactor blendDestination = BlendFactor::Zero;       // weight of the target's colour
    std::uint32_t stencilEnable = 0;                        // non-zero: the stencil test runs
    Comparison stencilComparison = Comparison::Always;      // reference against the stored stencil value
    StencilOperation stencilPassOperation = StencilOperation::Keep;
    std::uint32_t stencilReference = 0;                     // reference of the stencil test

    std::uint8_t stencilWriteMask = 255;                    // stencil bits a passing fragment may change
    BlendFactor blendSource = BlendFactor::One;             // weight of the fragment's colour
    BlendOperation blendOperation = BlendOperation::Add;    // how the weighted colours combine
    std::uint8_t colorWriteEnable = 1;                      // fragments write colour at all

    std::array<Format, 4> renderTargetFormats{};            // format of the view bound at each colour slot
    Format depthStencilFormat = Format::None;               // format of the depth-stencil view; None: no depth
    std::uint32_t sampleCount = 1;                          // samples per pixel of the bound targets

    // Attribute names compare as AttributeDesc's do; floats by value.
    friend constexpr bool operator==(PipelineStateDescription const&, PipelineStateDescription const&) = default;
};

static_assert(sizeof(PipelineStateDescription) == 456);
static_assert(offsetof(PipelineStateDescription, reserved) == 320 && offsetof(PipelineStateDescription, shader) == 336 &&
              offsetof(PipelineStateDescription, topology) == 344 && offsetof(PipelineStateDescription, fillMode) == 352);
static_assert(offsetof(PipelineStateDescription, cullMode) == 360 &&
              offsetof(PipelineStateDescription, frontClockwise) == 364 &&
              offsetof(PipelineStateDescription, depthBias) == 368 &&
              offsetof(PipelineStateDescription, slopeScaledDepthBias) == 372);
static_assert(offsetof(PipelineStateDescription, stencilReadMask) == 376 &&
              offsetof(PipelineStateDescription, depthComparison) == 380 &&
              offsetof(PipelineStateDescription, depthWriteEnable) == 384);
static_assert(offsetof(PipelineStateDescription, blendEnable) == 388 &&
              offsetof(PipelineStateDescription, blendDestination) == 392 &&
              offsetof(PipelineStateDescription, stencilEnable) == 396 &&
              offsetof(PipelineStateDescription, stencilComparison) == 400 &&
              offsetof(PipelineStateDescription, stencilPassOperation) == 404 &&
              offsetof(PipelineStateDescription, stencilReference) == 408);
static_assert(offsetof(PipelineStateDescription, stencilWriteMask) == 412 &&
              offsetof(PipelineStateDescription, blendSource) == 416 &&
              offsetof(PipelineStateDescription, blendOperation) == 420 &&
              offsetof(PipelineStateDescription, colorWriteEnable) == 424);
static_assert(offsetof(PipelineStateDescription, renderTargetFormats) == 428 &&
              offsetof(PipelineStateDescription, depthStencilFormat) == 444 &&
              offsetof(PipelineStateDescription, sampleCount) == 448);

struct ConstantBufferBinding {
    BufferId buffer{};
    std::uint32_t stages = 0;         // ShaderStage bits that read it

    friend constexpr bool operator==(ConstantBufferBinding const&, ConstantBufferBinding const&) = default;
};

static_assert(sizeof(ConstantBufferBinding) == 16 && offsetof(ConstantBufferBinding, stages) == 8);

struct TextureBinding {
    SrvId view{};
    SamplerId sampler{};              // invalid: unfiltered fetches only
    std::uint32_t stages = 0;         // ShaderStage bits that read it

    friend constexpr bool operator==(TextureBinding const&, TextureBinding const&) = default;
};

static_assert(sizeof(TextureBinding) == 24 && offsetof(TextureBinding, sampler) == 8 &&
              offsetof(TextureBinding, stages) == 16);

// Every resource the next draw reads or writes; all slots start empty. The
// views travel as the low 32 bits of their handles (PackedId).
struct BindingState {
    std::array<ConstantBufferBinding, 8> constantBuffers{}; // by CBUFFER slot
    std::array<TextureBinding, 16> textures{};              // by TEXTURE_2D / TEXTURE_2DMS slot
    std::uint32_t reserved = 0;                             // the library leaves it 0
    std::array<PackedRtvId, 8> renderTargets{};             // colour targets, by fragment output target
    PackedRtvId depthStencil{};                             // a render-target view of a depth image
    PackedRtvId reservedView{};                             // the library leaves it empty

    friend constexpr bool operator==(BindingState const&, BindingState const&) = default;
};

static_assert(sizeof(BindingState) == 560 && offsetof(BindingState, textures) == 128 &&
              offsetof(BindingState, reserved) == 512 && offsetof(BindingState, renderTargets) == 516 &&
              offsetof(BindingState, depthStencil) == 548 && offsetof(BindingState, reservedView) == 552);

// A mapped image level. Pitches are bytes and may be negative (bottom-up).
struct MappedImage {
    void* data = nullptr;             // null when the map failed
    std::int32_t rowPitch = 0;
    std::int32_t slicePitch = 0;
};

static_assert(sizeof(MappedImage) == 16 && offsetof(MappedImage, rowPitch) == 8 &&
              offsetof(MappedImage, slicePitch) == 12);

// ---------------------------------------------------------------------------
// Interfaces
// ---------------------------------------------------------------------------

// Failure, for every operation below: a create that cannot make its resource
// returns the invalid handle or throws (both provided devices return the
// invalid handle and report the reason through their own diagnostics); a map
// that cannot map returns null. An operation handed a handle it does not know,
// or arguments its contract refuses, does nothing (returning the invalid
// handle, a null map, a default record or 0) and may report it, but must not
// corrupt other resources. The library releases what it made and lets any
// exception continue. docs/device-guide.md walks through an implementation.

class IBufferFactory {
public:
    virtual ~IBufferFactory() = default;

    // The largest BufferDescription::size CreateBuffer accepts.
    virtual std::uint32_t GetMaximumBufferSize() = 0;
    // The description the buffer was created with.
    virtual BufferDescription GetBufferDescription(BufferId buffer) = 0;
    // A buffer of description.size bytes holding initialData (size bytes) when
    // it is not null, else unspecified bytes.
    virtual BufferId CreateBuffer(BufferDescription const& description, void const* initialData) = 0;
    virtual void DestroyBuffer(BufferId buffer) noexcept = 0;
    // The whole buffer's bytes. MapMode::Write needs BufferUsage::Dynamic and
    // the bytes written are the buffer's after UnmapBuffer; MapMode::Read
    // works on any buffer. One map at a time per buffer. Null on failure;
    // UnmapBuffer follows in every case.
    virtual void* MapBuffer(BufferId buffer, std::uint32_t mode) = 0;
    virtual void UnmapBuffer(BufferId buffer) noexcept = 0;

protected:
    IBufferFactory() = default;
    IBufferFactory(IBufferFactory const&) = default;
    IBufferFactory& operator=(IBufferFactory const&) = default;
};

// Images: sub-images are named by SubImage {mipLevel, arraySlice}; the slice
// is a cube face (0 to 5) for cube maps and 0 otherwise. A multisampled image
// is 2D with one mip level. A level's extent is CalculateMipLevelSize of the
// image's (absent dimensions stay 0).
class IImageFactory {
public:
    virtual ~IImageFactory() = default;

    // Format, sample count and extent of the viewed level, and the view's
    // image and description.
    virtual RenderTargetViewInfo GetRenderTargetViewDescription(RtvId view) = 0;
    // The description the image was created with, mipLevels 0 replaced by
    // the level count made. Format::None for an unknown image.
    virtual ImageDesc GetImageDescription(ImageId image) = 0;
    // Needs a format with a pixel size; an extent that is 1D (w,0,0), 2D
    // (w,h,0) or 3D (w,h,d) with w > 0; sampleCount >= 1; at most the full
    // chain of levels; cube maps square, 2D and single-sampled; multisampled
    // images 2D with one level. mipLevels 0 makes the full chain,
    // floor(log2(largest dimension)) + 1 levels. Anything else, an empty
    // 0x0x0 extent included, gives the invalid handle. New contents are
    // unspecified (both provided devices start from zero bytes).
    virtual ImageId CreateImage(ImageDesc const& description) = 0;
    virtual void DestroySampler(SamplerId sampler) noexcept = 0;
    virtual void DestroyRenderTargetView(RtvId view) noexcept = 0;
    virtual void DestroyShaderResourceView(SrvId view) noexcept = 0;
    // The image must not be mapped; its views must not be used afterwards.
    virtual void DestroyImage(ImageId image) noexcept = 0;
    // A view of the given levels and slices (counts 0: all from the first on)
    // for TextureBinding. Multisampled images are read per sample
    // (TEXTURE_2DMS in the shader dialect).
    virtual SrvId CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description) = 0;
    // A view of one level and slice to draw into. Views of depth formats are
    // depth-stencil targets. Two live views never share their low 32 bits
    // (BindingState carries only those).
    virtual RtvId CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description) = 0;
    // Copies one sub-image into another. Needs CopySource (0x20) on the
    // source, CopyDestination (0x40) on the destination, equal pixel sizes,
    // equal sample counts (each sample is copied) and two different
    // sub-images (an image may copy between its own levels). Bytes move
    // unchanged, whatever the two formats. Sub-images of different extents
    // must be single-sampled and of one format, and the copy scales: each
    // destination texel is filtered from the source (the mip builder relies
    // on it). The filter is the device's choice; both provided devices filter
    // as GL's linear blit does. Texel centre x + 0.5 maps to source point
    // (x + 0.5) * sourceWidth / destinationWidth (likewise down the rows);
    // colour (normalized, half and float formats) is read bilinearly there,
    // edges clamped, and rounded to nearest (a GL driver may round the last
    // unit otherwise), so halving takes the 2x2 box average. Integer, depth and stencil texels are copied whole from the
    // texel under that point. Each depth slice of a 3D destination is
    // filtered from the source slice under its centre alone. A refused copy
    // changes nothing.
    virtual void CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                           SubImage const& destinationWhere) = 0;
    // Resolves a multisampled sub-image into a single-sampled one of the same
    // format and extent: needs Resolvable (0x80) on the source and
    // ResolveDestination (0x100) on the destination. Each texel becomes one
    // value computed from its samples, as the device chooses; both provided
    // devices take the mean of the samples of normalized, half and float
    // formats (rounded to nearest) and sample 0 of integer, depth and stencil
    // ones (GL lets the driver pick that sample; the drivers GlDevice is
    // tested on pick sample 0). A refused resolve changes nothing.
    virtual void ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                              SubImage const& destinationWhere) = 0;
    // Host access to one sub-image: every row and every depth slice of it.
    // MapMode::Read needs HostRead (0x08), MapMode::Write HostWrite (0x10);
    // multisampled images are never mapped; one map at a time per sub-image.
    // data points at the first texel of row 0 of slice 0, and row r of slice
    // z starts at data + z * slicePitch + r * rowPitch, so with a negative
    // (bottom-up) rowPitch data still points at row 0. |rowPitch| holds a row
    // and |slicePitch| every row of a slice. What a write map shows before the
    // caller writes is unspecified; its bytes are the sub-image's after
    // UnmapImage. data is null on failure; UnmapImage follows in every case.
    virtual MappedImage MapImage(ImageId image, SubImage const& where, std::uint32_t mode) = 0;
    virtual void UnmapImage(ImageId image, SubImage const& where) noexcept = 0;
    // A sampler for TextureBinding (the library asks only for the default).
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

    // One program from the stages' texts in the shader dialect
    // (docs/shader-dialect.md). Text the device cannot compile or link gives
    // the invalid handle (or an exception), best reported with the
    // translated source.
    virtual ShaderId CreateShader(ShaderDescription const& description) = 0;
    virtual void DestroyShader(ShaderId shader) noexcept = 0;

protected:
    IShaderFactory() = default;
    IShaderFactory(IShaderFactory const&) = default;
    IShaderFactory& operator=(IShaderFactory const&) = default;
};

// Commands take effect in the order issued: a copy, map or query issued
// after a draw sees the draw's result (a device may queue work, as long as
// it waits where a later operation needs the result).
class ICommandContext {
public:
    virtual ~ICommandContext() = default;

    // Draws vertexCount vertices from firstVertex with the pipeline state and
    // bindings of the last BindPipelineState; vertex buffers by slot.
    virtual void Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
                      std::uint32_t firstVertex) = 0;
    // Range queries (TimestampFrequency) only: BeginQuery and EndQuery
    // enclose the RecordQuery calls they measure, once each, in that order.
    virtual void BeginQuery(QueryId query) = 0;
    virtual void EndQuery(QueryId query) = 0;
    // Sample queries (Timestamp) only: takes the device's tick count when the
    // work issued before it has run.
    virtual void RecordQuery(QueryId query) = 0;
    // Never blocks: reports what is available. A timestamp gives its tick
    // count once available (both provided devices give 0 until then); a
    // frequency query gives ticks per second once
    // ended and available, and 0 while no usable result exists (the timers
    // then report their time as unavailable).
    virtual std::uint64_t GetQueryResult(QueryId query) = 0;
    // Draws indexCount 32-bit indices read from indexBuffer (made with
    // BufferUsage::Index) from index firstIndex on, with the bound pipeline
    // state. The library itself never calls it; renderers built on the
    // contract (zgu's demo) draw their meshes with it.
    virtual void DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer,
                             std::uint32_t indexCount, std::uint32_t firstIndex) = 0;

protected:
    ICommandContext() = default;
    ICommandContext(ICommandContext const&) = default;
    ICommandContext& operator=(ICommandContext const&) = default;
};

class IGpu : public IResourceFactory, public IShaderFactory, public ICommandContext {
public:
    // Everything a draw needs besides its bindings, fixed at creation; the
    // formats and sample count are those of the targets it will draw into.
    virtual PsoId CreatePipelineState(PipelineStateDescription const& description) = 0;
    // A range query must not be destroyed between BeginQuery and EndQuery.
    virtual void DestroyQuery(QueryId query) noexcept = 0;
    virtual void DestroyPipelineState(PsoId pipeline) noexcept = 0;
    // The pipeline state and every resource the next draws read or write;
    // stays in effect until the next call.
    virtual void BindPipelineState(PsoId pipeline, BindingState const& bindings) = 0;
    // A sample query (Timestamp) or a range query (TimestampFrequency); an
    // unknown type gives the invalid handle.
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
