#include "HostDevice.h"

#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <bit>
#include <cstring>

using namespace Zorvan::Rendering;

namespace {

std::uint32_t Low(std::uint64_t handle) { return static_cast<std::uint32_t>(handle); }

std::uint32_t FullChain(Size const& size)
{
    std::uint32_t const largest = std::max({size.width, size.height, size.depth});
    return largest == 0 ? 1u : static_cast<std::uint32_t>(std::bit_width(largest));
}

// Bytes of one sub-image, tightly packed: rows and slices of absent
// dimensions count as one.
struct Shape {
    Size size;
    std::size_t pixel = 0;
    std::size_t rows = 1;
    std::size_t slices = 1;

    std::size_t RowBytes() const { return pixel * size.width; }
    std::size_t Bytes() const { return RowBytes() * rows * slices; }
};

Shape ShapeOf(ImageDesc const& description, std::uint32_t level)
{
    Shape shape;
    shape.size = CalculateMipLevelSize(description.size, level);
    shape.pixel = GetSize(description.format);
    shape.rows = std::max(shape.size.height, 1u);
    shape.slices = std::max(shape.size.depth, 1u);
    return shape;
}

} // namespace

std::size_t HostDevice::LiveCount() const noexcept
{
    return images_.size() + buffers_.size() + targets_.size() + others_.size();
}

void HostDevice::Forget(std::uint64_t handle) noexcept
{
    if (others_.erase(Low(handle)) == 0 && targets_.erase(Low(handle)) == 0)
        Refuse("destroy of an unknown handle");
}

BufferDescription HostDevice::GetBufferDescription(BufferId buffer)
{
    auto const found = buffers_.find(Low(buffer.Value()));
    return found != buffers_.end() ? found->second.first : BufferDescription{};
}

BufferId HostDevice::CreateBuffer(BufferDescription const& description, void const* initialData)
{
    if (description.size == 0 || description.size > GetMaximumBufferSize())
        return Refuse("CreateBuffer: bad size"), BufferId{};
    std::vector<unsigned char> bytes(description.size);
    if (initialData != nullptr)
        std::memcpy(bytes.data(), initialData, bytes.size());
    std::uint32_t const handle = NewHandle();
    buffers_.emplace(handle, std::make_pair(description, std::move(bytes)));
    return BufferId{handle};
}

void HostDevice::DestroyBuffer(BufferId buffer) noexcept
{
    if (buffers_.erase(Low(buffer.Value())) == 0)
        Refuse("DestroyBuffer: unknown buffer");
}

void* HostDevice::MapBuffer(BufferId buffer, std::uint32_t mode)
{
    auto const found = buffers_.find(Low(buffer.Value()));
    if (found == buffers_.end())
        return Refuse("MapBuffer: unknown buffer"), nullptr;
    if (mode == MapMode::Write && (found->second.first.flags & BufferUsage::Dynamic) == 0)
        return Refuse("MapBuffer: write map of a buffer that is not dynamic"), nullptr;
    return found->second.second.data();
}

RenderTargetViewInfo HostDevice::GetRenderTargetViewDescription(RtvId view)
{
    auto const found = targets_.find(Low(view.Value()));
    return found != targets_.end() ? found->second : RenderTargetViewInfo{};
}

ImageDesc HostDevice::GetImageDescription(ImageId image)
{
    Image const* found = FindImage(image, "GetImageDescription");
    return found != nullptr ? found->description : ImageDesc{};
}

ImageId HostDevice::CreateImage(ImageDesc const& d)
{
    Size const s = d.size;
    bool const cube = (d.flags & ImageUsage::CubeMap) != 0;
    bool const shaped = s.width != 0 && !(s.height == 0 && s.depth != 0);
    // One sample only: this device has no multisampling to offer.
    if (GetSize(d.format) == 0 || !shaped || d.sampleCount != 1 || d.mipLevels > FullChain(s) ||
        (cube && (s.width != s.height || s.depth != 0)))
        return Refuse("CreateImage: a description this device does not make"), ImageId{};

    Image image;
    image.description = d;
    image.description.mipLevels = d.mipLevels == 0 ? FullChain(s) : d.mipLevels;
    image.levels = image.description.mipLevels;
    image.faces = cube ? 6 : 1;
    for (std::uint32_t level = 0; level < image.levels; ++level)
        for (std::uint32_t face = 0; face < image.faces; ++face)
            image.subImages.emplace_back(ShapeOf(d, level).Bytes(), 0);
    std::uint32_t const handle = NewHandle();
    images_.emplace(handle, std::move(image));
    return ImageId{handle};
}

void HostDevice::DestroyImage(ImageId image) noexcept
{
    if (images_.erase(Low(image.Value())) == 0)
        Refuse("DestroyImage: unknown image");
}

HostDevice::Image* HostDevice::FindImage(ImageId image, char const* operation)
{
    auto const found = images_.find(Low(image.Value()));
    if (found == images_.end()) {
        Refuse(std::string(operation) + ": unknown image");
        return nullptr;
    }
    return &found->second;
}

std::vector<unsigned char>* HostDevice::SubImageBytes(Image& image, SubImage const& where)
{
    if (where.mipLevel >= image.levels || where.arraySlice >= image.faces)
        return nullptr;
    return &image.subImages[std::size_t{where.mipLevel} * image.faces + where.arraySlice];
}

SrvId HostDevice::CreateShaderResourceView(ImageId image, ShaderResourceViewDescription const&)
{
    if (FindImage(image, "CreateShaderResourceView") == nullptr)
        return SrvId{};
    std::uint32_t const handle = NewHandle();
    others_.emplace(handle, 0);
    return SrvId{handle};
}

RtvId HostDevice::CreateRenderTargetView(ImageId image, RenderTargetViewDescription const& description)
{
    Image* found = FindImage(image, "CreateRenderTargetView");
    if (found == nullptr || description.mipLevel >= found->levels)
        return RtvId{};
    std::uint32_t const handle = NewHandle();
    targets_.emplace(handle, RenderTargetViewInfo{found->description.format, 1,
                                                  CalculateMipLevelSize(found->description.size, description.mipLevel),
                                                  image, description});
    return RtvId{handle};
}

void HostDevice::CopyImage(ImageId source, SubImage const& sourceWhere, ImageId destination,
                           SubImage const& destinationWhere)
{
    Image* from = FindImage(source, "CopyImage");
    Image* to = FindImage(destination, "CopyImage");
    if (from == nullptr || to == nullptr)
        return;
    std::vector<unsigned char>* in = SubImageBytes(*from, sourceWhere);
    std::vector<unsigned char>* out = SubImageBytes(*to, destinationWhere);
    if (in == nullptr || out == nullptr || in == out)
        return Refuse("CopyImage: no such sub-image, or a sub-image onto itself");
    if ((from->description.flags & ImageUsage::CopySource) == 0 ||
        (to->description.flags & ImageUsage::CopyDestination) == 0)
        return Refuse("CopyImage: needs CopySource and CopyDestination");
    Shape const a = ShapeOf(from->description, sourceWhere.mipLevel);
    Shape const b = ShapeOf(to->description, destinationWhere.mipLevel);
    if (a.pixel != b.pixel)
        return Refuse("CopyImage: pixels of different sizes");
    if (a.size == b.size) {
        *out = *in;
        return;
    }
    if (from->description.format != to->description.format)
        return Refuse("CopyImage: a copy that scales keeps one format");
    // Nearest texel: destination x reads source x * sourceWidth / destinationWidth.
    for (std::size_t z = 0; z < b.slices; ++z)
        for (std::size_t y = 0; y < b.rows; ++y)
            for (std::size_t x = 0; x < b.size.width; ++x) {
                std::size_t const sx = x * a.size.width / b.size.width;
                std::size_t const sy = y * a.rows / b.rows;
                std::size_t const sz = z * a.slices / b.slices;
                std::memcpy(out->data() + ((z * b.rows + y) * b.size.width + x) * b.pixel,
                            in->data() + ((sz * a.rows + sy) * a.size.width + sx) * a.pixel, a.pixel);
            }
}

void HostDevice::ResolveImage(ImageId, SubImage const&, ImageId, SubImage const&)
{
    Refuse("ResolveImage: this device makes no multisampled images");
}

MappedImage HostDevice::MapImage(ImageId image, SubImage const& where, std::uint32_t mode)
{
    Image* found = FindImage(image, "MapImage");
    if (found == nullptr)
        return {};
    std::vector<unsigned char>* bytes = SubImageBytes(*found, where);
    std::uint32_t const needed = mode == MapMode::Read ? ImageUsage::HostRead : ImageUsage::HostWrite;
    if (bytes == nullptr || (mode != MapMode::Read && mode != MapMode::Write) ||
        (found->description.flags & needed) == 0)
        return Refuse("MapImage: no such sub-image, or not mappable so"), MappedImage{};
    Shape const shape = ShapeOf(found->description, where.mipLevel);
    return MappedImage{bytes->data(), static_cast<std::int32_t>(shape.RowBytes()),
                       static_cast<std::int32_t>(shape.RowBytes() * shape.rows)};
}

SamplerId HostDevice::CreateSampler(SamplerDescription const&)
{
    std::uint32_t const handle = NewHandle();
    others_.emplace(handle, 0);
    return SamplerId{handle};
}

ShaderId HostDevice::CreateShader(ShaderDescription const&)
{
    Refuse("CreateShader: this device runs no shaders");
    return ShaderId{};
}

PsoId HostDevice::CreatePipelineState(PipelineStateDescription const&)
{
    std::uint32_t const handle = NewHandle();
    others_.emplace(handle, 0);
    return PsoId{handle};
}

QueryId HostDevice::CreateQuery(QueryType type)
{
    if (type != QueryType::Timestamp && type != QueryType::TimestampFrequency)
        return Refuse("CreateQuery: unknown type"), QueryId{};
    std::uint32_t const handle = NewHandle();
    others_.emplace(handle, 0);
    return QueryId{handle};
}
