#pragma once

// What every benchmark executable shares: the meshes they run on
// (procedurally generated shuffled grids of any size, always available, and
// real meshes that scripts/bench fetches into bench/data, skipped when
// absent) and the registration hook of the common main.

#include <Rendering/Core.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zgu_bench {

using Point = Zorvan::Math::point<float, 3>;
using Triangle = std::array<std::uint32_t, 3>;

struct Mesh {
    std::string name;
    std::vector<Point> positions;
    std::vector<Triangle> triangles;
};

// side x side vertices of a height field with creases (an |sin| ridge pattern),
// vertex numbers and triangle order shuffled with a fixed seed so that the
// input has no locality to start from.
Mesh MakeShuffledGrid(unsigned int side);

// side x side vertices of a smooth height field (no creases, so normals
// remapping keeps every vertex), vertex numbers and triangle order shuffled
// with a fixed seed.
Mesh MakeShuffledHeightField(unsigned int side);

// Folder holding fetched meshes: $ZGU_BENCH_DATA, else bench/data of the source tree.
std::string DataDirectory();

// Triangulated, position-welded mesh from a file of the data folder, or
// nothing (with a note on stderr) when the file is missing or unreadable.
std::optional<Mesh> LoadMesh(std::string const& fileName);

// The real meshes that are present: the Stanford bunny and Wuson.
std::vector<Mesh> RealMeshes();

// Registers every benchmark of one executable; called by the shared main.
void RegisterBenchmarks();

} // namespace zgu_bench
