// The GL device on whatever GL driver is present: uploads and readbacks
// through the library's image functions, multisample resolves, a mip chain
// and the shader-based operations, each at 1080p and 4K. Every job runs
// beside a host memcpy of the bytes it delivers, and reports the GPU time of
// one call where timestamp queries work. Work is waited for inside each
// iteration, so the wall clock covers what the GPU did.

#include "BenchSupport.h"

#include <Rendering/Gl/GlDevice.h>
#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>
#include <Rendering/Timing.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

namespace R = Zorvan::Rendering;
using Image = R::ScopedResource<R::ImageId, R::IResourceFactory>;
using View = R::ScopedResource<R::RtvId, R::IResourceFactory>;

R::Gl::GlDevice* device = nullptr;

R::Gl::GlDevice& Gpu() { return *device; }

struct Resolution {
    char const* name;
    std::uint32_t width;
    std::uint32_t height;
};
constexpr Resolution Resolutions[] = {{"1080p", 1920, 1080}, {"4k", 3840, 2160}};

Image MakeImage(R::Size size, R::Format format, std::uint32_t flags, std::uint32_t samples = 1,
                std::uint32_t levels = 1)
{
    return Image(&Gpu(), Gpu().CreateImage({size, format, samples, levels, flags}));
}

// Bytes with a pattern; what the pixels hold does not change the cost.
std::vector<unsigned char> Pattern(std::size_t bytes)
{
    std::vector<unsigned char> data(bytes);
    for (std::size_t i = 0; i < bytes; ++i)
        data[i] = static_cast<unsigned char>(i * 7 + i / 4096);
    return data;
}

// Floats in [0, 1], valid as depth too (GL would clamp others on upload).
std::vector<unsigned char> UnitFloats(std::size_t bytes)
{
    std::vector<unsigned char> data(bytes);
    for (std::size_t i = 0; i < bytes / 4; ++i) {
        float const value = static_cast<float>(i % 4099) / 4098.0f;
        std::memcpy(data.data() + i * 4, &value, 4);
    }
    return data;
}

// A texture the host cannot map, filled the way a user fills one: through
// an upload image and a device copy.
Image FilledTexture(R::Size size, R::Format format, std::vector<unsigned char> const& bytes)
{
    std::uint32_t const flags =
        R::ImageUsage::ShaderResource | R::ImageUsage::CopySource | R::ImageUsage::CopyDestination;
    Image texture = MakeImage(size, format, flags);
    Image const upload = MakeImage(size, format, R::ImageUsage::HostWrite | R::ImageUsage::CopySource);
    R::MappedImage const mapped = Gpu().MapImage(upload.Get(), {}, R::MapMode::Write);
    if (mapped.data != nullptr)
        std::memcpy(mapped.data, bytes.data(), bytes.size());
    Gpu().UnmapImage(upload.Get(), {});
    Gpu().CopyImage(upload.Get(), {}, texture.Get(), {});
    Gpu().Finish();
    return texture;
}

// Runs one call per iteration, waits for the device, and accounts `bytes`
// per call after one untimed call; the GPU time of the calls is averaged
// into the "gpu_ms" counter when the device's timestamps give one.
void Timed(benchmark::State& state, std::size_t bytes, std::function<bool()> const& call)
{
    // The first call compiles the driver's internal shaders (blits, resolves)
    // and fills the device's staging pool: one-time costs, kept out.
    call();
    Gpu().Finish();
    R::GpuStopWatch watch(Gpu());
    double gpuMilliseconds = 0.0;
    std::int64_t timed = 0;
    for (auto _ : state) {
        watch.Start();
        bool const ok = call();
        watch.Stop();
        Gpu().Finish();
        if (!ok) {
            state.SkipWithError("the device call failed");
            break;
        }
        state.PauseTiming();
        double const milliseconds = watch.GetMilliseconds();
        if (milliseconds >= 0.0) {
            gpuMilliseconds += milliseconds;
            ++timed;
        }
        state.ResumeTiming();
    }
    if (!Gpu().Errors().empty())
        state.SkipWithError(("the GL device reported: " + Gpu().Errors().front()).c_str());
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
    if (timed > 0)
        state.counters["gpu_ms"] = gpuMilliseconds / static_cast<double>(timed);
}

void Memcpy(benchmark::State& state, std::size_t bytes)
{
    std::vector<unsigned char> const source = Pattern(bytes);
    std::vector<unsigned char> destination(bytes, 1);
    for (auto _ : state) {
        std::memcpy(destination.data(), source.data(), bytes);
        benchmark::DoNotOptimize(destination.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

// FillRgbaTexture into a sampled texture: an upload image, a host copy into
// its mapping, a device copy into the texture.
void Upload(benchmark::State& state, Resolution r)
{
    R::Size const size{r.width, r.height, 0};
    Image const texture = MakeImage(size, R::Format::R8G8B8A8, R::ImageUsage::ShaderResource |
                                                                   R::ImageUsage::CopyDestination);
    std::vector<unsigned char> const pixels = Pattern(std::size_t{r.width} * r.height * 4);
    Timed(state, pixels.size(), [&] {
        R::FillRgbaTexture(Gpu(), texture.Get(), {}, R::array_view<unsigned char const>(pixels.data(), pixels.size()));
        return true;
    });
}

// A texture that is not host-readable, read into the caller's array: a copy
// into a read-back image, a map, the rows copied out.
void Readback(benchmark::State& state, Resolution r, R::Format format, std::uint32_t samples)
{
    R::Size const size{r.width, r.height, 0};
    std::uint32_t const pixelBytes = R::GetSize(format);
    std::size_t const bytes = std::size_t{r.width} * r.height * pixelBytes;
    Image source;
    if (samples > 1) {
        source = MakeImage(size, format, R::ImageUsage::RenderTarget | R::ImageUsage::Resolvable, samples);
        View const view(&Gpu(), Gpu().CreateRenderTargetView(source.Get(), {}));
        R::ShaderBasedImageClear clear(Gpu());
        clear.Clear(view.Get(), 0.25f, 0.5f, 0.75f, 1.0f);
    } else {
        source = FilledTexture(size, format, format == R::Format::R8G8B8A8 ? Pattern(bytes) : UnitFloats(bytes));
    }
    std::vector<unsigned char> out(bytes, 1);
    Timed(state, bytes, [&] {
        if (format == R::Format::R8G8B8A8)
            return R::GetR8G8B8A8(Gpu(), source.Get(), R::array_view<unsigned char>(out.data(), out.size()));
        return R::GetR32F(Gpu(), source.Get(),
                          R::array_view<float>(reinterpret_cast<float*>(out.data()), out.size() / 4));
    });
}

// ReadAsDoubles of an RGBA8 texture: the readback and the conversion, eight
// bytes out per channel value.
void ReadDoubles(benchmark::State& state, Resolution r)
{
    R::Size const size{r.width, r.height, 0};
    std::size_t const values = std::size_t{r.width} * r.height * 4;
    Image const source = FilledTexture(size, R::Format::R8G8B8A8, Pattern(values));
    Timed(state, values * sizeof(double), [&] {
        std::vector<double> const doubles = R::ReadAsDoubles(Gpu(), source.Get(), false, {});
        benchmark::DoNotOptimize(doubles.data());
        return doubles.size() == values;
    });
}

// ResolveImage of a 4x RGBA8 target into a single-sampled image.
void ColourResolve(benchmark::State& state, Resolution r)
{
    R::Size const size{r.width, r.height, 0};
    Image const source = MakeImage(size, R::Format::R8G8B8A8, R::ImageUsage::RenderTarget | R::ImageUsage::Resolvable, 4);
    Image const target = MakeImage(size, R::Format::R8G8B8A8, R::ImageUsage::ResolveDestination |
                                                                  R::ImageUsage::ShaderResource);
    Timed(state, std::size_t{r.width} * r.height * 4, [&] {
        Gpu().ResolveImage(source.Get(), {}, target.Get(), {});
        return true;
    });
}

// The full mip chain of a 4096 x 4096 RGBA8 texture, level by level.
void MipChain(benchmark::State& state)
{
    R::Size const size{4096, 4096, 0};
    Image const source = FilledTexture(size, R::Format::R8G8B8A8, Pattern(std::size_t{4096} * 4096 * 4));
    std::size_t bytes = 0;
    for (std::uint32_t level = 0; level < R::CalculateFullMipChainCount(size); ++level) {
        R::Size const extent = R::CalculateMipLevelSize(size, level);
        bytes += std::size_t{extent.width} * extent.height * 4;
    }
    R::MipMapBuilder builder(Gpu());
    Timed(state, bytes, [&] {
        Image const chain = builder.BuildMipMapChain(source.Get(), 0, R::ImageUsage::ShaderResource);
        return chain.IsValid();
    });
}

void ShaderClear(benchmark::State& state, Resolution r)
{
    Image const target = MakeImage({r.width, r.height, 0}, R::Format::R8G8B8A8, R::ImageUsage::RenderTarget);
    View const view(&Gpu(), Gpu().CreateRenderTargetView(target.Get(), {}));
    R::ShaderBasedImageClear clear(Gpu());
    Timed(state, std::size_t{r.width} * r.height * 4, [&] {
        clear.Clear(view.Get(), 0.1f, 0.2f, 0.3f, 1.0f);
        return true;
    });
}

void ShaderCopy(benchmark::State& state, Resolution r)
{
    R::Size const size{r.width, r.height, 0};
    Image const source = MakeImage(size, R::Format::R8G8B8A8, R::ImageUsage::ShaderResource |
                                                                  R::ImageUsage::CopyDestination);
    Image const target = MakeImage(size, R::Format::R8G8B8A8, R::ImageUsage::RenderTarget);
    R::ShaderBasedImageCopy copy(Gpu());
    Timed(state, std::size_t{r.width} * r.height * 4, [&] {
        copy.Copy(source.Get(), {}, target.Get(), {});
        return true;
    });
}

void DepthResolve(benchmark::State& state, Resolution r)
{
    R::Size const size{r.width, r.height, 0};
    Image const source = MakeImage(size, R::Format::D32F, R::ImageUsage::RenderTarget | R::ImageUsage::ShaderResource, 4);
    Image const target = MakeImage(size, R::Format::D32F, R::ImageUsage::RenderTarget);
    R::ShaderBasedMsaaDepthResolver resolver(Gpu());
    Timed(state, std::size_t{r.width} * r.height * 4, [&] {
        resolver.Resolve(source.Get(), target.Get(), R::DepthSelectionMode::Min);
        return true;
    });
}

// The device lives for the whole run; made on first use, after the EGL
// state it depends on.
R::Gl::GlDevice* OpenDevice()
{
    static std::unique_ptr<R::Gl::GlDevice> opened = [] {
        R::Gl::GlDeviceOptions options;
        options.debugOutput = false;
        try {
            return std::make_unique<R::Gl::GlDevice>(options);
        } catch (R::Gl::GlDeviceError const& error) {
            std::fprintf(stderr, "zgu_bench_gl: no GL device: %s\n", error.what());
            std::exit(1);
        }
    }();
    return opened.get();
}

template <typename... Arguments>
void Register(std::string const& name, Arguments&&... arguments)
{
    benchmark::RegisterBenchmark(name.c_str(), std::forward<Arguments>(arguments)...)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace

void RegisterBenchmarks()
{
    device = OpenDevice();
    auto const& info = device->Info();
    benchmark::AddCustomContext("gl_renderer", info.renderer);
    benchmark::AddCustomContext("gl_version", info.version);
    benchmark::AddCustomContext("gl_platform", info.platform);

    for (Resolution const& r : Resolutions) {
        std::string const at = std::string("_") + r.name;
        std::size_t const rgba = std::size_t{r.width} * r.height * 4;
        Register("gl_upload/rgba8" + at + "/ours", Upload, r);
        Register("gl_upload/rgba8" + at + "/memcpy", Memcpy, rgba);
        Register("gl_readback/rgba8" + at + "/ours", Readback, r, R::Format::R8G8B8A8, 1u);
        Register("gl_readback/rgba8" + at + "/memcpy", Memcpy, rgba);
        Register("gl_readback/r32f" + at + "/ours", Readback, r, R::Format::R32F, 1u);
        Register("gl_readback/r32f" + at + "/memcpy", Memcpy, rgba);
        Register("gl_readback/depth32f" + at + "/ours", Readback, r, R::Format::D32F, 1u);
        Register("gl_readback/depth32f" + at + "/memcpy", Memcpy, rgba);
        Register("gl_msaa_readback/rgba8x4" + at + "/ours", Readback, r, R::Format::R8G8B8A8, 4u);
        Register("gl_msaa_readback/rgba8x4" + at + "/memcpy", Memcpy, rgba);
        Register("gl_read_as_doubles/rgba8" + at + "/ours", ReadDoubles, r);
        Register("gl_read_as_doubles/rgba8" + at + "/memcpy", Memcpy, rgba * sizeof(double));
        Register("gl_resolve/rgba8x4" + at + "/ours", ColourResolve, r);
        Register("gl_resolve/rgba8x4" + at + "/memcpy", Memcpy, rgba);
        Register("gl_clear/rgba8" + at + "/ours", ShaderClear, r);
        Register("gl_clear/rgba8" + at + "/memcpy", Memcpy, rgba);
        Register("gl_copy/rgba8" + at + "/ours", ShaderCopy, r);
        Register("gl_copy/rgba8" + at + "/memcpy", Memcpy, rgba);
        Register("gl_depth_resolve/d32fx4" + at + "/ours", DepthResolve, r);
        Register("gl_depth_resolve/d32fx4" + at + "/memcpy", Memcpy, rgba);
    }
    std::size_t chain = 0;
    for (std::uint32_t level = 0; level < 13; ++level) {
        std::size_t const side = std::size_t{4096} >> level;
        chain += side * side * 4;
    }
    Register("gl_mips/rgba8_4096/ours", MipChain);
    Register("gl_mips/rgba8_4096/memcpy", Memcpy, chain);
}

} // namespace zgu_bench
