// The library's Tipsify against the plain oracle over many meshes: every
// written index must match, and nothing may be written past the primitives.

#include "oracles/TipsifyOracle.h"
#include "oracles/Workload.h"

#include <Rendering/Mesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <numeric>
#include <random>
#include <string>
#include <vector>

namespace {

using Indices = std::vector<std::uint16_t>;

constexpr std::uint16_t Caches[] = {1, 2, 6, 12, 16, 24, 32, 64};

// Both outputs start as the same sentinel and have room for a few entries
// more than the input, so a stray write or a missing one shows as well.
void ExpectSameAsOracle(Indices const& indices, unsigned vertexCount, unsigned primitiveSize, std::uint16_t cache,
                        std::string const& what)
{
    Indices ours(indices.size() + 4, 0xBEEF);
    Indices oracle(indices.size() + 4, 0xBEEF);
    auto const count = static_cast<unsigned>(indices.size());
    Zorvan::Rendering::Tipsify(indices.data(), ours.data(), count, vertexCount, primitiveSize, cache);
    Oracles::Tipsify(indices.data(), oracle.data(), count, vertexCount, primitiveSize, cache);
    ASSERT_EQ(ours, oracle) << what << ", " << vertexCount << " vertices, primitive size " << primitiveSize
                            << ", cache " << cache;
}

void ExpectSameAsOracleForEveryCache(Indices const& indices, unsigned vertexCount, unsigned primitiveSize,
                                     std::string const& what)
{
    // Sanitized builds take every other cache size on large meshes.
    std::size_t const stride = indices.size() > 30000 ? Oracles::SweepStride(2) : 1;
    for (std::size_t c = 0; c < std::size(Caches); c += stride)
        ExpectSameAsOracle(indices, vertexCount, primitiveSize, Caches[c], what);
}

Indices RandomPrimitives(std::mt19937& rng, unsigned firstVertex, unsigned vertexCount, std::size_t primitives,
                         unsigned primitiveSize)
{
    std::uniform_int_distribution<unsigned> pick(firstVertex, vertexCount - 1);
    Indices indices(primitives * primitiveSize);
    for (auto& v : indices)
        v = static_cast<std::uint16_t>(pick(rng));
    return indices;
}

// side x side vertices, two triangles per cell, in row order or shuffled.
Indices Grid(std::mt19937& rng, unsigned side, bool shuffled)
{
    std::vector<std::array<std::uint16_t, 3>> triangles;
    auto at = [side](unsigned x, unsigned y) { return static_cast<std::uint16_t>(y * side + x); };
    for (unsigned y = 0; y + 1 < side; ++y)
        for (unsigned x = 0; x + 1 < side; ++x) {
            triangles.push_back({at(x, y), at(x + 1, y), at(x, y + 1)});
            triangles.push_back({at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
        }
    if (shuffled)
        std::shuffle(triangles.begin(), triangles.end(), rng);
    Indices indices;
    for (auto const& t : triangles)
        indices.insert(indices.end(), t.begin(), t.end());
    return indices;
}

} // namespace

TEST(TipsifyDifferential, RandomPrimitivesOfEverySize)
{
    std::mt19937 rng(1301);
    unsigned const stride = Oracles::SweepStride(3);
    unsigned round = 0;
    for (unsigned primitiveSize : {1u, 2u, 3u, 4u})
        for (unsigned vertexCount : {1u, 3u, 17u, 200u, 3000u})
            for (std::size_t primitives : {std::size_t{1}, std::size_t{9}, std::size_t{700}, std::size_t{5000}}) {
                if (round++ % stride != 0)
                    continue;
                // Few vertices and many primitives make repeated corners and
                // fully degenerate primitives common.
                Indices const indices = RandomPrimitives(rng, 0, vertexCount, primitives, primitiveSize);
                ExpectSameAsOracleForEveryCache(indices, vertexCount, primitiveSize, "random");
                if (vertexCount > 1) {
                    // Vertex 0 unused: the first fan is empty.
                    Indices const skipZero = RandomPrimitives(rng, 1, vertexCount, primitives, primitiveSize);
                    ExpectSameAsOracleForEveryCache(skipZero, vertexCount, primitiveSize, "vertex 0 unused");
                }
            }
}

TEST(TipsifyDifferential, GridsInOrderAndShuffledWithDegenerates)
{
    std::mt19937 rng(2007);
    for (unsigned side : {2u, 5u, 40u, 128u}) {
        for (bool shuffled : {false, true})
            ExpectSameAsOracleForEveryCache(Grid(rng, side, shuffled), side * side, 3,
                                            shuffled ? "shuffled grid" : "grid");
        // Sprinkle degenerate triangles (a, a, b) and (a, a, a) over a
        // shuffled grid, plus vertices past the last one used.
        Indices indices = Grid(rng, side, true);
        std::uniform_int_distribution<unsigned> pick(0, side * side - 1);
        for (int n = 0; n < 50; ++n) {
            auto const a = static_cast<std::uint16_t>(pick(rng));
            auto const b = static_cast<std::uint16_t>(pick(rng));
            auto const at = static_cast<std::ptrdiff_t>(3 * (pick(rng) % (indices.size() / 3)));
            std::array<std::uint16_t, 3> const degenerate = n % 2 == 0 ? std::array{a, a, b} : std::array{a, a, a};
            indices.insert(indices.begin() + at, degenerate.begin(), degenerate.end());
        }
        ExpectSameAsOracleForEveryCache(indices, side * side + 100, 3, "grid with degenerates");
    }
}

TEST(TipsifyDifferential, LargestSixteenBitMeshes)
{
    std::mt19937 rng(65535);
    unsigned const stride = Oracles::SweepStride(4);
    // 256 x 256 vertices use every 16-bit index; the random mesh reaches the
    // top index too and has fans of dozens of primitives.
    Indices const grid = Grid(rng, 256, true);
    Indices random = RandomPrimitives(rng, 0, 65536, Oracles::Sanitized ? 60000 : 200000, 3);
    random[7] = 65535;
    for (std::size_t c = 0; c < std::size(Caches); c += stride) {
        ExpectSameAsOracle(grid, 65536, 3, Caches[c], "grid 256");
        ExpectSameAsOracle(random, 65536, 3, Caches[c], "random");
    }
    // Vertex numbers above the largest index only cost the scan.
    ExpectSameAsOracle(grid, 200000, 3, 16, "grid 256 with unused vertices");
    // Caches far larger than any fan: every score is its age.
    ExpectSameAsOracle(grid, 65536, 3, 65535, "grid 256");
    ExpectSameAsOracle(random, 65536, 3, 1000, "random");
}
