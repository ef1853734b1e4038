// Questions about the library's four semantics in a layout, and the
// conversions between layouts and their per-semantic counts.

#include "vertex/AttributeNames.h"

#include <Rendering/Vertex.h>

#include <cassert>
#include <cstdint>

namespace Zorvan::Rendering {
namespace {

constexpr std::uint32_t MaxSemanticIndex = 4;

} // namespace

bool HasAttribute(std::array<AttributeDesc, 10> const& layout, char const* name)
{
    for (AttributeDesc const& entry : layout) {
        // Only the first attribute of a semantic counts, and only with data.
        if (entry.index == 0 && entry.format != Format::None && entry.name != nullptr &&
            detail::SameName(entry.name, name))
            return true;
    }
    return false;
}

bool HasPosition(std::array<AttributeDesc, 10> const& layout)
{
    return HasAttribute(layout, PositionSemantic);
}

bool HasNormal(std::array<AttributeDesc, 10> const& layout)
{
    return HasAttribute(layout, NormalSemantic);
}

bool HasTextureCoordinate(std::array<AttributeDesc, 10> const& layout)
{
    return HasAttribute(layout, TexcoordSemantic);
}

bool HasColor(std::array<AttributeDesc, 10> const& layout)
{
    return HasAttribute(layout, ColorSemantic);
}

bool Has3dPositionAsFirstAttribute(std::array<AttributeDesc, 10> const& layout)
{
    AttributeDesc const& first = layout[0];
    return first.format == Format::R32G32B32F && first.slot == 0 && first.name != nullptr &&
           detail::SameName(first.name, PositionSemantic);
}

VertexDescription InputLayout2VertexDescription(std::array<AttributeDesc, 10> const& layout)
{
    // seen[semantic][index]: repeated indices count once.
    bool seen[4][MaxSemanticIndex] = {};
    char const* const semantics[4] = {PositionSemantic, NormalSemantic, TexcoordSemantic, ColorSemantic};
    for (AttributeDesc const& entry : layout) {
        if (entry.name == nullptr)
            continue;
        assert(entry.index < MaxSemanticIndex && "semantic indices are 0..3");
        if (entry.index >= MaxSemanticIndex)
            continue;
        for (std::size_t s = 0; s < 4; ++s) {
            if (detail::SameName(entry.name, semantics[s])) {
                seen[s][entry.index] = true;
                break;
            }
        }
    }
    auto const count = [&](std::size_t s) {
        std::uint8_t n = 0;
        for (bool flag : seen[s])
            n = static_cast<std::uint8_t>(n + (flag ? 1 : 0));
        return n;
    };
    return VertexDescription{count(0), count(1), count(2), count(3)};
}

std::array<AttributeDesc, 10> VertexDescription2InputLayout(VertexDescription const& description)
{
    std::array<AttributeDesc, 10> layout{};
    std::size_t next = 0;
    auto const append = [&](std::uint8_t count, char const* name, Format format) {
        for (std::uint32_t index = 0; index < count; ++index) {
            assert(next < layout.size() && "a vertex description holds at most ten attributes");
            if (next == layout.size())
                return;
            layout[next++] = AttributeDesc{name, index, format, 0, 0, 0};
        }
    };
    append(description.positionCount, PositionSemantic, Format::R32G32B32F);
    append(description.normalCount, NormalSemantic, Format::R32G32B32F);
    append(description.texcoordCount, TexcoordSemantic, Format::R32G32F);
    append(description.colorCount, ColorSemantic, Format::R8G8B8A8);
    return layout;
}

} // namespace Zorvan::Rendering
