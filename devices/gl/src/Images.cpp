// Images: immutable texture storage, descriptions, and host mapping through
// staging memory (read when mapped, written back when a write map closes).

#include "DeviceCore.h"

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
    GLuint name = 0;
    glCreateTextures(record.target, 1, &name);
    record.name = GlTexture(name);
    auto const levels = static_cast<GLsizei>(description.mipLevels);
    auto const w = static_cast<GLsizei>(size.width);
    auto const h = static_cast<GLsizei>(size.height);
    switch (record.target) {
    case GL_TEXTURE_1D: glTextureStorage1D(name, levels, format.internalFormat, w); break;
    case GL_TEXTURE_2D:
    case GL_TEXTURE_CUBE_MAP: glTextureStorage2D(name, levels, format.internalFormat, w, h); break;
    case GL_TEXTURE_3D:
        glTextureStorage3D(name, levels, format.internalFormat, w, h, static_cast<GLsizei>(size.depth));
        break;
    default:
        glTextureStorage2DMultisample(name, static_cast<GLsizei>(description.sampleCount), format.internalFormat, w,
                                      h, GL_TRUE);
        break;
    }
    // New images read as zero rather than as whatever memory held.
    for (GLint level = 0; level < levels; ++level)
        glClearTexImage(name, level, format.transferFormat, format.transferType, nullptr);
    if (!multisampled && (format.IsInteger() || format.IsDepth())) {
        glTextureParameteri(name, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTextureParameteri(name, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }
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

    OpenImageMap map;
    map.where = where;
    map.mode = mode;
    map.extent = LevelExtent(description, where.mipLevel);
    GlFormat const& format = *record->format;
    std::size_t const rowPitch = std::size_t{map.extent.width} * format.pixelBytes;
    std::size_t const bytes = rowPitch * map.extent.height * map.extent.depth;
    if (bytes > 0x7FFFFFFFu)
        return s.Error(name + ": the level is too large to map"), MappedImage{};
    map.staging.resize(bytes);
    // Write maps read too, so that what the caller leaves alone stays.
    glGetTextureSubImage(record->name.Get(), static_cast<GLint>(where.mipLevel), 0, 0,
                         static_cast<GLint>(where.arraySlice), static_cast<GLsizei>(map.extent.width),
                         static_cast<GLsizei>(map.extent.height), static_cast<GLsizei>(map.extent.depth),
                         format.transferFormat, format.transferType, static_cast<GLsizei>(bytes), map.staging.data());
    ToHostLayout(format, map.staging);
    s.CheckGlErrors("MapImage");
    MappedImage mapped{map.staging.data(), static_cast<std::int32_t>(rowPitch),
                       static_cast<std::int32_t>(rowPitch * map.extent.height)};
    record->maps.push_back(std::move(map));
    return mapped;
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
    if (open->mode == MapMode::Write) {
        GlFormat const& format = *record->format;
        ToGlLayout(format, open->staging);
        GLuint const name = record->name.Get();
        auto const level = static_cast<GLint>(where.mipLevel);
        auto const w = static_cast<GLsizei>(open->extent.width);
        auto const h = static_cast<GLsizei>(open->extent.height);
        auto const d = static_cast<GLsizei>(open->extent.depth);
        switch (record->target) {
        case GL_TEXTURE_1D:
            glTextureSubImage1D(name, level, 0, w, format.transferFormat, format.transferType, open->staging.data());
            break;
        case GL_TEXTURE_2D:
            glTextureSubImage2D(name, level, 0, 0, w, h, format.transferFormat, format.transferType,
                                open->staging.data());
            break;
        default: // 3D, and cube maps by face
            glTextureSubImage3D(name, level, 0, 0, static_cast<GLint>(where.arraySlice), w, h, d,
                                format.transferFormat, format.transferType, open->staging.data());
            break;
        }
        s.CheckGlErrors("UnmapImage");
    }
    record->maps.erase(open);
}

} // namespace Zorvan::Rendering::Gl
