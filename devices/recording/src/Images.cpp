// Image, view and sampler life cycle of RecordingGpu, and image inspection.

#include "DeviceState.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <stdexcept>

namespace Zorvan::Rendering::Testing {

using Recording::HandleText;
using Recording::ImageResource;

namespace {

// Keeps a mistaken description from exhausting the test machine.
constexpr std::uint64_t MaximumImageBytes = std::uint64_t{1} << 30;

std::string SubText(SubImage const& where)
{
    return "mip " + std::to_string(where.mipLevel) + " slice " + std::to_string(where.arraySlice);
}

} // namespace

ImageId RecordingGpu::CreateImage(ImageDesc const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateImage, .payload = description}) == FaultKind::InvalidHandle)
        return ImageId{};

    ImageResource image;
    image.description = description;
    image.description.flags &= ~s.strippedImageFlags;
    if (description.mipLevels == 0) {
        if (s.fullChainFill)
            image.description.mipLevels = Recording::FullChainLength(description.size);
        image.levels = std::max(image.description.mipLevels, 1u);
    } else {
        image.levels = description.mipLevels;
    }
    image.slices = (image.description.flags & ImageUsage::CubeMap) != 0 ? 6 : 1;
    image.samples = std::max(description.sampleCount, 1u);
    image.pixelSize = GetSize(description.format);

    std::uint64_t total = 0;
    for (std::uint32_t level = 0; level < image.levels; ++level) {
        auto const e = image.LevelExtent(level);
        total += std::uint64_t{image.pixelSize} * e.width * e.rows * e.slices * image.slices * image.samples;
    }
    if (total > MaximumImageBytes || image.levels > 64) {
        s.Error(Op::CreateImage, "an image of " + std::to_string(total) + " bytes in " +
                                     std::to_string(image.levels) + " levels is more than the recording device holds");
        return ImageId{};
    }
    image.storage.reserve(std::size_t{image.levels} * image.slices * image.samples);
    for (std::uint32_t level = 0; level < image.levels; ++level) {
        auto const e = image.LevelExtent(level);
        std::size_t const bytes = std::size_t{image.pixelSize} * e.width * e.rows * e.slices;
        for (std::uint32_t i = 0; i < image.slices * image.samples; ++i)
            image.storage.emplace_back(bytes);
    }
    return s.Created<ImageId>(std::move(image));
}

ImageDesc RecordingGpu::GetImageDescription(ImageId image)
{
    auto& s = *state_;
    auto const* i = s.EnterOn<ImageResource>(Op::GetImageDescription, image.Value());
    return i == nullptr ? ImageDesc{} : i->description;
}

void RecordingGpu::DestroyImage(ImageId image) noexcept
{
    auto& s = *state_;
    auto const* i = s.EnterOn<ImageResource>(Op::DestroyImage, image.Value());
    if (i == nullptr)
        return;
    for (auto const& [where, map] : i->maps)
        s.Error(Op::DestroyImage, HandleText(ResourceKind::Image, image.Value()) + ": destroyed while " +
                                      SubText({where.first, where.second}) + " is mapped");
    s.Remove(image.Value());
}

SrvId RecordingGpu::CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateShaderResourceView, .handles = {image.Value(), Recording::NoHandle},
                 .payload = description}) == FaultKind::InvalidHandle)
        return SrvId{};
    auto const* i = s.Find<ImageResource>(Op::CreateShaderResourceView, image.Value());
    if (i == nullptr)
        return SrvId{};
    auto within = [](std::uint32_t first, std::uint32_t count, std::uint32_t total) {
        return first < total && (count == 0 || std::uint64_t{first} + count <= total);
    };
    if (!within(description.firstMipLevel, description.mipLevelCount, i->levels) ||
        !within(description.firstArraySlice, description.arraySliceCount, i->slices)) {
        s.Error(Op::CreateShaderResourceView,
                HandleText(ResourceKind::Image, image.Value()) + ": view of mips " +
                    std::to_string(description.firstMipLevel) + "+" + std::to_string(description.mipLevelCount) +
                    ", slices " + std::to_string(description.firstArraySlice) + "+" +
                    std::to_string(description.arraySliceCount) + " lies outside the image's " +
                    std::to_string(i->levels) + " mips and " + std::to_string(i->slices) + " slices");
        return SrvId{};
    }
    return s.Created<SrvId>(Recording::ViewResource{image, description});
}

RtvId RecordingGpu::CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateRenderTargetView, .handles = {image.Value(), Recording::NoHandle},
                 .payload = description}) == FaultKind::InvalidHandle)
        return RtvId{};
    auto const* i = s.Find<ImageResource>(Op::CreateRenderTargetView, image.Value());
    if (i == nullptr)
        return RtvId{};
    if (description.mipLevel >= i->levels ||
        std::uint64_t{description.firstArraySlice} + std::max(description.arraySliceCount, 1u) > i->slices) {
        s.Error(Op::CreateRenderTargetView,
                HandleText(ResourceKind::Image, image.Value()) + ": view of mip " +
                    std::to_string(description.mipLevel) + ", slices " +
                    std::to_string(description.firstArraySlice) + "+" + std::to_string(description.arraySliceCount) +
                    " lies outside the image's " + std::to_string(i->levels) + " mips and " +
                    std::to_string(i->slices) + " slices");
        return RtvId{};
    }
    return s.Created<RtvId>(Recording::TargetResource{image, description});
}

RenderTargetViewInfo RecordingGpu::GetRenderTargetViewDescription(RtvId view)
{
    auto& s = *state_;
    auto const* v = s.EnterOn<Recording::TargetResource>(Op::GetRenderTargetViewDescription, view.Value());
    if (v == nullptr)
        return {};
    auto const* i = s.Peek<ImageResource>(v->image.Value());
    if (i == nullptr) {
        s.Error(Op::GetRenderTargetViewDescription, HandleText(ResourceKind::RenderTargetView, view.Value()) +
                                                        ": its image " +
                                                        HandleText(ResourceKind::Image, v->image.Value()) +
                                                        " was destroyed");
        return {};
    }
    return {i->description.format, i->description.sampleCount, Recording::LevelSize(i->description.size, v->description.mipLevel),
            v->image, v->description};
}

void RecordingGpu::DestroyShaderResourceView(SrvId view) noexcept
{
    state_->Destroy<Recording::ViewResource>(Op::DestroyShaderResourceView, view.Value());
}

void RecordingGpu::DestroyRenderTargetView(RtvId view) noexcept
{
    state_->Destroy<Recording::TargetResource>(Op::DestroyRenderTargetView, view.Value());
}

SamplerId RecordingGpu::CreateSampler(SamplerDescription const& description)
{
    auto& s = *state_;
    if (s.Enter({.op = Op::CreateSampler, .payload = description}) == FaultKind::InvalidHandle)
        return SamplerId{};
    return s.Created<SamplerId>(Recording::SamplerResource{description});
}

void RecordingGpu::DestroySampler(SamplerId sampler) noexcept
{
    state_->Destroy<Recording::SamplerResource>(Op::DestroySampler, sampler.Value());
}

// ---- Scripting

void RecordingGpu::SetStrippedImageFlags(std::uint32_t flags) noexcept { state_->strippedImageFlags = flags; }
void RecordingGpu::SetRowPitchPadding(std::uint32_t bytes) noexcept { state_->rowPitchPadding = bytes; }
void RecordingGpu::SetNegativeRowPitch(bool negative) noexcept { state_->negativeRowPitch = negative; }
void RecordingGpu::SetFullChainFill(bool enabled) noexcept { state_->fullChainFill = enabled; }

// ---- Inspection

ImageDesc const& RecordingGpu::Description(ImageId image) const
{
    return state_->Expect<ImageResource>(image.Value(), "Description").description;
}

std::vector<std::byte> RecordingGpu::ReadImage(ImageId image, SubImage where, std::uint32_t sample) const
{
    auto const& i = state_->Expect<ImageResource>(image.Value(), "ReadImage");
    if (!i.Contains(where) || sample >= i.samples)
        throw std::invalid_argument("RecordingGpu::ReadImage: " + SubText(where) + " sample " +
                                    std::to_string(sample) + " is not part of " +
                                    HandleText(ResourceKind::Image, image.Value()));
    return i.Bytes(where, sample);
}

void RecordingGpu::WriteImage(ImageId image, SubImage where, std::span<std::byte const> bytes, std::uint32_t sample)
{
    auto* i = &state_->Expect<ImageResource>(image.Value(), "WriteImage");
    bool const allSamples = sample == ~0u;
    if (!i->Contains(where) || (!allSamples && sample >= i->samples))
        throw std::invalid_argument("RecordingGpu::WriteImage: " + SubText(where) + " sample " +
                                    std::to_string(sample) + " is not part of " +
                                    HandleText(ResourceKind::Image, image.Value()));
    if (bytes.size() != i->Bytes(where, 0).size())
        throw std::invalid_argument("RecordingGpu::WriteImage: " + std::to_string(bytes.size()) +
                                    " bytes given for a sub-image of " + std::to_string(i->Bytes(where, 0).size()));
    for (std::uint32_t k = allSamples ? 0 : sample; k < (allSamples ? i->samples : sample + 1); ++k)
        std::copy(bytes.begin(), bytes.end(), i->Bytes(where, k).begin());
}

ShaderResourceViewDescription const& RecordingGpu::View(SrvId view) const
{
    return state_->Expect<Recording::ViewResource>(view.Value(), "View").description;
}

ImageId RecordingGpu::ViewedImage(SrvId view) const
{
    return state_->Expect<Recording::ViewResource>(view.Value(), "ViewedImage").image;
}

ImageId RecordingGpu::ViewedImage(RtvId view) const
{
    return state_->Expect<Recording::TargetResource>(view.Value(), "ViewedImage").image;
}

} // namespace Zorvan::Rendering::Testing
