#include "Png.h"

#include "Errors.h"

#include <memory>

#define STB_IMAGE_IMPLEMENTATION
#define STB_IMAGE_WRITE_IMPLEMENTATION
#define STBI_ONLY_PNG
#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#pragma GCC diagnostic ignored "-Wunused-function"
#pragma GCC diagnostic ignored "-Wsign-compare"
#endif
#include <stb_image.h>
#include <stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace Zorvan::Tool {

RgbaImage ReadPng(std::filesystem::path const& path)
{
    if (!std::filesystem::is_regular_file(path))
        throw UsageError("cannot read '" + path.string() + "': no such file");
    int width = 0;
    int height = 0;
    int channels = 0;
    std::unique_ptr<stbi_uc, void (*)(void*)> data(stbi_load(path.c_str(), &width, &height, &channels, 4),
                                                   stbi_image_free);
    if (!data)
        throw Failure("cannot read '" + path.string() + "': " + stbi_failure_reason());
    RgbaImage image;
    image.width = static_cast<std::uint32_t>(width);
    image.height = static_cast<std::uint32_t>(height);
    image.pixels.assign(data.get(), data.get() + std::size_t(width) * std::size_t(height) * 4);
    return image;
}

void WritePng(std::filesystem::path const& path, RgbaImage const& image)
{
    int const stride = static_cast<int>(image.width * 4);
    if (stbi_write_png(path.c_str(), static_cast<int>(image.width), static_cast<int>(image.height), 4,
                       image.pixels.data(), stride) == 0)
        throw Failure("cannot write '" + path.string() + "'");
}

} // namespace Zorvan::Tool
