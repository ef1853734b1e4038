#include "Context.h"

#include <Rendering/Gl/GlDevice.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
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

using QueryDevices = PFNEGLQUERYDEVICESEXTPROC;
using QueryDeviceString = PFNEGLQUERYDEVICESTRINGEXTPROC;

std::vector<EGLDeviceEXT> EnumerateDevices()
{
    if (!HasExtension(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_EXT_device_enumeration"))
        return {};
    auto const query = reinterpret_cast<QueryDevices>(eglGetProcAddress("eglQueryDevicesEXT"));
    EGLint count = 0;
    if (query == nullptr || query(0, nullptr, &count) != EGL_TRUE || count <= 0)
        return {};
    std::vector<EGLDeviceEXT> devices(static_cast<std::size_t>(count));
    if (query(count, devices.data(), &count) != EGL_TRUE)
        return {};
    devices.resize(static_cast<std::size_t>(count));
    return devices;
}

EglDeviceInfo Describe(EGLDeviceEXT device, int index)
{
    auto const query = reinterpret_cast<QueryDeviceString>(eglGetProcAddress("eglQueryDeviceStringEXT"));
    auto const text = [&](EGLint name) -> std::string {
        char const* value = query != nullptr ? query(device, name) : nullptr;
        return value != nullptr ? value : "";
    };
    std::string const extensions = text(EGL_EXTENSIONS);
    EglDeviceInfo info;
    info.index = index;
    info.software = HasExtension(extensions.c_str(), "EGL_MESA_device_software");
    if (HasExtension(extensions.c_str(), "EGL_EXT_device_query_name"))
        info.name = text(EGL_VENDOR) + " " + text(EGL_RENDERER_EXT);
    if (info.name.empty() && HasExtension(extensions.c_str(), "EGL_EXT_device_drm_render_node"))
        info.name = text(EGL_DRM_RENDER_NODE_FILE_EXT);
    if (info.name.empty() && HasExtension(extensions.c_str(), "EGL_EXT_device_drm"))
        info.name = text(EGL_DRM_DEVICE_FILE_EXT);
    if (info.name.empty())
        info.name = info.software ? "software rasteriser" : "unnamed device";
    return info;
}

std::string DeviceList(std::vector<EGLDeviceEXT> const& devices)
{
    if (devices.empty())
        return "EGL lists no devices";
    std::string list = "the EGL devices are";
    for (std::size_t i = 0; i < devices.size(); ++i) {
        EglDeviceInfo const info = Describe(devices[i], static_cast<int>(i));
        list += (i == 0 ? " " : ", ") + std::to_string(i) + " (" + info.name + (info.software ? ", software" : "") + ")";
    }
    return list;
}

} // namespace

// An initialised display, shared by every context of the process that uses
// the same platform and device, and terminated when the last one goes.
class EglDisplay {
public:
    EglDisplay(EGLDisplay display, std::string platform, int device)
        : display_(display), platform_(std::move(platform)), device_(device)
    {
    }
    ~EglDisplay() { eglTerminate(display_); }
    EglDisplay(EglDisplay const&) = delete;
    EglDisplay& operator=(EglDisplay const&) = delete;

    EGLDisplay Get() const noexcept { return display_; }
    std::string const& Platform() const noexcept { return platform_; }
    int Device() const noexcept { return device_; }

    // The display of the device of that index (AutomaticEglDevice: the
    // environment's choice, else the automatic one); null with the reason
    // when none opens. A device named explicitly throws when it does not exist.
    static std::shared_ptr<EglDisplay> Acquire(int requested, std::string& whyNot)
    {
        static std::mutex mutex;
        std::lock_guard lock(mutex);
        if (requested == AutomaticEglDevice)
            requested = FromEnvironment();
        std::vector<EGLDeviceEXT> const devices = EnumerateDevices();
        if (requested >= 0) {
            if (static_cast<std::size_t>(requested) >= devices.size())
                throw GlDeviceError("EGL device " + std::to_string(requested) + " does not exist: " +
                                    DeviceList(devices));
            auto display = OpenDevice(devices, requested, whyNot);
            if (!display)
                throw GlDeviceError("EGL device " + std::to_string(requested) + " does not open (" + whyNot +
                                    "): " + DeviceList(devices));
            return display;
        }
        // Hardware first; Mesa's surfaceless platform picks its own device.
        for (std::size_t i = 0; i < devices.size(); ++i)
            if (!Describe(devices[i], static_cast<int>(i)).software)
                if (auto display = OpenDevice(devices, static_cast<int>(i), whyNot))
                    return display;
        if (auto display = OpenSurfaceless(whyNot))
            return display;
        for (std::size_t i = 0; i < devices.size(); ++i)
            if (Describe(devices[i], static_cast<int>(i)).software)
                if (auto display = OpenDevice(devices, static_cast<int>(i), whyNot))
                    return display;
        if (devices.empty())
            whyNot += "no EGL devices; ";
        return nullptr;
    }

private:
    // ZGU_EGL_DEVICE as an index; AutomaticEglDevice when unset or empty.
    static int FromEnvironment()
    {
        char const* value = std::getenv("ZGU_EGL_DEVICE");
        if (value == nullptr || *value == '\0')
            return AutomaticEglDevice;
        int index = -1;
        std::string_view const text(value);
        auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
        if (error != std::errc{} || end != text.data() + text.size() || index < 0)
            throw GlDeviceError("ZGU_EGL_DEVICE='" + std::string(text) + "' is not a device index: " +
                                DeviceList(EnumerateDevices()));
        return index;
    }

    static std::shared_ptr<EglDisplay> Cached(int key)
    {
        auto const found = Shared().find(key);
        return found != Shared().end() ? found->second.lock() : nullptr;
    }

    static std::map<int, std::weak_ptr<EglDisplay>>& Shared()
    {
        static std::map<int, std::weak_ptr<EglDisplay>> displays;
        return displays;
    }

    static std::shared_ptr<EglDisplay> Initialise(EGLDisplay display, std::string platform, int device,
                                                  std::string& whyNot)
    {
        if (display == EGL_NO_DISPLAY) {
            whyNot += platform + ": no display; ";
            return nullptr;
        }
        EGLint major = 0;
        EGLint minor = 0;
        if (eglInitialize(display, &major, &minor) != EGL_TRUE) {
            whyNot += platform + ": eglInitialize failed (" + EglErrorText(eglGetError()) + "); ";
            return nullptr;
        }
        auto shared = std::make_shared<EglDisplay>(display, std::move(platform), device);
        Shared()[device] = shared;
        return shared;
    }

    static std::shared_ptr<EglDisplay> OpenSurfaceless(std::string& whyNot)
    {
        if (auto display = Cached(AutomaticEglDevice))
            return display;
        if (!HasExtension(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_MESA_platform_surfaceless")) {
            whyNot += "EGL_MESA_platform_surfaceless not offered; ";
            return nullptr;
        }
        return Initialise(eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr),
                          "surfaceless", AutomaticEglDevice, whyNot);
    }

    static std::shared_ptr<EglDisplay> OpenDevice(std::vector<EGLDeviceEXT> const& devices, int index,
                                                  std::string& whyNot)
    {
        if (auto display = Cached(index))
            return display;
        if (!HasExtension(eglQueryString(EGL_NO_DISPLAY, EGL_EXTENSIONS), "EGL_EXT_platform_device")) {
            whyNot += "EGL_EXT_platform_device not offered; ";
            return nullptr;
        }
        return Initialise(eglGetPlatformDisplay(EGL_PLATFORM_DEVICE_EXT, devices[static_cast<std::size_t>(index)],
                                                nullptr),
                          "device " + std::to_string(index), index, whyNot);
    }

    EGLDisplay display_;
    std::string platform_;
    int device_;
};

Context::Context(bool debug, int eglDevice)
{
    std::string whyNot;
    display_ = EglDisplay::Acquire(eglDevice, whyNot);
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

int Context::EglDevice() const noexcept { return display_->Device(); }

void Context::MakeCurrent() const noexcept
{
    if (eglGetCurrentContext() != context_)
        eglMakeCurrent(display_->Get(), surface_, surface_, context_);
}

} // namespace Zorvan::Rendering::Gl::detail

namespace Zorvan::Rendering::Gl {

std::vector<EglDeviceInfo> ListEglDevices()
{
    std::vector<EGLDeviceEXT> const devices = detail::EnumerateDevices();
    std::vector<EglDeviceInfo> list;
    for (std::size_t i = 0; i < devices.size(); ++i)
        list.push_back(detail::Describe(devices[i], static_cast<int>(i)));
    return list;
}

} // namespace Zorvan::Rendering::Gl
