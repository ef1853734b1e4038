#include <Rendering/Mesh.h>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <vector>

using namespace Zorvan::Rendering;

namespace {

using Point = Zorvan::Math::point<float, 3>;
using Triangle = std::array<std::uint32_t, 3>;

struct Mesh {
    std::vector<Point> positions;
    std::vector<Triangle> triangles;
};

// A smooth height field of side x side vertices whose vertex numbers and
// triangle order are shuffled, so the input order has no locality at all.
Mesh ShuffledHeightField(unsigned side, std::uint32_t seed)
{
    std::mt19937 rng(seed);
    std::vector<std::uint32_t> number(std::size_t{side} * side);
    std::iota(number.begin(), number.end(), 0u);
    std::shuffle(number.begin(), number.end(), rng);
    Mesh mesh;
    mesh.positions.resize(number.size());
    for (unsigned y = 0; y < side; ++y)
        for (unsigned x = 0; x < side; ++x)
            mesh.positions[number[y * side + x]] = {
                {float(x), float(y), 4.0f * std::sin(0.05f * float(x)) * std::cos(0.04f * float(y))}};
    for (unsigned y = 0; y + 1 < side; ++y)
        for (unsigned x = 0; x + 1 < side; ++x) {
            std::uint32_t const a = number[y * side + x], b = number[y * side + x + 1];
            std::uint32_t const c = number[(y + 1) * side + x], d = number[(y + 1) * side + x + 1];
            mesh.triangles.push_back({a, b, d});
            mesh.triangles.push_back({a, d, c});
        }
    std::shuffle(mesh.triangles.begin(), mesh.triangles.end(), rng);
    return mesh;
}

std::vector<Submesh> Split(Mesh const& mesh, std::uint16_t cacheSize)
{
    return SplitInto16BitSubmeshes(span<Point const>(mesh.positions), span<Triangle const>(mesh.triangles),
                                   cacheSize);
}

std::size_t VertexCount(std::vector<Submesh> const& submeshes)
{
    std::size_t count = 0;
    for (Submesh const& s : submeshes)
        count += s.vertices.size();
    return count;
}

// The contract every split must keep, whatever the input: submeshes within
// the 16-bit limit, local vertices distinct and numbered by first use, and
// every source triangle exactly once with its corners unrotated.
void ExpectFaithfulSplit(Mesh const& mesh, std::vector<Submesh> const& submeshes)
{
    std::vector<Triangle> expected = mesh.triangles;
    std::vector<Triangle> actual;
    for (std::size_t s = 0; s < submeshes.size(); ++s) {
        SCOPED_TRACE(s);
        Submesh const& sub = submeshes[s];
        ASSERT_LE(sub.vertices.size(), MaxSubmeshVertexCount);
        ASSERT_EQ(sub.indices.size() % 3, 0u);
        ASSERT_FALSE(sub.indices.empty());
        std::uint32_t nextUnseen = 0;
        for (std::uint16_t i : sub.indices) {
            ASSERT_LE(i, nextUnseen) << "local vertices are not numbered in order of first use";
            nextUnseen = std::max<std::uint32_t>(nextUnseen, i + 1u);
        }
        EXPECT_EQ(nextUnseen, sub.vertices.size()) << "a local vertex no triangle uses";
        EXPECT_EQ(std::set<std::uint32_t>(sub.vertices.begin(), sub.vertices.end()).size(), sub.vertices.size());
        for (std::size_t k = 0; k < sub.indices.size(); k += 3)
            actual.push_back({sub.vertices[sub.indices[k]], sub.vertices[sub.indices[k + 1]],
                              sub.vertices[sub.indices[k + 2]]});
    }
    std::sort(expected.begin(), expected.end());
    std::sort(actual.begin(), actual.end());
    EXPECT_TRUE(actual == expected) << "triangles lost, duplicated or rotated";
}

TEST(SplitInto16BitSubmeshes, ShuffledHeightFieldKeepsLocalityAndCacheEfficiency)
{
    // 160,000 vertices: at least three submeshes. Cutting in input order
    // would store each vertex in about as many submeshes as its six
    // triangles reach, with ACMR near 3.
    Mesh const mesh = ShuffledHeightField(400, 7);
    std::vector<Submesh> const submeshes = Split(mesh, 16);
    ExpectFaithfulSplit(mesh, submeshes);
    EXPECT_GE(submeshes.size(), 3u);
    EXPECT_LE(double(VertexCount(submeshes)) / double(mesh.positions.size()), 1.05);
    VertexCacheStatistics const stats = AnalyzeFifoVertexCache(span<Submesh const>(submeshes), 16);
    EXPECT_LE(stats.acmr, 0.75);

    // Without Tipsify the spatial order alone already keeps the vertices
    // together; it is the cache efficiency that Tipsify adds.
    std::vector<Submesh> const unordered = Split(mesh, 0);
    ExpectFaithfulSplit(mesh, unordered);
    EXPECT_EQ(VertexCount(unordered), VertexCount(submeshes));
    EXPECT_GT(AnalyzeFifoVertexCache(span<Submesh const>(unordered), 16).acmr, stats.acmr + 0.2);
}

TEST(SplitInto16BitSubmeshes, ResultDoesNotDependOnTheThreadCountOrTheOverload)
{
    Mesh const mesh = ShuffledHeightField(270, 11);
    std::vector<std::uint32_t> flat;
    for (Triangle const& t : mesh.triangles)
        flat.insert(flat.end(), t.begin(), t.end());
    flat.push_back(0); // a trailing partial triangle is ignored
    std::vector<Zorvan::Math::point<double, 3>> doubles;
    for (Point const& p : mesh.positions)
        doubles.push_back({{p[0], p[1], p[2]}});
    span<VertexP const> const vertices(reinterpret_cast<VertexP const*>(mesh.positions.data()), mesh.positions.size());

    std::vector<Submesh> reference;
    {
        tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 1);
        reference = Split(mesh, 16);
    }
    ASSERT_GE(reference.size(), 2u);
    for (std::size_t threads : {std::size_t(tbb::info::default_concurrency()), std::size_t{4}}) {
        tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
        EXPECT_TRUE(Split(mesh, 16) == reference) << threads << " threads";
    }
    EXPECT_TRUE(SplitInto16BitSubmeshes(span<Point const>(mesh.positions), span<std::uint32_t const>(flat), 16) ==
                reference);
    EXPECT_TRUE(SplitInto16BitSubmeshes(vertices, span<Triangle const>(mesh.triangles), 16) == reference);
    EXPECT_TRUE(SplitInto16BitSubmeshes(vertices, span<std::uint32_t const>(flat), 16) == reference);
    EXPECT_TRUE(SplitInto16BitSubmeshes(span<Zorvan::Math::point<double, 3> const>(doubles),
                                        span<Triangle const>(mesh.triangles), 16) == reference);
}

// Disjoint triangles bring three new vertices each: 21,845 of them fill a
// submesh to exactly 65,535 vertices.
Mesh DisjointTriangles(std::size_t count)
{
    Mesh mesh;
    for (std::size_t t = 0; t < count; ++t) {
        auto const v = static_cast<std::uint32_t>(mesh.positions.size());
        float const x = float(t % 200), y = float(t / 200);
        mesh.positions.insert(mesh.positions.end(), {{{x, y, 0}}, {{x + 0.5f, y, 0}}, {{x, y + 0.5f, 0}}});
        mesh.triangles.push_back({v, v + 1, v + 2});
    }
    return mesh;
}

TEST(SplitInto16BitSubmeshes, SubmeshesFillUpToExactlyTheLimit)
{
    Mesh const full = DisjointTriangles(MaxSubmeshVertexCount / 3);
    std::vector<Submesh> const one = Split(full, 16);
    ASSERT_EQ(one.size(), 1u);
    EXPECT_EQ(one[0].vertices.size(), MaxSubmeshVertexCount);
    ExpectFaithfulSplit(full, one);

    Mesh const over = DisjointTriangles(MaxSubmeshVertexCount / 3 + 1);
    std::vector<Submesh> const two = Split(over, 16);
    ASSERT_EQ(two.size(), 2u);
    EXPECT_EQ(two[0].vertices.size(), MaxSubmeshVertexCount);
    EXPECT_EQ(two[1].vertices.size(), 3u);
    ExpectFaithfulSplit(over, two);
}

TEST(SplitInto16BitSubmeshes, SmallMeshIsOneSubmeshOfItsUsedVertices)
{
    // Vertex 1 is unused, triangle (3, 3, 0) repeats a vertex.
    Mesh const mesh{{{{0, 0, 0}}, {{9, 9, 9}}, {{1, 0, 0}}, {{0, 1, 0}}, {{1, 1, 0}}},
                    {{4, 2, 3}, {0, 2, 3}, {3, 3, 0}}};
    std::vector<Submesh> const kept = Split(mesh, 0);
    ASSERT_EQ(kept.size(), 1u);
    // Without Tipsify, the input order with vertices numbered by first use.
    EXPECT_EQ(kept[0].vertices, (std::vector<std::uint32_t>{4, 2, 3, 0}));
    EXPECT_EQ(kept[0].indices, (std::vector<std::uint16_t>{0, 1, 2, 3, 1, 2, 2, 2, 3}));

    std::vector<Submesh> const reordered = Split(mesh, 16);
    ASSERT_EQ(reordered.size(), 1u);
    ExpectFaithfulSplit(mesh, reordered);
}

TEST(SplitInto16BitSubmeshes, NonFiniteCentroidsComeLast)
{
    Mesh mesh = ShuffledHeightField(280, 3);
    float const bad[] = {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity(),
                         -std::numeric_limits<float>::infinity()};
    std::set<std::uint32_t> poisoned;
    for (std::uint32_t v = 0; v < 600; v += 3) {
        mesh.positions[v][v % 3] = bad[(v / 3) % 3];
        poisoned.insert(v);
    }
    std::vector<Submesh> const submeshes = Split(mesh, 16);
    ExpectFaithfulSplit(mesh, submeshes);
    ASSERT_GE(submeshes.size(), 2u);

    // Every triangle touching a poisoned vertex sits in the last submesh(es):
    // once one appears, only such triangles follow.
    bool seenPoisoned = false;
    for (Submesh const& sub : submeshes) {
        bool allPoisoned = true;
        bool anyPoisoned = false;
        for (std::size_t k = 0; k < sub.indices.size(); k += 3) {
            bool const p = poisoned.count(sub.vertices[sub.indices[k]]) + poisoned.count(sub.vertices[sub.indices[k + 1]]) +
                               poisoned.count(sub.vertices[sub.indices[k + 2]]) >
                           0;
            allPoisoned = allPoisoned && p;
            anyPoisoned = anyPoisoned || p;
        }
        if (seenPoisoned) {
            EXPECT_TRUE(allPoisoned);
        }
        seenPoisoned = seenPoisoned || anyPoisoned;
    }
    EXPECT_TRUE(seenPoisoned);
}

TEST(SplitInto16BitSubmeshes, BadInputGivesNoSubmesh)
{
    Mesh const mesh{{{{0, 0, 0}}, {{1, 0, 0}}, {{0, 1, 0}}}, {{0, 1, 2}, {0, 2, 3}}};
    EXPECT_TRUE(Split(mesh, 16).empty()) << "index 3 is out of range";
    EXPECT_TRUE(Split(Mesh{mesh.positions, {}}, 16).empty());
    std::vector<std::uint32_t> const partial{0, 1};
    EXPECT_TRUE(SplitInto16BitSubmeshes(span<Point const>(mesh.positions), span<std::uint32_t const>(partial), 16)
                    .empty());
}

} // namespace
