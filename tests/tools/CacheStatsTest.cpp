// The FIFO cache model behind zgu's ACMR / ATVR figures.

#include "CacheStats.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using Zorvan::Tool::AnalyseFifoCache;

TEST(FifoCacheModel, HitsDoNotRefreshAnEntry)
{
    // 0 is hit once, yet is still the oldest entry when 3 arrives: a FIFO
    // evicts it (an LRU cache would have kept it and evicted 1).
    std::vector<std::uint32_t> const indices{0, 1, 2, 0, 3, 0};
    auto const stats = AnalyseFifoCache(indices, 4, 3);
    EXPECT_EQ(stats.misses, 5u);
    EXPECT_DOUBLE_EQ(stats.acmr, 2.5);
    EXPECT_DOUBLE_EQ(stats.atvr, 1.25);
}

TEST(FifoCacheModel, AnEntryLivesForExactlyCacheSizeMisses)
{
    std::vector<std::uint32_t> const indices{0, 1, 2, 3, 0, 0};
    EXPECT_EQ(AnalyseFifoCache(indices, 4, 4).misses, 4u); // 0 still cached after three more loads
    EXPECT_EQ(AnalyseFifoCache(indices, 4, 3).misses, 5u); // the fourth load pushed it out
}

TEST(FifoCacheModel, UnusedVerticesDoNotCountTowardsAtvr)
{
    std::vector<std::uint32_t> const indices{5, 6, 7};
    auto const stats = AnalyseFifoCache(indices, 100, 16);
    EXPECT_DOUBLE_EQ(stats.atvr, 1.0);
    EXPECT_DOUBLE_EQ(stats.acmr, 3.0);
    EXPECT_EQ(AnalyseFifoCache({}, 0, 16).misses, 0u);
}

} // namespace
