// Device-side copies between images: exact copies when extents match,
// filtered blits when they differ (so level-to-level copies build mip
// chains), and multisample resolves. GL needs no usage flags for either, so
// the copy and resolve flags are not demanded: a texture made for sampling
// (flags 0x41) may still seed a mip chain. Exact copies into read-back
// images and out of upload images skip one texture (see ImageStore).

#include "DeviceCore.h"
#include "ImageStore.h"

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

bool SubImageExists(ImageRecord const& record, SubImage const& where) noexcept
{
    return where.mipLevel < record.description.mipLevels && where.arraySlice < record.layers;
}

// Attaches one level (one face or depth slice where layer >= 0) of an image
// as the only attachment of a transfer framebuffer.
void AttachOnly(GLuint framebuffer, ImageRecord const& record, std::uint32_t level, GLint layer, bool read)
{
    GLenum const attachment = record.format->Attachment();
    for (GLenum point : {GL_COLOR_ATTACHMENT0, GL_DEPTH_ATTACHMENT, GL_STENCIL_ATTACHMENT})
        glNamedFramebufferTexture(framebuffer, point, 0, 0);
    if (layer >= 0)
        glNamedFramebufferTextureLayer(framebuffer, attachment, record.name.Get(), static_cast<GLint>(level), layer);
    else
        glNamedFramebufferTexture(framebuffer, attachment, record.name.Get(), static_cast<GLint>(level));
    GLenum const buffer = record.format->IsDepth() ? GL_NONE : GL_COLOR_ATTACHMENT0;
    if (read)
        glNamedFramebufferReadBuffer(framebuffer, buffer);
    else
        glNamedFramebufferDrawBuffer(framebuffer, buffer);
}

GLbitfield BlitMask(GlFormat const& format) noexcept
{
    if (!format.IsDepth())
        return GL_COLOR_BUFFER_BIT;
    return format.stencil ? GL_DEPTH_BUFFER_BIT | GL_STENCIL_BUFFER_BIT : GL_DEPTH_BUFFER_BIT;
}

// Blits one level (every slice of a 3D level, each from the nearest source
// slice) from source to destination.
bool Blit(DeviceCore& s, ImageRecord& source, SubImage const& from, ImageRecord& destination, SubImage const& to,
          GLenum filter, char const* operation)
{
    PrepareTexture(s, source, from);
    TextureOf(s, destination);
    Size const sourceSize = LevelExtent(source.description, from.mipLevel);
    Size const destinationSize = LevelExtent(destination.description, to.mipLevel);
    bool const sourceLayered = source.target == GL_TEXTURE_CUBE_MAP || source.target == GL_TEXTURE_3D;
    bool const destinationLayered = destination.target == GL_TEXTURE_CUBE_MAP || destination.target == GL_TEXTURE_3D;
    std::uint32_t const slices = destination.target == GL_TEXTURE_3D ? destinationSize.depth : 1;
    for (std::uint32_t z = 0; z < slices; ++z) {
        GLint sourceLayer = -1;
        if (source.target == GL_TEXTURE_3D)
            sourceLayer = static_cast<GLint>((std::uint64_t{z} * 2 + 1) * sourceSize.depth / (2 * std::uint64_t{slices}));
        else if (sourceLayered)
            sourceLayer = static_cast<GLint>(from.arraySlice);
        GLint const destinationLayer =
            destination.target == GL_TEXTURE_3D ? static_cast<GLint>(z)
            : destinationLayered                ? static_cast<GLint>(to.arraySlice)
                                                : -1;
        AttachOnly(s.readFramebuffer.Get(), source, from.mipLevel, sourceLayer, true);
        AttachOnly(s.drawFramebuffer.Get(), destination, to.mipLevel, destinationLayer, false);
        if (glCheckNamedFramebufferStatus(s.readFramebuffer.Get(), GL_READ_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE ||
            glCheckNamedFramebufferStatus(s.drawFramebuffer.Get(), GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
            s.Error(std::string(operation) + ": GL cannot attach these images (" + ToString(source.description.format) +
                    " to " + ToString(destination.description.format) + ")");
            return false;
        }
        glBlitNamedFramebuffer(s.readFramebuffer.Get(), s.drawFramebuffer.Get(), 0, 0,
                               static_cast<GLint>(sourceSize.width), static_cast<GLint>(sourceSize.height), 0, 0,
                               static_cast<GLint>(destinationSize.width), static_cast<GLint>(destinationSize.height),
                               BlitMask(*source.format), filter);
    }
    TextureWritten(s, destination, to);
    return true;
}

} // namespace

void GlDevice::CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                         SubImage const& destinationWhere)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* from = s.Find(s.images, source, "CopyImage", "source image");
    auto* to = s.Find(s.images, destination, "CopyImage", "destination image");
    if (from == nullptr || to == nullptr)
        return;
    std::string const what = "CopyImage from " + HandleText(source.Value()) + " to " + HandleText(destination.Value());
    if (!SubImageExists(*from, sourceWhere) || !SubImageExists(*to, destinationWhere))
        return s.Error(what + ": no such level or slice");
    if (from == to && sourceWhere == destinationWhere)
        return s.Error(what + ": a sub-image cannot be copied onto itself");
    if (from->description.sampleCount != to->description.sampleCount)
        return s.Error(what + ": sample counts differ (a resolve is needed)");
    GlFormat const& a = *from->format;
    GlFormat const& b = *to->format;

    Size const sourceSize = LevelExtent(from->description, sourceWhere.mipLevel);
    Size const destinationSize = LevelExtent(to->description, destinationWhere.mipLevel);
    bool const sameExtent = sourceSize == destinationSize;
    bool const exact = a.pixelBytes == b.pixelBytes && (!a.IsDepth() || a.internalFormat == b.internalFormat);
    if (sameExtent && exact) {
        if (CopyAroundTextures(s, *from, sourceWhere, *to, destinationWhere))
            return s.CheckGlErrors("CopyImage");
        PrepareTexture(s, *from, sourceWhere);
        glCopyImageSubData(from->name.Get(), from->target, static_cast<GLint>(sourceWhere.mipLevel), 0, 0,
                           static_cast<GLint>(sourceWhere.arraySlice), TextureOf(s, *to), to->target,
                           static_cast<GLint>(destinationWhere.mipLevel), 0, 0,
                           static_cast<GLint>(destinationWhere.arraySlice), static_cast<GLsizei>(sourceSize.width),
                           static_cast<GLsizei>(sourceSize.height), static_cast<GLsizei>(sourceSize.depth));
        TextureWritten(s, *to, destinationWhere);
    } else {
        if (from->description.sampleCount > 1)
            return s.Error(what + ": multisampled images copy only at equal extents and pixel sizes");
        // Bits move unchanged between equal pixel sizes; a scaling copy converts, which GL
        // does only within float, signed, unsigned and depth formats.
        if (a.IsDepth() != b.IsDepth() || a.kind != b.kind)
            return s.Error(what + ": " + ToString(a.format) + " and " + ToString(b.format) + " do not convert");
        GLenum const filter = a.kind == ChannelKind::Float ? GL_LINEAR : GL_NEAREST;
        Blit(s, *from, sourceWhere, *to, destinationWhere, filter, "CopyImage");
    }
    s.CheckGlErrors("CopyImage");
}

void GlDevice::ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                            SubImage const& destinationWhere)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* from = s.Find(s.images, source, "ResolveImage", "source image");
    auto* to = s.Find(s.images, destination, "ResolveImage", "destination image");
    if (from == nullptr || to == nullptr)
        return;
    std::string const what =
        "ResolveImage from " + HandleText(source.Value()) + " to " + HandleText(destination.Value());
    if (!SubImageExists(*from, sourceWhere) || !SubImageExists(*to, destinationWhere))
        return s.Error(what + ": no such level or slice");
    if (from->description.sampleCount < 2 || to->description.sampleCount != 1)
        return s.Error(what + ": resolves go from a multisampled to a single-sampled image");
    if (from->description.format != to->description.format)
        return s.Error(what + ": the formats differ");
    if (LevelExtent(from->description, sourceWhere.mipLevel) != LevelExtent(to->description, destinationWhere.mipLevel))
        return s.Error(what + ": the extents differ");
    Blit(s, *from, sourceWhere, *to, destinationWhere, GL_NEAREST, "ResolveImage");
    s.CheckGlErrors("ResolveImage");
}

} // namespace Zorvan::Rendering::Gl
