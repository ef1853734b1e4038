// zgu info: the EGL devices there are and which one zgu draws on, what that
// GL device offers, and the pixel-format catalogue.

#include "Commands.h"
#include "GlSession.h"
#include "Table.h"

#include <Rendering/Format.h>

#include <iostream>
#include <memory>
#include <vector>

namespace Zorvan::Tool {
namespace {

std::string Flags(Rendering::Format format)
{
    using namespace Rendering;
    std::string flags;
    auto add = [&flags](bool on, char const* name) {
        if (on)
            flags += flags.empty() ? name : std::string(" ") + name;
    };
    add(HasAlphaChannel(format), "alpha");
    add(IsNormalizedFormat(format), "normalized");
    add(IsSignedFormat(format), "signed");
    add(IsDepthFormat(format), "depth");
    add(IsStencilFormat(format), "stencil");
    return flags.empty() ? "-" : flags;
}

void PrintFormats(std::ostream& out)
{
    using namespace Rendering;
    Table table({"value", "format", "channels", "bytes", "shader type", "traits"});
    for (std::uint32_t value = 0; value < FormatCount; ++value) {
        auto const format = static_cast<Format>(value);
        table.Add({std::to_string(value), ToString(format), std::to_string(GetChannelCount(format)),
                   std::to_string(GetSize(format)), ToShaderType(format), Flags(format)});
    }
    table.Print(out);
}

#if defined(ZGU_TOOL_WITH_GL)
// Every EGL device with what a context on it reports; the one in use marked.
void PrintEglDevices(std::ostream& out, Rendering::Gl::GlDeviceInfo const* used)
{
    namespace Gl = Rendering::Gl;
    std::vector<Gl::EglDeviceInfo> const devices = Gl::ListEglDevices();
    Table table({"EGL device", "kind", "name", "GL renderer", ""});
    for (Gl::EglDeviceInfo const& device : devices) {
        std::string renderer;
        if (used != nullptr && used->eglDevice == device.index) {
            renderer = used->renderer;
        } else {
            Gl::GlDeviceOptions options;
            options.debugOutput = false;
            options.eglDevice = device.index;
            try {
                renderer = Gl::GlDevice(options).Info().renderer;
            } catch (Gl::GlDeviceError const& e) {
                renderer = std::string("cannot open: ") + e.what();
            }
        }
        bool const inUse = used != nullptr && used->eglDevice == device.index;
        table.Add({std::to_string(device.index), device.software ? "software" : "hardware", device.name, renderer,
                   inUse ? "in use" : ""});
    }
    if (!devices.empty())
        table.Print(out);
    else
        out << "EGL enumerates no devices (EGL_EXT_device_enumeration missing or empty)\n";
    if (used != nullptr && used->eglDevice < 0)
        out << "in use: Mesa's " << used->platform << " platform (" << used->renderer << ")\n";
    out << "pick another with --device N or ZGU_EGL_DEVICE=N\n\n";
}
#endif

int RunInfo()
{
#if defined(ZGU_TOOL_WITH_GL)
    std::string deviceError;
    std::unique_ptr<Rendering::Gl::GlDevice> device;
    try {
        device = OpenGlDevice();
    } catch (Failure const& e) {
        deviceError = e.what();
    }
    PrintEglDevices(std::cout, device ? &device->Info() : nullptr);
    if (device) {
        auto const& info = device->Info();
        Table table({"device", ""});
        table.Add({"platform", info.platform});
        table.Add({"vendor", info.vendor});
        table.Add({"renderer", info.renderer});
        table.Add({"version", info.version});
        table.Add({"shading language", info.shadingLanguageVersion});
        table.Add({"max texture size", std::to_string(info.maxTextureSize)});
        table.Add({"max samples (colour / depth)",
                   std::to_string(info.maxColorSamples) + " / " + std::to_string(info.maxDepthSamples)});
        table.Add({"max buffer size", std::to_string(info.maxBufferSize) + " bytes"});
        table.Print(std::cout);
        std::cout << "\n";
    }
#else
    std::string const deviceError = "no EGL display: this zgu was built without the GL device";
#endif
    PrintFormats(std::cout);
    // The catalogue is useful without a device; the missing device still
    // makes the command fail, so scripts notice.
    if (!deviceError.empty())
        throw Failure(deviceError);
    return 0;
}

} // namespace

Command RegisterInfoCommand(CLI::App& app, CLI::App*& subcommand)
{
    subcommand = app.add_subcommand("info", "The EGL devices and the one in use, the GL device (renderer, version, "
                                            "limits) and the format catalogue");
    return [] { return RunInfo(); };
}

} // namespace Zorvan::Tool
