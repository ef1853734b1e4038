#pragma once

// What ValidatingGpu knows about the objects it saw created: by kind and full
// 64-bit handle, since the wrapped device's handles may repeat across kinds.
// Destroyed handles are remembered (a bounded number per kind) so that a
// later use reads as stale rather than unknown.

#include "ContractChecks.h"

#include <Rendering/Testing/RecordingGpu.h>
#include <Rendering/Testing/ValidatingGpu.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>

namespace Zorvan::Rendering::Testing::Validation {

struct BufferEntry {
    BufferDescription description;
    bool mapped = false;
};

struct ImageEntry {
    ImageDesc created;
    Checks::ImageFacts facts;
    bool samplesKnown = true; // a multisampled image's count is known once read back
    std::map<std::pair<std::uint32_t, std::uint32_t>, bool> maps; // open maps by (mip, slice)
};

struct ViewEntry {
    std::uint64_t image = 0;
};

struct QueryEntry {
    QueryType type = QueryType::Timestamp;
    bool begun = false;
};

using Entry = std::variant<std::monostate, BufferEntry, ImageEntry, ViewEntry, QueryEntry>;

// Handles destroyed lately, oldest forgotten first.
class Retired {
public:
    static constexpr std::size_t Capacity = std::size_t{1} << 16;
    void Add(std::uint64_t handle);
    void Forget(std::uint64_t handle) { set_.erase(handle); }
    bool Contains(std::uint64_t handle) const { return set_.contains(handle); }

private:
    std::unordered_set<std::uint64_t> set_;
    std::deque<std::uint64_t> order_;
};

struct Tracker {
    explicit Tracker(ViolationCallback callback) : onViolation(std::move(callback)) {}

    ViolationCallback onViolation;
    std::vector<Violation> violations;
    std::array<std::unordered_map<std::uint64_t, Entry>, ResourceKindCount> live;
    std::array<Retired, ResourceKindCount> retired;
    // Live render-target views by the low 32 bits that BindingState carries.
    std::unordered_map<std::uint32_t, std::uint64_t> packedViews;
    Retired retiredPacked;

    static std::string Name(ResourceKind kind, std::uint64_t handle);

    void Report(Op op, Rule rule, std::string const& object, std::string const& message);
    void Report(Op op, Checks::Findings const& found);

    // The live entry a handle names, or null after reporting why it names none.
    Entry* Find(Op op, ResourceKind kind, std::uint64_t handle, std::string const& role = {});
    template <typename E>
    E* FindAs(Op op, ResourceKind kind, std::uint64_t handle, std::string const& role = {})
    {
        Entry* entry = Find(op, kind, handle, role);
        return entry == nullptr ? nullptr : std::get_if<E>(entry);
    }
    // Handles inside records may be invalid ("none"); others must be live.
    void CheckOptional(Op op, ResourceKind kind, std::uint64_t handle, std::string const& role);
    void CheckPackedView(Op op, PackedRtvId view, std::string const& role);
    // A view's image must still be live when the view is used.
    void CheckViewedImage(Op op, ResourceKind viewKind, std::uint64_t view);

    // After a create returned a valid handle.
    void Add(Op op, ResourceKind kind, std::uint64_t handle, Entry entry);
    // After a destroy (the entry may already be gone).
    void Remove(ResourceKind kind, std::uint64_t handle);

    std::size_t LiveCount() const noexcept;
    std::size_t OpenMaps() const noexcept;
    std::size_t OpenQueries() const noexcept;
    std::string Problems() const;
};

} // namespace Zorvan::Rendering::Testing::Validation

namespace Zorvan::Rendering::Testing {
struct ValidatingGpu::State : Validation::Tracker {
    using Tracker::Tracker;
};
} // namespace Zorvan::Rendering::Testing
