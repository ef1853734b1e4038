// zgu image: a texture's mip chain, made right for what the texture is, and
// written as one file per level (PNG or Radiance HDR) or as one KTX2 file;
// one texture or folders of them.

#include "Batch.h"
#include "Commands.h"
#include "DeviceThread.h"
#include "Errors.h"
#include "GlSession.h"
#include "ImageFile.h"
#include "Isolation.h"
#include "Ktx2.h"
#include "MipChain.h"
#include "Outputs.h"
#include "Table.h"
#include "TexelCoding.h"

#include <Rendering/Image.h>

#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <mutex>
#include <set>

#ifndef ZGU_TOOL_VERSION
#define ZGU_TOOL_VERSION "unknown"
#endif

namespace Zorvan::Tool {
namespace {
namespace fs = std::filesystem;

struct ImageOptions {
    BatchOptions batch;
    std::string output;
    std::string to;
    std::string format = "auto";
    bool linear = false;
    bool normalMap = false;
    bool separateAlpha = false;
    bool gpu = false;
};

enum class Container { Png, Hdr, Ktx2 };

// Where one input's outputs go: a KTX2 file, or level files PREFIX-mipNN.EXT.
struct Target {
    Container container = Container::Png;
    fs::path folder;
    std::string name; // the KTX2 file's name, or the levels' prefix
};

std::string Lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

Container ContainerNamed(std::string const& name)
{
    return name == "ktx2" ? Container::Ktx2 : name == "hdr" ? Container::Hdr : Container::Png;
}

char const* ContainerName(Container container)
{
    switch (container) {
    case Container::Png:
        return "png";
    case Container::Hdr:
        return "hdr";
    case Container::Ktx2:
        return "ktx2";
    }
    return "";
}

// Two digits are enough for any chain (at most 32 levels) and sort right.
std::string LevelName(std::string const& prefix, unsigned level, Container container)
{
    std::string number = std::to_string(level);
    if (number.size() < 2)
        number.insert(0, 2 - number.size(), '0');
    return prefix + "-mip" + number + "." + ContainerName(container);
}

// Level files of an earlier run with the same prefix that this run does
// not write: left in place they would pass for part of the new chain.
std::vector<fs::path> StaleLevels(Target const& target, std::set<std::string> const& written)
{
    std::vector<fs::path> stale;
    std::error_code error;
    std::string const start = target.name + "-mip";
    fs::path const folder = target.folder.empty() ? fs::path(".") : target.folder;
    for (auto const& entry : fs::directory_iterator(folder, error)) {
        std::string const name = entry.path().filename().string();
        if (name.rfind(start, 0) != 0 || written.count(name) != 0)
            continue;
        std::size_t const dot = name.find('.', start.size());
        if (dot == std::string::npos || dot == start.size())
            continue;
        std::string const digits = name.substr(start.size(), dot - start.size());
        std::string const extension = name.substr(dot + 1);
        if (std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c); }) &&
            (extension == "png" || extension == "hdr"))
            stale.push_back(target.folder / name);
    }
    std::sort(stale.begin(), stale.end());
    return stale;
}

Target ResolveTarget(ImageOptions const& options, BatchFile const& file, bool floatFormat, bool hdrInput)
{
    Container const chosen = !options.to.empty()              ? ContainerNamed(options.to)
                             : (hdrInput && floatFormat) ? Container::Hdr
                                                              : Container::Png;
    auto const named = [chosen](fs::path const& folder, std::string const& stem) {
        return Target{chosen, folder, chosen == Container::Ktx2 ? stem + ".ktx2" : stem};
    };
    if (options.output.empty())
        return named(FolderOf(file.outputBase), file.outputBase.filename().string());

    fs::path const out = options.output;
    std::error_code error;
    if (options.output.back() == '/' || fs::is_directory(out, error))
        return named(out, file.input.stem().string());
    std::string const extension = Lower(out.extension().string());
    Container const implied = extension == ".ktx2" ? Container::Ktx2
                              : extension == ".png" ? Container::Png
                              : extension == ".hdr" ? Container::Hdr
                                                    : chosen;
    if (implied != chosen && !options.to.empty())
        throw UsageError("-o " + Quoted(out) + " asks for " + ContainerName(implied) + " but --to asks for " +
                         options.to);
    if (extension == ".ktx2")
        return Target{Container::Ktx2, FolderOf(out), out.filename().string()};
    if (extension == ".png" || extension == ".hdr")
        return Target{implied, FolderOf(out), out.stem().string()};
    return named(FolderOf(out), out.filename().string());
}

char const* CodingName(Coding coding)
{
    switch (coding) {
    case Coding::Srgb:
        return "srgb";
    case Coding::Linear:
        return "linear";
    case Coding::Normal:
        return "normal";
    }
    return "";
}

// What the level files or the KTX2 file hold.
struct Settings {
    std::string format; // rgba8, rgba16f, rgba32f
    Coding coding = Coding::Srgb;
    ChainOptions chain;
};

Settings SettingsFor(ImageOptions const& options, DecodedImage const& image)
{
    Settings settings;
    settings.format = options.format != "auto"         ? options.format
                      : image.type == SampleType::U8 ? "rgba8"
                                                       : "rgba32f";
    settings.coding = options.normalMap ? Coding::Normal : options.linear ? Coding::Linear : Coding::Srgb;
    settings.chain.normalMap = options.normalMap;
    settings.chain.alphaWeighted = !options.separateAlpha && !options.normalMap;
    return settings;
}

#if defined(ZGU_TOOL_WITH_GL)
// The device's own chain: MipMapBuilder's scaling copies in a float format,
// fed premultiplied colour so that alpha weights it. The device filters by
// bilinear blits, a 2 x 2 box at even extents; at odd extents it samples
// instead, so edge texels drop out there, and normal maps are renormalised
// only on the way out.
std::vector<LinearImage> BuildMipChainOnGpu(DeviceThread& device, LinearImage level0, ChainOptions const& options)
{
    using namespace Rendering;
    bool const premultiply = options.alphaWeighted && !options.normalMap;
    if (options.normalMap)
        Renormalize(level0);
    std::vector<float> upload = std::move(level0.texels);
    if (premultiply)
        for (std::size_t i = 0; i < upload.size(); i += 4)
            for (int c = 0; c < 3; ++c)
                upload[i + c] *= upload[i + 3];
    Size const size{level0.width, level0.height, 0};
    unsigned const count = CalculateFullMipChainCount(size);
    std::vector<std::vector<float>> levels(count);

    device.Run([&](Gl::GlDevice& gl) {
        IGpu& gpu = gl; // the work goes through the contract; the GL device answers for diagnostics
        std::size_t const errorsBefore = gl.Errors().size();
        {
            ImageDesc const desc{size, Format::R32G32B32A32F, 1, 1,
                                 ImageUsage::ShaderResource | ImageUsage::CopySource | ImageUsage::CopyDestination};
            ScopedResource<ImageId, IResourceFactory> uploaded(&gpu, gpu.CreateImage(desc));
            if (!uploaded.IsValid())
                throw Failure("the device could not create a " + std::to_string(size.width) + "x" +
                              std::to_string(size.height) + " float texture");
            FillRgbaTexture(gpu, uploaded.Get(), {}, array_view<float const>(upload));
            MipMapBuilder builder(gpu);
            auto chain = builder.BuildMipMapChain(uploaded.Get(), 0, ImageUsage::ShaderResource);
            if (!chain.IsValid() || gpu.GetImageDescription(chain.Get()).mipLevels != count)
                throw Failure("the device could not create the mip chain");
            for (unsigned level = 0; level < count; ++level) {
                Size const extent = CalculateMipLevelSize(size, level);
                levels[level] = GetR32G32B32A32F(gpu, chain.Get(), SubImage{level, 0});
                if (levels[level].size() != std::size_t(extent.width) * extent.height * 4)
                    throw Failure("reading back mip level " + std::to_string(level) + " failed");
            }
        }
        if (gl.Errors().size() > errorsBefore)
            throw Failure("the GL device failed during the mip chain: " + gl.Errors()[errorsBefore]);
        if (gl.LiveResourceCount() != 0)
            throw Failure("the mip chain left " + std::to_string(gl.LiveResourceCount()) + " device resources alive");
    });

    std::vector<LinearImage> chain(count);
    for (unsigned level = 0; level < count; ++level) {
        Size const extent = CalculateMipLevelSize(size, level);
        LinearImage& image = chain[level];
        image.width = extent.width;
        image.height = extent.height;
        image.texels = std::move(levels[level]);
        if (premultiply)
            for (std::size_t i = 0; i < image.texels.size(); i += 4)
                if (image.texels[i + 3] > 0.0f)
                    for (int c = 0; c < 3; ++c)
                        image.texels[i + c] /= image.texels[i + 3];
        if (options.normalMap)
            Renormalize(image);
    }
    return chain;
}
#endif

// The device thread starts with the first file that needs it, inside the
// batch (after its signal handling is set up), and stays for the rest.
class Gpu {
public:
#if defined(ZGU_TOOL_WITH_GL)
    DeviceThread& Get()
    {
        std::lock_guard<std::mutex> const lock(mutex_);
        if (!thread_)
            thread_ = std::make_unique<DeviceThread>();
        return *thread_;
    }

private:
    std::mutex mutex_;
    std::unique_ptr<DeviceThread> thread_;
#endif
};

void WriteLevels(Target const& target, Settings const& settings, std::vector<LinearImage> const& chain,
                 StagedOutputs& staged)
{
    if (target.container == Container::Ktx2) {
        Ktx2Format const format = settings.format == "rgba8"
                                      ? (settings.coding == Coding::Srgb ? Ktx2Format::R8G8B8A8Srgb
                                                                         : Ktx2Format::R8G8B8A8Unorm)
                                  : settings.format == "rgba16f" ? Ktx2Format::R16G16B16A16Sfloat
                                                                 : Ktx2Format::R32G32B32A32Sfloat;
        std::vector<std::vector<std::uint8_t>> bytes(chain.size());
        for (std::size_t level = 0; level < chain.size(); ++level) {
            auto const store = [&bytes, level](auto const& values) {
                auto const* first = reinterpret_cast<std::uint8_t const*>(values.data());
                bytes[level].assign(first, first + values.size() * sizeof(values[0]));
            };
            if (format == Ktx2Format::R16G16B16A16Sfloat)
                store(ToFloat16(chain[level], settings.coding));
            else if (format == Ktx2Format::R32G32B32A32Sfloat)
                store(ToFloat32(chain[level], settings.coding));
            else
                store(ToUnorm8(chain[level], settings.coding));
        }
        std::vector<Ktx2Level> levels;
        for (std::size_t level = 0; level < chain.size(); ++level)
            levels.push_back({chain[level].width, chain[level].height, bytes[level]});
        WriteKtx2(staged.Stage(target.name), format, levels, std::string("zgu ") + ZGU_TOOL_VERSION);
        return;
    }
    for (unsigned level = 0; level < chain.size(); ++level) {
        LinearImage const& image = chain[level];
        fs::path const path = staged.Stage(LevelName(target.name, level, target.container));
        if (target.container == Container::Hdr) {
            WriteHdrFile(path, image.width, image.height, ToFloat32(image, settings.coding).data());
        } else if (settings.format == "rgba8") {
            WritePngFile(path, image.width, image.height, 8, ToUnorm8(image, settings.coding).data(),
                         settings.coding == Coding::Srgb);
        } else {
            WritePngFile(path, image.width, image.height, 16, ToUnorm16(image, settings.coding).data(),
                         settings.coding == Coding::Srgb);
        }
    }
}

FileResult RunImageFile(ImageOptions const& options, BatchFile const& file, [[maybe_unused]] Gpu& gpu)
{
    // stb meets the file in a child process: a crash or a bomb ends there.
    DecodedImage decoded = DeserializeImage(
        RunIsolated("decoding " + Quoted(file.input), options.batch.Limits(), DecodeImageJobName, {file.input.string()}));
    Settings const settings = SettingsFor(options, decoded);
    Target const target = ResolveTarget(options, file, settings.format != "rgba8", decoded.type == SampleType::F32);

    Rendering::Size const size{decoded.width, decoded.height, 0};
    unsigned const count = Rendering::CalculateFullMipChainCount(size);
    std::set<std::string> names;
    if (target.container == Container::Ktx2)
        names.insert(target.name);
    else
        for (unsigned level = 0; level < count; ++level)
            names.insert(LevelName(target.name, level, target.container));
    std::vector<fs::path> const stale =
        target.container == Container::Ktx2 ? std::vector<fs::path>() : StaleLevels(target, names);
    // Checked before the work; the commit checks again, atomically.
    if (!options.batch.force) {
        for (auto const& name : names)
            CheckMayWrite(target.folder / name, false);
        if (!stale.empty())
            throw Failure(Quoted(stale.front()) + " is a level of an earlier, longer chain; pass --force to remove it");
    }

    LinearImage level0 = ToLinear(decoded, settings.coding);
    decoded.samples = {};
    std::vector<LinearImage> chain;
    if (options.gpu) {
#if defined(ZGU_TOOL_WITH_GL)
        chain = BuildMipChainOnGpu(gpu.Get(), std::move(level0), settings.chain);
#else
        ThrowNoGlDevice();
#endif
    } else {
        chain = BuildMipChain(std::move(level0), settings.chain);
    }

    StagedOutputs staged(target.folder);
    WriteLevels(target, settings, chain, staged);
    FileResult result;
    result.outputs = staged.Commit(options.batch.force, stale);

    auto& details = result.details;
    details["width"] = decoded.width;
    details["height"] = decoded.height;
    details["container_in"] = decoded.container;
    details["bits_in"] = decoded.type == SampleType::F32 ? 32 : decoded.type == SampleType::U16 ? 16 : 8;
    details["channels_in"] = decoded.fileChannels;
    details["coding"] = CodingName(settings.coding);
    details["alpha"] = !decoded.HasAlpha() ? "none" : settings.chain.alphaWeighted ? "weighted" : "separate";
    details["chain"] = options.gpu ? "gpu" : "host";
    details["format"] = settings.format;
    details["container"] = ContainerName(target.container);
    details["stale_removed"] = stale.size();
    auto& levels = details["levels"] = nlohmann::ordered_json::array();
    for (unsigned level = 0; level < chain.size(); ++level)
        levels.push_back({{"level", level},
                          {"width", chain[level].width},
                          {"height", chain[level].height},
                          {"file", (target.folder / (target.container == Container::Ktx2
                                                         ? target.name
                                                         : LevelName(target.name, level, target.container)))
                                       .string()}});
    return result;
}

void PrintImage(BatchFile const&, FileResult const& result)
{
    Table table({"level", "size", "file"});
    for (auto const& level : result.details["levels"])
        table.Add({std::to_string(level["level"].get<unsigned>()),
                   std::to_string(level["width"].get<unsigned>()) + "x" +
                       std::to_string(level["height"].get<unsigned>()),
                   level["file"].get<std::string>()});
    table.Print(std::cout);
}

bool IsImageFile(fs::path const& path)
{
    static std::set<std::string> const extensions = {".png", ".jpg", ".jpeg", ".tga", ".bmp", ".hdr", ".psd",
                                                     ".gif", ".pic", ".pnm", ".ppm", ".pgm"};
    return extensions.count(Lower(path.extension().string())) != 0;
}

int RunImage(ImageOptions const& options)
{
    std::error_code error;
    if (!options.output.empty() &&
        (options.batch.inputs.size() != 1 || fs::is_directory(options.batch.inputs[0], error)))
        throw UsageError("-o names the outputs of one input; with several, use --out-dir");
    if (!options.output.empty() && !options.batch.outDir.empty())
        throw UsageError("-o and --out-dir cannot be used together");

    auto gpu = std::make_shared<Gpu>();
    BatchCommand command;
    command.name = "image";
    command.inputKind = "image files (png, jpg, tga, bmp, hdr, psd, gif, pic, pnm)";
    command.accepts = IsImageFile;
    command.writesBesideInputs = true;
    command.settings = {{"format", options.format},
                        {"to", options.to.empty() ? "auto" : options.to},
                        {"coding", CodingName(options.normalMap ? Coding::Normal
                                              : options.linear  ? Coding::Linear
                                                                : Coding::Srgb)},
                        {"separate_alpha", options.separateAlpha},
                        {"chain", options.gpu ? "gpu" : "host"}};
    command.run = [&options, gpu](BatchFile const& file) { return RunImageFile(options, file, *gpu); };
    command.printSingle = PrintImage;
    int const code = RunBatch(options.batch, command);
    return code;
}

} // namespace

Command RegisterImageCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<ImageOptions>();
    subcommand = app.add_subcommand(
        "image",
        "Build textures' mip chains and write every level (PNG or HDR files, or one KTX2 file). The chain is "
        "built on the host in linear light: 8- and 16-bit colour is sRGB unless --linear, alpha weights the "
        "colour, even extents average 2 texels and odd ones 3 (every texel counts), normal maps are "
        "renormalised. --gpu builds it on the GPU with the device's own box filter instead.");
    subcommand->add_option("-o,--output", options->output,
                           "one input's outputs: FILE.ktx2, PREFIX (levels PREFIX-mipNN.png), PREFIX.png, "
                           "PREFIX.hdr, or FOLDER/ (default: beside the input)")
        ->type_name("OUT");
    subcommand->add_option("--to", options->to,
                           "level files (png, hdr) or one KTX2 file (ktx2); default png, or hdr for HDR inputs "
                           "in a float format")
        ->check(CLI::IsMember({"png", "hdr", "ktx2"}));
    subcommand->add_option("--format", options->format,
                           "texel format: rgba8 (8-bit PNG; KTX2 R8G8B8A8_SRGB or _UNORM), rgba16f or rgba32f "
                           "(16-bit PNG; KTX2 R16G16B16A16_SFLOAT or R32G32B32A32_SFLOAT); auto: rgba8 for 8-bit "
                           "inputs, rgba32f for 16-bit and HDR inputs")
        ->check(CLI::IsMember({"auto", "rgba8", "rgba16f", "rgba32f"}))
        ->capture_default_str();
    subcommand->add_flag("--linear", options->linear,
                         "colour values are data, not sRGB: filter and store them as they are");
    subcommand->add_flag("--normal-map", options->normalMap,
                         "RGB holds unit vectors (0..1 for -1..1): average, renormalise every texel of every level");
    subcommand->add_flag("--separate-alpha", options->separateAlpha,
                         "alpha is a channel of its own: do not weight colour by it");
    subcommand->add_flag("--gpu", options->gpu,
                         "build the chain on the GPU (GL device, float texture, premultiplied alpha): a 2x2 box at "
                         "even extents, but odd extents drop edge texels and normals are renormalised only per "
                         "output level");
    AddBatchOptions(*subcommand, options->batch,
                    "input images (PNG of 8 or 16 bits, JPEG, TGA, BMP, HDR, PSD, GIF, PIC, PNM) or folders of them",
                    true);
    return [options] { return RunImage(*options); };
}

} // namespace Zorvan::Tool
