// `zgu mesh`'s internals on assets built in code: the bytes that carry an
// asset out of the importer's process, the checks on declared counts, the
// preparation, and where textures point from the output.

#include "Errors.h"
#include "MeshAsset.h"
#include "MeshAssetPrep.h"
#include "MeshExport.h"
#include "MeshIo.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <random>

namespace {

using namespace Zorvan::Tool;
namespace fs = std::filesystem;

void Quiet(std::string const&) {}

MeshAsset RichAsset()
{
    MeshAsset asset;
    MeshMaterial wood;
    wood.name = "Wood";
    wood.baseColor = {0.5f, 0.25f, 0.125f, 0.5f};
    wood.alphaMode = AlphaMode::Blend;
    wood.textures[BaseColorTexture] = MaterialTexture{"tex/wood.png", -1, 1, WrapMode::Clamp, WrapMode::Mirror};
    wood.textures[NormalTexture] = MaterialTexture{"", 0, 0, WrapMode::Repeat, WrapMode::Repeat};
    MeshMaterial plain;
    plain.name = "Plain";
    plain.doubleSided = true;
    asset.materials = {wood, plain};
    asset.images.push_back({"image/png", 0, 0, std::string("\x89PNG\r\n\x1a\n", 8)});
    asset.images.push_back({"", 2, 1, std::string(8, '\x7f')});
    MeshPrimitive first;
    first.material = 0;
    first.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
    first.uvSets = {{{0, 0}, {1, 0}, {0, 1}, {1, 1}}, {{0.5f, 0}, {0.5f, 0}, {0.5f, 0}, {0.5f, 0}}};
    first.colorSets = {{{1, 0, 0, 1}, {0, 1, 0, 1}, {0, 0, 1, 1}, {1, 1, 1, 1}}};
    first.triangles = {{0, 1, 2}, {1, 3, 2}};
    MeshPrimitive second;
    second.material = 1;
    second.positions = {{1, 0, 0}, {2, 0, 0.2f}, {1, 1, 0}};
    second.triangles = {{0, 1, 2}};
    asset.primitives = {first, second};
    asset.Drop("animations", 2);
    asset.Drop("cameras", 1);
    return asset;
}

TEST(MeshAssetBytes, CarryEveryPartOfTheAssetAcross)
{
    MeshAsset const asset = RichAsset();
    EXPECT_EQ(DeserializeMeshAsset(SerializeMeshAsset(asset)), asset);
    EXPECT_EQ(DeserializeMeshAsset(SerializeMeshAsset(MeshAsset())), MeshAsset());
}

TEST(MeshAssetBytes, RefuseTruncationsLiesAndDanglingIndices)
{
    std::string const bytes = SerializeMeshAsset(RichAsset());
    for (std::size_t length = 0; length < bytes.size(); ++length)
        EXPECT_THROW(DeserializeMeshAsset(bytes.substr(0, length)), Failure) << "cut at " << length;
    EXPECT_THROW(DeserializeMeshAsset(bytes + "x"), Failure);

    // A count of images no message could hold: refused before anything is allocated.
    std::string lying = SerializeMeshAsset(MeshAsset());
    std::uint64_t const huge = std::uint64_t(1) << 60;
    std::memcpy(lying.data() + 8, &huge, sizeof huge);
    EXPECT_THROW(DeserializeMeshAsset(lying), Failure);

    MeshAsset dangling = RichAsset();
    dangling.primitives[1].triangles[0][2] = 3;
    EXPECT_THROW(DeserializeMeshAsset(SerializeMeshAsset(dangling)), Failure);
    MeshAsset noMaterial = RichAsset();
    noMaterial.primitives[1].material = 2;
    EXPECT_THROW(DeserializeMeshAsset(SerializeMeshAsset(noMaterial)), Failure);
    MeshAsset shortSet = RichAsset();
    shortSet.primitives[0].uvSets[1].pop_back();
    EXPECT_THROW(DeserializeMeshAsset(SerializeMeshAsset(shortSet)), Failure);
    MeshAsset badImage = RichAsset();
    badImage.materials[0].textures[NormalTexture]->image = 2;
    EXPECT_THROW(DeserializeMeshAsset(SerializeMeshAsset(badImage)), Failure);
    MeshAsset rawMismatch = RichAsset();
    rawMismatch.images[1].width = 3;
    EXPECT_THROW(DeserializeMeshAsset(SerializeMeshAsset(rawMismatch)), Failure);
}

class MeshFiles : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir_ = fs::temp_directory_path() / ("zgu-mesh-internals-" + std::to_string(::getpid()));
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path Write(std::string const& name, std::string const& contents) const
    {
        fs::path const path = dir_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << contents;
        return path;
    }

    fs::path dir_;
};

TEST_F(MeshFiles, DeclaredCountsMustFitTheFile)
{
    struct Case {
        char const* name;
        std::string contents;
        bool refused;
    };
    std::string const binaryBody(3 * 12 + 13, '\0');
    Case const cases[] = {
        {"fits.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", false},
        {"comment.off", "# made by hand\nOFF\n# counts next\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2", false},
        {"huge.off", "OFF\n353535235358 6 0\n0 0 0\n1 0 0\n", true},
        {"overflow.off", "OFF\n99999999999999999999999 1 0\n0 0 0\n", true},
        {"faces.off", "OFF\n3 5000 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", true},
        // A little short: truncated, and left to the importer to read what is there.
        {"short.off", "OFF\n3 100 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", false},
        // Colours per vertex need room too: 1000 vertices of 3 values fit
        // twice the 2000 bytes and the slack; of 6, not.
        {"plain.off", "OFF\n1000 0 0\n" + std::string(2000, ' '), false},
        {"colour.off", "COFF\n1000 0 0\n" + std::string(2000, ' '), true},
        {"counts-first.off", "3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n", false},
        {"not-counts.off", "OFF\nthree one zero\n", false},
        {"fits.ply", "ply\nformat ascii 1.0\nelement vertex 3\nproperty float x\nproperty float y\nproperty float z\n"
                     "element face 1\nproperty list uchar int vertex_indices\nend_header\n"
                     "0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n",
         false},
        {"huge.ply", "ply\nformat ascii 1.0\nelement vertex 4000000000\nproperty float x\nend_header\n0\n1\n", true},
        {"binary.ply",
         "ply\nformat binary_little_endian 1.0\nelement vertex 3\nproperty float x\nproperty float y\n"
         "property float z\n"
         "element face 1\nproperty list uchar int vertex_indices\nend_header\n" + binaryBody,
         false},
        {"short-binary.ply",
         "ply\nformat binary_little_endian 1.0\nelement vertex 5\nproperty float x\nproperty float y\n"
         "property float z\n"
         "element face 1\nproperty list uchar int vertex_indices\nend_header\n" + binaryBody,
         false},
        {"lying-binary.ply",
         "ply\nformat binary_little_endian 1.0\nelement vertex 500\nproperty float x\nproperty float y\n"
         "property float z\nend_header\n" + binaryBody,
         true},
        {"unended.ply", "ply\nformat ascii 1.0\nelement vertex 4000000000\nproperty float x\n", false},
        {"other.obj", "v 0 0 0\n", false},
    };
    for (Case const& c : cases) {
        fs::path const path = Write(c.name, c.contents);
        if (c.refused) {
            try {
                CheckDeclaredCounts(path);
                ADD_FAILURE() << c.name << " was not refused";
            } catch (Failure const& failure) {
                EXPECT_NE(std::string(failure.what()).find("it is truncated or corrupt"), std::string::npos)
                    << failure.what();
            }
        } else {
            EXPECT_NO_THROW(CheckDeclaredCounts(path)) << c.name;
        }
    }
}

TEST_F(MeshFiles, TexturesAreNamedFromTheOutputsFolder)
{
    Write("in/tex/wood.png", "png");
    Write("in/metal.png", "png");
    MeshMaterial material;
    material.textures[BaseColorTexture] = MaterialTexture{"tex/wood.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    material.textures[NormalTexture] = MaterialTexture{"tex\\wood.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    // Blender's "relative to this file", and the author's own disk while
    // the file lies beside the mesh.
    material.textures[EmissiveTexture] = MaterialTexture{"//metal.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    material.textures[OcclusionTexture] =
        MaterialTexture{"C:\\Users\\me\\metal.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    material.textures[MetallicRoughnessTexture] =
        MaterialTexture{"sub\\gone.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    MeshMaterial elsewhere;
    elsewhere.textures[BaseColorTexture] =
        MaterialTexture{"D:\\art\\gone.png", -1, 0, WrapMode::Repeat, WrapMode::Repeat};
    MeshMaterial embedded;
    embedded.textures[BaseColorTexture] = MaterialTexture{"", 0, 0, WrapMode::Repeat, WrapMode::Repeat};

    std::vector<std::string> missing;
    std::vector<MeshMaterial> const moved =
        MaterialsForOutput({material, embedded, elsewhere}, dir_ / "in", dir_ / "out" / "deeper", missing);
    ASSERT_EQ(moved.size(), 3u);
    EXPECT_EQ(moved[0].textures[BaseColorTexture]->uri, "../../in/tex/wood.png");
    EXPECT_EQ(moved[0].textures[NormalTexture]->uri, "../../in/tex/wood.png");
    EXPECT_EQ(moved[0].textures[EmissiveTexture]->uri, "../../in/metal.png");
    EXPECT_EQ(moved[0].textures[OcclusionTexture]->uri, "../../in/metal.png");
    // Missing ones are named where the input expects them, unless that is
    // on a drive of another machine.
    EXPECT_EQ(moved[0].textures[MetallicRoughnessTexture]->uri, "../../in/sub/gone.png");
    EXPECT_EQ(moved[2].textures[BaseColorTexture]->uri, "D:/art/gone.png");
    EXPECT_EQ(missing, (std::vector<std::string>{"sub\\gone.png", "D:\\art\\gone.png"}));
    EXPECT_EQ(moved[1], embedded);

    std::vector<std::string> none;
    EXPECT_EQ(MaterialsForOutput({material}, dir_ / "in", dir_ / "in", none)[0].textures[BaseColorTexture]->uri,
              "tex/wood.png");
}

TEST(MeshFormats, SayWhatTheyCannotHold)
{
    MeshAsset asset = RichAsset();
    MeshMaterial fallback;
    fallback.name = "DefaultMaterial"; // Assimp's, for inputs without materials: nothing to lose
    asset.materials.push_back(fallback);
    auto const leftOut = [&asset](char const* extension) {
        auto const list = LeftOutBy(*FindMeshFormat(extension), asset, asset.materials);
        return std::map<std::string, std::uint64_t>(list.begin(), list.end());
    };
    EXPECT_EQ(leftOut("glb"), (std::map<std::string, std::uint64_t>{}));
    EXPECT_EQ(leftOut("obj"), (std::map<std::string, std::uint64_t>{{"uv_sets", 1}, {"color_sets", 1}}));
    EXPECT_EQ(leftOut("ply"), (std::map<std::string, std::uint64_t>{{"materials", 2}, {"uv_sets", 1}}));
    EXPECT_EQ(leftOut("stl"), (std::map<std::string, std::uint64_t>{
                                  {"materials", 2}, {"uv_sets", 2}, {"color_sets", 1}, {"normal_sets", 1}}));
    EXPECT_EQ(FindMeshFormat(".GLB"), FindMeshFormat("glb"));
    EXPECT_EQ(FindMeshFormat("fbx"), nullptr);
    EXPECT_EQ(MeshOutputExtensions(), ".glb, .gltf, .obj, .ply or .stl");
}

double Length(Float3 const& v)
{
    return std::sqrt(double(v[0]) * v[0] + double(v[1]) * v[1] + double(v[2]) * v[2]);
}

// Every corner of every part, as (position, first UV) triples of a triangle,
// sorted: what a renderer would draw, whatever the layout.
std::vector<std::array<float, 15>> DrawnTriangles(PreparedAsset const& prepared)
{
    std::vector<std::array<float, 15>> drawn;
    for (MeshPart const& part : prepared.parts)
        for (std::size_t i = 0; i < part.indices.size(); i += 3) {
            std::array<std::array<float, 5>, 3> corners{};
            for (int k = 0; k < 3; ++k) {
                std::uint32_t const v = part.indices[i + k];
                Float3 const& p = part.positions[v];
                Float2 const uv = part.uvSets.empty() ? Float2{} : part.uvSets[0][v];
                corners[k] = {p[0], p[1], p[2], uv[0], uv[1]};
            }
            // Rotated to start at the smallest corner: order kept, start free.
            std::rotate(corners.begin(), std::min_element(corners.begin(), corners.end()), corners.end());
            std::array<float, 15> flat{};
            for (int k = 0; k < 3; ++k)
                std::copy(corners[k].begin(), corners[k].end(), flat.begin() + 5 * k);
            drawn.push_back(flat);
        }
    std::sort(drawn.begin(), drawn.end());
    return drawn;
}

TEST(MeshPreparation, RemovesDegenerateTrianglesAndLeavesNoVertexWithoutANormal)
{
    MeshAsset asset;
    asset.materials.resize(1);
    MeshPrimitive primitive;
    primitive.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 0, 0}, {2, 0, 0},
                           {1e-30f, 0, 0}, {0, 1e-30f, 0}, {3e38f, 0, 0}, {0, 3e38f, 0}};
    primitive.triangles = {{0, 1, 2},  // kept
                           {0, 0, 1},  // a repeated index
                           {0, 1, 3},  // a repeated position under two indices
                           {0, 1, 4},  // on a line
                           {0, 5, 6},  // an area float rounds to zero
                           {0, 7, 8}}; // an area float cannot hold
    asset.primitives = {primitive};
    for (double const crease : {0.0, 30.0, 180.0}) {
        PreparedAsset const prepared = PrepareAsset(asset, crease, 16, PartLayout::Submeshes16, Quiet);
        EXPECT_EQ(prepared.trianglesIn, 6u);
        EXPECT_EQ(prepared.degenerateTriangles, 5u);
        EXPECT_EQ(prepared.TrianglesOut(), 1u);
        for (MeshPart const& part : prepared.parts)
            for (Float3 const& normal : part.normals)
                EXPECT_NEAR(Length(normal), 1.0, 1e-6) << "crease " << crease;
    }
    asset.primitives[0].triangles.erase(asset.primitives[0].triangles.begin());
    EXPECT_THROW(PrepareAsset(asset, 30.0, 16, PartLayout::Submeshes16, Quiet), Failure);
}

TEST(MeshPreparation, SmoothsAcrossMaterialsAndUvSeamsButSplitsVerticesForThem)
{
    // RichAsset: two quads at about 11 degrees, one material each, meeting
    // along x = 1, where the first has a second UV set of its own.
    MeshAsset asset = RichAsset();
    // A UV seam along the first quad's diagonal: (1, 0) and (0, 1) twice.
    MeshPrimitive& first = asset.primitives[0];
    first.positions.push_back({1, 0, 0});
    first.positions.push_back({0, 1, 0});
    first.uvSets[0].push_back({0.9f, 0.9f});
    first.uvSets[0].push_back({0.8f, 0.8f});
    first.uvSets[1].push_back({0.5f, 0});
    first.uvSets[1].push_back({0.5f, 0});
    first.colorSets[0].push_back({0, 1, 0, 1});
    first.colorSets[0].push_back({0, 0, 1, 1});
    first.triangles[1] = {4, 3, 5};

    PreparedAsset const prepared = PrepareAsset(asset, 30.0, 16, PartLayout::Submeshes16, Quiet);
    EXPECT_EQ(prepared.verticesIn, 6u + 3u);
    EXPECT_EQ(prepared.verticesRemapped, 6u + 3u);
    ASSERT_EQ(prepared.parts.size(), 2u);
    // Wherever two vertices share a position, they share a normal: one surface.
    std::map<std::array<float, 3>, Float3> normalAt;
    for (MeshPart const& part : prepared.parts) {
        ASSERT_EQ(part.normals.size(), part.positions.size());
        for (std::size_t v = 0; v < part.positions.size(); ++v) {
            auto const [it, added] = normalAt.emplace(part.positions[v], part.normals[v]);
            EXPECT_EQ(it->second, part.normals[v]) << "a shading seam at x = " << part.positions[v][0];
        }
    }
    Float3 const border = normalAt[Float3{1, 0, 0}];
    Float3 const corner = normalAt[Float3{0, 0, 0}];
    EXPECT_LT(border[2], 0.9999f) << "the border did not blend the two faces";
    EXPECT_EQ(corner, (Float3{0, 0, 1}));

    // A crease below the angle keeps the border hard.
    PreparedAsset const creased = PrepareAsset(asset, 5.0, 16, PartLayout::Submeshes16, Quiet);
    for (std::size_t v = 0; v < creased.parts[0].positions.size(); ++v)
        EXPECT_EQ(creased.parts[0].normals[v], (Float3{0, 0, 1}));
}

TEST(MeshPreparation, LaysOutSubmeshesOrOneListAndCarriesEveryAttributeAlong)
{
    // A 300 x 300 height field in shuffled order (90,000 vertices), its UV
    // a function of its position, and a second, smaller primitive without UVs.
    constexpr int n = 300;
    MeshAsset asset;
    asset.materials.resize(2);
    MeshPrimitive field;
    std::mt19937 rng(5);
    std::vector<std::uint32_t> number(n * n);
    std::iota(number.begin(), number.end(), 0u);
    std::shuffle(number.begin(), number.end(), rng);
    field.positions.resize(n * n);
    field.uvSets.assign(1, std::vector<Float2>(n * n));
    field.colorSets.assign(1, std::vector<Float4>(n * n));
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x) {
            std::uint32_t const v = number[y * n + x];
            field.positions[v] = {float(x), float(y), float(std::sin(0.05 * x) * std::cos(0.04 * y))};
            field.uvSets[0][v] = {float(x) / n, float(y) / n};
            field.colorSets[0][v] = {float(x) / n, 0, 0, 1};
        }
    for (int y = 0; y + 1 < n; ++y)
        for (int x = 0; x + 1 < n; ++x) {
            std::uint32_t const a = number[y * n + x], b = number[y * n + x + 1];
            std::uint32_t const c = number[(y + 1) * n + x], d = number[(y + 1) * n + x + 1];
            field.triangles.push_back({a, b, d});
            field.triangles.push_back({a, d, c});
        }
    std::shuffle(field.triangles.begin(), field.triangles.end(), rng);
    MeshPrimitive small;
    small.material = 1;
    small.positions = {{0, 0, 5}, {1, 0, 5}, {0, 1, 5}};
    small.triangles = {{0, 1, 2}};
    asset.primitives = {field, small};

    PreparedAsset const split = PrepareAsset(asset, 30.0, 16, PartLayout::Submeshes16, Quiet);
    ASSERT_GE(split.parts.size(), 3u);
    std::size_t triangles = 0;
    for (MeshPart const& part : split.parts) {
        EXPECT_LE(part.positions.size(), 65535u);
        EXPECT_LT(*std::max_element(part.indices.begin(), part.indices.end()), part.positions.size());
        triangles += part.indices.size() / 3;
        if (part.material == 0) {
            ASSERT_EQ(part.uvSets.size(), 1u);
            ASSERT_EQ(part.colorSets.size(), 1u);
            for (std::size_t v = 0; v < part.positions.size(); ++v) {
                EXPECT_EQ(part.uvSets[0][v][0], part.positions[v][0] / n);
                EXPECT_EQ(part.colorSets[0][v][0], part.positions[v][0] / n);
            }
        }
    }
    EXPECT_EQ(triangles, std::size_t(2 * (n - 1) * (n - 1) + 1));
    EXPECT_LT(split.after.acmr, 0.75);
    EXPECT_GT(split.before.acmr, 2.5);

    PreparedAsset const one = PrepareAsset(asset, 30.0, 16, PartLayout::OneList, Quiet);
    ASSERT_EQ(one.parts.size(), 1u);
    MeshPart const& part = one.parts[0];
    EXPECT_EQ(part.positions.size(), std::size_t(n * n + 3));
    EXPECT_EQ(one.VerticesOut(), one.verticesRemapped);
    ASSERT_EQ(part.uvSets.size(), 1u);
    ASSERT_EQ(part.uvSets[0].size(), part.positions.size());
    ASSERT_EQ(part.colorSets[0].size(), part.positions.size());
    // The primitive without UVs or colours reads zero and white.
    for (std::size_t v = 0; v < part.positions.size(); ++v)
        if (part.positions[v][2] == 5.0f) {
            EXPECT_EQ(part.uvSets[0][v], (Float2{0, 0}));
            EXPECT_EQ(part.colorSets[0][v], (Float4{1, 1, 1, 1}));
        }
    EXPECT_LT(one.after.acmr, 0.75);
    // The same triangles either way, each corner with its own UV.
    EXPECT_EQ(DrawnTriangles(one), DrawnTriangles(split));
}

} // namespace
