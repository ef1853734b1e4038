#include "TexelCoding.h"

#include <Imath/half.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>

namespace Zorvan::Tool {
namespace {

// Decoding tables: one entry per stored value, so a texture costs lookups.
template <std::size_t Steps>
std::vector<float> SrgbTable()
{
    std::vector<float> table(Steps);
    for (std::size_t i = 0; i < Steps; ++i)
        table[i] = static_cast<float>(SrgbToLinear(double(i) / double(Steps - 1)));
    return table;
}

std::vector<float> const& Srgb8()
{
    static std::vector<float> const table = SrgbTable<256>();
    return table;
}

std::vector<float> const& Srgb16()
{
    static std::vector<float> const table = SrgbTable<65536>();
    return table;
}

// Halves away from zero, as std::lround rounds, without the library call.
template <int Max>
int Quantize(double value)
{
    double const scaled = std::clamp(value, 0.0, 1.0) * Max;
    double const whole = std::floor(scaled);
    return static_cast<int>(scaled - whole >= 0.5 ? whole + 1.0 : whole);
}

// 8-bit sRGB coding without a power per value: code k takes the linear
// values from bounds[k - 1] = SrgbToLinear((k - 0.5) / 255) up to bounds[k],
// exactly those that Quantize<255>(LinearToSrgb(v)) sends to k. A bucket
// table gives the code at the start of v's 1/4096 of the range, and at most
// a step or two along the bounds finishes the job.
class Srgb8Encoder {
public:
    Srgb8Encoder()
    {
        for (std::size_t k = 0; k < bounds_.size(); ++k)
            bounds_[k] = SrgbToLinear((double(k) + 0.5) / 255.0);
        for (std::size_t b = 0; b < start_.size(); ++b)
            start_[b] = static_cast<std::uint8_t>(
                std::upper_bound(bounds_.begin(), bounds_.end(), double(b) / Buckets) - bounds_.begin());
    }

    std::uint8_t operator()(double linear) const
    {
        if (!(linear > 0.0)) // NaN too
            return 0;
        if (linear >= 1.0)
            return 255;
        unsigned code = start_[static_cast<std::size_t>(linear * Buckets)];
        while (code < bounds_.size() && linear >= bounds_[code])
            ++code;
        return static_cast<std::uint8_t>(code);
    }

private:
    static constexpr unsigned Buckets = 4096;
    std::array<double, 255> bounds_{};
    std::array<std::uint8_t, Buckets> start_{};
};

template <typename T, int Max>
std::vector<T> ToUnorm(LinearImage const& image, Coding coding)
{
    static Srgb8Encoder const srgb8;
    std::vector<T> out(image.texels.size());
    for (std::size_t i = 0; i < image.texels.size(); i += 4) {
        for (std::size_t c = i; c < i + 3; ++c) {
            double const value = image.texels[c];
            if (coding == Coding::Linear)
                out[c] = static_cast<T>(Quantize<Max>(value));
            else if (coding == Coding::Normal)
                out[c] = static_cast<T>(Quantize<Max>((value + 1.0) * 0.5));
            else if constexpr (Max == 255)
                out[c] = srgb8(value);
            else
                out[c] = static_cast<T>(Quantize<Max>(LinearToSrgb(value)));
        }
        out[i + 3] = static_cast<T>(Quantize<Max>(image.texels[i + 3])); // alpha is linear
    }
    return out;
}

} // namespace

double SrgbToLinear(double encoded)
{
    return encoded <= 0.04045 ? encoded / 12.92 : std::pow((encoded + 0.055) / 1.055, 2.4);
}

double LinearToSrgb(double linear)
{
    return linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

LinearImage ToLinear(DecodedImage const& image, Coding coding)
{
    LinearImage out;
    out.width = image.width;
    out.height = image.height;
    std::size_t const count = std::size_t(image.width) * image.height * 4;
    out.texels.resize(count);
    bool const srgb = coding == Coding::Srgb && image.type != SampleType::F32;
    for (std::size_t i = 0; i < count; ++i) {
        bool const colour = i % 4 != 3;
        float value = 0.0f;
        switch (image.type) {
        case SampleType::U8: {
            std::uint8_t const stored = image.samples[i];
            value = colour && srgb ? Srgb8()[stored] : static_cast<float>(stored / 255.0);
            break;
        }
        case SampleType::U16: {
            std::uint16_t stored = 0;
            std::memcpy(&stored, &image.samples[i * 2], sizeof stored);
            value = colour && srgb ? Srgb16()[stored] : static_cast<float>(stored / 65535.0);
            break;
        }
        case SampleType::F32:
            std::memcpy(&value, &image.samples[i * 4], sizeof value);
            break;
        }
        if (colour && coding == Coding::Normal)
            value = static_cast<float>(value * 2.0 - 1.0);
        out.texels[i] = value;
    }
    return out;
}

std::vector<std::uint8_t> ToUnorm8(LinearImage const& image, Coding coding)
{
    return ToUnorm<std::uint8_t, 255>(image, coding);
}

std::vector<std::uint16_t> ToUnorm16(LinearImage const& image, Coding coding)
{
    return ToUnorm<std::uint16_t, 65535>(image, coding);
}

std::vector<float> ToFloat32(LinearImage const& image, Coding coding)
{
    std::vector<float> out(image.texels);
    if (coding == Coding::Normal)
        for (std::size_t i = 0; i < out.size(); ++i)
            if (i % 4 != 3)
                out[i] = static_cast<float>((out[i] + 1.0) * 0.5);
    return out;
}

std::vector<std::uint16_t> ToFloat16(LinearImage const& image, Coding coding)
{
    // Nearest, ties to even, as texture tools round: the library's
    // float2half truncates toward zero by contract.
    std::vector<float> const floats = ToFloat32(image, coding);
    std::vector<std::uint16_t> out(floats.size());
    std::transform(floats.begin(), floats.end(), out.begin(), [](float v) { return imath_float_to_half(v); });
    return out;
}

} // namespace Zorvan::Tool
