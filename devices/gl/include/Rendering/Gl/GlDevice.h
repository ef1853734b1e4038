#pragma once

// Reference device: the device contract on OpenGL 4.5 core through a headless
// EGL context (no window, no surface). One GlDevice owns one context, current
// on the thread that made it; use it from that thread only.

#include <Rendering/Device.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Gl {

enum class MessageSeverity { Info, Warning, Error };

using MessageCallback = std::function<void(MessageSeverity, std::string const&)>;

// Pick the EGL device automatically (see GlDeviceOptions::eglDevice).
inline constexpr int AutomaticEglDevice = -1;

struct GlDeviceOptions {
    // Receives driver debug output and the device's own diagnostics (stale
    // handles, compile errors with the translated source, ...).
    MessageCallback onMessage;
    // Ask the driver for a debug context and forward its messages.
    bool debugOutput = true;
    // The EGL device to open, by its index in ListEglDevices(). Automatic:
    // the index in the environment variable ZGU_EGL_DEVICE if it is set,
    // else the first hardware device, else Mesa's surfaceless platform, else
    // the first device that opens. A named device that does not exist or
    // does not open is an error that lists the devices there are.
    int eglDevice = AutomaticEglDevice;
};

// One device of the EGL device platform (EGL_EXT_device_enumeration).
struct EglDeviceInfo {
    int index = 0;
    std::string name;       // renderer or DRM node, as far as EGL tells
    bool software = false;  // a software rasteriser (EGL_MESA_device_software)
};

// The EGL devices this process can see, in EGL's order; empty when EGL
// cannot enumerate devices.
std::vector<EglDeviceInfo> ListEglDevices();

// Thrown by the constructor when no display or context can be made.
class GlDeviceError : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

struct GlDeviceInfo {
    std::string platform;              // EGL platform the display came from
    int eglDevice = AutomaticEglDevice; // index of the EGL device; -1 on the surfaceless platform
    std::string vendor;
    std::string renderer;
    std::string version;
    std::string shadingLanguageVersion;
    int maxTextureSize = 0;
    int maxSamples = 0;
    int maxColorSamples = 0;
    int maxDepthSamples = 0;
    std::uint64_t maxBufferSize = 0;
};

class GlDevice final : public IGpu {
public:
    explicit GlDevice(GlDeviceOptions options = {});
    ~GlDevice() override;

    GlDevice(GlDevice const&) = delete;
    GlDevice& operator=(GlDevice const&) = delete;

    // Buffers
    std::uint32_t GetMaximumBufferSize() override;
    BufferDescription GetBufferDescription(BufferId buffer) override;
    BufferId CreateBuffer(BufferDescription const& description, void const* initialData) override;
    void DestroyBuffer(BufferId buffer) noexcept override;
    void* MapBuffer(BufferId buffer, std::uint32_t mode) override;
    void UnmapBuffer(BufferId buffer) noexcept override;

    // Images and views
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

    // Shaders and pipelines
    ShaderId CreateShader(ShaderDescription const& description) override;
    void DestroyShader(ShaderId shader) noexcept override;
    PsoId CreatePipelineState(PipelineStateDescription const& description) override;
    void DestroyPipelineState(PsoId pipeline) noexcept override;
    void BindPipelineState(PsoId pipeline, BindingState const& bindings) override;

    // Commands and queries
    void Draw(VertexBufferBindings const& vertexBuffers, std::uint32_t vertexCount,
              std::uint32_t firstVertex) override;
    QueryId CreateQuery(QueryType type) override;
    void DestroyQuery(QueryId query) noexcept override;
    void BeginQuery(QueryId query) override;
    void EndQuery(QueryId query) override;
    void RecordQuery(QueryId query) override;
    std::uint64_t GetQueryResult(QueryId query) override;
    void DrawIndexed(VertexBufferBindings const& vertexBuffers, BufferId indexBuffer, std::uint32_t indexCount,
                     std::uint32_t firstIndex) override;

    // Waits until the device has executed everything issued so far.
    void Finish();

    GlDeviceInfo const& Info() const noexcept;
    // Resources created and not yet destroyed, of every kind.
    std::size_t LiveResourceCount() const noexcept;
    // Every Error-severity message so far.
    std::vector<std::string> const& Errors() const noexcept;
    // Errors and leaked resources as text; empty when the device is clean.
    std::string Problems() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace Zorvan::Rendering::Gl
