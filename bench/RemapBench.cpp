// Smooth-normal remapping against meshoptimizer's vertex welding of the
// (position, normal) corner stream, the step a user who already has
// per-corner normals would take to get one normal per vertex.
//
// remap: the whole job, CalculateSmoothNormalRemapping, against the pipeline
//   a user would build from our normals: CalculateSmoothTriangleVertexNormals,
//   the corner stream, meshopt_generateVertexRemap.
// remap_step: the grouping step alone, each side given the corner normals
//   ready-made (computed outside the timing loop): ours groups the corners by
//   source vertex (the adjacency build), orders each vertex's corners and
//   numbers the new vertices; meshoptimizer hashes the corner stream, built
//   outside the loop. The whole job runs the same grouping code, but smooths
//   each vertex's corners inside it rather than reading them from an array,
//   and takes the adjacency from the smoothing.
// remap_threads: the whole job on a million triangles, one thread and two.
//
// The executable links the static twin so that the step, an internal
// function, can be timed; it is the same compiled code as the shared library.

#include "BenchSupport.h"

#include "mesh/Remapping.h"

#include <Rendering/Mesh.h>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>
#include <oneapi/tbb/global_control.h>

#include <memory>
#include <numbers>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

using Zorvan::Rendering::span;

constexpr double CreaseAngle = std::numbers::pi / 4;

struct Corner {
    Point position;
    Point normal;
};
static_assert(sizeof(Corner) == 24);

std::vector<Point> OurNormals(Mesh const& mesh)
{
    return Zorvan::Rendering::CalculateSmoothTriangleVertexNormals(span<Point const>(mesh.positions),
                                                                   span<Triangle const>(mesh.triangles), CreaseAngle);
}

std::vector<Corner> CornerStream(Mesh const& mesh, std::vector<Point> const& normals)
{
    std::vector<Corner> corners;
    corners.reserve(normals.size());
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            corners.push_back({mesh.positions[mesh.triangles[t][k]], normals[3 * t + k]});
    return corners;
}

void Finish(benchmark::State& state, Mesh const& mesh, std::size_t vertices)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(3 * mesh.triangles.size()));
    state.counters["vertices"] = static_cast<double>(vertices);
}

// threads 0: oneTBB's default.
void Ours(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh, int threads)
{
    std::unique_ptr<tbb::global_control> limit;
    if (threads > 0)
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                      static_cast<std::size_t>(threads));
    std::size_t vertices = 0;
    for (auto _ : state) {
        auto remapping = Zorvan::Rendering::CalculateSmoothNormalRemapping(
            span<Point const>(mesh->positions), span<Triangle const>(mesh->triangles), CreaseAngle);
        vertices = remapping.vertices.size();
        benchmark::DoNotOptimize(remapping.remapping.data());
    }
    Finish(state, *mesh, vertices);
}

void NormalsThenMeshopt(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::vector<unsigned int> remap(3 * mesh->triangles.size());
    std::size_t vertices = 0;
    for (auto _ : state) {
        std::vector<Corner> const corners = CornerStream(*mesh, OurNormals(*mesh));
        vertices = meshopt_generateVertexRemap(remap.data(), nullptr, corners.size(), corners.data(),
                                               corners.size(), sizeof(Corner));
        benchmark::DoNotOptimize(remap.data());
    }
    Finish(state, *mesh, vertices);
}

void OurStep(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::vector<Point> const normals = OurNormals(*mesh);
    std::size_t vertices = 0;
    for (auto _ : state) {
        auto const adjacency = Zorvan::Rendering::BuildCornerAdjacency<std::uint32_t>(
            mesh->positions.size(), span<Triangle const>(mesh->triangles));
        auto remapping =
            Zorvan::Rendering::GroupCornerNormals<std::uint32_t>(adjacency, span<Point const>(normals));
        vertices = remapping.vertices.size();
        benchmark::DoNotOptimize(remapping.remapping.data());
    }
    Finish(state, *mesh, vertices);
}

void MeshoptStep(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::vector<Corner> const corners = CornerStream(*mesh, OurNormals(*mesh));
    std::vector<unsigned int> remap(corners.size());
    std::size_t vertices = 0;
    for (auto _ : state) {
        vertices = meshopt_generateVertexRemap(remap.data(), nullptr, corners.size(), corners.data(), corners.size(),
                                               sizeof(Corner));
        benchmark::DoNotOptimize(remap.data());
    }
    Finish(state, *mesh, vertices);
}

} // namespace

void RegisterBenchmarks()
{
    std::vector<std::shared_ptr<Mesh const>> meshes;
    meshes.push_back(std::make_shared<Mesh const>(MakeShuffledGrid(256)));
    for (Mesh& mesh : RealMeshes())
        meshes.push_back(std::make_shared<Mesh const>(std::move(mesh)));
    // 710 x 710 vertices: 1,005,362 triangles.
    auto const big = std::make_shared<Mesh const>(MakeShuffledGrid(710));
    meshes.push_back(big);

    for (auto const& mesh : meshes) {
        std::string const remap = "remap/" + mesh->name + "/";
        benchmark::RegisterBenchmark((remap + "ours").c_str(), Ours, mesh, 0)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((remap + "normals+meshopt").c_str(), NormalsThenMeshopt, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        std::string const step = "remap_step/" + mesh->name + "/";
        benchmark::RegisterBenchmark((step + "ours").c_str(), OurStep, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((step + "meshopt").c_str(), MeshoptStep, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
    }
    for (int threads : {1, 2})
        benchmark::RegisterBenchmark(("remap_threads/" + big->name + "/t" + std::to_string(threads)).c_str(), Ours,
                                     big, threads)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
}

} // namespace zgu_bench
