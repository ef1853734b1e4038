#include "ImageStore.h"

#include <cstring>
#include <span>

namespace Zorvan::Rendering::Gl::detail {

namespace {

constexpr std::uint32_t HostAccess = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t GpuAccess = ImageUsage::ShaderResource | ImageUsage::RenderTarget;

TextureShape ShapeOf(ImageRecord const& record) noexcept
{
    ImageDesc const& d = record.description;
    TextureShape shape{record.target,
                       record.format->internalFormat,
                       static_cast<GLsizei>(d.size.width),
                       static_cast<GLsizei>(d.size.height),
                       static_cast<GLsizei>(d.size.depth),
                       static_cast<GLsizei>(d.mipLevels),
                       static_cast<GLsizei>(d.sampleCount),
                       0};
    for (std::uint32_t level = 0; level < d.mipLevels; ++level)
        shape.bytes += SubImageBytes(record, {level, 0}) * record.layers * d.sampleCount;
    return shape;
}

GlTexture NewTexture(ImageRecord const& record, TextureShape const& shape)
{
    GLuint name = 0;
    glCreateTextures(shape.target, 1, &name);
    GLenum const format = shape.internalFormat;
    switch (shape.target) {
    case GL_TEXTURE_1D: glTextureStorage1D(name, shape.levels, format, shape.width); break;
    case GL_TEXTURE_2D:
    case GL_TEXTURE_CUBE_MAP: glTextureStorage2D(name, shape.levels, format, shape.width, shape.height); break;
    case GL_TEXTURE_3D: glTextureStorage3D(name, shape.levels, format, shape.width, shape.height, shape.depth); break;
    default: glTextureStorage2DMultisample(name, shape.samples, format, shape.width, shape.height, GL_TRUE); break;
    }
    if (shape.target != GL_TEXTURE_2D_MULTISAMPLE && (record.format->IsInteger() || record.format->IsDepth())) {
        glTextureParameteri(name, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTextureParameteri(name, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }
    return GlTexture(name);
}

// Makes sure `state.host` can hold `bytes`.
bool HostBuffer(DeviceCore& s, SubImageState& state, std::size_t bytes)
{
    if (state.host && state.host.Capacity() >= bytes)
        return true;
    s.staging.Release(std::move(state.host));
    state.host = s.staging.Acquire(bytes);
    return static_cast<bool>(state.host);
}

void ReleaseHost(DeviceCore& s, SubImageState& state)
{
    state.hostCurrent = false;
    // A mapped sub-image keeps its memory: the caller still holds a pointer to it.
    if (!state.mapped)
        s.staging.Release(std::move(state.host));
}

// Packs a sub-image of the texture into staging memory, in `as`'s transfer layout.
void Pack(ImageRecord& record, SubImage const& where, GlFormat const& as, StagingBuffer& into)
{
    Size const extent = SubImageExtent(record, where);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, into.Name());
    glGetTextureSubImage(record.name.Get(), static_cast<GLint>(where.mipLevel), 0, 0,
                         static_cast<GLint>(where.arraySlice), static_cast<GLsizei>(extent.width),
                         static_cast<GLsizei>(extent.height), static_cast<GLsizei>(extent.depth), as.transferFormat,
                         as.transferType, static_cast<GLsizei>(into.Capacity()), nullptr);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
    into.Fence();
}

// Unpacks host pixels (a staging offset when `from` is bound, else a host
// pointer) in `as`'s transfer layout into a sub-image of the texture.
void UnpackInto(ImageRecord& record, SubImage const& where, GlFormat const& as, void const* pixels)
{
    Size const extent = SubImageExtent(record, where);
    GLuint const name = record.name.Get();
    auto const level = static_cast<GLint>(where.mipLevel);
    auto const w = static_cast<GLsizei>(extent.width);
    auto const h = static_cast<GLsizei>(extent.height);
    auto const d = static_cast<GLsizei>(extent.depth);
    switch (record.target) {
    case GL_TEXTURE_1D: glTextureSubImage1D(name, level, 0, w, as.transferFormat, as.transferType, pixels); break;
    case GL_TEXTURE_2D:
        glTextureSubImage2D(name, level, 0, 0, w, h, as.transferFormat, as.transferType, pixels);
        break;
    default: // 3D, and cube maps by face
        glTextureSubImage3D(name, level, 0, 0, static_cast<GLint>(where.arraySlice), w, h, d, as.transferFormat,
                            as.transferType, pixels);
        break;
    }
}

void Unpack(ImageRecord& record, SubImage const& where, GlFormat const& as, StagingBuffer& from)
{
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, from.Name());
    UnpackInto(record, where, as, nullptr);
    glBindBuffer(GL_PIXEL_UNPACK_BUFFER, 0);
    from.Fence();
}

bool SameInternalFormat(ImageRecord const& a, ImageRecord const& b) noexcept
{
    return a.format->internalFormat == b.format->internalFormat && a.format->hostLayout == HostLayout::Same &&
           b.format->hostLayout == HostLayout::Same;
}

ImageRecord* LiveImage(DeviceCore& s, ImageId image) noexcept
{
    LookupResult result{};
    return s.images.Find(image.Value(), result);
}

} // namespace

Size SubImageExtent(ImageRecord const& record, SubImage const& where) noexcept
{
    return LevelExtent(record.description, where.mipLevel);
}

std::size_t SubImageBytes(ImageRecord const& record, SubImage const& where) noexcept
{
    Size const extent = SubImageExtent(record, where);
    return std::size_t{extent.width} * extent.height * extent.depth * record.format->pixelBytes;
}

SubImageState& StateOf(ImageRecord& record, SubImage const& where) noexcept
{
    return record.subImages[std::size_t{where.mipLevel} * record.layers + where.arraySlice];
}

GLuint TextureOf(DeviceCore& s, ImageRecord& record)
{
    if (!record.name) {
        TextureShape const shape = ShapeOf(record);
        GlTexture texture = s.textureBin.Take(shape);
        record.name = texture ? std::move(texture) : NewTexture(record, shape);
    }
    return record.name.Get();
}

void PrepareTexture(DeviceCore& s, ImageRecord& record, SubImage const& where)
{
    GLuint const name = TextureOf(s, record);
    SubImageState& state = StateOf(record, where);
    if (state.textureCurrent)
        return;
    GlFormat const& format = *record.format;
    if (state.zero) {
        if (record.target == GL_TEXTURE_2D_MULTISAMPLE) {
            glClearTexImage(name, 0, format.transferFormat, format.transferType, nullptr);
        } else {
            Size const extent = SubImageExtent(record, where);
            glClearTexSubImage(name, static_cast<GLint>(where.mipLevel), 0, 0, static_cast<GLint>(where.arraySlice),
                               static_cast<GLsizei>(extent.width), static_cast<GLsizei>(extent.height),
                               static_cast<GLsizei>(extent.depth), format.transferFormat, format.transferType,
                               nullptr);
        }
        state.zero = false;
    } else if (format.hostLayout == HostLayout::Same) {
        Unpack(record, where, format, state.host);
    } else {
        // GL packs these depth formats differently from the host: convert a copy.
        state.host.WaitForGpu();
        std::vector<std::byte> converted(state.host.Data(), state.host.Data() + SubImageBytes(record, where));
        ToGlLayout(format, converted);
        UnpackInto(record, where, format, converted.data());
    }
    state.textureCurrent = true;
}

void TextureWritten(DeviceCore& s, ImageRecord& record, SubImage const& where)
{
    SubImageState& state = StateOf(record, where);
    state.zero = false;
    state.textureCurrent = true;
    ReleaseHost(s, state);
}

std::byte* PrepareHost(DeviceCore& s, ImageRecord& record, SubImage const& where, bool overwrite)
{
    SubImageState& state = StateOf(record, where);
    std::size_t const bytes = SubImageBytes(record, where);
    if (!state.hostCurrent) {
        if (!HostBuffer(s, state, bytes))
            return nullptr;
        if (state.zero) {
            // Zeroing costs half a copy of the level, for bytes an upload overwrites anyway.
            state.host.WaitForGpu();
            if (!overwrite)
                std::memset(state.host.Data(), 0, bytes);
            state.zero = false;
            state.textureCurrent = false;
        } else {
            Pack(record, where, *record.format, state.host);
            state.host.WaitForGpu();
            ToHostLayout(*record.format, std::span(state.host.Data(), bytes));
        }
        state.hostCurrent = true;
    }
    state.host.WaitForGpu();
    return state.host.Data();
}

void HostWritten(ImageRecord& record, SubImage const& where) noexcept
{
    SubImageState& state = StateOf(record, where);
    state.zero = false;
    state.hostCurrent = true;
    state.textureCurrent = false;
}

bool CopyAroundTextures(DeviceCore& s, ImageRecord& from, SubImage const& sourceWhere, ImageRecord& to,
                        SubImage const& destinationWhere)
{
    SubImageState& source = StateOf(from, sourceWhere);
    SubImageState& destination = StateOf(to, destinationWhere);
    if (source.zero) {
        ReleaseHost(s, destination);
        destination.zero = true;
        destination.textureCurrent = false;
        return true;
    }
    // Multisampled textures cannot be packed or unpacked.
    if (!SameInternalFormat(from, to) || destination.mapped || from.description.sampleCount > 1)
        return false;
    std::size_t const bytes = SubImageBytes(to, destinationWhere);
    // Staging-only destinations (read-back images) take the pixels at host.
    if ((to.description.flags & HostAccess) != 0 && (to.description.flags & GpuAccess) == 0) {
        if (!HostBuffer(s, destination, bytes))
            return false;
        bool const sameBytes = from.format->transferFormat == to.format->transferFormat &&
                               from.format->transferType == to.format->transferType;
        if (source.hostCurrent && sameBytes) {
            glCopyNamedBufferSubData(source.host.Name(), destination.host.Name(), 0, 0,
                                     static_cast<GLsizeiptr>(bytes));
            source.host.Fence();
            destination.host.Fence();
        } else {
            PrepareTexture(s, from, sourceWhere);
            Pack(from, sourceWhere, *to.format, destination.host);
        }
        destination.zero = false;
        destination.hostCurrent = true;
        destination.textureCurrent = false;
        return true;
    }
    // Pixels the host wrote go straight into the destination texture.
    if (source.hostCurrent && !source.textureCurrent) {
        TextureOf(s, to);
        Unpack(to, destinationWhere, *from.format, source.host);
        TextureWritten(s, to, destinationWhere);
        return true;
    }
    return false;
}

void Recycle(DeviceCore& s, ImageRecord& record, bool textureShared)
{
    for (SubImageState& state : record.subImages)
        s.staging.Release(std::move(state.host));
    if (record.name && !textureShared)
        s.textureBin.Put(ShapeOf(record), std::move(record.name));
}

void NoteBoundView(DeviceCore& s, SrvRecord const& view)
{
    for (std::uint32_t level = view.firstLevel; level < view.firstLevel + view.levelCount; ++level)
        for (std::uint32_t layer = view.firstLayer; layer < view.firstLayer + view.layerCount; ++layer)
            s.boundReads.emplace_back(view.image, SubImage{level, layer});
}

void NoteBoundTarget(DeviceCore& s, RtvRecord const& view)
{
    ImageRecord const* record = LiveImage(s, view.image);
    // A view of a volume slice writes part of the level, which is one sub-image.
    bool const face = record != nullptr && record->target == GL_TEXTURE_CUBE_MAP;
    s.boundTargets.emplace_back(view.image,
                                SubImage{view.info.description.mipLevel, face ? static_cast<std::uint32_t>(view.layer) : 0});
}

void PrepareDrawTextures(DeviceCore& s)
{
    for (auto const* list : {&s.boundReads, &s.boundTargets})
        for (auto const& [image, where] : *list)
            if (ImageRecord* record = LiveImage(s, image))
                PrepareTexture(s, *record, where);
}

void DrawTexturesWritten(DeviceCore& s)
{
    for (auto const& [image, where] : s.boundTargets)
        if (ImageRecord* record = LiveImage(s, image))
            TextureWritten(s, *record, where);
}

} // namespace Zorvan::Rendering::Gl::detail
