#pragma once

// Device access shared by the upload, readback and conversion routines: a
// mapping that is always unmapped, and the path that brings one sub-image of
// any image to host-readable memory.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Image.h>

#include <cstdint>
#include <utility>

namespace Zorvan::Rendering::ImageAccess {

// Flags of the temporaries the image routines make.
inline constexpr std::uint32_t UploadFlags = ImageUsage::HostWrite | ImageUsage::CopySource;                 // 0x30
inline constexpr std::uint32_t ReadbackFlags = ImageUsage::HostRead | ImageUsage::CopyDestination;           // 0x48
inline constexpr std::uint32_t ResolveFlags = ImageUsage::CopySource | ImageUsage::ResolveDestination;       // 0x120

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

// Maps one sub-image for its lifetime. The unmap follows every map that
// returned, also a failed one (null data), and never throws.
class ScopedMapping {
public:
    ScopedMapping(IResourceFactory& factory, ImageId image, SubImage where, std::uint32_t mode)
        : factory_(factory), image_(image), where_(where), mapped_(factory.MapImage(image, where, mode))
    {
    }
    ~ScopedMapping() { factory_.UnmapImage(image_, where_); }
    ScopedMapping(ScopedMapping const&) = delete;
    ScopedMapping& operator=(ScopedMapping const&) = delete;

    MappedImage const& Mapped() const noexcept { return mapped_; }
    bool Failed() const noexcept { return mapped_.data == nullptr; }

private:
    IResourceFactory& factory_;
    ImageId image_;
    SubImage where_;
    MappedImage mapped_;
};

// How the read path treats an invalid handle from CreateImage for a
// temporary: the plain readback uses it as it comes (the device then refuses
// the transfer into it); ReadImageLevel stops and says so.
enum class Temporaries { UseAsReturned, StopWhenInvalid };

// Makes sub-image `where` of `image` (described by `description`) readable by
// the host and hands the mapping to copy(MappedImage const&): a multisampled
// image is resolved first (needs 0x80), an image without host read (0x08) is
// copied into a read-back image (needs 0x20). Temporaries have the level's
// size. An error when the image cannot be read or the map fails; copy has
// then not run. Unmaps, then releases temporaries, on every path.
template <typename Copy>
ImageAccessError ReadSubImageChecked(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                                     SubImage where, Temporaries temporaries, Copy&& copy)
{
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    ImageId source = image;
    SubImage sourceWhere = where;
    std::uint32_t sourceFlags = description.flags;

    // The source moves into a new temporary of the level's size by transfer
    // (a resolve or a copy); the temporary is the source from then on.
    auto const stage = [&](ScopedImage& temporary, std::uint32_t flags, auto transfer) {
        temporary.Reset(&factory, factory.CreateImage({level, description.format, 1, 1, flags}));
        if (temporaries == Temporaries::StopWhenInvalid && !temporary.IsValid())
            return false;
        (factory.*transfer)(source, sourceWhere, temporary.Get(), SubImage{});
        source = temporary.Get();
        sourceWhere = SubImage{};
        sourceFlags = flags;
        return true;
    };

    ScopedImage resolved;
    if (description.sampleCount > 1) {
        if ((sourceFlags & ImageUsage::Resolvable) == 0)
            return ImageAccessError::NeedsResolvable;
        if (!stage(resolved, ResolveFlags, &IResourceFactory::ResolveImage))
            return ImageAccessError::CreateFailed;
    }
    ScopedImage readback;
    if ((sourceFlags & ImageUsage::HostRead) == 0) {
        if ((sourceFlags & ImageUsage::CopySource) == 0)
            return ImageAccessError::NeedsHostReadOrCopySource;
        if (!stage(readback, ReadbackFlags, &IResourceFactory::CopyImage))
            return ImageAccessError::CreateFailed;
    }

    ScopedMapping const mapping(factory, source, sourceWhere, MapMode::Read);
    if (mapping.Failed())
        return ImageAccessError::MapFailed;
    std::forward<Copy>(copy)(mapping.Mapped());
    return ImageAccessError::None;
}

// As ReadSubImageChecked with temporaries used as returned; true on success.
template <typename Copy>
bool ReadSubImage(IResourceFactory& factory, ImageId image, ImageDesc const& description, SubImage where,
                  Copy&& copy)
{
    return ReadSubImageChecked(factory, image, description, where, Temporaries::UseAsReturned,
                               std::forward<Copy>(copy)) == ImageAccessError::None;
}

// Writes tightly packed pixels (bytesPerPixel each, every depth slice) into
// one sub-image: through a write map when the image is host-writable (0x10),
// otherwise through an upload image of uploadFormat and a device copy. The
// copy follows only a successful map. MapFailed when a map returned null;
// CreateFailed for an invalid upload image only when temporaries says stop.
inline ImageAccessError UploadSubImage(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                                       SubImage const& where, void const* data, std::int64_t bytesPerPixel,
                                       Format uploadFormat, Temporaries temporaries)
{
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);

    ImageId target = image;
    SubImage targetWhere = where;
    ScopedImage upload;
    if ((description.flags & ImageUsage::HostWrite) == 0) {
        upload.Reset(&factory, factory.CreateImage({level, uploadFormat, 1, 1, UploadFlags}));
        if (temporaries == Temporaries::StopWhenInvalid && !upload.IsValid())
            return ImageAccessError::CreateFailed;
        target = upload.Get();
        targetWhere = SubImage{};
    }

    {
        ScopedMapping const mapping(factory, target, targetWhere, MapMode::Write);
        if (mapping.Failed())
            return ImageAccessError::MapFailed;
        MappedImage const& mapped = mapping.Mapped();
        std::int64_t const rowPitch = level.width * bytesPerPixel;
        CopyImageBuffer(data, rowPitch, rowPitch * level.height, mapped.data, mapped.rowPitch, mapped.slicePitch,
                        level.width, level.height, level.depth);
    }
    if (target.Value() != image.Value())
        factory.CopyImage(target, SubImage{}, image, where);
    return ImageAccessError::None;
}

} // namespace Zorvan::Rendering::ImageAccess
