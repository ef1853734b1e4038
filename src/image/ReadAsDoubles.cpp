#include "ImageDeviceAccess.h"

#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <cstddef>
#include <compare>
#include <cstdint>
#include <iterator>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// The whole level, every depth slice, tightly packed as elements of T; empty
// when the device read fails. No mip or slice check: the device gets `where`
// as given.
template <typename T>
std::vector<T> ReadLevel(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                         SubImage const& where)
{
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::int64_t const width = level.width;
    std::int64_t const rows = std::max<std::int64_t>(level.height, 1);
    std::int64_t const slices = std::max<std::int64_t>(level.depth, 1);
    std::int64_t const rowPitch = std::int64_t{GetSize(description.format)} * width;
    std::int64_t const slicePitch = rowPitch * rows;

    std::vector<T> values(static_cast<std::size_t>(slicePitch * slices) / sizeof(T));
    bool const read = ImageAccess::ReadSubImage(factory, image, description, where, [&](MappedImage const& mapped) {
        CopyImageBuffer(mapped.data, mapped.rowPitch, mapped.slicePitch, values.data(), rowPitch, slicePitch, width,
                        rows, slices);
    });
    if (!read)
        values.clear();
    return values;
}

// Reads one stored element as its double. Random access, so the result vector
// is sized once and built by one counted loop (no zero fill first, no
// per-element capacity check), which the compiler vectorizes where the
// mapping allows.
template <typename T, typename Convert>
class Converting {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = double;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = double;

    Converting(T const* at, Convert convert) : at_(at), convert_(convert) {}

    double operator*() const { return convert_(*at_); }
    double operator[](difference_type n) const { return convert_(at_[n]); }
    Converting& operator++() { ++at_; return *this; }
    Converting operator++(int) { Converting old = *this; ++at_; return old; }
    Converting& operator--() { --at_; return *this; }
    Converting operator--(int) { Converting old = *this; --at_; return old; }
    Converting& operator+=(difference_type n) { at_ += n; return *this; }
    Converting& operator-=(difference_type n) { at_ -= n; return *this; }
    friend Converting operator+(Converting i, difference_type n) { return i += n; }
    friend Converting operator+(difference_type n, Converting i) { return i += n; }
    friend Converting operator-(Converting i, difference_type n) { return i -= n; }
    friend difference_type operator-(Converting const& a, Converting const& b) { return a.at_ - b.at_; }
    friend bool operator==(Converting const& a, Converting const& b) { return a.at_ == b.at_; }
    friend auto operator<=>(Converting const& a, Converting const& b) { return a.at_ <=> b.at_; }

private:
    T const* at_;
    Convert convert_;
};

template <typename T, typename Convert>
std::vector<double> ToDoubles(std::vector<T> const& values, Convert convert)
{
    T const* const first = values.data();
    return std::vector<double>(Converting<T, Convert>(first, convert),
                               Converting<T, Convert>(first + values.size(), convert));
}

template <typename T>
std::vector<double> Widened(std::vector<T> const& values)
{
    return ToDoubles(values, [](T v) { return static_cast<double>(v); });
}

// Unsigned normalized: 0 .. max maps to 0 .. 1.
template <typename T>
std::vector<double> UnsignedNormalized(std::vector<T> const& values, double max)
{
    return ToDoubles(values, [max](T v) { return static_cast<double>(v) / max; });
}

// Signed normalized: the most negative value clamps to -1 like the one above it.
template <typename T>
std::vector<double> SignedNormalized(std::vector<T> const& values, double max)
{
    return ToDoubles(values, [max](T v) { return std::max(static_cast<double>(v) / max, -1.0); });
}

template <typename T>
std::vector<double> Normalized(std::vector<T> const& values, bool raw, double max, bool isSigned)
{
    if (raw)
        return Widened(values);
    return isSigned ? SignedNormalized(values, max) : UnsignedNormalized(values, max);
}

std::vector<double> Halves(std::vector<std::uint16_t> const& values)
{
    return ToDoubles(values, [](std::uint16_t v) { return static_cast<double>(half2float(v)); });
}

} // namespace

std::vector<double> ReadAsDoubles(IResourceFactory& factory, ImageId image, bool raw, SubImage const& where)
{
    ImageDesc const description = factory.GetImageDescription(image);
    auto const value = static_cast<std::uint32_t>(description.format);
    if (value >= FormatCount)
        return {};

    auto read = [&]<typename T>(T) { return ReadLevel<T>(factory, image, description, where); };

    if (value >= 1 && value <= 6)
        return Normalized(read(std::uint8_t{}), raw, 255.0, false);
    if (value >= 7 && value <= 9)
        return Normalized(read(std::uint16_t{}), raw, 65535.0, false);
    if (value >= 10 && value <= 12)
        return Normalized(read(std::int8_t{}), raw, 127.0, true);
    if (value >= 13 && value <= 15)
        return Normalized(read(std::int16_t{}), raw, 32767.0, true);
    if (value >= 16 && value <= 18)
        return Widened(read(std::uint8_t{}));
    if (value >= 19 && value <= 21)
        return Widened(read(std::uint16_t{}));
    if (value >= 22 && value <= 24)
        return Widened(read(std::uint32_t{}));
    if (value >= 25 && value <= 27)
        return Widened(read(std::int8_t{}));
    if (value >= 28 && value <= 30)
        return Widened(read(std::int16_t{}));
    if (value >= 31 && value <= 33)
        return Widened(read(std::int32_t{}));
    if (value >= 34 && value <= 36)
        return Halves(read(std::uint16_t{}));
    if (value >= 37 && value <= 40)
        return Widened(read(float{}));
    // None and the depth formats have no colour channels to report.
    return {};
}

} // namespace Zorvan::Rendering
