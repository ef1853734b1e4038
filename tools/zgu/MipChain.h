#pragma once

// Mip chains built on the host, in linear light, with box filters that keep
// every texel, averaged in double precision (deterministic: the same input
// gives the same bits on every machine).

#include <cstdint>
#include <vector>

namespace Zorvan::Tool {

// Four floats per texel (RGBA), rows top to bottom. Colour is linear light,
// alpha straight (not multiplied into the colour); for normal maps RGB is the
// vector itself, -1 to 1.
struct LinearImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<float> texels;

    float* At(std::uint32_t x, std::uint32_t y) { return &texels[(std::size_t(y) * width + x) * 4]; }
    float const* At(std::uint32_t x, std::uint32_t y) const { return &texels[(std::size_t(y) * width + x) * 4]; }
};

struct ChainOptions {
    // Colour averaged with alpha as its weight, so that transparent texels
    // add no colour; where every texel of a footprint is transparent the
    // colour is the plain average. Alpha itself is always a plain average.
    bool alphaWeighted = true;
    // RGB is a unit vector: averaged, then scaled back to unit length (a
    // zero average becomes +Z). Implies no alpha weighting.
    bool normalMap = false;
};

// The next level down: each extent halves, rounding down, never below 1. An
// even extent averages pairs of texels; an odd one, n = 2m + 1 > 1, averages
// texels 2i, 2i + 1 and 2i + 2 with weights (m - i, m, i + 1) / n, so that
// every texel of the level weighs the same (each output covers exactly n / m
// texels) and the level's mean carries over unchanged.
LinearImage Downsample(LinearImage const& level, ChainOptions const& options);

// Every level from `level0` down to 1 x 1, level 0 first; for normal maps
// level 0 is renormalised too.
std::vector<LinearImage> BuildMipChain(LinearImage level0, ChainOptions const& options);

// Scales each texel's RGB to unit length; zero vectors become +Z.
void Renormalize(LinearImage& image);

} // namespace Zorvan::Tool
