// The 16-bit submesh split on hostile meshes: positions with NaN, infinities
// and extreme magnitudes, repeated corners, and (from a seed) meshes large
// enough to take the spatial path. Every split must keep every triangle
// exactly once within the 16-bit limit, be the same on one thread as on
// many, and agree with the cache analyser's bounds.

#include "FuzzInput.h"

#include <Rendering/Mesh.h>

#include <oneapi/tbb/global_control.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <vector>

namespace {

using Zorvan::Rendering::Submesh;
using Point = Zorvan::Math::point<float, 3>;
using Triangle = std::array<std::uint32_t, 3>;

float Special(std::uint8_t pick, std::mt19937& rng)
{
    switch (pick % 8) {
    case 0: return std::numeric_limits<float>::quiet_NaN();
    case 1: return std::numeric_limits<float>::infinity();
    case 2: return -std::numeric_limits<float>::infinity();
    case 3: return std::numeric_limits<float>::max();
    case 4: return -std::numeric_limits<float>::max();
    case 5: return std::numeric_limits<float>::denorm_min();
    default: return std::uniform_real_distribution<float>(-1e6f, 1e6f)(rng);
    }
}

void Check(bool condition)
{
    if (!condition)
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    bool const large = in.Take<std::uint8_t>() % 16 == 15; // empty input: small
    auto const cacheSize = static_cast<std::uint16_t>(in.Range(0, 40));
    std::mt19937 rng(in.Take<std::uint32_t>());

    std::vector<Point> positions;
    std::vector<Triangle> triangles;
    if (large) {
        // A noisy sheet of random triangles using over 65,535 of its
        // vertices, so that a split is needed and the order matters.
        auto const side = static_cast<std::uint32_t>(in.Range(270, 300));
        std::uniform_real_distribution<float> jitter(-0.4f, 0.4f);
        for (std::uint32_t y = 0; y < side; ++y)
            for (std::uint32_t x = 0; x < side; ++x)
                positions.push_back({{float(x) + jitter(rng), float(y) + jitter(rng), jitter(rng)}});
        std::uniform_int_distribution<std::uint32_t> cell(0, side - 2);
        std::size_t const count = std::size_t{side} * side;
        for (std::size_t t = 0; t < count; ++t) {
            std::uint32_t const x = cell(rng), y = cell(rng);
            std::uint32_t const a = y * side + x;
            triangles.push_back({a, a + 1, a + side + static_cast<std::uint32_t>(rng() & 1u)});
        }
        while (in.Remaining() >= 3) {
            auto const v = in.Take<std::uint16_t>() * 2u % positions.size();
            positions[v][v % 3] = Special(in.Take<std::uint8_t>(), rng);
        }
    } else {
        auto const vertexCount = static_cast<std::uint32_t>(in.Range(1, 300));
        for (std::uint32_t v = 0; v < vertexCount; ++v)
            positions.push_back({{in.Take<float>(), in.Take<float>(), in.Take<float>()}});
        while (in.Remaining() >= 6)
            triangles.push_back({in.Take<std::uint16_t>() % (vertexCount + 1), in.Take<std::uint16_t>() % vertexCount,
                                 in.Take<std::uint16_t>() % vertexCount}); // + 1: sometimes out of range
    }

    auto const split = [&] {
        return Zorvan::Rendering::SplitInto16BitSubmeshes(Zorvan::Rendering::span<Point const>(positions),
                                                          Zorvan::Rendering::span<Triangle const>(triangles),
                                                          cacheSize);
    };
    std::vector<Submesh> const submeshes = split();
    {
        tbb::global_control one(tbb::global_control::max_allowed_parallelism, 1);
        Check(split() == submeshes);
    }

    bool const outOfRange = std::any_of(triangles.begin(), triangles.end(), [&](Triangle const& t) {
        return t[0] >= positions.size() || t[1] >= positions.size() || t[2] >= positions.size();
    });
    if (outOfRange || triangles.empty()) {
        Check(submeshes.empty());
        return 0;
    }

    std::vector<Triangle> seen;
    for (Submesh const& sub : submeshes) {
        Check(sub.vertices.size() <= Zorvan::Rendering::MaxSubmeshVertexCount);
        Check(!sub.indices.empty() && sub.indices.size() % 3 == 0);
        std::uint32_t next = 0;
        for (std::uint16_t i : sub.indices) {
            Check(i <= next);
            next = std::max<std::uint32_t>(next, i + 1u);
        }
        Check(next == sub.vertices.size());
        std::vector<std::uint32_t> sorted = sub.vertices;
        std::sort(sorted.begin(), sorted.end());
        Check(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end());
        for (std::size_t k = 0; k < sub.indices.size(); k += 3)
            seen.push_back({sub.vertices[sub.indices[k]], sub.vertices[sub.indices[k + 1]],
                            sub.vertices[sub.indices[k + 2]]});
    }
    std::vector<Triangle> expected = triangles;
    std::sort(expected.begin(), expected.end());
    std::sort(seen.begin(), seen.end());
    Check(seen == expected);

    // Each stored vertex loads at least once per submesh; no triangle loads
    // more than its three corners.
    auto const stats = Zorvan::Rendering::AnalyzeFifoVertexCache(Zorvan::Rendering::span<Submesh const>(submeshes),
                                                                 cacheSize == 0 ? 16 : cacheSize);
    std::size_t stored = 0;
    for (Submesh const& sub : submeshes)
        stored += sub.vertices.size();
    Check(stats.misses >= stored && stats.misses <= 3 * triangles.size());
    return 0;
}
