// zgu info: what the GL device offers, and the pixel-format catalogue.

#include "Commands.h"
#include "GlSession.h"
#include "Table.h"

#include <Rendering/Format.h>

#include <iostream>
#include <memory>

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
    subcommand = app.add_subcommand("info", "The GL device (renderer, version, limits) and the format catalogue");
    return [] { return RunInfo(); };
}

} // namespace Zorvan::Tool
