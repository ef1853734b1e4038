#include "MipChain.h"

#include <Rendering/Image.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace Zorvan::Tool {
namespace {

struct Tap {
    std::uint32_t index = 0;
    double weight = 0.0;
};

// Up to three taps per output texel along one axis.
struct Footprint {
    std::array<Tap, 3> taps{};
    unsigned count = 0;
};

std::vector<Footprint> Footprints(std::uint32_t extent)
{
    std::uint32_t const outputs = std::max(1u, extent / 2);
    std::vector<Footprint> footprints(outputs);
    for (std::uint32_t i = 0; i < outputs; ++i) {
        Footprint& f = footprints[i];
        if (extent == 1) {
            f.taps[0] = {0, 1.0};
            f.count = 1;
        } else if (extent % 2 == 0) {
            f.taps[0] = {2 * i, 0.5};
            f.taps[1] = {2 * i + 1, 0.5};
            f.count = 2;
        } else {
            double const n = extent;
            double const m = extent / 2;
            f.taps[0] = {2 * i, (m - i) / n};
            f.taps[1] = {2 * i + 1, m / n};
            f.taps[2] = {2 * i + 2, (i + 1) / n};
            f.count = 3;
        }
    }
    return footprints;
}

void NormalizeTexel(float* texel)
{
    double const x = texel[0];
    double const y = texel[1];
    double const z = texel[2];
    double const length = std::sqrt(x * x + y * y + z * z);
    if (!(length > 1e-12)) {
        texel[0] = 0.0f;
        texel[1] = 0.0f;
        texel[2] = 1.0f;
        return;
    }
    texel[0] = static_cast<float>(x / length);
    texel[1] = static_cast<float>(y / length);
    texel[2] = static_cast<float>(z / length);
}

} // namespace

LinearImage Downsample(LinearImage const& level, ChainOptions const& options)
{
    std::vector<Footprint> const across = Footprints(level.width);
    std::vector<Footprint> const down = Footprints(level.height);
    bool const weighted = options.alphaWeighted && !options.normalMap;

    LinearImage next;
    next.width = static_cast<std::uint32_t>(across.size());
    next.height = static_cast<std::uint32_t>(down.size());
    next.texels.resize(std::size_t(next.width) * next.height * 4);
    for (std::uint32_t y = 0; y < next.height; ++y) {
        Footprint const& fy = down[y];
        for (std::uint32_t x = 0; x < next.width; ++x) {
            Footprint const& fx = across[x];
            double plain[3] = {};
            double premultiplied[3] = {};
            double alpha = 0.0;
            for (unsigned j = 0; j < fy.count; ++j) {
                for (unsigned i = 0; i < fx.count; ++i) {
                    double const w = fx.taps[i].weight * fy.taps[j].weight;
                    float const* t = level.At(fx.taps[i].index, fy.taps[j].index);
                    double const a = t[3];
                    for (int c = 0; c < 3; ++c) {
                        plain[c] += w * t[c];
                        premultiplied[c] += w * a * t[c];
                    }
                    alpha += w * a;
                }
            }
            float* out = next.At(x, y);
            bool const useAlpha = weighted && alpha > 0.0;
            for (int c = 0; c < 3; ++c)
                out[c] = static_cast<float>(useAlpha ? premultiplied[c] / alpha : plain[c]);
            out[3] = static_cast<float>(alpha);
            if (options.normalMap)
                NormalizeTexel(out);
        }
    }
    return next;
}

std::vector<LinearImage> BuildMipChain(LinearImage level0, ChainOptions const& options)
{
    unsigned const count = Rendering::CalculateFullMipChainCount(Rendering::Size{level0.width, level0.height, 0});
    if (options.normalMap)
        Renormalize(level0);
    std::vector<LinearImage> chain;
    chain.reserve(count);
    chain.push_back(std::move(level0));
    while (chain.size() < count)
        chain.push_back(Downsample(chain.back(), options));
    return chain;
}

void Renormalize(LinearImage& image)
{
    for (std::size_t i = 0; i < image.texels.size(); i += 4)
        NormalizeTexel(&image.texels[i]);
}

} // namespace Zorvan::Tool
