// ReadAsDoubles against memcpy of the bytes it outputs (eight per channel
// value). It runs the whole public call on the recording device with a
// host-readable image, so besides the conversion it pays for the device's
// staging copy of the level, the tightly packed read and the result vector.

#include "BenchSupport.h"

#include <Rendering/Image.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

namespace R = Zorvan::Rendering;

// 512 x 512 RGBA: 1 Mi values, 8 MiB of doubles out.
constexpr std::uint32_t Side = 512;
constexpr std::size_t Values = std::size_t{Side} * Side * 4;

void Ours(benchmark::State& state, R::Format format)
{
    R::Testing::RecordingGpu gpu;
    R::ImageDesc description;
    description.size = R::Size{Side, Side, 0};
    description.format = format;
    description.flags = R::ImageUsage::HostRead | R::ImageUsage::ShaderResource;
    R::ImageId const image = gpu.CreateImage(description);

    // Random bytes; for half images keep every value finite like real pixels.
    std::vector<std::byte> bytes(std::size_t{Side} * Side * R::GetSize(format));
    std::mt19937 random(99);
    for (std::byte& b : bytes)
        b = static_cast<std::byte>(random() & 0xFF);
    if (format == R::Format::R16G16B16A16F)
        for (std::size_t i = 1; i < bytes.size(); i += 2)
            bytes[i] &= std::byte{0xBF};
    gpu.WriteImage(image, {}, bytes);

    for (auto _ : state) {
        std::vector<double> values = R::ReadAsDoubles(gpu, image, false, {});
        if (values.size() != Values) {
            state.SkipWithError("ReadAsDoubles returned the wrong number of values");
            break;
        }
        benchmark::DoNotOptimize(values.data());
    }
    gpu.DestroyImage(image);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(Values));
}

void Memcpy(benchmark::State& state)
{
    std::vector<double> src(Values, 0.5);
    std::vector<double> dst(Values, 0.0);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), Values * sizeof(double));
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(Values));
}

} // namespace

void RegisterBenchmarks()
{
    struct Case {
        char const* name;
        R::Format format;
    };
    for (Case c : {Case{"unorm8", R::Format::R8G8B8A8}, Case{"half", R::Format::R16G16B16A16F},
                   Case{"float", R::Format::R32G32B32A32F}}) {
        std::string const prefix = std::string("read_as_doubles/") + c.name + "/";
        benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, c.format);
        benchmark::RegisterBenchmark((prefix + "memcpy").c_str(), Memcpy);
    }
}

} // namespace zgu_bench
