// CopyImageBuffer against memcpy of the same bytes: identical layouts (one
// block) and different pitches (row by row, 4 KiB rows out of padded 4.25 KiB
// source rows), for a working set that fits L2 and one that needs DRAM.

#include "BenchSupport.h"

#include <Rendering/Image.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

constexpr std::int64_t RowBytes = 4096;

struct Layout {
    std::int64_t srcPitch;
    std::int64_t dstPitch;
    std::int64_t rows;
};

void Ours(benchmark::State& state, Layout layout)
{
    std::vector<unsigned char> src(static_cast<std::size_t>(layout.srcPitch * layout.rows), 7);
    std::vector<unsigned char> dst(static_cast<std::size_t>(layout.dstPitch * layout.rows), 0);
    for (auto _ : state) {
        Zorvan::Rendering::CopyImageBuffer(src.data(), layout.srcPitch, layout.srcPitch * layout.rows, dst.data(),
                                           layout.dstPitch, layout.dstPitch * layout.rows, RowBytes / 4, layout.rows,
                                           1);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * RowBytes * layout.rows);
}

void Memcpy(benchmark::State& state, Layout layout)
{
    std::size_t const bytes = static_cast<std::size_t>(RowBytes * layout.rows);
    std::vector<unsigned char> src(bytes, 7);
    std::vector<unsigned char> dst(bytes, 0);
    for (auto _ : state) {
        std::memcpy(dst.data(), src.data(), bytes);
        benchmark::DoNotOptimize(dst.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(bytes));
}

} // namespace

void RegisterBenchmarks()
{
    // 128 rows: 512 KiB each way, resident in L2. 16384 rows: 64 MiB each way.
    for (std::int64_t rows : {std::int64_t{128}, std::int64_t{16384}}) {
        std::string const size = rows == 128 ? "l2" : "dram";
        for (bool equal : {true, false}) {
            Layout const layout{equal ? RowBytes : RowBytes + 256, RowBytes, rows};
            std::string const prefix = std::string("copy/") + (equal ? "equal_pitch_" : "padded_rows_") + size + "/";
            benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, layout);
            benchmark::RegisterBenchmark((prefix + "memcpy").c_str(), Memcpy, layout);
        }
    }
}

} // namespace zgu_bench
