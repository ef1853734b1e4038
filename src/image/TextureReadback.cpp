// Readback of one sub-image into host memory. Every entry point reads the
// image's description once and hands it down: the exported overloads only
// pick a pixel layout and a destination, then funnel into ReadRows.

#include "ImageDeviceAccess.h"

#include <Rendering/Image.h>

#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// The core behind every readback: range and slice checks, then the device
// path of ReadSubImage, then rows copied at the caller's pitch.
bool ReadLevel(IResourceFactory& factory, ImageId image, ImageDesc const& description, SubImage where, void* dst,
               std::int64_t dstRowPitch)
{
    unsigned int const levels =
        description.mipLevels != 0 ? description.mipLevels : CalculateFullMipChainCount(description.size);
    if (where.mipLevel >= levels)
        return false;
    unsigned int const slices = (description.flags & ImageUsage::CubeMap) != 0 ? 6 : 1;
    if (where.arraySlice >= slices)
        return false;

    // Only one 2D level is read, whatever the depth.
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    return ImageAccess::ReadSubImage(factory, image, description, where, [&](MappedImage const& mapped) {
        CopyImageBuffer2D(mapped.data, mapped.rowPitch, dst, dstRowPitch, level.width, level.height);
    });
}

// The float layouts read whatever bytes the image holds.
template <unsigned Channels>
struct FloatPixels {
    using Element = float;
    static constexpr unsigned channels = Channels;
    static bool Accepts(Format) noexcept { return true; }
    static void Finish(Format, void*, Size, std::int64_t) noexcept {}
};

// 8-bit colour: three formats qualify, and blue-first ones are turned
// red-first in place after the copy.
struct RgbaBytes {
    using Element = unsigned char;
    static constexpr unsigned channels = 4;
    static bool Accepts(Format format) noexcept
    {
        return format == Format::B8G8R8A8 || format == Format::B8G8R8X8 || format == Format::R8G8B8A8;
    }
    static void Finish(Format format, void* dst, Size level, std::int64_t rowPitch)
    {
        auto* bytes = static_cast<unsigned char*>(dst);
        if (format == Format::B8G8R8A8)
            bgra2rgba(bytes, level.width, level.height, rowPitch);
        else if (format == Format::B8G8R8X8)
            bgrx2rgba(bytes, level.width, level.height, rowPitch);
    }
};

template <typename Layout>
bool ReadRows(IResourceFactory& factory, ImageId image, ImageDesc const& description, SubImage const& where,
              void* dst, std::int64_t rowPitch)
{
    if (!Layout::Accepts(description.format) || !ReadLevel(factory, image, description, where, dst, rowPitch))
        return false;
    Layout::Finish(description.format, dst, CalculateMipLevelSize(description.size, where.mipLevel), rowPitch);
    return true;
}

template <typename Layout>
std::uint64_t LevelElements(ImageDesc const& description, SubImage const& where) noexcept
{
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    return std::uint64_t{level.width} * level.height * Layout::channels;
}

// Tightly packed into the caller's array; false when it is too small.
template <typename Layout>
bool ReadPacked(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                array_view<typename Layout::Element> out, SubImage const& where)
{
    if (out.size() < LevelElements<Layout>(description, where))
        return false;
    std::int64_t const rowPitch = std::int64_t{CalculateMipLevelSize(description.size, where.mipLevel).width} *
                                  static_cast<std::int64_t>(sizeof(typename Layout::Element) * Layout::channels);
    return ReadRows<Layout>(factory, image, description, where, out.data(), rowPitch);
}

template <typename Layout>
bool ReadInto(IResourceFactory& factory, ImageId image, array_view<typename Layout::Element> out,
              SubImage const& where)
{
    return ReadPacked<Layout>(factory, image, factory.GetImageDescription(image), out, where);
}

// A new array of the level's size; empty when the read fails.
template <typename Layout>
std::vector<typename Layout::Element> ReadVector(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    ImageDesc const description = factory.GetImageDescription(image);
    std::vector<typename Layout::Element> values(LevelElements<Layout>(description, where));
    if (!ReadPacked<Layout>(factory, image, description, array_view<typename Layout::Element>(values), where))
        return {};
    return values;
}

using R32F = FloatPixels<1>;
using R32G32F = FloatPixels<2>;
using R32G32B32A32F = FloatPixels<4>;

} // namespace

bool GetBytes(IResourceFactory& factory, ImageId image, SubImage where, void* dst, std::int64_t dstRowPitch)
{
    return ReadLevel(factory, image, factory.GetImageDescription(image), where, dst, dstRowPitch);
}

std::vector<unsigned char> GetBytes(IResourceFactory& factory, ImageId image, SubImage where, std::int64_t rowPitch)
{
    ImageDesc const description = factory.GetImageDescription(image);
    // Level 0's height, not the requested level's: callers size their pitch
    // for the top level, and a 1D image yields nothing.
    std::vector<unsigned char> bytes(static_cast<std::size_t>(description.size.height) *
                                     static_cast<std::size_t>(rowPitch));
    (void)ReadLevel(factory, image, description, where, bytes.data(), rowPitch);
    return bytes;
}

std::vector<float> GetR32F(IResourceFactory& factory, ImageId image) { return ReadVector<R32F>(factory, image, {}); }
std::vector<float> GetR32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<R32F>(factory, image, where);
}
bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return ReadInto<R32F>(factory, image, out, {});
}
bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return ReadInto<R32F>(factory, image, out, where);
}

std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image)
{
    return ReadVector<R32G32F>(factory, image, {});
}
std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<R32G32F>(factory, image, where);
}
bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return ReadInto<R32G32F>(factory, image, out, {});
}
bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return ReadInto<R32G32F>(factory, image, out, where);
}

std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image)
{
    return ReadVector<R32G32B32A32F>(factory, image, {});
}
std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<R32G32B32A32F>(factory, image, where);
}
bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return ReadInto<R32G32B32A32F>(factory, image, out, {});
}
bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return ReadInto<R32G32B32A32F>(factory, image, out, where);
}

std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image)
{
    return ReadVector<RgbaBytes>(factory, image, {});
}
std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<RgbaBytes>(factory, image, where);
}
bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out)
{
    return ReadInto<RgbaBytes>(factory, image, out, {});
}
bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out, SubImage const& where)
{
    return ReadInto<RgbaBytes>(factory, image, out, where);
}
bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage where, unsigned char* dst, std::int64_t rowPitch)
{
    return ReadRows<RgbaBytes>(factory, image, factory.GetImageDescription(image), where, dst, rowPitch);
}

} // namespace Zorvan::Rendering
