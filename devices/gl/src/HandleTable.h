#pragma once

// Slot tables behind the device's handles. A handle's low 32 bits name the
// slot; the upper 32 bits hold the kind of object (top byte) and the slot's
// generation (low 24 bits), so stale, unknown and foreign handles are told
// apart and never reach a recycled or missing object.
//
// Render-target views also travel in 32-bit fields (BindingState), where the
// upper half is lost. Their table packs a 12-bit generation above a 20-bit
// slot into the low half, so those bits alone still tell a stale view.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

enum class ObjectKind : std::uint8_t { Buffer = 1, Image, ShaderResourceView, RenderTargetView, Sampler, Shader, Pipeline, Query };

inline constexpr std::size_t ObjectKindCount = 8;

char const* ToString(ObjectKind kind) noexcept;

enum class LookupResult { Found, Invalid, Unknown, Stale, WrongKind };

char const* Explain(LookupResult result) noexcept;

enum class HandlePacking {
    Slot,                // low 32 bits: the slot
    SlotAndGeneration,   // low 32 bits: a short generation above a 20-bit slot
};

template <typename Record>
class HandleTable {
public:
    explicit HandleTable(ObjectKind kind, HandlePacking packing = HandlePacking::Slot) noexcept
        : kind_(kind), packing_(packing)
    {
    }

    std::uint64_t Insert(Record record)
    {
        std::uint32_t slot = 0;
        if (!free_.empty()) {
            slot = free_.back();
            free_.pop_back();
        } else {
            if (packing_ == HandlePacking::SlotAndGeneration && slots_.size() >= MaxPackedSlots)
                throw std::length_error(std::string("more than ") + std::to_string(MaxPackedSlots) + " live " +
                                        ToString(kind_) + "s");
            slot = static_cast<std::uint32_t>(slots_.size());
            slots_.push_back({});
        }
        slots_[slot].record.emplace(std::move(record));
        ++live_;
        return (std::uint64_t{Upper(slots_[slot].generation)} << 32) | Low(slot, slots_[slot].generation);
    }

    Record* Find(std::uint64_t handle, LookupResult& result) noexcept
    {
        std::uint32_t const low = static_cast<std::uint32_t>(handle);
        std::uint32_t const slot = SlotOf(low);
        std::uint32_t const upper = static_cast<std::uint32_t>(handle >> 32);
        std::uint32_t const generation = upper & 0xFFFFFFu;
        if (low == ~std::uint32_t{0})
            result = LookupResult::Invalid;
        else if ((upper >> 24) != static_cast<std::uint32_t>(kind_))
            result = (upper >> 24) != 0 && (upper >> 24) <= ObjectKindCount ? LookupResult::WrongKind
                                                                            : LookupResult::Unknown;
        else if (slot >= slots_.size() || generation > slots_[slot].generation || Low(slot, generation) != low)
            result = LookupResult::Unknown;
        else if (generation != slots_[slot].generation || !slots_[slot].record)
            result = LookupResult::Stale;
        else {
            result = LookupResult::Found;
            return &*slots_[slot].record;
        }
        return nullptr;
    }

    // Looks up a handle of which only the low 32 bits survived (a packed
    // field); only a SlotAndGeneration table can answer.
    Record* FindPacked(std::uint32_t low, LookupResult& result) noexcept
    {
        std::uint32_t const slot = low & SlotMask;
        std::uint32_t const shortGeneration = low >> SlotBits;
        if (low == ~std::uint32_t{0})
            result = LookupResult::Invalid;
        else if (packing_ != HandlePacking::SlotAndGeneration || shortGeneration == 0 || slot >= slots_.size())
            result = LookupResult::Unknown;
        else if (std::uint32_t const current = slots_[slot].generation;
                 current < 0xFFFu && shortGeneration > ShortGeneration(current))
            result = LookupResult::Unknown; // no generation of this slot has come that far
        else if (low != Low(slot, current) || !slots_[slot].record)
            result = LookupResult::Stale;
        else {
            result = LookupResult::Found;
            return &*slots_[slot].record;
        }
        return nullptr;
    }

    // Takes the record out; the slot's next handle gets a new generation.
    std::optional<Record> Remove(std::uint64_t handle, LookupResult& result)
    {
        if (Find(handle, result) == nullptr)
            return std::nullopt;
        std::uint32_t const slot = SlotOf(static_cast<std::uint32_t>(handle));
        Slot& entry = slots_[slot];
        std::optional<Record> record = std::move(entry.record);
        entry.record.reset();
        entry.generation = (entry.generation % 0xFFFFFFu) + 1;
        free_.push_back(slot);
        --live_;
        return record;
    }

    std::size_t Live() const noexcept { return live_; }

    template <typename F>
    void ForEach(F&& visit)
    {
        for (auto& slot : slots_)
            if (slot.record)
                visit(*slot.record);
    }

    void Clear() noexcept
    {
        slots_.clear();
        free_.clear();
        live_ = 0;
    }

private:
    struct Slot {
        std::uint32_t generation = 1;
        std::optional<Record> record;
    };

    static constexpr std::uint32_t SlotBits = 20;
    static constexpr std::uint32_t SlotMask = (1u << SlotBits) - 1;
    // The all-ones slot with the largest short generation would read as the
    // invalid handle: that slot is never used.
    static constexpr std::size_t MaxPackedSlots = SlotMask;

    // 1 to 4095: never 0, so a bare slot number is never a packed handle.
    static constexpr std::uint32_t ShortGeneration(std::uint32_t generation) noexcept
    {
        return (generation - 1) % 0xFFFu + 1;
    }

    std::uint32_t SlotOf(std::uint32_t low) const noexcept
    {
        return packing_ == HandlePacking::SlotAndGeneration ? low & SlotMask : low;
    }

    std::uint32_t Low(std::uint32_t slot, std::uint32_t generation) const noexcept
    {
        return packing_ == HandlePacking::SlotAndGeneration ? (ShortGeneration(generation) << SlotBits) | slot : slot;
    }

    std::uint32_t Upper(std::uint32_t generation) const noexcept
    {
        return (static_cast<std::uint32_t>(kind_) << 24) | generation;
    }

    ObjectKind kind_;
    HandlePacking packing_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::size_t live_ = 0;
};

} // namespace Zorvan::Rendering::Gl::detail
