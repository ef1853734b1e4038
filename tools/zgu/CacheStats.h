#pragma once

// Quality of an index order for a post-transform vertex cache, measured on a
// FIFO cache model (what most hardware and meshoptimizer's analyser use).

#include <cstdint>
#include <span>

namespace Zorvan::Tool {

struct CacheStats {
    std::uint64_t misses = 0;
    double acmr = 0.0; // misses per triangle; 0.5 is the ideal for large regular meshes
    double atvr = 0.0; // misses per distinct vertex used; 1.0 is the ideal
};

// indices: a triangle list over vertices 0 .. vertexCount - 1.
CacheStats AnalyseFifoCache(std::span<std::uint32_t const> indices, std::uint32_t vertexCount,
                            unsigned cacheSize);

} // namespace Zorvan::Tool
