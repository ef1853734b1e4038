// Upload and readback that say why they cannot work. Every requirement a
// device is known to enforce is checked before the device is asked for
// anything, so a refused copy or map never passes silently.

#include "ImageDeviceAccess.h"

#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {
namespace {

using ImageAccess::Temporaries;

// Bytes of one slice or face of a level, tightly packed; rows and slices of
// absent dimensions count as one.
struct LevelShape {
    Size size;
    std::int64_t rowBytes = 0;
    std::int64_t rows = 1;
    std::int64_t depth = 1;
    std::uint32_t faces = 1;

    std::int64_t FaceBytes() const noexcept { return rowBytes * rows * depth; }
    std::int64_t TotalBytes() const noexcept { return FaceBytes() * faces; }
};

LevelShape ShapeOf(ImageDesc const& description, unsigned int mipLevel)
{
    LevelShape shape;
    shape.size = CalculateMipLevelSize(description.size, mipLevel);
    shape.rowBytes = std::int64_t{GetSize(description.format)} * shape.size.width;
    shape.rows = std::max<std::int64_t>(shape.size.height, 1);
    shape.depth = std::max<std::int64_t>(shape.size.depth, 1);
    shape.faces = (description.flags & ImageUsage::CubeMap) != 0 ? 6 : 1;
    return shape;
}

unsigned int LevelCount(ImageDesc const& description)
{
    if (description.sampleCount > 1)
        return 1;
    return description.mipLevels != 0 ? description.mipLevels : CalculateFullMipChainCount(description.size);
}

// What must hold before a fill of level 0 starts.
ImageAccessError CheckUpload(ImageDesc const& description, std::uint64_t dataBytes)
{
    if (GetSize(description.format) == 0)
        return ImageAccessError::NoPixelSize;
    if (description.sampleCount > 1)
        return ImageAccessError::MultisampledUpload;
    if ((description.flags & (ImageUsage::HostWrite | ImageUsage::CopyDestination)) == 0)
        return ImageAccessError::NeedsHostWriteOrCopyDestination;
    if (dataBytes < static_cast<std::uint64_t>(ShapeOf(description, 0).TotalBytes()))
        return ImageAccessError::DataTooShort;
    return ImageAccessError::None;
}

// What must hold before a read starts; the flags a resolve temporary has
// always allow the copy that follows it.
ImageAccessError CheckRead(ImageDesc const& description, unsigned int mipLevel)
{
    if (description.format == Format::None || GetSize(description.format) == 0)
        return ImageAccessError::UnknownImage;
    if (mipLevel >= LevelCount(description))
        return ImageAccessError::NoSuchLevel;
    if (description.sampleCount > 1)
        return (description.flags & ImageUsage::Resolvable) != 0 ? ImageAccessError::None
                                                                  : ImageAccessError::NeedsResolvable;
    if ((description.flags & (ImageUsage::HostRead | ImageUsage::CopySource)) == 0)
        return ImageAccessError::NeedsHostReadOrCopySource;
    return ImageAccessError::None;
}

} // namespace

char const* ToString(ImageAccessError error) noexcept
{
    switch (error) {
    case ImageAccessError::None: return "no error";
    case ImageAccessError::UnknownImage: return "the device describes the image with no format";
    case ImageAccessError::NoPixelSize: return "the format has no pixel size";
    case ImageAccessError::NoSuchLevel: return "the image has no such mip level";
    case ImageAccessError::DataTooShort: return "fewer bytes than the level holds";
    case ImageAccessError::MultisampledUpload: return "multisampled images cannot be filled from host data";
    case ImageAccessError::NeedsHostWriteOrCopyDestination: return "needs HostWrite (0x10) or CopyDestination (0x40)";
    case ImageAccessError::NeedsResolvable: return "a multisampled image needs Resolvable (0x80)";
    case ImageAccessError::NeedsHostReadOrCopySource: return "needs HostRead (0x08) or CopySource (0x20)";
    case ImageAccessError::CreateFailed: return "the device could not create an image";
    case ImageAccessError::MapFailed: return "the device could not map an image";
    }
    return "unknown image access error";
}

TextureFromData CreateTextureFromData(IResourceFactory& factory, ImageDesc const& description,
                                      array_view<unsigned char const> data)
{
    TextureFromData result;
    result.error = CheckUpload(description, data.size());
    if (result.error != ImageAccessError::None)
        return result;

    ImageAccess::ScopedImage image(&factory, factory.CreateImage(description));
    if (!image.IsValid()) {
        result.error = ImageAccessError::CreateFailed;
        return result;
    }
    LevelShape const shape = ShapeOf(description, 0);
    auto const bytesPerPixel = static_cast<std::int64_t>(GetSize(description.format));
    for (std::uint32_t face = 0; face < shape.faces; ++face) {
        ImageAccessError const error = ImageAccess::UploadSubImage(
            factory, image.Get(), description, SubImage{0, face}, data.data() + face * shape.FaceBytes(),
            bytesPerPixel, description.format, Temporaries::StopWhenInvalid);
        if (error != ImageAccessError::None) {
            result.error = error;
            return result;
        }
    }
    result.image = std::move(image);
    return result;
}

ImageLevel ReadImageLevel(IResourceFactory& factory, ImageId image, unsigned int mipLevel)
{
    ImageLevel result;
    result.description = factory.GetImageDescription(image);
    result.error = CheckRead(result.description, mipLevel);
    if (result.error != ImageAccessError::None)
        return result;

    LevelShape const shape = ShapeOf(result.description, mipLevel);
    std::vector<unsigned char> bytes(static_cast<std::size_t>(shape.TotalBytes()));
    for (std::uint32_t face = 0; face < shape.faces; ++face) {
        unsigned char* const dst = bytes.data() + face * shape.FaceBytes();
        result.error = ImageAccess::ReadSubImageChecked(
            factory, image, result.description, SubImage{mipLevel, face}, Temporaries::StopWhenInvalid,
            [&](MappedImage const& mapped) {
                CopyImageBuffer(mapped.data, mapped.rowPitch, mapped.slicePitch, dst, shape.rowBytes,
                                shape.rowBytes * shape.rows, shape.size.width, shape.rows, shape.depth);
            });
        if (result.error != ImageAccessError::None)
            return result;
    }
    result.size = shape.size;
    result.slices = static_cast<std::uint32_t>(shape.depth) * shape.faces;
    result.bytes = std::move(bytes);
    return result;
}

} // namespace Zorvan::Rendering
