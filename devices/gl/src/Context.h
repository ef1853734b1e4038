#pragma once

// Headless EGL display and a GL 4.5 core context without config or surface.

#include "GlApi.h"

#include <memory>
#include <string>

namespace Zorvan::Rendering::Gl::detail {

class EglDisplay;

class Context {
public:
    // Opens the EGL device of that index (AutomaticEglDevice: chosen as
    // GlDeviceOptions says). Throws GlDeviceError with the reason when no
    // display or context can be made.
    Context(bool debug, int eglDevice);
    ~Context();
    Context(Context const&) = delete;
    Context& operator=(Context const&) = delete;

    // Makes the context current on this thread if it is not already.
    void MakeCurrent() const noexcept;
    std::string const& Platform() const noexcept { return platform_; }
    // Index of the EGL device, or -1 on the surfaceless platform.
    int EglDevice() const noexcept;

private:
    std::shared_ptr<EglDisplay> display_;
    EGLContext context_ = EGL_NO_CONTEXT;
    EGLSurface surface_ = EGL_NO_SURFACE; // a 1x1 pbuffer only where surfaceless contexts are missing
    std::string platform_;
};

} // namespace Zorvan::Rendering::Gl::detail
