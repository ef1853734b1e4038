#include "ImageDeviceAccess.h"

#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <compare>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <span>
#include <type_traits>
#include <vector>

namespace Zorvan::Rendering {
namespace {

// Reads consecutive elements of T from bytes that need not be aligned for T
// (mapped rows), each converted to a double. Random access, so the result
// vector takes a whole row in one counted loop (no zero fill first, no
// per-element capacity check), which the compiler vectorizes where the
// conversion allows.
template <typename T, typename Convert>
class Converting {
public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = double;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = double;

    Converting(unsigned char const* at, Convert const& convert) : at_(at), convert_(&convert) {}

    double operator*() const { return (*convert_)(Load(at_)); }
    double operator[](difference_type n) const { return (*convert_)(Load(at_ + n * Step)); }
    Converting& operator++() { at_ += Step; return *this; }
    Converting operator++(int) { Converting old = *this; at_ += Step; return old; }
    Converting& operator--() { at_ -= Step; return *this; }
    Converting operator--(int) { Converting old = *this; at_ -= Step; return old; }
    Converting& operator+=(difference_type n) { at_ += n * Step; return *this; }
    Converting& operator-=(difference_type n) { at_ -= n * Step; return *this; }
    friend Converting operator+(Converting i, difference_type n) { return i += n; }
    friend Converting operator+(difference_type n, Converting i) { return i += n; }
    friend Converting operator-(Converting i, difference_type n) { return i -= n; }
    friend difference_type operator-(Converting const& a, Converting const& b) { return (a.at_ - b.at_) / Step; }
    friend bool operator==(Converting const& a, Converting const& b) { return a.at_ == b.at_; }
    friend auto operator<=>(Converting const& a, Converting const& b) { return a.at_ <=> b.at_; }

private:
    static constexpr difference_type Step = sizeof(T);

    static T Load(unsigned char const* at) noexcept
    {
        T value;
        std::memcpy(&value, at, sizeof(T));
        return value;
    }

    unsigned char const* at_;
    Convert const* convert_;
};

template <typename T, typename Convert>
void Append(std::vector<double>& result, unsigned char const* first, std::size_t count, Convert const& convert)
{
    result.insert(result.end(), Converting<T, Convert>(first, convert),
                  Converting<T, Convert>(first + count * sizeof(T), convert));
}

// Appends element by element: convert(T) gives each double.
template <typename T, typename Convert>
auto Elementwise(Convert convert)
{
    return [convert](std::vector<double>& result, unsigned char const* first, std::size_t count) {
        Append<T>(result, first, count, convert);
    };
}

// Halves go through the array half2float, which converts many per step, in
// blocks small enough to stay in the first-level cache, and are then widened.
void AppendHalves(std::vector<double>& result, unsigned char const* first, std::size_t count)
{
    constexpr std::size_t Block = 512;
    std::array<unsigned short, Block> halves;
    std::array<float, Block> floats;
    auto const widen = [](float v) { return static_cast<double>(v); };
    for (std::size_t done = 0; done < count; done += Block) {
        std::size_t const n = std::min(Block, count - done);
        std::memcpy(halves.data(), first + done * sizeof(unsigned short), n * sizeof(unsigned short));
        half2float(std::span<unsigned short const>(halves.data(), n), std::span<float>(floats.data(), n));
        Append<float>(result, reinterpret_cast<unsigned char const*>(floats.data()), n, widen);
    }
}

// Every element of the level, every depth slice, converted in memory order;
// empty when the device read fails. No mip or slice check: the device gets
// `where` as given. The values are those of a tightly packed CopyImageBuffer
// of the mapping, converted; appendRun(result, bytes, count) converts a run
// of count elements of T.
template <typename T, typename AppendRun>
std::vector<double> ReadConverted(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                                  SubImage const& where, AppendRun const& appendRun)
{
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::int64_t const width = level.width;
    std::int64_t const rows = std::max<std::int64_t>(level.height, 1);
    std::int64_t const slices = std::max<std::int64_t>(level.depth, 1);
    std::int64_t const rowPitch = std::int64_t{GetSize(description.format)} * width;
    std::int64_t const slicePitch = rowPitch * rows;
    auto const count = static_cast<std::size_t>(slicePitch * slices) / sizeof(T);

    std::vector<double> result;
    bool const read = ImageAccess::ReadSubImage(factory, image, description, where, [&](MappedImage const& mapped) {
        result.reserve(count);
        auto const* data = static_cast<unsigned char const*>(mapped.data);
        std::int64_t const mappedRowPitch = mapped.rowPitch;
        std::int64_t const mappedSlicePitch = mapped.slicePitch;
        if (width >= 1 && std::llabs(mappedRowPitch) >= rowPitch) {
            // Each packed row would be the start of a mapped row, taken from
            // the same addresses the copy uses: convert in place.
            auto const perRow = static_cast<std::size_t>(rowPitch) / sizeof(T);
            for (std::int64_t slice = 0; slice < slices; ++slice) {
                unsigned char const* row = data + slice * mappedSlicePitch;
                for (std::int64_t y = 0; y < rows; ++y, row += mappedRowPitch)
                    appendRun(result, row, perRow);
            }
            return;
        }
        // Mapped rows narrower than packed ones: the copy leaves the rest of
        // each packed row zero, and so must we.
        std::vector<unsigned char> packed(static_cast<std::size_t>(slicePitch * slices));
        CopyImageBuffer(data, mappedRowPitch, mappedSlicePitch, packed.data(), rowPitch, slicePitch, width, rows,
                        slices);
        appendRun(result, packed.data(), count);
    });
    if (!read)
        return {};
    return result;
}

// Stored values as they are.
template <typename T>
std::vector<double> Widened(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                            SubImage const& where, bool)
{
    return ReadConverted<T>(factory, image, description, where,
                            Elementwise<T>([](T v) { return static_cast<double>(v); }));
}

// Normalized formats: unsigned 0 .. Max maps to 0 .. 1; for signed ones the
// most negative value clamps to -1 like the one above it. raw keeps the
// stored integers.
template <typename T, int Max>
constexpr double NormalizedValue(T v)
{
    constexpr double max = Max;
    if constexpr (std::is_signed_v<T>)
        return std::max(static_cast<double>(v) / max, -1.0);
    else
        return static_cast<double>(v) / max;
}

// Every 8-bit value's result, computed at compile time by the same division
// (IEEE division rounds the same there): a lookup is cheaper than a divide.
template <typename T, int Max>
constexpr auto ByteTable = [] {
    std::array<double, 256> table{};
    for (int i = 0; i < 256; ++i)
        table[static_cast<std::size_t>(i)] = NormalizedValue<T, Max>(static_cast<T>(i));
    return table;
}();

template <typename T, int Max>
std::vector<double> Normalized(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                               SubImage const& where, bool raw)
{
    if (raw)
        return Widened<T>(factory, image, description, where, raw);
    if constexpr (sizeof(T) == 1)
        return ReadConverted<T>(factory, image, description, where, Elementwise<T>([](T v) {
                                    return ByteTable<T, Max>[static_cast<std::uint8_t>(v)];
                                }));
    else
        return ReadConverted<T>(factory, image, description, where,
                                Elementwise<T>([](T v) { return NormalizedValue<T, Max>(v); }));
}

std::vector<double> Halves(IResourceFactory& factory, ImageId image, ImageDesc const& description,
                           SubImage const& where, bool)
{
    return ReadConverted<std::uint16_t>(factory, image, description, where, &AppendHalves);
}

// Formats by value range, each group with its element type and conversion.
// None (0) and the depth formats (41 to 45) have no colour channels to report.
struct FormatGroup {
    std::uint32_t first;
    std::uint32_t last;
    std::vector<double> (*read)(IResourceFactory&, ImageId, ImageDesc const&, SubImage const&, bool raw);
};

constexpr FormatGroup FormatGroups[] = {
    {1, 6, &Normalized<std::uint8_t, 255>},     // unsigned normalized 8-bit
    {7, 9, &Normalized<std::uint16_t, 65535>},  // unsigned normalized 16-bit
    {10, 12, &Normalized<std::int8_t, 127>},    // signed normalized 8-bit
    {13, 15, &Normalized<std::int16_t, 32767>}, // signed normalized 16-bit
    {16, 18, &Widened<std::uint8_t>},           {19, 21, &Widened<std::uint16_t>},
    {22, 24, &Widened<std::uint32_t>},          {25, 27, &Widened<std::int8_t>},
    {28, 30, &Widened<std::int16_t>},           {31, 33, &Widened<std::int32_t>},
    {34, 36, &Halves},                          {37, 40, &Widened<float>},
};
constexpr bool CoversColourFormatsOnce()
{
    std::uint32_t next = 1;
    for (FormatGroup const& group : FormatGroups) {
        if (group.first != next || group.last < group.first)
            return false;
        next = group.last + 1;
    }
    return next == 41 && FormatCount == 46;
}
static_assert(CoversColourFormatsOnce(), "formats 1 to 40 in consecutive groups; 0 and 41 to 45 in none");

} // namespace

std::vector<double> ReadAsDoubles(IResourceFactory& factory, ImageId image, bool raw, SubImage const& where)
{
    ImageDesc const description = factory.GetImageDescription(image);
    auto const value = static_cast<std::uint32_t>(description.format);
    for (FormatGroup const& group : FormatGroups)
        if (value >= group.first && value <= group.last)
            return group.read(factory, image, description, where, raw);
    return {};
}

} // namespace Zorvan::Rendering
