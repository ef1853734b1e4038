// zgu image: upload a PNG, build its mip chain on the device, read every level
// back and write each as a PNG.

#include "Commands.h"
#include "Errors.h"
#include "GlSession.h"
#include "Png.h"
#include "Table.h"

#include <Rendering/Image.h>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>

namespace Zorvan::Tool {
namespace {

struct ImageOptions {
    std::string input;
    std::string prefix;
    std::string format = "rgba8";
    bool force = false;
};

std::filesystem::path LevelPath(std::string const& prefix, unsigned level)
{
    return prefix + "-mip" + std::to_string(level) + ".png";
}

#if defined(ZGU_TOOL_WITH_GL)
std::vector<unsigned char> ToBytes(std::vector<float> const& values)
{
    std::vector<unsigned char> bytes(values.size());
    std::transform(values.begin(), values.end(), bytes.begin(), [](float v) {
        return static_cast<unsigned char>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
    });
    return bytes;
}
#endif

int RunImage(ImageOptions const& options)
{
    using namespace Rendering;
    RgbaImage const source = ReadPng(options.input);
    std::string const prefix =
        options.prefix.empty() ? std::filesystem::path(options.input).replace_extension().string() : options.prefix;
    Size const size{source.width, source.height, 0};
    unsigned const levels = CalculateFullMipChainCount(size);
    for (unsigned level = 0; level < levels; ++level)
        CheckMayWrite(LevelPath(prefix, level), options.force);

#if defined(ZGU_TOOL_WITH_GL)
    auto device = OpenGlDevice();
    IGpu& gpu = *device; // the work goes through the contract; the GL device answers for diagnostics
    bool const floats = options.format == "rgba32f";
    Table table({"level", "size", "file"});
    {
        // The mip builder copies from the source, which CreateRgbaTexture's
        // images do not allow; FillRgbaTexture uploads into one that does.
        Format const format = floats ? Format::R32G32B32A32F : Format::R8G8B8A8;
        ImageDesc const desc{size, format, 1, 1,
                             ImageUsage::ShaderResource | ImageUsage::CopySource | ImageUsage::CopyDestination};
        ScopedResource<ImageId, IResourceFactory> uploaded(&gpu, gpu.CreateImage(desc));
        if (!uploaded.IsValid())
            throw Failure("the device could not create a " + std::to_string(source.width) + "x" +
                          std::to_string(source.height) + " " + options.format + " texture");
        if (floats) {
            std::vector<float> values(source.pixels.size());
            std::transform(source.pixels.begin(), source.pixels.end(), values.begin(),
                           [](unsigned char b) { return float(b) / 255.0f; });
            FillRgbaTexture(gpu, uploaded.Get(), {}, array_view<float const>(values));
        } else {
            FillRgbaTexture(gpu, uploaded.Get(), {}, array_view<unsigned char const>(source.pixels));
        }

        MipMapBuilder builder(gpu);
        auto chain = builder.BuildMipMapChain(uploaded.Get(), 0, ImageUsage::ShaderResource);
        if (!chain.IsValid())
            throw Failure("the device could not create the mip chain");
        unsigned const built = gpu.GetImageDescription(chain.Get()).mipLevels;

        for (unsigned level = 0; level < built; ++level) {
            SubImage const where{level, 0};
            Size const extent = CalculateMipLevelSize(size, level);
            RgbaImage out{extent.width, extent.height, {}};
            out.pixels = floats ? ToBytes(GetR32G32B32A32F(gpu, chain.Get(), where))
                                : GetR8G8B8A8(gpu, chain.Get(), where);
            if (out.pixels.size() != std::size_t(extent.width) * extent.height * 4)
                throw Failure("reading back mip level " + std::to_string(level) + " failed");
            WritePng(LevelPath(prefix, level), out);
            table.Add({std::to_string(level), std::to_string(extent.width) + "x" + std::to_string(extent.height),
                       LevelPath(prefix, level).string()});
        }
    }
    // Everything made above is released by now.
    ThrowIfDeviceFailed(*device, "the mip chain");
    if (device->LiveResourceCount() != 0)
        throw Failure("the mip chain left " + std::to_string(device->LiveResourceCount()) +
                      " device resources alive");
    table.Print(std::cout);
    return 0;
#else
    ThrowNoGlDevice();
#endif
}

} // namespace

Command RegisterImageCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<ImageOptions>();
    subcommand = app.add_subcommand("image", "Build a PNG's mip chain on the GPU and write every level");
    subcommand->add_option("IN", options->input, "input PNG")->required();
    subcommand->add_option("-o,--output", options->prefix,
                           "prefix of the output files, PREFIX-mip<level>.png (default: IN without extension)");
    subcommand->add_option("--format", options->format, "texture format on the device")
        ->check(CLI::IsMember({"rgba8", "rgba32f"}))
        ->capture_default_str();
    subcommand->add_flag("--force", options->force, "overwrite existing outputs");
    return [options] { return RunImage(*options); };
}

} // namespace Zorvan::Tool
