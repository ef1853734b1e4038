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
#include <type_traits>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// Vertex -> primitives that use it, in increasing primitive order, as one
// offsets array and one flat list (a primitive using a vertex twice appears
// twice). Only whole primitives are listed.
struct PrimitiveAdjacency {
    std::vector<std::uint32_t> offsets; // vertexCount + 1
    std::unique_ptr<std::uint32_t[]> list;

    template <typename Size> // see PrimitiveSize
    PrimitiveAdjacency(std::uint16_t const* indices, std::uint32_t primitiveCount, unsigned int vertexCount, Size size)
        : offsets(std::size_t{vertexCount} + 1, 0),
          list(std::make_unique_for_overwrite<std::uint32_t[]>(std::size_t{primitiveCount} * size))
    {
        std::uint32_t* const count = offsets.data() + 1;
        std::uint16_t const* corner = indices;
        for (std::uint32_t t = 0; t < primitiveCount; ++t, corner += size)
            for (unsigned int j = 0; j < size; ++j)
                ++count[corner[j]];
        for (std::size_t v = 0; v < vertexCount; ++v)
            offsets[v + 1] += offsets[v];
        // Fill from the front: offsets[v] serves as v's cursor and ends up at
        // the start of v + 1's range, so shifting by one restores the offsets.
        std::uint32_t* const cursor = offsets.data();
        corner = indices;
        for (std::uint32_t t = 0; t < primitiveCount; ++t, corner += size)
            for (unsigned int j = 0; j < size; ++j)
                list[cursor[corner[j]]++] = t;
        for (std::size_t v = vertexCount; v > 0; --v)
            offsets[v] = offsets[v - 1];
        offsets[0] = 0;
    }
};

// What the fan loop reads and writes for one vertex, side by side so that one
// cache line serves both. Read the fields one at a time right after the fan
// wrote them: a load spanning both would not be forwarded from the two
// separate stores and would wait for them to retire.
struct VertexState {
    std::uint32_t live;  // occurrences not yet written
    std::uint32_t stamp; // clock value when the vertex last entered the cache
};

// The primitive size as a compile-time constant when FixedSize gives one, so
// that the corner loops unroll, else the run-time value.
template <unsigned int FixedSize>
auto PrimitiveSize(unsigned int primitiveSize) noexcept
{
    if constexpr (FixedSize != 0)
        return std::integral_constant<unsigned int, FixedSize>{};
    else
        return primitiveSize;
}

// The reordering proper. FixedSize is the primitive size when it is known at
// compile time (triangles), or 0 to take primitiveSize at run time.
template <unsigned int FixedSize>
void Reorder(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount, unsigned int vertexCount,
             unsigned int primitiveSize, std::uint16_t cacheSize)
{
    auto const size = PrimitiveSize<FixedSize>(primitiveSize);
    std::uint32_t const primitiveCount = indexCount / size;
    std::size_t const wholeIndices = std::size_t{primitiveCount} * size;
    PrimitiveAdjacency const adjacency(indices, primitiveCount, vertexCount, size);

    // A vertex is live once per occurrence: its whole-primitive references,
    // plus any in an incomplete trailing primitive. Those never reach zero,
    // which is why callers must pass whole primitives.
    auto const state = std::make_unique_for_overwrite<VertexState[]>(vertexCount);
    for (std::size_t v = 0; v < vertexCount; ++v)
        state[v] = {adjacency.offsets[v + 1] - adjacency.offsets[v], 0};
    for (std::size_t k = wholeIndices; k < indexCount; ++k)
        ++state[indices[k]].live;

    // A byte per primitive: one load and test in the fan loop, where a packed
    // bit would need a shift and a mask too.
    std::vector<std::uint8_t> emitted(primitiveCount, 0);

    // Dead-end stack: every written index is pushed once, so it never holds
    // more than the whole indices. A fan's pushes are also its candidates.
    auto const deadEnd = std::make_unique_for_overwrite<std::uint16_t[]>(wholeIndices + 1);
    std::uint16_t* top = deadEnd.get();

    std::uint32_t s = std::uint32_t{cacheSize} + 1; // every vertex starts outside the cache
    int i = 1;                                      // scan cursor, never moves back
    unsigned int f = 0;
    std::uint16_t* out = result;
    std::uint32_t const secondaryCorners = size - 1;
    std::uint32_t const* const list = adjacency.list.get();
    std::uint32_t const* const offsets = adjacency.offsets.data();
    std::int32_t const cache = cacheSize;
    bool const prefetch = wholeIndices * sizeof(std::uint16_t) > 128 * 1024;

    for (;;) {
        std::uint16_t* const fanStart = top;
        std::uint32_t const* const fanBegin = list + offsets[f];
        std::uint32_t const* const fanEnd = list + offsets[f + 1];
        // A fan's primitives lie anywhere in the index list. Once that list
        // outgrows the inner caches, start all their misses at once rather
        // than one after another; below that the extra pass only costs.
        if (prefetch)
            for (std::uint32_t const* it = fanBegin; it != fanEnd; ++it)
                __builtin_prefetch(indices + std::size_t{*it} * size);
        for (std::uint32_t const* it = fanBegin; it != fanEnd; ++it) {
            std::uint32_t const t = *it;
            if (emitted[t] != 0)
                continue;
            emitted[t] = 1;

            std::uint16_t const* const corner = indices + std::size_t{t} * size;
            for (unsigned int j = 0; j < size; ++j) {
                std::uint16_t const v = corner[j];
                *out++ = v;
                *top++ = v;
                VertexState& vertex = state[v];
                --vertex.live;
                // A miss loads v and advances the clock; hits leave both alone.
                if (static_cast<std::int32_t>(s - vertex.stamp) > cache) {
                    vertex.stamp = s;
                    ++s;
                }
            }
            // Once f is dead, the rest of its list was emitted already.
            if (state[f].live == 0)
                break;
        }

        // The candidates are the vertices this fan wrote: the stack's top
        // entries, some more than once (duplicates score alike). The live one
        // that has been cached longest without falling out while its
        // remaining primitives are emitted wins. They come in stack order, not
        // by number, so the lowest number wins equal scores explicitly. (These
        // branches predict well; branch-free versions measured slower.)
        // Dead entries leave the stack on the way: a vertex never comes back
        // to life, so no pop could have chosen them.
        std::int32_t best = -1;
        std::int32_t next = -1;
        std::uint16_t* kept = fanStart;
        for (std::uint16_t const* c = fanStart; c != top; ++c) {
            std::uint16_t const v = *c;
            std::uint32_t const live = state[v].live;
            if (live == 0)
                continue;
            *kept++ = v;
            std::uint32_t const p = s - state[v].stamp;
            auto const score = static_cast<std::int32_t>(live * secondaryCorners + p > cacheSize ? 0 : p);
            if (score > best || (score == best && v < next)) {
                best = score;
                next = v;
            }
        }

        top = kept;
        while (next < 0 && top != deadEnd.get()) {
            std::uint16_t const v = *--top;
            if (state[v].live > 0)
                next = v;
        }

        if (next < 0) {
            for (; i < static_cast<int>(vertexCount); ++i) {
                if (state[static_cast<unsigned int>(i)].live > 0) {
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

} // namespace

void Tipsify(std::uint16_t const* indices, std::uint16_t* result, unsigned int indexCount, unsigned int vertexCount,
             unsigned int primitiveSize, std::uint16_t cacheSize)
{
    if (indices == nullptr || result == nullptr || indexCount == 0 || vertexCount == 0 || primitiveSize == 0 ||
        cacheSize == 0)
        return;
    if (primitiveSize == 3)
        Reorder<3>(indices, result, indexCount, vertexCount, primitiveSize, cacheSize);
    else
        Reorder<0>(indices, result, indexCount, vertexCount, primitiveSize, cacheSize);
}

} // namespace Zorvan::Rendering
