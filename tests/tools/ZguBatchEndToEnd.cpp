// Batches of `zgu image` and `zgu mesh`: folders in, a mirrored tree out,
// bad files reported while the rest go on, nothing half-written on failure,
// limit or Ctrl-C.

#include "ZguFixture.h"

#include <signal.h>

#include <chrono>
#include <map>
#include <thread>

namespace {

using namespace ZguTesting;

void WriteImage(fs::path const& path, int size, char const* kind)
{
    fs::create_directories(path.parent_path());
    std::vector<unsigned char> rgba;
    for (int i = 0; i < size * size; ++i)
        rgba.insert(rgba.end(), {static_cast<unsigned char>(i * 7), static_cast<unsigned char>(i / size * 9), 90, 255});
    std::string const type = kind;
    int const ok = type == "png"   ? stbi_write_png(path.c_str(), size, size, 4, rgba.data(), size * 4)
                   : type == "tga" ? stbi_write_tga(path.c_str(), size, size, 4, rgba.data())
                   : type == "bmp" ? stbi_write_bmp(path.c_str(), size, size, 4, rgba.data())
                                   : stbi_write_jpg(path.c_str(), size, size, 4, rgba.data(), 90);
    ASSERT_NE(ok, 0) << path;
}

TEST_F(ZguTest, ImageBatchMirrorsFoldersAndReportsEveryFile)
{
    WriteImage(Path("tex/a.png"), 8, "png");
    WriteImage(Path("tex/a.tga"), 4, "tga");
    WriteImage(Path("tex/sub/b.bmp"), 16, "bmp");
    WriteImage(Path("tex/sub/deeper/c.jpg"), 8, "jpg");
    WriteImage(Path("tex/.hidden.png"), 4, "png");
    Write("tex/broken.png", "not a picture");
    Write("tex/notes.txt", "not an input");

    Result const result = Run("image tex --recursive --out-dir out --to ktx2 -j 2 --report report.json");
    EXPECT_EQ(result.exitCode, 1) << result.err;
    EXPECT_EQ(CountLines(result.err, "zgu: ["), 5u) << result.err;
    EXPECT_NE(result.err.find("zgu: 1 of 5 files failed"), std::string::npos) << result.err;

    auto const report = nlohmann::json::parse(Slurp(Path("report.json")));
    EXPECT_EQ(report["schema_version"], 1);
    EXPECT_EQ(report["command"], "image");
    EXPECT_EQ(report["settings"]["to"], "ktx2");
    EXPECT_EQ(report["summary"]["files"], 5);
    EXPECT_EQ(report["summary"]["succeeded"], 4);
    EXPECT_EQ(report["summary"]["failed"], 1);
    std::map<std::string, nlohmann::json> byInput;
    for (auto const& file : report["files"])
        byInput[fs::path(file["input"].get<std::string>()).lexically_relative("tex").string()] = file;
    ASSERT_EQ(byInput.size(), 5u);
    EXPECT_EQ(byInput["broken.png"]["status"], "failed");
    EXPECT_NE(byInput["broken.png"]["error"].get<std::string>().find("cannot read 'tex/broken.png'"),
              std::string::npos);
    EXPECT_TRUE(byInput["broken.png"]["outputs"].empty());
    // Same stem, different formats: the extension stays in the output name.
    std::map<std::string, std::string> const expected = {{"a.png", "out/a.png.ktx2"},
                                                         {"a.tga", "out/a.tga.ktx2"},
                                                         {"sub/b.bmp", "out/sub/b.ktx2"},
                                                         {"sub/deeper/c.jpg", "out/sub/deeper/c.ktx2"}};
    for (auto const& [input, output] : expected) {
        EXPECT_EQ(byInput[input]["status"], "ok") << input;
        EXPECT_EQ(byInput[input]["outputs"], nlohmann::json::array({output})) << input;
        EXPECT_GT(fs::file_size(Path(output)), 80u) << output;
    }
    EXPECT_EQ(byInput["sub/b.bmp"]["result"]["levels"].size(), 5u);
    EXPECT_TRUE(Leftovers(dir_).empty());

    // Without --recursive only the folder's own files; a folder needs --out-dir.
    Result const flat = Run("image tex --out-dir flat --report -");
    EXPECT_EQ(flat.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(flat.out)["summary"]["files"], 3);
    Result const nowhere = Run("image tex");
    EXPECT_EQ(nowhere.exitCode, 2);
    EXPECT_NE(nowhere.err.find("needs --out-dir"), std::string::npos) << nowhere.err;
}

TEST_F(ZguTest, MeshBatchKeepsSourceExtensionsWhereOutputsCollide)
{
    WriteCube("models/Wuson.obj");
    Write("models/Wuson.ply", "ply\nformat ascii 1.0\nelement vertex 8\nproperty float x\nproperty float y\n"
                              "property float z\nelement face 12\nproperty list uchar int vertex_indices\nend_header\n"
                              "0 0 0\n1 0 0\n1 1 0\n0 1 0\n0 0 1\n1 0 1\n1 1 1\n0 1 1\n"
                              "3 0 2 1\n3 0 3 2\n3 4 5 6\n3 4 6 7\n3 0 1 5\n3 0 5 4\n"
                              "3 1 2 6\n3 1 6 5\n3 2 3 7\n3 2 7 6\n3 3 0 4\n3 3 4 7\n");
    Write("models/points.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\n");

    Result const result = Run("mesh models --out-dir out --to gltf -j 2 --report -");
    EXPECT_EQ(result.exitCode, 1) << result.err;
    auto const report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report["command"], "mesh");
    EXPECT_EQ(report["summary"]["succeeded"], 2);
    for (auto const& file : report["files"]) {
        std::string const input = file["input"];
        if (input.find("points") != std::string::npos) {
            EXPECT_NE(file["error"].get<std::string>().find("holds no triangles"), std::string::npos);
            continue;
        }
        EXPECT_EQ(file["result"]["triangles"], 12) << input;
        EXPECT_EQ(file["result"]["vertices_out"], 24) << input;
    }
    // The exporter's buffer files come along out of the staging folder, under
    // the names the .gltf files refer to.
    for (char const* output : {"out/Wuson.obj.gltf", "out/Wuson.ply.gltf"}) {
        Result const again = Run(std::string("mesh ") + output + " --json");
        ASSERT_EQ(again.exitCode, 0) << again.err;
        EXPECT_EQ(nlohmann::json::parse(again.out)["triangles"], 12) << output;
    }
    EXPECT_TRUE(fs::exists(Path("out/Wuson.obj.bin")));
    EXPECT_TRUE(fs::exists(Path("out/Wuson.ply.bin")));
    EXPECT_TRUE(Leftovers(dir_).empty());

    // Measuring alone needs no --out-dir, even for a folder.
    Result const measured = Run("mesh models --report -");
    EXPECT_EQ(measured.exitCode, 1);
    EXPECT_EQ(nlohmann::json::parse(measured.out)["summary"]["files"], 3);
}

TEST_F(ZguTest, BatchUsageErrorsStopBeforeAnyWork)
{
    WriteImage(Path("a.png"), 4, "png");
    WriteImage(Path("b.png"), 4, "png");
    WriteCube("a.obj");
    WriteCube("b.obj");
    struct Case {
        char const* arguments;
        char const* message;
    };
    Case const cases[] = {
        {"image a.png b.png -o x", "with several, use --out-dir"},
        {"image a.png -o x.ktx2 --to png", "asks for ktx2 but --to asks for png"},
        {"image a.png --out-dir o -j 0", "--jobs"},
        {"mesh a.obj b.obj --json", "--report"},
        {"mesh a.obj missing.obj", "'missing.obj': no such file"},
    };
    for (Case const& c : cases)
        ExpectUsageError(c.arguments, c.message);
    EXPECT_FALSE(fs::exists(Path("x.ktx2")));
    EXPECT_FALSE(fs::exists(Path("o")));
}

TEST_F(ZguTest, DecoderMemoryLimitStopsAnImageBomb)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "sanitizer build: zgu applies no memory limit (shadow memory needs terabytes)";
#endif
    // A valid header promising 16000 x 16000 texels (1 GB), then one row.
    std::ofstream(Path("bomb.png"), std::ios::binary) << PngFile(16000, 16000, 8, std::string(1 + 16000 * 4, '\0'));
    Result const limited = Run("image bomb.png --memory-limit 64");
    EXPECT_EQ(limited.exitCode, 1);
    EXPECT_NE(limited.err.find("out of memory"), std::string::npos) << limited.err;
    EXPECT_FALSE(fs::exists(Path("bomb-mip00.png")));
}

TEST_F(ZguTest, CtrlCLeavesNoPartialOutput)
{
    // Uncompressed in, so writing the 16-bit PNG levels is most of the run.
    int constexpr size = 2048;
    std::vector<unsigned char> rgba(std::size_t(size) * size * 4);
    std::uint32_t state = 1;
    for (auto& byte : rgba) {
        state = state * 1664525u + 1013904223u;
        byte = static_cast<unsigned char>(state >> 24);
    }
    ASSERT_NE(stbi_write_bmp(Path("big.bmp").c_str(), size, size, 4, rgba.data()), 0);

    // Once level files are being written into the staging folder.
    Interruption const interrupted = InterruptWhileStaging("image big.bmp -o out/big --format rgba32f", true);
    if (interrupted.finishedFirst)
        GTEST_SKIP() << "zgu finished before it could be interrupted";
    ASSERT_TRUE(interrupted.signalled);
    EXPECT_EQ(interrupted.exitCode, 128 + SIGINT);
    EXPECT_NE(Slurp(Path("stderr.txt")).find("zgu: interrupted; removed 1 unfinished output"), std::string::npos)
        << Slurp(Path("stderr.txt"));
    EXPECT_TRUE(Leftovers(dir_).empty());
    EXPECT_FALSE(fs::exists(Path("out"))) << "nothing was committed, so no folder was made";
}

} // namespace
