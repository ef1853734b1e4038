// zgu demo: the library end to end on an embedded mesh. Normals with a crease
// angle and remapping, Tipsify, then a 4x MSAA render on the GL device with
// the shader-based clear, depth resolve and copy, a colour resolve, a mip
// chain, readback and GPU frame timing. Writes pictures and a JSON report.

#include "Commands.h"
#include "DemoScene.h"
#include "DeviceFence.h"
#include "Errors.h"
#include "GlSession.h"
#include "MeshPrep.h"
#include "Png.h"
#include "ProceduralMesh.h"
#include "Table.h"

#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>
#include <Rendering/Timing.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>

namespace Zorvan::Tool {
namespace {

using namespace Rendering;
using Clock = std::chrono::steady_clock;

struct DemoOptions {
    std::string out = "demo-out";
    std::string size = "640x360";
    unsigned frames = 12;
    bool force = false;
};

constexpr double CreaseDegrees = 30.0;
constexpr std::uint16_t CacheSize = 16;
constexpr std::uint32_t SampleCount = 4;
constexpr char const* OutputFiles[] = {"frame.png", "depth.png", "mips.png", "thumbnail.png", "report.json"};

Size ParseSize(std::string const& text)
{
    auto const x = text.find('x');
    unsigned width = 0;
    unsigned height = 0;
    bool ok = x != std::string::npos;
    if (ok) {
        auto const* end = text.data() + text.size();
        auto const w = std::from_chars(text.data(), text.data() + x, width);
        auto const h = std::from_chars(text.data() + x + 1, end, height);
        ok = w.ec == std::errc{} && w.ptr == text.data() + x && h.ec == std::errc{} && h.ptr == end;
    }
    if (!ok || width < 16 || height < 16 || width > 8192 || height > 8192)
        throw UsageError("--size must be WIDTHxHEIGHT with each between 16 and 8192, not '" + text + "'");
    return {width, height, 0};
}

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

#if defined(ZGU_TOOL_WITH_GL)
using Image = ScopedResource<ImageId, IResourceFactory>;
using View = ScopedResource<RtvId, IResourceFactory>;

Image MakeImage(IResourceFactory& gpu, Size size, Format format, std::uint32_t samples, std::uint32_t flags,
                char const* what)
{
    ImageDesc const desc{size, format, samples, 1, flags};
    ImageId const id = gpu.CreateImage(desc);
    if (!id.IsValid())
        throw Failure(std::string("the device could not create the ") + what);
    return Image(&gpu, id);
}

View MakeTargetView(IResourceFactory& gpu, ImageId image)
{
    return View(&gpu, gpu.CreateRenderTargetView(image, RenderTargetViewDescription{}));
}

// The GL device hands rows over bottom-up (its origin is the lower left);
// PNG rows go top-down. The readback writes the rows in PNG order itself, by
// starting at the last row with a negative pitch.
RgbaImage ReadRgba(IResourceFactory& gpu, ImageId image, Size size, SubImage where, char const* what)
{
    std::int64_t const stride = std::int64_t{size.width} * 4;
    RgbaImage result{size.width, size.height, std::vector<unsigned char>(std::size_t(stride) * size.height)};
    unsigned char* lastRow = result.pixels.data() + (std::int64_t{size.height} - 1) * stride;
    if (!GetR8G8B8A8(gpu, image, where, lastRow, -stride))
        throw Failure(std::string("reading back the ") + what + " failed");
    return result;
}

// Depth as grey, nearest white, over the range the scene covers; the far
// plane (nothing drawn) stays black. Rows go top-down, like PNG's.
RgbaImage NormalisedDepth(std::vector<float> const& depth, Size size, double& nearest, double& farthest,
                          double& coverage)
{
    nearest = 1.0;
    farthest = 0.0;
    std::size_t covered = 0;
    for (float d : depth)
        if (d < 1.0f) {
            nearest = std::min(nearest, double(d));
            farthest = std::max(farthest, double(d));
            ++covered;
        }
    coverage = depth.empty() ? 0.0 : double(covered) / double(depth.size());
    double const range = farthest > nearest ? farthest - nearest : 1.0;
    RgbaImage image{size.width, size.height, std::vector<unsigned char>(depth.size() * 4, 255)};
    for (std::size_t i = 0; i < depth.size(); ++i) {
        auto const grey =
            depth[i] < 1.0f ? static_cast<unsigned char>(std::lround(255.0 - 215.0 * (depth[i] - nearest) / range))
                            : static_cast<unsigned char>(0);
        std::size_t const x = i % size.width;
        std::size_t const y = size.height - 1 - i / size.width;
        std::fill_n(image.pixels.begin() + std::ptrdiff_t((y * size.width + x) * 4), 3, grey);
    }
    return image;
}

// All levels left to right, bottom-aligned, with a 4-pixel gap.
RgbaImage SideBySide(std::vector<RgbaImage> const& levels)
{
    constexpr std::uint32_t gap = 4;
    RgbaImage sheet;
    for (RgbaImage const& level : levels) {
        sheet.width += level.width + gap;
        sheet.height = std::max(sheet.height, level.height);
    }
    sheet.width -= gap;
    sheet.pixels.assign(std::size_t(sheet.width) * sheet.height * 4, 0);
    std::uint32_t x = 0;
    for (RgbaImage const& level : levels) {
        std::uint32_t const top = sheet.height - level.height;
        for (std::uint32_t y = 0; y < level.height; ++y)
            std::copy_n(level.pixels.begin() + std::ptrdiff_t(std::size_t(y) * level.width * 4), level.width * 4,
                        sheet.pixels.begin() + std::ptrdiff_t((std::size_t(top + y) * sheet.width + x) * 4));
        x += level.width + gap;
    }
    return sheet;
}

// Everything the demo reads back; the device resources are gone by the time
// the caller sees it, so the device can be checked for leaks.
struct Rendered {
    RgbaImage frame;
    RgbaImage thumbnail;
    std::vector<RgbaImage> levels;
    std::vector<float> depth;
    std::vector<double> doubles;
    unsigned mipLevels = 0;
    double gpuMillisecondsPerFrame = 0.0;
    double hostSecondsPerFrame = 0.0;
    // After the frames, each phase waited for: colour and depth resolves;
    // the shader copy to the thumbnail and the mip chain; the readbacks of
    // bytes and floats; ReadAsDoubles.
    double resolveSeconds = 0.0;
    double copySeconds = 0.0;
    double readbackSeconds = 0.0;
    double doublesSeconds = 0.0;
};

// Throws Failure naming the stage whose device work failed.
using DeviceCheck = std::function<void(std::string const& during)>;

// Reaches the device through the contract alone; checkDevice reads whatever
// diagnostics the concrete device keeps.
Rendered RenderDemo(IGpu& gpu, DeviceCheck const& checkDevice, MeshData const& mesh, PreparedMesh const& prepared,
                    Size size, unsigned frames)
{
    Rendered out;

    Image msaaColor = MakeImage(gpu, size, Format::R8G8B8A8, SampleCount,
                                ImageUsage::RenderTarget | ImageUsage::Resolvable, "4x colour target");
    Image msaaDepth = MakeImage(gpu, size, Format::D32F, SampleCount,
                                ImageUsage::RenderTarget | ImageUsage::ShaderResource, "4x depth target");
    Image color = MakeImage(gpu, size, Format::R8G8B8A8, 1,
                            ImageUsage::ResolveDestination | ImageUsage::ShaderResource | ImageUsage::CopySource |
                                ImageUsage::HostRead,
                            "resolved colour image");
    Image depth = MakeImage(gpu, size, Format::D32F, 1,
                            ImageUsage::RenderTarget | ImageUsage::CopySource | ImageUsage::HostRead,
                            "resolved depth image");
    Size const thumbSize{std::max(1u, size.width / 4), std::max(1u, size.height / 4), 0};
    Image thumbnail = MakeImage(gpu, thumbSize, Format::R8G8B8A8, 1,
                                ImageUsage::RenderTarget | ImageUsage::CopySource | ImageUsage::HostRead,
                                "thumbnail image");
    View colorTarget = MakeTargetView(gpu, msaaColor.Get());
    View depthTarget = MakeTargetView(gpu, msaaDepth.Get());

    std::optional<DemoScene> created;
    try {
        created.emplace(gpu, mesh, prepared, Format::R8G8B8A8, Format::D32F, SampleCount);
    } catch (Failure const& failure) {
        checkDevice("the demo's scene"); // the device's own words, when it has any
        throw;
    }
    DemoScene& scene = *created;
    scene.SetCamera(LookAtPerspective({7.8, -10.6, 7.4}, {0.0, 0.0, -1.3}, 38.0,
                                      double(size.width) / double(size.height), 1.0, 40.0),
                    {0.37f, -0.56f, 0.74f});
    ShaderBasedImageClear clear(gpu);
    ShaderBasedMsaaDepthResolver depthResolver(gpu);
    ShaderBasedImageCopy copy(gpu);
    GpuFrameTimer timer(gpu);

    auto start = Clock::now();
    for (unsigned frame = 0; frame < frames; ++frame) {
        timer.BeginFrame();
        clear.Clear(colorTarget.Get(), 0.09f, 0.1f, 0.13f, 1.0f);
        scene.ClearDepth(depthTarget.Get());
        scene.Draw(colorTarget.Get(), depthTarget.Get());
        timer.EndFrame();
        // Paced like a presenting application: the frame timer reads each
        // frame two frames late and drops it if the device is still busy,
        // which on a software rasteriser would be every frame.
        WaitForDevice(gpu);
    }
    out.hostSecondsPerFrame = SecondsSince(start) / frames;
    out.gpuMillisecondsPerFrame = timer.GetMillisecondsPerFrame();
    checkDevice("the frames");

    // Each phase ends when the device is done with it, so its time is its own.
    auto const phase = [&gpu, &start]() {
        WaitForDevice(gpu);
        double const seconds = SecondsSince(start);
        start = Clock::now();
        return seconds;
    };
    start = Clock::now();
    gpu.ResolveImage(msaaColor.Get(), {}, color.Get(), {});
    depthResolver.Resolve(msaaDepth.Get(), depth.Get(), DepthSelectionMode::Min);
    out.resolveSeconds = phase();

    copy.Copy(color.Get(), {}, thumbnail.Get(), {});
    MipMapBuilder mipBuilder(gpu);
    Image mips = mipBuilder.BuildMipMapChain(color.Get(), 0, ImageUsage::ShaderResource);
    if (!mips.IsValid())
        throw Failure("the device could not create the mip chain");
    out.mipLevels = gpu.GetImageDescription(mips.Get()).mipLevels;
    out.copySeconds = phase();

    out.frame = ReadRgba(gpu, color.Get(), size, {}, "resolved frame");
    out.thumbnail = ReadRgba(gpu, thumbnail.Get(), thumbSize, {}, "thumbnail");
    for (unsigned level = 0; level < out.mipLevels; ++level)
        out.levels.push_back(ReadRgba(gpu, mips.Get(), CalculateMipLevelSize(size, level), {level, 0}, "mip chain"));
    out.depth = GetR32F(gpu, depth.Get());
    if (out.depth.size() != std::size_t(size.width) * size.height)
        throw Failure("reading back the resolved depth failed");
    out.readbackSeconds = phase();

    out.doubles = ReadAsDoubles(gpu, color.Get(), false, {});
    if (out.doubles.size() != std::size_t(size.width) * size.height * 4)
        throw Failure("reading the resolved frame as doubles failed");
    out.doublesSeconds = phase();
    checkDevice("resolve, copy and readback");
    return out;
}

#endif

int RunDemo(DemoOptions const& options)
{
    Size const size = ParseSize(options.size);
    std::filesystem::path const dir(options.out);
    if (std::filesystem::exists(dir) && !std::filesystem::is_directory(dir))
        throw Failure("'" + dir.string() + "' exists and is not a directory");
    for (char const* file : OutputFiles)
        CheckMayWrite(dir / file, options.force);

    // Mesh preparation, host only.
    auto start = Clock::now();
    MeshData const mesh = MakeKnotOnSlab();
    double const generateSeconds = SecondsSince(start);
    PreparedMesh const prepared = PrepareMesh(mesh, CreaseDegrees, CacheSize, [](std::string const&) {});

#if defined(ZGU_TOOL_WITH_GL)
    // The concrete device only opens here, answers for its diagnostics and
    // describes itself in the report; the rendering sees IGpu.
    auto device = OpenGlDevice();
    Gl::GlDevice& gpu = *device;
    Rendered const rendered = RenderDemo(
        gpu, [&gpu](std::string const& during) { ThrowIfDeviceFailed(gpu, during); }, mesh, prepared, size,
        options.frames);
    if (gpu.LiveResourceCount() != 0)
        throw Failure("the demo left " + std::to_string(gpu.LiveResourceCount()) + " device resources alive");
    RgbaImage const& frameImage = rendered.frame;
    RgbaImage const& thumbImage = rendered.thumbnail;
    std::vector<RgbaImage> const& levels = rendered.levels;
    std::vector<float> const& depthValues = rendered.depth;
    std::vector<double> const& doubles = rendered.doubles;
    unsigned const mipLevels = rendered.mipLevels;
    double const gpuMillisecondsPerFrame = rendered.gpuMillisecondsPerFrame;
    double const hostSecondsPerFrame = rendered.hostSecondsPerFrame;
    double const postSeconds =
        rendered.resolveSeconds + rendered.copySeconds + rendered.readbackSeconds + rendered.doublesSeconds;

    double nearest = 0.0;
    double farthest = 0.0;
    double coverage = 0.0;
    RgbaImage const depthImage = NormalisedDepth(depthValues, size, nearest, farthest, coverage);
    std::array<double, 4> mean{};
    for (std::size_t i = 0; i < doubles.size(); ++i)
        mean[i % 4] += doubles[i];
    for (double& m : mean)
        m /= double(doubles.size() / 4);

    std::filesystem::create_directories(dir);
    WritePng(dir / "frame.png", frameImage);
    WritePng(dir / "depth.png", depthImage);
    WritePng(dir / "mips.png", SideBySide(levels));
    WritePng(dir / "thumbnail.png", thumbImage);

    // The frame timer gives 0 when it has too few frames or no usable
    // timestamps: unmeasured, which the report says with null.
    nlohmann::ordered_json const gpuTime =
        gpuMillisecondsPerFrame > 0.0 ? nlohmann::ordered_json(gpuMillisecondsPerFrame) : nlohmann::ordered_json();
    auto const& info = gpu.Info();
    nlohmann::ordered_json report;
    report["device"] = {{"renderer", info.renderer}, {"version", info.version}, {"vendor", info.vendor}};
    report["mesh"] = {{"triangles", mesh.triangles.size()},
                      {"vertices_before_remap", mesh.positions.size()},
                      {"vertices_after_remap", prepared.remapping.vertices.size()},
                      {"submeshes", prepared.submeshes.size()},
                      {"crease_degrees", CreaseDegrees},
                      {"cache_size", CacheSize},
                      {"acmr_before", prepared.before.acmr},
                      {"acmr_after", prepared.after.acmr},
                      {"atvr_before", prepared.before.atvr},
                      {"atvr_after", prepared.after.atvr},
                      {"seconds", {{"generate", generateSeconds},
                                   {"normals", prepared.normalsSeconds},
                                   {"tipsify", prepared.reorderSeconds}}}};
    report["render"] = {{"width", size.width},
                        {"height", size.height},
                        {"samples", SampleCount},
                        {"frames", options.frames},
                        {"gpu_ms_per_frame", gpuTime},
                        {"host_ms_per_frame", hostSecondsPerFrame * 1000.0},
                        {"resolve_copy_readback_ms", postSeconds * 1000.0},
                        {"resolve_ms", rendered.resolveSeconds * 1000.0},
                        {"copy_ms", rendered.copySeconds * 1000.0},
                        {"readback_ms", rendered.readbackSeconds * 1000.0},
                        {"read_as_doubles_ms", rendered.doublesSeconds * 1000.0},
                        {"mip_levels", mipLevels},
                        {"coverage", coverage},
                        {"depth_range", {nearest, farthest}},
                        {"mean_rgba", mean}};
    report["files"] = {"frame.png", "depth.png", "mips.png", "thumbnail.png"};
    std::ofstream json(dir / "report.json");
    json << report.dump(2) << "\n";
    if (!json)
        throw Failure("cannot write '" + (dir / "report.json").string() + "'");

    Table table({"", "value"});
    table.Add({"device", info.renderer});
    table.Add({"triangles", std::to_string(mesh.triangles.size())});
    table.Add({"vertices before / after remap", std::to_string(mesh.positions.size()) + " / " +
                                                    std::to_string(prepared.remapping.vertices.size())});
    table.Add({"ACMR before / after (cache 16)",
               Fixed(prepared.before.acmr, 3) + " / " + Fixed(prepared.after.acmr, 3)});
    table.Add({"ATVR before / after (cache 16)",
               Fixed(prepared.before.atvr, 3) + " / " + Fixed(prepared.after.atvr, 3)});
    table.Add({"normals + remap / tipsify", Fixed(prepared.normalsSeconds * 1000.0, 1) + " ms / " +
                                                Fixed(prepared.reorderSeconds * 1000.0, 1) + " ms"});
    table.Add({"render", std::to_string(size.width) + "x" + std::to_string(size.height) + ", 4x MSAA, " +
                             std::to_string(options.frames) + " frames"});
    table.Add({"GPU time per frame (median)",
               gpuMillisecondsPerFrame > 0.0 ? Fixed(gpuMillisecondsPerFrame, 2) + " ms" : "n/a (needs 8 frames)"});
    table.Add({"host time per frame", Fixed(hostSecondsPerFrame * 1000.0, 2) + " ms"});
    table.Add({"resolve / copy + mips / readback / as doubles",
               Fixed(rendered.resolveSeconds * 1000.0, 1) + " / " + Fixed(rendered.copySeconds * 1000.0, 1) + " / " +
                   Fixed(rendered.readbackSeconds * 1000.0, 1) + " / " + Fixed(rendered.doublesSeconds * 1000.0, 1) +
                   " ms"});
    table.Add({"mip levels", std::to_string(mipLevels)});
    table.Add({"pixels covered", Fixed(coverage * 100.0, 1) + " %"});
    table.Add({"written", (dir / "{frame,depth,mips,thumbnail}.png").string() + ", report.json"});
    table.Print(std::cout);
    return 0;
#else
    (void)generateSeconds;
    (void)size;
    ThrowNoGlDevice();
#endif
}

} // namespace

Command RegisterDemoCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<DemoOptions>();
    subcommand = app.add_subcommand("demo", "Render an embedded mesh through the whole library and write "
                                            "frame.png, depth.png, mips.png and report.json (the default)");
    subcommand->add_option("--out", options->out, "output directory")->capture_default_str();
    subcommand->add_option("--size", options->size, "render size, WIDTHxHEIGHT")->capture_default_str();
    subcommand->add_option("--frames", options->frames, "frames to render and time")
        ->check(CLI::Range(1u, 1000u))
        ->capture_default_str();
    subcommand->add_flag("--force", options->force, "overwrite existing outputs");
    return [options] { return RunDemo(*options); };
}

} // namespace Zorvan::Tool
