// `zgu mesh` run as a user runs it, on inputs the tests generate: what it
// writes (read back byte by byte), what it reports, what it refuses, and the
// inputs that break its importer.

#include "ZguFixture.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <numeric>
#include <random>
#include <set>

namespace {

using namespace ZguTesting;
using Json = nlohmann::json;

// ---------------------------------------------------------------------------
// Reading back what zgu wrote
// ---------------------------------------------------------------------------

struct Gltf {
    Json json;
    std::string bin;

    Json const& Accessor(std::size_t index) const { return json["accessors"][index]; }

    template <typename T>
    std::vector<T> Read(std::size_t accessor) const
    {
        Json const& a = Accessor(accessor);
        Json const& view = json["bufferViews"][a["bufferView"].get<std::size_t>()];
        static std::map<std::string, std::size_t> const components = {
            {"SCALAR", 1}, {"VEC2", 2}, {"VEC3", 3}, {"VEC4", 4}, {"MAT4", 16}};
        std::size_t const count = a["count"].get<std::size_t>() * components.at(a["type"]);
        std::size_t const offset = view.value("byteOffset", std::size_t(0)) + a.value("byteOffset", std::size_t(0));
        std::vector<T> values(count);
        if (offset + count * sizeof(T) <= bin.size())
            std::memcpy(values.data(), bin.data() + offset, count * sizeof(T));
        else
            ADD_FAILURE() << "accessor " << accessor << " runs past the buffer";
        return values;
    }
    Json const& Primitives() const { return json["meshes"][0]["primitives"]; }
};

std::uint32_t Word(std::string const& bytes, std::size_t at)
{
    std::uint32_t value = 0;
    std::memcpy(&value, bytes.data() + at, 4);
    return value;
}

Gltf ReadGlb(fs::path const& path)
{
    std::string const file = Slurp(path);
    Gltf gltf;
    if (file.size() < 28 || file.compare(0, 4, "glTF") != 0 || Word(file, 4) != 2 || Word(file, 8) != file.size()) {
        ADD_FAILURE() << path << " is not a GLB file";
        return gltf;
    }
    std::uint32_t const jsonLength = Word(file, 12);
    EXPECT_EQ(file.compare(16, 4, "JSON"), 0);
    gltf.json = Json::parse(file.substr(20, jsonLength));
    std::size_t const binAt = 20 + jsonLength;
    EXPECT_EQ(file.compare(binAt + 4, 4, std::string("BIN\0", 4)), 0);
    gltf.bin = file.substr(binAt + 8, Word(file, binAt));
    return gltf;
}

Gltf ReadGltf(fs::path const& path)
{
    Gltf gltf;
    gltf.json = Json::parse(Slurp(path));
    gltf.bin = Slurp(path.parent_path() / gltf.json["buffers"][0]["uri"].get<std::string>());
    EXPECT_EQ(gltf.bin.size(), gltf.json["buffers"][0]["byteLength"].get<std::size_t>());
    return gltf;
}

// zgu's PLY, text or binary: float properties and uchar colours per vertex,
// a uchar-counted list of uint indices per face.
struct Ply {
    bool binary = false;
    std::vector<std::string> properties; // of a vertex
    std::vector<std::vector<double>> vertices;
    std::vector<std::uint32_t> indices;

    std::size_t Column(std::string const& name) const
    {
        return static_cast<std::size_t>(std::find(properties.begin(), properties.end(), name) - properties.begin());
    }
};

Ply ReadPly(fs::path const& path)
{
    std::string const file = Slurp(path);
    Ply ply;
    std::istringstream header(file);
    std::size_t vertexCount = 0;
    std::size_t faceCount = 0;
    std::vector<bool> isFloat;
    for (std::string line; std::getline(header, line) && line != "end_header";) {
        std::istringstream words(line);
        std::string word;
        words >> word;
        if (word == "format") {
            words >> word;
            ply.binary = word == "binary_little_endian";
        } else if (word == "element") {
            words >> word;
            (word == "vertex" ? vertexCount : faceCount) = 0;
            words >> (word == "vertex" ? vertexCount : faceCount);
        } else if (word == "property") {
            std::string type;
            std::string name;
            words >> type >> name;
            if (type != "list") {
                isFloat.push_back(type == "float");
                ply.properties.push_back(name);
            }
        }
    }
    std::size_t at = file.find("end_header\n") + 11;
    if (ply.binary) {
        for (std::size_t v = 0; v < vertexCount; ++v) {
            auto& values = ply.vertices.emplace_back();
            for (bool const f : isFloat) {
                if (f) {
                    float x = 0.0f;
                    std::memcpy(&x, file.data() + at, 4);
                    values.push_back(x);
                    at += 4;
                } else {
                    values.push_back(static_cast<unsigned char>(file[at++]));
                }
            }
        }
        for (std::size_t f = 0; f < faceCount; ++f) {
            EXPECT_EQ(file[at], 3);
            for (int k = 0; k < 3; ++k)
                ply.indices.push_back(Word(file, at + 1 + 4 * k));
            at += 13;
        }
        EXPECT_EQ(at, file.size()) << "bytes after the last face";
    } else {
        std::istringstream body(file.substr(at));
        for (std::size_t v = 0; v < vertexCount; ++v) {
            auto& values = ply.vertices.emplace_back(isFloat.size());
            for (double& x : values)
                body >> x;
        }
        for (std::size_t f = 0; f < faceCount; ++f) {
            std::uint32_t count = 0;
            body >> count;
            EXPECT_EQ(count, 3u);
            for (int k = 0; k < 3; ++k)
                body >> ply.indices.emplace_back();
        }
    }
    return ply;
}

double Length(double x, double y, double z)
{
    return std::sqrt(x * x + y * y + z * z);
}

// ---------------------------------------------------------------------------
// Inputs
// ---------------------------------------------------------------------------

std::string Base64(std::string const& bytes)
{
    static char const digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t chunk = static_cast<unsigned char>(bytes[i]) << 16;
        if (i + 1 < bytes.size())
            chunk |= static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (i + 2 < bytes.size())
            chunk |= static_cast<unsigned char>(bytes[i + 2]);
        out += digits[(chunk >> 18) & 63];
        out += digits[(chunk >> 12) & 63];
        out += i + 1 < bytes.size() ? digits[(chunk >> 6) & 63] : '=';
        out += i + 2 < bytes.size() ? digits[chunk & 63] : '=';
    }
    return out;
}

template <typename T>
void Append(std::string& buffer, std::vector<T> const& values)
{
    buffer.append(reinterpret_cast<char const*>(values.data()), values.size() * sizeof(T));
}

// A skinned, animated glTF with a camera: two primitives (two materials)
// of a quad each, meeting along x = 1 at about 11 degrees, both with two UV
// sets and a colour set; the first material's texture reads UV set 1.
void WriteRichGltf(fs::path const& path)
{
    std::vector<float> const positions = {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0,
                                          1, 0, 0, 2, 0, 0.2f, 2, 1, 0.2f, 1, 1, 0};
    std::vector<float> const uv0 = {0, 0, 1, 0, 1, 1, 0, 1, 0, 0, 0.5f, 0, 0.5f, 0.5f, 0, 0.5f};
    std::vector<float> const uv1 = {0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f, 0.8f,
                                    0.9f, 0.1f, 0.2f, 0.3f, 0.4f, 0.5f, 0.6f, 0.7f};
    std::vector<float> const colors = {1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1, 1, 0, 0, 1,
                                       0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    std::vector<std::uint8_t> const joints(32, 0);
    std::vector<float> const weights = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0,
                                        1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
    std::vector<std::uint16_t> const indices = {0, 1, 2, 0, 2, 3, 0, 1, 2, 0, 2, 3};
    std::vector<float> const times = {0, 1};
    std::vector<float> const moves = {0, 0, 0, 0, 0, 1};
    // Assimp 5.2 dereferences a skin's inverse bind matrices unconditionally.
    std::vector<float> const inverseBind = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    // Every accessor has a buffer view of its own, so none needs a stride.
    std::string buffer;
    Json bufferViews = Json::array();
    Json accessors = Json::array();
    auto const accessor = [&](auto const& values, std::size_t first, std::size_t count, int type, char const* shape,
                              std::size_t components) {
        std::size_t const bytes = count * components * sizeof(values[0]);
        bufferViews.push_back({{"buffer", 0}, {"byteOffset", buffer.size()}, {"byteLength", bytes}});
        buffer.append(reinterpret_cast<char const*>(values.data() + first * components), bytes);
        buffer.resize((buffer.size() + 3) & ~std::size_t(3), '\0');
        accessors.push_back({{"bufferView", bufferViews.size() - 1}, {"componentType", type}, {"count", count},
                             {"type", shape}});
    };
    for (std::size_t half = 0; half < 2; ++half) {
        accessor(positions, 4 * half, 4, 5126, "VEC3", 3);
        accessors.back()["min"] = half == 0 ? Json{0, 0, 0} : Json{1, 0, 0};
        accessors.back()["max"] = half == 0 ? Json{1, 1, 0} : Json{2, 1, 0.2f};
        accessor(uv0, 4 * half, 4, 5126, "VEC2", 2);
        accessor(uv1, 4 * half, 4, 5126, "VEC2", 2);
        accessor(colors, 4 * half, 4, 5126, "VEC4", 4);
        accessor(joints, 4 * half, 4, 5121, "VEC4", 4);
        accessor(weights, 4 * half, 4, 5126, "VEC4", 4);
        accessor(indices, 6 * half, 6, 5123, "SCALAR", 1);
    }
    accessor(times, 0, 2, 5126, "SCALAR", 1);
    accessors.back()["min"] = {0};
    accessors.back()["max"] = {1};
    accessor(moves, 0, 2, 5126, "VEC3", 3);
    accessor(inverseBind, 0, 1, 5126, "MAT4", 16);
    Json gltf;
    gltf["asset"] = {{"version", "2.0"}};
    gltf["bufferViews"] = bufferViews;
    gltf["accessors"] = accessors;
    gltf["buffers"] = {{{"byteLength", buffer.size()},
                        {"uri", "data:application/octet-stream;base64," + Base64(buffer)}}};
    Json primitives = Json::array();
    for (std::size_t half = 0; half < 2; ++half) {
        std::size_t const a = 7 * half;
        primitives.push_back({{"attributes",
                               {{"POSITION", a}, {"TEXCOORD_0", a + 1}, {"TEXCOORD_1", a + 2}, {"COLOR_0", a + 3},
                                {"JOINTS_0", a + 4}, {"WEIGHTS_0", a + 5}}},
                              {"indices", a + 6},
                              {"material", half}});
    }
    gltf["meshes"] = {{{"primitives", primitives}}};
    gltf["materials"] = {{{"name", "Red"},
                          {"pbrMetallicRoughness",
                           {{"baseColorFactor", {1, 0, 0, 1}},
                            {"baseColorTexture", {{"index", 0}, {"texCoord", 1}}},
                            {"metallicFactor", 0.25},
                            {"roughnessFactor", 0.75}}}},
                         {{"name", "Green"}, {"pbrMetallicRoughness", {{"baseColorFactor", {0, 1, 0, 1}}}}}};
    gltf["textures"] = {{{"source", 0}}};
    gltf["images"] = {{{"uri", "albedo.png"}}};
    gltf["skins"] = {{{"joints", {1}}, {"inverseBindMatrices", 16}}};
    gltf["cameras"] = {{{"type", "perspective"}, {"perspective", {{"yfov", 0.8}, {"znear", 0.1}}}}};
    gltf["nodes"] = {{{"mesh", 0}, {"skin", 0}}, {{"name", "joint"}}, {{"camera", 0}, {"name", "eye"}}};
    gltf["scenes"] = {{{"nodes", {0, 1, 2}}}};
    gltf["scene"] = 0;
    gltf["animations"] = {{{"samplers", {{{"input", 14}, {"output", 15}}}},
                           {"channels", {{{"sampler", 0}, {"target", {{"node", 1}, {"path", "translation"}}}}}}}};
    std::ofstream(path) << gltf.dump(1);
}

void WritePng(fs::path const& path, int size)
{
    fs::create_directories(path.parent_path());
    std::vector<unsigned char> rgba(std::size_t(size) * size * 4, 200);
    ASSERT_NE(stbi_write_png(path.c_str(), size, size, 4, rgba.data(), size * 4), 0);
}

// A height field of n x n vertices, vertices and triangles in random order.
std::string ShuffledHeightFieldObj(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::vector<int> number(std::size_t(n) * n);
    std::iota(number.begin(), number.end(), 1);
    std::shuffle(number.begin(), number.end(), rng);
    std::vector<std::string> vertices(number.size());
    for (int y = 0; y < n; ++y)
        for (int x = 0; x < n; ++x)
            vertices[number[y * n + x] - 1] = "v " + std::to_string(x) + ' ' + std::to_string(y) + ' ' +
                                              std::to_string(3.0 * std::sin(0.05 * x) * std::cos(0.04 * y)) + '\n';
    std::vector<std::string> faces;
    for (int y = 0; y + 1 < n; ++y)
        for (int x = 0; x + 1 < n; ++x) {
            int const a = number[y * n + x], b = number[y * n + x + 1];
            int const c = number[(y + 1) * n + x], d = number[(y + 1) * n + x + 1];
            faces.push_back("f " + std::to_string(a) + ' ' + std::to_string(b) + ' ' + std::to_string(d) + '\n');
            faces.push_back("f " + std::to_string(a) + ' ' + std::to_string(d) + ' ' + std::to_string(c) + '\n');
        }
    std::shuffle(faces.begin(), faces.end(), rng);
    std::string obj;
    for (std::string const& line : vertices)
        obj += line;
    for (std::string const& line : faces)
        obj += line;
    return obj;
}

bool SanitizerBuild()
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

// ---------------------------------------------------------------------------
// The whole asset
// ---------------------------------------------------------------------------

TEST_F(ZguTest, MeshCarriesMaterialsUvSetsAndColoursAndNamesWhatItDrops)
{
    WriteRichGltf(Path("rich.gltf"));
    WritePng(Path("albedo.png"), 4);
    Result const result = Run("mesh rich.gltf -o out/rich.glb --json");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    Json const report = Json::parse(result.out);
    EXPECT_EQ(report["schema_version"], 1);
    EXPECT_EQ(report["materials"], 2);
    EXPECT_EQ(report["uv_sets"], 2);
    EXPECT_EQ(report["color_sets"], 1);
    EXPECT_EQ(report["triangles_out"], 4);
    // Skins, animations and cameras are not carried, and say so.
    EXPECT_EQ(report["dropped"]["animations"], 1);
    EXPECT_EQ(report["dropped"]["skinned_meshes"], 2); // Assimp makes a mesh of each primitive
    EXPECT_EQ(report["dropped"]["cameras"], 1);
    EXPECT_EQ(CountLines(result.err, "zgu: warning: "), 1u) << result.err;
    for (char const* name : {"animations 1", "skinned_meshes 2", "cameras 1"})
        EXPECT_NE(result.err.find(name), std::string::npos) << result.err;

    Gltf const glb = ReadGlb(Path("out/rich.glb"));
    Json const& primitives = glb.Primitives();
    ASSERT_EQ(primitives.size(), 2u);
    std::set<std::string> names;
    std::map<std::string, std::vector<float>> uv1ByMaterial;
    std::map<float, std::vector<std::array<float, 3>>> normalsAtSeam; // by y, from both primitives
    for (Json const& primitive : primitives) {
        Json const& material = glb.json["materials"][primitive["material"].get<std::size_t>()];
        std::string const name = material["name"];
        names.insert(name);
        Json const& attributes = primitive["attributes"];
        for (char const* attribute : {"POSITION", "NORMAL", "TEXCOORD_0", "TEXCOORD_1", "COLOR_0"})
            EXPECT_TRUE(attributes.contains(attribute)) << name << " lacks " << attribute;
        EXPECT_EQ(glb.Accessor(primitive["indices"])["componentType"], 5123) << "16-bit indices";
        std::vector<float> const colors = glb.Read<float>(attributes["COLOR_0"]);
        for (std::size_t v = 0; v < colors.size(); v += 4)
            EXPECT_EQ(colors[v + (name == "Red" ? 0 : 1)], 1.0f) << name << " lost its vertex colours";
        uv1ByMaterial[name] = glb.Read<float>(attributes["TEXCOORD_1"]);
        std::vector<float> const positions = glb.Read<float>(attributes["POSITION"]);
        std::vector<float> const normals = glb.Read<float>(attributes["NORMAL"]);
        for (std::size_t v = 0; 3 * v < positions.size(); ++v)
            if (positions[3 * v] == 1.0f)
                normalsAtSeam[positions[3 * v + 1]].push_back({normals[3 * v], normals[3 * v + 1], normals[3 * v + 2]});
    }
    EXPECT_EQ(names, (std::set<std::string>{"Red", "Green"}));
    // UVs read back as written: glTF's flip undone on import and redone on export.
    std::vector<float> redUv1 = uv1ByMaterial["Red"];
    std::vector<std::pair<float, float>> pairs;
    for (std::size_t i = 0; i < redUv1.size(); i += 2)
        pairs.emplace_back(redUv1[i], redUv1[i + 1]);
    std::sort(pairs.begin(), pairs.end());
    std::vector<std::pair<float, float>> const expected = {{0.1f, 0.2f}, {0.3f, 0.4f}, {0.5f, 0.6f}, {0.7f, 0.8f}};
    ASSERT_EQ(pairs.size(), expected.size());
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        EXPECT_NEAR(pairs[i].first, expected[i].first, 1e-6);
        EXPECT_NEAR(pairs[i].second, expected[i].second, 1e-6);
    }
    // The two materials' quads meet at 11 degrees, within the crease: one
    // surface, so both sides of the seam share a normal, tilted off +z.
    ASSERT_EQ(normalsAtSeam.size(), 2u);
    for (auto const& [y, normals] : normalsAtSeam) {
        ASSERT_EQ(normals.size(), 2u) << "y = " << y;
        EXPECT_EQ(normals[0], normals[1]) << "a shading seam along the material border at y = " << y;
        EXPECT_LT(normals[0][2], 0.9999f);
    }

    Json const& red = glb.json["materials"][glb.json["materials"][0]["name"] == "Red" ? 0 : 1];
    EXPECT_EQ(red["pbrMetallicRoughness"]["metallicFactor"], 0.25);
    Json const& texture = red["pbrMetallicRoughness"]["baseColorTexture"];
    EXPECT_EQ(texture["texCoord"], 1);
    std::size_t const image = glb.json["textures"][texture["index"].get<std::size_t>()]["source"];
    // Relative to the output, which sits a folder below the texture.
    EXPECT_EQ(glb.json["images"][image]["uri"], "../albedo.png");
}

TEST_F(ZguTest, MeshObjKeepsGroupsMaterialsAndTexturesInItsSideFiles)
{
    // Two materials; the first quad has a UV seam along its diagonal (same
    // positions, different UVs), on a flat surface.
    Write("models/box.mtl", "newmtl Wood\nKd 0.5 0.25 0.125\nmap_Kd tex/wood.png\n\nnewmtl Metal\nKd 0.7 0.7 0.7\n");
    WritePng(Path("models/tex/wood.png"), 2);
    Write("models/box.obj", "mtllib box.mtl\n"
                            "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 2 0 0\nv 2 1 0\n"
                            "vt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nvt 0.5 0.5\nvt 0.25 0.25\n"
                            "g wood\nusemtl Wood\nf 1/1 2/2 3/3\nf 1/6 3/5 4/4\n"
                            "g metal\nusemtl Metal\nf 2/1 5/2 6/3\nf 2/1 6/3 3/4\n");
    Result const result = Run("mesh models --out-dir ready/deeper --to obj --report -");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    Json const entry = Json::parse(result.out)["files"][0];
    std::vector<std::string> outputs = entry["outputs"];
    EXPECT_EQ(outputs, (std::vector<std::string>{"ready/deeper/box.mtl", "ready/deeper/box.obj"}));
    // 4 positions in the first group, 2 of them twice for the seam; 4 in the second.
    EXPECT_EQ(entry["result"]["vertices_out"], 10);
    EXPECT_EQ(entry["result"]["submeshes"], 2);

    std::string const obj = Slurp(Path("ready/deeper/box.obj"));
    EXPECT_EQ(CountLines(obj, "v "), 10u);
    EXPECT_EQ(CountLines(obj, "vt "), 10u);
    EXPECT_EQ(CountLines(obj, "g "), 2u);
    EXPECT_EQ(CountLines(obj, "usemtl "), 2u);
    EXPECT_NE(obj.find("mtllib box.mtl"), std::string::npos);
    std::string const mtl = Slurp(Path("ready/deeper/box.mtl"));
    EXPECT_NE(mtl.find("newmtl Wood"), std::string::npos) << mtl;
    EXPECT_NE(mtl.find("newmtl Metal"), std::string::npos) << mtl;
    EXPECT_NE(mtl.find("Kd 0.5 0.25 0.125"), std::string::npos) << mtl;
    auto const map = mtl.find("map_Kd ");
    ASSERT_NE(map, std::string::npos) << mtl;
    std::string const texture = mtl.substr(map + 7, mtl.find('\n', map) - map - 7);
    EXPECT_TRUE(fs::is_regular_file(Path("ready/deeper") / texture)) << texture << " does not lead to the texture";

    // The same as glTF: the buffer beside it, the texture found from there too.
    Result const gltf = Run("mesh models/box.obj -o ready/box.gltf");
    ASSERT_EQ(gltf.exitCode, 0) << gltf.err;
    Gltf const read = ReadGltf(Path("ready/box.gltf"));
    std::string const uri = read.json["images"][0]["uri"];
    EXPECT_TRUE(fs::is_regular_file(Path("ready") / uri)) << uri;
    EXPECT_EQ(read.Primitives().size(), 2u);
}

TEST_F(ZguTest, MeshRemovesDegenerateTrianglesSoEveryNormalIsAUnitVector)
{
    // A cube, plus triangles with no area: a repeated index, two corners at
    // one position under different indices, three corners on a line.
    WriteCube("cube.obj");
    std::ofstream(Path("cube.obj"), std::ios::app) << "v 0 0 0\nv 2 0 0\n"
                                                      "f 1 1 2\nf 1 9 2\nf 1 2 10\n";
    for (char const* crease : {"30", "0", "180"}) {
        Result const result = Run(std::string("mesh cube.obj -o cube.glb --force --json --crease ") + crease);
        ASSERT_EQ(result.exitCode, 0) << result.err;
        Json const report = Json::parse(result.out);
        EXPECT_EQ(report["triangles"], 15);
        EXPECT_EQ(report["degenerate_triangles"], 3);
        EXPECT_EQ(report["triangles_out"], 12);
        // 0 is flat shading: a vertex per face corner, like 30 on a cube.
        EXPECT_EQ(report["vertices_out"], std::string(crease) == "180" ? 8 : 24) << "crease " << crease;
        Gltf const glb = ReadGlb(Path("cube.glb"));
        std::vector<float> const normals = glb.Read<float>(glb.Primitives()[0]["attributes"]["NORMAL"]);
        ASSERT_EQ(normals.size(), 3 * report["vertices_out"].get<std::size_t>());
        for (std::size_t i = 0; i < normals.size(); i += 3)
            EXPECT_NEAR(Length(normals[i], normals[i + 1], normals[i + 2]), 1.0, 1e-6)
                << "crease " << crease << ", vertex " << i / 3;
    }

    Write("flat.obj", "v 0 0 0\nv 1 0 0\nv 2 0 0\nf 1 2 3\nf 1 1 2\n");
    Result const flat = Run("mesh flat.obj");
    EXPECT_EQ(flat.exitCode, 1);
    EXPECT_NE(flat.err.find("'flat.obj': every triangle is degenerate"), std::string::npos) << flat.err;
}

TEST_F(ZguTest, MeshGlbIsReadyFor16BitIndexBuffersAndPlySaysItIsNot)
{
    // Faces in random order: cutting the file's order into 16-bit submeshes
    // would store most vertices in both halves and leave the cache cold.
    constexpr int n = 300;
    Write("field.obj", ShuffledHeightFieldObj(n, 300));
    Result const result = Run("mesh field.obj -o field.glb --json");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    Json const report = Json::parse(result.out);
    EXPECT_EQ(report["triangles"], 2 * (n - 1) * (n - 1));
    ASSERT_EQ(report["vertices_remapped"], n * n); // smooth: no vertex splits
    ASSERT_GE(report["submeshes"], 2);
    EXPECT_EQ(report["index_bits"], 16);
    EXPECT_GT(report["acmr_before"].get<double>(), 2.5);
    EXPECT_LE(report["acmr_after"].get<double>(), 0.75);
    EXPECT_NE(result.err.find("into 16-bit submeshes"), std::string::npos) << result.err;

    Gltf const glb = ReadGlb(Path("field.glb"));
    Json const& primitives = glb.Primitives();
    ASSERT_EQ(primitives.size(), report["submeshes"].get<std::size_t>());
    std::size_t vertices = 0;
    std::size_t triangles = 0;
    for (std::size_t p = 0; p < primitives.size(); ++p) {
        std::size_t const count = glb.Accessor(primitives[p]["attributes"]["POSITION"])["count"];
        EXPECT_LE(count, 65535u);
        EXPECT_EQ(report["submesh_vertices"][p], count);
        Json const& indexAccessor = glb.Accessor(primitives[p]["indices"]);
        EXPECT_EQ(indexAccessor["componentType"], 5123);
        std::vector<std::uint16_t> const indices = glb.Read<std::uint16_t>(primitives[p]["indices"]);
        EXPECT_LT(*std::max_element(indices.begin(), indices.end()), count);
        vertices += count;
        triangles += indices.size() / 3;
    }
    EXPECT_EQ(report["vertices_out"], vertices);
    EXPECT_EQ(triangles, std::size_t(2 * (n - 1) * (n - 1)));
    EXPECT_GT(vertices, std::size_t(n * n)); // the borders between submeshes belong to both
    EXPECT_LE(double(vertices) / double(n * n), 1.05);

    // PLY holds one list: no split, 32-bit indices, said on stderr, and the
    // counts are the file's.
    Result const ply = Run("mesh field.obj -o field.ply --json");
    ASSERT_EQ(ply.exitCode, 0) << ply.err;
    Json const plyReport = Json::parse(ply.out);
    EXPECT_EQ(plyReport["submeshes"], 1);
    EXPECT_EQ(plyReport["index_bits"], 32);
    EXPECT_EQ(plyReport["vertices_out"], n * n);
    EXPECT_NE(ply.err.find("32-bit indices"), std::string::npos) << ply.err;
    Ply const read = ReadPly(Path("field.ply"));
    EXPECT_EQ(read.vertices.size(), std::size_t(n * n));
    EXPECT_EQ(read.indices.size(), std::size_t(6 * (n - 1) * (n - 1)));
    EXPECT_LE(plyReport["acmr_after"].get<double>(), 0.75);
}

TEST_F(ZguTest, MeshPlyAndStlAreBinaryUnlessAskedForTextAndHoldOutwardNormals)
{
    WriteCube("cube.obj");
    Result const binary = Run("mesh cube.obj -o out.ply --crease 30");
    ASSERT_EQ(binary.exitCode, 0) << binary.err;
    Ply const ply = ReadPly(Path("out.ply"));
    EXPECT_TRUE(ply.binary);
    ASSERT_EQ(ply.vertices.size(), 24u); // three faces meet at 90 degrees at every corner
    std::size_t const nx = ply.Column("nx");
    ASSERT_LT(nx + 2, ply.properties.size());
    for (auto const& v : ply.vertices) {
        EXPECT_FLOAT_EQ(std::abs(v[nx]) + std::abs(v[nx + 1]) + std::abs(v[nx + 2]), 1.0f) << "not a face normal";
        for (int k = 0; k < 3; ++k)
            if (v[nx + k] != 0.0) {
                EXPECT_EQ(v[k], v[nx + k] > 0.0 ? 1.0 : 0.0) << "a normal facing inwards";
            }
    }

    Result const text = Run("mesh cube.obj -o text.ply --text");
    ASSERT_EQ(text.exitCode, 0) << text.err;
    Ply const textPly = ReadPly(Path("text.ply"));
    EXPECT_FALSE(textPly.binary);
    EXPECT_EQ(textPly.vertices, ply.vertices);
    EXPECT_EQ(textPly.indices, ply.indices);

    // Read back, normals dropped and positions joined: the same cube.
    Result const again = Run("mesh out.ply --json --crease 180 -o again.stl");
    ASSERT_EQ(again.exitCode, 0) << again.err;
    Json const report = Json::parse(again.out);
    EXPECT_EQ(report["vertices_in"], 8);
    EXPECT_EQ(report["vertices_remapped"], 8);
    EXPECT_EQ(report["vertices_out"], 36); // STL stores three corners per triangle
    EXPECT_EQ(report["index_bits"], nullptr);
    std::string const stl = Slurp(Path("again.stl"));
    ASSERT_GE(stl.size(), 84u);
    EXPECT_NE(stl.compare(0, 5, "solid"), 0) << "a binary STL header that readers take for text";
    EXPECT_EQ(Word(stl, 80), 12u);
    EXPECT_EQ(stl.size(), 84u + 12u * 50u);

    Result const stlText = Run("mesh cube.obj -o text.stl --text");
    ASSERT_EQ(stlText.exitCode, 0) << stlText.err;
    std::string const ascii = Slurp(Path("text.stl"));
    EXPECT_EQ(ascii.rfind("solid", 0), 0u);
    EXPECT_EQ(CountLines(ascii, "facet normal"), 12u);
}

// ---------------------------------------------------------------------------
// Inputs that break the importer
// ---------------------------------------------------------------------------

TEST_F(ZguTest, MeshInputsThatCrashHangOrExhaustTheImporterFailAloneWithOneLine)
{
    WriteCube("batch/good.obj");
    // Nested arrays past any stack: the JSON parser recurses until it overflows.
    Write("batch/deep.gltf", std::string(2000000, '['));
    // A truncated SMD: its parser never leaves the node list.
    Write("batch/hang.smd", "version 1\nnodes\n0 \"a\"");
    // A header promising 400 million vertices (4.8 GB) to a 60-byte file.
    // Sanitizer builds apply no memory limit, and would fill them.
    if (!SanitizerBuild())
        Write("batch/bomb.x", "xof 0303txt 0032\nMesh m {\n 400000000;\n 0.0;0.0;0.0;;\n}\n");
    // Counts an OFF file cannot hold: refused before the importer reserves them.
    Write("batch/lies.off", "OFF\n353535235358 6 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
    // A face promised and missing, which Assimp's triangulation asserts on.
    Write("batch/truncated.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n");
    // A RAW file whose node tree has a missing node (Assimp's pre-transform
    // step dereferenced it), and a scene with light and camera nodes (its
    // pre-transform step asserted on those).
    Write("batch/groups.raw", "first\n0 0 0 1 0 0 1 1 0 0 1 0\n0 0 1 1 0 1 1 1 1 0 1 1\n\n\n"
                              "second\n2 0 0 3 0 0 3 1 0 2 1 0");
    Write("batch/lamp.ogex", "Metric (key = \"distance\") {float {1.0}}\n"
                             "GeometryNode $node1 {Name {string {\"Triangle\"}} ObjectRef {ref {$geometry1}}}\n"
                             "LightNode $node2 {Name {string {\"Lamp\"}} ObjectRef {ref {$light1}}}\n"
                             "CameraNode $node3 {Name {string {\"Eye\"}} ObjectRef {ref {$camera1}}}\n"
                             "GeometryObject $geometry1 {Mesh (primitive = \"triangles\") {\n"
                             "VertexArray (attrib = \"position\") {float[3] {{0.0, 0.0, 0.0}, {1.0, 0.0, 0.0}, "
                             "{0.0, 1.0, 0.0}}}\n"
                             "IndexArray {unsigned_int32[3] {{0, 1, 2}}}}}\n"
                             "LightObject $light1 (type = \"point\") {Color (attrib = \"light\") {float[3] "
                             "{{1.0, 1.0, 1.0}}}}\n"
                             "CameraObject $camera1 {Param (attrib = \"fov\") {float {0.85}}}\n");

    Result const result = Run("mesh batch --out-dir out --to glb -j 2 --time-limit 3 --memory-limit 1024 --report -");
    EXPECT_EQ(result.exitCode, 1) << result.err;
    Json const report = Json::parse(result.out);
    std::map<std::string, Json> byName;
    for (Json const& file : report["files"])
        byName[fs::path(file["input"].get<std::string>()).filename().string()] = file;
    std::size_t const files = SanitizerBuild() ? 7 : 8;
    ASSERT_EQ(byName.size(), files);
    auto const error = [&byName](char const* name) { return byName[name].value("error", std::string()); };

    EXPECT_EQ(byName["good.obj"]["status"], "ok");
    EXPECT_EQ(byName["groups.raw"]["status"], "ok") << error("groups.raw");
    EXPECT_EQ(byName["groups.raw"]["result"]["triangles_out"], 3);
    EXPECT_EQ(byName["lamp.ogex"]["status"], "ok") << error("lamp.ogex");
    EXPECT_EQ(byName["lamp.ogex"]["result"]["dropped"]["cameras"], 1);

    std::string const crash = error("deep.gltf");
    EXPECT_NE(crash.find("importing 'batch/deep.gltf'"), std::string::npos) << crash;
    // Sanitizers catch the overflow themselves and end the child with a status.
    EXPECT_TRUE(crash.find("crashed (signal") != std::string::npos ||
                (SanitizerBuild() && crash.find("ended without a result") != std::string::npos))
        << crash;
    EXPECT_NE(error("hang.smd").find("took longer than 3 s and was stopped"), std::string::npos) << error("hang.smd");
    if (!SanitizerBuild()) {
        EXPECT_NE(error("bomb.x").find("ran out of memory (limit 1024 MiB)"), std::string::npos) << error("bomb.x");
    }
    EXPECT_NE(error("lies.off").find("declares 353535235358 vertices and 6 faces but holds only"), std::string::npos)
        << error("lies.off");
    EXPECT_NE(error("truncated.off").find("holds no triangles (it holds invalid_faces 1)"), std::string::npos)
        << error("truncated.off");

    // Every failure is one line on stderr, and nothing of a failed file is left.
    EXPECT_EQ(CountLines(result.err, "zgu: ["), files) << result.err;
    for (auto const& [name, file] : byName)
        if (file["status"] == "failed") {
            EXPECT_EQ(error(name.c_str()).find('\n'), std::string::npos);
            EXPECT_FALSE(fs::exists(Path("out") / fs::path(name).replace_extension(".glb"))) << name;
        }
    EXPECT_TRUE(Leftovers(dir_).empty());
}

// ---------------------------------------------------------------------------
// Messages and files a user can trust
// ---------------------------------------------------------------------------

TEST_F(ZguTest, MeshUsageMistakesGetASpecificLineBeforeAnyWork)
{
    WriteCube("cube.obj");
    WriteCube("models/a.off.obj");
    Write("models/b.off", "OFF\n3 1 0\n0 0 0\n1 0 0\n0 1 0\n3 0 1 2\n");
    Write("notes.xyz1", "not a mesh\n");
    Write("afile", "");
    fs::create_directories(Path("folder"));
    struct Case {
        char const* arguments;
        char const* message;
    };
    Case const cases[] = {
        {"mesh", "IN"},
        {"mesh cube.obj --bogus", "--bogus"},
        {"mesh missing.obj", "'missing.obj': no such file"},
        {"mesh notes.xyz1", "unsupported mesh format '.xyz1'"},
        {"mesh cube.obj -o folder", "-o 'folder' is a folder; name the output file (.glb, .gltf, .obj, .ply or .stl)"},
        {"mesh cube.obj -o a", "-o 'a' has no extension; zgu mesh writes .glb, .gltf, .obj, .ply or .stl"},
        {"mesh cube.obj -o out.fbx", "cannot write 'out.fbx': zgu mesh writes .glb, .gltf, .obj, .ply or .stl"},
        {"mesh cube.obj -o afile/out.glb", "'afile' is a file, not a folder"},
        {"mesh cube.obj --to fbx", "--to fbx: zgu mesh writes"},
        {"mesh cube.obj -o x.glb --to ply", "asks for glb but --to asks for ply"},
        {"mesh cube.obj --crease abc", "--crease: 'abc' is not a number"},
        {"mesh cube.obj --crease nan", "--crease: 'nan' is not a finite number"},
        {"mesh cube.obj --crease 200", "--crease: '200' is not between 0 and 180"},
        {"mesh cube.obj --cache abc", "--cache: 'abc' is not a whole number"},
        {"mesh cube.obj --cache 1.5", "--cache: '1.5' is not a whole number"},
        {"mesh cube.obj --memory-limit nan", "--memory-limit: 'nan' is not a finite number"},
        {"mesh cube.obj -o x.glb --text", "--text applies to .ply and .stl, not to GLB"},
        {"mesh cube.obj --out-dir afile --to glb", "--out-dir 'afile' is a file, not a folder"},
        {"mesh folder -o x.glb", "'folder' is a folder; -o names one file's output"},
        {"mesh models --out-dir o", "'models/b.off' would be written as 'o/b.off', a format zgu mesh does not write"},
    };
    for (Case const& c : cases)
        ExpectUsageError(c.arguments, c.message);
    for (char const* never : {"x.glb", "o", "out.fbx", "a"})
        EXPECT_FALSE(fs::exists(Path(never))) << never;
    EXPECT_TRUE(fs::is_regular_file(Path("afile")));

    // A missing output folder is made.
    Result const made = Run("mesh cube.obj -o new/folder/cube.glb");
    EXPECT_EQ(made.exitCode, 0) << made.err;
    EXPECT_TRUE(fs::is_regular_file(Path("new/folder/cube.glb")));

    Write("points.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\np 1 2 3\n");
    Result const points = Run("mesh points.obj");
    EXPECT_EQ(points.exitCode, 1);
    EXPECT_NE(points.err.find("'points.obj' holds no triangles"), std::string::npos) << points.err;
}

TEST_F(ZguTest, MeshSideFilesAreCoveredByTheOverwriteCheck)
{
    WriteCube("cube.obj");
    Write("out.bin", "precious buffer\n");
    Write("out.mtl", "precious materials\n");
    Write("out.obj", "precious mesh\n");
    for (char const* output : {"out.gltf", "out.obj"}) {
        Result const refused = Run(std::string("mesh cube.obj -o ") + output);
        EXPECT_EQ(refused.exitCode, 1) << output;
        EXPECT_NE(refused.err.find("exists; pass --force"), std::string::npos) << refused.err;
    }
    EXPECT_FALSE(fs::exists(Path("out.gltf")));
    EXPECT_EQ(Slurp(Path("out.bin")), "precious buffer\n");
    EXPECT_EQ(Slurp(Path("out.mtl")), "precious materials\n");
    EXPECT_EQ(Slurp(Path("out.obj")), "precious mesh\n");

    Result const forced = Run("mesh cube.obj -o out.gltf --force");
    ASSERT_EQ(forced.exitCode, 0) << forced.err;
    EXPECT_EQ(ReadGltf(Path("out.gltf")).Primitives().size(), 1u);
    EXPECT_TRUE(Leftovers(dir_).empty());
}

TEST_F(ZguTest, MeshReportNamesMatchTheTableAndSurviveNamesThatAreNotUtf8)
{
    WriteCube("cube.obj");
    std::string const odd = std::string("cube-\xff\xfe.obj");
    WriteCube(odd);
    Result const json = Run("mesh '" + odd + "' -o odd.glb --json");
    ASSERT_EQ(json.exitCode, 0) << json.err;
    Json const report = Json::parse(json.out);
    EXPECT_EQ(report["input"], "cube-\xef\xbf\xbd\xef\xbf\xbd.obj");
    EXPECT_NE(json.err.find("is not valid UTF-8"), std::string::npos) << json.err;
    EXPECT_TRUE(fs::is_regular_file(Path("odd.glb")));

    Result const batch = Run("mesh cube.obj '" + odd + "' --report report.json");
    ASSERT_EQ(batch.exitCode, 0) << batch.err;
    EXPECT_EQ(Json::parse(Slurp(Path("report.json")))["files"].size(), 2u);

    // The table's rows are the report's names.
    Result const table = Run("mesh cube.obj");
    ASSERT_EQ(table.exitCode, 0) << table.err;
    for (char const* key : {"triangles", "degenerate_triangles", "triangles_out", "vertices_in", "vertices_remapped",
                            "vertices_out", "materials", "submeshes", "index_bits", "uv_sets", "color_sets",
                            "acmr_before", "acmr_after", "atvr_before", "atvr_after"}) {
        EXPECT_TRUE(report.contains(key)) << key;
        EXPECT_NE(table.out.find(std::string("\n") + key + " "), std::string::npos) << key << "\n" << table.out;
    }
    for (char const* stage : {"import", "normals", "reorder", "export"}) {
        EXPECT_TRUE(report["seconds"].contains(stage)) << stage;
        EXPECT_NE(table.out.find(std::string("seconds.") + stage), std::string::npos) << stage;
    }
}

TEST_F(ZguTest, MeshCtrlCDuringExportLeavesNoPartialOutput)
{
    Write("field.obj", ShuffledHeightFieldObj(400, 7));
    // The staging folder is made just before the writer starts.
    Interruption const interrupted = InterruptWhileStaging("mesh field.obj -o out/field.ply --text", false);
    if (interrupted.finishedFirst)
        GTEST_SKIP() << "zgu finished before it could be interrupted";
    ASSERT_TRUE(interrupted.signalled);
    EXPECT_EQ(interrupted.exitCode, 128 + SIGINT);
    EXPECT_TRUE(Leftovers(dir_).empty());
    EXPECT_FALSE(fs::exists(Path("out/field.ply")));

    // So a rerun has nothing in its way.
    Result const rerun = Run("mesh field.obj -o out/field.ply");
    EXPECT_EQ(rerun.exitCode, 0) << rerun.err;
}

} // namespace
