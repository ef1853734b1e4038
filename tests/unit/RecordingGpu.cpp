// Black-box tests of the recording test device: storage, strictness,
// accounting, scripting and fault injection.

#include <Rendering/Testing/FaultSweep.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>

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

// Multisampled images are resolved, never mapped; a write map of an image
// the host cannot read hands out the conspicuous pattern, not the content.
TEST(RecordingGpu, MapsNeverShowMultisampledOrWriteOnlyContent)
{
    RecordingGpu gpu;
    ImageId const msaa = gpu.CreateImage(Desc({2, 1, 0}, HostRW, Format::R8, 4));
    EXPECT_EQ(gpu.MapImage(msaa, {}, MapMode::Read).data, nullptr);
    gpu.UnmapImage(msaa, {});
    ASSERT_EQ(gpu.Errors().size(), 1u);
    EXPECT_THAT(gpu.Errors()[0], HasSubstr("has 4 samples; resolve it"));
    EXPECT_EQ(gpu.OpenMaps(), 0u);

    ImageId const writeOnly = gpu.CreateImage(Desc({2, 1, 0}, ImageUsage::HostWrite, Format::R8));
    ImageId const readWrite = gpu.CreateImage(Desc({2, 1, 0}, HostRW, Format::R8));
    for (ImageId image : {writeOnly, readWrite}) {
        gpu.WriteImage(image, {}, Ramp(2, 7));
        MappedImage const w = gpu.MapImage(image, {}, MapMode::Write);
        ASSERT_NE(w.data, nullptr);
        std::byte const first = static_cast<std::byte const*>(w.data)[0];
        EXPECT_EQ(first, image == writeOnly ? std::byte{0xCD} : std::byte{7});
        static_cast<std::byte*>(w.data)[1] = std::byte{42};
        gpu.UnmapImage(image, {});
        EXPECT_EQ(gpu.ReadImage(image)[1], std::byte{42});
        gpu.DestroyImage(image);
    }
    gpu.DestroyImage(msaa);
    gpu.ResetAccounting();
    EXPECT_EQ(gpu.Problems(), "");
}

TEST(RecordingGpu, CreateImageRefusesWhatNoDeviceMakes)
{
    RecordingGpu gpu;
    std::vector<std::pair<ImageDesc, char const*>> const refused{
        {Desc({0, 0, 0}, HostRW), "an empty extent"},
        {Desc({0, 4, 0}, HostRW), "not a 1D, 2D or 3D extent"},
        {Desc({4, 0, 4}, HostRW), "not a 1D, 2D or 3D extent"},
        {Desc({4, 4, 0}, HostRW, Format::None), "no pixel format"},
        {Desc({4, 4, 0}, HostRW, static_cast<Format>(FormatCount)), "no pixel format"},
        {Desc({4, 4, 0}, HostRW, Format::R8, 0), "sample count 0"},
        {Desc({4, 2, 0}, ImageUsage::CubeMap), "square, single-sampled faces"},
        {Desc({4, 4, 2}, HostRW, Format::R8, 4), "only 2D images can be multisampled"},
        {Desc({4, 4, 0}, HostRW, Format::R8, 4, 2), "one mip level"},
        {Desc({4, 4, 0}, HostRW, Format::R8, 1, 4), "4 mip levels, the chain has 3"},
    };
    for (auto const& [description, why] : refused) {
        gpu.ResetAccounting();
        EXPECT_FALSE(gpu.CreateImage(description).IsValid()) << why;
        ASSERT_EQ(gpu.Errors().size(), 1u) << why;
        EXPECT_THAT(gpu.Errors()[0], HasSubstr(why));
    }
    EXPECT_EQ(gpu.LiveCount(), 0u);

    // A multisampled image asked for the full chain has its one level.
    ImageId const msaa = gpu.CreateImage(Desc({4, 4, 0}, ImageUsage::RenderTarget, Format::R8, 4, 0));
    EXPECT_EQ(gpu.Description(msaa).mipLevels, 1u);
    gpu.DestroyImage(msaa);
}

TEST(RecordingGpu, BuffersKeepInitialDataAndOnlyWriteMapsStore)
{
    RecordingGpu gpu;
    // Any buffer may be mapped for reading; only dynamic ones for writing.
    BufferId const vertices = gpu.CreateBuffer({4, BufferUsage::Vertex}, nullptr);
    EXPECT_NE(gpu.MapBuffer(vertices, MapMode::Read), nullptr);
    gpu.UnmapBuffer(vertices);
    gpu.DestroyBuffer(vertices);

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

template <typename T>
std::vector<std::byte> AsBytes(std::vector<T> const& values)
{
    std::vector<std::byte> bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <typename T>
std::vector<T> As(std::vector<std::byte> const& bytes)
{
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

// What a copy of `pixels` between two extents of one format leaves in the destination.
template <typename T>
std::vector<T> Scaled(Format format, Size from, Size to, std::vector<T> const& pixels)
{
    RecordingGpu gpu;
    ImageId const source = gpu.CreateImage(Desc(from, CopyRW, format));
    ImageId const destination = gpu.CreateImage(Desc(to, CopyRW, format));
    gpu.WriteImage(source, {}, AsBytes(pixels));
    gpu.CopyImage(source, {}, destination, {});
    EXPECT_EQ(gpu.Errors().size(), 0u) << gpu.Problems();
    std::vector<T> const result = As<T>(gpu.ReadImage(destination));
    gpu.DestroyImage(source);
    gpu.DestroyImage(destination);
    return result;
}

TEST(RecordingGpu, CopyBetweenLevelsScalesByBoxFiltering)
{
    RecordingGpu gpu;
    gpu.SetFullChainFill(true);
    ImageId const image = gpu.CreateImage(Desc({4, 2, 0}, CopyRW, Format::R8, 1, 0));
    EXPECT_EQ(gpu.Description(image).mipLevels, 3u);
    gpu.WriteImage(image, {}, Ramp(8, 10)); // rows 10 11 12 13 / 14 15 16 17
    gpu.CopyImage(image, {0, 0}, image, {1, 0});
    gpu.CopyImage(image, {1, 0}, image, {2, 0});
    EXPECT_EQ(gpu.ReadImage(image, {1, 0}), (std::vector<std::byte>{std::byte{13}, std::byte{15}}))
        << "12.5 and 14.5 round away from zero";
    EXPECT_EQ(gpu.ReadImage(image, {2, 0}), std::vector<std::byte>{std::byte{14}});
    EXPECT_EQ(gpu.Problems().find("errors"), std::string::npos);
    gpu.DestroyImage(image);
}

// Destination centres map to (x + 0.5) * from / to; the two source texels
// around that point blend, and the edge texels hold beyond the outer centres.
TEST(RecordingGpu, ScalingCopiesBlendAroundEachTexelCentre)
{
    EXPECT_EQ(Scaled<float>(Format::R32F, {5, 0, 0}, {2, 0, 0}, {0, 4, 8, 12, 16}), (std::vector<float>{3, 13}));
    EXPECT_EQ(Scaled<float>(Format::R32F, {2, 0, 0}, {8, 0, 0}, {0, 8}),
              (std::vector<float>{0, 0, 1, 3, 5, 7, 8, 8}));
    EXPECT_EQ(Scaled<float>(Format::R32F, {1, 3, 0}, {1, 1, 0}, {-1, 5, 9}), std::vector<float>{5});
    // Two axes at once: the centre of a 3x2 -> 2x1 copy reads 0.25 and 1.75 across, 0.5 down.
    EXPECT_EQ(Scaled<float>(Format::R32F, {3, 2, 0}, {2, 1, 0}, {0, 8, 16, 32, 40, 48}), (std::vector<float>{18, 30}));
    // Channels filter apart, blue-first ones and B8G8R8X8's padding byte alike.
    EXPECT_EQ(Scaled<std::uint8_t>(Format::B8G8R8X8, {2, 0, 0}, {1, 0, 0}, {0, 10, 200, 7, 2, 20, 100, 9}),
              (std::vector<std::uint8_t>{1, 15, 150, 8}));
    // Every tap counts, weight zero included, as in GL's filter: an infinity beside the sampled texel makes NaN.
    float const infinity = std::numeric_limits<float>::infinity();
    EXPECT_TRUE(std::isnan(Scaled<float>(Format::R32F, {3, 0, 0}, {1, 0, 0}, {infinity, 1, infinity})[0]));
}

// A region of one colour keeps it in every colour format: decoding and
// encoding again give back every code but the lowest snorm ones, which
// read as -1 and come back one up, as on a GPU.
TEST(RecordingGpu, ScalingKeepsUniformColourInEveryColourFormat)
{
    Format const formats[] = {Format::B8G8R8,     Format::B8G8R8A8,       Format::B8G8R8X8,      Format::R8,
                              Format::R8G8,       Format::R8G8B8A8,       Format::R16,           Format::R16G16,
                              Format::R16G16B16A16, Format::R8SN,         Format::R8G8SN,        Format::R8G8B8A8SN,
                              Format::R16SN,      Format::R16G16SN,       Format::R16G16B16A16SN, Format::R16F,
                              Format::R16G16F,    Format::R16G16B16A16F,  Format::R32F,          Format::R32G32F,
                              Format::R32G32B32F, Format::R32G32B32A32F};
    std::mt19937 random(5);
    for (Format format : formats) {
        SCOPED_TRACE(ToString(format));
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<std::uint8_t> texel(GetSize(format));
            for (auto& byte : texel)
                byte = static_cast<std::uint8_t>(random());
            // Finite halves and floats, whose exponents stay below all ones.
            if (format >= Format::R16F && format <= Format::R16G16B16A16F)
                for (std::size_t i = 1; i < texel.size(); i += 2)
                    texel[i] &= 0xBB;
            if (format >= Format::R32F && format <= Format::R32G32B32A32F)
                for (std::size_t i = 3; i < texel.size(); i += 4)
                    texel[i] &= 0xBF;
            std::vector<std::uint8_t> expected = texel;
            if (format >= Format::R8SN && format <= Format::R8G8B8A8SN)
                for (auto& byte : expected)
                    byte = byte == 0x80 ? 0x81 : byte;
            if (format >= Format::R16SN && format <= Format::R16G16B16A16SN)
                for (std::size_t i = 0; i < texel.size(); i += 2)
                    if (texel[i] == 0x00 && texel[i + 1] == 0x80)
                        expected[i] = 0x01;
            std::vector<std::uint8_t> source, wanted;
            for (int i = 0; i < 4 * 4; ++i)
                source.insert(source.end(), texel.begin(), texel.end());
            for (int i = 0; i < 3 * 5; ++i)
                wanted.insert(wanted.end(), expected.begin(), expected.end());
            EXPECT_EQ(Scaled(format, {4, 4, 0}, {3, 5, 0}, source), wanted);
            ASSERT_FALSE(HasFailure());
        }
    }
    EXPECT_EQ(Scaled<std::int8_t>(Format::R8SN, {2, 0, 0}, {1, 0, 0}, {-128, -128}), std::vector<std::int8_t>{-127});
    EXPECT_EQ(Scaled<std::int16_t>(Format::R16SN, {2, 0, 0}, {1, 0, 0}, {-32768, -32768}),
              std::vector<std::int16_t>{-32767});
    EXPECT_EQ(Scaled<std::int8_t>(Format::R8SN, {2, 0, 0}, {1, 0, 0}, {-128, 1}), std::vector<std::int8_t>{-63})
        << "(-127 + 1) / 2: the lowest code blends as -1 too";
    EXPECT_EQ(Scaled<std::int16_t>(Format::R16SN, {2, 0, 0}, {1, 0, 0}, {-32768, 1}),
              std::vector<std::int16_t>{-16383});
}

// Normalized results round to the nearest code, halves away from zero;
// halves round to nearest even, where the library's float2half truncates.
TEST(RecordingGpu, FilteredResultsRoundToNearest)
{
    EXPECT_EQ(Scaled<std::uint8_t>(Format::R8, {6, 0, 0}, {3, 0, 0}, {0, 1, 2, 3, 254, 255}),
              (std::vector<std::uint8_t>{1, 3, 255}));
    EXPECT_EQ(Scaled<std::int8_t>(Format::R8SN, {6, 0, 0}, {3, 0, 0}, {-1, -2, 1, 2, -127, 127}),
              (std::vector<std::int8_t>{-2, 2, 0}));
    EXPECT_EQ(Scaled<std::uint16_t>(Format::R16, {4, 0, 0}, {2, 0, 0}, {0, 1, 65534, 65535}),
              (std::vector<std::uint16_t>{1, 65535}));
    EXPECT_EQ(Scaled<std::int16_t>(Format::R16SN, {4, 0, 0}, {2, 0, 0}, {-32767, -32766, 0, 3}),
              (std::vector<std::int16_t>{-32767, 2}));
    // Halfway between two halves goes to the even one (1 + 1/2048 -> 1, 1 + 3/2048 -> 1 + 2/1024),
    // subnormals alike; the largest half stays finite.
    EXPECT_EQ(Scaled<std::uint16_t>(Format::R16F, {8, 0, 0}, {4, 0, 0},
                                    {0x3C00, 0x3C01, 0x3C01, 0x3C02, 0x0001, 0x0002, 0x7BFF, 0x7BFF}),
              (std::vector<std::uint16_t>{0x3C00, 0x3C02, 0x0002, 0x7BFF}));
    // Three quarters of a step rounds up; a quarter down.
    EXPECT_EQ(Scaled<std::uint16_t>(Format::R16G16F, {2, 2, 0}, {1, 1, 0},
                                    {0x3C00, 0x4001, 0x3C00, 0x4000, 0x3C00, 0x4000, 0x3C03, 0x4000}),
              (std::vector<std::uint16_t>{0x3C01, 0x4000}));
    float const mean = std::bit_cast<float>(Scaled<std::uint32_t>(Format::R32F, {2, 0, 0}, {1, 0, 0},
                                                                  {0x3F800000, 0x3F800001})[0]);
    EXPECT_EQ(std::bit_cast<std::uint32_t>(mean), 0x3F800000u) << "1 + 2^-24 rounds to even, in float too";
}

// Integer, depth and stencil texels move whole: each destination texel
// copies the source texel under its centre, (x + 0.5) * from / to; a centre
// on a texel boundary takes the texel after it, as GL's nearest blit does.
TEST(RecordingGpu, IntegerDepthAndStencilTexelsScaleByTheTexelUnderTheCentre)
{
    EXPECT_EQ(Scaled<std::uint8_t>(Format::R8U, {4, 0, 0}, {2, 0, 0}, {10, 20, 30, 40}),
              (std::vector<std::uint8_t>{20, 40}));
    EXPECT_EQ(Scaled<std::int32_t>(Format::R32I, {6, 0, 0}, {2, 0, 0}, {-1, -2, -3, -4, -5, -6}),
              (std::vector<std::int32_t>{-2, -5}));
    EXPECT_EQ(Scaled<std::uint16_t>(Format::R16G16U, {1, 3, 0}, {1, 1, 0}, {1, 2, 3, 4, 5, 6}),
              (std::vector<std::uint16_t>{3, 4}));
    // Depth with its stencil byte, and the 8-byte depth-stencil texel, never blended.
    EXPECT_EQ(Scaled<std::uint32_t>(Format::D24S8, {3, 0, 0}, {1, 0, 0}, {0x01000000, 0xAB123456, 0xFFFFFFFF}),
              std::vector<std::uint32_t>{0xAB123456});
    EXPECT_EQ(Scaled<std::uint32_t>(Format::D32FS8X24, {2, 0, 0}, {5, 0, 0}, {0x3E800000, 7, 0x3F400000, 9}),
              (std::vector<std::uint32_t>{0x3E800000, 7, 0x3E800000, 7, 0x3F400000, 9, 0x3F400000, 9, 0x3F400000, 9}));
    EXPECT_EQ(Scaled<float>(Format::D32F, {2, 2, 0}, {1, 1, 0}, {0.25f, 0.5f, 0.75f, 1.0f}), std::vector<float>{1.0f});
}

// A 3D copy blends within each slice only, taking the source slice under
// the destination slice's centre.
TEST(RecordingGpu, VolumeCopiesTakeTheSliceUnderEachCentre)
{
    std::vector<float> texels;
    for (int slice = 0; slice < 4; ++slice)
        for (int i = 0; i < 4; ++i)
            texels.push_back(static_cast<float>(slice * 100 + i));
    EXPECT_EQ(Scaled<float>(Format::R32F, {2, 2, 4}, {1, 1, 2}, texels), (std::vector<float>{101.5f, 301.5f}));
    EXPECT_EQ(Scaled<float>(Format::R32F, {2, 2, 4}, {2, 2, 0}, texels), (std::vector<float>{200, 201, 202, 203}))
        << "a 2D destination is the middle slice";
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

// The value each texel resolves to from samples written one by one.
template <typename T>
std::vector<T> Resolved(Format format, std::vector<std::vector<T>> const& samples)
{
    RecordingGpu gpu;
    auto const count = static_cast<std::uint32_t>(samples.size());
    ImageId const msaa = gpu.CreateImage(Desc({2, 1, 0}, ImageUsage::Resolvable, format, count));
    ImageId const single = gpu.CreateImage(Desc({2, 1, 0}, ImageUsage::ResolveDestination, format));
    for (std::uint32_t k = 0; k < count; ++k)
        gpu.WriteImage(msaa, {}, AsBytes(samples[k]), k);
    gpu.ResolveImage(msaa, {}, single, {});
    EXPECT_EQ(gpu.Errors().size(), 0u) << gpu.Problems();
    std::vector<T> const result = As<T>(gpu.ReadImage(single));
    gpu.DestroyImage(msaa);
    gpu.DestroyImage(single);
    return result;
}

TEST(RecordingGpu, ResolveAveragesColourAndTakesSampleZeroOfTheRest)
{
    EXPECT_EQ(Resolved<std::uint8_t>(Format::R8, {{30, 31}, {60, 0}, {90, 0}, {121, 1}}),
              (std::vector<std::uint8_t>{75, 8}));
    EXPECT_EQ(Resolved<std::int8_t>(Format::R8G8SN, {{-128, 10, 0, 1}, {-127, 11, 0, 1}}),
              (std::vector<std::int8_t>{-127, 11, 0, 1}))
        << "the lowest code reads as -1, and 10.5 rounds away from zero";
    EXPECT_EQ(Resolved<float>(Format::R32F, {{1, -2}, {2, -2}, {5, 0}, {10, 0}}), (std::vector<float>{4.5f, -1.0f}));
    EXPECT_EQ(Resolved<std::uint16_t>(Format::R16G16F, {{0x3C00, 0x3C01, 0, 0x7BFF}, {0x4000, 0x3C02, 0, 0x7BFF}}),
              (std::vector<std::uint16_t>{0x3E00, 0x3C02, 0, 0x7BFF}))
        << "1.5, and the halfway mean of two halves to the even one";

    EXPECT_EQ(Resolved<std::uint8_t>(Format::R8U, {{5, 6}, {15, 16}, {25, 26}, {35, 36}}),
              (std::vector<std::uint8_t>{5, 6}));
    EXPECT_EQ(Resolved<std::int32_t>(Format::R32I, {{-1, 1}, {-3, 3}}), (std::vector<std::int32_t>{-1, 1}));
    EXPECT_EQ(Resolved<float>(Format::D32F, {{0.125f, 1.0f}, {0.375f, 0.0f}, {0.5f, 0.5f}, {0.75f, 0.25f}}),
              (std::vector<float>{0.125f, 1.0f}));
    EXPECT_EQ(Resolved<std::uint32_t>(Format::D24S8, {{0x01000010, 0x02000020}, {0x030000F0, 0x040000F0}}),
              (std::vector<std::uint32_t>{0x01000010, 0x02000020}));
}

TEST(RecordingGpu, ResolveChecksItsRulesAndChangesNothingWhenRefused)
{
    RecordingGpu gpu;
    ImageId const msaa = gpu.CreateImage(Desc({2, 1, 0}, ImageUsage::Resolvable, Format::R8, 4));
    ImageId const single = gpu.CreateImage(Desc({2, 1, 0}, 0x120, Format::R8));
    gpu.WriteImage(msaa, {}, Ramp(2, 30));
    gpu.WriteImage(single, {}, Ramp(2, 90));
    gpu.ResolveImage(single, {}, msaa, {});
    EXPECT_EQ(gpu.Errors().size(), 4u) << "not multisampled, not resolvable, 4 samples, no ResolveDestination";
    EXPECT_EQ(gpu.ReadImage(msaa, {}, 3), Ramp(2, 30));
    EXPECT_EQ(gpu.ReadImage(single), Ramp(2, 90));
    gpu.DestroyImage(msaa);
    gpu.DestroyImage(single);
}

TEST(RecordingGpu, RenderTargetViewInfoDescribesTheViewedLevel)
{
    RecordingGpu gpu;
    ImageId const image = gpu.CreateImage(Desc({8, 6, 0}, ImageUsage::RenderTarget, Format::R32F, 1, 3));
    RtvId const view = gpu.CreateRenderTargetView(image, {.mipLevel = 2});
    EXPECT_EQ(gpu.GetRenderTargetViewDescription(view),
              (RenderTargetViewInfo{Format::R32F, 1, {2, 1, 0}, image, {.mipLevel = 2}}));
    ImageId const msaa = gpu.CreateImage(Desc({8, 6, 0}, ImageUsage::RenderTarget, Format::R32F, 2));
    RtvId const msaaView = gpu.CreateRenderTargetView(msaa, {});
    EXPECT_EQ(gpu.GetRenderTargetViewDescription(msaaView),
              (RenderTargetViewInfo{Format::R32F, 2, {8, 6, 0}, msaa, {}}));
    gpu.DestroyRenderTargetView(msaaView);
    gpu.DestroyImage(msaa);
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
