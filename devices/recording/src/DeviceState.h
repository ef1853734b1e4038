#pragma once

// Private state of RecordingGpu, shared by its source files. The state lives in
// a namespace-level struct so that file-local helpers can take it by reference.

#include "ContractChecks.h"

#include <Rendering/Testing/RecordingGpu.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <utility>
#include <variant>
#include <vector>

namespace Zorvan::Rendering::Testing::Recording {

inline constexpr std::size_t OpCount = static_cast<std::size_t>(Op::CreateQuery) + 1;
inline constexpr std::uint64_t NoHandle = ~std::uint64_t{0};

// Leaves the bytes that resize() adds as they come, so that staging about
// to be overwritten whole is not zero-filled first.
template <typename T>
struct UninitializedAllocator : std::allocator<T> {
    template <typename U>
    struct rebind {
        using other = UninitializedAllocator<U>;
    };
    template <typename U>
    void construct(U* p) noexcept
    {
        ::new (static_cast<void*>(p)) U;
    }
    template <typename U, typename... Args>
    void construct(U* p, Args&&... args)
    {
        ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
};

// One open map: the staging bytes the caller sees until the unmap.
struct MapState {
    std::uint32_t mode = 0;
    bool failed = false; // the map returned null; the unmap that follows is still expected
    std::vector<std::byte, UninitializedAllocator<std::byte>> staging;
    std::byte* data = nullptr;
    std::int32_t rowPitch = 0;
    std::int32_t slicePitch = 0;
};

struct BufferResource {
    BufferDescription description;
    std::vector<std::byte> bytes;
    std::optional<MapState> map;
};

// The extent of one sub-image as stored: absent dimensions count as one.
struct Extent {
    std::uint32_t width = 0;
    std::uint32_t rows = 1;
    std::uint32_t slices = 1;

    friend constexpr bool operator==(Extent const&, Extent const&) = default;
};

struct ImageResource {
    ImageDesc description; // as read back: stripped flags, filled-in level count
    std::uint32_t levels = 1;
    std::uint32_t slices = 1;
    std::uint32_t samples = 1;
    std::uint32_t pixelSize = 0;
    // Tightly packed bytes per (level, slice, sample).
    std::vector<std::vector<std::byte>> storage;
    std::map<std::pair<std::uint32_t, std::uint32_t>, MapState> maps; // by (mip, slice)

    bool Contains(SubImage const& where) const noexcept
    {
        return where.mipLevel < levels && where.arraySlice < slices;
    }
    Checks::ImageFacts Facts() const { return {description, levels, slices, samples}; }
    std::vector<SubImage> MappedSubImages() const;
    Extent LevelExtent(std::uint32_t level) const noexcept;
    std::vector<std::byte>& Bytes(SubImage const& where, std::uint32_t sample)
    {
        return storage[(static_cast<std::size_t>(where.mipLevel) * slices + where.arraySlice) * samples + sample];
    }
    std::vector<std::byte> const& Bytes(SubImage const& where, std::uint32_t sample) const
    {
        return storage[(static_cast<std::size_t>(where.mipLevel) * slices + where.arraySlice) * samples + sample];
    }
};

struct ViewResource {
    ImageId image;
    ShaderResourceViewDescription description;
};

struct TargetResource {
    ImageId image;
    RenderTargetViewDescription description;
};

struct SamplerResource {
    SamplerDescription description;
};

struct ShaderResource {
    ShaderDescription description;
};

struct PipelineResource {
    PipelineStateDescription description;
};

struct QueryResource {
    QueryType type = QueryType::Timestamp;
    bool open = false;       // begun and not yet ended
    bool endedOnce = false;
    std::uint64_t timestamp = 0;
    std::optional<std::uint64_t> fixed{}; // SetQueryResult
};

// Alternatives in ResourceKind order, so index() is the kind.
using Resource = std::variant<BufferResource, ImageResource, ViewResource, TargetResource, SamplerResource,
                              ShaderResource, PipelineResource, QueryResource>;

template <typename R, typename Variant>
struct AlternativeIndex;
template <typename R, typename... Ts>
struct AlternativeIndex<R, std::variant<Ts...>> {
    static constexpr std::size_t value = [] {
        std::size_t i = 0;
        ((std::is_same_v<R, Ts> ? false : (++i, true)) && ...);
        return i;
    }();
};

template <typename R>
inline constexpr ResourceKind KindOf = static_cast<ResourceKind>(AlternativeIndex<R, Resource>::value);

struct Slot {
    std::uint32_t generation = 1; // starts at 1 so that a zero handle is never live
    bool live = false;
    Resource resource;
};

struct PendingFault {
    std::optional<std::uint64_t> callIndex; // global call index, or
    Op op{};                                // the opCallIndex-th call of op
    std::uint64_t opCallIndex = 0;
    FaultKind kind{};
};

// Handle layout: the low 32 bits hold the slot index (below 2^20); those of
// a render-target view also hold a short generation (1 to 4095) above it, so
// that a view packed into 32 bits still reads as stale once destroyed. The
// upper 32 bits hold the whole generation.
inline constexpr std::uint32_t SlotBits = 20;
inline constexpr std::uint32_t SlotMask = (std::uint32_t{1} << SlotBits) - 1;
// The last slot could read as the invalid handle with the largest short generation.
inline constexpr std::size_t MaxSlots = SlotMask;

constexpr std::uint32_t ShortGeneration(std::uint32_t generation) noexcept { return (generation - 1) % 0xFFFu + 1; }
constexpr std::uint32_t SlotIndex(std::uint64_t handle) noexcept { return static_cast<std::uint32_t>(handle) & SlotMask; }
constexpr std::uint64_t MakeHandle(std::uint32_t index, std::uint32_t generation, ResourceKind kind) noexcept
{
    std::uint32_t const low =
        kind == ResourceKind::RenderTargetView ? (ShortGeneration(generation) << SlotBits) | index : index;
    return (std::uint64_t{generation} << 32) | low;
}

std::string HandleText(ResourceKind kind, std::uint64_t handle);
std::string PackedHandleText(std::uint32_t handle);
using Checks::Hex;
bool IsCreate(Op op) noexcept;

struct DeviceState {
    std::vector<Slot> slots;
    std::vector<std::uint32_t> freeSlots;

    std::vector<Call> log;
    std::uint64_t callCount = 0;
    std::array<std::uint64_t, OpCount> opCalls{};

    std::vector<std::string> errors;
    std::array<std::size_t, ResourceKindCount> created{};
    std::array<std::size_t, ResourceKindCount> live{};

    std::uint32_t maximumBufferSize = 256u << 20;
    std::uint32_t strippedImageFlags = 0;
    std::uint32_t rowPitchPadding = 0;
    bool negativeRowPitch = false;
    bool fullChainFill = true;
    std::uint64_t frequency = 1'000'000'000;
    std::deque<std::uint64_t> timestamps;
    std::uint64_t timestampStep = 1000;
    std::uint64_t clock = 0;

    std::vector<PendingFault> faults;
    std::size_t faultsHit = 0;

    // Logs the call and applies a pending fault: throws for Throw, returns
    // InvalidHandle or NullMap when the caller must act on it.
    std::optional<FaultKind> Enter(Call call);
    Call& Current() noexcept { return log.back(); }

    void Error(Op op, std::string const& message);
    // Records what the checks found; true when they found anything.
    bool Refuse(Op op, Checks::Findings const& found);

    // The live resource a handle names, or null after recording why not.
    template <typename R>
    R* Find(Op op, std::uint64_t handle)
    {
        Slot* slot = Lookup(op, handle, KindOf<R>);
        return slot == nullptr ? nullptr : std::get_if<R>(&slot->resource);
    }
    template <typename R>
    R const* Peek(std::uint64_t handle) const noexcept
    {
        Slot const* slot = LiveSlot(handle, KindOf<R>);
        return slot == nullptr ? nullptr : std::get_if<R>(&slot->resource);
    }
    // For inspection helpers: throws std::invalid_argument instead of recording.
    template <typename R>
    R const& Expect(std::uint64_t handle, char const* what) const
    {
        R const* resource = Peek<R>(handle);
        if (resource == nullptr)
            ThrowNotLive(KindOf<R>, handle, what);
        return *resource;
    }

    template <typename R>
    R& Expect(std::uint64_t handle, char const* what)
    {
        return const_cast<R&>(static_cast<DeviceState const*>(this)->Expect<R>(handle, what));
    }

    // A render-target view named by the low 32 bits of its handle (a packed
    // field of BindingState); null after recording why it is not live.
    TargetResource* FindPackedView(Op op, std::uint32_t handle);

    // Logs a call whose one handle argument names a resource of kind R, then
    // finds it (null after recording why not).
    template <typename R>
    R* EnterOn(Op op, std::uint64_t handle)
    {
        Enter({.op = op, .handles = {handle, NoHandle}});
        return Find<R>(op, handle);
    }
    // Logs and performs a destroy of a resource that needs no further checks.
    template <typename R>
    void Destroy(Op op, std::uint64_t handle) noexcept
    {
        if (EnterOn<R>(op, handle) != nullptr)
            Remove(handle);
    }
    // Adds what the current create call made and logs its handle as the result.
    template <typename IdType>
    IdType Created(Resource resource)
    {
        std::uint64_t const handle = Add(std::move(resource));
        Current().result = handle;
        return IdType{handle};
    }

    Slot* Lookup(Op op, std::uint64_t handle, ResourceKind kind);
    Slot const* LiveSlot(std::uint64_t handle, ResourceKind kind) const noexcept;
    [[noreturn]] static void ThrowNotLive(ResourceKind kind, std::uint64_t handle, char const* what);

    std::uint64_t Add(Resource resource);
    // Retires a live handle (its generation moves on, so it becomes stale).
    void Remove(std::uint64_t handle) noexcept;

    std::uint64_t NextTimestamp();
};

// Mip arithmetic of the checks, so the device does not depend on the image code it tests.
using Checks::FullChainLength;
using Checks::LevelSize;

// A copy between sub-images of different extents (single-sampled, one
// format): colour filtered linearly, other formats by nearest texel centre.
void ScaleSubImage(ImageResource const& from, SubImage const& sourceWhere, ImageResource& to,
                   SubImage const& destinationWhere);
// A resolve: the mean of the samples for colour, sample 0 for other formats.
void ResolveSubImage(ImageResource const& from, SubImage const& sourceWhere, ImageResource& to,
                     SubImage const& destinationWhere);

} // namespace Zorvan::Rendering::Testing::Recording

namespace Zorvan::Rendering::Testing {
struct RecordingGpu::State : Recording::DeviceState {};
} // namespace Zorvan::Rendering::Testing
