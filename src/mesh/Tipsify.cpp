// Tipsify vertex-cache ordering after Sander, Nehab, Barczak, "Fast Triangle
// Reordering for Vertex Locality and Reduced Overdraw", SIGGRAPH 2007.
//
// Fans around one vertex at a time, emitting every primitive not yet emitted
// that uses it, then picks the next fanning vertex among the vertices just
// written by a cache-aware score; if none is live, falls back to a stack of
// recently written vertices and finally to a forward scan over all vertices.
// All working storage is allocated up front; the fan loop only grows the
// candidate vector when a fan touches more distinct vertices than ever before.

#include <Rendering/Mesh.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// Vertex -> primitives that use it, in increasing primitive order, as one
// offsets array and one flat list (a primitive using a vertex twice appears
// twice). Only whole primitives are listed.
struct PrimitiveAdjacency {
    std::vector<std::uint32_t> offsets; // vertexCount + 1
    std::vector<std::uint32_t> list;

    PrimitiveAdjacency(std::uint16_t const* indices, std::uint32_t primitiveCount, unsigned int vertexCount,
                       unsigned int primitiveSize)
        : offsets(std::size_t{vertexCount} + 1, 0)
    {
        std::size_t const wholeIndices = std::size_t{primitiveCount} * primitiveSize;
        for (std::size_t k = 0; k < wholeIndices; ++k)
            ++offsets[std::size_t{indices[k]} + 1];
        for (std::size_t v = 0; v < vertexCount; ++v)
            offsets[v + 1] += offsets[v];
        list.resize(wholeIndices);
        // Fill from the front: offsets[v] serves as v's cursor and ends up at
        // the start of v + 1's range, so shifting by one restores the offsets.
        std::size_t k = 0;
        for (std::uint32_t t = 0; t < primitiveCount; ++t)
            for (unsigned int j = 0; j < primitiveSize; ++j, ++k)
                list[offsets[indices[k]]++] = t;
        for (std::size_t v = vertexCount; v > 0; --v)
            offsets[v] = offsets[v - 1];
        offsets[0] = 0;
    }
};

} // namespace

void Tipsify(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount, unsigned int vertexCount,
             unsigned int primitiveSize, std::uint16_t cacheSize)
{
    if (indices == nullptr || result == nullptr || indexCount == 0 || vertexCount == 0 || primitiveSize == 0 ||
        cacheSize == 0)
        return;

    std::uint32_t const primitiveCount = indexCount / primitiveSize;

    // Live counts include an incomplete trailing primitive's indices: those
    // never reach zero, which is why callers must pass whole primitives.
    std::vector<std::uint32_t> live(vertexCount, 0);
    for (unsigned int k = 0; k < indexCount; ++k)
        ++live[indices[k]];

    PrimitiveAdjacency const adjacency(indices, primitiveCount, vertexCount, primitiveSize);
    std::vector<std::uint32_t> stamp(vertexCount, 0);
    std::vector<std::uint32_t> emitted((std::size_t{primitiveCount} + 31) / 32, 0);

    // Every written index is pushed once, so this capacity is never exceeded.
    std::vector<std::uint16_t> deadEnd;
    deadEnd.reserve(std::size_t{primitiveCount} * primitiveSize);
    std::vector<std::uint16_t> candidates;
    candidates.reserve(64);

    std::uint32_t s = std::uint32_t{cacheSize} + 1; // every vertex starts outside the cache
    int i = 1;                                      // scan cursor, never moves back
    unsigned int f = 0;
    std::uint16_t* out = result;
    std::uint32_t const secondaryCorners = primitiveSize - 1;

    for (;;) {
        candidates.clear();

        std::uint32_t const* const fanBegin = adjacency.list.data() + adjacency.offsets[f];
        std::uint32_t const* const fanEnd = adjacency.list.data() + adjacency.offsets[f + 1];
        // The fan's primitives lie anywhere in the index list: start all their
        // cache misses at once rather than one after another.
        for (std::uint32_t const* it = fanBegin; it != fanEnd; ++it)
            __builtin_prefetch(indices + std::size_t{*it} * primitiveSize);
        for (std::uint32_t const* it = fanBegin; it != fanEnd; ++it) {
            std::uint32_t const t = *it;
            std::uint32_t const bit = std::uint32_t{1} << (t & 31);
            if (emitted[t >> 5] & bit)
                continue;
            emitted[t >> 5] |= bit;

            std::uint16_t const* corner = indices + std::size_t{t} * primitiveSize;
            for (unsigned int j = 0; j < primitiveSize; ++j) {
                std::uint16_t const v = corner[j];
                *out++ = v;
                deadEnd.push_back(v);
                auto const at = std::lower_bound(candidates.begin(), candidates.end(), v);
                if (at == candidates.end() || *at != v)
                    candidates.insert(at, v);
                --live[v];
                // A miss loads v and advances the clock; hits leave both alone.
                if (static_cast<std::int32_t>(s - stamp[v]) > static_cast<std::int32_t>(cacheSize)) {
                    stamp[v] = s;
                    ++s;
                }
            }
        }

        // Prefer the live candidate that has been in the cache longest without
        // falling out when its remaining primitives are emitted; ties go to the
        // lowest vertex number because only a strictly greater score replaces.
        std::int32_t best = -1;
        std::int32_t next = -1;
        for (std::uint16_t const v : candidates) {
            if (live[v] == 0)
                continue;
            std::uint32_t const p = s - stamp[v];
            std::uint32_t const score = live[v] * secondaryCorners + p > cacheSize ? 0 : p;
            if (static_cast<std::int32_t>(score) > best) {
                best = static_cast<std::int32_t>(score);
                next = v;
            }
        }

        while (next < 0 && !deadEnd.empty()) {
            std::uint16_t const v = deadEnd.back();
            deadEnd.pop_back();
            if (live[v] > 0)
                next = v;
        }

        if (next < 0) {
            for (; i < static_cast<int>(vertexCount); ++i) {
                if (live[static_cast<unsigned int>(i)] > 0) {
                    next = i;
                    break;
                }
            }
        }

        if (next < 0)
            return;
        f = static_cast<unsigned int>(next);
    }
}

} // namespace Zorvan::Rendering
