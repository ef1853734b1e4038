#pragma once

// Slot tables behind the device's handles. A handle's low 32 bits are the
// slot; the upper 32 bits hold the kind of object (top byte) and the slot's
// generation (low 24 bits), so stale, unknown and foreign handles are told
// apart and never reach a recycled or missing object.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

enum class ObjectKind : std::uint8_t { Buffer = 1, Image, ShaderResourceView, RenderTargetView, Sampler, Shader, Pipeline, Query };

inline constexpr std::size_t ObjectKindCount = 8;

char const* ToString(ObjectKind kind) noexcept;

enum class LookupResult { Found, Invalid, Unknown, Stale, WrongKind };

char const* Explain(LookupResult result) noexcept;

template <typename Record>
class HandleTable {
public:
    explicit HandleTable(ObjectKind kind) noexcept : kind_(kind) {}

    std::uint64_t Insert(Record record)
    {
        std::uint32_t slot = 0;
        if (!free_.empty()) {
            slot = free_.back();
            free_.pop_back();
        } else {
            slot = static_cast<std::uint32_t>(slots_.size());
            slots_.push_back({});
        }
        slots_[slot].record.emplace(std::move(record));
        ++live_;
        return (std::uint64_t{Upper(slots_[slot].generation)} << 32) | slot;
    }

    Record* Find(std::uint64_t handle, LookupResult& result) noexcept
    {
        std::uint32_t const slot = static_cast<std::uint32_t>(handle);
        std::uint32_t const upper = static_cast<std::uint32_t>(handle >> 32);
        if (slot == ~std::uint32_t{0})
            result = LookupResult::Invalid;
        else if ((upper >> 24) != static_cast<std::uint32_t>(kind_))
            result = (upper >> 24) != 0 && (upper >> 24) <= ObjectKindCount ? LookupResult::WrongKind
                                                                            : LookupResult::Unknown;
        else if (slot >= slots_.size() || (upper & 0xFFFFFFu) > slots_[slot].generation)
            result = LookupResult::Unknown;
        else if ((upper & 0xFFFFFFu) != slots_[slot].generation || !slots_[slot].record)
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
        Slot& entry = slots_[static_cast<std::uint32_t>(handle)];
        std::optional<Record> record = std::move(entry.record);
        entry.record.reset();
        entry.generation = (entry.generation % 0xFFFFFFu) + 1;
        free_.push_back(static_cast<std::uint32_t>(handle));
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

    std::uint32_t Upper(std::uint32_t generation) const noexcept
    {
        return (static_cast<std::uint32_t>(kind_) << 24) | generation;
    }

    ObjectKind kind_;
    std::vector<Slot> slots_;
    std::vector<std::uint32_t> free_;
    std::size_t live_ = 0;
};

} // namespace Zorvan::Rendering::Gl::detail
