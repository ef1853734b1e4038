#include "BenchSupport.h"

#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <numeric>
#include <random>

namespace zgu_bench {
namespace {

// Appended piecewise: operator+ chains on std::string trip a false -Wrestrict in g++ 12.
void NameTriangleCount(Mesh& mesh)
{
    mesh.name.append("_").append(std::to_string(mesh.triangles.size())).append("t");
}

} // namespace

Mesh MakeShuffledGrid(unsigned int side)
{
    Mesh mesh;
    mesh.name = "grid";
    mesh.name.append(std::to_string(side));
    std::size_t const n = std::size_t{side} * side;

    std::mt19937_64 random(0x5EED0000u + side);
    std::vector<std::uint32_t> number(n);
    std::iota(number.begin(), number.end(), 0u);
    std::shuffle(number.begin(), number.end(), random);

    mesh.positions.resize(n);
    for (unsigned int y = 0; y < side; ++y)
        for (unsigned int x = 0; x < side; ++x) {
            float const fx = static_cast<float>(x) * 0.1f;
            float const fy = static_cast<float>(y) * 0.1f;
            float const h = 0.5f * std::fabs(std::sin(3.5f * fx)) + 0.25f * std::cos(6.0f * fy);
            mesh.positions[number[std::size_t{y} * side + x]] = Point{{fx, fy, h}};
        }

    mesh.triangles.reserve(2 * std::size_t{side - 1} * (side - 1));
    for (unsigned int y = 0; y + 1 < side; ++y)
        for (unsigned int x = 0; x + 1 < side; ++x) {
            std::uint32_t const a = number[std::size_t{y} * side + x];
            std::uint32_t const b = number[std::size_t{y} * side + x + 1];
            std::uint32_t const c = number[std::size_t{y + 1} * side + x];
            std::uint32_t const d = number[std::size_t{y + 1} * side + x + 1];
            mesh.triangles.push_back({a, b, d});
            mesh.triangles.push_back({a, d, c});
        }
    std::shuffle(mesh.triangles.begin(), mesh.triangles.end(), random);
    NameTriangleCount(mesh);
    return mesh;
}

Mesh MakeShuffledHeightField(unsigned int side)
{
    Mesh mesh;
    mesh.name = "field";
    mesh.name.append(std::to_string(side));
    std::size_t const n = std::size_t{side} * side;

    std::mt19937_64 random(0xF1E1D000u + side);
    std::vector<std::uint32_t> number(n);
    std::iota(number.begin(), number.end(), 0u);
    std::shuffle(number.begin(), number.end(), random);

    // Gentle hills over a square of side 10: neighbouring faces differ by
    // well under a degree.
    mesh.positions.resize(n);
    float const step = 10.0f / static_cast<float>(side - 1);
    for (unsigned int y = 0; y < side; ++y)
        for (unsigned int x = 0; x < side; ++x) {
            float const fx = static_cast<float>(x) * step;
            float const fy = static_cast<float>(y) * step;
            float const h = 0.6f * std::sin(0.9f * fx) * std::cos(0.7f * fy);
            mesh.positions[number[std::size_t{y} * side + x]] = Point{{fx, fy, h}};
        }

    mesh.triangles.reserve(2 * std::size_t{side - 1} * (side - 1));
    for (unsigned int y = 0; y + 1 < side; ++y)
        for (unsigned int x = 0; x + 1 < side; ++x) {
            std::uint32_t const a = number[std::size_t{y} * side + x];
            std::uint32_t const b = number[std::size_t{y} * side + x + 1];
            std::uint32_t const c = number[std::size_t{y + 1} * side + x];
            std::uint32_t const d = number[std::size_t{y + 1} * side + x + 1];
            mesh.triangles.push_back({a, b, d});
            mesh.triangles.push_back({a, d, c});
        }
    std::shuffle(mesh.triangles.begin(), mesh.triangles.end(), random);
    NameTriangleCount(mesh);
    return mesh;
}

std::string DataDirectory()
{
    if (char const* dir = std::getenv("ZGU_BENCH_DATA"); dir != nullptr && *dir != '\0')
        return dir;
    return ZGU_BENCH_DATA_DIR;
}

std::optional<Mesh> LoadMesh(std::string const& fileName)
{
    std::filesystem::path const path = std::filesystem::path(DataDirectory()) / fileName;
    if (!std::filesystem::exists(path)) {
        std::cerr << "note: " << path.string() << " is missing (run scripts/bench to fetch it); skipped\n";
        return std::nullopt;
    }
    // Welding by position restores the shared vertices that loaders split per face.
    Assimp::Importer importer;
    aiScene const* scene = importer.ReadFile(path.string(), aiProcess_Triangulate | aiProcess_JoinIdenticalVertices |
                                                                aiProcess_SortByPType);
    if (scene == nullptr || scene->mNumMeshes == 0) {
        std::cerr << "note: cannot read " << path.string() << ": " << importer.GetErrorString() << "; skipped\n";
        return std::nullopt;
    }
    Mesh mesh;
    mesh.name = path.stem().string();
    for (unsigned int m = 0; m < scene->mNumMeshes; ++m) {
        aiMesh const& part = *scene->mMeshes[m];
        auto const base = static_cast<std::uint32_t>(mesh.positions.size());
        for (unsigned int v = 0; v < part.mNumVertices; ++v)
            mesh.positions.push_back(Point{{part.mVertices[v].x, part.mVertices[v].y, part.mVertices[v].z}});
        for (unsigned int f = 0; f < part.mNumFaces; ++f) {
            aiFace const& face = part.mFaces[f];
            if (face.mNumIndices == 3)
                mesh.triangles.push_back({base + face.mIndices[0], base + face.mIndices[1], base + face.mIndices[2]});
        }
    }
    NameTriangleCount(mesh);
    return mesh;
}

std::vector<Mesh> RealMeshes()
{
    std::vector<Mesh> meshes;
    for (char const* file : {"bunny.obj", "Wuson.off"})
        if (auto mesh = LoadMesh(file))
            meshes.push_back(std::move(*mesh));
    return meshes;
}

} // namespace zgu_bench
