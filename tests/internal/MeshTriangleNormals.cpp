#include "mesh/Normals.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace Zorvan::Rendering;
using Zorvan::Math::point;

TEST(VectorLength, ScalesAwayOverflowAndUnderflow)
{
    EXPECT_EQ(VectorLength(0, 0, 0), 0.0);
    EXPECT_EQ(VectorLength(-3, 0, 4), 5.0);
    // Squaring these directly would overflow to infinity or flush to zero.
    EXPECT_DOUBLE_EQ(VectorLength(3e200, -4e200, 0), 5e200);
    EXPECT_NEAR(VectorLength(0, 3e-320, 4e-320), 5e-320, 1e-323);
    EXPECT_EQ(VectorLength(std::numeric_limits<double>::infinity(), 1, 1), std::numeric_limits<double>::infinity());
    double const nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_TRUE(std::isnan(VectorLength(nan, 1, 2)));
    EXPECT_TRUE(std::isnan(VectorLength(1, nan, 2)));
    EXPECT_TRUE(std::isnan(VectorLength(1, 2, nan)));
}

TEST(TriangleNormals, UnitNormalAndTwiceTheArea)
{
    std::vector<point<double, 3>> const positions{{{0, 0, 0}}, {{4, 0, 0}}, {{0, 3, 0}}, {{8, 0, 0}}};
    std::vector<std::array<std::uint64_t, 3>> const triangles{{0, 2, 1}, {0, 1, 3}};
    auto const normals = CalculateTriangleNormals(span<point<double, 3> const>(positions),
                                                  span<std::array<std::uint64_t, 3> const>(triangles));
    ASSERT_EQ(normals.size(), 2u);
    EXPECT_EQ(normals[0].normal, (point<float, 3>{{0, 0, -1}}));
    EXPECT_EQ(normals[0].magnitude, 12.0f);
    // Collinear: the zero cross product is kept as it is.
    EXPECT_EQ(normals[1].normal, (point<float, 3>{{0, 0, 0}}));
    EXPECT_EQ(normals[1].magnitude, 0.0f);
    EXPECT_TRUE(CalculateTriangleNormals(span<point<double, 3> const>(positions),
                                         span<std::array<std::uint64_t, 3> const>())
                    .empty());
}
