// Building, measuring, normalising and comparing attribute layouts.

#include "vertex/AttributeNames.h"

#include <Rendering/Vertex.h>

#include <algorithm>
#include <cassert>
#include <limits>
#include <tuple>

namespace Zorvan::Rendering {
namespace {

constexpr std::size_t SlotCount = 4;

bool IsActive(AttributeDesc const& entry) noexcept
{
    return entry.name != nullptr && entry.format != Format::None;
}

// Slots 4 and up are outside the contract; they are left out rather than
// written past the per-slot arrays.
bool HasUsableSlot(AttributeDesc const& entry) noexcept
{
    assert(entry.slot < SlotCount && "vertex-buffer slots are 0..3");
    return entry.slot < SlotCount;
}

// Strict order over every field; entries equal under it are also equal for
// the entry-wise comparison that follows the sort.
bool EntryLess(AttributeDesc const& a, AttributeDesc const& b) noexcept
{
    auto const key = [](AttributeDesc const& e) {
        return std::tuple(e.offset, static_cast<std::uint32_t>(e.format), e.index, e.slot, e.extra);
    };
    auto const ka = key(a);
    auto const kb = key(b);
    if (ka != kb)
        return ka < kb;
    return detail::CompareNames(a.name, b.name) < 0;
}

} // namespace

std::array<AttributeDesc, 10> AddAttribute(std::array<AttributeDesc, 10> layout, AttributeDesc const& attribute)
{
    // Only the name decides emptiness; a full layout ignores the addition.
    auto const free = std::find_if(layout.begin(), layout.end(), [](AttributeDesc const& e) { return e.name == nullptr; });
    if (free != layout.end())
        *free = attribute;
    return layout;
}

std::array<unsigned int, 10> CalculateOffsets(std::array<AttributeDesc, 10> const& layout)
{
    std::array<unsigned int, SlotCount> slotEnd{};
    std::array<unsigned int, 10> offsets{};
    for (std::size_t i = 0; i < layout.size(); ++i) {
        AttributeDesc const& entry = layout[i];
        if (!IsActive(entry) || !HasUsableSlot(entry))
            continue;
        // An explicit 0 cannot be told from "automatic": it goes behind the slot's end.
        unsigned int const offset = entry.offset != 0 ? entry.offset : slotEnd[entry.slot];
        offsets[i] = offset;
        slotEnd[entry.slot] = std::max(slotEnd[entry.slot], offset + GetSize(entry.format));
    }
    return offsets;
}

std::array<unsigned int, 4> CalculateStrides(std::array<AttributeDesc, 10> const& layout)
{
    std::array<unsigned int, SlotCount> lowest;
    lowest.fill(std::numeric_limits<unsigned int>::max());
    std::array<unsigned int, SlotCount> highest{};
    for (AttributeDesc const& entry : layout) {
        if (!IsActive(entry) || !HasUsableSlot(entry))
            continue;
        unsigned int const offset = entry.offset != 0 ? entry.offset : highest[entry.slot];
        lowest[entry.slot] = std::min(lowest[entry.slot], offset);
        highest[entry.slot] = std::max(highest[entry.slot], offset + GetSize(entry.format));
    }
    std::array<unsigned int, 4> strides{};
    for (std::size_t s = 0; s < SlotCount; ++s)
        strides[s] = lowest[s] < highest[s] ? highest[s] - lowest[s] : 0u;
    return strides;
}

std::array<AttributeDesc, 10> Normalize(std::array<AttributeDesc, 10> layout)
{
    auto const offsets = CalculateOffsets(layout);
    for (std::size_t i = 0; i < layout.size(); ++i)
        layout[i].offset = offsets[i];
    return layout;
}

bool AreEquivalent(std::array<AttributeDesc, 10> a, std::array<AttributeDesc, 10> b)
{
    a = Normalize(a);
    b = Normalize(b);
    std::sort(a.begin(), a.end(), EntryLess);
    std::sort(b.begin(), b.end(), EntryLess);
    return a == b;
}

} // namespace Zorvan::Rendering
