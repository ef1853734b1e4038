// Host mapping, copies and resolves of RecordingGpu images.

#include "DeviceState.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <cstring>
#include <cstdlib>

namespace Zorvan::Rendering::Testing {

using Recording::Extent;
using Recording::HandleText;
using Recording::ImageResource;

namespace {

// Bytes the padding of a staging copy holds, so that a reader that takes the
// padding for pixels sees something conspicuous.
constexpr std::byte PaddingByte{0xCD};

// Moves rows between the packed storage and a staging layout (pitches may be negative).
template <bool ToStaging>
void Transfer(std::vector<std::byte>& packed, Extent const& e, std::size_t rowBytes, std::byte* data,
              std::int64_t rowPitch, std::int64_t slicePitch)
{
    if (rowBytes == 0)
        return;
    for (std::uint32_t z = 0; z < e.slices; ++z) {
        for (std::uint32_t y = 0; y < e.rows; ++y) {
            std::byte* mapped = data + z * slicePitch + y * rowPitch;
            std::byte* stored = packed.data() + (std::size_t{z} * e.rows + y) * rowBytes;
            if constexpr (ToStaging)
                std::memcpy(mapped, stored, rowBytes);
            else
                std::memcpy(stored, mapped, rowBytes);
        }
    }
}

} // namespace

namespace Recording {

std::vector<SubImage> ImageResource::MappedSubImages() const
{
    std::vector<SubImage> open;
    for (auto const& entry : maps)
        open.push_back({entry.first.first, entry.first.second});
    return open;
}

} // namespace Recording

MappedImage RecordingGpu::MapImage(ImageId image, SubImage const& where, std::uint32_t mode)
{
    auto& s = *state_;
    auto const fault = s.Enter(
        {.op = Op::MapImage, .handles = {image.Value(), Recording::NoHandle}, .subImages = {where, SubImage{}}, .value = mode});
    s.Current().result = 0;
    auto* i = s.Find<ImageResource>(Op::MapImage, image.Value());
    if (i == nullptr)
        return {};
    auto const key = std::make_pair(where.mipLevel, where.arraySlice);
    Checks::Findings found;
    Checks::MapImage(HandleText(ResourceKind::Image, image.Value()), i->Facts(), where, mode, i->maps.contains(key),
                     found);
    // A map of a sub-image that does not exist, or one already mapped, is no map at all.
    bool const noMap = !found.empty() && (found[0].rule == Rule::SubImageOutside || found[0].rule == Rule::MapTwice);
    bool const refused = s.Refuse(Op::MapImage, found);
    if (noMap)
        return {};
    Recording::MapState map;
    map.mode = mode;
    if (fault == FaultKind::NullMap || refused) {
        // The unmap that must follow a failed map is still accepted.
        map.failed = true;
        i->maps.emplace(key, std::move(map));
        return {};
    }

    Extent const e = i->LevelExtent(where.mipLevel);
    std::size_t const rowBytes = std::size_t{i->pixelSize} * e.width;
    std::int64_t const pitch = static_cast<std::int64_t>(rowBytes) + s.rowPitchPadding;
    std::size_t const total = static_cast<std::size_t>(pitch) * e.rows * e.slices;
    // A write map of an image the host cannot read hands out unspecified
    // bytes (the padding pattern), as real devices may: write every byte.
    bool const filled = mode == MapMode::Read || (i->description.flags & ImageUsage::HostRead) != 0;
    if (filled && s.rowPitchPadding == 0 && total != 0)
        map.staging.resize(total); // every byte is a texel the transfer writes
    else
        map.staging.assign(std::max<std::size_t>(total, 1), PaddingByte);
    map.rowPitch = static_cast<std::int32_t>(s.negativeRowPitch ? -pitch : pitch);
    map.slicePitch = static_cast<std::int32_t>(map.rowPitch * static_cast<std::int64_t>(e.rows));
    // Bottom-up: row 0 of slice 0 is the last row in memory.
    map.data = map.staging.data() + (s.negativeRowPitch && total != 0 ? total - static_cast<std::size_t>(pitch) : 0);
    if (filled)
        Transfer<true>(i->Bytes(where, 0), e, rowBytes, map.data, map.rowPitch, map.slicePitch);

    MappedImage const result{map.data, map.rowPitch, map.slicePitch};
    i->maps.emplace(key, std::move(map));
    s.Current().result = 1;
    return result;
}

void RecordingGpu::UnmapImage(ImageId image, SubImage const& where) noexcept
{
    auto& s = *state_;
    s.Enter({.op = Op::UnmapImage, .handles = {image.Value(), Recording::NoHandle}, .subImages = {where, SubImage{}}});
    auto* i = s.Find<ImageResource>(Op::UnmapImage, image.Value());
    if (i == nullptr)
        return;
    auto const it = i->maps.find(std::make_pair(where.mipLevel, where.arraySlice));
    Checks::Findings found;
    Checks::UnmapImage(HandleText(ResourceKind::Image, image.Value()), where, it != i->maps.end(), found);
    if (s.Refuse(Op::UnmapImage, found))
        return;
    auto& map = it->second;
    if (!map.failed && map.mode == MapMode::Write) {
        Extent const e = i->LevelExtent(where.mipLevel);
        std::size_t const rowBytes = std::size_t{i->pixelSize} * e.width;
        Transfer<false>(i->Bytes(where, 0), e, rowBytes, map.data, map.rowPitch, map.slicePitch);
    }
    i->maps.erase(it);
}

void RecordingGpu::CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                             SubImage const& destinationWhere)
{
    auto& s = *state_;
    s.Enter({.op = Op::CopyImage, .handles = {source.Value(), destination.Value()},
             .subImages = {sourceWhere, destinationWhere}});
    auto* from = s.Find<ImageResource>(Op::CopyImage, source.Value());
    auto* to = s.Find<ImageResource>(Op::CopyImage, destination.Value());
    if (from == nullptr || to == nullptr)
        return;
    std::string const src = "source " + HandleText(ResourceKind::Image, source.Value());
    std::string const dst = "destination " + HandleText(ResourceKind::Image, destination.Value());
    Checks::Findings found;
    Checks::CopyImage({src, from->Facts(), sourceWhere}, {dst, to->Facts(), destinationWhere}, from == to, found);
    if (s.Refuse(Op::CopyImage, found))
        return;

    Extent const se = from->LevelExtent(sourceWhere.mipLevel);
    Extent const de = to->LevelExtent(destinationWhere.mipLevel);
    if (se.width == 0 || de.width == 0)
        return;
    if (se != de)
        return Recording::ScaleSubImage(*from, sourceWhere, *to, destinationWhere);
    for (std::uint32_t k = 0; k < from->samples; ++k)
        to->Bytes(destinationWhere, k) = from->Bytes(sourceWhere, k);
}

void RecordingGpu::ResolveImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                                SubImage const& destinationWhere)
{
    auto& s = *state_;
    s.Enter({.op = Op::ResolveImage, .handles = {source.Value(), destination.Value()},
             .subImages = {sourceWhere, destinationWhere}});
    auto* from = s.Find<ImageResource>(Op::ResolveImage, source.Value());
    auto* to = s.Find<ImageResource>(Op::ResolveImage, destination.Value());
    if (from == nullptr || to == nullptr)
        return;
    std::string const src = "source " + HandleText(ResourceKind::Image, source.Value());
    std::string const dst = "destination " + HandleText(ResourceKind::Image, destination.Value());
    Checks::Findings found;
    Checks::ResolveImage({src, from->Facts(), sourceWhere}, {dst, to->Facts(), destinationWhere}, found);
    if (s.Refuse(Op::ResolveImage, found))
        return;
    Recording::ResolveSubImage(*from, sourceWhere, *to, destinationWhere);
}

} // namespace Zorvan::Rendering::Testing
