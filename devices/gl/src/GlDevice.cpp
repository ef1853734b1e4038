// Construction, diagnostics and the device-wide queries of GlDevice.

#include "DeviceCore.h"

#include <Rendering/Image.h>

#include <cstdio>
#include <sstream>

namespace Zorvan::Rendering::Gl {

namespace detail {

namespace {

// The device's own cap on buffer sizes: GL has no single limit, and larger
// buffers are beyond what a software rasteriser should be asked for.
constexpr std::uint64_t MaximumBufferSize = std::uint64_t{1} << 28;

void APIENTRY ForwardDebugMessage(GLenum source, GLenum type, GLuint, GLenum severity, GLsizei length,
                                  GLchar const* message, void const* user)
{
    auto* core = static_cast<DeviceCore*>(const_cast<void*>(user));
    std::string text = length >= 0 ? std::string(message, static_cast<std::size_t>(length)) : std::string(message);
    // Compile errors are reported by CreateShader itself, with the source.
    bool const compiler = source == GL_DEBUG_SOURCE_SHADER_COMPILER;
    MessageSeverity const level = type == GL_DEBUG_TYPE_ERROR && !compiler ? MessageSeverity::Error
                                  : severity == GL_DEBUG_SEVERITY_HIGH || severity == GL_DEBUG_SEVERITY_MEDIUM
                                      ? MessageSeverity::Warning
                                      : MessageSeverity::Info;
    core->Report(level, "GL: " + text);
}

std::string GlString(GLenum name)
{
    auto const* text = reinterpret_cast<char const*>(glGetString(name));
    return text != nullptr ? text : "";
}

int GlInteger(GLenum name)
{
    GLint value = 0;
    glGetIntegerv(name, &value);
    return value;
}

} // namespace

char const* ToString(ObjectKind kind) noexcept
{
    switch (kind) {
    case ObjectKind::Buffer: return "buffer";
    case ObjectKind::Image: return "image";
    case ObjectKind::ShaderResourceView: return "shader-resource view";
    case ObjectKind::RenderTargetView: return "render-target view";
    case ObjectKind::Sampler: return "sampler";
    case ObjectKind::Shader: return "shader";
    case ObjectKind::Pipeline: return "pipeline state";
    case ObjectKind::Query: return "query";
    }
    return "object";
}

char const* Explain(LookupResult result) noexcept
{
    switch (result) {
    case LookupResult::Found: return "is live";
    case LookupResult::Invalid: return "is the invalid handle";
    case LookupResult::Unknown: return "was never made by this device";
    case LookupResult::Stale: return "is stale (already destroyed)";
    case LookupResult::WrongKind: return "names an object of another kind";
    }
    return "is unusable";
}

std::string HandleText(std::uint64_t handle)
{
    char buffer[24];
    std::snprintf(buffer, sizeof buffer, "0x%016llx", static_cast<unsigned long long>(handle));
    return buffer;
}

std::string PackedHandleText(std::uint32_t handle)
{
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%08x", handle);
    return buffer;
}

Size LevelSize(ImageDesc const& description, std::uint32_t level) noexcept
{
    // The library's own rule, so that the device and its callers never
    // disagree on a level's extent.
    return CalculateMipLevelSize(description.size, level);
}

Size LevelExtent(ImageDesc const& description, std::uint32_t level) noexcept
{
    Size size = LevelSize(description, level);
    size.width = size.width == 0 ? 1 : size.width;
    size.height = size.height == 0 ? 1 : size.height;
    size.depth = size.depth == 0 ? 1 : size.depth;
    return size;
}

DeviceCore::DeviceCore(GlDeviceOptions deviceOptions) : options(std::move(deviceOptions)), context(options.debugOutput, options.eglDevice)
{
    if (options.debugOutput && (GlInteger(GL_CONTEXT_FLAGS) & GL_CONTEXT_FLAG_DEBUG_BIT) != 0) {
        glEnable(GL_DEBUG_OUTPUT);
        glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
        glDebugMessageCallback(ForwardDebugMessage, this);
        glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, nullptr, GL_TRUE);
        debugOutput = true;
    }
    info.platform = context.Platform();
    info.eglDevice = context.EglDevice();
    info.vendor = GlString(GL_VENDOR);
    info.renderer = GlString(GL_RENDERER);
    info.version = GlString(GL_VERSION);
    info.shadingLanguageVersion = GlString(GL_SHADING_LANGUAGE_VERSION);
    info.maxTextureSize = GlInteger(GL_MAX_TEXTURE_SIZE);
    info.maxSamples = GlInteger(GL_MAX_SAMPLES);
    info.maxColorSamples = GlInteger(GL_MAX_COLOR_TEXTURE_SAMPLES);
    info.maxDepthSamples = GlInteger(GL_MAX_DEPTH_TEXTURE_SAMPLES);
    info.maxBufferSize = MaximumBufferSize;

    GLint major = GlInteger(GL_MAJOR_VERSION);
    GLint minor = GlInteger(GL_MINOR_VERSION);
    if (major < 4 || (major == 4 && minor < 5))
        throw GlDeviceError("the context offers OpenGL " + info.version + ", 4.5 is needed");

    // Host rows are tightly packed whatever their width.
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
    glEnable(GL_TEXTURE_CUBE_MAP_SEAMLESS);

    GLuint names[3] = {};
    glCreateFramebuffers(3, names);
    readFramebuffer = GlFramebuffer(names[0]);
    drawFramebuffer = GlFramebuffer(names[1]);
    targetFramebuffer = GlFramebuffer(names[2]);
    CheckGlErrors("GlDevice");
}

void DeviceCore::Report(MessageSeverity severity, std::string const& text)
{
    if (severity == MessageSeverity::Error)
        errors.push_back(text);
    if (options.onMessage)
        options.onMessage(severity, text);
}

void DeviceCore::CheckGlErrors(char const* operation)
{
    if (debugOutput)
        return;
    for (GLenum error = glGetError(); error != GL_NO_ERROR; error = glGetError()) {
        char buffer[16];
        std::snprintf(buffer, sizeof buffer, "0x%04X", error);
        Error(std::string(operation) + ": GL error " + buffer);
    }
}

RtvRecord* DeviceCore::FindView(PackedRtvId view, char const* operation, char const* what)
{
    LookupResult result = LookupResult::Found;
    RtvRecord* record = renderTargetViews.FindPacked(view.Handle(), result);
    if (record == nullptr)
        Error(std::string(operation) + ": " + what + " " + PackedHandleText(view.Handle()) + " " + Explain(result) +
              "; ignored");
    return record;
}

void DeviceCore::ReportLookup(LookupResult result, std::uint64_t handle, char const* operation, char const* what)
{
    Error(std::string(operation) + ": " + what + " " + HandleText(handle) + " " + Explain(result) + "; ignored");
}

} // namespace detail

GlDevice::GlDevice(GlDeviceOptions options) : state_(std::make_unique<State>(std::move(options))) {}

GlDevice::~GlDevice()
{
    // GL objects are deleted with the context current; the context goes last.
    state_->MakeCurrent();
    state_->queries.Clear();
    state_->pipelines.Clear();
    state_->shaders.Clear();
    state_->samplers.Clear();
    state_->renderTargetViews.Clear();
    state_->shaderResourceViews.Clear();
    state_->images.Clear();
    state_->buffers.Clear();
    state_->staging.Clear();
    state_->textureBin.Clear();
    state_->readFramebuffer.Reset();
    state_->drawFramebuffer.Reset();
    state_->targetFramebuffer.Reset();
    glFinish();
}

void GlDevice::Finish()
{
    state_->MakeCurrent();
    glFinish();
}

GlDeviceInfo const& GlDevice::Info() const noexcept { return state_->info; }

std::size_t GlDevice::LiveResourceCount() const noexcept
{
    auto const& s = *state_;
    return s.buffers.Live() + s.images.Live() + s.shaderResourceViews.Live() + s.renderTargetViews.Live() +
           s.samplers.Live() + s.shaders.Live() + s.pipelines.Live() + s.queries.Live();
}

std::vector<std::string> const& GlDevice::Errors() const noexcept { return state_->errors; }

std::string GlDevice::Problems() const
{
    auto& s = *state_;
    std::ostringstream out;
    for (auto const& error : s.errors)
        out << "error: " << error << "\n";
    auto const live = [&out](std::size_t count, char const* what) {
        if (count != 0)
            out << "live: " << count << " " << what << "\n";
    };
    live(s.buffers.Live(), "buffer(s)");
    live(s.images.Live(), "image(s)");
    live(s.shaderResourceViews.Live(), "shader-resource view(s)");
    live(s.renderTargetViews.Live(), "render-target view(s)");
    live(s.samplers.Live(), "sampler(s)");
    live(s.shaders.Live(), "shader(s)");
    live(s.pipelines.Live(), "pipeline state(s)");
    live(s.queries.Live(), "query(ies)");
    std::size_t openMaps = 0;
    s.buffers.ForEach([&openMaps](detail::BufferRecord& b) { openMaps += b.mapped ? 1 : 0; });
    s.images.ForEach([&openMaps](detail::ImageRecord& i) { openMaps += i.maps.size(); });
    if (openMaps != 0)
        out << "open: " << openMaps << " map(s)\n";
    std::size_t openQueries = 0;
    s.queries.ForEach([&openQueries](detail::QueryRecord& q) { openQueries += q.open ? 1 : 0; });
    if (openQueries != 0)
        out << "open: " << openQueries << " query range(s)\n";
    return out.str();
}

} // namespace Zorvan::Rendering::Gl
