// Crease-aware per-corner normals against Assimp's smooth-normal step with the
// same crease angle on the same mesh, and our scaling from one to two threads.
//
// Assimp's step works on "verbose" meshes (one vertex per corner) and blends
// corners by position; ours works on the indexed mesh and blends by index. Both
// produce one normal per corner of the same triangles, so the mesh is handed to
// Assimp with its corners unshared (read once from an in-memory binary PLY) and
// only the post-processing step is timed.

#include "BenchSupport.h"

#include <Rendering/Mesh.h>

#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <benchmark/benchmark.h>
#include <oneapi/tbb/global_control.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <stdexcept>
#include <string>
#include <vector>

namespace zgu_bench {
namespace {

constexpr double CreaseAngle = std::numbers::pi / 4; // 45 degrees

std::vector<Point> OurNormals(Mesh const& mesh)
{
    return Zorvan::Rendering::CalculateSmoothTriangleVertexNormals(
        Zorvan::Rendering::span<Point const>(mesh.positions),
        Zorvan::Rendering::span<Triangle const>(mesh.triangles), CreaseAngle);
}

template <typename T>
void Append(std::string& bytes, T const& value)
{
    char raw[sizeof(T)];
    std::memcpy(raw, &value, sizeof(T));
    bytes.append(raw, sizeof(T));
}

// Binary PLY with every corner its own vertex, positions bit-exact.
std::string VerbosePly(Mesh const& mesh)
{
    std::size_t const corners = mesh.triangles.size() * 3;
    std::string ply = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(corners) +
                      "\nproperty float x\nproperty float y\nproperty float z\nelement face " +
                      std::to_string(mesh.triangles.size()) + "\nproperty list uchar int vertex_indices\nend_header\n";
    for (Triangle const& t : mesh.triangles)
        for (std::uint32_t v : t)
            for (float c : mesh.positions[v].coords)
                Append(ply, c);
    for (std::size_t t = 0; t < mesh.triangles.size(); ++t) {
        Append(ply, std::uint8_t{3});
        for (int k = 0; k < 3; ++k)
            Append(ply, static_cast<std::int32_t>(3 * t + static_cast<std::size_t>(k)));
    }
    return ply;
}

std::unique_ptr<Assimp::Importer> AssimpScene(Mesh const& mesh)
{
    auto importer = std::make_unique<Assimp::Importer>();
    importer->SetPropertyFloat(AI_CONFIG_PP_GSN_MAX_SMOOTHING_ANGLE,
                               static_cast<float>(CreaseAngle * 180.0 / std::numbers::pi));
    std::string const ply = VerbosePly(mesh);
    aiScene const* scene = importer->ReadFileFromMemory(ply.data(), ply.size(), 0, "ply");
    if (scene == nullptr || scene->mNumMeshes != 1 || scene->mMeshes[0]->mNumVertices != 3 * mesh.triangles.size() ||
        scene->mMeshes[0]->mNumFaces != mesh.triangles.size())
        throw std::runtime_error("Assimp did not read the verbose mesh back as it was written: " +
                                 std::string(importer->GetErrorString()));
    return importer;
}

// Share of corners whose normals agree to within about 2.5 degrees: Assimp
// weights faces equally and ours by area, so they differ where faces of very
// different size meet, and this shows the two solve the same problem.
double Agreement(std::vector<Point> const& ours, aiMesh const& assimp)
{
    std::size_t agree = 0;
    for (std::size_t c = 0; c < ours.size(); ++c) {
        aiVector3D const& n = assimp.mNormals[c];
        double const dot = double{ours[c][0]} * n.x + double{ours[c][1]} * n.y + double{ours[c][2]} * n.z;
        agree += dot > 0.999 ? 1 : 0;
    }
    return static_cast<double>(agree) / static_cast<double>(ours.size());
}

void SetTriangles(benchmark::State& state, Mesh const& mesh)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(mesh.triangles.size()));
}

void Ours(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh, int threads)
{
    std::unique_ptr<tbb::global_control> limit;
    if (threads > 0)
        limit = std::make_unique<tbb::global_control>(tbb::global_control::max_allowed_parallelism,
                                                      static_cast<std::size_t>(threads));
    for (auto _ : state) {
        auto normals = OurNormals(*mesh);
        benchmark::DoNotOptimize(normals.data());
    }
    SetTriangles(state, *mesh);
}

void WithAssimp(benchmark::State& state, std::shared_ptr<Mesh const> const& mesh)
{
    auto const importer = AssimpScene(*mesh);
    for (auto _ : state) {
        aiScene const* scene = importer->ApplyPostProcessing(aiProcess_GenSmoothNormals | aiProcess_ForceGenNormals);
        if (scene == nullptr || scene->mMeshes[0]->mNormals == nullptr) {
            state.SkipWithError("Assimp generated no normals");
            return;
        }
        benchmark::DoNotOptimize(scene->mMeshes[0]->mNormals);
    }
    SetTriangles(state, *mesh);
    state.counters["agree"] = Agreement(OurNormals(*mesh), *importer->GetScene()->mMeshes[0]);
}

} // namespace

void RegisterBenchmarks()
{
    std::vector<std::shared_ptr<Mesh const>> meshes;
    meshes.push_back(std::make_shared<Mesh const>(MakeShuffledGrid(256)));
    for (Mesh& mesh : RealMeshes())
        meshes.push_back(std::make_shared<Mesh const>(std::move(mesh)));

    for (auto const& mesh : meshes) {
        std::string const prefix = "normals/" + mesh->name + "/";
        benchmark::RegisterBenchmark((prefix + "ours").c_str(), Ours, mesh, 0)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((prefix + "ours_1thread").c_str(), Ours, mesh, 1)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((prefix + "assimp").c_str(), WithAssimp, mesh)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
    }

    // 710 x 710 vertices: 1,005,362 triangles.
    auto const big = std::make_shared<Mesh const>(MakeShuffledGrid(710));
    for (int threads : {1, 2})
        benchmark::RegisterBenchmark(("normals_threads/" + big->name + "/t" + std::to_string(threads)).c_str(), Ours,
                                     big, threads)
            ->UseRealTime()->Unit(benchmark::kMillisecond);
}

} // namespace zgu_bench
