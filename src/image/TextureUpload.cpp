#include "ImageDeviceAccess.h"

#include <Rendering/Image.h>

#include <cstdint>

namespace Zorvan::Rendering {
namespace {

using ImageAccess::ScopedImage;

// Host pixel layouts the upload knows: element type, channels, image format.
template <typename T, unsigned Channels, Format ImageFormat>
struct PixelLayout {
    using Element = T;
    static constexpr std::uint32_t channels = Channels;
    static constexpr std::int64_t bytesPerPixel = sizeof(T) * Channels;
    static constexpr Format format = ImageFormat;
};

using RgbaBytes = PixelLayout<unsigned char, 4, Format::R8G8B8A8>;
using RedFloats = PixelLayout<float, 1, Format::R32F>;
using RgFloats = PixelLayout<float, 2, Format::R32G32F>;
using RgbaFloats = PixelLayout<float, 4, Format::R32G32B32A32F>;

constexpr std::uint32_t TextureFlags = ImageUsage::ShaderResource | ImageUsage::CopyDestination; // 0x41

// Writes a tightly packed level into one sub-image: directly when the image
// is host-writable, otherwise through an upload image and a device copy.
template <typename Layout>
void Upload(IResourceFactory& factory, ImageId image, SubImage const& where, typename Layout::Element const* data)
{
    (void)ImageAccess::UploadSubImage(factory, image, factory.GetImageDescription(image), where, data,
                                      Layout::bytesPerPixel, Layout::format,
                                      ImageAccess::Temporaries::UseAsReturned);
}

// A one-level 2D texture of the layout's format, filled when data covers it.
// Held while it is filled, so a device failure does not leak it.
template <typename Layout>
ScopedImage CreateTexture(IResourceFactory& factory, Size size, array_view<typename Layout::Element const> data)
{
    ScopedImage texture(&factory, factory.CreateImage({size, Layout::format, 1, 1, TextureFlags}));
    // Counted in 32 bits and without the depth, as callers have always relied
    // on; too little data leaves the texture unfilled, silently.
    std::uint32_t const required = size.width * size.height * Layout::channels;
    if (data.size() < required)
        return texture;
    Upload<Layout>(factory, texture.Get(), SubImage{}, data.data());
    return texture;
}

} // namespace

ImageId CreateRawRedTexture(IResourceFactory& factory, Size size, array_view<float const> data)
{
    return CreateTexture<RedFloats>(factory, size, data).Detach();
}

ImageId CreateRawRgTexture(IResourceFactory& factory, Size size, array_view<float const> data)
{
    return CreateTexture<RgFloats>(factory, size, data).Detach();
}

ImageId CreateRawRgbaTexture(IResourceFactory& factory, Size size, array_view<unsigned char const> data)
{
    return CreateTexture<RgbaBytes>(factory, size, data).Detach();
}

ImageId CreateRawRgbaTexture(IResourceFactory& factory, Size size, array_view<float const> data)
{
    return CreateTexture<RgbaFloats>(factory, size, data).Detach();
}

ScopedResource<ImageId, IResourceFactory> CreateRedTexture(IResourceFactory& factory, Size size,
                                                           array_view<float const> data)
{
    return CreateTexture<RedFloats>(factory, size, data);
}

ScopedResource<ImageId, IResourceFactory> CreateRgTexture(IResourceFactory& factory, Size size,
                                                          array_view<float const> data)
{
    return CreateTexture<RgFloats>(factory, size, data);
}

ScopedResource<ImageId, IResourceFactory> CreateRgbaTexture(IResourceFactory& factory, Size size,
                                                            array_view<unsigned char const> data)
{
    return CreateTexture<RgbaBytes>(factory, size, data);
}

ScopedResource<ImageId, IResourceFactory> CreateRgbaTexture(IResourceFactory& factory, Size size,
                                                            array_view<float const> data)
{
    return CreateTexture<RgbaFloats>(factory, size, data);
}

void FillRgbaTexture(IResourceFactory& factory, ImageId image, SubImage const& where,
                     array_view<unsigned char const> data)
{
    Upload<RgbaBytes>(factory, image, where, data.data());
}

void FillRgbaTexture(IResourceFactory& factory, ImageId image, SubImage const& where, array_view<float const> data)
{
    Upload<RgbaFloats>(factory, image, where, data.data());
}

} // namespace Zorvan::Rendering
