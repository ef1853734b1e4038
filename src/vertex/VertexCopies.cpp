// Converting conversions: doubles narrowed to float records, and colours of any
// component type turned into four bytes.

#include <Rendering/Vertex.h>

#include <algorithm>
#include <cstddef>

namespace Zorvan::Rendering {
namespace {

template <typename Record, std::size_t PerRecord>
std::vector<Record> NarrowScalars(double const* scalars, std::size_t count)
{
    std::vector<Record> records;
    records.reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        double const* s = scalars + i * PerRecord;
        if constexpr (PerRecord == 3)
            records.push_back({static_cast<float>(s[0]), static_cast<float>(s[1]), static_cast<float>(s[2])});
        else
            records.push_back({static_cast<float>(s[0]), static_cast<float>(s[1])});
    }
    return records;
}

// Truncation rather than rounding is deliberate (0.999 gives 254). The zero
// comes first in max so that a NaN product yields 0 instead of passing through.
template <typename T>
std::uint8_t ScaleComponent(T c) noexcept
{
    T const product = c * T(255);
    return static_cast<std::uint8_t>(std::min(std::max(T(0), product), T(255)));
}

template <typename T>
std::vector<VertexC> ScaleColours(T const* components, std::size_t count, bool hasAlpha)
{
    std::vector<VertexC> records;
    records.reserve(count);
    std::size_t const stride = hasAlpha ? 4 : 3;
    for (std::size_t i = 0; i < count; ++i) {
        T const* c = components + i * stride;
        records.push_back({ScaleComponent(c[0]), ScaleComponent(c[1]), ScaleComponent(c[2]),
                           hasAlpha ? ScaleComponent(c[3]) : std::uint8_t{255}});
    }
    return records;
}

std::vector<VertexC> CopyColourBytes(std::uint8_t const* bytes, std::size_t count, bool hasAlpha)
{
    std::vector<VertexC> records;
    records.reserve(count);
    std::size_t const stride = hasAlpha ? 4 : 3;
    for (std::size_t i = 0; i < count; ++i) {
        std::uint8_t const* c = bytes + i * stride;
        records.push_back({c[0], c[1], c[2], hasAlpha ? c[3] : std::uint8_t{255}});
    }
    return records;
}

// Points and arrays of N scalars are contiguous scalars; these give their first one.
template <typename T, std::size_t N>
T const* Scalars(span<Math::point<T, N> const> points) noexcept
{
    return points.empty() ? nullptr : points.data()->data();
}

template <typename T, std::size_t N>
T const* Scalars(span<std::array<T, N> const> points) noexcept
{
    return points.empty() ? nullptr : points.data()->data();
}

} // namespace

std::vector<VertexP> ToVertexP(span<double const> xyz) { return NarrowScalars<VertexP, 3>(xyz.data(), xyz.size() / 3); }
std::vector<VertexP> ToVertexP(span<Math::point<double, 3> const> points)
{
    return NarrowScalars<VertexP, 3>(Scalars(points), points.size());
}
std::vector<VertexP> ToVertexP(span<std::array<double, 3> const> points)
{
    return NarrowScalars<VertexP, 3>(Scalars(points), points.size());
}

std::vector<VertexN> ToVertexN(span<double const> xyz) { return NarrowScalars<VertexN, 3>(xyz.data(), xyz.size() / 3); }
std::vector<VertexN> ToVertexN(span<Math::point<double, 3> const> normals)
{
    return NarrowScalars<VertexN, 3>(Scalars(normals), normals.size());
}
std::vector<VertexN> ToVertexN(span<std::array<double, 3> const> normals)
{
    return NarrowScalars<VertexN, 3>(Scalars(normals), normals.size());
}

std::vector<VertexT> ToVertexT(span<double const> uv) { return NarrowScalars<VertexT, 2>(uv.data(), uv.size() / 2); }
std::vector<VertexT> ToVertexT(span<Math::point<double, 2> const> uvs)
{
    return NarrowScalars<VertexT, 2>(Scalars(uvs), uvs.size());
}
std::vector<VertexT> ToVertexT(span<std::array<double, 2> const> uvs)
{
    return NarrowScalars<VertexT, 2>(Scalars(uvs), uvs.size());
}

std::vector<VertexC> ToVertexC(span<std::uint8_t const> bytes, bool hasAlpha)
{
    return CopyColourBytes(bytes.data(), bytes.size() / (hasAlpha ? 4 : 3), hasAlpha);
}
std::vector<VertexC> ToVertexC(span<float const> components, bool hasAlpha)
{
    return ScaleColours(components.data(), components.size() / (hasAlpha ? 4 : 3), hasAlpha);
}
std::vector<VertexC> ToVertexC(span<double const> components, bool hasAlpha)
{
    return ScaleColours(components.data(), components.size() / (hasAlpha ? 4 : 3), hasAlpha);
}
std::vector<VertexC> ToVertexC(span<Math::point<std::uint8_t, 3> const> rgb)
{
    return CopyColourBytes(Scalars(rgb), rgb.size(), false);
}
std::vector<VertexC> ToVertexC(span<std::array<std::uint8_t, 3> const> rgb)
{
    return CopyColourBytes(Scalars(rgb), rgb.size(), false);
}
std::vector<VertexC> ToVertexC(span<Math::point<float, 3> const> rgb) { return ScaleColours(Scalars(rgb), rgb.size(), false); }
std::vector<VertexC> ToVertexC(span<std::array<float, 3> const> rgb) { return ScaleColours(Scalars(rgb), rgb.size(), false); }
std::vector<VertexC> ToVertexC(span<Math::point<double, 3> const> rgb) { return ScaleColours(Scalars(rgb), rgb.size(), false); }
std::vector<VertexC> ToVertexC(span<std::array<double, 3> const> rgb) { return ScaleColours(Scalars(rgb), rgb.size(), false); }
std::vector<VertexC> ToVertexC(span<Math::point<float, 4> const> rgba) { return ScaleColours(Scalars(rgba), rgba.size(), true); }
std::vector<VertexC> ToVertexC(span<std::array<float, 4> const> rgba) { return ScaleColours(Scalars(rgba), rgba.size(), true); }
std::vector<VertexC> ToVertexC(span<Math::point<double, 4> const> rgba) { return ScaleColours(Scalars(rgba), rgba.size(), true); }
std::vector<VertexC> ToVertexC(span<std::array<double, 4> const> rgba) { return ScaleColours(Scalars(rgba), rgba.size(), true); }

} // namespace Zorvan::Rendering
