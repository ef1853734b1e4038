// What only the GL device does: handle checks through the message callback,
// compile diagnostics, format round trips through real GL storage, scaling
// copies, real sample counts and non-blocking queries.

#include "GlDeviceFixture.h"

#include <Rendering/Gl/GlDevice.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <string_view>
#include <vector>

namespace Zorvan::Rendering::Gl {
namespace {

using ::testing::HasSubstr;

using GlDeviceTest = GlDeviceFixture;

// Without any EGL driver the constructor says why instead of crashing. The
// child re-executes the test binary, so the driver list is read afresh.
TEST(GlDeviceCreation, WithoutAnEglDriverTheErrorSaysWhy)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            setenv("__EGL_VENDOR_LIBRARY_FILENAMES", "/nonexistent/egl-vendor.json", 1);
            try {
                GlDevice device;
            } catch (GlDeviceError const& error) {
                std::fputs(error.what(), stderr);
                std::exit(3);
            }
            std::exit(0);
        },
        ::testing::ExitedWithCode(3), "no EGL display for a headless GL context");
}

// Each listed EGL device opens by its index, through the option or the
// environment; an index past the list or a malformed one is refused with
// the list of devices there are.
TEST(GlDeviceCreation, ListedDevicesOpenByIndexAndOthersAreRefusedWithTheList)
{
    std::vector<EglDeviceInfo> const devices = ListEglDevices();
    if (devices.empty())
        GTEST_SKIP() << "EGL enumerates no devices here";
    for (EglDeviceInfo const& listed : devices) {
        SCOPED_TRACE(listed.name);
        GlDeviceOptions options;
        options.eglDevice = listed.index;
        try {
            GlDevice device(options);
            EXPECT_EQ(device.Info().eglDevice, listed.index);
            EXPECT_EQ(device.Info().platform, "device " + std::to_string(listed.index));
        } catch (GlDeviceError const& error) {
            // A device may lack desktop GL 4.5; the reason must say which device.
            EXPECT_THAT(error.what(), HasSubstr("EGL device " + std::to_string(listed.index)));
        }
    }

    auto const refusal = [](GlDeviceOptions const& options) {
        try {
            GlDevice device(options);
        } catch (GlDeviceError const& error) {
            return std::string(error.what());
        }
        return std::string("no error");
    };
    GlDeviceOptions missing;
    missing.eglDevice = static_cast<int>(devices.size());
    std::string const message = refusal(missing);
    EXPECT_THAT(message, HasSubstr("EGL device " + std::to_string(devices.size()) + " does not exist"));
    EXPECT_THAT(message, HasSubstr("0 (" + devices[0].name));

    char const* saved = std::getenv("ZGU_EGL_DEVICE");
    std::string const previous = saved != nullptr ? saved : "";
    setenv("ZGU_EGL_DEVICE", "first", 1);
    EXPECT_THAT(refusal({}), HasSubstr("ZGU_EGL_DEVICE='first' is not a device index"));
    setenv("ZGU_EGL_DEVICE", std::to_string(devices.size()).c_str(), 1);
    EXPECT_THAT(refusal({}), HasSubstr("does not exist"));
    setenv("ZGU_EGL_DEVICE", "0", 1);
    try {
        EXPECT_EQ(GlDevice().Info().eglDevice, 0);
    } catch (GlDeviceError const& error) {
        EXPECT_THAT(error.what(), HasSubstr("EGL device 0"));
    }
    if (saved != nullptr)
        setenv("ZGU_EGL_DEVICE", previous.c_str(), 1);
    else
        unsetenv("ZGU_EGL_DEVICE");
}

TEST_F(GlDeviceTest, DescribesTheContext)
{
    GlDeviceInfo const& info = Device().Info();
    EXPECT_THAT(info.version, HasSubstr("4."));
    EXPECT_GE(info.maxTextureSize, 1024);
    EXPECT_GE(info.maxSamples, 4);
    EXPECT_EQ(Device().GetMaximumBufferSize(), info.maxBufferSize);
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, StaleUnknownAndForeignHandlesAreReportedAndIgnored)
{
    BufferId const buffer = Device().CreateBuffer({16, BufferUsage::Constant | BufferUsage::Dynamic}, nullptr);
    ASSERT_TRUE(buffer.IsValid());
    Device().DestroyBuffer(buffer);
    Device().DestroyBuffer(buffer);
    EXPECT_EQ(Device().MapBuffer(buffer, MapMode::Write), nullptr);
    Device().UnmapBuffer(buffer);
    // A new buffer in the recycled slot does not answer to the old handle.
    BufferId const again = Device().CreateBuffer({16, BufferUsage::Constant}, nullptr);
    EXPECT_EQ(again.Handle(), buffer.Handle());
    EXPECT_NE(again, buffer);
    EXPECT_EQ(Device().GetBufferDescription(buffer), BufferDescription{});
    EXPECT_EQ(Device().GetImageDescription(ImageId{again.Value()}), ImageDesc{});
    EXPECT_EQ(Device().GetImageDescription(ImageId{12345}), ImageDesc{});
    Device().DestroyBuffer(again);

    std::vector<std::string> const messages = TakeMessages();
    ASSERT_EQ(messages.size(), 6u);
    EXPECT_THAT(messages[0], HasSubstr("DestroyBuffer: buffer 0x"));
    EXPECT_THAT(messages[0], HasSubstr("stale"));
    EXPECT_THAT(messages[1], HasSubstr("MapBuffer"));
    EXPECT_THAT(messages[4], HasSubstr("another kind"));
    EXPECT_THAT(messages[5], HasSubstr("never made by this device"));
    EXPECT_EQ(Device().Errors().size(), 6u);
    EXPECT_EQ(Device().LiveResourceCount(), 0u);
}

TEST_F(GlDeviceTest, ProblemsNameLeaksAndOpenMaps)
{
    BufferId const buffer = Device().CreateBuffer({8, BufferUsage::Vertex | BufferUsage::Dynamic}, nullptr);
    ASSERT_NE(Device().MapBuffer(buffer, MapMode::Write), nullptr);
    EXPECT_THAT(Device().Problems(), HasSubstr("live: 1 buffer(s)"));
    EXPECT_THAT(Device().Problems(), HasSubstr("open: 1 map(s)"));
    Device().UnmapBuffer(buffer);
    Device().DestroyBuffer(buffer);
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, ShaderErrorsReachTheCallbackWithTheTranslatedSource)
{
    ShaderDescription description;
    description.vertex = "void main() { $Position$ = float4(0.0, 0.0, 0.0, 1.0); }";
    description.fragment = "[out float4 c : 0]\nvoid main() { $c$ = no_such_function(); }";
    EXPECT_FALSE(Device().CreateShader(description).IsValid());
    description.fragment = "[out float4 c : 0]\nvoid main() { $c$ = SAMPLE(missing, float2(0.0, 0.0)); }";
    EXPECT_FALSE(Device().CreateShader(description).IsValid());

    std::vector<std::string> const messages = TakeMessages();
    ASSERT_GE(messages.size(), 2u);
    EXPECT_THAT(messages.front(), HasSubstr("fs stage does not compile"));
    EXPECT_THAT(messages.front(), HasSubstr("1: #version 450 core"));
    EXPECT_THAT(messages.front(), HasSubstr("zgu_out_c = no_such_function();"));
    EXPECT_THAT(messages.back(), HasSubstr("does not translate: line 2: SAMPLE of undeclared texture"));
    EXPECT_EQ(Device().LiveResourceCount(), 0u);
}

// The library's shader texts, verbatim, for every value type and for the
// sample counts a resolver may meet: each translates, compiles and links.
TEST_F(GlDeviceTest, TheLibrarysShaderTextsCompileAndLink)
{
    std::string const clearVertex = "\nvoid main()\n    {\n    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                                    "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                                    "    $Position$ = float4(x, y, 0.0, 1.0);\n  }\n";
    std::vector<ShaderDescription> programs;
    for (char const* type : {"int4", "uint4", "float4"})
        programs.push_back({clearVertex, "", "", "",
                            std::string("CBUFFER(constant_buffer, 0) { ") + type + " ClearColor; };\n[out " + type +
                                " color : 0]\nvoid main() { $color$ = ClearColor; }\n"});
    programs.push_back({"\n[in float2 pos : position]\n[out float2 uv :  tex_coord]\nvoid main()\n        {\n"
                        "        $Position$ = float4($pos$, 0.0, 1.0);\n"
                        "        $uv$ = ($pos$ + float2(1.0,1.0)) * 0.5;\n        }\n",
                        "", "", "",
                        "\nTEXTURE_2D(float4, source_image, 0);\n[in float2 uv : tex_coord]\n[out float4 color : 0]\n"
                        "void main()\n        {\n        $color$ = SAMPLE(source_image, $uv$);\n        }\n"});
    for (unsigned samples : {1u, 2u, 4u, 8u})
        for (bool minimum : {true, false})
            programs.push_back({"\n[in float4 pos : position]\nvoid main() { $Position$ = $pos$; }\n", "", "", "",
                                std::string("TEXTURE_2DMS(float4, msaaDepth, 0);\nvoid main()\n  {\n  $FragDepth$ = ") +
                                    (minimum ? "1" : "0") + ";\n  [unroll]\n  for (uint i = 0; i < uint(" +
                                    std::to_string(samples) + "); ++i)\n    $FragDepth$ = " +
                                    (minimum ? "min" : "max") +
                                    "($FragDepth$, READ_SAMPLE(msaaDepth, uint2($FragCoord$.xy), i).x);\n  }\n"});
    for (ShaderDescription const& program : programs) {
        ShaderId const shader = Device().CreateShader(program);
        EXPECT_TRUE(shader.IsValid()) << program.fragment;
        Device().DestroyShader(shader);
    }
    EXPECT_EQ(Device().Problems(), "");
}

// Every format with a GL match: bytes written through a host map come back
// unchanged through GL storage, including blue-first and packed depth layouts.
TEST_F(GlDeviceTest, EveryFormatRoundTripsThroughHostMaps)
{
    std::mt19937 random(7);
    for (std::uint32_t value = 1; value < FormatCount; ++value) {
        auto const format = static_cast<Format>(value);
        SCOPED_TRACE(ToString(format));
        ImageDesc const description{{5, 3, 0}, format, 1, 2, ImageUsage::HostRead | ImageUsage::HostWrite};
        ImageId const image = Device().CreateImage(description);
        ASSERT_TRUE(image.IsValid());
        EXPECT_EQ(Device().GetImageDescription(image), description);
        unsigned const pixelBytes = GetSize(format);
        std::vector<std::uint8_t> bytes(5 * 3 * pixelBytes);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<std::uint8_t>(random());
        // Keep float formats to finite values and depth within [0, 1].
        if (format >= Format::R16F && format <= Format::R16G16B16A16F)
            for (std::size_t i = 1; i < bytes.size(); i += 2)
                bytes[i] &= 0x3B;
        if (format >= Format::R32F && format <= Format::R32G32B32A32F)
            for (std::size_t i = 3; i < bytes.size(); i += 4)
                bytes[i] &= 0x3F;
        if (format == Format::D32F || format == Format::D32FS8X24)
            for (std::size_t i = 0; i < bytes.size(); i += pixelBytes) {
                float const depth = static_cast<float>(random() % 1000) / 999.0f;
                std::memcpy(&bytes[i], &depth, 4);
                if (format == Format::D32FS8X24)
                    std::memset(&bytes[i + 5], 0, 3);
            }
        MappedImage const write = Device().MapImage(image, {}, MapMode::Write);
        ASSERT_NE(write.data, nullptr);
        EXPECT_EQ(write.rowPitch, static_cast<std::int32_t>(5 * pixelBytes));
        std::memcpy(write.data, bytes.data(), bytes.size());
        Device().UnmapImage(image, {});
        MappedImage const read = Device().MapImage(image, {}, MapMode::Read);
        ASSERT_NE(read.data, nullptr);
        std::vector<std::uint8_t> back(static_cast<std::uint8_t*>(read.data),
                                       static_cast<std::uint8_t*>(read.data) + bytes.size());
        Device().UnmapImage(image, {});
        EXPECT_EQ(back, bytes);
        Device().DestroyImage(image);
    }
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, CubeFacesAndVolumeSlicesAreAddressedSeparately)
{
    ImageId const cube = Device().CreateImage({{2, 2, 0}, Format::R32U, 1, 1,
                                               ImageUsage::HostRead | ImageUsage::HostWrite | ImageUsage::CubeMap});
    for (std::uint32_t face = 0; face < 6; ++face) {
        MappedImage const m = Device().MapImage(cube, {0, face}, MapMode::Write);
        ASSERT_NE(m.data, nullptr);
        std::uint32_t const values[4] = {face, face + 10, face + 20, face + 30};
        std::memcpy(m.data, values, sizeof values);
        Device().UnmapImage(cube, {0, face});
    }
    MappedImage const face4 = Device().MapImage(cube, {0, 4}, MapMode::Read);
    ASSERT_NE(face4.data, nullptr);
    EXPECT_EQ(static_cast<std::uint32_t*>(face4.data)[3], 34u);
    Device().UnmapImage(cube, {0, 4});
    EXPECT_EQ(Device().MapImage(cube, {0, 6}, MapMode::Read).data, nullptr);
    Device().DestroyImage(cube);

    ImageId const volume = Device().CreateImage({{2, 1, 3}, Format::R8, 1, 1, ImageUsage::HostRead | ImageUsage::HostWrite});
    MappedImage const v = Device().MapImage(volume, {}, MapMode::Write);
    ASSERT_NE(v.data, nullptr);
    EXPECT_EQ(v.slicePitch, 2);
    std::uint8_t const texels[6] = {1, 2, 3, 4, 5, 6};
    std::memcpy(v.data, texels, 6);
    Device().UnmapImage(volume, {});
    MappedImage const r = Device().MapImage(volume, {}, MapMode::Read);
    ASSERT_NE(r.data, nullptr);
    EXPECT_EQ(std::memcmp(r.data, texels, 6), 0);
    Device().UnmapImage(volume, {});
    Device().DestroyImage(volume);
    EXPECT_EQ(TakeMessages().size(), 1u); // face 6 does not exist
}

TEST_F(GlDeviceTest, MapsHonourTheHostFlags)
{
    ImageId const image = Device().CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::HostWrite});
    EXPECT_EQ(Device().MapImage(image, {}, MapMode::Read).data, nullptr);
    Device().UnmapImage(image, {});
    EXPECT_NE(Device().MapImage(image, {}, MapMode::Write).data, nullptr);
    Device().UnmapImage(image, {});
    Device().DestroyImage(image);
    std::vector<std::string> const messages = TakeMessages();
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_THAT(messages[0], HasSubstr("lacks the host-read flag"));
}

// Level-to-level copies of different extents filter: a 4x4 level becomes the
// 2x2 box average, which is what builds mip chains.
TEST_F(GlDeviceTest, CopiesBetweenExtentsFilterAndEqualExtentsCopyExactly)
{
    std::uint32_t const flags = ImageUsage::HostRead | ImageUsage::HostWrite | ImageUsage::CopySource |
                                ImageUsage::CopyDestination;
    ImageId const image = Device().CreateImage({{4, 4, 0}, Format::R32F, 1, 0, flags});
    ASSERT_EQ(Device().GetImageDescription(image).mipLevels, 3u);
    std::vector<float> texels(16);
    for (std::size_t i = 0; i < texels.size(); ++i)
        texels[i] = static_cast<float>(i * i);
    MappedImage const m = Device().MapImage(image, {}, MapMode::Write);
    ASSERT_NE(m.data, nullptr);
    std::memcpy(m.data, texels.data(), 64);
    Device().UnmapImage(image, {});
    Device().CopyImage(image, {0, 0}, image, {1, 0});
    Device().CopyImage(image, {1, 0}, image, {2, 0});

    MappedImage const level1 = Device().MapImage(image, {1, 0}, MapMode::Read);
    ASSERT_NE(level1.data, nullptr);
    auto const* got = static_cast<float const*>(level1.data);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 2; ++x) {
            auto const at = [&](int dx, int dy) { return texels[static_cast<std::size_t>((2 * y + dy) * 4 + 2 * x + dx)]; };
            EXPECT_FLOAT_EQ(got[y * 2 + x], (at(0, 0) + at(1, 0) + at(0, 1) + at(1, 1)) / 4.0f);
        }
    float const expectedTop = (got[0] + got[1] + got[2] + got[3]) / 4.0f;
    Device().UnmapImage(image, {1, 0});
    MappedImage const level2 = Device().MapImage(image, {2, 0}, MapMode::Read);
    ASSERT_NE(level2.data, nullptr);
    EXPECT_FLOAT_EQ(*static_cast<float const*>(level2.data), expectedTop);
    Device().UnmapImage(image, {2, 0});

    ImageId const copy = Device().CreateImage({{4, 4, 0}, Format::R32U, 1, 1, flags});
    Device().CopyImage(image, {}, copy, {}); // same extent and pixel size: bits move unchanged
    MappedImage const bits = Device().MapImage(copy, {}, MapMode::Read);
    ASSERT_NE(bits.data, nullptr);
    EXPECT_EQ(std::memcmp(bits.data, texels.data(), 64), 0);
    Device().UnmapImage(copy, {});
    Device().DestroyImage(copy);
    Device().DestroyImage(image);
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, ReportsTheSampleCountItReallyMade)
{
    ImageId const image = Device().CreateImage({{8, 8, 0}, Format::R8G8B8A8, 2, 1, ImageUsage::RenderTarget});
    ASSERT_TRUE(image.IsValid());
    std::uint32_t const samples = Device().GetImageDescription(image).sampleCount;
    EXPECT_GE(samples, 2u);
    RtvId const view = Device().CreateRenderTargetView(image, {});
    EXPECT_EQ(Device().GetRenderTargetViewDescription(view).sampleCount, samples);
    EXPECT_EQ(Device().GetRenderTargetViewDescription(view).size, (Size{8, 8, 0}));
    Device().DestroyRenderTargetView(view);
    Device().DestroyImage(image);
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, QueriesNeverBlockAndFrequencyWaitsForBothTimestamps)
{
    QueryId const range = Device().CreateQuery(QueryType::TimestampFrequency);
    QueryId const start = Device().CreateQuery(QueryType::Timestamp);
    QueryId const end = Device().CreateQuery(QueryType::Timestamp);
    EXPECT_EQ(Device().GetQueryResult(range), 0u);
    EXPECT_EQ(Device().GetQueryResult(start), 0u);
    Device().BeginQuery(range);
    Device().RecordQuery(start);
    EXPECT_EQ(Device().GetQueryResult(range), 0u); // still open
    Device().RecordQuery(end);
    Device().EndQuery(range);
    Device().Finish();
    EXPECT_EQ(Device().GetQueryResult(range), 1'000'000'000u);
    EXPECT_GT(Device().GetQueryResult(start), 0u);
    EXPECT_GE(Device().GetQueryResult(end), Device().GetQueryResult(start));
    Device().RecordQuery(range); // a range is not a timestamp
    EXPECT_EQ(TakeMessages().size(), 1u);
    Device().DestroyQuery(end);
    Device().DestroyQuery(start);
    Device().DestroyQuery(range);
    EXPECT_EQ(Device().LiveResourceCount(), 0u);
}

// Callers' own meshes: attributes found by semantic across two vertex-buffer
// slots, 32-bit indices, and an index range past the buffer refused.
TEST_F(GlDeviceTest, IndexedDrawsFeedAttributesBySemanticFromSeveralSlots)
{
    ImageId const target = Device().CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1,
                                                 ImageUsage::RenderTarget | ImageUsage::HostRead});
    RtvId const view = Device().CreateRenderTargetView(target, {});
    ShaderDescription program;
    program.vertex = "[in float3 p : position]\n[in float4 c : color]\n[out float4 shade : shade]\n"
                     "void main() { $Position$ = float4($p$, 1.0); $shade$ = $c$; }";
    program.fragment = "[in float4 shade : shade]\n[out float4 o : 0]\nvoid main() { $o$ = $shade$; }";
    ShaderId const shader = Device().CreateShader(program);
    PipelineStateDescription description;
    description.shader = shader;
    description.inputLayout[0] = {"position", 0, Format::R32G32B32F, 0, 0, 0};
    description.inputLayout[1] = {"color", 0, Format::R8G8B8A8, 0, 1, 0};
    description.renderTargetFormats[0] = Format::R8G8B8A8;
    PsoId const pipeline = Device().CreatePipelineState(description);

    float const corners[] = {-1, -1, 0, 1, -1, 0, 1, 1, 0, -1, 1, 0};
    std::uint8_t const colours[] = {255, 128, 0, 255, 255, 128, 0, 255, 255, 128, 0, 255, 255, 128, 0, 255};
    std::uint32_t const indices[] = {0, 1, 2, 0, 2, 3};
    BufferId const positions = Device().CreateBuffer({sizeof corners, BufferUsage::Vertex}, corners);
    BufferId const colourBuffer = Device().CreateBuffer({sizeof colours, BufferUsage::Vertex}, colours);
    BufferId const indexBuffer = Device().CreateBuffer({sizeof indices, BufferUsage::Index}, indices);
    BindingState bindings;
    bindings.renderTargets[0] = view;
    Device().BindPipelineState(pipeline, bindings);
    VertexBufferBindings vertexBuffers;
    vertexBuffers.buffers[0] = positions;
    vertexBuffers.buffers[1] = colourBuffer;
    IGpu& gpu = Device(); // drawn through the contract, as a renderer would
    gpu.DrawIndexed(vertexBuffers, indexBuffer, 6, 0);
    gpu.DrawIndexed(vertexBuffers, indexBuffer, 6, 1);
    EXPECT_EQ(TakeMessages().size(), 1u); // seven indices from a buffer of six

    MappedImage const pixels = Device().MapImage(target, {}, MapMode::Read);
    ASSERT_NE(pixels.data, nullptr);
    std::vector<std::uint8_t> const got(static_cast<std::uint8_t*>(pixels.data),
                                        static_cast<std::uint8_t*>(pixels.data) + 64);
    Device().UnmapImage(target, {});
    std::vector<std::uint8_t> expected;
    for (int i = 0; i < 16; ++i)
        expected.insert(expected.end(), {255, 128, 0, 255});
    EXPECT_EQ(got, expected);

    for (BufferId buffer : {indexBuffer, colourBuffer, positions})
        Device().DestroyBuffer(buffer);
    Device().DestroyPipelineState(pipeline);
    Device().DestroyShader(shader);
    Device().DestroyRenderTargetView(view);
    Device().DestroyImage(target);
    EXPECT_EQ(Device().LiveResourceCount(), 0u);
}

// A binding holds only the low 32 bits of a view's handle; those bits alone
// must tell a destroyed view from the one now in its slot.
TEST_F(GlDeviceTest, StalePackedViewsAreReportedNotBound)
{
    ImageId const image = Device().CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::RenderTarget});
    ShaderDescription program;
    program.vertex = "void main() { $Position$ = float4(0.0, 0.0, 0.0, 1.0); }";
    program.fragment = "[out float4 o : 0]\nvoid main() { $o$ = float4(1.0, 1.0, 1.0, 1.0); }";
    ShaderId const shader = Device().CreateShader(program);
    PipelineStateDescription description;
    description.shader = shader;
    description.renderTargetFormats[0] = Format::R8G8B8A8;
    PsoId const pipeline = Device().CreatePipelineState(description);
    RtvId const old = Device().CreateRenderTargetView(image, {});
    Device().DestroyRenderTargetView(old);
    RtvId const fresh = Device().CreateRenderTargetView(image, {});
    ASSERT_NE(PackedRtvId{old}, PackedRtvId{fresh});

    BindingState bindings;
    bindings.renderTargets[0] = fresh;
    Device().BindPipelineState(pipeline, bindings);
    EXPECT_TRUE(TakeMessages().empty());
    bindings.renderTargets[0] = old;
    Device().BindPipelineState(pipeline, bindings);
    bindings.renderTargets[0] = PackedRtvId{fresh.Handle() & 0xFFFFFu}; // a slot number without a generation
    Device().BindPipelineState(pipeline, bindings);
    Device().Draw({}, 3, 0);
    std::vector<std::string> const messages = TakeMessages();
    ASSERT_EQ(messages.size(), 3u);
    EXPECT_THAT(messages[0], HasSubstr("render-target view 0x"));
    EXPECT_THAT(messages[0], HasSubstr("stale"));
    EXPECT_THAT(messages[1], HasSubstr("never made by this device"));
    EXPECT_THAT(messages[2], HasSubstr("no usable pipeline state is bound")) << "a failed binding binds nothing";

    Device().DestroyRenderTargetView(fresh);
    Device().DestroyPipelineState(pipeline);
    Device().DestroyShader(shader);
    Device().DestroyImage(image);
    EXPECT_TRUE(TakeMessages().empty());
    EXPECT_EQ(Device().LiveResourceCount(), 0u);
}

// One constant buffer declared by both stages is one block of the program:
// the vertex stage moves the triangle by its offset, the fragment stage
// writes its colour, and both read the same bytes.
TEST_F(GlDeviceTest, BothStagesReadOneConstantBuffer)
{
    ImageId const target = Device().CreateImage({{4, 2, 0}, Format::R32G32B32A32F, 1, 1,
                                                 ImageUsage::RenderTarget | ImageUsage::HostRead});
    RtvId const view = Device().CreateRenderTargetView(target, {});
    std::string const block = "CBUFFER(parameters, 3) { float4 offset; float4 colour; };\n";
    ShaderDescription program;
    program.vertex = block + "void main()\n{\n"
                             "    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                             "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                             "    $Position$ = float4(x, y, 0.0, 1.0) + offset;\n}\n";
    program.fragment = block + "[out float4 result : 0]\nvoid main() { $result$ = colour; }\n";
    ShaderId const shader = Device().CreateShader(program);
    ASSERT_TRUE(shader.IsValid()) << ::testing::PrintToString(TakeMessages());
    PipelineStateDescription description;
    description.shader = shader;
    description.renderTargetFormats[0] = Format::R32G32B32A32F;
    PsoId const pipeline = Device().CreatePipelineState(description);

    // The offset moves the full-screen triangle right by one clip-space unit:
    // the left half of the target stays clear.
    float const constants[8] = {1.0f, 0.0f, 0.0f, 0.0f, 0.25f, 0.5f, 0.75f, 1.0f};
    BufferId const buffer = Device().CreateBuffer({sizeof constants, BufferUsage::Constant}, constants);
    BindingState bindings;
    bindings.constantBuffers[3] = {buffer, ShaderStage::Vertex | ShaderStage::Fragment};
    bindings.renderTargets[0] = view;
    Device().BindPipelineState(pipeline, bindings);
    Device().Draw({}, 3, 0);

    MappedImage const pixels = Device().MapImage(target, {}, MapMode::Read);
    ASSERT_NE(pixels.data, nullptr);
    std::vector<float> const got(static_cast<float*>(pixels.data), static_cast<float*>(pixels.data) + 4 * 2 * 4);
    Device().UnmapImage(target, {});
    std::vector<float> expected;
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 4; ++x) {
            if (x < 2)
                expected.insert(expected.end(), {0.0f, 0.0f, 0.0f, 0.0f});
            else
                expected.insert(expected.end(), {0.25f, 0.5f, 0.75f, 1.0f});
        }
    EXPECT_EQ(got, expected);

    Device().DestroyBuffer(buffer);
    Device().DestroyPipelineState(pipeline);
    Device().DestroyShader(shader);
    Device().DestroyRenderTargetView(view);
    Device().DestroyImage(target);
    EXPECT_EQ(Device().Problems(), "");
}

TEST_F(GlDeviceTest, DrawingWithoutAUsablePipelineIsReportedNotCrashed)
{
    Device().Draw({}, 3, 0);
    Device().BindPipelineState(PsoId{}, {});
    std::vector<std::string> const messages = TakeMessages();
    ASSERT_EQ(messages.size(), 2u);
    EXPECT_THAT(messages[0], HasSubstr("no usable pipeline state is bound"));
    EXPECT_THAT(messages[1], HasSubstr("invalid handle"));
}

} // namespace
} // namespace Zorvan::Rendering::Gl
