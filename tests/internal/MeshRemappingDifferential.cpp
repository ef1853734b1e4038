// The remapping against the plain oracle: the whole job on real geometry for
// every position and index type, the grouping step alone on crafted normals
// (signed zeros, NaN in any component, infinities), and the same result on
// every run and thread count for meshes full of zero-area triangles.

#include "oracles/RemapOracle.h"
#include "oracles/Workload.h"

#include "mesh/Remapping.h"

#include <Rendering/Mesh.h>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <limits>
#include <numbers>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using Zorvan::Math::point;
using Normal = point<float, 3>;

template <typename T, typename I>
struct Mesh {
    std::vector<point<T, 3>> positions;
    std::vector<std::array<I, 3>> triangles;
};

template <typename I>
void ExpectSame(SmoothNormalRemapping<I> const& actual, SmoothNormalRemapping<I> const& expected,
                std::string const& what)
{
    ASSERT_EQ(actual.remapping, expected.remapping) << what;
    ASSERT_EQ(actual.vertices, expected.vertices) << what;
    ASSERT_EQ(actual.normals.size(), expected.normals.size()) << what;
    for (std::size_t v = 0; v < actual.normals.size(); ++v)
        for (std::size_t c = 0; c < 3; ++c)
            ASSERT_EQ(std::bit_cast<std::uint32_t>(actual.normals[v][c]),
                      std::bit_cast<std::uint32_t>(expected.normals[v][c]))
                << what << ", new vertex " << v << ", component " << c;
}

// A height field of side x side vertices, flat in places (so that many
// normals are exactly (0, 0, 1), some components -0), with shuffled
// triangles, zero-area triangles (repeated and collinear corners) and,
// optionally, vertex 0 left unused.
template <typename T, typename I>
Mesh<T, I> Terrain(std::mt19937& rng, unsigned side, std::size_t degenerates, bool skipVertexZero)
{
    std::uniform_real_distribution<double> bump(-0.5, 0.5);
    std::bernoulli_distribution flat(0.4);
    I const base = skipVertexZero ? 1 : 0;
    Mesh<T, I> m;
    if (skipVertexZero)
        m.positions.push_back({{T(-5), T(-5), T(-5)}});
    for (unsigned y = 0; y < side; ++y)
        for (unsigned x = 0; x < side; ++x)
            m.positions.push_back({{T(x), T(y), flat(rng) ? T(0) : T(bump(rng))}});
    auto at = [&](unsigned x, unsigned y) { return I(base + y * side + x); };
    for (unsigned y = 0; y + 1 < side; ++y)
        for (unsigned x = 0; x + 1 < side; ++x) {
            m.triangles.push_back({at(x, y), at(x + 1, y), at(x, y + 1)});
            m.triangles.push_back({at(x + 1, y), at(x + 1, y + 1), at(x, y + 1)});
        }
    std::uniform_int_distribution<unsigned> pick(0, side * side - 1);
    for (std::size_t d = 0; d < degenerates; ++d) {
        I const a = I(base + pick(rng)), b = I(base + pick(rng));
        if (d % 3 == 2) {
            // Collinear along a grid row: three distinct vertices, zero area.
            unsigned const y = pick(rng) % side, x = pick(rng) % (side - 2);
            m.triangles.push_back({at(x, y), at(x + 1, y), at(x + 2, y)});
        } else {
            m.triangles.push_back(d % 3 == 0 ? std::array<I, 3>{a, a, b} : std::array<I, 3>{a, b, a});
        }
    }
    std::shuffle(m.triangles.begin(), m.triangles.end(), rng);
    return m;
}

// Random triangles over a few vertices at lattice points: repeated corners,
// coincident and coplanar faces, and every vertex shared by many faces.
template <typename T, typename I>
Mesh<T, I> Tangle(std::mt19937& rng, unsigned vertexCount, std::size_t triangleCount)
{
    std::uniform_int_distribution<int> lattice(-2, 2);
    std::uniform_int_distribution<unsigned> pick(0, vertexCount - 1);
    Mesh<T, I> m;
    for (unsigned v = 0; v < vertexCount; ++v)
        m.positions.push_back({{T(lattice(rng)), T(lattice(rng)), T(lattice(rng))}});
    for (std::size_t t = 0; t < triangleCount; ++t)
        m.triangles.push_back({I(pick(rng)), I(pick(rng)), I(pick(rng))});
    return m;
}

template <typename T, typename I>
SmoothNormalRemapping<I> Ours(Mesh<T, I> const& mesh, double angle, bool asVertexP)
{
    span<std::array<I, 3> const> const triangles(mesh.triangles);
    if constexpr (std::is_same_v<T, float>) {
        if (asVertexP)
            return CalculateSmoothNormalRemapping(
                span<VertexP const>(reinterpret_cast<VertexP const*>(mesh.positions.data()), mesh.positions.size()),
                triangles, angle);
    }
    return CalculateSmoothNormalRemapping(span<point<T, 3> const>(mesh.positions), triangles, angle);
}

template <typename T, typename I>
SmoothNormalRemapping<I> Expected(Mesh<T, I> const& mesh, double angle)
{
    return Oracles::GroupCornerNormals(
        mesh.triangles, CalculateSmoothTriangleVertexNormals(span<point<T, 3> const>(mesh.positions),
                                                             span<std::array<I, 3> const>(mesh.triangles), angle));
}

constexpr double Angles[] = {0.0, 0.3, std::numbers::pi / 4, 1.2, std::numbers::pi, 4.0};

template <typename T, typename I>
void ExpectWholeJobMatches(std::mt19937& rng, std::string const& types, bool asVertexP = false)
{
    std::vector<std::pair<std::string, Mesh<T, I>>> meshes;
    meshes.emplace_back("terrain", Terrain<T, I>(rng, 40, 0, false));
    meshes.emplace_back("terrain with degenerates", Terrain<T, I>(rng, 40, 300, false));
    meshes.emplace_back("terrain, vertex 0 unused", Terrain<T, I>(rng, 25, 40, true));
    meshes.emplace_back("tangle", Tangle<T, I>(rng, 12, 400));
    meshes.emplace_back("one triangle", Mesh<T, I>{{{{0, 0, 0}}, {{1, 0, 0}}, {{0, 1, 0}}}, {{0, 1, 2}}});
    meshes.emplace_back("no triangles", Mesh<T, I>{{{{0, 0, 0}}}, {}});
    unsigned const stride = Oracles::SweepStride(2);
    for (auto const& [name, mesh] : meshes)
        for (std::size_t a = 0; a < std::size(Angles); a += stride)
            ExpectSame(Ours(mesh, Angles[a], asVertexP), Expected(mesh, Angles[a]),
                       types + ", " + name + ", angle " + std::to_string(Angles[a]));
}

// Normals drawn from a handful of values, so that keys tie often, differ in
// the sign of zero only, or carry NaN in one component.
std::vector<Normal> CraftedNormals(std::mt19937& rng, std::size_t count)
{
    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    std::array<float, 8> const values{0.0f, -0.0f, 1.0f, -1.0f, 0.5f, nan, inf, -inf};
    std::discrete_distribution<int> draw({6, 6, 4, 2, 2, 1, 0.5, 0.5});
    std::vector<Normal> normals(count);
    for (Normal& n : normals)
        for (std::size_t c = 0; c < 3; ++c)
            n[c] = values[static_cast<std::size_t>(draw(rng))];
    return normals;
}

template <typename I, typename Index>
void ExpectStepMatches(std::mt19937& rng)
{
    // Up to 1000 vertices run on the calling thread, 20000 on the workers.
    for (unsigned vertexCount : {1u, 4u, 30u, 1000u, 20000u})
        for (std::size_t triangleCount : {std::size_t{1}, std::size_t{50}, std::size_t{3000}, std::size_t{30000}}) {
            Mesh<float, I> const mesh = Tangle<float, I>(rng, vertexCount, triangleCount);
            std::vector<Normal> const normals = CraftedNormals(rng, 3 * triangleCount);
            auto const adjacency =
                BuildCornerAdjacency<Index>(vertexCount + 2, span<std::array<I, 3> const>(mesh.triangles));
            ExpectSame(GroupCornerNormals<I>(adjacency, span<Normal const>(normals)),
                       Oracles::GroupCornerNormals(mesh.triangles, normals),
                       std::to_string(vertexCount) + " vertices, " + std::to_string(triangleCount) + " triangles");
        }
}

// What the NaN rule promises: one new vertex per NaN corner plus one per
// distinct (vertex, normal), normals compared as floats (-0 == +0).
template <typename I>
std::size_t PromisedVertexCount(std::vector<std::array<I, 3>> const& triangles, std::vector<Normal> const& normals)
{
    std::size_t nanCorners = 0;
    std::set<std::tuple<I, float, float, float>> distinct;
    for (std::size_t c = 0; c < normals.size(); ++c) {
        Normal const& n = normals[c];
        if (std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]))
            ++nanCorners;
        else
            distinct.insert({triangles[c / 3][c % 3], n[0] + 0.0f, n[1] + 0.0f, n[2] + 0.0f});
    }
    return nanCorners + distinct.size();
}

} // namespace

TEST(RemappingDifferential, WholeJobMatchesTheOracleForEveryPositionAndIndexType)
{
    std::mt19937 rng(784);
    ExpectWholeJobMatches<float, std::uint32_t>(rng, "float, 32-bit");
    ExpectWholeJobMatches<double, std::uint32_t>(rng, "double, 32-bit");
    ExpectWholeJobMatches<float, std::uint32_t>(rng, "VertexP, 32-bit", true);
    ExpectWholeJobMatches<float, std::uint64_t>(rng, "float, 64-bit");
    ExpectWholeJobMatches<double, std::uint64_t>(rng, "double, 64-bit");
    ExpectWholeJobMatches<float, std::uint64_t>(rng, "VertexP, 64-bit", true);
}

TEST(RemappingDifferential, GroupingStepMatchesTheOracleOnCraftedNormals)
{
    std::mt19937 rng(3);
    ExpectStepMatches<std::uint32_t, std::uint32_t>(rng);
    ExpectStepMatches<std::uint32_t, std::uint64_t>(rng);
    ExpectStepMatches<std::uint64_t, std::uint32_t>(rng);
    ExpectStepMatches<std::uint64_t, std::uint64_t>(rng);
}

TEST(RemappingDifferential, SignedZerosMergeUnderTheFirstCornersBitsAndNanCornersComeLast)
{
    float const nan = std::numeric_limits<float>::quiet_NaN();
    // Vertex 0 in every corner of two triangles; the other corners use 1.
    std::vector<std::array<std::uint32_t, 3>> const triangles{{0, 1, 0}, {1, 0, 0}};
    std::vector<Normal> const normals{{{0.0f, -0.0f, 1.0f}}, {{1, 0, 0}}, {{0.0f, nan, 1.0f}},
                                      {{1, 0, 0}},           {{nan, nan, nan}}, {{0.0f, 0.0f, 1.0f}}};
    auto const adjacency = BuildCornerAdjacency<std::uint32_t>(2, span<std::array<std::uint32_t, 3> const>(triangles));
    auto const r = GroupCornerNormals<std::uint32_t>(adjacency, span<Normal const>(normals));
    // Vertex 0: corners 0 and 5 share (0, ±0, 1), kept with corner 0's -0;
    // then the NaN corners 2 and 4, each alone. Vertex 1: corners 1 and 3.
    EXPECT_EQ(r.vertices, (std::vector<std::uint32_t>{0, 0, 0, 1}));
    EXPECT_EQ(r.remapping, (std::vector<std::uint32_t>{0, 3, 1, 3, 2, 0}));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(r.normals[0][1]), 0x80000000u);
    ExpectSame(r, Oracles::GroupCornerNormals(triangles, normals), "hand-made");
}

TEST(RemappingDifferential, SameResultOnEveryRunAndThreadCountDespiteZeroAreaTriangles)
{
    // Thousands of zero-area triangles give NaN corners all over a shuffled
    // mesh; where the NaN records land must not depend on the threads.
    std::mt19937 rng(14);
    unsigned const side = Oracles::Sanitized ? 70 : 200;
    Mesh<float, std::uint32_t> const mesh = Terrain<float, std::uint32_t>(rng, side, side * side / 4, false);
    double const angle = std::numbers::pi / 4;
    auto const expected = Expected(mesh, angle);
    std::vector<Normal> const normals = CalculateSmoothTriangleVertexNormals(
        span<point<float, 3> const>(mesh.positions), span<std::array<std::uint32_t, 3> const>(mesh.triangles), angle);
    EXPECT_EQ(expected.vertices.size(), PromisedVertexCount(mesh.triangles, normals));

    int const runs = Oracles::Sanitized ? 2 : 6;
    for (int threads : {1, 2, 8}) {
        tbb::global_control limit(tbb::global_control::max_allowed_parallelism, static_cast<std::size_t>(threads));
        for (int run = 0; run < runs; ++run)
            ExpectSame(Ours(mesh, angle, false), expected,
                       std::to_string(threads) + " threads, run " + std::to_string(run));
    }
}
