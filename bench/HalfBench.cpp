// float2half / half2float over whole arrays, against Imath's half (software
// path) and against the F16C instructions as the physical limit. "ours" is
// the array form (one call per array), which runs on F16C itself where the
// processor has it and must give the tables' bits all the same;
// "ours_scalar" is one exported call per value. "l1" arrays stay in the
// first-level cache, "dram" arrays are far larger than the last.

#include "BenchSupport.h"
#include "HalfKernels.h"

#include <Rendering/Format.h>

#include <benchmark/benchmark.h>

#include <bit>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

struct HalfData {
    std::vector<float> floats;
    std::vector<std::uint16_t> halves;
};

// Floats spread over the normal half range (exponents -14 .. 15, both signs,
// random mantissas): typical pixel data, and no rare branch of either side is
// favoured. Halves: every finite bit pattern equally likely.
std::shared_ptr<HalfData> MakeData(std::size_t n)
{
    auto data = std::make_shared<HalfData>();
    std::mt19937 random(1234);
    std::uniform_int_distribution<std::uint32_t> exponent(127 - 14, 127 + 15);
    std::uniform_int_distribution<std::uint32_t> bits;
    data->floats.resize(n);
    data->halves.resize(n);
    for (std::size_t i = 0; i < n; ++i) {
        std::uint32_t const b = bits(random);
        data->floats[i] = std::bit_cast<float>((b & 0x807FFFFFu) | (exponent(random) << 23));
        std::uint16_t h = static_cast<std::uint16_t>(bits(random));
        if ((h & 0x7C00u) == 0x7C00u)
            h = static_cast<std::uint16_t>(h & ~0x4000u);
        data->halves[i] = h;
    }
    return data;
}

using FloatToHalf = void (*)(float const*, std::uint16_t*, std::size_t);
using HalfToFloat = void (*)(std::uint16_t const*, float*, std::size_t);

void OursFloatToHalf(float const* in, std::uint16_t* out, std::size_t n)
{
    Zorvan::Rendering::float2half(std::span<float const>(in, n), std::span<unsigned short>(out, n));
}

void OursHalfToFloat(std::uint16_t const* in, float* out, std::size_t n)
{
    Zorvan::Rendering::half2float(std::span<unsigned short const>(in, n), std::span<float>(out, n));
}

void OursScalarFloatToHalf(float const* in, std::uint16_t* out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        out[i] = Zorvan::Rendering::float2half(in[i]);
}

void OursScalarHalfToFloat(std::uint16_t const* in, float* out, std::size_t n)
{
    for (std::size_t i = 0; i < n; ++i)
        out[i] = Zorvan::Rendering::half2float(in[i]);
}

bool HasF16c()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("f16c") && __builtin_cpu_supports("avx");
}

void RunFloatToHalf(benchmark::State& state, std::shared_ptr<HalfData> const& data, FloatToHalf convert)
{
    if (convert == &F16cFloatToHalf && !HasF16c()) {
        state.SkipWithError("no F16C on this processor");
        return;
    }
    std::vector<std::uint16_t> out(data->floats.size());
    for (auto _ : state) {
        convert(data->floats.data(), out.data(), out.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(out.size()));
}

void RunHalfToFloat(benchmark::State& state, std::shared_ptr<HalfData> const& data, HalfToFloat convert)
{
    if (convert == &F16cHalfToFloat && !HasF16c()) {
        state.SkipWithError("no F16C on this processor");
        return;
    }
    std::vector<float> out(data->halves.size());
    for (auto _ : state) {
        convert(data->halves.data(), out.data(), out.size());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(out.size()));
}

} // namespace

void RegisterBenchmarks()
{
    // 2048 values: 8 KiB of floats plus 4 KiB of halves, well inside L1.
    // 16 Mi values: 96 MiB in all, beyond any last-level cache here.
    struct Size {
        char const* name;
        std::size_t count;
    };
    for (Size size : {Size{"l1", 2048}, Size{"dram", std::size_t{16} << 20}}) {
        auto const data = MakeData(size.count);
        std::string const f2h = std::string("float2half/") + size.name + "/";
        std::string const h2f = std::string("half2float/") + size.name + "/";
        benchmark::RegisterBenchmark((f2h + "ours").c_str(), RunFloatToHalf, data, &OursFloatToHalf);
        benchmark::RegisterBenchmark((f2h + "ours_scalar").c_str(), RunFloatToHalf, data, &OursScalarFloatToHalf);
        benchmark::RegisterBenchmark((f2h + "imath").c_str(), RunFloatToHalf, data, &ImathFloatToHalf);
        benchmark::RegisterBenchmark((f2h + "f16c").c_str(), RunFloatToHalf, data, &F16cFloatToHalf);
        benchmark::RegisterBenchmark((h2f + "ours").c_str(), RunHalfToFloat, data, &OursHalfToFloat);
        benchmark::RegisterBenchmark((h2f + "ours_scalar").c_str(), RunHalfToFloat, data, &OursScalarHalfToFloat);
        benchmark::RegisterBenchmark((h2f + "imath").c_str(), RunHalfToFloat, data, &ImathHalfToFloat);
        benchmark::RegisterBenchmark((h2f + "f16c").c_str(), RunHalfToFloat, data, &F16cHalfToFloat);
    }
}

} // namespace zgu_bench
