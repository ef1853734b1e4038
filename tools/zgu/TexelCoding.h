#pragma once

// How a texture's numbers are coded in a file, and the way to linear values
// and back. Alpha is always linear.

#include "ImageFile.h"
#include "MipChain.h"

#include <cstdint>
#include <vector>

namespace Zorvan::Tool {

enum class Coding {
    Srgb,   // colour through the sRGB transfer functions (8- and 16-bit files)
    Linear, // the numbers themselves: data textures, and every float format
    Normal, // a unit vector mapped from -1..1 to 0..1: v = (n + 1) / 2
};

// The exact sRGB transfer functions (piecewise: linear toe, 2.4 power).
double SrgbToLinear(double encoded);
double LinearToSrgb(double linear);

// Normalised values (U8 / 255, U16 / 65535, floats as they are), decoded by
// `coding`; float samples are never sRGB-decoded.
LinearImage ToLinear(DecodedImage const& image, Coding coding);

// Encoded by `coding`, clamped to 0..1 and rounded to the nearest step.
std::vector<std::uint8_t> ToUnorm8(LinearImage const& image, Coding coding);
std::vector<std::uint16_t> ToUnorm16(LinearImage const& image, Coding coding);
// Linear values as they are (normal maps mapped to 0..1); float formats
// carry linear light, so sRGB coding does not apply.
std::vector<float> ToFloat32(LinearImage const& image, Coding coding);
// As ToFloat32, rounded to the nearest half (ties to even).
std::vector<std::uint16_t> ToFloat16(LinearImage const& image, Coding coding);

} // namespace Zorvan::Tool
