#pragma once

// KTX2 files for uncompressed 2D textures with a mip chain: the identifier,
// the header, the section index, the level index (largest level first), a
// Khronos basic data format descriptor, key/value data (KTXorientation "rd":
// rows top to bottom; KTXwriter), then the levels, smallest first, each
// aligned to lcm(texel size, 4). No supercompression.

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// The Vulkan formats zgu writes, by their VkFormat values.
enum class Ktx2Format : std::uint32_t {
    R8G8B8A8Unorm = 37,
    R8G8B8A8Srgb = 43,
    R16G16B16A16Sfloat = 97,
    R32G32B32A32Sfloat = 109,
};

// One level's texels, tightly packed rows, little-endian.
struct Ktx2Level {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::span<std::uint8_t const> bytes;
};

// Bytes per texel of the format.
std::uint32_t Ktx2TexelSize(Ktx2Format format);

// Writes the file; throws Failure. Each level must hold width * height
// texels, and the extents must be level 0's halved, level by level.
void WriteKtx2(std::filesystem::path const& path, Ktx2Format format, std::vector<Ktx2Level> const& levels,
               std::string const& writer);

} // namespace Zorvan::Tool
