#include "MeshFixtures.h"

#include <Rendering/Mesh.h>

#include <gtest/gtest.h>
#include <oneapi/tbb/global_control.h>
#include <oneapi/tbb/info.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>

using namespace Zorvan::Rendering;
using namespace MeshFixtures;

namespace {

using Normals = std::vector<point<float, 3>>;

// Straightforward sequential rendition of the same arithmetic, written
// without looking at the library's loops.
double ScaledLength(double a, double b, double c)
{
    std::array<double, 3> v{std::fabs(a), std::fabs(b), std::fabs(c)};
    auto largest = std::max_element(v.begin(), v.end()) - v.begin();
    double const m = v[static_cast<std::size_t>(largest)];
    double const d = std::max(m, std::numeric_limits<double>::denorm_min());
    double sum = 0;
    for (long i = 0; i < 3; ++i)
        if (i != largest)
            sum += (v[static_cast<std::size_t>(i)] / d) * (v[static_cast<std::size_t>(i)] / d);
    return m * std::sqrt(1 + sum);
}

template <typename T, typename I>
Normals Reference(Mesh<T, I> const& mesh, double angle)
{
    std::size_t const n = mesh.triangles.size();
    std::vector<std::array<float, 3>> unit(n);
    std::vector<float> area(n);
    for (std::size_t t = 0; t < n; ++t) {
        auto const& p0 = mesh.positions[mesh.triangles[t][0]];
        auto const& p1 = mesh.positions[mesh.triangles[t][1]];
        auto const& p2 = mesh.positions[mesh.triangles[t][2]];
        T e1[3], e2[3];
        for (int i = 0; i < 3; ++i) {
            e1[i] = p1[i] - p0[i];
            e2[i] = p2[i] - p0[i];
        }
        T c[3] = {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
        area[t] = float(ScaledLength(c[0], c[1], c[2]));
        for (int i = 0; i < 3; ++i)
            unit[t][i] = area[t] > 0 ? float(c[i] / T(area[t])) : float(c[i]);
    }
    std::vector<std::vector<std::size_t>> around(mesh.positions.size());
    for (std::size_t t = 0; t < n; ++t)
        for (I v : mesh.triangles[t])
            around[v].push_back(t);

    double const threshold = float(std::cos(angle));
    Normals out;
    for (std::size_t t = 0; t < n; ++t)
        for (I v : mesh.triangles[t]) {
            float sum[3] = {0, 0, 0};
            for (std::size_t u : around[v]) {
                double dot = double(unit[t][0]) * unit[u][0] + double(unit[t][1]) * unit[u][1] +
                             double(unit[t][2]) * unit[u][2];
                if (dot > threshold)
                    for (int i = 0; i < 3; ++i)
                        sum[i] += unit[u][i] * area[u];
            }
            double const length = ScaledLength(sum[0], sum[1], sum[2]);
            out.push_back({{float(sum[0] / length), float(sum[1] / length), float(sum[2] / length)}});
        }
    return out;
}

template <typename T, typename I>
Normals Smooth(Mesh<T, I> const& mesh, double angle)
{
    return CalculateSmoothTriangleVertexNormals(span<point<T, 3> const>(mesh.positions),
                                                span<std::array<I, 3> const>(mesh.triangles), angle);
}

void ExpectSameBits(Normals const& actual, Normals const& expected)
{
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t c = 0; c < actual.size(); ++c)
        ASSERT_TRUE(SameBits(actual[c], expected[c]))
            << "corner " << c << ": " << actual[c][0] << " " << actual[c][1] << " " << actual[c][2] << " vs "
            << expected[c][0] << " " << expected[c][1] << " " << expected[c][2];
}

bool IsNan(point<float, 3> const& p) { return std::isnan(p[0]) && std::isnan(p[1]) && std::isnan(p[2]); }

point<float, 3> P(float x, float y, float z) { return {{x, y, z}}; }

} // namespace

TEST(SmoothNormals, EmptyAndSingleTriangle)
{
    EXPECT_TRUE(Smooth(Mesh<float, std::uint32_t>{}, 1.0).empty());
    Mesh<double, std::uint64_t> const one{{{{0, 0, 0}}, {{2, 0, 0}}, {{0, 3, 0}}}, {{0, 1, 2}}};
    Normals const n = Smooth(one, 1.0);
    ASSERT_EQ(n.size(), 3u);
    for (auto const& corner : n)
        EXPECT_EQ(corner, P(0, 0, 1));
}

TEST(SmoothNormals, CubeCreases)
{
    auto const cube = Cube();
    // Below a right angle every corner keeps its face's axis normal.
    Normals const sharp = Smooth(cube, std::numbers::pi / 4);
    for (std::size_t t = 0; t < cube.triangles.size(); ++t)
        for (std::size_t k = 0; k < 3; ++k)
            EXPECT_EQ(sharp[3 * t + k], sharp[3 * t]) << t;
    EXPECT_EQ(sharp[0], P(0, 0, -1));
    EXPECT_EQ(sharp[3 * 11], P(1, 0, 0));

    // Above it the three faces around each vertex blend; all corners of one
    // vertex summed the same faces in the same order, so they agree bit for bit.
    Normals const smooth = Smooth(cube, 2.0);
    std::vector<std::size_t> first(8, SIZE_MAX);
    for (std::size_t c = 0; c < smooth.size(); ++c) {
        auto const v = cube.triangles[c / 3][c % 3];
        if (first[v] == SIZE_MAX)
            first[v] = c;
        EXPECT_TRUE(SameBits(smooth[c], smooth[first[v]])) << "corner " << c;
        for (int i = 0; i < 3; ++i)
            EXPECT_GT(smooth[c][i] * cube.positions[v][i], 0.0f) << "corner " << c;
    }
    float const third = float(1 / std::sqrt(3.0));
    EXPECT_EQ(smooth[first[7]], P(third, third, third));
}

TEST(SmoothNormals, FoldBlendsOnlyBelowTheCreaseAngle)
{
    // Two triangles sharing edge 0-1, folded by 60 degrees.
    float const s = float(std::sqrt(3.0) / 2);
    Mesh<float, std::uint32_t> const fold{{P(0, 0, 0), P(1, 0, 0), P(0.5f, 1, 0), P(0.5f, -0.5f, -s)}, {{0, 1, 2}, {1, 0, 3}}};
    Normals const blended = Smooth(fold, 1.1);
    EXPECT_TRUE(SameBits(blended[0], blended[4]));
    EXPECT_TRUE(SameBits(blended[1], blended[3]));
    EXPECT_EQ(blended[2], P(0, 0, 1));
    EXPECT_LT(blended[0][1], 0.0f);
    EXPECT_NEAR(blended[0][2], std::cos(std::numbers::pi / 6), 1e-6);

    Normals const kept = Smooth(fold, 1.0);
    for (std::size_t c = 0; c < 3; ++c)
        EXPECT_EQ(kept[c], P(0, 0, 1));
    for (std::size_t c = 3; c < 6; ++c)
        EXPECT_TRUE(SameBits(kept[c], kept[5]));
}

TEST(SmoothNormals, ThresholdIsTheCosineRoundedToFloat)
{
    // Faces (0, 0, 1) and (0, -0.6, 0.8) (a 3-4-5 fold) meet at a dot of
    // exactly 0.8f. An angle whose double cosine lies just below that rounds
    // to a threshold of 0.8f, which the dot does not exceed.
    Mesh<float, std::uint32_t> const fold{{P(0, 0, 0), P(1, 0, 0), P(0.5f, 1, 0), P(0.5f, -4, -3)}, {{0, 1, 2}, {1, 0, 3}}};
    double const dot = 0.8f;
    Normals const kept = Smooth(fold, std::acos(dot - 1e-10));
    EXPECT_EQ(kept[0], P(0, 0, 1));
    EXPECT_EQ(kept[4], P(0, -0.6f, 0.8f));
    Normals const blended = Smooth(fold, std::acos(dot - 1e-7));
    EXPECT_TRUE(SameBits(blended[0], blended[4]));
}

TEST(SmoothNormals, CornersWithoutContributorsAreNan)
{
    // An axis-aligned face dotted with itself is exactly 1, not above the
    // threshold 1 of angle 0.
    Mesh<float, std::uint32_t> const flat{{P(0, 0, 0), P(1, 0, 0), P(0, 1, 0)}, {{0, 1, 2}}};
    for (auto const& c : Smooth(flat, 0.0))
        EXPECT_TRUE(IsNan(c));

    // A collinear triangle has a zero normal: alone it is NaN; sharing a
    // vertex with a real face, it takes that face's normal only when the
    // threshold lies below 0 (angle pi gives exactly -1).
    Mesh<float, std::uint32_t> const sliver{{P(0, 0, 0), P(1, 0, 0), P(0, 1, 0), P(2, 0, 0)}, {{0, 1, 2}, {0, 1, 3}}};
    Normals const narrow = Smooth(sliver, 1.0);
    Normals const wide = Smooth(sliver, std::numbers::pi);
    for (std::size_t c = 0; c < 3; ++c) {
        EXPECT_EQ(narrow[c], P(0, 0, 1));
        EXPECT_EQ(wide[c], P(0, 0, 1)); // the sliver's zero area adds nothing
    }
    EXPECT_EQ(wide[3], P(0, 0, 1));
    EXPECT_EQ(wide[4], P(0, 0, 1));
    EXPECT_TRUE(IsNan(narrow[3]));
    EXPECT_TRUE(IsNan(narrow[5]));
    EXPECT_TRUE(IsNan(wide[5])); // vertex 3 touches no real face
}

TEST(SmoothNormals, AngleOfPiStillRejectsExactlyOppositeFaces)
{
    Mesh<double, std::uint32_t> const folded{{{{0, 0, 0}}, {{1, 0, 0}}, {{0, 1, 0}}}, {{0, 1, 2}, {0, 2, 1}}};
    Normals const n = Smooth(folded, std::numbers::pi);
    EXPECT_EQ(n[0], P(0, 0, 1));
    EXPECT_EQ(n[3], P(0, 0, -1));
}

TEST(SmoothNormals, MatchesSequentialArithmeticBitForBitOnAnyThreadCount)
{
    std::mt19937 rng(711);
    auto const floats = BumpyGrid<float, std::uint32_t>(rng, 120, true);
    auto const doubles = BumpyGrid<double, std::uint64_t>(rng, 90, true);
    Mesh<float, std::uint64_t> floats64{floats.positions, {}};
    Mesh<double, std::uint32_t> doubles32{doubles.positions, {}};
    for (auto const& t : floats.triangles)
        floats64.triangles.push_back({t[0], t[1], t[2]});
    for (auto const& t : doubles.triangles)
        doubles32.triangles.push_back({std::uint32_t(t[0]), std::uint32_t(t[1]), std::uint32_t(t[2])});
    span<VertexP const> const vertices(reinterpret_cast<VertexP const*>(floats.positions.data()), floats.positions.size());

    for (double angle : {0.0, 0.3, 0.8, 1.6, std::numbers::pi}) {
        SCOPED_TRACE(angle);
        Normals const f = Reference(floats, angle);
        Normals const d = Reference(doubles, angle);
        for (std::size_t threads : {std::size_t{1}, std::size_t(tbb::info::default_concurrency())}) {
            SCOPED_TRACE(threads);
            tbb::global_control limit(tbb::global_control::max_allowed_parallelism, threads);
            ExpectSameBits(Smooth(floats, angle), f);
            ExpectSameBits(Smooth(floats64, angle), f);
            ExpectSameBits(CalculateSmoothTriangleVertexNormals(vertices, span<std::array<std::uint32_t, 3> const>(floats.triangles), angle), f);
            ExpectSameBits(CalculateSmoothTriangleVertexNormals(vertices, span<std::array<std::uint64_t, 3> const>(floats64.triangles), angle), f);
            ExpectSameBits(Smooth(doubles, angle), d);
            ExpectSameBits(Smooth(doubles32, angle), d);
        }
    }
}
