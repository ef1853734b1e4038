#pragma once

// Writing 8-bit RGBA PNG files through stb, rows top to bottom.

#include <cstdint>
#include <filesystem>
#include <vector>

namespace Zorvan::Tool {

struct RgbaImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    std::vector<unsigned char> pixels; // width * height * 4 bytes
};

// Throws Failure when the file cannot be written.
void WritePng(std::filesystem::path const& path, RgbaImage const& image);

} // namespace Zorvan::Tool
