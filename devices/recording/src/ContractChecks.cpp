#include "ContractChecks.h"

#include <Rendering/Format.h>

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <sstream>

namespace Zorvan::Rendering::Testing {

namespace {

constexpr char const* RuleNames[] = {
    "invalid-handle",     "unknown-handle",       "stale-handle",        "double-destroy",
    "view-of-destroyed-image",
    "image-description",  "view-range",           "query-type",
    "map-flags",          "map-mode",             "map-multisampled",    "sub-image-outside",
    "map-twice",          "unmap-without-map",    "destroy-while-mapped",
    "copy-flags",         "copy-sample-counts",   "copy-pixel-sizes",    "copy-onto-itself",    "scaled-copy",
    "resolve-flags",      "resolve-sample-counts", "resolve-formats",    "resolve-extents",
    "query-operation",    "query-begin-twice",    "query-end-without-begin", "destroy-while-begun",
    "index-buffer",
    "device-reused-handle", "device-description", "device-map-pitch",    "device-packed-handle",
};
static_assert(std::size(RuleNames) == static_cast<std::size_t>(Rule::DevicePackedHandle) + 1,
              "one name per rule, in declaration order");

char const* TypeName(QueryType type)
{
    return type == QueryType::TimestampFrequency ? "TimestampFrequency" : "Timestamp";
}

} // namespace

char const* ToString(Rule rule)
{
    auto const i = static_cast<std::size_t>(rule);
    return i < std::size(RuleNames) ? RuleNames[i] : "unknown-rule";
}

std::string Violation::Text() const
{
    return std::string(ToString(op)) + ": " + message + " [" + ToString(rule) + "]";
}

namespace Checks {

std::uint32_t FullChainLength(Size const& size) noexcept
{
    std::uint32_t const m = std::max({size.width, size.height, size.depth});
    return m == 0 ? 1u : static_cast<std::uint32_t>(std::bit_width(m));
}

Size LevelSize(Size const& size, std::uint32_t level) noexcept
{
    unsigned const shift = level % 32;
    auto half = [shift](std::uint32_t v) { return std::max(v >> shift, 1u); };
    if (size.width == 0)
        return {};
    if (size.height == 0)
        return {half(size.width), 0, 0};
    if (size.depth == 0)
        return {half(size.width), half(size.height), 0};
    return {half(size.width), half(size.height), half(size.depth)};
}

ImageFacts FactsOf(ImageDesc const& description) noexcept
{
    ImageFacts facts;
    facts.description = description;
    facts.samples = std::max(description.sampleCount, 1u);
    facts.slices = (description.flags & ImageUsage::CubeMap) != 0 ? 6 : 1;
    if (facts.samples > 1)
        facts.levels = 1;
    else
        facts.levels = description.mipLevels == 0 ? FullChainLength(description.size) : description.mipLevels;
    return facts;
}

std::string SubImageText(SubImage const& where)
{
    return "mip " + std::to_string(where.mipLevel) + " slice " + std::to_string(where.arraySlice);
}

std::string Hex(std::uint32_t value)
{
    std::ostringstream out;
    out << "0x" << std::hex << value;
    return out.str();
}

std::string DescriptionText(ImageDesc const& d)
{
    auto const format = static_cast<std::uint32_t>(d.format);
    std::ostringstream out;
    out << d.size.width << 'x' << d.size.height << 'x' << d.size.depth << ' '
        << (format < FormatCount ? Rendering::ToString(d.format) : ("format " + std::to_string(format))) << ", "
        << d.sampleCount << (d.sampleCount == 1 ? " sample, " : " samples, ") << d.mipLevels
        << (d.mipLevels == 1 ? " level" : " levels") << ", flags " << Hex(d.flags);
    return out.str();
}

std::string HandleMessage(Rule rule, std::string const& who)
{
    switch (rule) {
    case Rule::InvalidHandle: return who;
    case Rule::UnknownHandle: return who + ": unknown handle, never created";
    case Rule::StaleHandle: return who + ": stale handle, already destroyed";
    case Rule::DoubleDestroy: return who + ": already destroyed (double destroy)";
    case Rule::ViewOfDestroyedImage: return who + ": its image was destroyed";
    default: return who + ": " + ToString(rule);
    }
}

namespace {

void Add(Findings& found, Rule rule, std::string const& object, std::string message)
{
    found.push_back({rule, object, std::move(message)});
}

std::string Outside(ImageFacts const& facts, SubImage const& where)
{
    return SubImageText(where) + " lies outside the image's " + std::to_string(facts.levels) + " mips and " +
           std::to_string(facts.slices) + " slices";
}

bool Contains(ImageFacts const& facts, SubImage const& where) noexcept
{
    return where.mipLevel < facts.levels && where.arraySlice < facts.slices;
}

} // namespace

void CreateImage(ImageDesc const& d, Findings& found)
{
    std::string const what = "an image of " + DescriptionText(d);
    auto refuse = [&](std::string const& why) { Add(found, Rule::ImageDescription, "the description", what + ": " + why); };
    auto const format = static_cast<std::uint32_t>(d.format);
    if (d.format == Format::None || format >= FormatCount)
        refuse("no pixel format");
    Size const s = d.size;
    bool const extentOk = s.width != 0 && !(s.height == 0 && s.depth != 0);
    if (!extentOk)
        refuse(s.width == 0 && s.height == 0 && s.depth == 0 ? "an empty extent" : "not a 1D, 2D or 3D extent");
    if (d.sampleCount == 0)
        refuse("sample count 0");
    bool const cube = (d.flags & ImageUsage::CubeMap) != 0;
    if (cube && (s.width != s.height || s.depth != 0 || d.sampleCount > 1))
        refuse("a cube map has square, single-sampled faces and no depth");
    if (d.sampleCount > 1) {
        if (s.height == 0 || s.depth != 0)
            refuse("only 2D images can be multisampled");
        if (d.mipLevels > 1)
            refuse("a multisampled image has one mip level");
    } else if (extentOk && d.mipLevels > FullChainLength(s)) {
        refuse(std::to_string(d.mipLevels) + " mip levels, the chain has " + std::to_string(FullChainLength(s)));
    }
}

void CreateShaderResourceView(std::string const& image, ImageFacts const& facts,
                              ShaderResourceViewDescription const& d, Findings& found)
{
    auto within = [](std::uint32_t first, std::uint32_t count, std::uint32_t total) {
        return first < total && (count == 0 || std::uint64_t{first} + count <= total);
    };
    if (!within(d.firstMipLevel, d.mipLevelCount, facts.levels) ||
        !within(d.firstArraySlice, d.arraySliceCount, facts.slices))
        Add(found, Rule::ViewRange, image,
            image + ": view of mips " + std::to_string(d.firstMipLevel) + "+" + std::to_string(d.mipLevelCount) +
                ", slices " + std::to_string(d.firstArraySlice) + "+" + std::to_string(d.arraySliceCount) +
                " lies outside the image's " + std::to_string(facts.levels) + " mips and " +
                std::to_string(facts.slices) + " slices");
}

void CreateRenderTargetView(std::string const& image, ImageFacts const& facts, RenderTargetViewDescription const& d,
                            Findings& found)
{
    if (d.mipLevel >= facts.levels ||
        std::uint64_t{d.firstArraySlice} + std::max(d.arraySliceCount, 1u) > facts.slices)
        Add(found, Rule::ViewRange, image,
            image + ": view of mip " + std::to_string(d.mipLevel) + ", slices " + std::to_string(d.firstArraySlice) +
                "+" + std::to_string(d.arraySliceCount) + " lies outside the image's " +
                std::to_string(facts.levels) + " mips and " + std::to_string(facts.slices) + " slices");
}

void CreateQuery(QueryType type, Findings& found)
{
    if (type != QueryType::Timestamp && type != QueryType::TimestampFrequency)
        Add(found, Rule::QueryType, "the query type",
            "unknown query type " + std::to_string(static_cast<std::uint32_t>(type)));
}

void MapImage(std::string const& image, ImageFacts const& facts, SubImage const& where, std::uint32_t mode,
              bool alreadyMapped, Findings& found)
{
    if (!Contains(facts, where))
        return Add(found, Rule::SubImageOutside, image, image + ": " + Outside(facts, where));
    if (alreadyMapped)
        return Add(found, Rule::MapTwice, image, image + ": " + SubImageText(where) + " is already mapped");
    if (mode != MapMode::Read && mode != MapMode::Write)
        return Add(found, Rule::MapMode, image, image + ": unknown map mode " + std::to_string(mode));
    std::uint32_t const flags = facts.description.flags;
    if (mode == MapMode::Read && (flags & ImageUsage::HostRead) == 0)
        Add(found, Rule::MapFlags, image,
            image + ": mapped for reading without HostRead 0x8 (flags " + Hex(flags) + ")");
    if (mode == MapMode::Write && (flags & ImageUsage::HostWrite) == 0)
        Add(found, Rule::MapFlags, image,
            image + ": mapped for writing without HostWrite 0x10 (flags " + Hex(flags) + ")");
    if (facts.samples > 1)
        Add(found, Rule::MapMultisampled, image,
            image + ": has " + std::to_string(facts.samples) + " samples; resolve it, then map the resolved image");
}

void UnmapImage(std::string const& image, SubImage const& where, bool mapped, Findings& found)
{
    if (!mapped)
        Add(found, Rule::UnmapWithoutMap, image, image + ": " + SubImageText(where) + " is not mapped");
}

void MapBuffer(std::string const& buffer, BufferDescription const& description, std::uint32_t mode,
               bool alreadyMapped, Findings& found)
{
    if (alreadyMapped)
        return Add(found, Rule::MapTwice, buffer, buffer + ": already mapped");
    if (mode != MapMode::Read && mode != MapMode::Write)
        return Add(found, Rule::MapMode, buffer, buffer + ": unknown map mode " + std::to_string(mode));
    if (mode == MapMode::Write && (description.flags & BufferUsage::Dynamic) == 0)
        Add(found, Rule::MapFlags, buffer,
            buffer + ": mapped for writing without the dynamic flag 0x20 (flags " + Hex(description.flags) + ")");
}

void UnmapBuffer(std::string const& buffer, bool mapped, Findings& found)
{
    if (!mapped)
        Add(found, Rule::UnmapWithoutMap, buffer, buffer + ": not mapped");
}

void DestroyImage(std::string const& image, std::vector<SubImage> const& openMaps, Findings& found)
{
    for (SubImage const& where : openMaps)
        Add(found, Rule::DestroyWhileMapped, image,
            image + ": destroyed while " + SubImageText(where) + " is mapped");
}

void DestroyBuffer(std::string const& buffer, bool mapped, Findings& found)
{
    if (mapped)
        Add(found, Rule::DestroyWhileMapped, buffer, buffer + ": destroyed while mapped");
}

void CopyImage(Part const& source, Part const& destination, bool sameImage, Findings& found)
{
    if (!Contains(source.facts, source.where))
        Add(found, Rule::SubImageOutside, source.name, source.name + ": " + Outside(source.facts, source.where));
    if (!Contains(destination.facts, destination.where))
        Add(found, Rule::SubImageOutside, destination.name,
            destination.name + ": " + Outside(destination.facts, destination.where));
    std::uint32_t const from = source.facts.description.flags;
    std::uint32_t const to = destination.facts.description.flags;
    if ((from & ImageUsage::CopySource) == 0)
        Add(found, Rule::CopyFlags, source.name, source.name + ": lacks CopySource 0x20 (flags " + Hex(from) + ")");
    if ((to & ImageUsage::CopyDestination) == 0)
        Add(found, Rule::CopyFlags, destination.name,
            destination.name + ": lacks CopyDestination 0x40 (flags " + Hex(to) + ")");
    std::uint32_t const sourcePixel = GetSize(source.facts.description.format);
    std::uint32_t const destinationPixel = GetSize(destination.facts.description.format);
    if (sourcePixel != destinationPixel)
        Add(found, Rule::CopyPixelSizes, source.name,
            source.name + " has " + std::to_string(sourcePixel) + "-byte pixels, " + destination.name + " has " +
                std::to_string(destinationPixel) + "-byte pixels");
    if (source.facts.samples != destination.facts.samples)
        Add(found, Rule::CopySampleCounts, source.name,
            source.name + " has " + std::to_string(source.facts.samples) + " samples, " + destination.name +
                " has " + std::to_string(destination.facts.samples) + "; a resolve goes from many to one");
    if (sameImage && source.where == destination.where)
        Add(found, Rule::CopyOntoItself, source.name,
            source.name + ": copies " + SubImageText(source.where) + " onto itself");
    bool const inside = Contains(source.facts, source.where) && Contains(destination.facts, destination.where);
    bool const scales = LevelSize(source.facts.description.size, source.where.mipLevel) !=
                        LevelSize(destination.facts.description.size, destination.where.mipLevel);
    if (inside && scales &&
        (source.facts.description.format != destination.facts.description.format || source.facts.samples > 1 ||
         destination.facts.samples > 1))
        Add(found, Rule::ScaledCopy, source.name,
            source.name + " " + SubImageText(source.where) + " and " + destination.name + " " +
                SubImageText(destination.where) + " differ in extent: a copy that scales works on single-sampled "
                "images of one format");
}

void ResolveImage(Part const& source, Part const& destination, Findings& found)
{
    bool const inside = Contains(source.facts, source.where) && Contains(destination.facts, destination.where);
    if (!Contains(source.facts, source.where))
        Add(found, Rule::SubImageOutside, source.name, source.name + ": " + Outside(source.facts, source.where));
    if (!Contains(destination.facts, destination.where))
        Add(found, Rule::SubImageOutside, destination.name,
            destination.name + ": " + Outside(destination.facts, destination.where));
    if (source.facts.samples < 2)
        Add(found, Rule::ResolveSampleCounts, source.name, source.name + ": is not multisampled");
    if ((source.facts.description.flags & ImageUsage::Resolvable) == 0)
        Add(found, Rule::ResolveFlags, source.name,
            source.name + ": lacks Resolvable 0x80 (flags " + Hex(source.facts.description.flags) + ")");
    if (destination.facts.samples != 1)
        Add(found, Rule::ResolveSampleCounts, destination.name,
            destination.name + ": has " + std::to_string(destination.facts.samples) + " samples, not 1");
    if ((destination.facts.description.flags & ImageUsage::ResolveDestination) == 0)
        Add(found, Rule::ResolveFlags, destination.name,
            destination.name + ": lacks ResolveDestination 0x100 (flags " +
                Hex(destination.facts.description.flags) + ")");
    Format const a = source.facts.description.format;
    Format const b = destination.facts.description.format;
    if (a != b) {
        auto const name = [](Format f) {
            return static_cast<std::uint32_t>(f) < FormatCount ? std::string(Rendering::ToString(f))
                                                               : "format " + std::to_string(static_cast<std::uint32_t>(f));
        };
        Add(found, Rule::ResolveFormats, source.name,
            source.name + " is " + name(a) + ", " + destination.name + " is " + name(b));
    }
    if (inside && LevelSize(source.facts.description.size, source.where.mipLevel) !=
                      LevelSize(destination.facts.description.size, destination.where.mipLevel))
        Add(found, Rule::ResolveExtents, source.name,
            source.name + " " + SubImageText(source.where) + " and " + destination.name + " " +
                SubImageText(destination.where) + " differ in extent");
}

void BeginQuery(std::string const& query, QueryType type, bool begun, Findings& found)
{
    if (type != QueryType::TimestampFrequency)
        Add(found, Rule::QueryOperation, query, query + ": a " + TypeName(type) + " query cannot be begun");
    else if (begun)
        Add(found, Rule::QueryBeginTwice, query, query + ": begun twice without EndQuery");
}

void EndQuery(std::string const& query, QueryType type, bool begun, Findings& found)
{
    if (type != QueryType::TimestampFrequency)
        Add(found, Rule::QueryOperation, query, query + ": a " + TypeName(type) + " query cannot be ended");
    else if (!begun)
        Add(found, Rule::QueryEndWithoutBegin, query, query + ": ended without BeginQuery");
}

void RecordQuery(std::string const& query, QueryType type, Findings& found)
{
    if (type != QueryType::Timestamp)
        Add(found, Rule::QueryOperation, query, query + ": a " + TypeName(type) + " query cannot be recorded");
}

void DestroyQuery(std::string const& query, bool begun, Findings& found)
{
    if (begun)
        Add(found, Rule::DestroyWhileBegun, query, query + ": destroyed while begun");
}

void DrawIndexed(std::string const& indices, BufferDescription const& description, std::uint32_t indexCount,
                 std::uint32_t firstIndex, Findings& found)
{
    if ((description.flags & BufferUsage::Index) == 0)
        Add(found, Rule::IndexBuffer, indices, indices + ": not an index buffer (flags " + Hex(description.flags) + ")");
    else if ((std::uint64_t{firstIndex} + indexCount) * sizeof(std::uint32_t) > description.size)
        Add(found, Rule::IndexBuffer, indices,
            indices + ": indices " + std::to_string(firstIndex) + " + " + std::to_string(indexCount) +
                " reach past its " + std::to_string(description.size) + " bytes");
}

void DescriptionReadBack(std::string const& image, ImageDesc const& created, ImageDesc const& readBack,
                         Findings& found)
{
    auto differ = [&](std::string const& what) {
        Add(found, Rule::DeviceDescription, image,
            image + ": created as " + DescriptionText(created) + ", read back as " + DescriptionText(readBack) +
                ": " + what);
    };
    if (readBack.size != created.size || readBack.format != created.format)
        differ("the extent or format changed");
    if ((created.sampleCount > 1) != (readBack.sampleCount > 1))
        differ("a multisampled image must stay multisampled and a single-sampled one single-sampled");
    if (created.sampleCount <= 1 && created.mipLevels != 0 && readBack.mipLevels != created.mipLevels)
        differ("the level count asked for is the level count made");
}

void MapPitches(std::string const& image, ImageFacts const& facts, SubImage const& where, MappedImage const& mapped,
                Findings& found)
{
    Size const level = LevelSize(facts.description.size, where.mipLevel);
    std::int64_t const rowBytes = std::int64_t{GetSize(facts.description.format)} * level.width;
    std::int64_t const rowPitch = std::llabs(mapped.rowPitch);
    std::int64_t const rows = std::max(level.height, 1u);
    bool const rowsFit = level.height <= 1 || rowPitch >= rowBytes;
    bool const slicesFit = level.depth <= 1 || std::llabs(mapped.slicePitch) >= rows * rowPitch;
    if (!rowsFit || !slicesFit)
        Add(found, Rule::DeviceMapPitch, image,
            image + ": " + SubImageText(where) + " mapped with row pitch " + std::to_string(mapped.rowPitch) +
                " and slice pitch " + std::to_string(mapped.slicePitch) + " for rows of " + std::to_string(rowBytes) +
                " bytes, " + std::to_string(rows) + " rows a slice");
}

} // namespace Checks

} // namespace Zorvan::Rendering::Testing
