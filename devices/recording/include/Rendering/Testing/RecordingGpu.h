#pragma once

// RecordingGpu: a strict host-memory implementation of IGpu for tests.
//
// - Real storage: buffers and every image level, slice (cube face) and sample
//   hold bytes, so uploads, readbacks, copies and mip chains can be checked by
//   value. Shaders are not executed: Draw only records.
// - Strict: it refuses and records every breach of the rules of
//   DeviceRules.h (the same checks ValidatingGpu applies to any device):
//   unknown or stale handles, double destroys, maps without the host flags,
//   copies without the copy flags, unbalanced map/unmap or begin/end.
// - Recorded: every interface call lands in a log with its arguments.
// - Scriptable: maximum buffer size, query results, stripped image flags,
//   padded or negative row pitches, full-chain fill-in for mipLevels 0.
// - Fault injection: make a given call throw, return an invalid handle or fail
//   a map.
//
// Behaviour of the device operations, where the contract in Device.h leaves
// a choice (GlDevice makes the same ones unless said otherwise):
// - Handles: low 32 bits are a slot, upper 32 bits a generation. A
//   render-target view's low 32 bits carry a 12-bit generation above a 20-bit
//   slot as well, so the packed views of a BindingState (low 32 bits only)
//   are still caught when stale.
// - CreateImage refuses (records an error, returns the invalid handle) a
//   description the rules reject, an empty 0x0x0 extent included. A
//   multisampled image has one level; sample counts are kept as asked.
// - New images and levels hold zero bytes.
// - MapImage exposes one sub-image (all depth slices) through a staging copy:
//   read maps need HostRead (0x08), write maps HostWrite (0x10); the staged
//   bytes are written back on UnmapImage of a write map. A write map of an
//   image without HostRead hands out unspecified bytes (a 0xCD pattern), as a
//   real device may. Multisampled images are never mapped.
// - MapBuffer: write maps need BufferUsage::Dynamic; read maps work on any
//   buffer and never change it.
// - CopyImage needs CopySource (0x20) on the source and CopyDestination (0x40)
//   on the destination (an image may copy within itself, e.g. between mip
//   levels); formats must have the same pixel size and the images the same
//   sample count (each sample is copied). Bytes move unchanged: a copy from
//   R8G8B8A8 into B8G8R8A8 does not swap channels. Different extents scale
//   as GlDevice's linear blits do (Device.h, CopyImage): colour channels are
//   decoded, read bilinearly around (x + 0.5) * srcWidth / dstWidth and
//   encoded again (normalized codes rounded to nearest, ties away from zero;
//   half floats to nearest even); integer, depth and stencil texels are
//   copied whole from the texel under that point; 3D slices come from the
//   source slice under their centre.
// - ResolveImage needs a multisampled source with Resolvable (0x80) and a
//   single-sampled destination of the same extent and format with
//   ResolveDestination (0x100); colour texels take the mean of their
//   samples, integer, depth and stencil texels sample 0, as on GlDevice.
// - Images created with mipLevels 0 receive the full chain (scriptable).
// - Query results: frequency queries read the scripted frequency once ended;
//   timestamp queries take the next scripted timestamp when recorded (or an
//   internal clock that advances by a fixed step). SetQueryResult overrides.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Testing/DeviceRules.h>

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

namespace Zorvan::Rendering::Testing {

enum class ResourceKind : std::uint32_t { Buffer, Image, ShaderResourceView, RenderTargetView, Sampler, Shader, Pipeline, Query };
inline constexpr std::size_t ResourceKindCount = 8;
char const* ToString(ResourceKind kind);

// One recorded call. handles[] hold the handle arguments in argument order
// (e.g. source then destination of a copy, the index buffer of DrawIndexed);
// result holds a returned handle or value (all ones when there is none; a map
// gives 1 when it handed out memory, 0 when it returned null); payload the
// record argument, if any; written, for the UnmapBuffer of a write map, the
// bytes the buffer holds after it (what the caller wrote).
struct Call {
    using Payload = std::variant<std::monostate, BufferDescription, ImageDesc, ShaderDescription,
                                 PipelineStateDescription, BindingState, ShaderResourceViewDescription,
                                 RenderTargetViewDescription, SamplerDescription, VertexBufferBindings>;

    Op op{};
    std::array<std::uint64_t, 2> handles{~std::uint64_t{0}, ~std::uint64_t{0}};
    std::array<SubImage, 2> subImages{};
    std::uint32_t value = 0;   // map mode, vertex or index count, query type
    std::uint32_t value2 = 0;  // first vertex or index
    std::uint64_t result = ~std::uint64_t{0};
    bool faulted = false;      // an injected fault hit this call
    Payload payload{};
    std::vector<std::byte> written{};

    template <typename T>
    T const& As() const { return std::get<T>(payload); }
};

enum class FaultKind : std::uint32_t {
    Throw,          // the call throws InjectedFault (not for Destroy*/Unmap*, which must not throw)
    InvalidHandle,  // a Create* call returns the invalid handle and creates nothing
    NullMap,        // a Map* call returns null (the unmap that follows is accepted)
};

struct InjectedFault : std::runtime_error {
    using std::runtime_error::runtime_error;
};

class RecordingGpu final : public IGpu {
public:
    RecordingGpu();
    ~RecordingGpu() override;
    RecordingGpu(RecordingGpu const&) = delete;
    RecordingGpu& operator=(RecordingGpu const&) = delete;

    // ---- IBufferFactory
    std::uint32_t GetMaximumBufferSize() override;
    BufferDescription GetBufferDescription(BufferId buffer) override;
    BufferId CreateBuffer(BufferDescription const& description, void const* initialData) override;
    void DestroyBuffer(BufferId buffer) noexcept override;
    void* MapBuffer(BufferId buffer, std::uint32_t mode) override;
    void UnmapBuffer(BufferId buffer) noexcept override;

    // ---- IImageFactory
    RenderTargetViewInfo GetRenderTargetViewDescription(RtvId view) override;
    ImageDesc GetImageDescription(ImageId image) override;
    ImageId CreateImage(ImageDesc const& description) override;
    void DestroySampler(SamplerId sampler) noexcept override;
    void DestroyRenderTargetView(RtvId view) noexcept override;
    void DestroyShaderResourceView(SrvId view) noexcept override;
    void DestroyImage(ImageId image) noexcept override;
    SrvId CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description) override;
    RtvId CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description) override;
    void CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                   SubImage const& destinationWhere) override;
    void ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                      SubImage const& destinationWhere) override;
    MappedImage MapImage(ImageId image, SubImage const& where, std::uint32_t mode) override;
    void UnmapImage(ImageId image, SubImage const& where) noexcept override;
    SamplerId CreateSampler(SamplerDescription const& description) override;

    // ---- IShaderFactory
    ShaderId CreateShader(ShaderDescription const& description) override;
    void DestroyShader(ShaderId shader) noexcept override;

    // ---- ICommandContext
    void Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount, std::uint32_t firstVertex) override;
    void BeginQuery(QueryId query) override;
    void EndQuery(QueryId query) override;
    void RecordQuery(QueryId query) override;
    std::uint64_t GetQueryResult(QueryId query) override;
    // Checks the index buffer (live, BufferUsage::Index, the indices inside
    // it) and the vertex buffers; like Draw, executes nothing.
    void DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer, std::uint32_t indexCount,
                     std::uint32_t firstIndex) override;

    // ---- IGpu
    PsoId CreatePipelineState(PipelineStateDescription const& description) override;
    void DestroyQuery(QueryId query) noexcept override;
    void DestroyPipelineState(PsoId pipeline) noexcept override;
    void BindPipelineState(PsoId pipeline, BindingState const& bindings) override;
    QueryId CreateQuery(QueryType type) override;

    // ==== Call log
    std::vector<Call> const& Log() const noexcept;
    void ClearLog() noexcept;
    // Number of interface calls made so far (the index the next call gets).
    std::uint64_t CallCount() const noexcept;
    std::size_t Count(Op op) const noexcept;
    std::vector<Call const*> Calls(Op op) const;
    // The operations of the log in order (optionally only those in filter).
    std::vector<Op> Ops() const;
    std::vector<Op> Ops(std::initializer_list<Op> filter) const;
    // The whole log as readable text, one call per line (for failure output).
    std::string Dump() const;

    // ==== Accounting
    std::size_t LiveCount(ResourceKind kind) const noexcept;
    std::size_t LiveCount() const noexcept;
    // Resources created since construction (or the last ResetAccounting).
    std::size_t CreatedCount(ResourceKind kind) const noexcept;
    // Errors recorded so far: misuse, leaks are not included (see Problems).
    std::vector<std::string> const& Errors() const noexcept;
    // Maps and begun queries still open.
    std::size_t OpenMaps() const noexcept;
    std::size_t OpenQueries() const noexcept;
    // Everything wrong right now: errors, live resources, open maps and queries,
    // one per line; handles read "Image(slot, gen generation)". Empty means clean.
    std::string Problems() const;
    // Forget errors and creation counts (live resources stay live).
    void ResetAccounting() noexcept;

    // ==== Scripting
    void SetMaximumBufferSize(std::uint32_t bytes) noexcept;
    // Bits removed from the flags of every image created from now on.
    void SetStrippedImageFlags(std::uint32_t flags) noexcept;
    // Extra bytes added to every mapped row pitch (and slice pitches follow).
    void SetRowPitchPadding(std::uint32_t bytes) noexcept;
    // Hand out maps bottom-up: data points at row 0 and the row pitch is
    // negative, so row r lies at data + r * pitch.
    void SetNegativeRowPitch(bool negative) noexcept;
    // Whether mipLevels 0 is filled in with the full chain (default true);
    // when off, the description keeps 0 and the image has one level.
    void SetFullChainFill(bool enabled) noexcept;
    // Ticks per second reported by ended frequency queries (default 1e9;
    // 0 makes every frequency unusable).
    void SetTimestampFrequency(std::uint64_t ticksPerSecond) noexcept;
    // Values handed to the next recorded timestamps, in order; when they run
    // out an internal clock advancing by step is used (default 1000).
    void QueueTimestamps(std::initializer_list<std::uint64_t> ticks);
    void SetTimestampStep(std::uint64_t step) noexcept;
    // Fix one query's result from now on.
    void SetQueryResult(QueryId query, std::uint64_t value);

    // ==== Fault injection
    // Fault the call with this index (0-based count of all interface calls).
    void InjectFaultAtCall(std::uint64_t callIndex, FaultKind kind);
    // Fault the nth (0-based) call of op counted from now.
    void InjectFault(Op op, std::uint64_t nth, FaultKind kind);
    void ClearFaults() noexcept;
    // Faults injected that have hit so far.
    std::size_t FaultsHit() const noexcept;

    // ==== Inspection (not recorded in the log)
    bool IsLive(std::uint64_t handle, ResourceKind kind) const noexcept;
    ImageDesc const& Description(ImageId image) const;
    // Tightly packed bytes of one sub-image (all depth slices) of one sample.
    std::vector<std::byte> ReadImage(ImageId image, SubImage where = {}, std::uint32_t sample = 0) const;
    // Overwrite one sub-image from tightly packed bytes; sample ~0u writes all samples.
    void WriteImage(ImageId image, SubImage where, std::span<std::byte const> bytes, std::uint32_t sample = ~0u);
    std::vector<std::byte> const& BufferBytes(BufferId buffer) const;
    BufferDescription const& Description(BufferId buffer) const;
    ShaderDescription const& Shader(ShaderId shader) const;
    PipelineStateDescription const& Pipeline(PsoId pipeline) const;
    ShaderResourceViewDescription const& View(SrvId view) const;
    ImageId ViewedImage(SrvId view) const;
    ImageId ViewedImage(RtvId view) const;
    QueryType TypeOf(QueryId query) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Zorvan::Rendering::Testing
