#include "MeshFixtures.h"

#include <Rendering/Mesh.h>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>

#include <cmath>
#include <numbers>
#include <set>
#include <tuple>

using namespace Zorvan::Rendering;
using namespace MeshFixtures;

namespace {

template <typename T, typename I>
SmoothNormalRemapping<I> Remap(Mesh<T, I> const& mesh, double angle)
{
    return CalculateSmoothNormalRemapping(span<point<T, 3> const>(mesh.positions),
                                          span<std::array<I, 3> const>(mesh.triangles), angle);
}

template <typename T, typename I>
std::vector<point<float, 3>> CornerNormals(Mesh<T, I> const& mesh, double angle)
{
    return CalculateSmoothTriangleVertexNormals(span<point<T, 3> const>(mesh.positions),
                                                span<std::array<I, 3> const>(mesh.triangles), angle);
}

// Every corner lands on a new vertex with its own source index and its own
// smoothed normal.
template <typename T, typename I>
void ExpectConsistent(Mesh<T, I> const& mesh, double angle, SmoothNormalRemapping<I> const& r)
{
    auto const normals = CornerNormals(mesh, angle);
    ASSERT_EQ(r.remapping.size(), 3 * mesh.triangles.size());
    ASSERT_EQ(r.vertices.size(), r.normals.size());
    for (std::size_t c = 0; c < r.remapping.size(); ++c) {
        ASSERT_LT(r.remapping[c], r.vertices.size());
        EXPECT_EQ(r.vertices[r.remapping[c]], mesh.triangles[c / 3][c % 3]) << "corner " << c;
        // Keys compare with float ==, so a group may mix +0 and -0.
        auto const& n = r.normals[r.remapping[c]];
        EXPECT_TRUE(n == normals[c] || (std::isnan(normals[c][0]) && SameBits(n, normals[c]))) << "corner " << c;
    }
}

using Key = std::tuple<std::uint64_t, float, float, float>;

template <typename I>
Key KeyOf(SmoothNormalRemapping<I> const& r, std::size_t v)
{
    return {r.vertices[v], r.normals[v][0], r.normals[v][1], r.normals[v][2]};
}

} // namespace

TEST(SmoothNormalRemapping, NoTriangles)
{
    auto const r = Remap(Mesh<float, std::uint64_t>{{{{1, 2, 3}}}, {}}, 1.0);
    EXPECT_TRUE(r.remapping.empty());
    EXPECT_TRUE(r.vertices.empty());
    EXPECT_TRUE(r.normals.empty());
}

TEST(SmoothNormalRemapping, CubeSplitsAlongCreasesOnly)
{
    auto cube = Cube<double, std::uint32_t>();
    cube.positions.push_back({{5, 5, 5}}); // unused

    auto const sharp = Remap(cube, 1.0);
    ExpectConsistent(cube, 1.0, sharp);
    ASSERT_EQ(sharp.vertices.size(), 24u);
    for (std::size_t v = 0; v < 24; ++v)
        EXPECT_EQ(sharp.vertices[v], v / 3);
    // Within one source vertex, new vertices ascend by normal: -x first.
    EXPECT_EQ(sharp.normals[0], (point<float, 3>{{-1, 0, 0}}));
    EXPECT_EQ(sharp.normals[2], (point<float, 3>{{0, 0, -1}}));

    auto const smooth = Remap(cube, 2.0);
    ExpectConsistent(cube, 2.0, smooth);
    EXPECT_EQ(smooth.vertices, (std::vector<std::uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(SmoothNormalRemapping, BackToBackFacesSplitOnZAlone)
{
    Mesh<float, std::uint64_t> const sheet{{{{0, 0, 0}}, {{1, 0, 0}}, {{0, 1, 0}}}, {{0, 1, 2}, {0, 2, 1}}};
    auto const r = Remap(sheet, 1.0);
    ExpectConsistent(sheet, 1.0, r);
    EXPECT_EQ(r.vertices, (std::vector<std::uint64_t>{0, 0, 1, 1, 2, 2}));
    EXPECT_EQ(r.remapping, (std::vector<std::uint64_t>{1, 3, 5, 0, 4, 2}));
}

TEST(SmoothNormalRemapping, NanCornersEachGetTheirOwnVertex)
{
    // Two collinear triangles on the same three vertices: all six corners NaN.
    Mesh<float, std::uint32_t> const line{{{{0, 0, 0}}, {{1, 0, 0}}, {{2, 0, 0}}}, {{0, 1, 2}, {2, 1, 0}}};
    auto const r = Remap(line, 1.0);
    ASSERT_EQ(r.vertices, (std::vector<std::uint32_t>{0, 0, 1, 1, 2, 2}));
    std::set<std::uint32_t> const distinct(r.remapping.begin(), r.remapping.end());
    EXPECT_EQ(distinct.size(), 6u);
    for (std::size_t c = 0; c < 6; ++c)
        EXPECT_EQ(r.vertices[r.remapping[c]], line.triangles[c / 3][c % 3]);
}

TEST(SmoothNormalRemapping, RandomMeshesGroupExactlyEqualKeysOnAnyThreadCount)
{
    std::mt19937 rng(3303);
    auto const mesh = BumpyGrid<float, std::uint32_t>(rng, 110, false);
    std::vector<std::array<std::uint64_t, 3>> wide;
    for (auto const& t : mesh.triangles)
        wide.push_back({t[0], t[1], t[2]});
    span<VertexP const> const vertices(reinterpret_cast<VertexP const*>(mesh.positions.data()), mesh.positions.size());

    for (double angle : {0.4, 1.0, std::numbers::pi}) {
        SCOPED_TRACE(angle);
        SmoothNormalRemapping<std::uint32_t> single;
        {
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, 1);
            single = Remap(mesh, angle);
        }
        ExpectConsistent(mesh, angle, single);
        // Strictly ascending keys: equal keys were merged, nothing else was.
        for (std::size_t v = 1; v < single.vertices.size(); ++v)
            ASSERT_LT(KeyOf(single, v - 1), KeyOf(single, v)) << v;
        std::set<std::uint32_t> const used(single.vertices.begin(), single.vertices.end());
        EXPECT_EQ(used.size(), mesh.positions.size() - 1); // all but the unused one

        auto const all = Remap(mesh, angle);
        EXPECT_EQ(all.remapping, single.remapping);
        EXPECT_EQ(all.vertices, single.vertices);
        EXPECT_EQ(all.normals, single.normals);
        auto const viaRecords = CalculateSmoothNormalRemapping(vertices, span<std::array<std::uint64_t, 3> const>(wide), angle);
        EXPECT_EQ(std::vector<std::uint32_t>(viaRecords.remapping.begin(), viaRecords.remapping.end()), single.remapping);
        EXPECT_EQ(viaRecords.normals, single.normals);
    }
}

TEST(SmoothNormalRemapping, NanCornersStandAloneAfterTheirVertexsOtherCornersInCornerOrder)
{
    // A third of the triangles lose their area: thousands of NaN corners,
    // many at vertices that also have ordinary corners.
    std::mt19937 rng(99);
    auto mesh = BumpyGrid<double, std::uint64_t>(rng, 60, true);
    for (std::size_t t = 0; t < mesh.triangles.size(); t += 3)
        mesh.triangles[t][2] = mesh.triangles[t][1];
    auto const r = Remap(mesh, 0.5);
    ExpectConsistent(mesh, 0.5, r);

    auto isNan = [](point<float, 3> const& n) { return std::isnan(n[0]) || std::isnan(n[1]) || std::isnan(n[2]); };
    std::vector<std::size_t> cornerOf(r.vertices.size());
    std::vector<int> uses(r.vertices.size(), 0);
    for (std::size_t c = 0; c < r.remapping.size(); ++c) {
        cornerOf[r.remapping[c]] = c;
        ++uses[r.remapping[c]];
    }
    std::size_t nanVertices = 0;
    for (std::size_t v = 0; v < r.vertices.size(); ++v) {
        if (!isNan(r.normals[v]))
            continue;
        ++nanVertices;
        EXPECT_EQ(uses[v], 1) << v;
        // After every ordinary new vertex of the same source, NaN ones by corner.
        if (v + 1 < r.vertices.size() && r.vertices[v + 1] == r.vertices[v]) {
            ASSERT_TRUE(isNan(r.normals[v + 1])) << v;
            EXPECT_LT(cornerOf[v], cornerOf[v + 1]) << v;
        }
    }
    EXPECT_GT(nanVertices, 1000u);

    // One new vertex per NaN corner plus one per distinct (vertex, normal).
    auto const normals = CornerNormals(mesh, 0.5);
    std::set<Key> distinct;
    std::size_t nanCorners = 0;
    for (std::size_t c = 0; c < normals.size(); ++c) {
        if (isNan(normals[c]))
            ++nanCorners;
        else
            distinct.insert({mesh.triangles[c / 3][c % 3], normals[c][0] + 0.0f, normals[c][1] + 0.0f,
                             normals[c][2] + 0.0f});
    }
    EXPECT_EQ(r.vertices.size(), nanCorners + distinct.size());
}
