// Copies that scale and resolves of RecordingGpu, computed as GlDevice's
// blits come out of a GL 4.5 driver, so that tests on either device see one
// set of values. Colour channels (normalized, half, float) are decoded,
// filtered and encoded again; integer, depth and stencil texels move whole,
// since GL filters and averages only colour.

#include "DeviceState.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

namespace Zorvan::Rendering::Testing::Recording {

namespace {

enum class Channel { Whole, UNorm, SNorm, Half, Float };

struct Layout {
    Channel channel = Channel::Whole;
    std::uint32_t count = 0; // channels per texel
    std::uint32_t bytes = 0; // bytes per channel
};

Layout LayoutOf(Format format) noexcept
{
    using enum Channel;
    switch (format) {
    case Format::B8G8R8: return {UNorm, 3, 1};
    // GL keeps B8G8R8X8's padding byte as alpha, and filters it like one.
    case Format::B8G8R8A8:
    case Format::B8G8R8X8:
    case Format::R8G8B8A8: return {UNorm, 4, 1};
    case Format::R8: return {UNorm, 1, 1};
    case Format::R8G8: return {UNorm, 2, 1};
    case Format::R16: return {UNorm, 1, 2};
    case Format::R16G16: return {UNorm, 2, 2};
    case Format::R16G16B16A16: return {UNorm, 4, 2};
    case Format::R8SN: return {SNorm, 1, 1};
    case Format::R8G8SN: return {SNorm, 2, 1};
    case Format::R8G8B8A8SN: return {SNorm, 4, 1};
    case Format::R16SN: return {SNorm, 1, 2};
    case Format::R16G16SN: return {SNorm, 2, 2};
    case Format::R16G16B16A16SN: return {SNorm, 4, 2};
    case Format::R16F: return {Half, 1, 2};
    case Format::R16G16F: return {Half, 2, 2};
    case Format::R16G16B16A16F: return {Half, 4, 2};
    case Format::R32F: return {Float, 1, 4};
    case Format::R32G32F: return {Float, 2, 4};
    case Format::R32G32B32F: return {Float, 3, 4};
    case Format::R32G32B32A32F: return {Float, 4, 4};
    default: return {};
    }
}

// Written out here rather than taken from the library, whose conversions
// the device helps to test.
double FromHalf(std::uint16_t half) noexcept
{
    int const exponent = (half >> 10) & 0x1F;
    int const mantissa = half & 0x3FF;
    double magnitude = 0.0;
    if (exponent == 0x1F)
        magnitude = mantissa != 0 ? std::numeric_limits<double>::quiet_NaN() : std::numeric_limits<double>::infinity();
    else if (exponent == 0)
        magnitude = std::ldexp(mantissa, -24);
    else
        magnitude = std::ldexp(mantissa | 0x400, exponent - 25);
    return (half & 0x8000) != 0 ? -magnitude : magnitude;
}

// Round to nearest even, as GPUs write a float into a half target (the
// library's float2half truncates). NaNs stay NaNs, keeping their top bits.
std::uint16_t ToHalf(float value) noexcept
{
    std::uint32_t bits = std::bit_cast<std::uint32_t>(value);
    auto const sign = static_cast<std::uint16_t>((bits >> 16) & 0x8000);
    bits &= 0x7FFFFFFF;
    if (bits > 0x7F800000)
        return static_cast<std::uint16_t>(sign | 0x7E00 | ((bits >> 13) & 0x3FF));
    if (bits >= 0x477FF000) // 65520 and above: halfway past the largest half rounds up to infinity
        return static_cast<std::uint16_t>(sign | 0x7C00);
    if (bits < 0x38800000) { // below 2^-14: a subnormal half, in steps of 2^-24 (the scaling is exact)
        float const steps = std::nearbyint(std::bit_cast<float>(bits) * 16777216.0f);
        return static_cast<std::uint16_t>(sign | static_cast<std::uint16_t>(steps));
    }
    bits += 0xFFF + ((bits >> 13) & 1); // ties go to the even mantissa; a carry moves into the exponent
    return static_cast<std::uint16_t>(sign | ((bits - 0x38000000) >> 13));
}

template <typename T>
T Load(std::byte const* at) noexcept
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

template <typename T>
void Store(std::byte* at, T value) noexcept
{
    std::memcpy(at, &value, sizeof value);
}

// Normalized channels are filtered in steps of their last place, where the
// average of a 2:1 reduction is exact; half and float channels by value.
double Decode(Layout const& layout, std::byte const* at) noexcept
{
    bool const wide = layout.bytes == 2;
    switch (layout.channel) {
    case Channel::UNorm:
        return wide ? Load<std::uint16_t>(at) : Load<std::uint8_t>(at);
    case Channel::SNorm: // both of the lowest codes read as -1
        return wide ? std::max<int>(Load<std::int16_t>(at), -32767) : std::max<int>(Load<std::int8_t>(at), -127);
    case Channel::Half:
        return FromHalf(Load<std::uint16_t>(at));
    case Channel::Float:
        return Load<float>(at);
    case Channel::Whole:
        break;
    }
    return 0.0;
}

// Clamped, and rounded to nearest with halves away from zero (GL leaves
// ties to the driver).
template <typename T>
T Code(double steps, double largest, bool isSigned) noexcept
{
    if (std::isnan(steps))
        return 0;
    return static_cast<T>(std::round(std::clamp(steps, isSigned ? -largest : 0.0, largest)));
}

void Encode(Layout const& layout, double value, std::byte* at) noexcept
{
    bool const wide = layout.bytes == 2;
    switch (layout.channel) {
    case Channel::UNorm:
        if (wide)
            Store(at, Code<std::uint16_t>(value, 65535.0, false));
        else
            Store(at, Code<std::uint8_t>(value, 255.0, false));
        return;
    case Channel::SNorm:
        if (wide)
            Store(at, Code<std::int16_t>(value, 32767.0, true));
        else
            Store(at, Code<std::int8_t>(value, 127.0, true));
        return;
    case Channel::Half: // rounded to single precision first, the precision a GPU filters in
        Store(at, ToHalf(static_cast<float>(value)));
        return;
    case Channel::Float:
        Store(at, static_cast<float>(value));
        return;
    case Channel::Whole:
        return;
    }
}

// The source texel whose area holds the centre of destination texel i, as a
// nearest blit picks it: floor((i + 0.5) * from / to).
std::uint32_t Nearest(std::uint32_t i, std::uint32_t from, std::uint32_t to) noexcept
{
    return static_cast<std::uint32_t>((2 * std::uint64_t{i} + 1) * from / (2 * std::uint64_t{to}));
}

// The two source texels a linear blit blends for destination texel i, and
// the weight of the second: the centre maps to (i + 0.5) * from / to, texel
// centres lie at half-integers, and the edges clamp.
struct Taps {
    std::uint32_t first = 0;
    std::uint32_t second = 0;
    double weight = 0.0;
};

Taps Linear(std::uint32_t i, std::uint32_t from, std::uint32_t to) noexcept
{
    double const u = (2.0 * i + 1.0) * from / (2.0 * to) - 0.5;
    double const below = std::floor(u);
    auto const clamped = [from](double t) { return static_cast<std::uint32_t>(std::clamp(t, 0.0, from - 1.0)); };
    return {clamped(below), clamped(below + 1.0), u - below};
}

struct Tap {
    std::size_t texel = 0;
    double weight = 0.0;
};

} // namespace

void ScaleSubImage(ImageResource const& from, SubImage const& sourceWhere, ImageResource& to,
                   SubImage const& destinationWhere)
{
    Extent const se = from.LevelExtent(sourceWhere.mipLevel);
    Extent const de = to.LevelExtent(destinationWhere.mipLevel);
    std::size_t const pixel = from.pixelSize;
    Layout const layout = LayoutOf(from.description.format);
    auto const& in = from.Bytes(sourceWhere, 0);
    auto& out = to.Bytes(destinationWhere, 0);
    for (std::uint32_t z = 0; z < de.slices; ++z) {
        // Each destination slice is blitted from one source slice, as GlDevice does for 3D images.
        std::size_t const slice = std::size_t{Nearest(z, se.slices, de.slices)} * se.rows;
        for (std::uint32_t y = 0; y < de.rows; ++y) {
            std::byte* row = out.data() + ((std::size_t{z} * de.rows + y) * de.width) * pixel;
            if (layout.channel == Channel::Whole) {
                std::size_t const sourceRow = (slice + Nearest(y, se.rows, de.rows)) * se.width;
                for (std::uint32_t x = 0; x < de.width; ++x)
                    std::memcpy(row + x * pixel, in.data() + (sourceRow + Nearest(x, se.width, de.width)) * pixel,
                                pixel);
                continue;
            }
            Taps const v = Linear(y, se.rows, de.rows);
            for (std::uint32_t x = 0; x < de.width; ++x) {
                Taps const u = Linear(x, se.width, de.width);
                // The weighted sum of all four taps GL defines for linear
                // filtering, weight zero included: an infinity beside the
                // sampled texel gives NaN, as in the driver's filter.
                Tap const taps[4] = {{(slice + v.first) * se.width + u.first, (1.0 - v.weight) * (1.0 - u.weight)},
                                     {(slice + v.first) * se.width + u.second, (1.0 - v.weight) * u.weight},
                                     {(slice + v.second) * se.width + u.first, v.weight * (1.0 - u.weight)},
                                     {(slice + v.second) * se.width + u.second, v.weight * u.weight}};
                for (std::uint32_t channel = 0; channel < layout.count; ++channel) {
                    std::size_t const offset = std::size_t{channel} * layout.bytes;
                    double sum = 0.0;
                    for (Tap const& tap : taps)
                        sum += tap.weight * Decode(layout, in.data() + tap.texel * pixel + offset);
                    Encode(layout, sum, row + x * pixel + offset);
                }
            }
        }
    }
}

void ResolveSubImage(ImageResource const& from, SubImage const& sourceWhere, ImageResource& to,
                     SubImage const& destinationWhere)
{
    auto& out = to.Bytes(destinationWhere, 0);
    Layout const layout = LayoutOf(from.description.format);
    // Integer, depth and stencil texels take sample 0, as GL's blit does on the drivers GlDevice meets.
    out = from.Bytes(sourceWhere, 0);
    if (layout.channel == Channel::Whole)
        return;
    std::size_t const pixel = from.pixelSize;
    for (std::size_t texel = 0; texel < out.size(); texel += pixel)
        for (std::uint32_t channel = 0; channel < layout.count; ++channel) {
            std::size_t const at = texel + std::size_t{channel} * layout.bytes;
            double sum = 0.0;
            for (std::uint32_t k = 0; k < from.samples; ++k)
                sum += Decode(layout, from.Bytes(sourceWhere, k).data() + at);
            Encode(layout, sum / from.samples, out.data() + at);
        }
}

} // namespace Zorvan::Rendering::Testing::Recording
