// Every device-facing operation under every device failure it can meet: each
// call of a clean run is faulted in turn (throw, invalid handle, null map) and
// the recording device must be left without leaks, open maps or queries, or
// misuse. The detailed call sequences are checked by the suites of each family;
// this is the uniform, complete pass.

#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>
#include <Rendering/Testing/FaultSweep.h>
#include <Rendering/Testing/RecordingGpu.h>
#include <Rendering/Timing.h>
#include <Rendering/Vertex.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using Testing::RecordingGpu;
using Testing::SweepFaults;

constexpr std::uint32_t Sampled = ImageUsage::ShaderResource;
constexpr std::uint32_t Target = ImageUsage::RenderTarget;
constexpr std::uint32_t HostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t Copies = ImageUsage::CopySource | ImageUsage::CopyDestination;
constexpr Size Extent{4, 4, 0};
using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

// How a readback reaches the host: mapped directly, copied into a readback
// image, or resolved from a multisampled image first.
enum Path : std::size_t { Direct, Readback, Msaa, PathCount };
constexpr std::array<char const*, PathCount> PathNames{"direct", "readback image", "msaa resolve"};

// What the operations read or draw to. Made in setup, so the handles are the
// same on every fresh device and may stay live.
struct Fixture {
    std::array<std::array<ImageId, PathCount>, 4> colour{}; // R32F, R32G32F, R32G32B32A32F, R8G8B8A8
    ImageId deviceOnly{};                                   // copyable, no host access
    ImageId copyOnly{};                                     // neither sampled nor a render target
    ImageId depthMsaa{}, depth{};
    SrvId view{};
    RtvId floatTarget{}, intTarget{}, uintTarget{};
    BufferId vertices{}, smallVertices{};
};

constexpr std::array<Format, 4> ColourFormats{Format::R32F, Format::R32G32F, Format::R32G32B32A32F, Format::R8G8B8A8};
enum Colour : std::size_t { Red, Rg, Rgba, Rgba8 };

void MakeFixture(RecordingGpu& gpu, Fixture& f)
{
    auto image = [&](Format format, std::uint32_t flags, std::uint32_t samples = 1) {
        return gpu.CreateImage(ImageDesc{Extent, format, samples, 1, flags});
    };
    for (std::size_t c = 0; c < ColourFormats.size(); ++c) {
        f.colour[c][Direct] = image(ColourFormats[c], HostIo | Copies | Sampled | Target);
        f.colour[c][Readback] = image(ColourFormats[c], Copies | Sampled | Target);
        f.colour[c][Msaa] = image(ColourFormats[c], ImageUsage::Resolvable | Sampled | Target, 4);
    }
    f.deviceOnly = f.colour[Rgba8][Readback];
    f.copyOnly = image(Format::R8G8B8A8, Copies);
    f.depthMsaa = image(Format::D32F, Sampled | Target, 4);
    f.depth = image(Format::D32F, Target);
    f.view = gpu.CreateShaderResourceView(f.colour[Rgba8][Direct], ShaderResourceViewDescription{0, 1, 0, 1});
    f.floatTarget = gpu.CreateRenderTargetView(f.colour[Rgba8][Readback], RenderTargetViewDescription{});
    f.intTarget = gpu.CreateRenderTargetView(image(Format::R8G8B8A8I, Target), RenderTargetViewDescription{});
    f.uintTarget = gpu.CreateRenderTargetView(image(Format::R8G8B8A8U, Target), RenderTargetViewDescription{});
    f.vertices = gpu.CreateBuffer({256, BufferUsage::Vertex | BufferUsage::Dynamic}, nullptr);
    f.smallVertices = gpu.CreateBuffer({16, BufferUsage::Vertex | BufferUsage::Dynamic}, nullptr);
}

using Operation = std::function<void(RecordingGpu&, Fixture const&)>;
struct Case {
    std::string name;
    Operation operation;
};

constexpr std::size_t Channels = std::size_t{Extent.width} * Extent.height * 4;
std::vector<float> const Floats(Channels, 0.25f);
std::vector<unsigned char> const Bytes(Channels, 7);

std::vector<Case> TextureCases()
{
    return {
        {"CreateRawRedTexture",
         [](RecordingGpu& g, Fixture const&) { ScopedImage const owned(&g, CreateRawRedTexture(g, Extent, Floats)); }},
        {"CreateRawRgTexture",
         [](RecordingGpu& g, Fixture const&) { ScopedImage const owned(&g, CreateRawRgTexture(g, Extent, Floats)); }},
        {"CreateRawRgbaTexture(bytes)",
         [](RecordingGpu& g, Fixture const&) { ScopedImage const owned(&g, CreateRawRgbaTexture(g, Extent, Bytes)); }},
        {"CreateRawRgbaTexture(floats)",
         [](RecordingGpu& g, Fixture const&) { ScopedImage const owned(&g, CreateRawRgbaTexture(g, Extent, Floats)); }},
        {"CreateRedTexture", [](RecordingGpu& g, Fixture const&) { (void)CreateRedTexture(g, Extent, Floats); }},
        {"CreateRgTexture", [](RecordingGpu& g, Fixture const&) { (void)CreateRgTexture(g, Extent, Floats); }},
        {"CreateRgbaTexture(bytes)",
         [](RecordingGpu& g, Fixture const&) { (void)CreateRgbaTexture(g, Extent, Bytes); }},
        {"CreateRgbaTexture(floats)",
         [](RecordingGpu& g, Fixture const&) { (void)CreateRgbaTexture(g, Extent, Floats); }},
        {"FillRgbaTexture(bytes, direct)",
         [](RecordingGpu& g, Fixture const& f) { FillRgbaTexture(g, f.colour[Rgba8][Direct], {}, Bytes); }},
        {"FillRgbaTexture(bytes, upload image)",
         [](RecordingGpu& g, Fixture const& f) { FillRgbaTexture(g, f.colour[Rgba8][Readback], {}, Bytes); }},
        {"FillRgbaTexture(floats, direct)",
         [](RecordingGpu& g, Fixture const& f) { FillRgbaTexture(g, f.colour[Rgba][Direct], {}, Floats); }},
        {"FillRgbaTexture(floats, upload image)",
         [](RecordingGpu& g, Fixture const& f) { FillRgbaTexture(g, f.colour[Rgba][Readback], {}, Floats); }},
        {"MipMapBuilder",
         [](RecordingGpu& g, Fixture const& f) { (void)MipMapBuilder(g).BuildMipMapChain(f.deviceOnly, 0, Sampled); }},
    };
}

// Every readback family over every path, in its vector and its checked form.
std::vector<Case> ReadbackCases()
{
    std::vector<Case> cases;
    for (std::size_t p = 0; p < PathCount; ++p) {
        std::string const path = std::string(" via ") + PathNames[p];
        auto add = [&](std::string name, Colour colour, std::function<void(RecordingGpu&, ImageId)> read) {
            cases.push_back(
                {std::move(name) + path, [=](RecordingGpu& g, Fixture const& f) { read(g, f.colour[colour][p]); }});
        };
        add("GetR32F", Red, [](RecordingGpu& g, ImageId i) { (void)GetR32F(g, i); });
        add("GetR32F(out)", Red, [](RecordingGpu& g, ImageId i) {
            std::vector<float> o(16);
            (void)GetR32F(g, i, o);
        });
        add("GetR32G32F", Rg, [](RecordingGpu& g, ImageId i) { (void)GetR32G32F(g, i); });
        add("GetR32G32F(out)", Rg, [](RecordingGpu& g, ImageId i) {
            std::vector<float> o(32);
            (void)GetR32G32F(g, i, o);
        });
        add("GetR32G32B32A32F", Rgba, [](RecordingGpu& g, ImageId i) { (void)GetR32G32B32A32F(g, i); });
        add("GetR32G32B32A32F(out)", Rgba, [](RecordingGpu& g, ImageId i) {
            std::vector<float> o(64);
            (void)GetR32G32B32A32F(g, i, o);
        });
        add("GetR8G8B8A8", Rgba8, [](RecordingGpu& g, ImageId i) { (void)GetR8G8B8A8(g, i); });
        add("GetR8G8B8A8(pitch)", Rgba8, [](RecordingGpu& g, ImageId i) {
            std::vector<unsigned char> o(80);
            (void)GetR8G8B8A8(g, i, {}, o.data(), 20);
        });
        add("GetBytes", Rgba8, [](RecordingGpu& g, ImageId i) {
            std::vector<unsigned char> o(80);
            (void)GetBytes(g, i, {}, o.data(), 20);
        });
        add("GetBytes(vector)", Rgba8, [](RecordingGpu& g, ImageId i) { (void)GetBytes(g, i, {}, 16); });
        add("ReadAsDoubles", Rgba8, [](RecordingGpu& g, ImageId i) { (void)ReadAsDoubles(g, i, false, {}); });
        add("ReadAsDoubles(raw)", Rg, [](RecordingGpu& g, ImageId i) { (void)ReadAsDoubles(g, i, true, {}); });
    }
    return cases;
}

std::vector<Case> ShaderCases()
{
    return {
        {"ClearImage(int)",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderCache s;
             PsoCache p;
             ClearImage(g, s, p, f.intTarget, 1, -2, 3, -4);
         }},
        {"ClearImage(unsigned)",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderCache s;
             PsoCache p;
             ClearImage(g, s, p, f.uintTarget, 1u, 2u, 3u, 4u);
         }},
        {"ClearImage(float)",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderCache s;
             PsoCache p;
             ClearImage(g, s, p, f.floatTarget, 0.5f, 0.f, 1.f, 1.f);
         }},
        {"ShaderBasedImageClear",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderBasedImageClear clear(g);
             clear.Clear(f.floatTarget, 0.5f, 0.f, 1.f, 1.f);
             clear.Clear(f.floatTarget, 0.25f, 0.f, 1.f, 1.f); // cached pipeline
             clear.Clear(f.intTarget, 1, 2, 3, 4);
             clear.Clear(f.uintTarget, 1u, 2u, 3u, 4u);
         }},
        {"ShaderBasedImageCopy(views)",
         [](RecordingGpu& g, Fixture const& f) { ShaderBasedImageCopy(g).Copy(f.view, f.floatTarget); }},
        {"ShaderBasedImageCopy(images, direct)",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderBasedImageCopy(g).Copy(f.colour[Rgba8][Direct], {}, f.colour[Rgba8][Readback], {});
         }},
        {"ShaderBasedImageCopy(images, temporaries)",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderBasedImageCopy copy(g);
             copy.Copy(f.copyOnly, {}, f.colour[Rgba8][Readback], {});
             copy.Copy(f.colour[Rgba8][Direct], {}, f.copyOnly, {});
         }},
        {"ShaderBasedMsaaDepthResolver",
         [](RecordingGpu& g, Fixture const& f) {
             ShaderBasedMsaaDepthResolver resolver(g);
             resolver.Resolve(f.depthMsaa, f.depth, DepthSelectionMode::Min);
             resolver.Resolve(f.depthMsaa, f.depth);
             resolver.Resolve(f.depthMsaa, f.depth, DepthSelectionMode::Min); // cached
         }},
    };
}

std::vector<Case> BufferAndTimingCases()
{
    return {
        {"UpdateDynamicVertexBuffer(create)",
         [](RecordingGpu& g, Fixture const&) {
             ScopedResource<BufferId, IResourceFactory> const made(
                 &g, UpdateDynamicVertexBuffer(BufferId{}, g, 64, Bytes.data()));
         }},
        {"UpdateDynamicVertexBuffer(reuse)",
         [](RecordingGpu& g, Fixture const& f) { (void)UpdateDynamicVertexBuffer(f.vertices, g, 64, Bytes.data()); }},
        {"UpdateDynamicVertexBuffer(grow)",
         [](RecordingGpu& g, Fixture const& f) {
             // The small buffer is given up; the grown one is ours to release.
             ScopedResource<BufferId, IResourceFactory> const grown(
                 &g, UpdateDynamicVertexBuffer(f.smallVertices, g, 64, Bytes.data()));
         }},
        {"Update", [](RecordingGpu& g, Fixture const& f) { Update(f.vertices, g, 64, Bytes.data()); }},
        {"GpuStopWatch",
         [](RecordingGpu& g, Fixture const&) {
             GpuStopWatch watch(g);
             watch.Start();
             watch.Stop();
             (void)watch.GetSeconds();
             watch.Start();
             watch.Stop();
             (void)watch.GetMilliseconds();
             GpuStopWatch moved(std::move(watch));
         }},
        {"GpuFrameTimer",
         [](RecordingGpu& g, Fixture const&) {
             GpuFrameTimer timer(g);
             for (int frame = 0; frame < 4; ++frame) {
                 timer.BeginFrame();
                 timer.EndFrame();
             }
             (void)timer.GetMillisecondsPerFrame();
         }},
        {"GpuWorkChunker",
         [](RecordingGpu& g, Fixture const&) {
             GpuWorkChunker chunker(g);
             for (int chunk = 0; chunk < 4; ++chunk) {
                 chunker.BeginChunk();
                 chunker.EndChunk();
             }
         }},
    };
}

// Runs the sweep for each case; returns the number of faulted cases tried.
std::size_t Sweep(std::vector<Case> const& cases)
{
    std::size_t total = 0;
    for (Case const& c : cases) {
        Fixture fixture;
        auto const result = SweepFaults([&](RecordingGpu& gpu) { c.operation(gpu, fixture); },
                                        [&](RecordingGpu& gpu) { MakeFixture(gpu, fixture); });
        EXPECT_GT(result.calls, 0u) << c.name << " made no device call";
        EXPECT_TRUE(result.failures.empty()) << c.name << "\n" << result.Report();
        std::cout << "[ sweep    ] " << c.name << ": " << result.cases << " cases over " << result.calls << " calls\n";
        total += result.cases;
    }
    return total;
}

std::size_t grandTotal = 0;

std::size_t Family(char const* family, std::vector<Case> const& cases)
{
    std::size_t const total = Sweep(cases);
    std::cout << "[ sweep    ] " << family << ": " << total << " cases in " << cases.size() << " operations\n";
    ::testing::Test::RecordProperty("cases", static_cast<int>(total));
    grandTotal += total;
    return total;
}

TEST(FaultSweep, TexturesUploadsAndMipChains)
{
    EXPECT_GT(Family("textures", TextureCases()), 0u);
}
TEST(FaultSweep, Readbacks)
{
    EXPECT_GT(Family("readbacks", ReadbackCases()), 0u);
}
TEST(FaultSweep, ShaderOperations)
{
    EXPECT_GT(Family("shader operations", ShaderCases()), 0u);
}
TEST(FaultSweep, BuffersAndTimers)
{
    EXPECT_GT(Family("buffers and timers", BufferAndTimingCases()), 0u);
}

// The total of whatever ran in this process (all four when run as a whole).
class Summary : public ::testing::Environment {
public:
    void TearDown() override
    {
        std::cout << "[ sweep    ] total: " << grandTotal << " (operation, call, fault) cases\n";
    }
};
[[maybe_unused]] auto* const summary = ::testing::AddGlobalTestEnvironment(new Summary);

} // namespace
