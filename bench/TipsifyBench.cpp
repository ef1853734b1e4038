// Tipsify against meshoptimizer's FIFO-cache optimiser (also Tipsify), at the
// cache sizes GPUs model. Both run on the same 16-bit index data; ACMR of both
// outputs is judged by the same analyser.

#include "BenchSupport.h"

#include <Rendering/Mesh.h>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <memory>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

struct IndexedMesh {
    std::string name;
    std::vector<std::uint16_t> indices16;
    std::vector<unsigned int> indices32;
    unsigned int vertexCount = 0;
};

std::shared_ptr<IndexedMesh const> ToIndexed(Mesh const& mesh)
{
    auto indexed = std::make_shared<IndexedMesh>();
    indexed->name = mesh.name;
    indexed->vertexCount = static_cast<unsigned int>(mesh.positions.size());
    for (Triangle const& t : mesh.triangles)
        for (std::uint32_t v : t) {
            indexed->indices16.push_back(static_cast<std::uint16_t>(v));
            indexed->indices32.push_back(v);
        }
    return indexed;
}

double Acmr(std::vector<unsigned int> const& indices, unsigned int vertexCount, unsigned int cacheSize)
{
    return meshopt_analyzeVertexCache(indices.data(), indices.size(), vertexCount, cacheSize, 0, 0).acmr;
}

void Finish(benchmark::State& state, IndexedMesh const& mesh, std::vector<unsigned int> const& output,
            unsigned int cacheSize)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(mesh.indices32.size() / 3));
    state.counters["acmr"] = Acmr(output, mesh.vertexCount, cacheSize);
    state.counters["acmr_input"] = Acmr(mesh.indices32, mesh.vertexCount, cacheSize);
}

void Ours(benchmark::State& state, std::shared_ptr<IndexedMesh const> const& mesh, std::uint16_t cacheSize)
{
    std::vector<std::uint16_t> result(mesh->indices16.size());
    for (auto _ : state) {
        Zorvan::Rendering::Tipsify(mesh->indices16.data(), result.data(),
                                   static_cast<unsigned int>(mesh->indices16.size()), mesh->vertexCount, 3,
                                   cacheSize);
        benchmark::DoNotOptimize(result.data());
        benchmark::ClobberMemory();
    }
    Finish(state, *mesh, std::vector<unsigned int>(result.begin(), result.end()), cacheSize);
}

void Meshopt(benchmark::State& state, std::shared_ptr<IndexedMesh const> const& mesh, unsigned int cacheSize)
{
    std::vector<unsigned int> result(mesh->indices32.size());
    for (auto _ : state) {
        meshopt_optimizeVertexCacheFifo(result.data(), mesh->indices32.data(), mesh->indices32.size(),
                                        mesh->vertexCount, cacheSize);
        benchmark::DoNotOptimize(result.data());
        benchmark::ClobberMemory();
    }
    Finish(state, *mesh, result, cacheSize);
}

} // namespace

void RegisterBenchmarks()
{
    // 255 x 255 vertices is the largest square grid 16-bit indices can address.
    std::vector<Mesh> meshes;
    meshes.push_back(MakeShuffledGrid(255));
    for (Mesh& mesh : RealMeshes())
        if (mesh.positions.size() <= 65536)
            meshes.push_back(std::move(mesh));

    for (Mesh const& mesh : meshes) {
        auto const indexed = ToIndexed(mesh);
        for (std::uint16_t k : {std::uint16_t{12}, std::uint16_t{16}, std::uint16_t{24}}) {
            std::string const prefix = "tipsify/" + mesh.name + "_k" + std::to_string(k) + "/";
            benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, indexed, k)
                ->Unit(benchmark::kMillisecond);
            benchmark::RegisterBenchmark((prefix + "meshopt").c_str(), Meshopt, indexed, unsigned{k})
                ->Unit(benchmark::kMillisecond);
        }
    }
}

} // namespace zgu_bench
