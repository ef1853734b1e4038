#pragma once

// Opening the reference GL device for the commands that draw, and turning its
// failures into one-line errors.

#include "Errors.h"

#include <memory>
#include <string>

#if defined(ZGU_TOOL_WITH_GL)
#include <Rendering/Gl/GlDevice.h>
#endif

namespace Zorvan::Tool {

// The EGL device the drawing commands open (zgu --device N); without a
// choice the GL device takes ZGU_EGL_DEVICE, else picks one itself.
void ChooseEglDevice(int index);

#if defined(ZGU_TOOL_WITH_GL)
// Throws Failure starting "no EGL display" when no context can be made, and
// Failure naming the devices when the chosen one does not exist or open.
std::unique_ptr<Rendering::Gl::GlDevice> OpenGlDevice();
// Throws Failure with the first error the device reported, if any.
void ThrowIfDeviceFailed(Rendering::Gl::GlDevice const& device, std::string const& during);
#endif

// For builds without the GL device.
[[noreturn]] inline void ThrowNoGlDevice()
{
    throw Failure("no EGL display: this zgu was built without the GL device (ZGU_BUILD_GL=OFF)");
}

} // namespace Zorvan::Tool
