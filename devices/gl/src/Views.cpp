// Shader-resource views (texture views), render-target views (attachment
// records; the framebuffer is assembled when bound) and samplers.

#include "DeviceCore.h"
#include "ImageStore.h"

namespace Zorvan::Rendering::Gl {

using namespace detail;

SrvId GlDevice::CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.images, image, "CreateShaderResourceView", "image");
    if (record == nullptr)
        return SrvId{};
    std::string const what = "CreateShaderResourceView of image " + HandleText(image.Value());
    std::uint32_t const levels = record->description.mipLevels;
    std::uint32_t const layers = record->layers;
    if (description.firstMipLevel >= levels || description.firstArraySlice >= layers)
        return s.Error(what + ": the first level or slice does not exist"), SrvId{};
    // Counts of 0 view everything from the first level or slice on.
    std::uint32_t const levelCount =
        description.mipLevelCount == 0 ? levels - description.firstMipLevel : description.mipLevelCount;
    std::uint32_t const layerCount =
        description.arraySliceCount == 0 ? layers - description.firstArraySlice : description.arraySliceCount;
    if (description.firstMipLevel + levelCount > levels || description.firstArraySlice + layerCount > layers)
        return s.Error(what + ": the view reaches past the image"), SrvId{};

    GLenum target = record->target;
    if (target == GL_TEXTURE_CUBE_MAP && layerCount != 6)
        target = layerCount == 1 ? GL_TEXTURE_2D : GL_TEXTURE_2D_ARRAY;
    // glTextureView wants a name that has never been bound: glGenTextures, not glCreateTextures.
    GLuint name = 0;
    glGenTextures(1, &name);
    SrvRecord view{GlTexture(name), image, target, description.firstMipLevel, levelCount,
                   description.firstArraySlice, layerCount};
    glTextureView(name, target, TextureOf(s, *record), record->format->internalFormat, description.firstMipLevel,
                  levelCount, description.firstArraySlice, layerCount);
    if (target != GL_TEXTURE_2D_MULTISAMPLE) {
        // Unfiltered unless a sampler says otherwise: integer and depth
        // views would be incomplete with the default mipmapped filter.
        glTextureParameteri(name, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTextureParameteri(name, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
    }
    s.CheckGlErrors("CreateShaderResourceView");
    return SrvId{s.shaderResourceViews.Insert(std::move(view))};
}

void GlDevice::DestroyShaderResourceView(SrvId view) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    if (!s.shaderResourceViews.Remove(view.Value(), result))
        s.ReportLookup(result, view.Value(), "DestroyShaderResourceView", "shader-resource view");
}

RtvId GlDevice::CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* record = s.Find(s.images, image, "CreateRenderTargetView", "image");
    if (record == nullptr)
        return RtvId{};
    std::string const what = "CreateRenderTargetView of image " + HandleText(image.Value());
    ImageDesc const& imageDescription = record->description;
    if (description.mipLevel >= imageDescription.mipLevels)
        return s.Error(what + ": no mip level " + std::to_string(description.mipLevel)), RtvId{};
    if (description.planeCount != 1 || description.firstPlane != 0)
        return s.Error(what + ": images have a single plane"), RtvId{};
    Size const size = LevelSize(imageDescription, description.mipLevel);
    RtvRecord view;
    view.image = image;
    view.texture = TextureOf(s, *record);
    view.info = {imageDescription.format, imageDescription.sampleCount, size, image, description};
    if (record->target == GL_TEXTURE_CUBE_MAP || record->target == GL_TEXTURE_3D) {
        std::uint32_t const layers = record->target == GL_TEXTURE_3D ? size.depth : record->layers;
        if (description.firstArraySlice >= layers || description.arraySliceCount != 1)
            return s.Error(what + ": a view renders into one existing slice"), RtvId{};
        view.layer = static_cast<GLint>(description.firstArraySlice);
    } else if (description.firstArraySlice != 0 || description.arraySliceCount > 1) {
        return s.Error(what + ": the image has one slice"), RtvId{};
    }
    return RtvId{s.renderTargetViews.Insert(std::move(view))};
}

void GlDevice::DestroyRenderTargetView(RtvId view) noexcept
{
    auto& s = *state_;
    LookupResult result{};
    if (!s.renderTargetViews.Remove(view.Value(), result))
        s.ReportLookup(result, view.Value(), "DestroyRenderTargetView", "render-target view");
}

RenderTargetViewInfo GlDevice::GetRenderTargetViewDescription(RtvId view)
{
    auto* record = state_->Find(state_->renderTargetViews, view, "GetRenderTargetViewDescription",
                                "render-target view");
    return record != nullptr ? record->info : RenderTargetViewInfo{};
}

SamplerId GlDevice::CreateSampler(SamplerDescription const& description)
{
    auto& s = *state_;
    s.MakeCurrent();
    if (description.filter > SamplerFilter::Linear || description.addressMode > SamplerAddress::Clamp)
        return s.Error("CreateSampler: unknown filter " + std::to_string(static_cast<std::uint32_t>(description.filter)) +
                       " or address mode " + std::to_string(static_cast<std::uint32_t>(description.addressMode))),
               SamplerId{};
    GLuint name = 0;
    glCreateSamplers(1, &name);
    SamplerRecord sampler{GlSampler(name)};
    GLint const filter = description.filter == SamplerFilter::Linear ? GL_LINEAR : GL_NEAREST;
    GLint const wrap = description.addressMode == SamplerAddress::Repeat ? GL_REPEAT : GL_CLAMP_TO_EDGE;
    glSamplerParameteri(name, GL_TEXTURE_MIN_FILTER, filter);
    glSamplerParameteri(name, GL_TEXTURE_MAG_FILTER, filter);
    for (GLenum axis : {GL_TEXTURE_WRAP_S, GL_TEXTURE_WRAP_T, GL_TEXTURE_WRAP_R})
        glSamplerParameteri(name, axis, wrap);
    s.CheckGlErrors("CreateSampler");
    return SamplerId{s.samplers.Insert(std::move(sampler))};
}

void GlDevice::DestroySampler(SamplerId sampler) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    if (!s.samplers.Remove(sampler.Value(), result))
        s.ReportLookup(result, sampler.Value(), "DestroySampler", "sampler");
}

} // namespace Zorvan::Rendering::Gl
