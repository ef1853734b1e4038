#include <Rendering/Core.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

using namespace Zorvan::Rendering;
using Zorvan::Math::point;

namespace {

TEST(Id, ValidityLooksAtTheLowHalfOnly)
{
    EXPECT_FALSE(ImageId{}.IsValid());
    EXPECT_EQ(ImageId{}.Value(), ~std::uint64_t{0});
    EXPECT_FALSE(ImageId{0x12345678FFFFFFFFull}.IsValid());
    EXPECT_TRUE(ImageId{0xFFFFFFFF00000000ull}.IsValid());
    EXPECT_TRUE(ImageId{0xFFFFFFFFFFFFFFFEull}.IsValid());
    ImageId const id{0x0000000700000002ull};
    EXPECT_EQ(id.Handle(), 2u);
    EXPECT_EQ(id.Upper(), 7u);
    EXPECT_NE(id, ImageId{0x0000000800000002ull}); // upper bits are part of the value
}

// An owner that only counts what it is asked to destroy; found by ScopedResource
// through the same ReleaseResource lookup the device overloads use.
struct CountingOwner {
    std::vector<std::uint64_t> destroyed;
};
void ReleaseResource(CountingOwner& owner, BufferId id) noexcept { owner.destroyed.push_back(id.Value()); }

using Scoped = ScopedResource<BufferId, CountingOwner>;

TEST(ScopedResource, ReleasesOnceAndEmpties)
{
    CountingOwner owner;
    {
        Scoped empty;
        Scoped invalid(&owner, BufferId{});
        empty.Reset();
    }
    EXPECT_TRUE(owner.destroyed.empty());

    Scoped full(&owner, BufferId{5});
    full.Reset();
    full.Reset();
    EXPECT_EQ(owner.destroyed, std::vector<std::uint64_t>{5});
    EXPECT_FALSE(full.IsValid());
    EXPECT_EQ(full.GetOwner(), nullptr);

    { Scoped scoped(&owner, BufferId{6}); }
    EXPECT_EQ(owner.destroyed, (std::vector<std::uint64_t>{5, 6}));

    Scoped detached(&owner, BufferId{7});
    EXPECT_EQ(detached.Detach(), BufferId{7});
    detached.Reset();
    EXPECT_EQ(owner.destroyed.size(), 2u);
}

TEST(ScopedResource, MoveTransfersOwnershipAndMoveAssignDestroysTheTargetFirst)
{
    CountingOwner owner;
    Scoped a(&owner, BufferId{1});
    Scoped b(std::move(a));
    EXPECT_FALSE(a.IsValid()); // NOLINT(bugprone-use-after-move): moved-from state is the contract
    EXPECT_EQ(a.GetOwner(), nullptr);
    EXPECT_EQ(b.Get(), BufferId{1});
    EXPECT_TRUE(owner.destroyed.empty());

    Scoped c(&owner, BufferId{2});
    c = std::move(b);
    EXPECT_EQ(owner.destroyed, std::vector<std::uint64_t>{2});
    EXPECT_EQ(c.Get(), BufferId{1});
    EXPECT_FALSE(b.IsValid()); // NOLINT(bugprone-use-after-move)

    Scoped& self = c;
    c = std::move(self);
    EXPECT_EQ(c.Get(), BufferId{1});
    c = Scoped{};
    EXPECT_EQ(owner.destroyed, (std::vector<std::uint64_t>{2, 1}));
}

TEST(Point, OrderIsLexicographicAndStrict)
{
    using P = point<float, 3>;
    EXPECT_TRUE((P{1, 5, 0} < P{2, 0, 0}));
    EXPECT_FALSE((P{2, 0, 0} < P{1, 5, 0}));
    EXPECT_TRUE((P{1, 2, 9} < P{1, 3, 0}));
    EXPECT_TRUE((P{1, 2, 3} < P{1, 2, 4}));
    EXPECT_FALSE((P{1, 2, 3} < P{1, 2, 3}));
    EXPECT_FALSE((P{-0.0f, 0, 0} < P{0.0f, 0, 0}));
}

TEST(Point, Arithmetic)
{
    using P = point<double, 3>;
    P p{1, 2, 3};
    EXPECT_EQ((p - P{1, 1, 1}), (P{0, 1, 2}));
    EXPECT_EQ(2.0 * p, (P{2, 4, 6}));
    EXPECT_EQ(p * 2.0, (P{2, 4, 6}));
    EXPECT_EQ(p / 2.0, (P{0.5, 1, 1.5}));
    p += P{1, 1, 1};
    EXPECT_EQ(p, (P{2, 3, 4}));
    p /= 0.1f; // widened to double before dividing
    double const d = 0.1f;
    EXPECT_EQ(p, (P{2 / d, 3 / d, 4 / d}));
    static_assert(sizeof(point<float, 3>[4]) == 12 * sizeof(float));
}

TEST(ArrayView, ViewsContainersWithoutCopying)
{
    std::vector<int> v{1, 2, 3};
    array_view<int> out = v;
    out[1] = 20;
    EXPECT_EQ(v[1], 20);
    EXPECT_EQ(out.size(), 3u);

    std::array<float, 4> const a{};
    array_view<float const> in = a;
    EXPECT_EQ(in.data(), a.data());
    EXPECT_EQ(in.size(), 4u);

    array_view<int const> fromSpan = std::span<int>(v).subspan(1);
    EXPECT_EQ(fromSpan.data(), v.data() + 1);
    EXPECT_EQ(fromSpan.size(), 2u);
    EXPECT_TRUE(array_view<int>{}.empty());
}

} // namespace
