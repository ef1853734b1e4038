#include "GlSession.h"

#if defined(ZGU_TOOL_WITH_GL)

namespace Zorvan::Tool {

std::unique_ptr<Rendering::Gl::GlDevice> OpenGlDevice()
{
    Rendering::Gl::GlDeviceOptions options;
    options.debugOutput = false; // the tool reports errors itself, through Errors()
    try {
        return std::make_unique<Rendering::Gl::GlDevice>(options);
    } catch (Rendering::Gl::GlDeviceError const& e) {
        throw Failure(std::string("no EGL display with OpenGL 4.5: ") + e.what());
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
