#include "MeshAssetPrep.h"

#include "Errors.h"

#include <algorithm>
#include <bit>
#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <numbers>

namespace Zorvan::Tool {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::uint32_t None = std::numeric_limits<std::uint32_t>::max();

double SecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::uint32_t Bits(float value)
{
    return std::bit_cast<std::uint32_t>(value);
}

// Numbers records of `width` words by first occurrence of equal content:
// returns each record's class and fills `firsts` with each class's first
// record. Open addressing over a table twice the record count.
std::vector<std::uint32_t> JoinEqual(std::vector<std::uint32_t> const& words, std::size_t width,
                                     std::vector<std::uint32_t>& firsts)
{
    std::size_t const count = width == 0 ? 0 : words.size() / width;
    std::size_t capacity = 16;
    while (capacity < 2 * count)
        capacity *= 2;
    std::size_t const mask = capacity - 1;
    std::vector<std::uint32_t> table(capacity, None); // class numbers
    std::vector<std::uint32_t> classes(count);
    firsts.clear();
    for (std::size_t r = 0; r < count; ++r) {
        std::uint32_t const* key = words.data() + r * width;
        std::uint64_t hash = 0x9E3779B97F4A7C15ull;
        for (std::size_t w = 0; w < width; ++w)
            hash = (hash ^ key[w]) * 0xFF51AFD7ED558CCDull;
        hash ^= hash >> 29;
        std::size_t slot = static_cast<std::size_t>(hash) & mask;
        for (;;) {
            std::uint32_t const known = table[slot];
            if (known == None) {
                table[slot] = static_cast<std::uint32_t>(firsts.size());
                classes[r] = table[slot];
                firsts.push_back(static_cast<std::uint32_t>(r));
                break;
            }
            if (std::memcmp(words.data() + std::size_t(firsts[known]) * width, key, width * sizeof(std::uint32_t)) ==
                0) {
                classes[r] = known;
                break;
            }
            slot = (slot + 1) & mask;
        }
    }
    return classes;
}

// The cross product of two edges exactly as the library's normals compute it
// (in float), so that a triangle kept here always has a normal there.
Float3 FaceCross(Float3 const& a, Float3 const& b, Float3 const& c)
{
    float const e1[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]};
    float const e2[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
    return {e1[1] * e2[2] - e1[2] * e2[1], e1[2] * e2[0] - e1[0] * e2[2], e1[0] * e2[1] - e1[1] * e2[0]};
}

double Length(Float3 const& v)
{
    return std::sqrt(double(v[0]) * v[0] + double(v[1]) * v[1] + double(v[2]) * v[2]);
}

// Zero area in float, or an area float cannot hold (its normal would be NaN).
bool ZeroArea(Float3 const& cross)
{
    auto const magnitude = static_cast<float>(Length(cross));
    return !(magnitude > 0.0f) || !std::isfinite(magnitude);
}

Float3 Normalized(Float3 const& v)
{
    double const length = Length(v);
    return {float(v[0] / length), float(v[1] / length), float(v[2] / length)};
}

bool UsableNormal(Math::point<float, 3> const& n)
{
    double const length = std::sqrt(double(n[0]) * n[0] + double(n[1]) * n[1] + double(n[2]) * n[2]);
    return std::isfinite(length) && length > 0.5;
}

// A primitive after degenerate removal and joining.
struct Surface {
    std::vector<std::uint32_t> attributeVertex;  // per input vertex: its class of identical vertices
    std::vector<std::uint32_t> classFirst;       // per class: an input vertex of it
    std::vector<Triangle> triangles;             // kept triangles over input vertices
};

// The vertices of one primitive after the split for normals and attributes.
struct Remapped {
    std::vector<std::uint32_t> source;        // per vertex: its input vertex
    std::vector<Float3> normals;              // per vertex
    std::vector<std::uint32_t> corners;       // per kept corner, in input order: its vertex
};

std::vector<std::uint32_t> AttributeWords(MeshPrimitive const& primitive, std::size_t& width)
{
    width = 3 + 2 * primitive.uvSets.size() + 4 * primitive.colorSets.size();
    std::vector<std::uint32_t> words;
    words.reserve(primitive.positions.size() * width);
    for (std::size_t v = 0; v < primitive.positions.size(); ++v) {
        for (float const x : primitive.positions[v])
            words.push_back(Bits(x));
        for (auto const& set : primitive.uvSets)
            for (float const x : set[v])
                words.push_back(Bits(x));
        for (auto const& set : primitive.colorSets)
            for (float const x : set[v])
                words.push_back(Bits(x));
    }
    return words;
}

template <typename T>
std::vector<T> Gather(std::vector<T> const& values, std::vector<std::uint32_t> const& from)
{
    std::vector<T> out;
    out.reserve(from.size());
    for (std::uint32_t const i : from)
        out.push_back(values[i]);
    return out;
}

// A part's attributes for the given primitive vertices, in their order.
MeshPart GatherPart(MeshPrimitive const& primitive, Remapped const& remapped,
                    std::vector<std::uint32_t> const& vertices)
{
    MeshPart part;
    part.material = primitive.material;
    std::vector<std::uint32_t> sources;
    sources.reserve(vertices.size());
    for (std::uint32_t const v : vertices)
        sources.push_back(remapped.source[v]);
    part.positions = Gather(primitive.positions, sources);
    part.normals = Gather(remapped.normals, vertices);
    for (auto const& set : primitive.uvSets)
        part.uvSets.push_back(Gather(set, sources));
    for (auto const& set : primitive.colorSets)
        part.colorSets.push_back(Gather(set, sources));
    return part;
}

// Appends `more` to `part`, which has at least as many sets; sets `more`
// lacks are filled as the importer fills them (zero coordinates, white).
void AppendPart(MeshPart& part, MeshPart const& more)
{
    auto const base = static_cast<std::uint32_t>(part.positions.size());
    std::size_t const count = more.positions.size();
    part.positions.insert(part.positions.end(), more.positions.begin(), more.positions.end());
    part.normals.insert(part.normals.end(), more.normals.begin(), more.normals.end());
    for (std::size_t s = 0; s < part.uvSets.size(); ++s) {
        if (s < more.uvSets.size())
            part.uvSets[s].insert(part.uvSets[s].end(), more.uvSets[s].begin(), more.uvSets[s].end());
        else
            part.uvSets[s].resize(part.uvSets[s].size() + count, Float2{0.0f, 0.0f});
    }
    for (std::size_t s = 0; s < part.colorSets.size(); ++s) {
        if (s < more.colorSets.size())
            part.colorSets[s].insert(part.colorSets[s].end(), more.colorSets[s].begin(), more.colorSets[s].end());
        else
            part.colorSets[s].resize(part.colorSets[s].size() + count, Float4{1.0f, 1.0f, 1.0f, 1.0f});
    }
    for (std::uint32_t const index : more.indices)
        part.indices.push_back(base + index);
}

} // namespace

std::size_t PreparedAsset::TrianglesOut() const
{
    std::size_t count = 0;
    for (MeshPart const& part : parts)
        count += part.indices.size() / 3;
    return count;
}

std::size_t PreparedAsset::VerticesOut() const
{
    std::size_t count = 0;
    for (MeshPart const& part : parts)
        count += part.positions.size();
    return count;
}

PreparedAsset PrepareAsset(MeshAsset const& asset, double creaseDegrees, std::uint16_t cacheSize, PartLayout layout,
                           Progress const& progress)
{
    PreparedAsset prepared;
    prepared.trianglesIn = asset.TriangleCount();
    auto start = Clock::now();

    // Positions joined across every primitive: normals blend over material
    // borders and UV seams as they do over any other edge of the surface.
    std::vector<std::uint32_t> positionWords;
    std::vector<std::size_t> positionBase;
    for (MeshPrimitive const& primitive : asset.primitives) {
        positionBase.push_back(positionWords.size() / 3);
        for (Float3 const& p : primitive.positions)
            for (float const x : p)
                positionWords.push_back(Bits(x));
    }
    if (positionWords.size() / 3 >= None)
        throw Failure("the mesh has more than 4,294,967,294 vertices");
    std::vector<std::uint32_t> positionFirsts;
    std::vector<std::uint32_t> const positionClass = JoinEqual(positionWords, 3, positionFirsts);
    std::vector<Math::point<float, 3>> points;
    points.reserve(positionFirsts.size());
    for (std::uint32_t const first : positionFirsts) {
        std::uint32_t const* word = positionWords.data() + std::size_t(first) * 3;
        points.push_back(
            {{std::bit_cast<float>(word[0]), std::bit_cast<float>(word[1]), std::bit_cast<float>(word[2])}});
    }
    positionWords = {};

    // Degenerate triangles go before normals: they have none to give.
    std::vector<Surface> surfaces(asset.primitives.size());
    std::vector<std::array<std::uint32_t, 3>> byPosition;
    byPosition.reserve(prepared.trianglesIn);
    std::vector<std::uint32_t> renumber(points.size(), None); // position class -> this primitive's class
    for (std::size_t p = 0; p < asset.primitives.size(); ++p) {
        MeshPrimitive const& primitive = asset.primitives[p];
        Surface& surface = surfaces[p];
        if (primitive.uvSets.empty() && primitive.colorSets.empty()) {
            // The position is the whole vertex: the position join has done
            // the work, renumbered here for this primitive alone.
            surface.attributeVertex.resize(primitive.positions.size());
            for (std::size_t v = 0; v < primitive.positions.size(); ++v) {
                std::uint32_t& number = renumber[positionClass[positionBase[p] + v]];
                if (number == None) {
                    number = static_cast<std::uint32_t>(surface.classFirst.size());
                    surface.classFirst.push_back(static_cast<std::uint32_t>(v));
                }
                surface.attributeVertex[v] = number;
            }
            for (std::uint32_t const first : surface.classFirst)
                renumber[positionClass[positionBase[p] + first]] = None;
        } else {
            std::size_t width = 0;
            std::vector<std::uint32_t> const words = AttributeWords(primitive, width);
            surface.attributeVertex = JoinEqual(words, width, surface.classFirst);
        }
        prepared.verticesIn += surface.classFirst.size();
        for (Triangle const& triangle : primitive.triangles) {
            std::array<std::uint32_t, 3> at{};
            for (int k = 0; k < 3; ++k)
                at[k] = positionClass[positionBase[p] + triangle[k]];
            if (at[0] == at[1] || at[1] == at[2] || at[0] == at[2] ||
                ZeroArea(FaceCross(primitive.positions[triangle[0]], primitive.positions[triangle[1]],
                                   primitive.positions[triangle[2]]))) {
                ++prepared.degenerateTriangles;
                continue;
            }
            surface.triangles.push_back(triangle);
            byPosition.push_back(at);
        }
    }
    if (byPosition.empty())
        throw Failure("every triangle is degenerate (zero area or a repeated corner)");

    progress("smoothing normals over " + std::to_string(byPosition.size()) + " triangles");
    // The remapping's form of the normals: it groups corners by vertex, which
    // keeps its memory accesses local when the triangles come in any order.
    Rendering::SmoothNormalRemapping<std::uint32_t> smooth = Rendering::CalculateSmoothNormalRemapping(
        std::span<Math::point<float, 3> const>(points), std::span<std::array<std::uint32_t, 3> const>(byPosition),
        creaseDegrees * std::numbers::pi / 180.0);
    std::vector<Math::point<float, 3>>& normalTable = smooth.normals;
    std::vector<std::uint32_t>& cornerNormal = smooth.remapping; // per corner: its row of normalTable
    smooth.vertices = {};
    for (auto& normal : normalTable)
        for (int c = 0; c < 3; ++c)
            normal[c] = normal[c] == 0.0f ? 0.0f : normal[c];
    // A corner whose smoothing found no face (a crease of 0 excludes even its
    // own) takes its own face's normal, which any crease angle admits.
    for (std::size_t t = 0; t < byPosition.size(); ++t)
        for (int k = 0; k < 3; ++k) {
            if (UsableNormal(normalTable[cornerNormal[3 * t + k]]))
                continue;
            auto const& tri = byPosition[t];
            Float3 const face = Normalized(FaceCross({points[tri[0]][0], points[tri[0]][1], points[tri[0]][2]},
                                                     {points[tri[1]][0], points[tri[1]][1], points[tri[1]][2]},
                                                     {points[tri[2]][0], points[tri[2]][1], points[tri[2]][2]}));
            cornerNormal[3 * t + k] = static_cast<std::uint32_t>(normalTable.size());
            normalTable.push_back({{face[0] == 0.0f ? 0.0f : face[0], face[1] == 0.0f ? 0.0f : face[1],
                                    face[2] == 0.0f ? 0.0f : face[2]}});
        }
    byPosition = {};
    points = {};

    // A vertex per distinct (identical-vertex class, normal) among the corners.
    std::vector<Remapped> remapped(asset.primitives.size());
    std::size_t corner = 0;
    for (std::size_t p = 0; p < asset.primitives.size(); ++p) {
        Surface const& surface = surfaces[p];
        Remapped& out = remapped[p];
        std::size_t const classes = surface.classFirst.size();
        std::size_t const corners = 3 * surface.triangles.size();
        // The corners of each class, grouped, in order (a counting sort).
        std::vector<std::uint32_t> offsets(classes + 1, 0);
        for (Triangle const& triangle : surface.triangles)
            for (std::uint32_t const v : triangle)
                ++offsets[surface.attributeVertex[v] + 1];
        for (std::size_t c = 0; c < classes; ++c)
            offsets[c + 1] += offsets[c];
        std::vector<std::uint32_t> grouped(corners);
        {
            std::vector<std::uint32_t> cursor(offsets.begin(), offsets.end() - 1);
            for (std::size_t i = 0; i < corners; ++i)
                grouped[cursor[surface.attributeVertex[surface.triangles[i / 3][i % 3]]]++] =
                    static_cast<std::uint32_t>(i);
        }
        out.corners.assign(corners, None);
        for (std::size_t c = 0; c < classes; ++c) {
            std::size_t const firstVertex = out.source.size();
            for (std::uint32_t e = offsets[c]; e < offsets[c + 1]; ++e) {
                std::uint32_t const i = grouped[e];
                auto const& n = normalTable[cornerNormal[corner + i]];
                Float3 const normal{n[0], n[1], n[2]};
                std::size_t v = firstVertex;
                while (v < out.source.size() && out.normals[v] != normal)
                    ++v;
                if (v == out.source.size()) {
                    out.source.push_back(surface.classFirst[c]);
                    out.normals.push_back(normal);
                }
                out.corners[i] = static_cast<std::uint32_t>(v);
            }
        }
        corner += corners;
        prepared.verticesRemapped += out.source.size();
    }
    smooth = {};
    prepared.normalsSeconds = SecondsSince(start);

    // Split and reorder each primitive; the statistics follow what is written.
    start = Clock::now();
    std::uint64_t missesBefore = 0;
    std::uint64_t missesAfter = 0;
    std::size_t triangles = 0;
    MeshPart merged;
    for (std::size_t p = 0; p < asset.primitives.size(); ++p) {
        MeshPrimitive const& primitive = asset.primitives[p];
        Remapped const& out = remapped[p];
        std::size_t const vertexCount = out.source.size();
        triangles += out.corners.size() / 3;
        missesBefore += Rendering::AnalyzeFifoVertexCache(out.corners, vertexCount, cacheSize).misses;

        std::vector<Math::point<float, 3>> positions;
        positions.reserve(vertexCount);
        for (std::uint32_t const source : out.source) {
            Float3 const& position = primitive.positions[source];
            positions.push_back({{position[0], position[1], position[2]}});
        }
        if (vertexCount > Rendering::MaxSubmeshVertexCount && layout == PartLayout::Submeshes16)
            progress("splitting " + std::to_string(vertexCount) +
                     " vertices into 16-bit submeshes and reordering each");
        std::vector<Rendering::Submesh> const submeshes = Rendering::SplitInto16BitSubmeshes(
            std::span<Math::point<float, 3> const>(positions), std::span<std::uint32_t const>(out.corners), cacheSize);

        if (layout == PartLayout::Submeshes16) {
            missesAfter += Rendering::AnalyzeFifoVertexCache(submeshes, cacheSize).misses;
            for (Rendering::Submesh const& sub : submeshes) {
                MeshPart part = GatherPart(primitive, out, sub.vertices);
                part.indices.assign(sub.indices.begin(), sub.indices.end());
                prepared.parts.push_back(std::move(part));
            }
            continue;
        }
        // One list in the submeshes' order, vertices numbered by first use so
        // that fetching them walks memory forwards too.
        std::vector<std::uint32_t> number(vertexCount, None);
        std::vector<std::uint32_t> order;
        std::vector<std::uint32_t> indices;
        order.reserve(vertexCount);
        indices.reserve(out.corners.size());
        for (Rendering::Submesh const& sub : submeshes)
            for (std::uint16_t const local : sub.indices) {
                std::uint32_t& n = number[sub.vertices[local]];
                if (n == None) {
                    n = static_cast<std::uint32_t>(order.size());
                    order.push_back(sub.vertices[local]);
                }
                indices.push_back(n);
            }
        MeshPart part = GatherPart(primitive, out, order);
        part.indices = std::move(indices);
        if (merged.positions.empty() && merged.indices.empty()) {
            merged = std::move(part);
            continue;
        }
        // Sets grow to the largest primitive's; fill the ones laid down so far.
        std::size_t const laid = merged.positions.size();
        while (merged.uvSets.size() < part.uvSets.size())
            merged.uvSets.emplace_back(laid, Float2{0.0f, 0.0f});
        while (merged.colorSets.size() < part.colorSets.size())
            merged.colorSets.emplace_back(laid, Float4{1.0f, 1.0f, 1.0f, 1.0f});
        AppendPart(merged, part);
    }
    if (layout == PartLayout::OneList) {
        missesAfter = Rendering::AnalyzeFifoVertexCache(merged.indices, merged.positions.size(), cacheSize).misses;
        prepared.parts.push_back(std::move(merged));
    }
    prepared.reorderSeconds = SecondsSince(start);
    if (prepared.parts.size() > asset.primitives.size())
        progress("split into " + std::to_string(prepared.parts.size()) + " submeshes holding " +
                 std::to_string(prepared.VerticesOut()) + " vertices");

    auto const statistics = [&](std::uint64_t misses) {
        Rendering::VertexCacheStatistics s;
        s.misses = misses;
        s.acmr = triangles == 0 ? 0.0 : double(misses) / double(triangles);
        s.atvr = prepared.verticesRemapped == 0 ? 0.0 : double(misses) / double(prepared.verticesRemapped);
        return s;
    };
    prepared.before = statistics(missesBefore);
    prepared.after = statistics(missesAfter);
    return prepared;
}

} // namespace Zorvan::Tool
