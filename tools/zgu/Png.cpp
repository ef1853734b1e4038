#include "Png.h"

#include "Errors.h"

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

namespace Zorvan::Tool {

void WritePng(std::filesystem::path const& path, RgbaImage const& image)
{
    int const stride = static_cast<int>(image.width * 4);
    if (stbi_write_png(path.c_str(), static_cast<int>(image.width), static_cast<int>(image.height), 4,
                       image.pixels.data(), stride) == 0)
        throw Failure("cannot write '" + path.string() + "'");
}

} // namespace Zorvan::Tool
