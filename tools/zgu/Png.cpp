#include "Png.h"

#include "Errors.h"
#include "StbImage.h"

namespace Zorvan::Tool {

void WritePng(std::filesystem::path const& path, RgbaImage const& image)
{
    int const stride = static_cast<int>(image.width * 4);
    if (stbi_write_png(path.c_str(), static_cast<int>(image.width), static_cast<int>(image.height), 4,
                       image.pixels.data(), stride) == 0)
        throw Failure("cannot write '" + path.string() + "'");
}

} // namespace Zorvan::Tool
