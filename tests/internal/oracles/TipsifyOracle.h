#pragma once

// The fan-based Tipsify ordering written as plainly as it is described, with
// the working storage it is described with: per-vertex adjacency vectors, a
// sorted candidate vector filled by lower-bound insertion, a deque as the
// dead-end stack and a packed bit vector of emitted primitives. The library's
// Tipsify keeps none of these but must write the same indices; tests and the
// fuzz target compare the two. Header-only so both can include it.

#include <algorithm>
#include <cstdint>
#include <deque>
#include <vector>

namespace Oracles {

inline void Tipsify(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount,
                    unsigned int vertexCount, unsigned int primitiveSize, std::uint16_t cacheSize)
{
    if (indices == nullptr || result == nullptr || indexCount == 0 || vertexCount == 0 || primitiveSize == 0 ||
        cacheSize == 0)
        return;
    std::uint32_t const primitiveCount = indexCount / primitiveSize;

    // Live counts take every index, a trailing partial primitive's too.
    std::vector<std::uint32_t> live(vertexCount, 0);
    for (unsigned int k = 0; k < indexCount; ++k)
        ++live[indices[k]];

    // Adjacency lists hold whole primitives only, in increasing order.
    std::vector<std::vector<std::uint32_t>> adjacency(vertexCount);
    for (unsigned int v = 0; v < vertexCount; ++v)
        adjacency[v].reserve(live[v]);
    for (std::uint32_t t = 0; t < primitiveCount; ++t)
        for (unsigned int j = 0; j < primitiveSize; ++j)
            adjacency[indices[t * primitiveSize + j]].push_back(t);

    std::vector<std::uint32_t> stamp(vertexCount, 0);
    std::vector<std::uint32_t> emitted((primitiveCount + 31) / 32, 0);
    std::deque<std::uint16_t> deadEnd;
    std::vector<std::uint16_t> candidates;

    std::uint32_t s = cacheSize + 1u;
    int i = 1;
    unsigned int f = 0;
    unsigned int out = 0;

    for (;;) {
        candidates.clear();
        for (std::uint32_t const t : adjacency[f]) {
            if ((emitted[t / 32] >> (t % 32)) & 1u)
                continue;
            emitted[t / 32] |= 1u << (t % 32);
            for (unsigned int j = 0; j < primitiveSize; ++j) {
                std::uint16_t const v = indices[t * primitiveSize + j];
                result[out++] = v;
                deadEnd.push_back(v);
                auto const at = std::lower_bound(candidates.begin(), candidates.end(), v);
                if (at == candidates.end() || *at != v)
                    candidates.insert(at, v);
                --live[v];
                if (static_cast<std::int32_t>(s - stamp[v]) > static_cast<std::int32_t>(cacheSize)) {
                    stamp[v] = s;
                    ++s;
                }
            }
        }

        int best = -1;
        int chosen = -1;
        for (std::uint16_t const v : candidates) {
            if (live[v] == 0)
                continue;
            std::uint32_t const p = s - stamp[v];
            std::uint32_t const score = live[v] * (primitiveSize - 1) + p > cacheSize ? 0u : p;
            if (static_cast<std::int32_t>(score) > best) {
                best = static_cast<std::int32_t>(score);
                chosen = v;
            }
        }
        while (chosen < 0 && !deadEnd.empty()) {
            std::uint16_t const v = deadEnd.back();
            deadEnd.pop_back();
            if (live[v] > 0)
                chosen = v;
        }
        if (chosen < 0) {
            while (i < static_cast<int>(vertexCount)) {
                if (live[static_cast<unsigned int>(i)] > 0) {
                    chosen = i;
                    break;
                }
                ++i;
            }
        }
        if (chosen < 0)
            return;
        f = static_cast<unsigned int>(chosen);
    }
}

} // namespace Oracles
