#include "Ktx2.h"

#include "Errors.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <numeric>

namespace Zorvan::Tool {
namespace {

constexpr std::uint8_t Identifier[12] = {0xAB, 0x4B, 0x54, 0x58, 0x20, 0x32, 0x30, 0xBB, 0x0D, 0x0A, 0x1A, 0x0A};
constexpr std::size_t HeaderBytes = 12 + 9 * 4; // identifier, then nine UInt32 fields
constexpr std::size_t IndexBytes = 4 * 4 + 2 * 8;
constexpr std::size_t LevelIndexEntryBytes = 3 * 8;

// Values of the data format descriptor that KTX2 readers expect: colour model and primaries.
constexpr std::uint8_t ModelRgbsda = 1;
constexpr std::uint8_t PrimariesBt709 = 1;
constexpr std::uint8_t TransferLinear = 1;
constexpr std::uint8_t TransferSrgb = 2;
constexpr std::uint8_t ChannelAlpha = 15; // red, green and blue are 0, 1, 2
constexpr std::uint8_t QualifierLinear = 0x10;
constexpr std::uint8_t QualifierSigned = 0x40;
constexpr std::uint8_t QualifierFloat = 0x80;
constexpr std::uint32_t FloatMinusOne = 0xBF800000u; // sampleLower / sampleUpper of float samples: -1.0f, 1.0f
constexpr std::uint32_t FloatOne = 0x3F800000u;

class Bytes {
public:
    void U8(std::uint8_t value) { data_.push_back(value); }
    void U16(std::uint16_t value) { Little(value, 2); }
    void U32(std::uint32_t value) { Little(value, 4); }
    void U64(std::uint64_t value) { Little(value, 8); }
    void Raw(void const* data, std::size_t size)
    {
        auto const* bytes = static_cast<std::uint8_t const*>(data);
        data_.insert(data_.end(), bytes, bytes + size);
    }
    void PadTo(std::size_t alignment)
    {
        while (data_.size() % alignment != 0)
            data_.push_back(0);
    }
    std::size_t Size() const { return data_.size(); }
    std::vector<std::uint8_t> const& Data() const { return data_; }

private:
    void Little(std::uint64_t value, int size)
    {
        for (int i = 0; i < size; ++i)
            data_.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
    }
    std::vector<std::uint8_t> data_;
};

Bytes DataFormatDescriptor(Ktx2Format format)
{
    std::uint32_t const texel = Ktx2TexelSize(format);
    std::uint32_t const channelBits = texel * 8 / 4;
    bool const floats = format == Ktx2Format::R16G16B16A16Sfloat || format == Ktx2Format::R32G32B32A32Sfloat;
    bool const srgb = format == Ktx2Format::R8G8B8A8Srgb;
    constexpr std::uint16_t Samples = 4;
    constexpr std::uint16_t BlockSize = 24 + 16 * Samples;

    Bytes dfd;
    dfd.U32(4 + BlockSize); // dfdTotalSize
    dfd.U32(0);             // vendorId 0 (Khronos), descriptorType 0 (basic)
    dfd.U16(2);             // versionNumber
    dfd.U16(BlockSize);
    dfd.U8(ModelRgbsda);
    dfd.U8(PrimariesBt709);
    dfd.U8(srgb ? TransferSrgb : TransferLinear);
    dfd.U8(0);  // flags: straight alpha
    dfd.U32(0); // texelBlockDimension0..3: 1 x 1 x 1 x 1, stored minus one
    dfd.U8(static_cast<std::uint8_t>(texel)); // bytesPlane0
    for (int plane = 1; plane < 8; ++plane)
        dfd.U8(0);
    std::uint8_t const channels[Samples] = {0, 1, 2, ChannelAlpha};
    for (std::uint16_t s = 0; s < Samples; ++s) {
        std::uint8_t type = channels[s];
        if (floats)
            type |= QualifierFloat | QualifierSigned;
        if (srgb && channels[s] == ChannelAlpha)
            type |= QualifierLinear; // alpha is never sRGB-coded
        dfd.U16(static_cast<std::uint16_t>(s * channelBits)); // bitOffset
        dfd.U8(static_cast<std::uint8_t>(channelBits - 1));   // bitLength, stored minus one
        dfd.U8(type);
        dfd.U32(0); // samplePosition0..3
        dfd.U32(floats ? FloatMinusOne : 0u);
        dfd.U32(floats ? FloatOne : (1u << channelBits) - 1u);
    }
    return dfd;
}

Bytes KeyValueData(std::string const& writer)
{
    // Sorted by key; each entry padded to four bytes.
    std::pair<std::string, std::string> const entries[] = {{"KTXorientation", "rd"}, {"KTXwriter", writer}};
    Bytes kvd;
    for (auto const& [key, value] : entries) {
        kvd.U32(static_cast<std::uint32_t>(key.size() + 1 + value.size() + 1));
        kvd.Raw(key.c_str(), key.size() + 1);
        kvd.Raw(value.c_str(), value.size() + 1);
        kvd.PadTo(4);
    }
    return kvd;
}

std::uint64_t AlignUp(std::uint64_t value, std::uint64_t alignment)
{
    return (value + alignment - 1) / alignment * alignment;
}

} // namespace

std::uint32_t Ktx2TexelSize(Ktx2Format format)
{
    switch (format) {
    case Ktx2Format::R8G8B8A8Unorm:
    case Ktx2Format::R8G8B8A8Srgb:
        return 4;
    case Ktx2Format::R16G16B16A16Sfloat:
        return 8;
    case Ktx2Format::R32G32B32A32Sfloat:
        return 16;
    }
    return 0;
}

void WriteKtx2(std::filesystem::path const& path, Ktx2Format format, std::vector<Ktx2Level> const& levels,
               std::string const& writer)
{
    std::uint32_t const texel = Ktx2TexelSize(format);
    std::uint64_t const alignment = std::lcm<std::uint64_t>(texel, 4);
    std::uint32_t const typeSize = texel / 4;
    Bytes const dfd = DataFormatDescriptor(format);
    Bytes const kvd = KeyValueData(writer);

    std::size_t const dfdOffset = HeaderBytes + IndexBytes + LevelIndexEntryBytes * levels.size();
    std::size_t const kvdOffset = dfdOffset + dfd.Size();
    // Levels go smallest first; each starts on the alignment.
    std::vector<std::uint64_t> offsets(levels.size());
    std::uint64_t end = kvdOffset + kvd.Size();
    for (std::size_t i = levels.size(); i-- > 0;) {
        offsets[i] = AlignUp(end, alignment);
        end = offsets[i] + levels[i].bytes.size();
    }

    Bytes head;
    head.Raw(Identifier, sizeof Identifier);
    head.U32(static_cast<std::uint32_t>(format));
    head.U32(typeSize);
    head.U32(levels.empty() ? 0 : levels[0].width);
    head.U32(levels.empty() ? 0 : levels[0].height);
    head.U32(0); // pixelDepth: 2D
    head.U32(0); // layerCount: not an array
    head.U32(1); // faceCount
    head.U32(static_cast<std::uint32_t>(levels.size()));
    head.U32(0); // supercompressionScheme: none
    head.U32(static_cast<std::uint32_t>(dfdOffset));
    head.U32(static_cast<std::uint32_t>(dfd.Size()));
    head.U32(static_cast<std::uint32_t>(kvdOffset));
    head.U32(static_cast<std::uint32_t>(kvd.Size()));
    head.U64(0); // sgdByteOffset
    head.U64(0); // sgdByteLength
    for (std::size_t i = 0; i < levels.size(); ++i) {
        head.U64(offsets[i]);
        head.U64(levels[i].bytes.size()); // byteLength
        head.U64(levels[i].bytes.size()); // uncompressedByteLength
    }
    head.Raw(dfd.Data().data(), dfd.Size());
    head.Raw(kvd.Data().data(), kvd.Size());

    std::ofstream out(path, std::ios::binary);
    if (!out)
        throw Failure("cannot write '" + path.string() + "': " + std::strerror(errno));
    out.write(reinterpret_cast<char const*>(head.Data().data()), static_cast<std::streamsize>(head.Size()));
    std::uint64_t written = head.Size();
    static constexpr char Zeros[16] = {};
    for (std::size_t i = levels.size(); i-- > 0;) {
        out.write(Zeros, static_cast<std::streamsize>(offsets[i] - written));
        out.write(reinterpret_cast<char const*>(levels[i].bytes.data()),
                  static_cast<std::streamsize>(levels[i].bytes.size()));
        written = offsets[i] + levels[i].bytes.size();
    }
    if (!out.flush())
        throw Failure("cannot write '" + path.string() + "': " + std::strerror(errno));
}

} // namespace Zorvan::Tool
