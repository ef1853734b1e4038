#include <Rendering/Mesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <random>
#include <set>
#include <vector>

using namespace Zorvan::Rendering;

namespace {

using Indices = std::vector<std::uint16_t>;

Indices Reorder(Indices const& indices, unsigned vertexCount, std::uint16_t cacheSize, unsigned primitiveSize = 3)
{
    Indices result(indices.size(), 0xBEEF);
    Tipsify(indices.data(), result.data(), static_cast<unsigned>(indices.size()), vertexCount, primitiveSize,
            cacheSize);
    return result;
}

// Random meshes: either uniformly random primitives, or a shuffled grid of
// triangles, the kind of locality real meshes have.
Indices RandomPrimitives(std::mt19937& rng, unsigned vertexCount, std::size_t primitives, unsigned primitiveSize)
{
    std::uniform_int_distribution<unsigned> pick(0, vertexCount - 1);
    Indices indices(primitives * primitiveSize);
    for (auto& v : indices)
        v = static_cast<std::uint16_t>(pick(rng));
    return indices;
}

Indices ShuffledGrid(std::mt19937& rng, unsigned side)
{
    std::vector<std::array<std::uint16_t, 3>> triangles;
    for (unsigned y = 0; y + 1 < side; ++y)
        for (unsigned x = 0; x + 1 < side; ++x) {
            auto at = [side](unsigned i, unsigned j) { return static_cast<std::uint16_t>(j * side + i); };
            triangles.push_back({at(x, y), at(x + 1, y), at(x, y + 1)});
            triangles.push_back({at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
        }
    std::shuffle(triangles.begin(), triangles.end(), rng);
    Indices indices;
    for (auto const& t : triangles)
        indices.insert(indices.end(), t.begin(), t.end());
    return indices;
}

std::multiset<Indices> Primitives(Indices const& indices, unsigned primitiveSize)
{
    std::multiset<Indices> set;
    for (std::size_t t = 0; t + primitiveSize <= indices.size(); t += primitiveSize)
        set.insert(Indices(indices.begin() + static_cast<long>(t), indices.begin() + static_cast<long>(t + primitiveSize)));
    return set;
}

} // namespace

TEST(Tipsify, InvalidArgumentsWriteNothing)
{
    Indices const indices{0, 1, 2};
    Indices result(3, 7);
    Tipsify(nullptr, result.data(), 3, 3, 3, 16);
    Tipsify(indices.data(), nullptr, 3, 3, 3, 16);
    Tipsify(indices.data(), result.data(), 0, 3, 3, 16);
    Tipsify(indices.data(), result.data(), 3, 0, 3, 16);
    Tipsify(indices.data(), result.data(), 3, 3, 0, 16);
    Tipsify(indices.data(), result.data(), 3, 3, 3, 0);
    EXPECT_EQ(result, (Indices{7, 7, 7}));
}

TEST(Tipsify, HandCheckedOrders)
{
    EXPECT_EQ(Reorder({0, 1, 2}, 3, 16), (Indices{0, 1, 2}));
    // Vertex 0 unused: the first fan is empty and the scan starts at vertex 1.
    EXPECT_EQ(Reorder({3, 2, 4, 1, 2, 3}, 5, 16), (Indices{1, 2, 3, 3, 2, 4}));
    // A repeated corner is written twice and lowers the live count twice; were
    // it lowered once, vertex 0 would stay live forever.
    EXPECT_EQ(Reorder({0, 0, 1}, 2, 16), (Indices{0, 0, 1}));
}

TEST(Tipsify, ScoreFavoursTheOldestCachedVertexUnlessTheCacheIsTiny)
{
    Indices const mesh{0, 2, 1, 2, 4, 3, 1, 3, 5};
    // After the first triangle, 2 entered the cache before 1 and wins.
    EXPECT_EQ(Reorder(mesh, 6, 16), (Indices{0, 2, 1, 2, 4, 3, 1, 3, 5}));
    // With one cache entry every score is 0; the lowest vertex wins the tie.
    EXPECT_EQ(Reorder(mesh, 6, 1), (Indices{0, 2, 1, 1, 3, 5, 2, 4, 3}));
}

TEST(Tipsify, DeadEndStackComesBeforeTheScan)
{
    // After fanning 0 then 1, every candidate is dead; the stack yields 7
    // although the scan would have found 2 first.
    Indices const mesh{0, 1, 7, 1, 3, 4, 7, 5, 6, 2, 8, 9};
    EXPECT_EQ(Reorder(mesh, 10, 16), (Indices{0, 1, 7, 1, 3, 4, 7, 5, 6, 2, 8, 9}));
}

// Exact orders are checked against the plain oracle in tests/internal; here
// only what any correct reordering must keep.
TEST(Tipsify, EveryPrimitiveOnceWithItsCornersInOrder)
{
    std::mt19937 rng(20070805);
    for (unsigned primitiveSize : {2u, 3u, 4u}) {
        Indices const indices = RandomPrimitives(rng, 300, 700, primitiveSize);
        for (std::uint16_t cache : {1, 16, 1000}) {
            Indices const result = Reorder(indices, 300, cache, primitiveSize);
            EXPECT_EQ(Primitives(result, primitiveSize), Primitives(indices, primitiveSize))
                << "primitive size " << primitiveSize << ", cache " << cache;
        }
    }
    Indices const grid = ShuffledGrid(rng, 100);
    EXPECT_EQ(Primitives(Reorder(grid, 100 * 100, 24), 3), Primitives(grid, 3));
}

TEST(Tipsify, PointListsReorderLikeOneCornerPrimitives)
{
    Indices const points{4, 2, 2, 0, 1, 3};
    Indices const result = Reorder(points, 5, 16, 1);
    EXPECT_EQ(result, (Indices{0, 1, 2, 2, 3, 4}));
}
