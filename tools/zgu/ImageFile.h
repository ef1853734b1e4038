#pragma once

// Image files in and out: every format stb reads (PNG of 8 or 16 bits, JPEG,
// TGA, BMP, PSD, GIF, HDR, PIC, PNM) in; PNG of 8 or 16 bits (libpng) and
// Radiance HDR (stb) out.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace Zorvan::Tool {

enum class SampleType : std::uint8_t { U8 = 1, U16 = 2, F32 = 4 }; // value: bytes per sample

// A decoded file: four samples per texel, rows top to bottom. Grey is spread
// over red, green and blue; a missing alpha reads 1.
struct DecodedImage {
    std::uint32_t width = 0;
    std::uint32_t height = 0;
    SampleType type = SampleType::U8;
    unsigned fileChannels = 4;          // 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA
    std::string container;              // "png", "jpeg", "hdr", ... from the file's first bytes
    std::vector<unsigned char> samples; // width * height * 4 samples of `type`, host byte order

    bool HasAlpha() const { return fileChannels == 2 || fileChannels == 4; }
};

// Throws UsageError when the file does not exist, Failure naming the file and
// the decoder's reason when it cannot be decoded.
DecodedImage DecodeImage(std::filesystem::path const& path);

// A decoded image as bytes and back, to carry it out of an isolated child.
std::string SerializeImage(DecodedImage const& image);
DecodedImage DeserializeImage(std::string const& bytes);

// The isolated job that decodes one file (its one argument) and returns it
// serialized; zgu's job table names it DecodeImageJobName.
inline constexpr char const* DecodeImageJobName = "decode-image";
std::string DecodeImageJob(std::vector<std::string> const& arguments);

// Writes RGBA rows of `bitDepth` 8 or 16 (host byte order); `srgb` adds the
// sRGB chunk that tells viewers how the values are coded. Throws Failure.
void WritePngFile(std::filesystem::path const& path, std::uint32_t width, std::uint32_t height, int bitDepth,
                  void const* rgba, bool srgb);

// Writes RGB of RGBA floats as Radiance RGBE; alpha has no place there.
void WriteHdrFile(std::filesystem::path const& path, std::uint32_t width, std::uint32_t height, float const* rgba);

} // namespace Zorvan::Tool
