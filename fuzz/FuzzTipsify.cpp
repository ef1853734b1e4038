// Tipsify on valid meshes decoded from the input (whole primitives, indices
// below the vertex count): the output must match the plain oracle index for
// index, and hold every primitive exactly once with its corners in order.

#include "FuzzInput.h"
#include "oracles/TipsifyOracle.h"

#include <Rendering/Mesh.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    // Mostly small vertex counts, where primitives share vertices; sometimes
    // the whole 16-bit range.
    bool const wide = (in.Take<std::uint8_t>() & 7) == 0;
    auto const vertexCount = static_cast<unsigned>(in.Range(1, wide ? 65536 : 4000));
    auto const primitiveSize = static_cast<unsigned>(in.Range(1, 4));
    auto const cacheSize = static_cast<std::uint16_t>(wide ? in.Range(1, 65535) : in.Range(1, 64));
    auto const primitiveCount = static_cast<unsigned>(std::min<std::size_t>(in.Remaining() / 2 / primitiveSize, 20000));

    std::vector<std::uint16_t> indices(primitiveCount * primitiveSize);
    for (auto& index : indices)
        index = static_cast<std::uint16_t>(in.Take<std::uint16_t>() % vertexCount);
    std::vector<std::uint16_t> result(indices.size() + 1, 0xFFFF);
    std::vector<std::uint16_t> expected(indices.size() + 1, 0xFFFF);

    auto const count = static_cast<unsigned>(indices.size());
    Zorvan::Rendering::Tipsify(indices.data(), result.data(), count, vertexCount, primitiveSize, cacheSize);
    Oracles::Tipsify(indices.data(), expected.data(), count, vertexCount, primitiveSize, cacheSize);
    if (result != expected)
        std::abort();
    if (indices.empty())
        return 0;

    auto primitives = [&](std::vector<std::uint16_t> const& list) {
        std::vector<std::vector<std::uint16_t>> out;
        for (std::size_t p = 0; p < primitiveCount; ++p)
            out.emplace_back(list.begin() + static_cast<std::ptrdiff_t>(p * primitiveSize),
                             list.begin() + static_cast<std::ptrdiff_t>((p + 1) * primitiveSize));
        std::sort(out.begin(), out.end());
        return out;
    };
    if (primitives(indices) != primitives(result))
        std::abort();
    return 0;
}
