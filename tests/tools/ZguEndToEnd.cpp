// Runs the zgu binary the way a user does and checks what it leaves behind.

#include "ZguFixture.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <sstream>

namespace {

using namespace ZguTesting;

TEST_F(ZguTest, BadInputsGiveOneLineAndTheDocumentedExitCode)
{
    Write("broken.png", "definitely not a PNG");
    struct Case {
        char const* arguments;
        int exitCode;
        char const* message;
    };
    Case const cases[] = {
        {"frobnicate", 2, "frobnicate"},
        {"image missing.png", 2, "no such file"},
        {"image broken.png", 1, "broken.png"},
        {"image broken.png --format bgr8", 2, "--format"},
        {"demo --size 12xab", 2, "--size"},
        {"demo --device -1", 2, "--device"},
    };
    for (Case const& c : cases) {
        Result const result = Run(c.arguments);
        EXPECT_EQ(result.exitCode, c.exitCode) << c.arguments << "\n" << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << c.arguments << "\n" << result.err;
        EXPECT_EQ(result.err.rfind("zgu: ", 0), 0u) << c.arguments << "\n" << result.err;
        EXPECT_NE(result.err.find(c.message), std::string::npos) << c.arguments << "\n" << result.err;
    }
}

TEST_F(ZguTest, NothingIsOverwrittenWithoutForce)
{
    WriteCube("cube.obj");
    Write("out.obj", "precious\n");
    Result const refused = Run("mesh cube.obj -o out.obj");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_NE(refused.err.find("--force"), std::string::npos) << refused.err;
    EXPECT_EQ(Slurp(Path("out.obj")), "precious\n");

    Result const forced = Run("mesh cube.obj -o out.obj --force");
    EXPECT_EQ(forced.exitCode, 0) << forced.err;
    EXPECT_EQ(CountLines(Slurp(Path("out.obj")), "f "), 12u);

    // Checked before any device work, so this holds without a GPU too.
    fs::create_directories(Path("demo"));
    Write("demo/report.json", "{}");
    Result const demo = Run("demo --out demo --size 32x32 --frames 1");
    EXPECT_EQ(demo.exitCode, 1);
    EXPECT_NE(demo.err.find("report.json"), std::string::npos) << demo.err;
    EXPECT_EQ(Slurp(Path("demo/report.json")), "{}");
}

TEST_F(ZguTest, DemoWritesPicturesAndReport)
{
    Result const result = Run("demo --out out --size 96x64 --frames 9");
    if (SkipForMissingDisplay(result))
        GTEST_SKIP() << "no EGL display here: " << result.err;
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("ACMR"), std::string::npos) << result.out;

    auto const report = nlohmann::json::parse(Slurp(Path("out/report.json")));
    auto const& mesh = report["mesh"];
    EXPECT_GT(mesh["triangles"].get<int>(), 20000);
    EXPECT_GT(mesh["vertices_after_remap"].get<int>(), mesh["vertices_before_remap"].get<int>());
    EXPECT_LT(mesh["acmr_after"].get<double>(), mesh["acmr_before"].get<double>());
    auto const& render = report["render"];
    EXPECT_EQ(render["mip_levels"], 7);
    EXPECT_GT(render["coverage"].get<double>(), 0.05);
    EXPECT_LT(render["coverage"].get<double>(), 0.95);
    // Measured, or null; never a made-up zero.
    if (!render["gpu_ms_per_frame"].is_null()) {
        EXPECT_GT(render["gpu_ms_per_frame"].get<double>(), 0.0);
    }
    // The phases after the frames are timed apiece and add up to the total.
    double phases = 0.0;
    for (char const* phase : {"resolve_ms", "copy_ms", "readback_ms", "read_as_doubles_ms"}) {
        EXPECT_GT(render[phase].get<double>(), 0.0) << phase;
        phases += render[phase].get<double>();
    }
    EXPECT_NEAR(phases, render["resolve_copy_readback_ms"].get<double>(), 1e-6);

    // One frame is too few for the frame timer: its time is unknown.
    Result const single = Run("demo --out one --size 32x32 --frames 1");
    ASSERT_EQ(single.exitCode, 0) << single.err;
    auto const singleReport = nlohmann::json::parse(Slurp(Path("one/report.json")));
    EXPECT_TRUE(singleReport["render"]["gpu_ms_per_frame"].is_null()) << singleReport["render"].dump();

    Png const frame = LoadPng(Path("out/frame.png"));
    ASSERT_EQ(frame.width, 96);
    ASSERT_EQ(frame.height, 64);
    // The corner is the clear colour (0.09, 0.1, 0.13); the centre is mesh.
    EXPECT_NEAR(frame.At(0, 0)[0], 23, 1);
    EXPECT_NEAR(frame.At(0, 0)[2], 33, 1);
    EXPECT_NE(frame.At(48, 32)[0], frame.At(0, 0)[0]);

    Png const depth = LoadPng(Path("out/depth.png"));
    ASSERT_EQ(depth.width, 96);
    EXPECT_EQ(depth.At(0, 0)[0], 0);   // far plane
    EXPECT_GT(depth.At(48, 32)[0], 0); // mesh

    Png const mips = LoadPng(Path("out/mips.png"));
    EXPECT_EQ(mips.width, 96 + 48 + 24 + 12 + 6 + 3 + 1 + 6 * 4);
    EXPECT_EQ(mips.height, 64);
    Png const thumbnail = LoadPng(Path("out/thumbnail.png"));
    EXPECT_EQ(thumbnail.width, 24);
    EXPECT_EQ(thumbnail.height, 16);
}

TEST_F(ZguTest, InfoListsTheFormatCatalogueAndTheEglDevices)
{
    Result const result = Run("info");
    EXPECT_NE(result.out.find("R32G32B32A32F"), std::string::npos);
    EXPECT_NE(result.out.find("D24S8"), std::string::npos);
    if (SkipForMissingDisplay(result))
        GTEST_SKIP() << "no EGL display here: " << result.err;
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("renderer"), std::string::npos);
    // Either a table of devices or the reason there is none, and what is in use.
    bool const listed = result.out.find("EGL device") != std::string::npos;
    EXPECT_TRUE(listed || result.out.find("EGL enumerates no devices") != std::string::npos) << result.out;
    EXPECT_NE(result.out.find("in use"), std::string::npos) << result.out;
    if (!listed)
        return;
    // Device 0 exists wherever the table has a row: asked for by number, it is the one in use.
    Result const chosen = Run("info --device 0");
    ASSERT_EQ(chosen.exitCode, 0) << chosen.err;
    EXPECT_NE(chosen.out.find("device 0"), std::string::npos) << chosen.out;
}

// A device that does not exist, by option or by environment, fails the
// command with the list of those that do.
TEST_F(ZguTest, ChoosingAMissingEglDeviceNamesTheDevicesThereAre)
{
    for (auto const& [arguments, variables] : {std::pair<std::string, std::string>{"--device 99 demo", ""},
                                               {"demo --device 99", ""},
                                               {"demo", "ZGU_EGL_DEVICE=99"}}) {
        Result const result = Run(arguments + " --out out --frames 1", variables);
        EXPECT_EQ(result.exitCode, 1) << arguments << " " << variables << "\n" << result.err;
        EXPECT_NE(result.err.find("EGL device 99 does not exist"), std::string::npos) << result.err;
        EXPECT_FALSE(fs::exists(Path("out/report.json")));
    }
    Result const malformed = Run("demo --out out --frames 1", "ZGU_EGL_DEVICE=first");
    EXPECT_EQ(malformed.exitCode, 1) << malformed.err;
    EXPECT_NE(malformed.err.find("ZGU_EGL_DEVICE='first' is not a device index"), std::string::npos) << malformed.err;
}

} // namespace
