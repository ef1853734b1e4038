#include "MeshJob.h"

#include "Errors.h"
#include "MeshIo.h"
#include "StbImage.h"

#include <fcntl.h>
#include <unistd.h>

#include <memory>

namespace Zorvan::Tool {
namespace {

// Importers print warnings of their own; zgu's stderr carries its own lines
// only. Sanitizer builds keep stderr for the sanitizer's report.
void SilenceImporter()
{
    int const null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (null < 0)
        return;
    ::dup2(null, STDOUT_FILENO);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    ::dup2(null, STDERR_FILENO);
#endif
    ::close(null);
}

std::string EncodePng(int width, int height, unsigned char const* rgba)
{
    std::string png;
    auto const append = [](void* context, void* data, int size) {
        static_cast<std::string*>(context)->append(static_cast<char const*>(data), static_cast<std::size_t>(size));
    };
    if (stbi_write_png_to_func(append, &png, width, height, 4, rgba, width * 4) == 0)
        return {};
    return png;
}

// Engines and glTF take PNG and JPEG; raw texels and other containers (BMP,
// TGA, ...) become PNG here, in the child, where their decoder is isolated.
void NormaliseImages(MeshAsset& asset)
{
    for (EmbeddedImage& image : asset.images) {
        if (image.mimeType == "image/png" || image.mimeType == "image/jpeg")
            continue;
        std::string png;
        if (image.mimeType.empty()) {
            std::string rgba = image.bytes;
            for (std::size_t i = 0; i + 3 < rgba.size(); i += 4)
                std::swap(rgba[i], rgba[i + 2]); // BGRA to RGBA
            if (image.width != 0 && image.height != 0 && image.width < (1u << 15) && image.height < (1u << 15))
                png = EncodePng(int(image.width), int(image.height),
                                reinterpret_cast<unsigned char const*>(rgba.data()));
        } else if (image.bytes.size() < (1u << 30)) {
            int width = 0;
            int height = 0;
            int channels = 0;
            std::unique_ptr<unsigned char, void (*)(void*)> texels(
                stbi_load_from_memory(reinterpret_cast<unsigned char const*>(image.bytes.data()),
                                      static_cast<int>(image.bytes.size()), &width, &height, &channels, 4),
                stbi_image_free);
            if (texels)
                png = EncodePng(width, height, texels.get());
        }
        if (png.empty())
            continue; // the writers count it as left out
        image.mimeType = "image/png";
        image.width = 0;
        image.height = 0;
        image.bytes = std::move(png);
    }
}

} // namespace

std::string ImportMeshJob(std::vector<std::string> const& arguments)
{
    if (arguments.size() != 1)
        throw Failure("importing takes one file");
    SilenceImporter();
    MeshAsset asset = ImportMeshAsset(arguments[0]);
    NormaliseImages(asset);
    return SerializeMeshAsset(asset);
}

MeshAsset ImportMeshIsolated(std::filesystem::path const& path, IsolationLimits const& limits)
{
    return DeserializeMeshAsset(RunIsolated("importing " + Quoted(path), limits, ImportMeshJobName, {path.string()}));
}

} // namespace Zorvan::Tool
