#include "ImageFile.h"

#include "Errors.h"

#include <png.h>
#include "StbImage.h"

#include <csetjmp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

// Informational only (the report's "container"): stb decides by content.
std::string ContainerOf(fs::path const& path)
{
    unsigned char magic[12] = {};
    std::ifstream in(path, std::ios::binary);
    in.read(reinterpret_cast<char*>(magic), sizeof magic);
    auto const starts = [&](char const* text, std::size_t size) { return std::memcmp(magic, text, size) == 0; };
    if (starts("\x89PNG", 4))
        return "png";
    if (magic[0] == 0xFF && magic[1] == 0xD8)
        return "jpeg";
    if (starts("BM", 2))
        return "bmp";
    if (starts("GIF8", 4))
        return "gif";
    if (starts("8BPS", 4))
        return "psd";
    if (starts("#?RADIANCE", 10) || starts("#?RGBE", 6))
        return "hdr";
    if (magic[0] == 'P' && (magic[1] == '5' || magic[1] == '6'))
        return "pnm";
    if (starts("\x53\x80\xF6\x34", 4))
        return "pic";
    return "tga"; // the one format without a signature
}

struct Header {
    char magic[4];
    std::uint32_t width;
    std::uint32_t height;
    std::uint32_t type;
    std::uint32_t channels;
    std::uint32_t containerLength;
};
constexpr char HeaderMagic[4] = {'z', 'g', 'u', 'I'};

struct PngWriteState {
    std::jmp_buf jump;
    char message[256] = {};
};

void PngError(png_structp png, png_const_charp message)
{
    auto* state = static_cast<PngWriteState*>(png_get_error_ptr(png));
    std::snprintf(state->message, sizeof state->message, "%s", message);
    std::longjmp(state->jump, 1);
}

void PngWarning(png_structp, png_const_charp) {}

// libpng reports errors by longjmp, so everything with a destructor lives in
// the caller; this holds only plain values and libpng's own objects.
bool WritePngRows(std::FILE* file, PngWriteState& state, std::uint32_t width, std::uint32_t height, int bitDepth,
                  unsigned char const* rgba, bool srgb)
{
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &state, PngError, PngWarning);
    if (png == nullptr) {
        std::snprintf(state.message, sizeof state.message, "libpng could not start");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (info == nullptr || setjmp(state.jump) != 0) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file);
    png_set_IHDR(png, info, width, height, bitDepth, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (srgb)
        png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_write_info(png, info);
    if (bitDepth == 16)
        png_set_swap(png); // PNG stores 16-bit samples big-endian
    std::size_t const rowBytes = std::size_t(width) * 4 * (bitDepth / 8);
    for (std::uint32_t y = 0; y < height; ++y)
        png_write_row(png, rgba + y * rowBytes);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return true;
}

} // namespace

DecodedImage DecodeImage(fs::path const& path)
{
    std::error_code error;
    if (!fs::is_regular_file(path, error))
        throw UsageError("cannot read " + Quoted(path) + ": no such file");
    DecodedImage image;
    image.container = ContainerOf(path);
    int width = 0;
    int height = 0;
    int channels = 0;
    void* data = nullptr;
    errno = 0; // a failed allocation inside the decoder leaves ENOMEM
    if (stbi_is_hdr(path.c_str())) {
        image.type = SampleType::F32;
        data = stbi_loadf(path.c_str(), &width, &height, &channels, 4);
    } else if (stbi_is_16_bit(path.c_str())) {
        image.type = SampleType::U16;
        data = stbi_load_16(path.c_str(), &width, &height, &channels, 4);
    } else {
        image.type = SampleType::U8;
        data = stbi_load(path.c_str(), &width, &height, &channels, 4);
    }
    std::unique_ptr<void, void (*)(void*)> const owner(data, stbi_image_free);
    if (data == nullptr) {
        // stb names some failed allocations "outofmem" and others not at all.
        char const* stbReason = stbi_failure_reason();
        std::string reason = stbReason != nullptr ? stbReason : "the decoder gave no reason";
        if (reason == "outofmem" || errno == ENOMEM)
            reason = "out of memory";
        throw Failure("cannot read " + Quoted(path) + ": " + reason);
    }
    image.width = static_cast<std::uint32_t>(width);
    image.height = static_cast<std::uint32_t>(height);
    image.fileChannels = static_cast<unsigned>(channels);
    std::size_t const bytes = std::size_t(image.width) * image.height * 4 * static_cast<std::size_t>(image.type);
    image.samples.assign(static_cast<unsigned char const*>(data), static_cast<unsigned char const*>(data) + bytes);
    return image;
}

std::string DecodeImageJob(std::vector<std::string> const& arguments)
{
    if (arguments.size() != 1)
        throw Failure("decoding takes one file");
    return SerializeImage(DecodeImage(arguments[0]));
}

std::string SerializeImage(DecodedImage const& image)
{
    Header header{};
    std::memcpy(header.magic, HeaderMagic, sizeof HeaderMagic);
    header.width = image.width;
    header.height = image.height;
    header.type = static_cast<std::uint32_t>(image.type);
    header.channels = image.fileChannels;
    header.containerLength = static_cast<std::uint32_t>(image.container.size());
    std::string bytes;
    bytes.reserve(sizeof header + image.container.size() + image.samples.size());
    bytes.append(reinterpret_cast<char const*>(&header), sizeof header);
    bytes.append(image.container);
    bytes.append(reinterpret_cast<char const*>(image.samples.data()), image.samples.size());
    return bytes;
}

DecodedImage DeserializeImage(std::string const& bytes)
{
    Header header{};
    if (bytes.size() < sizeof header)
        throw Failure("the decoder sent a truncated image");
    std::memcpy(&header, bytes.data(), sizeof header);
    DecodedImage image;
    image.width = header.width;
    image.height = header.height;
    image.type = static_cast<SampleType>(header.type);
    image.fileChannels = header.channels;
    std::size_t const samples =
        std::size_t(image.width) * image.height * 4 * static_cast<std::size_t>(header.type);
    if (std::memcmp(header.magic, HeaderMagic, sizeof HeaderMagic) != 0 ||
        bytes.size() != sizeof header + header.containerLength + samples)
        throw Failure("the decoder sent a malformed image");
    image.container = bytes.substr(sizeof header, header.containerLength);
    auto const* first = reinterpret_cast<unsigned char const*>(bytes.data()) + sizeof header + header.containerLength;
    image.samples.assign(first, first + samples);
    return image;
}

void WritePngFile(fs::path const& path, std::uint32_t width, std::uint32_t height, int bitDepth, void const* rgba,
                  bool srgb)
{
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "wb"), std::fclose);
    if (!file)
        throw Failure("cannot write " + Quoted(path) + ": " + std::strerror(errno));
    PngWriteState state;
    if (!WritePngRows(file.get(), state, width, height, bitDepth, static_cast<unsigned char const*>(rgba), srgb))
        throw Failure("cannot write " + Quoted(path) + ": " + state.message);
    if (std::fflush(file.get()) != 0 || std::ferror(file.get()) != 0)
        throw Failure("cannot write " + Quoted(path) + ": " + std::strerror(errno));
}

void WriteHdrFile(fs::path const& path, std::uint32_t width, std::uint32_t height, float const* rgba)
{
    if (stbi_write_hdr(path.c_str(), static_cast<int>(width), static_cast<int>(height), 4, rgba) == 0)
        throw Failure("cannot write " + Quoted(path));
}

} // namespace Zorvan::Tool
