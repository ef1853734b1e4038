// The spatial order behind the submesh split: a Hilbert curve visits every
// cell of a block once, stepping only between face neighbours.

#include "mesh/HilbertCurve.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <map>
#include <random>

using namespace Zorvan::Rendering;

namespace {

// Skilling's transform as he wrote it, one branch per axis and level: the
// plain rendition the tabulated index is checked against.
std::uint64_t PlainHilbertIndex(std::uint32_t x, std::uint32_t y, std::uint32_t z)
{
    std::uint32_t X[3] = {x, y, z};
    for (std::uint32_t q = HilbertCells >> 1; q > 1; q >>= 1) {
        std::uint32_t const p = q - 1;
        for (int i = 0; i < 3; ++i) {
            if (X[i] & q) {
                X[0] ^= p;
            } else {
                std::uint32_t const t = (X[0] ^ X[i]) & p;
                X[0] ^= t;
                X[i] ^= t;
            }
        }
    }
    X[1] ^= X[0];
    X[2] ^= X[1];
    std::uint32_t t = 0;
    for (std::uint32_t q = HilbertCells >> 1; q > 1; q >>= 1)
        if (X[2] & q)
            t ^= q - 1;
    std::uint64_t index = 0;
    for (int bit = HilbertBits - 1; bit >= 0; --bit)
        for (std::uint32_t axis : X)
            index = (index << 1) | (((axis ^ t) >> bit) & 1u);
    return index;
}

using Cell = std::array<std::uint32_t, 3>;

// Cells of an 8 x 8 x 8 block (coordinates scaled by 2^shift) by the top
// nine bits of their index below the block's own level.
std::map<std::uint64_t, Cell> Walk(unsigned shift)
{
    std::map<std::uint64_t, Cell> walk;
    for (std::uint32_t x = 0; x < 8; ++x)
        for (std::uint32_t y = 0; y < 8; ++y)
            for (std::uint32_t z = 0; z < 8; ++z)
                walk.emplace(HilbertIndex(x << shift, y << shift, z << shift) >> (3 * shift), Cell{x, y, z});
    return walk;
}

void ExpectContinuousWalk(std::map<std::uint64_t, Cell> const& walk)
{
    ASSERT_EQ(walk.size(), 512u) << "two cells share an index";
    EXPECT_EQ(walk.begin()->first, 0u);
    EXPECT_EQ(walk.rbegin()->first, 511u);
    EXPECT_EQ(walk.begin()->second, (Cell{0, 0, 0}));
    for (auto it = walk.begin(), next = std::next(it); next != walk.end(); ++it, ++next) {
        int steps = 0;
        for (int a = 0; a < 3; ++a)
            steps += std::abs(int(it->second[a]) - int(next->second[a]));
        ASSERT_EQ(steps, 1) << "indices " << it->first << " and " << next->first << " are not face neighbours";
    }
}

TEST(HilbertIndex, VisitsTheFinestCellsInFaceNeighbourSteps)
{
    // The curve's first 512 cells fill the block at the origin.
    ExpectContinuousWalk(Walk(0));
}

TEST(HilbertIndex, VisitsTheCoarsestCellsInFaceNeighbourSteps)
{
    // The top three bits of each axis decide the top nine bits of the index.
    ExpectContinuousWalk(Walk(HilbertBits - 3));
    EXPECT_LT(HilbertIndex(HilbertCells - 1, HilbertCells - 1, HilbertCells - 1), std::uint64_t{1} << 63);
}

TEST(HilbertIndex, TableStepsMatchThePlainTransform)
{
    std::mt19937 rng(21);
    std::uniform_int_distribution<std::uint32_t> any(0, HilbertCells - 1);
    std::uint32_t const edges[] = {0, 1, 2, HilbertCells / 2 - 1, HilbertCells / 2, HilbertCells - 2, HilbertCells - 1};
    for (std::uint32_t x : edges)
        for (std::uint32_t y : edges)
            for (std::uint32_t z : edges)
                ASSERT_EQ(HilbertIndex(x, y, z), PlainHilbertIndex(x, y, z)) << x << ' ' << y << ' ' << z;
    for (int i = 0; i < 100000; ++i) {
        std::uint32_t const x = any(rng), y = any(rng), z = any(rng);
        ASSERT_EQ(HilbertIndex(x, y, z), PlainHilbertIndex(x, y, z)) << x << ' ' << y << ' ' << z;
    }
}

} // namespace
