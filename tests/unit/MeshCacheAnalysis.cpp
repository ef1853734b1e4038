// The FIFO vertex cache model behind ACMR and ATVR.

#include <Rendering/Mesh.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <random>
#include <set>
#include <vector>

using namespace Zorvan::Rendering;

namespace {

using Indices = std::vector<std::uint32_t>;

VertexCacheStatistics Analyze(Indices const& indices, std::size_t vertexCount, unsigned cacheSize)
{
    return AnalyzeFifoVertexCache(span<std::uint32_t const>(indices), vertexCount, cacheSize);
}

// The cache as a literal queue: a miss pushes at the back and drops the
// front once the queue is over size; a hit changes nothing.
std::uint64_t QueueMisses(Indices const& indices, std::size_t cacheSize)
{
    std::deque<std::uint32_t> queue;
    std::uint64_t misses = 0;
    for (std::uint32_t v : indices) {
        if (std::find(queue.begin(), queue.end(), v) != queue.end())
            continue;
        ++misses;
        queue.push_back(v);
        if (queue.size() > cacheSize)
            queue.pop_front();
    }
    return misses;
}

TEST(FifoVertexCache, HitsDoNotRefreshAnEntry)
{
    // 0 is hit once, yet is still the oldest entry when 3 arrives: a FIFO
    // evicts it (an LRU cache would have kept it and evicted 1).
    auto const stats = Analyze({0, 1, 2, 0, 3, 0}, 4, 3);
    EXPECT_EQ(stats.misses, 5u);
    EXPECT_DOUBLE_EQ(stats.acmr, 2.5);
    EXPECT_DOUBLE_EQ(stats.atvr, 1.25);
}

TEST(FifoVertexCache, AnEntryLivesForExactlyCacheSizeMisses)
{
    Indices const indices{0, 1, 2, 3, 0, 0};
    EXPECT_EQ(Analyze(indices, 4, 4).misses, 4u); // 0 still cached after three more loads
    EXPECT_EQ(Analyze(indices, 4, 3).misses, 5u); // the fourth load pushed it out
    EXPECT_EQ(Analyze(indices, 4, 0).misses, 6u); // no cache: every reference loads
}

TEST(FifoVertexCache, MatchesAQueueOnRandomIndexLists)
{
    std::mt19937 rng(5);
    for (int round = 0; round < 200; ++round) {
        std::uint32_t const vertexCount = 1 + rng() % 60;
        unsigned const cacheSize = rng() % 20;
        Indices indices(3 * (rng() % 100 + 1));
        for (auto& v : indices)
            v = rng() % vertexCount;
        auto const stats = Analyze(indices, vertexCount, cacheSize);
        ASSERT_EQ(stats.misses, QueueMisses(indices, cacheSize)) << "round " << round;
        std::size_t const distinct = std::set<std::uint32_t>(indices.begin(), indices.end()).size();
        EXPECT_DOUBLE_EQ(stats.atvr, double(stats.misses) / double(distinct));
    }
}

TEST(FifoVertexCache, CountsWholeTrianglesOverTheVerticesTheyUse)
{
    auto const stats = Analyze({5, 6, 7, 5, 6}, 100, 16); // the partial triangle (5, 6) is not read
    EXPECT_EQ(stats.misses, 3u);
    EXPECT_DOUBLE_EQ(stats.acmr, 3.0);
    EXPECT_DOUBLE_EQ(stats.atvr, 1.0); // unused vertices do not count
    EXPECT_EQ(Analyze({}, 0, 16), VertexCacheStatistics{});
    EXPECT_EQ(Analyze({0, 1}, 2, 16), VertexCacheStatistics{});
    EXPECT_EQ(Analyze({0, 1, 2, 0, 1, 3}, 3, 16), VertexCacheStatistics{}) << "index 3 is out of range";
}

TEST(FifoVertexCache, SubmeshesStartWithAnEmptyCache)
{
    // The same triangle drawn twice: in one list the second is all hits, as
    // two submeshes (two draws) both miss.
    Submesh const a{{10, 11, 12}, {0, 1, 2}};
    Submesh const b{{12, 11, 10}, {2, 1, 0}};
    std::vector<Submesh> const submeshes{a, b};
    auto const stats = AnalyzeFifoVertexCache(span<Submesh const>(submeshes), 16);
    EXPECT_EQ(stats.misses, 6u);
    EXPECT_DOUBLE_EQ(stats.acmr, 3.0);
    EXPECT_DOUBLE_EQ(stats.atvr, 2.0); // three source vertices, each loaded twice
    EXPECT_EQ(Analyze({10, 11, 12, 10, 11, 12}, 13, 16).misses, 3u);

    // Within a submesh the cache works as for any list.
    Submesh const strip{{7, 8, 9, 4}, {0, 1, 2, 2, 1, 3, 3, 1, 0}};
    std::vector<Submesh> const one{strip};
    EXPECT_EQ(AnalyzeFifoVertexCache(span<Submesh const>(one), 16), Analyze({7, 8, 9, 9, 8, 4, 4, 8, 7}, 10, 16));

    std::vector<Submesh> const broken{a, Submesh{{1, 2}, {0, 1, 2}}};
    EXPECT_EQ(AnalyzeFifoVertexCache(span<Submesh const>(broken), 16), VertexCacheStatistics{});
    EXPECT_EQ(AnalyzeFifoVertexCache(span<Submesh const>(), 16), VertexCacheStatistics{});
}

} // namespace
