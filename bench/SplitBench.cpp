// Splitting a large 32-bit mesh into 16-bit submeshes ready to draw, on the
// case that defeats a split in input order: a 2M-triangle smooth height field
// whose vertices and triangles are shuffled. The mesh is prepared as zgu mesh
// prepares it (normals remapping at 30 degrees, not timed), then split three
// ways on the same data:
//   ours        SplitInto16BitSubmeshes: Hilbert order, greedy cut, Tipsify
//               on each submesh (oneTBB, so timed by the wall clock);
//   meshopt     the same pipeline from meshoptimizer's parts:
//               meshopt_spatialSortTriangles, the same greedy cut,
//               meshopt_optimizeVertexCacheFifo on each submesh;
//   input_order the former zgu split: cut the input order, Tipsify each.
// Quality is judged by meshoptimizer's analyser, one empty FIFO of 16 per
// submesh: vertices stored / remapped vertices, and ACMR.

#include "BenchSupport.h"

#include <Rendering/Mesh.h>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <numbers>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

constexpr std::uint16_t CacheSize = 16;

struct Prepared {
    std::string name;
    std::vector<Point> positions;       // per remapped vertex
    std::vector<std::uint32_t> corners; // remapped triangle list
    double acmrInput = 0.0;
};

std::shared_ptr<Prepared const> Prepare(Mesh const& mesh)
{
    auto const remapping = Zorvan::Rendering::CalculateSmoothNormalRemapping(
        Zorvan::Rendering::span<Point const>(mesh.positions), Zorvan::Rendering::span<Triangle const>(mesh.triangles),
        30.0 * std::numbers::pi / 180.0);
    auto prepared = std::make_shared<Prepared>();
    prepared->name = mesh.name;
    for (std::uint32_t from : remapping.vertices)
        prepared->positions.push_back(mesh.positions[from]);
    prepared->corners = remapping.remapping;
    prepared->acmrInput = meshopt_analyzeVertexCache(prepared->corners.data(), prepared->corners.size(),
                                                     prepared->positions.size(), CacheSize, 0, 0)
                              .acmr;
    return prepared;
}

// Cuts a triangle order greedily at MaxSubmeshVertexCount vertices, numbering
// local vertices by first use: the cut ours makes, for the other two.
std::vector<Zorvan::Rendering::Submesh> Cut(std::vector<std::uint32_t> const& corners, std::size_t vertexCount)
{
    constexpr auto none = std::numeric_limits<std::uint32_t>::max();
    std::vector<Zorvan::Rendering::Submesh> submeshes;
    std::vector<std::uint32_t> owner(vertexCount, none);
    std::vector<std::uint16_t> local(vertexCount);
    for (std::size_t c = 0; c + 2 < corners.size(); c += 3) {
        std::uint32_t const a = corners[c], b = corners[c + 1], d = corners[c + 2];
        auto const current = static_cast<std::uint32_t>(submeshes.size() - 1);
        std::size_t const fresh = submeshes.empty() ? 3
                                                    : (owner[a] != current) + (b != a && owner[b] != current) +
                                                          (d != a && d != b && owner[d] != current);
        if (submeshes.empty() || submeshes.back().vertices.size() + fresh > Zorvan::Rendering::MaxSubmeshVertexCount)
            submeshes.emplace_back();
        auto const index = static_cast<std::uint32_t>(submeshes.size() - 1);
        for (std::uint32_t v : {a, b, d}) {
            if (owner[v] != index) {
                owner[v] = index;
                local[v] = static_cast<std::uint16_t>(submeshes.back().vertices.size());
                submeshes.back().vertices.push_back(v);
            }
            submeshes.back().indices.push_back(local[v]);
        }
    }
    return submeshes;
}

void Finish(benchmark::State& state, Prepared const& mesh, std::vector<Zorvan::Rendering::Submesh> const& submeshes)
{
    std::size_t stored = 0;
    double misses = 0.0;
    std::vector<unsigned int> indices;
    for (auto const& sub : submeshes) {
        stored += sub.vertices.size();
        indices.assign(sub.indices.begin(), sub.indices.end());
        misses += meshopt_analyzeVertexCache(indices.data(), indices.size(), sub.vertices.size(), CacheSize, 0, 0)
                      .vertices_transformed;
    }
    std::size_t const triangles = mesh.corners.size() / 3;
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(triangles));
    state.counters["vertex_ratio"] = double(stored) / double(mesh.positions.size());
    state.counters["acmr"] = misses / double(triangles);
    state.counters["acmr_input"] = mesh.acmrInput;
    state.counters["submeshes"] = double(submeshes.size());
}

void Ours(benchmark::State& state, std::shared_ptr<Prepared const> const& mesh)
{
    std::vector<Zorvan::Rendering::Submesh> submeshes;
    for (auto _ : state) {
        submeshes = Zorvan::Rendering::SplitInto16BitSubmeshes(Zorvan::Rendering::span<Point const>(mesh->positions),
                                                               Zorvan::Rendering::span<std::uint32_t const>(mesh->corners),
                                                               CacheSize);
        benchmark::DoNotOptimize(submeshes.data());
    }
    Finish(state, *mesh, submeshes);
}

void Meshopt(benchmark::State& state, std::shared_ptr<Prepared const> const& mesh)
{
    std::vector<Zorvan::Rendering::Submesh> submeshes;
    std::vector<std::uint32_t> sorted(mesh->corners.size());
    std::vector<unsigned int> local, reordered;
    for (auto _ : state) {
        meshopt_spatialSortTriangles(sorted.data(), mesh->corners.data(), mesh->corners.size(),
                                     &mesh->positions[0][0], mesh->positions.size(), sizeof(Point));
        submeshes = Cut(sorted, mesh->positions.size());
        for (auto& sub : submeshes) {
            local.assign(sub.indices.begin(), sub.indices.end());
            reordered.resize(local.size());
            meshopt_optimizeVertexCacheFifo(reordered.data(), local.data(), local.size(), sub.vertices.size(),
                                            CacheSize);
            sub.indices.assign(reordered.begin(), reordered.end());
        }
        benchmark::DoNotOptimize(submeshes.data());
    }
    Finish(state, *mesh, submeshes);
}

void InputOrder(benchmark::State& state, std::shared_ptr<Prepared const> const& mesh)
{
    std::vector<Zorvan::Rendering::Submesh> submeshes;
    std::vector<std::uint16_t> reordered;
    for (auto _ : state) {
        submeshes = Cut(mesh->corners, mesh->positions.size());
        for (auto& sub : submeshes) {
            reordered.resize(sub.indices.size());
            Zorvan::Rendering::Tipsify(sub.indices.data(), reordered.data(),
                                       static_cast<unsigned int>(sub.indices.size()),
                                       static_cast<unsigned int>(sub.vertices.size()), 3, CacheSize);
            sub.indices.swap(reordered);
        }
        benchmark::DoNotOptimize(submeshes.data());
    }
    Finish(state, *mesh, submeshes);
}

} // namespace

void RegisterBenchmarks()
{
    // 1001 x 1001 vertices: 2,000,000 triangles, 1,002,001 vertices.
    auto const mesh = Prepare(MakeShuffledHeightField(1001));
    std::string const prefix = "split/" + mesh->name + "_k16/";
    benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, mesh)->UseRealTime()->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "meshopt").c_str(), Meshopt, mesh)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((prefix + "input_order").c_str(), InputOrder, mesh)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
}

} // namespace zgu_bench
