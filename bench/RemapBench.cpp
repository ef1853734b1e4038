// Smooth-normal remapping against meshoptimizer's vertex welding of the
// (position, normal) corner stream: the step a user who already has per-corner
// normals would take to get one normal per vertex. Ours also computes those
// normals, so a second anchor times the whole pipeline (our normals, then
// meshoptimizer's remap) for reference.

#include "BenchSupport.h"

#include <Rendering/Mesh.h>

#include <benchmark/benchmark.h>
#include <meshoptimizer.h>

#include <memory>
#include <numbers>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

constexpr double CreaseAngle = std::numbers::pi / 4;

struct Corner {
    Point position;
    Point normal;
};
static_assert(sizeof(Corner) == 24);

std::vector<Point> OurNormals(Mesh const& mesh)
{
    return Zorvan::Rendering::CalculateSmoothTriangleVertexNormals(
        Zorvan::Rendering::span<Point const>(mesh.positions),
        Zorvan::Rendering::span<Triangle const>(mesh.triangles), CreaseAngle);
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

void SetCorners(benchmark::State& state, Mesh const& mesh)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(3 * mesh.triangles.size()));
}

void Ours(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::size_t vertices = 0;
    for (auto _ : state) {
        auto remapping = Zorvan::Rendering::CalculateSmoothNormalRemapping(
            Zorvan::Rendering::span<Point const>(mesh->positions),
            Zorvan::Rendering::span<Triangle const>(mesh->triangles), CreaseAngle);
        vertices = remapping.vertices.size();
        benchmark::DoNotOptimize(remapping.remapping.data());
    }
    SetCorners(state, *mesh);
    state.counters["vertices"] = static_cast<double>(vertices);
}

void MeshoptRemap(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::vector<Corner> const corners = CornerStream(*mesh, OurNormals(*mesh));
    std::vector<unsigned int> remap(corners.size());
    std::size_t vertices = 0;
    for (auto _ : state) {
        vertices = meshopt_generateVertexRemap(remap.data(), nullptr, corners.size(), corners.data(), corners.size(),
                                               sizeof(Corner));
        benchmark::DoNotOptimize(remap.data());
    }
    SetCorners(state, *mesh);
    state.counters["vertices"] = static_cast<double>(vertices);
}

void NormalsThenMeshopt(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    std::vector<unsigned int> remap(3 * mesh->triangles.size());
    for (auto _ : state) {
        std::vector<Corner> const corners = CornerStream(*mesh, OurNormals(*mesh));
        meshopt_generateVertexRemap(remap.data(), nullptr, corners.size(), corners.data(), corners.size(),
                                    sizeof(Corner));
        benchmark::DoNotOptimize(remap.data());
    }
    SetCorners(state, *mesh);
}

} // namespace

void RegisterBenchmarks()
{
    std::vector<std::shared_ptr<Mesh const>> meshes;
    meshes.push_back(std::make_shared<Mesh const>(MakeShuffledGrid(256)));
    for (Mesh& mesh : RealMeshes())
        meshes.push_back(std::make_shared<Mesh const>(std::move(mesh)));

    for (auto const& mesh : meshes) {
        std::string const prefix = "remap/" + mesh->name + "/";
        benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((prefix + "meshopt").c_str(), MeshoptRemap, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((prefix + "normals+meshopt").c_str(), NormalsThenMeshopt, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
    }
}

} // namespace zgu_bench
