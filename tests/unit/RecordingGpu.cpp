// Black-box tests of the recording test device: storage, strictness,
// accounting, scripting and fault injection.

#include <Rendering/Testing/FaultSweep.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::Testing;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

namespace {

std::vector<std::byte> Ramp(std::size_t n, unsigned start = 1)
{
    std::vector<std::byte> bytes(n);
    for (std::size_t i = 0; i < n; ++i)
        bytes[i] = static_cast<std::byte>(start + i);
    return bytes;
}

ImageDesc Desc(Size size, std::uint32_t flags, Format format = Format::R8G8B8A8, std::uint32_t samples = 1,
               std::uint32_t mips = 1)
{
    return {size, format, samples, mips, flags};
}

std::byte* Row(MappedImage const& map, std::int64_t slice, std::int64_t row)
{
    return static_cast<std::byte*>(map.data) + slice * map.slicePitch + row * map.rowPitch;
}

constexpr std::uint32_t HostRW = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t CopyRW = ImageUsage::CopySource | ImageUsage::CopyDestination;

} // namespace

// ---- Storage through maps

class RecordingGpuPitch : public ::testing::TestWithParam<std::pair<std::uint32_t, bool>> {};

TEST_P(RecordingGpuPitch, WriteThenReadMapRoundTripsEveryDepthSlice)
{
    auto const [padding, negative] = GetParam();
    RecordingGpu gpu;
    gpu.SetRowPitchPadding(padding);
    gpu.SetNegativeRowPitch(negative);
    ImageId const image = gpu.CreateImage(Desc({3, 2, 2}, HostRW));
    auto const pixels = Ramp(3 * 2 * 2 * 4);

    MappedImage const w = gpu.MapImage(image, {}, MapMode::Write);
    ASSERT_NE(w.data, nullptr);
    std::int32_t const pitch = static_cast<std::int32_t>(12 + padding);
    EXPECT_EQ(w.rowPitch, negative ? -pitch : pitch);
    EXPECT_EQ(w.slicePitch, w.rowPitch * 2);
    for (int z = 0; z < 2; ++z)
        for (int y = 0; y < 2; ++y)
            std::memcpy(Row(w, z, y), pixels.data() + (z * 2 + y) * 12, 12);
    gpu.UnmapImage(image, {});
    EXPECT_EQ(gpu.ReadImage(image), pixels);

    MappedImage const r = gpu.MapImage(image, {}, MapMode::Read);
    ASSERT_NE(r.data, nullptr);
    EXPECT_EQ(0, std::memcmp(Row(r, 1, 1), pixels.data() + 36, 12));
    if (padding != 0) {
        EXPECT_EQ(Row(r, 0, 0)[12], std::byte{0xCD}) << "padding must not look like pixels";
    }
    gpu.UnmapImage(image, {});
    gpu.DestroyImage(image);
    EXPECT_EQ(gpu.Problems(), "");
}

INSTANTIATE_TEST_SUITE_P(Pitches, RecordingGpuPitch,
                         ::testing::Values(std::pair{0u, false}, std::pair{5u, false}, std::pair{0u, true},
                                           std::pair{7u, true}));

TEST(RecordingGpu, MultisampledMapsWriteEverySampleAndReadSampleZero)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({2, 1, 0}, HostRW, Format::R8, 4));
    MappedImage const w = gpu.MapImage(image, {}, MapMode::Write);
    std::memcpy(w.data, "\x07\x09", 2);
    gpu.UnmapImage(image, {});
    EXPECT_EQ(gpu.ReadImage(image, {}, 3), gpu.ReadImage(image, {}, 0));

    gpu.WriteImage(image, {}, Ramp(2, 50), 1);
    gpu.WriteImage(image, {}, Ramp(2, 20), 0);
    MappedImage const r = gpu.MapImage(image, {}, MapMode::Read);
    EXPECT_EQ(static_cast<std::byte const*>(r.data)[1], std::byte{21});
    gpu.UnmapImage(image, {});
    EXPECT_EQ(gpu.ReadImage(image, {}, 1), Ramp(2, 50));
    gpu.DestroyImage(image);
    EXPECT_EQ(gpu.Problems(), "");
}

TEST(RecordingGpu, BuffersKeepInitialDataAndOnlyWriteMapsStore)
{
    RecordingGpu gpu;
    auto const initial = Ramp(8);
    BufferId const buffer = gpu.CreateBuffer({8, BufferUsage::Vertex | BufferUsage::Dynamic}, initial.data());
    EXPECT_EQ(gpu.BufferBytes(buffer), initial);

    auto* read = static_cast<std::byte*>(gpu.MapBuffer(buffer, MapMode::Read));
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read[7], std::byte{8});
    read[0] = std::byte{99};
    gpu.UnmapBuffer(buffer);
    EXPECT_EQ(gpu.BufferBytes(buffer), initial) << "a read map must not write back";

    auto* write = static_cast<std::byte*>(gpu.MapBuffer(buffer, MapMode::Write));
    write[0] = std::byte{99};
    gpu.UnmapBuffer(buffer);
    EXPECT_EQ(gpu.BufferBytes(buffer)[0], std::byte{99});
    gpu.DestroyBuffer(buffer);
    EXPECT_EQ(gpu.Problems(), "");
}

// ---- Strictness

TEST(RecordingGpu, MapsWithoutHostFlagsFailAndTheirUnmapIsAccepted)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({2, 2, 0}, ImageUsage::HostWrite));
    BufferId const buffer = gpu.CreateBuffer({16, BufferUsage::Vertex}, nullptr);

    EXPECT_EQ(gpu.MapImage(image, {}, MapMode::Read).data, nullptr);
    gpu.UnmapImage(image, {});
    EXPECT_EQ(gpu.MapBuffer(buffer, MapMode::Write), nullptr);
    gpu.UnmapBuffer(buffer);
    EXPECT_EQ(gpu.MapImage(image, {1, 0}, MapMode::Write).data, nullptr) << "only one level exists";

    ASSERT_EQ(gpu.Errors().size(), 3u) << gpu.Problems();
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("MapImage: Image("));
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("HostRead"));
    EXPECT_THAT(gpu.Errors()[1], HasSubstr("dynamic"));
    EXPECT_THAT(gpu.Errors()[2], HasSubstr("mip 1 slice 0 lies outside"));
    EXPECT_EQ(gpu.OpenMaps(), 0u);
    EXPECT_EQ(gpu.Calls(Op::MapImage)[0]->result, 0u);
    gpu.DestroyImage(image);
    gpu.DestroyBuffer(buffer);
}

TEST(RecordingGpu, UnbalancedMapsAreErrors)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({2, 2, 0}, HostRW));
    gpu.UnmapImage(image, {});
    ASSERT_NE(gpu.MapImage(image, {}, MapMode::Write).data, nullptr);
    EXPECT_EQ(gpu.MapImage(image, {}, MapMode::Write).data, nullptr);
    EXPECT_EQ(gpu.OpenMaps(), 1u);
    EXPECT_THAT(gpu.Problems(), HasSubstr("mip 0 slice 0 mapped for writing"));
    gpu.UnmapImage(image, {});
    gpu.DestroyImage(image);
    ASSERT_EQ(gpu.Errors().size(), 2u);
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("not mapped"));
    EXPECT_THAT(gpu.Errors()[1], HasSubstr("already mapped"));
}

TEST(RecordingGpu, StaleWrongKindAndDoublyDestroyedHandlesAreRecorded)
{
    RecordingGpu gpu;
    ImageId const first = gpu.CreateImage(Desc({1, 1, 0}, 0));
    gpu.DestroyImage(first);
    ImageId const second = gpu.CreateImage(Desc({1, 1, 0}, 0));
    ASSERT_EQ(first.Handle(), second.Handle()) << "the slot is reused";
    ASSERT_NE(first, second) << "with a new generation";

    gpu.DestroyImage(first);
    EXPECT_EQ(gpu.GetImageDescription(first), ImageDesc{});
    gpu.DestroyBuffer(BufferId{second.Value()});
    gpu.DestroyImage(ImageId{});
    EXPECT_TRUE(gpu.IsLive(second.Value(), ResourceKind::Image));

    ASSERT_EQ(gpu.Errors().size(), 4u);
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("double destroy"));
    EXPECT_THAT(gpu.Errors()[1], HasSubstr("GetImageDescription: Image(0, gen 1): stale"));
    EXPECT_THAT(gpu.Errors()[2], HasSubstr("wrong kind, the handle names a live Image"));
    EXPECT_THAT(gpu.Errors()[3], HasSubstr("invalid Image handle"));
    gpu.DestroyImage(second);
}

TEST(RecordingGpu, ProblemsListErrorsLeaksOpenMapsAndQueriesUntilCleanedUp)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({4, 2, 0}, HostRW));
    BufferId const buffer = gpu.CreateBuffer({16, 36}, nullptr);
    QueryId const query = gpu.CreateQuery(QueryType::TimestampFrequency);
    gpu.MapImage(image, {}, MapMode::Read);
    gpu.BeginQuery(query);
    gpu.DestroySampler(SamplerId{7});

    std::string const problems = gpu.Problems();
    EXPECT_THAT(problems, HasSubstr("errors (1):\n  DestroySampler: Sampler(7, gen 0): unknown handle"));
    EXPECT_THAT(problems, HasSubstr("live resources (3):\n  Buffer("));
    EXPECT_THAT(problems, HasSubstr("4x2x0 R8G8B8A8"));
    EXPECT_THAT(problems, HasSubstr("open maps (1):"));
    EXPECT_THAT(problems, HasSubstr("open queries (1):"));
    EXPECT_EQ(gpu.LiveCount(), 3u);
    EXPECT_EQ(gpu.OpenQueries(), 1u);

    gpu.UnmapImage(image, {});
    gpu.EndQuery(query);
    gpu.DestroyQuery(query);
    gpu.DestroyBuffer(buffer);
    gpu.DestroyImage(image);
    gpu.ResetAccounting();
    EXPECT_EQ(gpu.Problems(), "");
    EXPECT_EQ(gpu.CreatedCount(ResourceKind::Image), 0u);
}

// ---- Copies, resolves, views

TEST(RecordingGpu, CopyBetweenLevelsScalesByNearestSampling)
{
    RecordingGpu gpu;
    gpu.SetFullChainFill(true);
    ImageId const image = gpu.CreateImage(Desc({4, 2, 0}, CopyRW, Format::R8, 1, 0));
    EXPECT_EQ(gpu.Description(image).mipLevels, 3u);
    gpu.WriteImage(image, {}, Ramp(8, 10)); // rows 10 11 12 13 / 14 15 16 17
    gpu.CopyImage(image, {0, 0}, image, {1, 0});
    gpu.CopyImage(image, {1, 0}, image, {2, 0});
    EXPECT_THAT(gpu.ReadImage(image, {1, 0}), ElementsAre(std::byte{10}, std::byte{12}));
    EXPECT_THAT(gpu.ReadImage(image, {2, 0}), ElementsAre(std::byte{10}));

    // Upscaling repeats texels.
    ImageId const wide = gpu.CreateImage(Desc({8, 1, 0}, CopyRW, Format::R8));
    gpu.CopyImage(image, {1, 0}, wide, {});
    EXPECT_EQ(gpu.ReadImage(wide), std::vector<std::byte>({std::byte{10}, std::byte{10}, std::byte{10}, std::byte{10},
                                                           std::byte{12}, std::byte{12}, std::byte{12}, std::byte{12}}));
    EXPECT_EQ(gpu.Problems().find("errors"), std::string::npos);
    gpu.DestroyImage(wide);
    gpu.DestroyImage(image);
}

TEST(RecordingGpu, CopyMisuseIsRecordedAndCopiesNothing)
{
    RecordingGpu gpu;
    ImageId const plain = gpu.CreateImage(Desc({2, 2, 0}, 0, Format::R8));
    ImageId const wide = gpu.CreateImage(Desc({2, 2, 0}, CopyRW, Format::R16));
    ImageId const target = gpu.CreateImage(Desc({2, 2, 0}, CopyRW, Format::R8));
    ImageId const msaa = gpu.CreateImage(Desc({2, 2, 0}, CopyRW, Format::R8, 4));
    gpu.WriteImage(wide, {}, Ramp(8));
    gpu.WriteImage(msaa, {}, Ramp(4));
    gpu.CopyImage(plain, {}, target, {});
    gpu.CopyImage(wide, {}, target, {});
    gpu.CopyImage(msaa, {}, target, {});
    gpu.CopyImage(target, {}, target, {});
    EXPECT_EQ(gpu.ReadImage(target), std::vector<std::byte>(4));
    ASSERT_EQ(gpu.Errors().size(), 4u) << gpu.Problems();
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("lacks CopySource 0x20"));
    EXPECT_THAT(gpu.Errors()[1], HasSubstr("2-byte pixels"));
    EXPECT_THAT(gpu.Errors()[2], HasSubstr("has 4 samples"));
    EXPECT_THAT(gpu.Errors()[3], HasSubstr("onto itself"));
    for (ImageId id : {plain, wide, target, msaa})
        gpu.DestroyImage(id);
}

TEST(RecordingGpu, ResolveTakesSampleZeroAndChecksItsRules)
{
    RecordingGpu gpu;
    ImageId const msaa = gpu.CreateImage(Desc({2, 1, 0}, ImageUsage::Resolvable, Format::R8, 4));
    ImageId const single = gpu.CreateImage(Desc({2, 1, 0}, 0x120, Format::R8));
    gpu.WriteImage(msaa, {}, Ramp(2, 30), 0);
    gpu.WriteImage(msaa, {}, Ramp(2, 60), 2);
    gpu.ResolveImage(msaa, {}, single, {});
    EXPECT_EQ(gpu.ReadImage(single), Ramp(2, 30));
    EXPECT_TRUE(gpu.Errors().empty());

    gpu.ResolveImage(single, {}, msaa, {});
    EXPECT_EQ(gpu.Errors().size(), 4u) << "not multisampled, not resolvable, 4 samples, no ResolveDestination";
    gpu.DestroyImage(msaa);
    gpu.DestroyImage(single);
}

TEST(RecordingGpu, RenderTargetViewInfoDescribesTheViewedLevel)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({8, 6, 0}, ImageUsage::RenderTarget, Format::R32F, 2, 3));
    RtvId const view = gpu.CreateRenderTargetView(image, {.mipLevel = 2});
    EXPECT_EQ(gpu.GetRenderTargetViewDescription(view),
              (RenderTargetViewInfo{Format::R32F, 2, {2, 1, 0}, image, {.mipLevel = 2}}));
    EXPECT_FALSE(gpu.CreateRenderTargetView(image, {.mipLevel = 3}).IsValid());
    EXPECT_FALSE(gpu.CreateShaderResourceView(image, {.firstMipLevel = 1, .mipLevelCount = 3}).IsValid());
    EXPECT_EQ(gpu.Errors().size(), 2u);
    gpu.DestroyRenderTargetView(view);
    gpu.DestroyImage(image);
}

TEST(RecordingGpu, PackedViewsAreCaughtWhenStaleThoughOnlyTheirLowBitsTravel)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({4, 4, 0}, ImageUsage::RenderTarget));
    PsoId const pipeline = gpu.CreatePipelineState({});
    RtvId const old = gpu.CreateRenderTargetView(image, {});
    gpu.DestroyRenderTargetView(old);
    RtvId const fresh = gpu.CreateRenderTargetView(image, {});
    ASSERT_EQ(fresh.Handle() & 0xFFFFFu, old.Handle() & 0xFFFFFu) << "the slot is reused";
    ASSERT_NE(fresh.Handle(), old.Handle()) << "the low 32 bits differ all the same";

    BindingState bindings;
    bindings.renderTargets[0] = fresh;
    gpu.BindPipelineState(pipeline, bindings);
    EXPECT_TRUE(gpu.Errors().empty()) << gpu.Problems();

    bindings.renderTargets[0] = old;
    gpu.BindPipelineState(pipeline, bindings);
    bindings = {};
    bindings.depthStencil = PackedRtvId{0x00300000u | (fresh.Handle() & 0xFFFFFu)};
    gpu.BindPipelineState(pipeline, bindings);
    EXPECT_THAT(gpu.Errors(),
                ElementsAre(HasSubstr("stale view, already destroyed"), HasSubstr("unknown view, never created")));
    EXPECT_THAT(gpu.Dump(), HasSubstr("depth0 RenderTargetView(2, packed gen 3)"));

    // The full handle keeps working where the contract passes 64 bits.
    gpu.DestroyRenderTargetView(old);
    EXPECT_THAT(gpu.Errors().back(), HasSubstr("double destroy"));
    gpu.DestroyRenderTargetView(fresh);
    gpu.DestroyPipelineState(pipeline);
    gpu.DestroyImage(image);
}

TEST(RecordingGpu, DrawIndexedIsLoggedAndChecksItsIndexBuffer)
{
    RecordingGpu gpu;
    BufferId const indices = gpu.CreateBuffer({24, BufferUsage::Index}, nullptr);
    BufferId const vertices = gpu.CreateBuffer({96, BufferUsage::Vertex}, nullptr);
    VertexBufferBindings bindings;
    bindings.buffers[1] = vertices;
    gpu.DrawIndexed(bindings, indices, 4, 2);
    EXPECT_TRUE(gpu.Errors().empty()) << gpu.Problems();
    Call const& draw = *gpu.Calls(Op::DrawIndexed).at(0);
    EXPECT_EQ(draw.handles[0], indices.Value());
    EXPECT_EQ(draw.value, 4u);
    EXPECT_EQ(draw.value2, 2u);
    EXPECT_EQ(draw.As<VertexBufferBindings>(), bindings);
    EXPECT_THAT(gpu.Dump(), HasSubstr("DrawIndexed(Buffer(0, gen 1), {slot 1 Buffer(1, gen 1)}, 4 indices from 2)"));

    gpu.DrawIndexed(bindings, indices, 4, 3);   // index 6 is past the 24 bytes
    gpu.DrawIndexed(bindings, vertices, 3, 0);  // not an index buffer
    gpu.DestroyBuffer(vertices);
    gpu.DrawIndexed(bindings, indices, 3, 0);   // stale vertex buffer
    EXPECT_THAT(gpu.Errors(), ElementsAre(HasSubstr("indices 3 + 4 reach past its 24 bytes"),
                                          HasSubstr("not an index buffer"),
                                          HasSubstr("DrawIndexed: Buffer(1, gen 1): stale")));
    gpu.DestroyBuffer(indices);
}

// ---- Scripting

TEST(RecordingGpu, FullChainFillAndStrippedFlagsShapeNewImages)
{
    RecordingGpu gpu;
    ImageId const chain = gpu.CreateImage(Desc({256, 128, 0}, 0, Format::R8, 1, 0));
    EXPECT_EQ(gpu.GetImageDescription(chain).mipLevels, 9u);
    EXPECT_EQ(gpu.ReadImage(chain, {8, 0}).size(), 1u);

    gpu.SetFullChainFill(false);
    gpu.SetStrippedImageFlags(ImageUsage::HostWrite);
    ImageId const single = gpu.CreateImage(Desc({4, 4, 0}, HostRW | ImageUsage::CubeMap, Format::R8, 1, 0));
    EXPECT_EQ(gpu.GetImageDescription(single), Desc({4, 4, 0}, ImageUsage::HostRead | ImageUsage::CubeMap, Format::R8, 1, 0));
    EXPECT_EQ(gpu.ReadImage(single, {0, 5}).size(), 16u) << "a cube map has six faces";
    EXPECT_THROW(gpu.ReadImage(single, {1, 0}), std::invalid_argument);
    EXPECT_EQ(gpu.MapImage(single, {}, MapMode::Write).data, nullptr);
    gpu.UnmapImage(single, {});
    EXPECT_EQ(gpu.Errors().size(), 1u);
    gpu.DestroyImage(single);
    gpu.DestroyImage(chain);
}

TEST(RecordingGpu, QueriesFollowTheirScriptAndBalance)
{
    RecordingGpu gpu;
    QueryId const frequency = gpu.CreateQuery(QueryType::TimestampFrequency);
    QueryId const stamp = gpu.CreateQuery(QueryType::Timestamp);
    gpu.SetTimestampFrequency(1'000'000);
    gpu.QueueTimestamps({5000, 7500});
    gpu.SetTimestampStep(10);

    EXPECT_EQ(gpu.GetQueryResult(frequency), 0u) << "not ended yet";
    EXPECT_EQ(gpu.GetQueryResult(stamp), 0u) << "not recorded yet";
    gpu.BeginQuery(frequency);
    gpu.RecordQuery(stamp);
    EXPECT_EQ(gpu.GetQueryResult(stamp), 5000u);
    gpu.RecordQuery(stamp);
    gpu.RecordQuery(stamp);
    EXPECT_EQ(gpu.GetQueryResult(stamp), 10u) << "queue used up, the clock takes over";
    gpu.EndQuery(frequency);
    EXPECT_EQ(gpu.GetQueryResult(frequency), 1'000'000u);
    gpu.SetQueryResult(frequency, 0);
    EXPECT_EQ(gpu.GetQueryResult(frequency), 0u);
    EXPECT_TRUE(gpu.Errors().empty());

    gpu.EndQuery(frequency);
    gpu.BeginQuery(stamp);
    gpu.RecordQuery(frequency);
    gpu.BeginQuery(frequency);
    gpu.BeginQuery(frequency);
    ASSERT_EQ(gpu.Errors().size(), 4u);
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("ended without BeginQuery"));
    EXPECT_THAT(gpu.Errors()[3], HasSubstr("begun twice"));
    gpu.EndQuery(frequency);
    gpu.DestroyQuery(stamp);
    gpu.DestroyQuery(frequency);
    EXPECT_EQ(gpu.OpenQueries(), 0u);
}

// ---- Fault injection and the log

TEST(RecordingGpu, ThrowFaultsThrowBeforeActingAndSkipNoexceptCalls)
{
    RecordingGpu gpu;
    gpu.InjectFaultAtCall(1, FaultKind::Throw);
    ImageId const image = gpu.CreateImage(Desc({1, 1, 0}, 0));
    EXPECT_THROW(gpu.CreateImage(Desc({1, 1, 0}, 0)), InjectedFault);
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Image), 1u);
    EXPECT_TRUE(gpu.Log()[1].faulted);

    gpu.InjectFault(Op::DestroyImage, 0, FaultKind::Throw);
    gpu.DestroyImage(image);
    EXPECT_EQ(gpu.LiveCount(), 0u);
    EXPECT_EQ(gpu.FaultsHit(), 1u) << "a throw fault on a destroy is consumed without effect";
    EXPECT_FALSE(gpu.Log().back().faulted);
    EXPECT_EQ(gpu.Problems(), "");
}

TEST(RecordingGpu, InvalidHandleAndNullMapFaultsFailQuietly)
{
    RecordingGpu gpu;
    gpu.InjectFault(Op::CreateBuffer, 1, FaultKind::InvalidHandle);
    gpu.InjectFault(Op::MapBuffer, 0, FaultKind::NullMap);
    gpu.InjectFault(Op::GetMaximumBufferSize, 0, FaultKind::InvalidHandle); // does not apply

    BufferId const buffer = gpu.CreateBuffer({4, 33}, nullptr);
    EXPECT_FALSE(gpu.CreateBuffer({4, 33}, nullptr).IsValid());
    EXPECT_EQ(gpu.LiveCount(ResourceKind::Buffer), 1u);
    EXPECT_EQ(gpu.MapBuffer(buffer, MapMode::Write), nullptr);
    EXPECT_EQ(gpu.OpenMaps(), 1u) << "the unmap is still owed";
    gpu.UnmapBuffer(buffer);
    EXPECT_EQ(gpu.GetMaximumBufferSize(), 256u << 20);
    EXPECT_NE(gpu.MapBuffer(buffer, MapMode::Write), nullptr) << "faults are consumed";
    gpu.UnmapBuffer(buffer);
    gpu.DestroyBuffer(buffer);

    EXPECT_EQ(gpu.FaultsHit(), 2u);
    EXPECT_EQ(gpu.Ops({Op::CreateBuffer, Op::MapBuffer}),
              (std::vector<Op>{Op::CreateBuffer, Op::CreateBuffer, Op::MapBuffer, Op::MapBuffer}));
    EXPECT_EQ(gpu.Calls(Op::CreateBuffer)[1]->result, ~std::uint64_t{0});
    EXPECT_THAT(gpu.Dump(), HasSubstr("1 CreateBuffer({4 bytes, flags 0x21}) -> invalid Buffer handle [faulted]"));
    EXPECT_EQ(gpu.Problems(), "");
}

// ---- Fault sweeps

namespace {

// Maps a new image and unmaps it, as library code must: owned and unwound.
void CarefulFill(RecordingGpu& gpu)
{
    ScopedResource<ImageId, IResourceFactory> image(&gpu, gpu.CreateImage(Desc({2, 2, 0}, HostRW)));
    if (!image.IsValid())
        return;
    MappedImage const map = gpu.MapImage(image.Get(), {}, MapMode::Write);
    // Armed only once the map returned: a map that threw is not unmapped.
    struct Unmap {
        RecordingGpu& gpu;
        ImageId id;
        ~Unmap() { gpu.UnmapImage(id, {}); }
    } const unmap{gpu, image.Get()};
    if (map.data != nullptr)
        std::memset(map.data, 1, 8);
}

// The same with bare handles: leaks when the map throws, misuses a failed create.
void CarelessFill(RecordingGpu& gpu)
{
    ImageId const image = gpu.CreateImage(Desc({2, 2, 0}, HostRW));
    MappedImage const map = gpu.MapImage(image, {}, MapMode::Write);
    if (map.data != nullptr)
        std::memset(map.data, 1, 8);
    gpu.UnmapImage(image, {});
    gpu.DestroyImage(image);
}

} // namespace

TEST(FaultSweep, CleanOperationPassesEveryFaultAndSetupResourcesAreNotLeaks)
{
    auto const result = SweepFaults(CarefulFill, [](RecordingGpu& gpu) { gpu.CreateBuffer({4, 0}, nullptr); });
    EXPECT_EQ(result.calls, 4u);
    EXPECT_EQ(result.cases, 4u) << "throws at create and map, an invalid image, a null map";
    EXPECT_TRUE(result.failures.empty()) << result.Report();
}

TEST(FaultSweep, FindsTheLeakAndTheBadDestroyOfACarelessOperation)
{
    auto const result = SweepFaults(CarelessFill);
    ASSERT_EQ(result.failures.size(), 2u) << result.Report();
    // Mapping the invalid image a failed create returned is accepted (the
    // library passes such handles on by design); destroying it is not.
    EXPECT_EQ(result.failures[0].call, 0u);
    EXPECT_EQ(result.failures[0].kind, FaultKind::InvalidHandle);
    EXPECT_THAT(result.failures[0].problems, HasSubstr("errors: DestroyImage: invalid Image handle"));
    EXPECT_THAT(result.failures[0].problems, Not(HasSubstr("MapImage")));
    EXPECT_EQ(result.failures[1].call, 1u);
    EXPECT_EQ(result.failures[1].op, Op::MapImage);
    EXPECT_EQ(result.failures[1].kind, FaultKind::Throw);
    EXPECT_THAT(result.failures[1].problems, HasSubstr("live resources: Image("));
    EXPECT_THAT(result.Report(), HasSubstr("call 1 (MapImage) failing with Throw:\n  live resources: Image("));

    EXPECT_TRUE(SweepFaults(CarelessFill, {}, {FaultKind::NullMap}).failures.empty());
}
