// Tipsify on valid meshes decoded from the input (whole primitives, indices
// below the vertex count): the output must hold every primitive exactly once
// with its corners in input order.

#include "FuzzInput.h"

#include <Rendering/Mesh.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    FuzzInput in(data, size);
    auto const vertexCount = static_cast<unsigned>(in.Range(1, 4000));
    auto const primitiveSize = static_cast<unsigned>(in.Range(1, 4));
    auto const cacheSize = static_cast<std::uint16_t>(in.Range(1, 64));
    auto const primitiveCount = static_cast<unsigned>(std::min<std::size_t>(in.Remaining() / 2 / primitiveSize, 20000));

    std::vector<std::uint16_t> indices(primitiveCount * primitiveSize);
    for (auto& index : indices)
        index = static_cast<std::uint16_t>(in.Take<std::uint16_t>() % vertexCount);
    std::vector<std::uint16_t> result(indices.size(), 0xFFFF);

    Zorvan::Rendering::Tipsify(indices.data(), result.data(), static_cast<unsigned>(indices.size()), vertexCount,
                               primitiveSize, cacheSize);
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
