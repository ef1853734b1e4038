// Host mapping, copies and resolves of RecordingGpu images.

#include "DeviceState.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <cstring>
#include <cstdlib>

namespace Zorvan::Rendering::Testing {

using Recording::Extent;
using Recording::HandleText;
using Recording::Hex;
using Recording::ImageResource;

namespace {

// Bytes the padding of a staging copy holds, so that a reader that takes the
// padding for pixels sees something conspicuous.
constexpr std::byte PaddingByte{0xCD};

std::string SubText(SubImage const& where)
{
    return "mip " + std::to_string(where.mipLevel) + " slice " + std::to_string(where.arraySlice);
}

std::string Outside(ImageResource const& image, SubImage const& where)
{
    return SubText(where) + " lies outside the image's " + std::to_string(image.levels) + " mips and " +
           std::to_string(image.slices) + " slices";
}

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

MappedImage RecordingGpu::MapImage(ImageId image, SubImage const& where, std::uint32_t mode)
{
    auto& s = *state_;
    auto const fault = s.Enter(
        {.op = Op::MapImage, .handles = {image.Value(), Recording::NoHandle}, .subImages = {where, SubImage{}}, .value = mode});
    s.Current().result = 0;
    auto* i = s.Find<ImageResource>(Op::MapImage, image.Value());
    if (i == nullptr)
        return {};
    std::string const who = HandleText(ResourceKind::Image, image.Value());
    if (!i->Contains(where)) {
        s.Error(Op::MapImage, who + ": " + Outside(*i, where));
        return {};
    }
    auto const key = std::make_pair(where.mipLevel, where.arraySlice);
    if (i->maps.contains(key)) {
        s.Error(Op::MapImage, who + ": " + SubText(where) + " is already mapped");
        return {};
    }
    Recording::MapState map;
    map.mode = mode;
    if (fault == FaultKind::NullMap) {
        map.failed = true;
    } else if (mode != MapMode::Read && mode != MapMode::Write) {
        s.Error(Op::MapImage, who + ": unknown map mode " + std::to_string(mode));
        map.failed = true;
    } else {
        std::uint32_t const needed = mode == MapMode::Read ? ImageUsage::HostRead : ImageUsage::HostWrite;
        if ((i->description.flags & needed) == 0) {
            s.Error(Op::MapImage, who + (mode == MapMode::Read ? ": mapped for reading without HostRead 0x8"
                                                                : ": mapped for writing without HostWrite 0x10") +
                                      " (flags " + Hex(i->description.flags) + ")");
            map.failed = true;
        }
    }
    if (map.failed) {
        // The unmap that must follow a failed map is still accepted.
        i->maps.emplace(key, std::move(map));
        return {};
    }

    Extent const e = i->LevelExtent(where.mipLevel);
    std::size_t const rowBytes = std::size_t{i->pixelSize} * e.width;
    std::int64_t const pitch = static_cast<std::int64_t>(rowBytes) + s.rowPitchPadding;
    std::size_t const total = static_cast<std::size_t>(pitch) * e.rows * e.slices;
    map.staging.assign(std::max<std::size_t>(total, 1), PaddingByte);
    map.rowPitch = static_cast<std::int32_t>(s.negativeRowPitch ? -pitch : pitch);
    map.slicePitch = static_cast<std::int32_t>(map.rowPitch * static_cast<std::int64_t>(e.rows));
    // Bottom-up: row 0 of slice 0 is the last row in memory.
    map.data = map.staging.data() + (s.negativeRowPitch && total != 0 ? total - static_cast<std::size_t>(pitch) : 0);
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
    if (it == i->maps.end()) {
        s.Error(Op::UnmapImage, HandleText(ResourceKind::Image, image.Value()) + ": " + SubText(where) + " is not mapped");
        return;
    }
    auto& map = it->second;
    if (!map.failed && map.mode == MapMode::Write) {
        Extent const e = i->LevelExtent(where.mipLevel);
        std::size_t const rowBytes = std::size_t{i->pixelSize} * e.width;
        // A write map of a multisampled image writes every sample.
        for (std::uint32_t k = 0; k < i->samples; ++k)
            Transfer<false>(i->Bytes(where, k), e, rowBytes, map.data, map.rowPitch, map.slicePitch);
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
    std::size_t const errorsBefore = s.errors.size();
    if (!from->Contains(sourceWhere))
        s.Error(Op::CopyImage, src + ": " + Outside(*from, sourceWhere));
    if (!to->Contains(destinationWhere))
        s.Error(Op::CopyImage, dst + ": " + Outside(*to, destinationWhere));
    if ((from->description.flags & ImageUsage::CopySource) == 0)
        s.Error(Op::CopyImage, src + ": lacks CopySource 0x20 (flags " + Hex(from->description.flags) + ")");
    if ((to->description.flags & ImageUsage::CopyDestination) == 0)
        s.Error(Op::CopyImage, dst + ": lacks CopyDestination 0x40 (flags " + Hex(to->description.flags) + ")");
    if (from->pixelSize != to->pixelSize)
        s.Error(Op::CopyImage, src + " has " + std::to_string(from->pixelSize) + "-byte pixels, " + dst + " has " +
                                   std::to_string(to->pixelSize) + "-byte pixels");
    if (from->samples != to->samples)
        s.Error(Op::CopyImage, src + " has " + std::to_string(from->samples) + " samples, " + dst + " has " +
                                   std::to_string(to->samples));
    if (from == to && sourceWhere == destinationWhere)
        s.Error(Op::CopyImage, src + ": copies " + SubText(sourceWhere) + " onto itself");
    if (s.errors.size() != errorsBefore)
        return;

    Extent const se = from->LevelExtent(sourceWhere.mipLevel);
    Extent const de = to->LevelExtent(destinationWhere.mipLevel);
    if (se.width == 0 || de.width == 0)
        return;
    std::size_t const pixel = from->pixelSize;
    for (std::uint32_t k = 0; k < from->samples; ++k) {
        auto const& in = from->Bytes(sourceWhere, k);
        auto& out = to->Bytes(destinationWhere, k);
        // Nearest sampling: destination texel x reads source texel x * srcWidth / dstWidth.
        for (std::uint32_t z = 0; z < de.slices; ++z) {
            std::uint64_t const sz = std::uint64_t{z} * se.slices / de.slices;
            for (std::uint32_t y = 0; y < de.rows; ++y) {
                std::uint64_t const sy = std::uint64_t{y} * se.rows / de.rows;
                std::byte const* inRow = in.data() + ((sz * se.rows + sy) * se.width) * pixel;
                std::byte* outRow = out.data() + ((std::size_t{z} * de.rows + y) * de.width) * pixel;
                for (std::uint32_t x = 0; x < de.width; ++x) {
                    std::uint64_t const sx = std::uint64_t{x} * se.width / de.width;
                    std::memcpy(outRow + x * pixel, inRow + sx * pixel, pixel);
                }
            }
        }
    }
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
    std::size_t const errorsBefore = s.errors.size();
    bool const inside = from->Contains(sourceWhere) && to->Contains(destinationWhere);
    if (!from->Contains(sourceWhere))
        s.Error(Op::ResolveImage, src + ": " + Outside(*from, sourceWhere));
    if (!to->Contains(destinationWhere))
        s.Error(Op::ResolveImage, dst + ": " + Outside(*to, destinationWhere));
    if (from->samples < 2)
        s.Error(Op::ResolveImage, src + ": is not multisampled");
    if ((from->description.flags & ImageUsage::Resolvable) == 0)
        s.Error(Op::ResolveImage, src + ": lacks Resolvable 0x80 (flags " + Hex(from->description.flags) + ")");
    if (to->samples != 1)
        s.Error(Op::ResolveImage, dst + ": has " + std::to_string(to->samples) + " samples, not 1");
    if ((to->description.flags & ImageUsage::ResolveDestination) == 0)
        s.Error(Op::ResolveImage,
                dst + ": lacks ResolveDestination 0x100 (flags " + Hex(to->description.flags) + ")");
    if (from->description.format != to->description.format)
        s.Error(Op::ResolveImage, src + " is " + Rendering::ToString(from->description.format) + ", " + dst +
                                      " is " + Rendering::ToString(to->description.format));
    if (inside && !(from->LevelExtent(sourceWhere.mipLevel) == to->LevelExtent(destinationWhere.mipLevel)))
        s.Error(Op::ResolveImage, src + " " + SubText(sourceWhere) + " and " + dst + " " +
                                      SubText(destinationWhere) + " differ in extent");
    if (s.errors.size() != errorsBefore)
        return;
    // Each texel takes the value of sample 0.
    to->Bytes(destinationWhere, 0) = from->Bytes(sourceWhere, 0);
}

} // namespace Zorvan::Rendering::Testing
