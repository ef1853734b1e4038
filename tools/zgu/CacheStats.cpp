#include "CacheStats.h"

#include <vector>

namespace Zorvan::Tool {

CacheStats AnalyseFifoCache(std::span<std::uint32_t const> indices, std::uint32_t vertexCount, unsigned cacheSize)
{
    CacheStats stats;
    if (indices.empty() || cacheSize == 0)
        return stats;

    // A vertex is cached while fewer than cacheSize misses happened since it
    // was loaded: a FIFO evicts by load time only, hits do not refresh.
    std::vector<std::uint64_t> loadedAt(vertexCount, 0);
    std::vector<bool> used(vertexCount, false);
    std::uint64_t clock = 0;
    std::uint64_t distinct = 0;
    for (std::uint32_t v : indices) {
        if (!used[v]) {
            used[v] = true;
            ++distinct;
        }
        if (loadedAt[v] == 0 || clock - loadedAt[v] >= cacheSize) {
            ++clock;
            loadedAt[v] = clock;
            ++stats.misses;
        }
    }
    stats.acmr = double(stats.misses) / double(indices.size() / 3);
    stats.atvr = double(stats.misses) / double(distinct);
    return stats;
}

} // namespace Zorvan::Tool
