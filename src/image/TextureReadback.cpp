#include "ImageDeviceAccess.h"

#include <Rendering/Image.h>

#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {

bool GetBytes(IResourceFactory& factory, ImageId image, SubImage where, void* dst, std::int64_t dstRowPitch)
{
    ImageDesc const description = factory.GetImageDescription(image);

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

std::vector<unsigned char> GetBytes(IResourceFactory& factory, ImageId image, SubImage where, std::int64_t rowPitch)
{
    // Level 0's height, not the requested level's: callers size their pitch
    // for the top level, and a 1D image yields nothing.
    std::uint32_t const height = factory.GetImageDescription(image).size.height;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(height) * static_cast<std::size_t>(rowPitch));
    (void)GetBytes(factory, image, where, bytes.data(), rowPitch);
    return bytes;
}

namespace {

// Elements a tightly packed copy of the level needs.
std::uint64_t LevelElements(IResourceFactory& factory, ImageId image, SubImage const& where,
                            std::uint64_t elementsPerPixel)
{
    Size const level = CalculateMipLevelSize(factory.GetImageDescription(image).size, where.mipLevel);
    return std::uint64_t{level.width} * level.height * elementsPerPixel;
}

template <typename T, unsigned ElementsPerPixel>
struct Family {
    static bool Read(IResourceFactory& factory, ImageId image, array_view<T> out, SubImage const& where)
    {
        Size const level = CalculateMipLevelSize(factory.GetImageDescription(image).size, where.mipLevel);
        if (out.size() < std::uint64_t{level.width} * level.height * ElementsPerPixel)
            return false;
        return GetBytes(factory, image, where, out.data(),
                        std::int64_t{level.width} * static_cast<std::int64_t>(sizeof(T) * ElementsPerPixel));
    }
};

template <typename T, unsigned ElementsPerPixel, typename Read>
std::vector<T> ReadVector(IResourceFactory& factory, ImageId image, SubImage const& where, Read read)
{
    std::vector<T> values(LevelElements(factory, image, where, ElementsPerPixel));
    if (!read(factory, image, array_view<T>(values), where))
        return {};
    return values;
}

using R32F = Family<float, 1>;
using R32G32F = Family<float, 2>;
using R32G32B32A32F = Family<float, 4>;

} // namespace

std::vector<float> GetR32F(IResourceFactory& factory, ImageId image)
{
    return ReadVector<float, 1>(factory, image, SubImage{}, R32F::Read);
}
std::vector<float> GetR32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<float, 1>(factory, image, where, R32F::Read);
}
bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return R32F::Read(factory, image, out, SubImage{});
}
bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return R32F::Read(factory, image, out, where);
}

std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image)
{
    return ReadVector<float, 2>(factory, image, SubImage{}, R32G32F::Read);
}
std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<float, 2>(factory, image, where, R32G32F::Read);
}
bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return R32G32F::Read(factory, image, out, SubImage{});
}
bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return R32G32F::Read(factory, image, out, where);
}

std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image)
{
    return ReadVector<float, 4>(factory, image, SubImage{}, R32G32B32A32F::Read);
}
std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<float, 4>(factory, image, where, R32G32B32A32F::Read);
}
bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out)
{
    return R32G32B32A32F::Read(factory, image, out, SubImage{});
}
bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where)
{
    return R32G32B32A32F::Read(factory, image, out, where);
}

bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage where, unsigned char* dst, std::int64_t rowPitch)
{
    ImageDesc const description = factory.GetImageDescription(image);
    Format const format = description.format;
    if (format != Format::B8G8R8A8 && format != Format::B8G8R8X8 && format != Format::R8G8B8A8)
        return false;
    if (!GetBytes(factory, image, where, dst, rowPitch))
        return false;
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    if (format == Format::B8G8R8A8)
        bgra2rgba(dst, level.width, level.height, rowPitch);
    else if (format == Format::B8G8R8X8)
        bgrx2rgba(dst, level.width, level.height, rowPitch);
    return true;
}

bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out, SubImage const& where)
{
    Size const level = CalculateMipLevelSize(factory.GetImageDescription(image).size, where.mipLevel);
    if (out.size() < std::uint64_t{level.width} * level.height * 4)
        return false;
    return GetR8G8B8A8(factory, image, where, out.data(), std::int64_t{level.width} * 4);
}

bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out)
{
    return GetR8G8B8A8(factory, image, out, SubImage{});
}

std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage const& where)
{
    return ReadVector<unsigned char, 4>(
        factory, image, where, [](IResourceFactory& f, ImageId i, array_view<unsigned char> out, SubImage const& w) {
            return GetR8G8B8A8(f, i, out, w);
        });
}

std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image)
{
    return GetR8G8B8A8(factory, image, SubImage{});
}

} // namespace Zorvan::Rendering
