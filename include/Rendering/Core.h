#pragma once

// Value types that every signature of the library uses: typed device handles,
// the owning handle wrapper, image extents and descriptions, sub-image
// selectors, non-owning array views and the small geometry types.

#include <Rendering/Format.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <span>
#include <type_traits>
#include <utility>
#include <vector>

namespace Zorvan::Math {

// N components of T stored contiguously (no padding, no other members), so an
// array of points has the bytes of an array of their components.
template <typename T, std::size_t N>
struct point {
    T coords[N];

    constexpr T& operator[](std::size_t i) noexcept { return coords[i]; }
    constexpr T const& operator[](std::size_t i) const noexcept { return coords[i]; }

    constexpr T& x() noexcept requires(N >= 1) { return coords[0]; }
    constexpr T& y() noexcept requires(N >= 2) { return coords[1]; }
    constexpr T& z() noexcept requires(N >= 3) { return coords[2]; }
    constexpr T& w() noexcept requires(N >= 4) { return coords[3]; }
    constexpr T const& x() const noexcept requires(N >= 1) { return coords[0]; }
    constexpr T const& y() const noexcept requires(N >= 2) { return coords[1]; }
    constexpr T const& z() const noexcept requires(N >= 3) { return coords[2]; }
    constexpr T const& w() const noexcept requires(N >= 4) { return coords[3]; }

    constexpr T* data() noexcept { return coords; }
    constexpr T const* data() const noexcept { return coords; }

    // Component-wise, exact: no epsilon anywhere.
    friend constexpr bool operator==(point const& a, point const& b) noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            if (!(a.coords[i] == b.coords[i]))
                return false;
        return true;
    }

    // Lexicographic strict weak order (x, then y, then z ...), for sorting.
    friend constexpr bool operator<(point const& a, point const& b) noexcept
    {
        for (std::size_t i = 0; i + 1 < N; ++i)
            if (a.coords[i] != b.coords[i])
                return a.coords[i] < b.coords[i];
        return a.coords[N - 1] < b.coords[N - 1];
    }

    friend constexpr point operator-(point const& a, point const& b) noexcept
    {
        point r{};
        for (std::size_t i = 0; i < N; ++i)
            r.coords[i] = a.coords[i] - b.coords[i];
        return r;
    }

    friend constexpr point operator*(T s, point const& p) noexcept
    {
        point r{};
        for (std::size_t i = 0; i < N; ++i)
            r.coords[i] = s * p.coords[i];
        return r;
    }

    friend constexpr point operator*(point const& p, T s) noexcept
    {
        point r{};
        for (std::size_t i = 0; i < N; ++i)
            r.coords[i] = p.coords[i] * s;
        return r;
    }

    friend constexpr point operator/(point const& p, T s) noexcept
    {
        point r{};
        for (std::size_t i = 0; i < N; ++i)
            r.coords[i] = p.coords[i] / s;
        return r;
    }

    constexpr point& operator+=(point const& o) noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            coords[i] += o.coords[i];
        return *this;
    }

    // A double point divided by a float widens the divisor first.
    template <typename S>
        requires std::is_arithmetic_v<S>
    constexpr point& operator/=(S s) noexcept
    {
        for (std::size_t i = 0; i < N; ++i)
            coords[i] /= static_cast<T>(s);
        return *this;
    }
};

// Axis-aligned box: minimum corner, then maximum corner.
template <typename T, std::size_t N>
struct boundingbox {
    point<T, N> minimum;
    point<T, N> maximum;

    friend constexpr bool operator==(boundingbox const&, boundingbox const&) = default;
};

} // namespace Zorvan::Math

namespace Zorvan::Rendering {

template <typename T>
using span = std::span<T>;

namespace detail {
struct ImageTag {};
struct BufferTag {};
struct ShaderTag {};
struct PsoTag {};
struct SrvTag {};
struct RtvTag {};
struct SamplerTag {};
struct QueryTag {};
} // namespace detail

// Typed device handle: one 64-bit value whose low Bits (32) bits name the
// resource. It is invalid when those low bits are all ones; the upper bits
// belong to the device (ours keep a generation counter there) and are carried
// along unchanged. Handles of different tags never convert into each other.
template <typename Tag, unsigned Bits = 32>
class Id {
    static_assert(Bits == 32, "handles are 32-bit in the low half of a 64-bit value");

public:
    static constexpr std::uint64_t HandleMask = (std::uint64_t{1} << Bits) - 1;

    // The invalid handle the library writes has all 64 bits set.
    constexpr Id() noexcept = default;
    constexpr explicit Id(std::uint64_t value) noexcept : value_(value) {}

    static constexpr Id Invalid() noexcept { return Id{}; }

    constexpr std::uint64_t Value() const noexcept { return value_; }
    constexpr std::uint32_t Handle() const noexcept { return static_cast<std::uint32_t>(value_ & HandleMask); }
    constexpr std::uint32_t Upper() const noexcept { return static_cast<std::uint32_t>(value_ >> 32); }
    constexpr bool IsValid() const noexcept { return (value_ & HandleMask) != HandleMask; }

    friend constexpr bool operator==(Id, Id) noexcept = default;

private:
    std::uint64_t value_ = ~std::uint64_t{0};
};

// A handle kept in a 32-bit record field (the views of BindingState): only
// the low 32 bits of the Id travel, all ones when empty. A device whose
// handles may land in such a field must let those bits alone name the
// resource and tell a stale one (ours put a short generation in them).
template <typename Tag>
class PackedId {
public:
    constexpr PackedId() noexcept = default;
    // Implicit, so that a field takes a handle as the device returned it.
    constexpr PackedId(Id<Tag, 32> id) noexcept : handle_(id.Handle()) {} // NOLINT
    constexpr explicit PackedId(std::uint32_t handle) noexcept : handle_(handle) {}

    constexpr std::uint32_t Handle() const noexcept { return handle_; }
    constexpr bool IsValid() const noexcept { return handle_ != ~std::uint32_t{0}; }

    friend constexpr bool operator==(PackedId, PackedId) noexcept = default;

private:
    std::uint32_t handle_ = ~std::uint32_t{0};
};

using ImageId = Id<detail::ImageTag, 32>;
using BufferId = Id<detail::BufferTag, 32>;
using ShaderId = Id<detail::ShaderTag, 32>;
using PsoId = Id<detail::PsoTag, 32>;
using SrvId = Id<detail::SrvTag, 32>;
using RtvId = Id<detail::RtvTag, 32>;
using SamplerId = Id<detail::SamplerTag, 32>;
using QueryId = Id<detail::QueryTag, 32>;
using PackedRtvId = PackedId<detail::RtvTag>;

static_assert(sizeof(ImageId) == 8 && sizeof(PackedRtvId) == 4, "handles are 64-bit values, packed ones 32-bit");

// Owns one device resource: {owner, id}. Release calls the owner's destroy
// operation for that kind of resource (found by ReleaseResource overloads in
// Device.h) when the id is valid, then empties itself. Release never throws:
// a destroy operation that throws terminates the process. Move only.
template <typename IdType, typename Owner>
class ScopedResource {
public:
    ScopedResource() noexcept = default;
    ScopedResource(Owner* owner, IdType id) noexcept : owner_(owner), id_(id) {}

    ScopedResource(ScopedResource const&) = delete;
    ScopedResource& operator=(ScopedResource const&) = delete;

    ScopedResource(ScopedResource&& other) noexcept
        : owner_(std::exchange(other.owner_, nullptr)), id_(std::exchange(other.id_, IdType{}))
    {
    }

    // Releases what this one holds first, then takes over the other's resource.
    ScopedResource& operator=(ScopedResource&& other) noexcept
    {
        if (this != &other) {
            Reset();
            owner_ = std::exchange(other.owner_, nullptr);
            id_ = std::exchange(other.id_, IdType{});
        }
        return *this;
    }

    ~ScopedResource() { Reset(); }

    // Releases the held resource; the wrapper is empty afterwards.
    void Reset() noexcept
    {
        if (id_.IsValid() && owner_ != nullptr)
            ReleaseResource(*owner_, id_);
        owner_ = nullptr;
        id_ = IdType{};
    }

    // Releases the held resource, then holds the given one.
    void Reset(Owner* owner, IdType id) noexcept
    {
        Reset();
        owner_ = owner;
        id_ = id;
    }

    // Gives up ownership without destroying; the caller now owns the id.
    [[nodiscard]] IdType Detach() noexcept
    {
        owner_ = nullptr;
        return std::exchange(id_, IdType{});
    }

    IdType Get() const noexcept { return id_; }
    Owner* GetOwner() const noexcept { return owner_; }
    bool IsValid() const noexcept { return id_.IsValid(); }

private:
    Owner* owner_ = nullptr;
    IdType id_{};
};

// Extent of an image or mip level. A zero marks an absent dimension:
// {w, 0, 0} is 1D, {w, h, 0} 2D, {w, h, d} 3D, {0, 0, 0} empty.
struct Size {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::uint32_t depth = 0;

    friend constexpr bool operator==(Size const&, Size const&) = default;
};

// Usage bits of ImageDesc::flags.
namespace ImageUsage {
inline constexpr std::uint32_t ShaderResource = 0x01;
inline constexpr std::uint32_t RenderTarget = 0x02;
inline constexpr std::uint32_t HostRead = 0x08;
inline constexpr std::uint32_t HostWrite = 0x10;
inline constexpr std::uint32_t CopySource = 0x20;
inline constexpr std::uint32_t CopyDestination = 0x40;
inline constexpr std::uint32_t Resolvable = 0x80;
inline constexpr std::uint32_t ResolveDestination = 0x100;
// Six square faces, no depth; SubImage::arraySlice selects the face.
inline constexpr std::uint32_t CubeMap = 0x200;
} // namespace ImageUsage

// Description of an image, exchanged with the device on creation and when
// read back. mipLevels 0 asks the device for the full chain.
struct ImageDesc {
    Size size{};
    Format format = Format::None;
    std::uint32_t sampleCount = 1;
    std::uint32_t mipLevels = 1;
    std::uint32_t flags = 0;

    friend constexpr bool operator==(ImageDesc const&, ImageDesc const&) = default;
};

static_assert(sizeof(Size) == 12 && offsetof(Size, height) == 4 && offsetof(Size, depth) == 8);
static_assert(sizeof(ImageDesc) == 28 && offsetof(ImageDesc, format) == 12 && offsetof(ImageDesc, sampleCount) == 16 &&
              offsetof(ImageDesc, mipLevels) == 20 && offsetof(ImageDesc, flags) == 24);

// One part of an image: a mip level and an array slice (cube face).
// The default {0, 0} addresses the whole top level.
struct SubImage {
    std::uint32_t mipLevel = 0;
    std::uint32_t arraySlice = 0;

    friend constexpr bool operator==(SubImage const&, SubImage const&) = default;
};

static_assert(sizeof(SubImage) == 8 && offsetof(SubImage, arraySlice) == 4);

// Non-owning view of contiguous elements: a pointer and a 64-bit count.
// array_view<T const> is used for input, array_view<T> for output.
template <typename T>
class array_view {
public:
    using value_type = std::remove_cv_t<T>;

    constexpr array_view() noexcept = default;
    constexpr array_view(T* data, std::uint64_t count) noexcept : data_(data), size_(count) {}

    template <typename Container>
        requires(!std::is_same_v<std::remove_cvref_t<Container>, array_view> &&
                 requires(Container&& c) {
                     { std::data(c) } -> std::convertible_to<T*>;
                     std::size(c);
                 })
    constexpr array_view(Container&& c) noexcept // NOLINT: views convert implicitly
        : data_(std::data(c)), size_(static_cast<std::uint64_t>(std::size(c)))
    {
    }

    template <typename U, std::size_t E>
        requires std::is_convertible_v<U (*)[], T (*)[]>
    constexpr array_view(std::span<U, E> s) noexcept : data_(s.data()), size_(s.size())
    {
    }

    constexpr T* data() const noexcept { return data_; }
    constexpr std::uint64_t size() const noexcept { return size_; }
    constexpr bool empty() const noexcept { return size_ == 0; }
    constexpr T* begin() const noexcept { return data_; }
    constexpr T* end() const noexcept { return data_ + size_; }
    constexpr T& operator[](std::uint64_t i) const noexcept { return data_[i]; }

private:
    T* data_ = nullptr;
    std::uint64_t size_ = 0;
};

} // namespace Zorvan::Rendering

template <typename Tag, unsigned Bits>
struct std::hash<Zorvan::Rendering::Id<Tag, Bits>> {
    std::size_t operator()(Zorvan::Rendering::Id<Tag, Bits> id) const noexcept
    {
        return std::hash<std::uint64_t>{}(id.Value());
    }
};
