#pragma once

// Vertex data: attribute layouts and their summaries, the four fixed vertex
// records with conversions into them, and dynamic vertex-buffer helpers.

#include <Rendering/Core.h>
#include <Rendering/Export.h>
#include <Rendering/Format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {

class IResourceFactory;

// ---------------------------------------------------------------------------
// Attribute layouts
// ---------------------------------------------------------------------------

namespace detail {
inline constexpr std::size_t AttributeNameLength = 200;

// Semantic names are the same when they are the same pointer, or both
// non-null and equal in their first 200 characters (deliberately: names that
// agree that far are one name).
constexpr bool SameAttributeName(char const* a, char const* b) noexcept
{
    if (a == b)
        return true;
    if (a == nullptr || b == nullptr)
        return false;
    for (std::size_t i = 0; i < AttributeNameLength; ++i) {
        if (a[i] != b[i])
            return false;
        if (a[i] == '\0')
            return true;
    }
    return true;
}
} // namespace detail

// One vertex attribute. A null name marks an empty entry; format None an
// attribute without data; offset 0 means "place automatically".
struct AttributeDesc {
    char const* name = nullptr;
    std::uint32_t index = 0;         // semantic index
    Format format = Format::None;
    std::uint32_t offset = 0;        // bytes inside the slot's vertex; 0 = automatic
    std::uint32_t slot = 0;          // vertex-buffer slot 0..3
    std::uint32_t extra = 0;         // device-defined; ordered and compared, zeroed by the library

    // Every field equal, names by the rule of detail::SameAttributeName.
    friend constexpr bool operator==(AttributeDesc const& a, AttributeDesc const& b) noexcept
    {
        return a.index == b.index && a.format == b.format && a.offset == b.offset && a.slot == b.slot &&
               a.extra == b.extra && detail::SameAttributeName(a.name, b.name);
    }
};

static_assert(sizeof(void*) == 8, "the device records are laid out for 64-bit pointers");
static_assert(sizeof(AttributeDesc) == 32 && offsetof(AttributeDesc, index) == 8 &&
              offsetof(AttributeDesc, format) == 12 && offsetof(AttributeDesc, offset) == 16 &&
              offsetof(AttributeDesc, slot) == 20 && offsetof(AttributeDesc, extra) == 24);

// Exactly ten entries. Present = non-null name; active = present with a format.
using InputLayout = std::array<AttributeDesc, 10>;
static_assert(sizeof(InputLayout) == 320);

struct VertexDescription {
    std::uint8_t positionCount = 0;
    std::uint8_t normalCount = 0;
    std::uint8_t texcoordCount = 0;
    std::uint8_t colorCount = 0;

    friend constexpr bool operator==(VertexDescription const&, VertexDescription const&) = default;
};

static_assert(sizeof(VertexDescription) == 4);

// The library's semantic names.
inline constexpr char const* PositionSemantic = "position";
inline constexpr char const* NormalSemantic = "normal";
inline constexpr char const* TexcoordSemantic = "texcoord";
inline constexpr char const* ColorSemantic = "color";

// Copies the attribute into the first entry with a null name; a full layout
// is returned unchanged.
ZGU_API std::array<AttributeDesc, 10> AddAttribute(std::array<AttributeDesc, 10> layout, AttributeDesc const& attribute);
// Same attributes after normalising offsets and sorting, entry order ignored.
ZGU_API bool AreEquivalent(std::array<AttributeDesc, 10> a, std::array<AttributeDesc, 10> b);
// Concrete byte offset of every active entry (0 for inactive ones). An explicit
// offset of 0 counts as automatic: it is placed behind what its slot holds.
ZGU_API std::array<unsigned int, 10> CalculateOffsets(std::array<AttributeDesc, 10> const& layout);
// Vertex stride of each of the four slots; 0 for an unused slot.
ZGU_API std::array<unsigned int, 4> CalculateStrides(std::array<AttributeDesc, 10> const& layout);
// Writes CalculateOffsets back into every entry.
ZGU_API std::array<AttributeDesc, 10> Normalize(std::array<AttributeDesc, 10> layout);
// Entry 0 is "position", R32G32B32F, slot 0.
ZGU_API bool Has3dPositionAsFirstAttribute(std::array<AttributeDesc, 10> const& layout);
// Some active entry of semantic index 0 has this name.
ZGU_API bool HasAttribute(std::array<AttributeDesc, 10> const& layout, char const* name);
ZGU_API bool HasPosition(std::array<AttributeDesc, 10> const& layout);
ZGU_API bool HasNormal(std::array<AttributeDesc, 10> const& layout);
ZGU_API bool HasTextureCoordinate(std::array<AttributeDesc, 10> const& layout);
ZGU_API bool HasColor(std::array<AttributeDesc, 10> const& layout);
// Counts distinct semantic indices (below 4) per semantic over present entries.
ZGU_API VertexDescription InputLayout2VertexDescription(std::array<AttributeDesc, 10> const& layout);
// Positions, normals, texcoords, colours in that order, automatic offsets in
// slot 0. The counts must total at most 10.
ZGU_API std::array<AttributeDesc, 10> VertexDescription2InputLayout(VertexDescription const& description);

// ---------------------------------------------------------------------------
// Vertex records
// ---------------------------------------------------------------------------

struct VertexP {
    float x, y, z;
};
struct VertexN {
    float x, y, z;
};
struct VertexT {
    float u, v;
};
struct VertexC {
    std::uint8_t r, g, b, a;
};

static_assert(sizeof(VertexP) == 12 && sizeof(VertexN) == 12 && sizeof(VertexT) == 8 && sizeof(VertexC) == 4,
              "vertex records must be tightly packed: the views reinterpret caller arrays");

// Views (span results) reinterpret the caller's memory without copying; an
// empty result has a null pointer. Trailing scalars that do not fill a record
// are ignored. Copies (vector results) convert doubles to float by rounding.
ZGU_API span<VertexP const> ToVertexP(span<float const> xyz);
ZGU_API span<VertexP const> ToVertexP(span<Math::point<float, 3> const> points);
ZGU_API span<VertexP const> ToVertexP(span<std::array<float, 3> const> points);
ZGU_API std::vector<VertexP> ToVertexP(span<double const> xyz);
ZGU_API std::vector<VertexP> ToVertexP(span<Math::point<double, 3> const> points);
ZGU_API std::vector<VertexP> ToVertexP(span<std::array<double, 3> const> points);

ZGU_API span<VertexN const> ToVertexN(span<float const> xyz);
ZGU_API span<VertexN const> ToVertexN(span<Math::point<float, 3> const> normals);
ZGU_API span<VertexN const> ToVertexN(span<std::array<float, 3> const> normals);
ZGU_API std::vector<VertexN> ToVertexN(span<double const> xyz);
ZGU_API std::vector<VertexN> ToVertexN(span<Math::point<double, 3> const> normals);
ZGU_API std::vector<VertexN> ToVertexN(span<std::array<double, 3> const> normals);

ZGU_API span<VertexT const> ToVertexT(span<float const> uv);
ZGU_API span<VertexT const> ToVertexT(span<Math::point<float, 2> const> uvs);
ZGU_API span<VertexT const> ToVertexT(span<std::array<float, 2> const> uvs);
ZGU_API std::vector<VertexT> ToVertexT(span<double const> uv);
ZGU_API std::vector<VertexT> ToVertexT(span<Math::point<double, 2> const> uvs);
ZGU_API std::vector<VertexT> ToVertexT(span<std::array<double, 2> const> uvs);

// Colours. Float/double components c become trunc(min(max(c * 255, 0), 255))
// (truncation, deliberately: 0.999 gives 254; NaN gives 0). Without alpha the
// input is read as r, g, b triples and alpha is 255.
ZGU_API span<VertexC const> ToVertexC(span<Math::point<std::uint8_t, 4> const> rgba);
ZGU_API span<VertexC const> ToVertexC(span<std::array<std::uint8_t, 4> const> rgba);
ZGU_API std::vector<VertexC> ToVertexC(span<std::uint8_t const> bytes, bool hasAlpha);
ZGU_API std::vector<VertexC> ToVertexC(span<float const> components, bool hasAlpha);
ZGU_API std::vector<VertexC> ToVertexC(span<double const> components, bool hasAlpha);
ZGU_API std::vector<VertexC> ToVertexC(span<Math::point<std::uint8_t, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<std::array<std::uint8_t, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<Math::point<float, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<std::array<float, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<Math::point<double, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<std::array<double, 3> const> rgb);
ZGU_API std::vector<VertexC> ToVertexC(span<Math::point<float, 4> const> rgba);
ZGU_API std::vector<VertexC> ToVertexC(span<std::array<float, 4> const> rgba);
ZGU_API std::vector<VertexC> ToVertexC(span<Math::point<double, 4> const> rgba);
ZGU_API std::vector<VertexC> ToVertexC(span<std::array<double, 4> const> rgba);

// ---------------------------------------------------------------------------
// Vertex buffers
// ---------------------------------------------------------------------------

// How many 32-byte vertices fit in the largest buffer the device offers:
// v = max size / 32; multiples of 6 when v >= 6, else 3 for 3..5, else v.
ZGU_API unsigned int CalculateMaximumVertexCount(IResourceFactory& factory);
// The same for vertices of vertexSize bytes (must not be 0).
ZGU_API unsigned int CalculateMaximumVertexCount(IResourceFactory& factory, unsigned int vertexSize);
// Maps the buffer for writing, copies size bytes if the map succeeded, and
// always unmaps. Sizes are not checked.
ZGU_API void Update(BufferId buffer, IResourceFactory& factory, unsigned int size, void const* data);
// Reuses the buffer when it holds at least size bytes and is a dynamic vertex
// buffer (flags 1 and 32); otherwise destroys it and creates {size, 33}.
// Buffers only grow. Returns the buffer now holding the data: store it.
ZGU_API BufferId UpdateDynamicVertexBuffer(BufferId buffer, IResourceFactory& factory, unsigned int size,
                                           void const* data);

} // namespace Zorvan::Rendering
