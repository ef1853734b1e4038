// The validating decorator: it changes no call, reports each kind of misuse
// under its rule exactly where the recording device refuses it (one set of
// checks serves both), and catches devices that break their side.

#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>
#include <Rendering/Testing/RecordingGpu.h>
#include <Rendering/Testing/ValidatingGpu.h>
#include <Rendering/Timing.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::Testing;
using ::testing::HasSubstr;

namespace {

constexpr std::uint32_t HostRW = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t CopyRW = ImageUsage::CopySource | ImageUsage::CopyDestination;

ImageDesc Desc(Size size, std::uint32_t flags, std::uint32_t samples = 1, Format format = Format::R8G8B8A8)
{
    return {size, format, samples, 1, flags};
}

std::vector<Rule> RulesOf(std::vector<Violation> const& violations)
{
    std::vector<Rule> rules;
    for (Violation const& v : violations)
        rules.push_back(v.rule);
    return rules;
}

std::vector<std::string> Names(std::vector<Rule> const& rules)
{
    std::vector<std::string> names;
    for (Rule rule : rules)
        names.emplace_back(ToString(rule));
    return names;
}

} // namespace

TEST(ValidatingGpu, ForwardsEveryCallUnchanged)
{
    auto run = [](IGpu& gpu) {
        ImageId const source = gpu.CreateImage(Desc({8, 4, 0}, ImageUsage::HostWrite | ImageUsage::CopySource));
        std::vector<unsigned char> pixels(8 * 4 * 4, 77);
        FillRgbaTexture(gpu, source, {}, pixels);
        {
            auto chain = MipMapBuilder(gpu).BuildMipMapChain(source, 0, ImageUsage::HostRead);
            (void)GetR8G8B8A8(gpu, chain.Get(), SubImage{2, 0});
            (void)ReadAsDoubles(gpu, chain.Get(), false, {1, 0});
        }
        ImageId const target = gpu.CreateImage(Desc({4, 4, 0}, ImageUsage::RenderTarget));
        RtvId const view = gpu.CreateRenderTargetView(target, {});
        ShaderBasedImageClear(gpu).Clear(view, 1.0f, 0.0f, 0.0f, 1.0f);
        {
            GpuStopWatch watch(gpu);
            watch.Start();
            watch.Stop();
            (void)watch.GetSeconds();
        }
        gpu.DestroyRenderTargetView(view);
        gpu.DestroyImage(target);
        gpu.DestroyImage(source);
    };
    RecordingGpu plain;
    run(plain);
    RecordingGpu wrapped;
    ValidatingGpu checked(wrapped);
    run(checked);
    EXPECT_EQ(wrapped.Dump(), plain.Dump());
    EXPECT_EQ(checked.Problems(), "");
    EXPECT_EQ(wrapped.Problems(), "");
}

// Each misuse on a validator over the recording device: the validator names
// the rules, and the recording device refuses the same breaches.
TEST(ValidatingGpu, NamesTheRuleOfEachMisuseTheRecordingDeviceRefuses)
{
    struct Case {
        char const* name;
        std::function<void(IGpu&)> misuse;
        std::vector<Rule> rules;
    };
    std::vector<Case> const cases{
        {"copy without copy flags",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::ShaderResource));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, ImageUsage::ShaderResource));
             g.CopyImage(a, {}, b, {});
         },
         {Rule::CopyFlags, Rule::CopyFlags}},
        {"copy between sample counts",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, CopyRW, 4));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, CopyRW));
             g.CopyImage(a, {}, b, {});
         },
         {Rule::CopySampleCounts}},
        {"copy between pixel sizes and onto itself",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, CopyRW));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, CopyRW, 1, Format::R8));
             g.CopyImage(a, {}, b, {});
             g.CopyImage(a, {}, a, {});
         },
         {Rule::CopyPixelSizes, Rule::CopyOntoItself}},
        {"scaling copy between formats",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({4, 4, 0}, CopyRW, 1, Format::R32F));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, CopyRW, 1, Format::R32U));
             g.CopyImage(a, {}, b, {});
         },
         {Rule::ScaledCopy}},
        {"copy of a level the image lacks",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, CopyRW));
             g.CopyImage(a, {1, 0}, a, {});
         },
         {Rule::SubImageOutside}},
        {"resolve without resolve flags, between formats",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::RenderTarget, 4));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, ImageUsage::ResolveDestination, 1, Format::B8G8R8A8));
             g.ResolveImage(a, {}, b, {});
         },
         {Rule::ResolveFlags, Rule::ResolveFormats}},
        {"resolve of a single-sampled image",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::Resolvable));
             ImageId const b = g.CreateImage(Desc({2, 2, 0}, ImageUsage::ResolveDestination));
             g.ResolveImage(a, {}, b, {});
         },
         {Rule::ResolveSampleCounts}},
        {"read map without host read",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::HostWrite));
             g.MapImage(a, {}, MapMode::Read);
             g.UnmapImage(a, {});
         },
         {Rule::MapFlags}},
        {"map of a multisampled image",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, HostRW, 4));
             g.MapImage(a, {}, MapMode::Write);
             g.UnmapImage(a, {});
         },
         {Rule::MapMultisampled}},
        {"unknown map mode",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, HostRW));
             g.MapImage(a, {}, 7);
             g.UnmapImage(a, {});
         },
         {Rule::MapMode}},
        {"unbalanced maps",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, HostRW));
             g.UnmapImage(a, {});
             g.MapImage(a, {}, MapMode::Read);
             g.MapImage(a, {}, MapMode::Read);
             g.DestroyImage(a);
         },
         {Rule::UnmapWithoutMap, Rule::MapTwice, Rule::DestroyWhileMapped}},
        {"buffer write map without the dynamic flag",
         [](IGpu& g) {
             BufferId const b = g.CreateBuffer({16, BufferUsage::Vertex}, nullptr);
             g.MapBuffer(b, MapMode::Write);
             g.UnmapBuffer(b);
             g.UnmapBuffer(b);
         },
         {Rule::MapFlags, Rule::UnmapWithoutMap}},
        {"stale, doubly destroyed, unknown and invalid handles",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, HostRW));
             g.DestroyImage(a);
             g.GetImageDescription(a);
             g.DestroyImage(a);
             g.GetImageDescription(ImageId{0x0000'7777'0000'0123u});
             g.GetImageDescription(ImageId{});
         },
         {Rule::StaleHandle, Rule::DoubleDestroy, Rule::UnknownHandle, Rule::InvalidHandle}},
        {"images no device makes",
         [](IGpu& g) {
             g.CreateImage(Desc({0, 0, 0}, HostRW));
             g.CreateImage(Desc({4, 4, 2}, HostRW, 4));
         },
         {Rule::ImageDescription, Rule::ImageDescription}},
        {"views outside their image",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::ShaderResource | ImageUsage::RenderTarget));
             g.CreateShaderResourceView(a, {1, 1, 0, 1});
             g.CreateRenderTargetView(a, {.mipLevel = 0, .firstArraySlice = 1});
         },
         {Rule::ViewRange, Rule::ViewRange}},
        {"queries used against their type and order",
         [](IGpu& g) {
             QueryId const range = g.CreateQuery(QueryType::TimestampFrequency);
             QueryId const sample = g.CreateQuery(QueryType::Timestamp);
             g.EndQuery(range);
             g.BeginQuery(range);
             g.BeginQuery(range);
             g.RecordQuery(range);
             g.BeginQuery(sample);
             g.DestroyQuery(range);
             g.CreateQuery(static_cast<QueryType>(9));
         },
         {Rule::QueryEndWithoutBegin, Rule::QueryBeginTwice, Rule::QueryOperation, Rule::QueryOperation,
          Rule::DestroyWhileBegun, Rule::QueryType}},
        {"indexed draw from a vertex buffer and past the end of an index buffer",
         [](IGpu& g) {
             BufferId const vertices = g.CreateBuffer({16, BufferUsage::Vertex}, nullptr);
             BufferId const indices = g.CreateBuffer({16, BufferUsage::Index}, nullptr);
             g.DrawIndexed({}, vertices, 3, 0);
             g.DrawIndexed({}, indices, 3, 2);
         },
         {Rule::IndexBuffer, Rule::IndexBuffer}},
        {"a stale view bound by its low 32 bits",
         [](IGpu& g) {
             ImageId const a = g.CreateImage(Desc({2, 2, 0}, ImageUsage::RenderTarget));
             RtvId const view = g.CreateRenderTargetView(a, {});
             PsoId const pipeline = g.CreatePipelineState({});
             g.DestroyRenderTargetView(view);
             BindingState bindings;
             bindings.renderTargets[0] = view;
             g.BindPipelineState(pipeline, bindings);
         },
         {Rule::StaleHandle}},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.name);
        RecordingGpu device;
        std::vector<Violation> reported;
        ValidatingGpu checked(device, [&reported](Violation const& v) { reported.push_back(v); });
        c.misuse(checked);
        EXPECT_EQ(Names(RulesOf(checked.Violations())), Names(c.rules)) << checked.Problems();
        EXPECT_EQ(RulesOf(reported), RulesOf(checked.Violations())) << "every violation reaches the callback";
        EXPECT_EQ(device.Errors().size(), c.rules.size()) << device.Problems();
    }
}

TEST(ValidatingGpu, ViolationsNameTheOperationTheObjectAndTheRule)
{
    RecordingGpu device;
    ValidatingGpu checked(device);
    ImageId const texture = checked.CreateImage(Desc({2, 2, 0}, ImageUsage::ShaderResource | ImageUsage::CopyDestination));
    ImageId const staging = checked.CreateImage(Desc({2, 2, 0}, HostRW | CopyRW));
    checked.CopyImage(texture, {}, staging, {});
    ASSERT_EQ(checked.Violations().size(), 1u);
    Violation const& v = checked.Violations()[0];
    EXPECT_EQ(v.op, Op::CopyImage);
    EXPECT_EQ(v.object, "source Image 0x" + [&] {
        char hex[32];
        std::snprintf(hex, sizeof hex, "%llx", static_cast<unsigned long long>(texture.Value()));
        return std::string(hex);
    }());
    EXPECT_THAT(v.Text(), HasSubstr("CopyImage: source Image 0x"));
    EXPECT_THAT(v.Text(), HasSubstr("lacks CopySource 0x20 (flags 0x41) [copy-flags]"));

    // Leaks and open maps are problems too, until cleaned up.
    checked.MapImage(staging, {}, MapMode::Read);
    checked.ClearViolations();
    std::string const problems = checked.Problems();
    EXPECT_THAT(problems, HasSubstr("live objects (2):"));
    EXPECT_THAT(problems, HasSubstr("2x2x0 R8G8B8A8, 1 sample, 1 level, flags 0x41"));
    EXPECT_THAT(problems, HasSubstr("open maps (1):"));
    checked.UnmapImage(staging, {});
    checked.DestroyImage(staging);
    checked.DestroyImage(texture);
    EXPECT_EQ(checked.Problems(), "");
    EXPECT_EQ(checked.LiveCount(), 0u);
}

// A device that breaks its side of the contract: it hands out one handle
// twice, changes a format, maps with pitches too short and packs views into
// equal low bits. Everything else goes to a recording device.
class CarelessGpu final : public IGpu {
public:
    RecordingGpu inner;

    std::uint32_t GetMaximumBufferSize() override { return inner.GetMaximumBufferSize(); }
    BufferDescription GetBufferDescription(BufferId b) override { return inner.GetBufferDescription(b); }
    BufferId CreateBuffer(BufferDescription const& d, void const* data) override { return inner.CreateBuffer(d, data); }
    void DestroyBuffer(BufferId b) noexcept override { inner.DestroyBuffer(b); }
    void* MapBuffer(BufferId b, std::uint32_t mode) override { return inner.MapBuffer(b, mode); }
    void UnmapBuffer(BufferId b) noexcept override { inner.UnmapBuffer(b); }
    RenderTargetViewInfo GetRenderTargetViewDescription(RtvId) override { return {}; }
    ImageDesc GetImageDescription(ImageId i) override
    {
        ImageDesc d = inner.GetImageDescription(i);
        d.format = Format::R32F;
        return d;
    }
    ImageId CreateImage(ImageDesc const& d) override
    {
        ImageId const made = inner.CreateImage(d);
        if (!first_.IsValid())
            first_ = made;
        return first_;
    }
    void DestroySampler(SamplerId) noexcept override {}
    void DestroyRenderTargetView(RtvId) noexcept override {}
    void DestroyShaderResourceView(SrvId) noexcept override {}
    void DestroyImage(ImageId) noexcept override {}
    SrvId CreateShaderResourceView(ImageId, ShaderResourceViewDescription const&) override { return SrvId{1}; }
    RtvId CreateRenderTargetView(ImageId, RenderTargetViewDescription const&) override
    {
        return RtvId{(std::uint64_t{++views_} << 32) | 5u};
    }
    void CopyImage(ImageId, SubImage const&, ImageId, SubImage const&) override {}
    void ResolveImage(ImageId, SubImage const&, ImageId, SubImage const&) override {}
    MappedImage MapImage(ImageId, SubImage const&, std::uint32_t) override
    {
        return {staging_, 4, 4}; // a 4x4 RGBA8 level needs rows of 16 bytes
    }
    void UnmapImage(ImageId, SubImage const&) noexcept override {}
    SamplerId CreateSampler(SamplerDescription const&) override { return SamplerId{1}; }
    ShaderId CreateShader(ShaderDescription const&) override { return ShaderId{1}; }
    void DestroyShader(ShaderId) noexcept override {}
    void Draw(VertexBufferBindings const&, std::uint32_t, std::uint32_t) override {}
    void BeginQuery(QueryId) override {}
    void EndQuery(QueryId) override {}
    void RecordQuery(QueryId) override {}
    std::uint64_t GetQueryResult(QueryId) override { return 0; }
    void DrawIndexed(VertexBufferBindings const&, BufferId, std::uint32_t, std::uint32_t) override {}
    PsoId CreatePipelineState(PipelineStateDescription const&) override { return PsoId{1}; }
    void DestroyQuery(QueryId) noexcept override {}
    void DestroyPipelineState(PsoId) noexcept override {}
    void BindPipelineState(PsoId, BindingState const&) override {}
    QueryId CreateQuery(QueryType) override { return QueryId{1}; }

private:
    ImageId first_{};
    std::uint32_t views_ = 0;
    unsigned char staging_[64]{};
};

TEST(ValidatingGpu, ChecksWhatTheDeviceReturns)
{
    CarelessGpu device;
    ValidatingGpu checked(device);
    ImageId const image = checked.CreateImage(Desc({4, 4, 0}, HostRW | ImageUsage::RenderTarget));
    checked.CreateImage(Desc({4, 4, 0}, HostRW));
    checked.GetImageDescription(image);
    checked.MapImage(image, {}, MapMode::Read);
    checked.UnmapImage(image, {});
    checked.CreateRenderTargetView(image, {});
    checked.CreateRenderTargetView(image, {});
    EXPECT_EQ(Names(RulesOf(checked.Violations())),
              Names({Rule::DeviceReusedHandle, Rule::DeviceDescription, Rule::DeviceMapPitch, Rule::DevicePackedHandle}))
        << checked.Problems();
}
