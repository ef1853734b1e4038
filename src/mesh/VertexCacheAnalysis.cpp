// FIFO post-transform vertex cache model behind ACMR and ATVR. A vertex stays
// cached while fewer than cacheSize misses happened since it was loaded: a
// FIFO evicts by load time only, so hits do not refresh an entry.

#include <Rendering/Mesh.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// Counts misses. The clock advances by one per miss; a vertex holds the
// clock value of its load, so it is cached while clock - loadedAt < cacheSize.
class FifoCache {
public:
    FifoCache(std::size_t vertexCount, unsigned int cacheSize) : loadedAt_(vertexCount, 0), cacheSize_(cacheSize) {}

    // Empties the cache: every entry loaded before is now older than cacheSize misses.
    void Flush() noexcept { clock_ += cacheSize_ + 1; }

    template <typename Index>
    void Run(span<Index const> indices, std::size_t wholeIndices) noexcept
    {
        for (std::size_t i = 0; i < wholeIndices; ++i) {
            std::uint64_t& loaded = loadedAt_[indices[i]];
            if (loaded == 0 || clock_ - loaded >= cacheSize_) {
                ++clock_;
                loaded = clock_;
                ++misses_;
            }
        }
    }

    std::uint64_t Misses() const noexcept { return misses_; }

private:
    std::vector<std::uint64_t> loadedAt_; // 0: never loaded
    std::uint64_t clock_ = 0;             // misses so far, plus the jumps of Flush
    std::uint64_t cacheSize_;
    std::uint64_t misses_ = 0;
};

VertexCacheStatistics Statistics(std::uint64_t misses, std::size_t triangles, std::size_t distinctVertices)
{
    VertexCacheStatistics stats;
    stats.misses = misses;
    stats.acmr = double(misses) / double(triangles);
    stats.atvr = double(misses) / double(distinctVertices);
    return stats;
}

} // namespace

VertexCacheStatistics AnalyzeFifoVertexCache(span<std::uint32_t const> indices, std::size_t vertexCount,
                                             unsigned int cacheSize)
{
    std::size_t const whole = indices.size() / 3 * 3;
    if (whole == 0)
        return {};
    std::vector<bool> used(vertexCount, false);
    std::size_t distinct = 0;
    for (std::size_t i = 0; i < whole; ++i) {
        if (indices[i] >= vertexCount)
            return {};
        if (!used[indices[i]]) {
            used[indices[i]] = true;
            ++distinct;
        }
    }
    FifoCache cache(vertexCount, cacheSize);
    cache.Run(indices, whole);
    return Statistics(cache.Misses(), whole / 3, distinct);
}

VertexCacheStatistics AnalyzeFifoVertexCache(span<Submesh const> submeshes, unsigned int cacheSize)
{
    std::size_t triangles = 0;
    std::size_t largestSubmesh = 0;
    std::size_t sourceVertexCount = 0;
    for (Submesh const& submesh : submeshes) {
        std::size_t const whole = submesh.indices.size() / 3 * 3;
        for (std::size_t i = 0; i < whole; ++i)
            if (submesh.indices[i] >= submesh.vertices.size())
                return {};
        for (std::size_t i = 0; i < whole; ++i)
            sourceVertexCount = std::max<std::size_t>(sourceVertexCount, submesh.vertices[submesh.indices[i]] + 1);
        triangles += whole / 3;
        largestSubmesh = std::max(largestSubmesh, submesh.vertices.size());
    }
    if (triangles == 0)
        return {};

    std::vector<bool> used(sourceVertexCount, false);
    std::size_t distinct = 0;
    FifoCache cache(largestSubmesh, cacheSize);
    for (Submesh const& submesh : submeshes) {
        std::size_t const whole = submesh.indices.size() / 3 * 3;
        for (std::size_t i = 0; i < whole; ++i) {
            std::uint32_t const source = submesh.vertices[submesh.indices[i]];
            if (!used[source]) {
                used[source] = true;
                ++distinct;
            }
        }
        cache.Flush();
        cache.Run(span<std::uint16_t const>(submesh.indices), whole);
    }
    return Statistics(cache.Misses(), triangles, distinct);
}

} // namespace Zorvan::Rendering
