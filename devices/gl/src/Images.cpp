// Images: descriptions, creation (the texture itself is made on first GPU
// use, see ImageStore) and host maps, which hand out the sub-image's staging
// memory.

#include "DeviceCore.h"
#include "ImageStore.h"

#include <Rendering/Image.h>

#include <algorithm>

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

// The smallest sample count GL offers at or above the request (else the
// largest): llvmpipe, for one, offers 4 only.
GLsizei RealSampleCount(GlFormat const& format, std::uint32_t requested)
{
    GLint count = 0;
    glGetInternalformativ(GL_TEXTURE_2D_MULTISAMPLE, format.internalFormat, GL_NUM_SAMPLE_COUNTS, 1, &count);
    if (count <= 0)
        return 0;
    std::vector<GLint> offered(static_cast<std::size_t>(count));
    glGetInternalformativ(GL_TEXTURE_2D_MULTISAMPLE, format.internalFormat, GL_SAMPLES, count, offered.data());
    GLint best = 0;
    for (GLint samples : offered) {
        if (samples >= static_cast<GLint>(requested) && (best == 0 || samples < best))
            best = samples;
    }
    if (best == 0)
        best = *std::max_element(offered.begin(), offered.end());
    return best;
}

} // namespace

ImageDesc GlDevice::GetImageDescription(ImageId image)
{
    auto* record = state_->Find(state_->images, image, "GetImageDescription", "image");
    return record != nullptr ? record->description : ImageDesc{};
}

ImageId GlDevice::CreateImage(ImageDesc const& requested)
{
    auto& s = *state_;
    s.MakeCurrent();
    GlFormat const& format = LookUpFormat(requested.format);
    std::string const what = std::string("CreateImage: ") + ToString(requested.format) + " image of " +
                             std::to_string(requested.size.width) + "x" + std::to_string(requested.size.height) +
                             "x" + std::to_string(requested.size.depth);
    if (!format.Supported())
        return s.Error(what + ": no GL format for it"), ImageId{};
    Size const size = requested.size;
    bool const cube = (requested.flags & ImageUsage::CubeMap) != 0;
    bool const multisampled = requested.sampleCount > 1;
    if (size.width == 0 || (size.depth != 0 && size.height == 0))
        return s.Error(what + ": not a 1D, 2D or 3D extent"), ImageId{};
    auto const limit = static_cast<std::uint32_t>(s.info.maxTextureSize);
    if (size.width > limit || size.height > limit || size.depth > limit)
        return s.Error(what + ": larger than the device's " + std::to_string(limit) + " texels"), ImageId{};
    if (cube && (size.width != size.height || size.depth != 0 || multisampled))
        return s.Error(what + ": a cube map has square, single-sampled faces and no depth"), ImageId{};
    if (multisampled && (size.height == 0 || size.depth != 0))
        return s.Error(what + ": only 2D images can be multisampled"), ImageId{};
    if (requested.sampleCount == 0)
        return s.Error(what + ": sample count 0"), ImageId{};

    ImageDesc description = requested;
    std::uint32_t const fullChain = CalculateFullMipChainCount(size);
    if (multisampled) {
        if (requested.mipLevels > 1)
            return s.Error(what + ": a multisampled image has one mip level"), ImageId{};
        description.mipLevels = 1;
        description.sampleCount = static_cast<std::uint32_t>(RealSampleCount(format, requested.sampleCount));
        if (description.sampleCount == 0)
            return s.Error(what + ": the format cannot be multisampled"), ImageId{};
    } else {
        description.mipLevels = requested.mipLevels == 0 ? fullChain : requested.mipLevels;
        if (description.mipLevels > fullChain)
            return s.Error(what + ": " + std::to_string(requested.mipLevels) + " mip levels, the chain has " +
                           std::to_string(fullChain)),
                   ImageId{};
    }

    ImageRecord record;
    record.description = description;
    record.format = &format;
    record.target = multisampled    ? GL_TEXTURE_2D_MULTISAMPLE
                    : cube          ? GL_TEXTURE_CUBE_MAP
                    : size.depth    ? GL_TEXTURE_3D
                    : size.height   ? GL_TEXTURE_2D
                                    : GL_TEXTURE_1D;
    record.layers = cube ? 6 : 1;
    // Every sub-image starts as zero; nothing is cleared until it is used.
    record.subImages.resize(std::size_t{description.mipLevels} * record.layers);
    s.CheckGlErrors("CreateImage");
    return ImageId{s.images.Insert(std::move(record))};
}

void GlDevice::DestroyImage(ImageId image) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    auto record = s.images.Remove(image.Value(), result);
    if (!record)
        return s.ReportLookup(result, image.Value(), "DestroyImage", "image");
    if (!record->maps.empty())
        s.Error("DestroyImage: image " + HandleText(image.Value()) + " destroyed while mapped");
    // A texture view still alive keeps the storage: it must not be handed to a new image.
    bool shared = false;
    s.shaderResourceViews.ForEach([&](SrvRecord const& view) { shared = shared || view.image == image; });
    Recycle(s, *record, shared);
}

MappedImage GlDevice::MapImage(ImageId image, SubImage const& where, std::uint32_t mode)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.images, image, "MapImage", "image");
    if (record == nullptr)
        return {};
    std::string const name = "MapImage: image " + HandleText(image.Value());
    ImageDesc const& description = record->description;
    if (mode != MapMode::Read && mode != MapMode::Write)
        return s.Error(name + ": unknown map mode " + std::to_string(mode)), MappedImage{};
    std::uint32_t const needed = mode == MapMode::Write ? ImageUsage::HostWrite : ImageUsage::HostRead;
    if ((description.flags & needed) == 0)
        return s.Error(name + (mode == MapMode::Write ? " lacks the host-write flag" : " lacks the host-read flag")),
               MappedImage{};
    if (description.sampleCount > 1)
        return s.Error(name + " is multisampled: resolve it first"), MappedImage{};
    if (where.mipLevel >= description.mipLevels || where.arraySlice >= record->layers)
        return s.Error(name + ": no level " + std::to_string(where.mipLevel) + ", slice " +
                       std::to_string(where.arraySlice)),
               MappedImage{};
    for (auto const& open : record->maps)
        if (open.where == where)
            return s.Error(name + ": that sub-image is already mapped"), MappedImage{};

    Size const extent = SubImageExtent(*record, where);
    std::size_t const rowPitch = std::size_t{extent.width} * record->format->pixelBytes;
    if (SubImageBytes(*record, where) > 0x7FFFFFFFu)
        return s.Error(name + ": the level is too large to map"), MappedImage{};
    // Write maps hand out the content too, so that what the caller leaves alone
    // stays; on a write-only image that nothing has written, there is none yet.
    bool const writeOnly = mode == MapMode::Write && (description.flags & ImageUsage::HostRead) == 0;
    std::byte* data = PrepareHost(s, *record, where, writeOnly);
    s.CheckGlErrors("MapImage");
    if (data == nullptr)
        return s.Error(name + ": no staging memory could be mapped"), MappedImage{};
    StateOf(*record, where).mapped = true;
    record->maps.push_back({where, mode});
    return {data, static_cast<std::int32_t>(rowPitch), static_cast<std::int32_t>(rowPitch * extent.height)};
}

void GlDevice::UnmapImage(ImageId image, SubImage const& where) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.images, image, "UnmapImage", "image");
    if (record == nullptr)
        return;
    auto open = std::find_if(record->maps.begin(), record->maps.end(),
                             [&where](OpenImageMap const& m) { return m.where == where; });
    // A failed map is followed by an unmap as well: nothing to do then.
    if (open == record->maps.end())
        return;
    // The staging memory is coherent: the texture takes the writes when the GPU next uses it.
    if (open->mode == MapMode::Write)
        HostWritten(*record, where);
    StateOf(*record, where).mapped = false;
    record->maps.erase(open);
}

} // namespace Zorvan::Rendering::Gl
