#include <Rendering/Vertex.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <stdexcept>
#include <vector>

using namespace Zorvan::Rendering;
using Zorvan::Math::point;

namespace {

using Rgba = std::vector<std::array<int, 4>>;

Rgba Channels(std::vector<VertexC> const& colours)
{
    Rgba out;
    for (VertexC c : colours)
        out.push_back({c.r, c.g, c.b, c.a});
    return out;
}

} // namespace

TEST(VertexRecords, ViewsAliasTheCallersMemoryAndDropPartialRecords)
{
    std::vector<float> const seven{1, 2, 3, 4, 5, 6, 7};
    auto const p = ToVertexP(span<float const>(seven));
    ASSERT_EQ(p.size(), 2u);
    EXPECT_EQ(static_cast<void const*>(p.data()), seven.data());
    EXPECT_EQ(p[1].x, 4);
    EXPECT_EQ(p[1].z, 6);
    auto const t = ToVertexT(span<float const>(seven));
    ASSERT_EQ(t.size(), 3u);
    EXPECT_EQ(t[2].v, 6);
    EXPECT_EQ(ToVertexN(span<float const>(seven)).size(), 2u);

    // Too few scalars: empty, and the pointer is null rather than the caller's.
    auto const none = ToVertexP(span<float const>(seven.data(), 2));
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.data(), nullptr);
    EXPECT_EQ(ToVertexT(span<float const>(seven.data(), 1)).data(), nullptr);
    EXPECT_EQ(ToVertexN(span<std::array<float, 3> const>()).data(), nullptr);

    std::vector<point<float, 3>> const points{{{1, 2, 3}}, {{4, 5, 6}}};
    auto const n = ToVertexN(span<point<float, 3> const>(points));
    EXPECT_EQ(static_cast<void const*>(n.data()), points.data());
    EXPECT_EQ(n.size(), 2u);
    std::vector<std::array<std::uint8_t, 4>> const colours{{1, 2, 3, 4}};
    auto const c = ToVertexC(span<std::array<std::uint8_t, 4> const>(colours));
    ASSERT_EQ(c.size(), 1u);
    EXPECT_EQ(static_cast<void const*>(c.data()), colours.data());
    EXPECT_EQ(c[0].a, 4);
}

TEST(VertexRecords, DoublesAreRoundedToNearestFloat)
{
    double const third = 1.0 / 3.0;
    std::vector<double> const five{third, 2, 3, 4, 5};
    auto const t = ToVertexT(span<double const>(five));
    ASSERT_EQ(t.size(), 2u);
    EXPECT_EQ(t[0].u, 1.0f / 3.0f);
    EXPECT_EQ(t[1].v, 4);
    auto const p = ToVertexP(span<double const>(five));
    ASSERT_EQ(p.size(), 1u);
    EXPECT_EQ(p.capacity(), 1u);
    // 1 + 2^-24 is a tie between 1 and the next float; it rounds to even.
    std::vector<std::array<double, 3>> const ties{{1 + 0x1p-24, 1 + 0x1.8p-23, -1e300}};
    auto const n = ToVertexN(span<std::array<double, 3> const>(ties));
    ASSERT_EQ(n.size(), 1u);
    EXPECT_EQ(n[0].x, 1.0f);
    EXPECT_EQ(n[0].y, 1 + 0x1p-22f);
    EXPECT_EQ(n[0].z, -std::numeric_limits<float>::infinity());
    std::vector<point<double, 2>> const uv{{{0.25, 0.5}}};
    EXPECT_EQ(ToVertexT(span<point<double, 2> const>(uv))[0].v, 0.5f);
}

TEST(VertexRecords, ColourBytes)
{
    std::vector<std::uint8_t> const bytes{10, 20, 30, 40, 50};
    EXPECT_EQ(Channels(ToVertexC(span<std::uint8_t const>(bytes), false)), (Rgba{{10, 20, 30, 255}}));
    EXPECT_EQ(Channels(ToVertexC(span<std::uint8_t const>(bytes), true)), (Rgba{{10, 20, 30, 40}}));
    std::vector<point<std::uint8_t, 3>> const rgb{{{1, 2, 3}}, {{4, 5, 6}}};
    EXPECT_EQ(Channels(ToVertexC(span<point<std::uint8_t, 3> const>(rgb))), (Rgba{{1, 2, 3, 255}, {4, 5, 6, 255}}));
}

TEST(VertexRecords, ColourScalingTruncatesAndClamps)
{
    std::vector<float> const rgb{1.0f, 0.5f, 0.0f};
    EXPECT_EQ(Channels(ToVertexC(span<float const>(rgb), false)), (Rgba{{255, 127, 0, 255}}));
    std::vector<double> const rgba{1.5, -0.2, 0.999, 0.25};
    EXPECT_EQ(Channels(ToVertexC(span<double const>(rgba), true)), (Rgba{{255, 0, 254, 63}}));

    float const nan = std::numeric_limits<float>::quiet_NaN();
    float const inf = std::numeric_limits<float>::infinity();
    std::vector<std::array<float, 4>> const odd{{nan, inf, -inf, -nan}};
    EXPECT_EQ(Channels(ToVertexC(span<std::array<float, 4> const>(odd))), (Rgba{{0, 255, 0, 0}}));
    std::vector<point<double, 3>> const doubles{{{double(nan), 1.0 / 255, 254.9 / 255}}};
    EXPECT_EQ(Channels(ToVertexC(span<point<double, 3> const>(doubles))), (Rgba{{0, 1, 254, 255}}));
    std::vector<point<float, 4>> const quads{{{0.1f, 0.2f, 0.3f, 0.4f}}, {{0, 0, 0, 1}}};
    EXPECT_EQ(Channels(ToVertexC(span<point<float, 4> const>(quads))), (Rgba{{25, 51, 76, 102}, {0, 0, 0, 255}}));
}

TEST(VertexRecords, UnrepresentableCopySizesThrowLengthError)
{
    // The span is never read: reserving its record count fails first.
    double const one = 0;
    span<double const> const huge(&one, std::numeric_limits<std::size_t>::max());
    EXPECT_THROW(ToVertexP(huge), std::length_error);
    EXPECT_THROW(ToVertexC(huge, false), std::length_error);
}
