// `zgu image` as a user runs it: the chain's colours, the inputs it reads,
// the names it writes, KTX2 checked by an independent reader.

#include "ZguFixture.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <random>

namespace {

using namespace ZguTesting;

std::vector<unsigned char> Noise(int width, int height, unsigned seed, int minAlpha = 255)
{
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> byte(0, 255);
    std::uniform_int_distribution<int> alpha(minAlpha, 255);
    std::vector<unsigned char> rgba;
    for (int i = 0; i < width * height; ++i)
        rgba.insert(rgba.end(), {static_cast<unsigned char>(byte(random)), static_cast<unsigned char>(byte(random)),
                                 static_cast<unsigned char>(byte(random)), static_cast<unsigned char>(alpha(random))});
    return rgba;
}

void WritePng8(fs::path const& path, int width, int height, std::vector<unsigned char> const& rgba)
{
    fs::create_directories(path.parent_path());
    ASSERT_NE(stbi_write_png(path.c_str(), width, height, 4, rgba.data(), width * 4), 0) << path;
}

// stb writes no 16-bit PNG.
void WritePng16(fs::path const& path, int width, int height, std::vector<std::uint16_t> const& rgba)
{
    std::string raw;
    for (int y = 0; y < height; ++y) {
        raw.push_back('\0');
        for (int i = 0; i < width * 4; ++i) {
            std::uint16_t const v = rgba[std::size_t(y) * width * 4 + i];
            raw.push_back(static_cast<char>(v >> 8));
            raw.push_back(static_cast<char>(v & 0xFF));
        }
    }
    std::ofstream(path, std::ios::binary) << PngFile(std::uint32_t(width), std::uint32_t(height), 16, raw);
}

std::vector<std::uint16_t> Load16(fs::path const& path, int& width, int& height)
{
    int channels = 0;
    std::uint16_t* data = stbi_load_16(path.c_str(), &width, &height, &channels, 4);
    std::vector<std::uint16_t> samples;
    if (data != nullptr)
        samples.assign(data, data + std::size_t(width) * height * 4);
    stbi_image_free(data);
    return samples;
}

std::vector<float> LoadFloat(fs::path const& path, int& width, int& height)
{
    int channels = 0;
    float* data = stbi_loadf(path.c_str(), &width, &height, &channels, 4);
    std::vector<float> samples;
    if (data != nullptr)
        samples.assign(data, data + std::size_t(width) * height * 4);
    stbi_image_free(data);
    return samples;
}

double Srgb(double linear)
{
    return linear <= 0.0031308 ? linear * 12.92 : 1.055 * std::pow(linear, 1.0 / 2.4) - 0.055;
}

float HalfToFloat(std::uint16_t h)
{
    int const exponent = (h >> 10) & 0x1F;
    double const mantissa = h & 0x3FF;
    double const magnitude = exponent == 0 ? std::ldexp(mantissa, -24) : std::ldexp(1024 + mantissa, exponent - 25);
    return static_cast<float>((h & 0x8000) ? -magnitude : magnitude);
}

TEST_F(ZguTest, ImageChainsAverageInLinearLightOverEveryTexel)
{
    // Checkerboards: in linear light black and white average to 188 in sRGB.
    for (int size : {2, 64}) {
        std::vector<unsigned char> rgba;
        for (int i = 0; i < size * size; ++i) {
            unsigned char const v = (i % size + i / size) % 2 == 0 ? 0 : 255;
            rgba.insert(rgba.end(), {v, v, v, 255});
        }
        std::string const name = "checker" + std::to_string(size);
        WritePng8(Path(name + ".png"), size, size, rgba);
        Result const result = Run("image " + name + ".png");
        ASSERT_EQ(result.exitCode, 0) << result.err;
        Png const last = LoadPng(Path(name + (size == 2 ? "-mip01.png" : "-mip06.png")));
        ASSERT_EQ(last.width, 1);
        EXPECT_NEAR(last.At(0, 0)[0], 188, 1) << name;
    }

    // 3 x 1: red runs 0, 0, 255 and green 0, 255, 0; over three texels both
    // end at a third of full light, whichever texel is lit.
    WritePng8(Path("three.png"), 3, 1, {0, 0, 0, 255, 0, 255, 0, 255, 255, 0, 0, 255});
    Result const three = Run("image three.png --report -");
    ASSERT_EQ(three.exitCode, 0) << three.err;
    Png const one = LoadPng(Path("three-mip01.png"));
    EXPECT_NEAR(one.At(0, 0)[0], std::lround(Srgb(1.0 / 3.0) * 255.0), 1);
    EXPECT_EQ(one.At(0, 0)[0], one.At(0, 0)[1]);
    EXPECT_EQ(nlohmann::json::parse(three.out)["files"][0]["result"]["coding"], "srgb");

    // A red disc on transparent green: no green bleeds into visible texels.
    std::vector<unsigned char> disc;
    for (int y = 0; y < 32; ++y)
        for (int x = 0; x < 32; ++x) {
            bool const inside = (x - 15.5) * (x - 15.5) + (y - 15.5) * (y - 15.5) < 100.0;
            disc.insert(disc.end(), {static_cast<unsigned char>(inside ? 255 : 0),
                                     static_cast<unsigned char>(inside ? 0 : 255), 0,
                                     static_cast<unsigned char>(inside ? 255 : 0)});
        }
    WritePng8(Path("disc.png"), 32, 32, disc);
    ASSERT_EQ(Run("image disc.png").exitCode, 0);
    for (int level = 1; level <= 5; ++level) {
        Png const mip = LoadPng(Path("disc-mip0" + std::to_string(level) + ".png"));
        for (int i = 0; i < mip.width * mip.height; ++i) {
            unsigned char const* texel = &mip.rgba[std::size_t(i) * 4];
            if (texel[3] != 0) {
                EXPECT_EQ(texel[0], 255) << "level " << level << " texel " << i;
                EXPECT_EQ(texel[1], 0) << "level " << level << " texel " << i;
            }
        }
    }
    // As a channel of its own, alpha leaves the colours to mix.
    ASSERT_EQ(Run("image disc.png -o separate --separate-alpha").exitCode, 0);
    EXPECT_GT(LoadPng(Path("separate-mip05.png")).At(0, 0)[1], 100);
}

TEST_F(ZguTest, ImageNormalMapsStayUnitLengthOnEveryLevel)
{
    std::mt19937 random(3);
    std::normal_distribution<double> gauss;
    std::vector<unsigned char> rgba;
    for (int i = 0; i < 45 * 21; ++i) {
        double n[3] = {gauss(random), gauss(random), std::abs(gauss(random)) + 0.2};
        double const length = std::sqrt(n[0] * n[0] + n[1] * n[1] + n[2] * n[2]);
        for (double v : n)
            rgba.push_back(static_cast<unsigned char>(std::lround((v / length + 1.0) * 127.5)));
        rgba.push_back(255);
    }
    WritePng8(Path("normals.png"), 45, 21, rgba);
    Result const result = Run("image normals.png --normal-map");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    for (int level = 0; level < 6; ++level) {
        Png const mip = LoadPng(Path("normals-mip0" + std::to_string(level) + ".png"));
        ASSERT_GT(mip.width, 0) << level;
        for (int i = 0; i < mip.width * mip.height; ++i) {
            double length = 0.0;
            for (int c = 0; c < 3; ++c)
                length += std::pow(mip.rgba[std::size_t(i) * 4 + c] / 255.0 * 2.0 - 1.0, 2.0);
            ASSERT_NEAR(std::sqrt(length), 1.0, 1.0 / 127.0) << "level " << level << " texel " << i;
        }
    }
}

TEST_F(ZguTest, ImageReadsWhatStbReadsAndKeepsPrecision)
{
    std::vector<unsigned char> const rgba = Noise(20, 12, 11);
    std::vector<unsigned char> opaque = rgba;
    for (std::size_t i = 3; i < opaque.size(); i += 4)
        opaque[i] = 255;
    ASSERT_NE(stbi_write_tga(Path("in.tga").c_str(), 20, 12, 4, rgba.data()), 0);
    ASSERT_NE(stbi_write_bmp(Path("in.bmp").c_str(), 20, 12, 4, opaque.data()), 0);
    ASSERT_NE(stbi_write_jpg(Path("in.jpg").c_str(), 20, 12, 4, opaque.data(), 90), 0);

    // 8-bit inputs: level 0 is the decoded input, byte for byte.
    for (std::string const name : {"in.tga", "in.bmp", "in.jpg"}) {
        Result const result = Run("image " + name + " -o out/" + name + " --report -");
        ASSERT_EQ(result.exitCode, 0) << name << ": " << result.err;
        auto const report = nlohmann::json::parse(result.out)["files"][0]["result"];
        EXPECT_EQ(report["container_in"], name == "in.jpg" ? "jpeg" : name.substr(3)) << name;
        EXPECT_EQ(report["levels"].size(), 5u);
        Png const level0 = LoadPng(Path("out/" + name + "-mip00.png"));
        EXPECT_EQ(level0.rgba, LoadPng(Path(name)).rgba) << name;
        EXPECT_EQ(LoadPng(Path("out/" + name + "-mip04.png")).width, 1) << name;
    }

    // 16-bit input: a float chain and 16-bit levels; level 0 exact.
    std::vector<std::uint16_t> wide;
    for (std::size_t i = 0; i < rgba.size(); ++i)
        wide.push_back(static_cast<std::uint16_t>(rgba[i] * 257 + (i * 37) % 200));
    WritePng16(Path("in16.png"), 20, 12, wide);
    Result const sixteen = Run("image in16.png --report -");
    ASSERT_EQ(sixteen.exitCode, 0) << sixteen.err;
    EXPECT_EQ(nlohmann::json::parse(sixteen.out)["files"][0]["result"]["format"], "rgba32f");
    int width = 0;
    int height = 0;
    EXPECT_EQ(Load16(Path("in16-mip00.png"), width, height), wide);
    EXPECT_EQ(Load16(Path("in16-mip02.png"), width, height).size(), 5u * 3u * 4u);

    // HDR input: values above 1 survive in Radiance levels.
    std::vector<float> light;
    for (int i = 0; i < 16 * 8; ++i)
        light.insert(light.end(), {0.5f + float(i % 16), 0.25f * float(i / 16), 3.0f, 1.0f});
    ASSERT_NE(stbi_write_hdr(Path("sky.hdr").c_str(), 16, 8, 4, light.data()), 0);
    Result const hdr = Run("image sky.hdr");
    ASSERT_EQ(hdr.exitCode, 0) << hdr.err;
    std::vector<float> const source = LoadFloat(Path("sky.hdr"), width, height);
    std::vector<float> const level0 = LoadFloat(Path("sky-mip00.hdr"), width, height);
    ASSERT_EQ(level0.size(), source.size());
    for (std::size_t i = 0; i < source.size(); ++i)
        EXPECT_NEAR(level0[i], source[i], source[i] * 0.01f + 1e-3f) << i;
    std::vector<float> const last = LoadFloat(Path("sky-mip04.hdr"), width, height);
    ASSERT_EQ(last.size(), 4u);
    EXPECT_NEAR(last[0], 8.0f, 0.1f); // the mean of 0.5 .. 15.5
}

struct KtxDump {
    nlohmann::json info;
    std::vector<std::string> levels;
};

// What ktx-parse, installed by scripts/test into build/npm, makes of a file.
bool DumpKtx2(fs::path const& file, fs::path const& outDir, KtxDump& dump)
{
    fs::create_directories(outDir);
    std::string const command = "node '" ZGU_KTX2_DUMP_SCRIPT "' '" ZGU_KTX_PARSE_MODULE "' '" + file.string() +
                                "' '" + outDir.string() + "' 2>'" + (outDir / "node.err").string() + "'";
    if (std::system(command.c_str()) != 0) {
        ADD_FAILURE() << "ktx-parse could not read " << file << ": " << Slurp(outDir / "node.err");
        return false;
    }
    dump.info = nlohmann::json::parse(Slurp(outDir / "info.json"));
    for (std::size_t i = 0; i < dump.info["levels"].size(); ++i)
        dump.levels.push_back(Slurp(outDir / ("level" + std::to_string(i) + ".bin")));
    return true;
}

TEST_F(ZguTest, ImageKtx2IsReadByAnIndependentParser)
{
    if (!fs::exists(ZGU_KTX_PARSE_MODULE)) {
        if (RequiredByEnvironment("ZGU_REQUIRE_KTX_PARSE"))
            FAIL() << "ZGU_REQUIRE_KTX_PARSE=1 but " << ZGU_KTX_PARSE_MODULE << " is missing";
        GTEST_SKIP() << "ktx-parse is not installed (scripts/test installs it into build/npm)";
    }
    WritePng8(Path("in.png"), 13, 7, Noise(13, 7, 5, 1));
    struct Case {
        std::string arguments;
        std::string file;
        unsigned vkFormat;
        unsigned texel;
        unsigned transfer; // 2: sRGB, 1: linear
    };
    Case const cases[] = {
        {"", "c8.ktx2", 43, 4, 2},
        {"--linear", "l8.ktx2", 37, 4, 1},
        {"--format rgba16f", "h.ktx2", 97, 8, 1},
        {"--format rgba32f", "f.ktx2", 109, 16, 1},
    };
    unsigned const sizes[][2] = {{13, 7}, {6, 3}, {3, 1}, {1, 1}};
    std::vector<KtxDump> dumps;
    for (Case const& c : cases) {
        Result const result = Run("image in.png -o " + c.file + " " + c.arguments);
        ASSERT_EQ(result.exitCode, 0) << c.file << ": " << result.err;
        KtxDump dump;
        ASSERT_TRUE(DumpKtx2(Path(c.file), Path("dump-" + c.file), dump));
        auto const& info = dump.info;
        EXPECT_EQ(info["vkFormat"], c.vkFormat) << c.file;
        EXPECT_EQ(info["typeSize"], c.texel / 4) << c.file;
        EXPECT_EQ(info["pixelWidth"], 13);
        EXPECT_EQ(info["pixelHeight"], 7);
        EXPECT_EQ(info["pixelDepth"], 0);
        EXPECT_EQ(info["layerCount"], 0);
        EXPECT_EQ(info["faceCount"], 1);
        EXPECT_EQ(info["supercompressionScheme"], 0);
        EXPECT_EQ(info["keyValue"]["KTXorientation"], "rd");
        EXPECT_EQ(info["keyValue"]["KTXwriter"].get<std::string>().rfind("zgu ", 0), 0u);
        auto const& dfd = info["dataFormatDescriptor"][0];
        EXPECT_EQ(dfd["colorModel"], 1) << c.file;
        EXPECT_EQ(dfd["transferFunction"], c.transfer) << c.file;
        EXPECT_EQ(dfd["bytesPlane"][0], c.texel) << c.file;
        ASSERT_EQ(dfd["samples"].size(), 4u);
        // Alpha is channel 15; in an sRGB format it is flagged linear.
        EXPECT_EQ(dfd["samples"][3]["channelType"].get<unsigned>() & 0x1F, c.transfer == 2 ? 0x1Fu : 0x0Fu);
        EXPECT_EQ(dfd["samples"][3]["bitOffset"], 3 * c.texel * 2);
        ASSERT_EQ(info["levelCount"], 4) << c.file;
        ASSERT_EQ(dump.levels.size(), 4u);
        std::uint64_t previous = info["fileSize"];
        for (unsigned level = 0; level < 4; ++level) {
            EXPECT_EQ(dump.levels[level].size(), sizes[level][0] * sizes[level][1] * c.texel) << c.file << level;
            auto const& offset = info["levels"][level]["offset"];
            if (!offset.is_null()) {
                // Stored smallest first, each on lcm(texel size, 4).
                EXPECT_EQ(offset.get<std::uint64_t>() % std::max(c.texel, 4u), 0u) << c.file << " level " << level;
                EXPECT_LT(offset.get<std::uint64_t>(), previous) << c.file << " level " << level;
                previous = offset.get<std::uint64_t>();
            }
        }
        dumps.push_back(std::move(dump));
    }

    // The same chain written as PNG levels holds the same pixels.
    ASSERT_EQ(Run("image in.png -o png/c8").exitCode, 0);
    for (unsigned level = 0; level < 4; ++level) {
        Png const png = LoadPng(Path("png/c8-mip0" + std::to_string(level) + ".png"));
        EXPECT_EQ(dumps[0].levels[level], std::string(png.rgba.begin(), png.rgba.end())) << "level " << level;
    }
    EXPECT_EQ(dumps[1].levels[0], dumps[0].levels[0]); // level 0 is the input either way
    // The linear chain's levels differ from the sRGB one's, and match its PNGs.
    ASSERT_EQ(Run("image in.png --linear -o png/l8").exitCode, 0);
    for (unsigned level = 1; level < 4; ++level) {
        Png const png = LoadPng(Path("png/l8-mip0" + std::to_string(level) + ".png"));
        EXPECT_EQ(dumps[1].levels[level], std::string(png.rgba.begin(), png.rgba.end())) << "level " << level;
        EXPECT_NE(dumps[1].levels[level], dumps[0].levels[level]) << "level " << level;
    }

    // The float files hold the linear chain: halves round it, 8-bit sRGB
    // encodes it.
    for (unsigned level = 0; level < 4; ++level) {
        std::vector<float> full(dumps[3].levels[level].size() / 4);
        std::memcpy(full.data(), dumps[3].levels[level].data(), dumps[3].levels[level].size());
        std::vector<std::uint16_t> halves(dumps[2].levels[level].size() / 2);
        std::memcpy(halves.data(), dumps[2].levels[level].data(), dumps[2].levels[level].size());
        ASSERT_EQ(full.size(), halves.size());
        for (std::size_t i = 0; i < full.size(); ++i) {
            EXPECT_NEAR(HalfToFloat(halves[i]), full[i], std::abs(full[i]) / 2048.0 + 1e-7) << level << ":" << i;
            double const encoded = i % 4 == 3 ? full[i] : Srgb(full[i]);
            EXPECT_NEAR(static_cast<unsigned char>(dumps[0].levels[level][i]), encoded * 255.0, 0.5 + 1e-3)
                << level << ":" << i;
        }
    }
}

TEST_F(ZguTest, ImageNamesOutputsAsTheUserMeans)
{
    WritePng8(Path("in.png"), 64, 64, Noise(64, 64, 1));
    // A folder (created, parents too), a prefix with .png, a bare prefix.
    Result const folder = Run("image in.png -o new/deeper/");
    ASSERT_EQ(folder.exitCode, 0) << folder.err;
    EXPECT_TRUE(fs::exists(Path("new/deeper/in-mip00.png")));
    EXPECT_TRUE(fs::exists(Path("new/deeper/in-mip06.png")));
    ASSERT_EQ(Run("image in.png -o named.png").exitCode, 0);
    EXPECT_TRUE(fs::exists(Path("named-mip00.png")));
    EXPECT_FALSE(fs::exists(Path("named.png-mip00.png")));

    // Level numbers sort as numbers do: mip02 before mip10.
    WritePng8(Path("wide.png"), 1024, 1, Noise(1024, 1, 2));
    ASSERT_EQ(Run("image wide.png -o wide/w").exitCode, 0);
    std::vector<std::string> names;
    for (auto const& entry : fs::directory_iterator(Path("wide")))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    ASSERT_EQ(names.size(), 11u);
    for (int level = 0; level < 11; ++level)
        EXPECT_EQ(LoadPng(Path("wide") / names[level]).width, 1024 >> level) << names[level];

    // A smaller image under an old prefix: refused without --force, and with
    // it the old chain's extra levels go.
    WritePng8(Path("small.png"), 8, 8, Noise(8, 8, 3));
    std::string const before = Slurp(Path("new/deeper/in-mip00.png"));
    Result const refused = Run("image small.png -o new/deeper/in");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_EQ(Slurp(Path("new/deeper/in-mip00.png")), before);
    Result const forced = Run("image small.png -o new/deeper/in --force --report -");
    ASSERT_EQ(forced.exitCode, 0) << forced.err;
    EXPECT_EQ(nlohmann::json::parse(forced.out)["files"][0]["result"]["stale_removed"], 3);
    EXPECT_EQ(LoadPng(Path("new/deeper/in-mip00.png")).width, 8);
    EXPECT_TRUE(fs::exists(Path("new/deeper/in-mip03.png")));
    EXPECT_FALSE(fs::exists(Path("new/deeper/in-mip04.png")));
    EXPECT_FALSE(fs::exists(Path("new/deeper/in-mip06.png")));

    // Stale levels alone also need --force.
    ASSERT_EQ(Run("image in.png -o stale").exitCode, 0);
    for (int level = 0; level < 4; ++level)
        fs::remove(Path("stale-mip0" + std::to_string(level) + ".png"));
    Result const staleOnly = Run("image small.png -o stale");
    EXPECT_EQ(staleOnly.exitCode, 1);
    EXPECT_NE(staleOnly.err.find("'stale-mip04.png' is a level of an earlier, longer chain"), std::string::npos)
        << staleOnly.err;
}

TEST_F(ZguTest, ImageOnTheGpuMatchesTheHostChainAtEvenExtents)
{
    for (int i = 0; i < 3; ++i)
        WritePng8(Path("imgs/t" + std::to_string(i) + ".png"), 32, 16, Noise(32, 16, 20 + i, 64));
    Result const gpu = Run("image imgs --out-dir gpu --gpu -j 3");
    if (SkipForMissingDisplay(gpu))
        GTEST_SKIP() << "no EGL display here: " << gpu.err;
    ASSERT_EQ(gpu.exitCode, 0) << gpu.err;
    ASSERT_EQ(Run("image imgs --out-dir host").exitCode, 0);
    for (int i = 0; i < 3; ++i)
        for (int level = 0; level < 6; ++level) {
            std::string const name = "/t" + std::to_string(i) + "-mip0" + std::to_string(level) + ".png";
            Png const a = LoadPng(Path("gpu" + name));
            Png const b = LoadPng(Path("host" + name));
            ASSERT_EQ(a.rgba.size(), b.rgba.size()) << name;
            for (std::size_t k = 0; k < a.rgba.size(); ++k)
                ASSERT_NEAR(a.rgba[k], b.rgba[k], 2) << name << " byte " << k;
        }
}

} // namespace
