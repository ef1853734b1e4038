#include "Context.h"

#include <Rendering/Gl/GlDevice.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <string_view>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

namespace {

bool HasExtension(char const* list, std::string_view name) noexcept
{
    if (list == nullptr)
        return false;
    std::string_view rest(list);
    while (!rest.empty()) {
        std::size_t const space = rest.find(' ');
        if (rest.substr(0, space) == name)
            return true;
        if (space == std::string_view::npos)
            break;
        rest.remove_prefix(space + 1);
    }
    return false;
}

std::string EglErrorText(EGLint error)
{
    char buffer[16];
    std::snprintf(buffer, sizeof buffer, "0x%04X", static_cast<unsigned>(error));
    return buffer;
}

} // namespace

// An initialised display, shared by every context of the process and
// terminated when the last one goes.
class EglDisplay {
public:
    EglDisplay(EGLDisplay display, std::string platform) : display_(display), platform_(std::move(platform)) {}
    ~EglDisplay() { eglTerminate(display_); }
    EglDisplay(EglDisplay const&) = delete;
    EglDisplay& operator=(EglDisplay const&) = delete;

    EGLDisplay Get() const noexcept { return display_; }
    std::string const& Platform() const noexcept { return platform_; }

    static std::shared_ptr<EglDisplay> Acquire(std::string& whyNot)
    {
        static std::mutex mutex;
        static std::weak_ptr<EglDisplay> shared;
        std::lock_guard lock(mutex);
        if (auto display = shared.lock())
            return display;
        auto display = Open(whyNot);
        shared = display;
        return display;
    }

private:
    static std::shared_ptr<EglDisplay> Initialise(EGLDisplay display, char const* platform, std::string& whyNot)
    {
        if (display == EGL_NO_DISPLAY) {
            whyNot += std::string(platform) + ": no display; ";
            return nullptr;
        }
        EGLint major = 0;
        EGLint minor = 0;
        if (eglInitialize(display, &major, &minor) != EGL_TRUE) {
            whyNot += std::string(platform) + ": eglInitialize failed (" + EglErrorText(eglGetError()) + "); ";
            return nullptr;
        }
        return std::make_shared<EglDisplay>(display, platform);
    }

    static std::shared_ptr<EglDisplay> Open(std::string& whyNot)
    {
        char const* clientExtensions = eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS);
        if (HasExtension(clientExtensions, "EGL_MESA_platform_surfaceless")) {
            auto display = Initialise(eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr),
                                      "surfaceless", whyNot);
            if (display)
                return display;
        } else {
            whyNot += "EGL_MESA_platform_surfaceless not offered; ";
        }
        if (HasExtension(clientExtensions, "EGL_EXT_platform_device") &&
            HasExtension(clientExtensions, "EGL_EXT_device_enumeration")) {
            auto const queryDevices =
                reinterpret_cast<PFNEGLQUERYDEVICESEXTPROC>(eglGetProcAddress("eglQueryDevicesEXT"));
            EGLint count = 0;
            if (queryDevices != nullptr && queryDevices(0, nullptr, &count) == EGL_TRUE && count > 0) {
                std::vector<EGLDeviceEXT> devices(static_cast<std::size_t>(count));
                queryDevices(count, devices.data(), &count);
                for (EGLint i = 0; i < count; ++i) {
                    auto display = Initialise(eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[i], nullptr),
                                              "device", whyNot);
                    if (display)
                        return display;
                }
            } else {
                whyNot += "no EGL devices; ";
            }
        } else {
            whyNot += "EGL_EXT_platform_device not offered; ";
        }
        return nullptr;
    }

    EGLDisplay display_;
    std::string platform_;
};

Context::Context(bool debug)
{
    std::string whyNot;
    display_ = EglDisplay::Acquire(whyNot);
    if (!display_)
        throw GlDeviceError("no EGL display for a headless GL context: " + whyNot);
    EGLDisplay const display = display_->Get();
    platform_ = display_->Platform();
    if (eglBindAPI(EGL_OPENGL_API) != EGL_TRUE)
        throw GlDeviceError("the EGL display offers no desktop OpenGL (eglBindAPI failed)");

    char const* extensions = eglQueryString(display, EGL_EXTENSIONS);
    bool const noConfig = HasExtension(extensions, "EGL_KHR_no_config_context") ||
                          HasExtension(extensions, "EGL_MESA_configless_context");
    bool const surfaceless = HasExtension(extensions, "EGL_KHR_surfaceless_context");
    EGLConfig config = EGL_NO_CONFIG_KHR;
    if (!noConfig || !surfaceless) {
        EGLint const wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_BIT, EGL_NONE};
        EGLint found = 0;
        if (eglChooseConfig(display, wanted, &config, 1, &found) != EGL_TRUE || found == 0)
            throw GlDeviceError("the EGL display has no configuration for an OpenGL pbuffer");
    }

    EGLint const attributes[] = {EGL_CONTEXT_MAJOR_VERSION, 4,
                                 EGL_CONTEXT_MINOR_VERSION, 5,
                                 EGL_CONTEXT_OPENGL_PROFILE_MASK, EGL_CONTEXT_OPENGL_CORE_PROFILE_BIT,
                                 EGL_CONTEXT_OPENGL_DEBUG, debug ? EGL_TRUE : EGL_FALSE,
                                 EGL_NONE};
    context_ = eglCreateContext(display, config, EGL_NO_CONTEXT, attributes);
    if (context_ == EGL_NO_CONTEXT)
        throw GlDeviceError("the " + platform_ + " EGL display cannot make an OpenGL 4.5 core context (" +
                            EglErrorText(eglGetError()) + ")");
    if (!surfaceless) {
        EGLint const size[] = {EGL_WIDTH, 1, EGL_HEIGHT, 1, EGL_NONE};
        surface_ = eglCreatePbufferSurface(display, config, size);
        if (surface_ == EGL_NO_SURFACE) {
            eglDestroyContext(display, context_);
            throw GlDeviceError("no surfaceless contexts and no pbuffer on the EGL display");
        }
    }
    if (eglMakeCurrent(display, surface_, surface_, context_) != EGL_TRUE) {
        std::string const error = EglErrorText(eglGetError());
        if (surface_ != EGL_NO_SURFACE)
            eglDestroySurface(display, surface_);
        eglDestroyContext(display, context_);
        throw GlDeviceError("cannot make the OpenGL context current (" + error + ")");
    }
}

Context::~Context()
{
    EGLDisplay const display = display_->Get();
    if (eglGetCurrentContext() == context_)
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    if (surface_ != EGL_NO_SURFACE)
        eglDestroySurface(display, surface_);
    eglDestroyContext(display, context_);
}

void Context::MakeCurrent() const noexcept
{
    if (eglGetCurrentContext() != context_)
        eglMakeCurrent(display_->Get(), surface_, surface_, context_);
}

} // namespace Zorvan::Rendering::Gl::detail
