#include "GlSession.h"

namespace Zorvan::Tool {
namespace {

int chosenEglDevice = -1;

} // namespace

void ChooseEglDevice(int index) { chosenEglDevice = index; }

} // namespace Zorvan::Tool

#if defined(ZGU_TOOL_WITH_GL)

namespace Zorvan::Tool {

std::unique_ptr<Rendering::Gl::GlDevice> OpenGlDevice()
{
    Rendering::Gl::GlDeviceOptions options;
    options.debugOutput = false; // the tool reports errors itself, through Errors()
    options.eglDevice = chosenEglDevice;
    try {
        return std::make_unique<Rendering::Gl::GlDevice>(options);
    } catch (Rendering::Gl::GlDeviceError const& e) {
        std::string const reason = e.what();
        // A device that was asked for by number is a failure of its own, not a missing display.
        bool const named = reason.rfind("EGL device", 0) == 0 || reason.rfind("ZGU_EGL_DEVICE", 0) == 0;
        throw Failure(reason.rfind("no EGL display", 0) == 0 || named ? reason
                                                                      : "no EGL display with OpenGL 4.5: " + reason);
    }
}

void ThrowIfDeviceFailed(Rendering::Gl::GlDevice const& device, std::string const& during)
{
    auto const& errors = device.Errors();
    if (errors.empty())
        return;
    std::string message = "the GL device failed during " + during + ": " + errors.front();
    if (errors.size() > 1)
        message += " (and " + std::to_string(errors.size() - 1) + " more errors)";
    throw Failure(message);
}

} // namespace Zorvan::Tool

#endif
