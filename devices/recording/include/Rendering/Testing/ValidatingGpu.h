#pragma once

// ValidatingGpu: a device that wraps any other, forwards every call to it
// unchanged (same arguments, same order, results passed back as they came)
// and reports each breach of the rules in DeviceRules.h through a callback
// that names the rule, the operation and the object. RecordingGpu refuses the
// same breaches with the same checks.
//
//   Testing::ValidatingGpu checked(myDevice, [](Testing::Violation const& v) {
//       std::cerr << v.Text() << '\n';   // "CopyImage: source Image 0x2: lacks CopySource 0x20 ... [copy-flags]"
//   });
//   MipMapBuilder(checked).BuildMipMapChain(texture, 0, 0);
//
// What it needs: every object used through the wrapper was created through
// it (a handle it never saw created is reported as unknown). It keeps the
// descriptions it saw and what it learns from descriptions read back; it
// never calls the device on its own, so a device's call log is the same with
// or without it. A device that raises a sample count it was asked for (as
// GPUs do) is taken at its word once the caller reads the description back.
//
// It also checks what the device returns: a create that hands out a handle
// still live, a description read back that contradicts the one created, a
// map whose pitches cannot hold the sub-image's rows and slices, two live
// render-target views with the same low 32 bits.
//
// Not thread-safe, like the contract; the callback must not throw (destroy
// and unmap operations report too, and they are noexcept).

#include <Rendering/Device.h>
#include <Rendering/Testing/DeviceRules.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Testing {

using ViolationCallback = std::function<void(Violation const&)>;

class ValidatingGpu final : public IGpu {
public:
    // device must outlive the wrapper. Violations are kept (Violations())
    // whether or not a callback is given.
    explicit ValidatingGpu(IGpu& device, ViolationCallback onViolation = {});
    ~ValidatingGpu() override;
    ValidatingGpu(ValidatingGpu const&) = delete;
    ValidatingGpu& operator=(ValidatingGpu const&) = delete;

    // The wrapped device.
    IGpu& Device() const noexcept;

    // Every violation so far, in order.
    std::vector<Violation> const& Violations() const noexcept;
    void ClearViolations() noexcept;
    // Objects created through the wrapper and not yet destroyed.
    std::size_t LiveCount() const noexcept;
    // Maps (failed ones included: they need their unmap too) and begun
    // frequency queries not yet closed.
    std::size_t OpenMaps() const noexcept;
    std::size_t OpenQueries() const noexcept;
    // Violations, live objects, open maps and open queries, one per line in
    // sections; empty when all is clean.
    std::string Problems() const;

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
    void DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer, std::uint32_t indexCount,
                     std::uint32_t firstIndex) override;

    // ---- IGpu
    PsoId CreatePipelineState(PipelineStateDescription const& description) override;
    void DestroyQuery(QueryId query) noexcept override;
    void DestroyPipelineState(PsoId pipeline) noexcept override;
    void BindPipelineState(PsoId pipeline, BindingState const& bindings) override;
    QueryId CreateQuery(QueryType type) override;

private:
    struct State;
    IGpu& device_;
    std::unique_ptr<State> state_;
};

} // namespace Zorvan::Rendering::Testing
