// Tipsify vertex-cache ordering after Sander, Nehab, Barczak, "Fast Triangle
// Reordering for Vertex Locality and Reduced Overdraw", SIGGRAPH 2007.
//
// Fans around one vertex at a time, emitting every primitive not yet emitted
// that uses it, then picks the next fanning vertex among the vertices just
// written by a cache-aware score; if none is live, falls back to a stack of
// recently written vertices and finally to a forward scan over all vertices.
// All working storage is allocated once, sized for the worst case, so the fan
// loop never allocates or checks capacities.

#include <Rendering/Mesh.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// Vertex -> primitives that use it, in increasing primitive order, as one
// offsets array and one flat list (a primitive using a vertex twice appears
// twice). Only whole primitives are listed.
struct PrimitiveAdjacency {
    std::vector<std::uint32_t> offsets; // vertexCount + 1
    std::unique_ptr<std::uint32_t[]> list;
    std::uint32_t largestFan = 0;       // most references to one vertex

    PrimitiveAdjacency(std::uint16_t const* indices, std::uint32_t primitiveCount, unsigned int vertexCount,
                       unsigned int primitiveSize)
        : offsets(std::size_t{vertexCount} + 1, 0),
          list(std::make_unique_for_overwrite<std::uint32_t[]>(std::size_t{primitiveCount} * primitiveSize))
    {
        std::size_t const wholeIndices = std::size_t{primitiveCount} * primitiveSize;
        for (std::size_t k = 0; k < wholeIndices; ++k)
            ++offsets[std::size_t{indices[k]} + 1];
        for (std::size_t v = 0; v < vertexCount; ++v) {
            largestFan = std::max(largestFan, offsets[v + 1]);
            offsets[v + 1] += offsets[v];
        }
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

    std::uint32_t References(std::size_t v) const noexcept { return offsets[v + 1] - offsets[v]; }
};

// Lower bound by binary search without data-dependent branches: the set is
// tiny and its comparisons are unpredictable, so conditional moves win.
std::uint16_t* LowerBound(std::uint16_t* first, std::uint16_t* last, std::uint16_t v) noexcept
{
    std::size_t length = static_cast<std::size_t>(last - first);
    if (length == 0)
        return first;
    while (length > 1) {
        std::size_t const half = length / 2;
        first += first[half - 1] < v ? half : 0;
        length -= half;
    }
    return first + (*first < v ? 1 : 0);
}

} // namespace

void Tipsify(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount, unsigned int vertexCount,
             unsigned int primitiveSize, std::uint16_t cacheSize)
{
    if (indices == nullptr || result == nullptr || indexCount == 0 || vertexCount == 0 || primitiveSize == 0 ||
        cacheSize == 0)
        return;

    std::uint32_t const primitiveCount = indexCount / primitiveSize;
    std::size_t const wholeIndices = std::size_t{primitiveCount} * primitiveSize;
    PrimitiveAdjacency const adjacency(indices, primitiveCount, vertexCount, primitiveSize);

    // A vertex is live once per occurrence: its whole-primitive references,
    // plus any in an incomplete trailing primitive. Those never reach zero,
    // which is why callers must pass whole primitives.
    std::vector<std::uint32_t> live(vertexCount);
    for (std::size_t v = 0; v < vertexCount; ++v)
        live[v] = adjacency.References(v);
    for (std::size_t k = wholeIndices; k < indexCount; ++k)
        ++live[indices[k]];

    std::vector<std::uint32_t> stamp(vertexCount, 0);
    std::vector<std::uint32_t> emitted((std::size_t{primitiveCount} + 31) / 32, 0);

    // Dead-end stack: every written index is pushed once, so it never holds
    // more than the whole indices.
    auto const deadEnd = std::make_unique_for_overwrite<std::uint16_t[]>(wholeIndices);
    std::size_t deadEndSize = 0;

    // Candidates: the distinct vertices written by the current fan, kept
    // sorted. A fan writes at most primitiveSize indices per primitive of the
    // largest fan.
    auto const candidates =
        std::make_unique_for_overwrite<std::uint16_t[]>(std::size_t{adjacency.largestFan} * primitiveSize + 1);
    std::uint16_t* candidatesEnd = candidates.get();

    std::uint32_t s = std::uint32_t{cacheSize} + 1; // every vertex starts outside the cache
    int i = 1;                                      // scan cursor, never moves back
    unsigned int f = 0;
    std::uint16_t* out = result;
    std::uint32_t const secondaryCorners = primitiveSize - 1;
    std::uint32_t const* const list = adjacency.list.get();

    for (;;) {
        candidatesEnd = candidates.get();

        std::uint32_t const* const fanBegin = list + adjacency.offsets[f];
        std::uint32_t const* const fanEnd = list + adjacency.offsets[f + 1];
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
                deadEnd[deadEndSize++] = v;
                std::uint16_t* const at = LowerBound(candidates.get(), candidatesEnd, v);
                if (at == candidatesEnd || *at != v) {
                    // The set is a handful of entries: shift by hand rather
                    // than pay for a memmove call.
                    for (std::uint16_t* p = candidatesEnd; p != at; --p)
                        *p = p[-1];
                    *at = v;
                    ++candidatesEnd;
                }
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
        for (std::uint16_t const* c = candidates.get(); c != candidatesEnd; ++c) {
            std::uint16_t const v = *c;
            if (live[v] == 0)
                continue;
            std::uint32_t const p = s - stamp[v];
            std::uint32_t const score = live[v] * secondaryCorners + p > cacheSize ? 0 : p;
            if (static_cast<std::int32_t>(score) > best) {
                best = static_cast<std::int32_t>(score);
                next = v;
            }
        }

        while (next < 0 && deadEndSize > 0) {
            std::uint16_t const v = deadEnd[--deadEndSize];
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
