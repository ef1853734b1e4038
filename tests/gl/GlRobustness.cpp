// The GL device under misuse: every handle-taking call with a stale, an
// unknown and a wrong-kind handle, unsupported formats, zero-sized images and
// shaders that do not translate, compile or link. Each is reported through
// the message callback, changes nothing, and the device keeps working.

#include "GlDeviceFixture.h"

#include <Rendering/Gl/GlDevice.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan::Rendering::Gl {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;

enum class Kind { Buffer, Image, Srv, Rtv, Sampler, Shader, Pipeline, Query };

constexpr std::uint32_t HostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t Drawable =
    ImageUsage::ShaderResource | ImageUsage::RenderTarget | ImageUsage::CopySource | ImageUsage::CopyDestination;
constexpr ImageDesc Rgba8{{4, 4, 0}, Format::R8G8B8A8, 1, 1, HostIo | Drawable};

ShaderDescription const ValidProgram{"void main() { $Position$ = float4(0.0, 0.0, 0.0, 1.0); }", "", "", "",
                                     "[out float4 c : 0]\nvoid main() { $c$ = float4(1.0, 0.0, 0.0, 1.0); }"};

class GlRobustness : public GlDeviceFixture {
protected:
    using Made = std::vector<std::pair<Kind, std::uint64_t>>;

    // A live object of the kind, as its raw handle value; it and what it was
    // made from are listed in made, in creation order.
    std::uint64_t Make(Kind kind, Made& made)
    {
        GlDevice& d = Device();
        std::uint64_t value = 0;
        switch (kind) {
        case Kind::Buffer:
            value = d.CreateBuffer({16, BufferUsage::Vertex | BufferUsage::Dynamic}, nullptr).Value();
            break;
        case Kind::Image: value = d.CreateImage(Rgba8).Value(); break;
        case Kind::Srv:
            value = d.CreateShaderResourceView(ImageId{Make(Kind::Image, made)}, {0, 1, 0, 1}).Value();
            break;
        case Kind::Rtv: value = d.CreateRenderTargetView(ImageId{Make(Kind::Image, made)}, {}).Value(); break;
        case Kind::Sampler: value = d.CreateSampler({}).Value(); break;
        case Kind::Shader: value = d.CreateShader(ValidProgram).Value(); break;
        case Kind::Pipeline: {
            PipelineStateDescription description{};
            description.shader = ShaderId{Make(Kind::Shader, made)};
            description.renderTargetFormats[0] = Format::R8G8B8A8;
            value = d.CreatePipelineState(description).Value();
            break;
        }
        case Kind::Query: value = d.CreateQuery(QueryType::Timestamp).Value(); break;
        }
        EXPECT_NE(value, 0u) << "could not make the object to misuse";
        made.emplace_back(kind, value);
        return value;
    }

    void Destroy(Kind kind, std::uint64_t value)
    {
        GlDevice& d = Device();
        switch (kind) {
        case Kind::Buffer: d.DestroyBuffer(BufferId{value}); break;
        case Kind::Image: d.DestroyImage(ImageId{value}); break;
        case Kind::Srv: d.DestroyShaderResourceView(SrvId{value}); break;
        case Kind::Rtv: d.DestroyRenderTargetView(RtvId{value}); break;
        case Kind::Sampler: d.DestroySampler(SamplerId{value}); break;
        case Kind::Shader: d.DestroyShader(ShaderId{value}); break;
        case Kind::Pipeline: d.DestroyPipelineState(PsoId{value}); break;
        case Kind::Query: d.DestroyQuery(QueryId{value}); break;
        }
    }

    // Views and pipelines go before what they were made from.
    void DestroyAll(Made const& made)
    {
        for (auto it = made.rbegin(); it != made.rend(); ++it)
            Destroy(it->first, it->second);
    }

    // A fresh image round trip: the device still creates, writes and reads.
    void ExpectStillUsable()
    {
        ImageId const image = Device().CreateImage(Rgba8);
        ASSERT_TRUE(image.IsValid());
        std::vector<unsigned char> bytes(4 * 4 * 4);
        for (std::size_t i = 0; i < bytes.size(); ++i)
            bytes[i] = static_cast<unsigned char>(i * 7);
        MappedImage const write = Device().MapImage(image, {}, MapMode::Write);
        ASSERT_NE(write.data, nullptr);
        for (int row = 0; row < 4; ++row)
            std::memcpy(static_cast<unsigned char*>(write.data) + row * write.rowPitch, &bytes[row * 16], 16);
        Device().UnmapImage(image, {});
        MappedImage const read = Device().MapImage(image, {}, MapMode::Read);
        ASSERT_NE(read.data, nullptr);
        std::vector<unsigned char> back(bytes.size());
        for (int row = 0; row < 4; ++row)
            std::memcpy(&back[row * 16], static_cast<unsigned char const*>(read.data) + row * read.rowPitch, 16);
        Device().UnmapImage(image, {});
        Device().DestroyImage(image);
        EXPECT_EQ(back, bytes);
        EXPECT_EQ(Device().LiveResourceCount(), 0u);
        EXPECT_TRUE(TakeMessages().empty());
    }

};

struct HandleUse {
    char const* name;
    Kind kind;
    std::function<void(GlDevice&, std::uint64_t handle, ImageId validImage)> use;
};

std::vector<HandleUse> const HandleUses{
    {"GetBufferDescription", Kind::Buffer,
     [](GlDevice& d, std::uint64_t h, ImageId) {
         EXPECT_EQ(d.GetBufferDescription(BufferId{h}), BufferDescription{});
     }},
    {"DestroyBuffer", Kind::Buffer, [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyBuffer(BufferId{h}); }},
    {"MapBuffer", Kind::Buffer,
     [](GlDevice& d, std::uint64_t h, ImageId) { EXPECT_EQ(d.MapBuffer(BufferId{h}, MapMode::Write), nullptr); }},
    {"UnmapBuffer", Kind::Buffer, [](GlDevice& d, std::uint64_t h, ImageId) { d.UnmapBuffer(BufferId{h}); }},
    {"GetImageDescription", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId) { EXPECT_EQ(d.GetImageDescription(ImageId{h}), ImageDesc{}); }},
    {"DestroyImage", Kind::Image, [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyImage(ImageId{h}); }},
    {"CreateShaderResourceView", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId) {
         EXPECT_FALSE(d.CreateShaderResourceView(ImageId{h}, {0, 1, 0, 1}).IsValid());
     }},
    {"CreateRenderTargetView", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId) { EXPECT_FALSE(d.CreateRenderTargetView(ImageId{h}, {}).IsValid()); }},
    {"CopyImage(source)", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId v) { d.CopyImage(ImageId{h}, {}, v, {}); }},
    {"CopyImage(destination)", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId v) { d.CopyImage(v, {}, ImageId{h}, {}); }},
    {"ResolveImage", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId v) { d.ResolveImage(ImageId{h}, {}, v, {}); }},
    {"MapImage", Kind::Image,
     [](GlDevice& d, std::uint64_t h, ImageId) { EXPECT_EQ(d.MapImage(ImageId{h}, {}, MapMode::Read).data, nullptr); }},
    {"UnmapImage", Kind::Image, [](GlDevice& d, std::uint64_t h, ImageId) { d.UnmapImage(ImageId{h}, {}); }},
    {"DestroyShaderResourceView", Kind::Srv,
     [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyShaderResourceView(SrvId{h}); }},
    {"GetRenderTargetViewDescription", Kind::Rtv,
     [](GlDevice& d, std::uint64_t h, ImageId) {
         EXPECT_EQ(d.GetRenderTargetViewDescription(RtvId{h}).format, Format::None);
     }},
    {"DestroyRenderTargetView", Kind::Rtv,
     [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyRenderTargetView(RtvId{h}); }},
    {"DestroySampler", Kind::Sampler, [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroySampler(SamplerId{h}); }},
    {"DestroyShader", Kind::Shader, [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyShader(ShaderId{h}); }},
    {"CreatePipelineState", Kind::Shader,
     [](GlDevice& d, std::uint64_t h, ImageId) {
         PipelineStateDescription description{};
         description.shader = ShaderId{h};
         EXPECT_FALSE(d.CreatePipelineState(description).IsValid());
     }},
    {"DestroyPipelineState", Kind::Pipeline,
     [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyPipelineState(PsoId{h}); }},
    {"BindPipelineState", Kind::Pipeline,
     [](GlDevice& d, std::uint64_t h, ImageId) { d.BindPipelineState(PsoId{h}, {}); }},
    {"DestroyQuery", Kind::Query, [](GlDevice& d, std::uint64_t h, ImageId) { d.DestroyQuery(QueryId{h}); }},
    {"BeginQuery", Kind::Query, [](GlDevice& d, std::uint64_t h, ImageId) { d.BeginQuery(QueryId{h}); }},
    {"EndQuery", Kind::Query, [](GlDevice& d, std::uint64_t h, ImageId) { d.EndQuery(QueryId{h}); }},
    {"RecordQuery", Kind::Query, [](GlDevice& d, std::uint64_t h, ImageId) { d.RecordQuery(QueryId{h}); }},
    {"GetQueryResult", Kind::Query,
     [](GlDevice& d, std::uint64_t h, ImageId) { EXPECT_EQ(d.GetQueryResult(QueryId{h}), 0u); }},
};

// Stale (made, then destroyed), unknown (never made) and wrong-kind (a live
// object of another kind) handles, for every call that takes a handle: one
// error each, no exception, and the live objects are left alone.
TEST_F(GlRobustness, BadHandlesAreReportedAndChangeNothing)
{
    std::size_t cases = 0;
    for (HandleUse const& use : HandleUses) {
        // Each report names the call and says what is wrong with the handle.
        std::string const call = std::string(use.name).substr(0, std::string(use.name).find('('));
        for (auto const& [flavour, phrase] : {std::pair{"stale", "stale"}, std::pair{"unknown", "never made"},
                                              std::pair{"wrong kind", "another kind"}}) {
            SCOPED_TRACE(std::string(use.name) + " with a " + flavour + " handle");
            Made made;
            ImageId const validImage{Make(Kind::Image, made)};
            std::uint64_t handle = 0;
            if (std::string_view(flavour) == "stale") {
                handle = Make(use.kind, made);
                Destroy(use.kind, handle);
                made.pop_back();
            } else if (std::string_view(flavour) == "unknown") {
                handle = 0x00AB'CDEF'0000'7777ull;
            } else {
                handle = Make(use.kind == Kind::Buffer ? Kind::Image : Kind::Buffer, made);
            }
            std::size_t const live = Device().LiveResourceCount();
            TakeMessages();
            EXPECT_NO_THROW(use.use(Device(), handle, validImage));
            std::vector<std::string> const messages = TakeMessages();
            ASSERT_FALSE(messages.empty());
            EXPECT_THAT(messages.front(), AllOf(HasSubstr(call), HasSubstr(phrase)));
            EXPECT_EQ(Device().LiveResourceCount(), live);
            DestroyAll(made);
            ++cases;
        }
    }
    RecordProperty("cases", static_cast<int>(cases));
    ExpectStillUsable();
}

// Live handles used out of their bounds or out of order.
TEST_F(GlRobustness, OutOfRangeAndUnbalancedUsesAreReported)
{
    ImageId const image = Device().CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 2, HostIo | Drawable});
    ImageId const floats = Device().CreateImage({{4, 4, 0}, Format::R32G32B32A32F, 1, 1, HostIo | Drawable});
    ImageId const integers = Device().CreateImage({{4, 4, 0}, Format::R32G32U, 1, 1, HostIo | Drawable});
    QueryId const timestamp = Device().CreateQuery(QueryType::Timestamp);
    QueryId const frequency = Device().CreateQuery(QueryType::TimestampFrequency);
    std::vector<std::pair<char const*, std::function<void(GlDevice&)>>> const misuses{
        {"map of a level past the chain",
         [&](GlDevice& d) {
             EXPECT_EQ(d.MapImage(image, {2, 0}, MapMode::Read).data, nullptr);
         }},
        {"map of a slice of a 2D image",
         [&](GlDevice& d) {
             EXPECT_EQ(d.MapImage(image, {0, 1}, MapMode::Read).data, nullptr);
         }},
        {"view of a level past the chain",
         [&](GlDevice& d) {
             EXPECT_FALSE(d.CreateShaderResourceView(image, {2, 1, 0, 1}).IsValid());
         }},
        {"target view of a level past the chain",
         [&](GlDevice& d) {
             EXPECT_FALSE(d.CreateRenderTargetView(image, {5, 0, 1, 0, 1, 0}).IsValid());
         }},
        {"copy from normalized to integer texels", [&](GlDevice& d) { d.CopyImage(image, {}, integers, {}); }},
        {"resolve of a single-sampled image", [&](GlDevice& d) { d.ResolveImage(image, {}, floats, {}); }},
        {"end of a range never begun", [&](GlDevice& d) { d.EndQuery(frequency); }},
        {"range begun on a timestamp", [&](GlDevice& d) { d.BeginQuery(timestamp); }},
        {"timestamp recorded on a range query", [&](GlDevice& d) { d.RecordQuery(frequency); }},
    };
    for (auto const& [what, misuse] : misuses) {
        SCOPED_TRACE(what);
        std::size_t const live = Device().LiveResourceCount();
        TakeMessages();
        EXPECT_NO_THROW(misuse(Device()));
        EXPECT_GE(TakeMessages().size(), 1u);
        EXPECT_EQ(Device().LiveResourceCount(), live);
    }
    Device().DestroyQuery(frequency);
    Device().DestroyQuery(timestamp);
    Device().DestroyImage(integers);
    Device().DestroyImage(floats);
    Device().DestroyImage(image);
    ExpectStillUsable();
}

TEST_F(GlRobustness, UnsupportedFormatsAndEmptyImagesAreRefused)
{
    std::vector<ImageDesc> const refused{
        {{4, 4, 0}, Format::None, 1, 1, HostIo},
        {{4, 4, 0}, static_cast<Format>(FormatCount), 1, 1, HostIo},
        {{4, 4, 0}, static_cast<Format>(0xFFFF'FFFFu), 1, 1, HostIo},
        {{0, 0, 0}, Format::R8G8B8A8, 1, 1, HostIo},
        {{0, 4, 0}, Format::R8G8B8A8, 1, 1, HostIo},
        {{4, 4, 0}, Format::R8G8B8A8, 0, 1, HostIo},
    };
    for (ImageDesc const& description : refused) {
        SCOPED_TRACE("format " + std::to_string(static_cast<std::uint32_t>(description.format)) + ", " +
                     std::to_string(description.size.width) + "x" + std::to_string(description.size.height) +
                     ", samples " + std::to_string(description.sampleCount));
        ImageId image;
        EXPECT_NO_THROW(image = Device().CreateImage(description));
        EXPECT_FALSE(image.IsValid());
        EXPECT_EQ(TakeMessages().size(), 1u);
        EXPECT_EQ(Device().LiveResourceCount(), 0u);
    }
    ExpectStillUsable();
}

TEST_F(GlRobustness, ShadersThatDoNotBuildAreReported)
{
    std::vector<std::pair<char const*, ShaderDescription>> const broken{
        {"unknown dialect construct", {"void main() { $Nope$ = float4(0.0); }", "", "", "", ValidProgram.fragment}},
        {"unbalanced braces",
         {"void main() { $Position$ = float4(0.0, 0.0, 0.0, 1.0);", "", "", "", ValidProgram.fragment}},
        {"declaration the translator cannot read",
         {ValidProgram.vertex, "", "", "", "[out float4 : ]\nvoid main() { }"}},
        {"GLSL type error", {ValidProgram.vertex, "", "", "", "[out float4 c : 0]\nvoid main() { $c$ = 1; }"}},
        {"no vertex stage", {"", "", "", "", ValidProgram.fragment}},
        {"stages that do not link",
         {"[out float2 uv : tex_coord]\nvoid main() { $Position$ = float4(0.0); $uv$ = float2(0.0); }", "", "", "",
          "[in float3 uv : tex_coord]\n[out float4 c : 0]\nvoid main() { $c$ = float4($uv$, 1.0); }"}},
    };
    for (auto const& [why, description] : broken) {
        SCOPED_TRACE(why);
        ShaderId shader;
        EXPECT_NO_THROW(shader = Device().CreateShader(description));
        EXPECT_FALSE(shader.IsValid());
        EXPECT_GE(TakeMessages().size(), 1u);
        EXPECT_EQ(Device().LiveResourceCount(), 0u);
    }
    ShaderId const good = Device().CreateShader(ValidProgram);
    EXPECT_TRUE(good.IsValid());
    Device().DestroyShader(good);
    ExpectStillUsable();
}

} // namespace
} // namespace Zorvan::Rendering::Gl
