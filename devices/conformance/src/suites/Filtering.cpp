// Devices that filter as both provided devices do (Capability::LinearFiltering):
// copies that scale blend colour around each texel centre and take integer
// and depth texels whole; resolves average colour samples and take sample 0
// of the others. Drivers round their filters differently, so a filtered
// value may be one unit in the last place off the exact one.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Conformance/ImageHelpers.h>
#include <Rendering/Format.h>
#include <Rendering/Image.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Bytes = std::vector<std::byte>;
using ScopedShader = ScopedResource<ShaderId, IGpu>;
using ScopedPipeline = ScopedResource<PsoId, IGpu>;

constexpr std::uint32_t HostIo = ImageUsage::HostRead | ImageUsage::HostWrite;
constexpr std::uint32_t Copies = ImageUsage::CopySource | ImageUsage::CopyDestination;

// The channel type of a format, read as what its steps count: codes of
// normalized channels, values of half and float ones.
enum class Channel { U8, S8, U16, S16, F16, F32 };

std::size_t SizeOf(Channel channel) { return channel == Channel::F32 ? 4 : channel >= Channel::U16 ? 2 : 1; }

template <typename T>
T Load(std::byte const* at)
{
    T value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

double Read(Channel channel, std::byte const* at)
{
    switch (channel) {
    case Channel::U8: return Load<std::uint8_t>(at);
    case Channel::S8: return Load<std::int8_t>(at);
    case Channel::U16: return Load<std::uint16_t>(at);
    case Channel::S16: return Load<std::int16_t>(at);
    case Channel::F16: return half2float(Load<std::uint16_t>(at));
    case Channel::F32: return Load<float>(at);
    }
    return 0.0;
}

// Where a non-negative half or float lies among the values of its type, so
// that neighbouring values are one apart.
std::int64_t Ordinal(Channel channel, double value)
{
    return channel == Channel::F16 ? float2half(static_cast<float>(value))
                                   : std::bit_cast<std::uint32_t>(static_cast<float>(value));
}

// A value whose quarter sums every channel type holds exactly: codes of
// normalized channels (all but the lowest snorm codes, which read as the
// next one up), small integers in halves, eighths in floats.
Bytes RandomChannel(Channel channel, std::mt19937& random)
{
    Bytes bytes(SizeOf(channel));
    auto const store = [&bytes](auto value) { std::memcpy(bytes.data(), &value, sizeof value); };
    switch (channel) {
    case Channel::U8: store(static_cast<std::uint8_t>(random() % 256)); break;
    case Channel::S8: store(static_cast<std::int8_t>(static_cast<int>(random() % 255) - 127)); break;
    case Channel::U16: store(static_cast<std::uint16_t>(random() % 65536)); break;
    case Channel::S16: store(static_cast<std::int16_t>(static_cast<int>(random() % 65535) - 32767)); break;
    case Channel::F16: store(float2half(static_cast<float>(random() % 256))); break;
    case Channel::F32: store(static_cast<float>(random() % 65536) / 8.0f); break;
    }
    return bytes;
}

// Copies a level holding `pixels` into a new image of the other extent and
// returns what the device made of it.
Bytes ScaledCopy(IGpu& gpu, Format format, Size from, Size to, Bytes const& pixels)
{
    ScopedImage source = MakeImage(gpu, from, format, HostIo | Copies);
    ScopedImage destination = MakeImage(gpu, to, format, HostIo | Copies);
    WriteLevel(gpu, source.Get(), {}, pixels);
    gpu.CopyImage(source.Get(), {}, destination.Get(), {});
    return ReadMapped<std::byte>(gpu, destination.Get());
}

template <typename T>
Bytes AsBytes(std::vector<T> const& values)
{
    Bytes bytes(values.size() * sizeof(T));
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

template <typename T>
std::vector<T> As(Bytes const& bytes)
{
    std::vector<T> values(bytes.size() / sizeof(T));
    std::memcpy(values.data(), bytes.data(), values.size() * sizeof(T));
    return values;
}

class ScaledCopies : public DeviceTest {};
class ScaledVolumeCopies : public DeviceTest {};
class AveragedResolves : public DeviceTest {};

// Each destination texel's centre falls between four source texels, whose
// mean it takes.
TEST_P(ScaledCopies, HalvingGivesTheTwoByTwoBoxAverage)
{
    struct Case {
        Format format;
        Channel channel;
    };
    Case const cases[] = {{Format::R8G8B8A8, Channel::U8},        {Format::B8G8R8A8, Channel::U8},
                          {Format::R16G16B16A16, Channel::U16},   {Format::R8G8B8A8SN, Channel::S8},
                          {Format::R16G16SN, Channel::S16},       {Format::R16G16B16A16F, Channel::F16},
                          {Format::R32G32B32A32F, Channel::F32}};
    std::mt19937 random(7);
    for (Case const& c : cases) {
        SCOPED_TRACE(ToString(c.format));
        std::size_t const size = SizeOf(c.channel);
        std::size_t const channels = GetSize(c.format) / size;
        Bytes source;
        for (std::size_t i = 0; i < 4 * 4 * channels; ++i) {
            Bytes const value = RandomChannel(c.channel, random);
            source.insert(source.end(), value.begin(), value.end());
        }
        Bytes const result = ScaledCopy(Gpu(), c.format, {4, 4, 0}, {2, 2, 0}, source);
        ASSERT_EQ(result.size(), 2 * 2 * channels * size);
        auto const at = [&](std::size_t x, std::size_t y, std::size_t k) {
            return Read(c.channel, source.data() + ((y * 4 + x) * channels + k) * size);
        };
        for (std::size_t y = 0; y < 2; ++y)
            for (std::size_t x = 0; x < 2; ++x)
                for (std::size_t k = 0; k < channels; ++k) {
                    double const mean = (at(2 * x, 2 * y, k) + at(2 * x + 1, 2 * y, k) + at(2 * x, 2 * y + 1, k) +
                                         at(2 * x + 1, 2 * y + 1, k)) /
                                        4.0;
                    double const got = Read(c.channel, result.data() + ((y * 2 + x) * channels + k) * size);
                    if (c.channel == Channel::F16 || c.channel == Channel::F32)
                        EXPECT_LE(std::abs(Ordinal(c.channel, got) - Ordinal(c.channel, mean)), 1)
                            << "texel " << x << "," << y << " channel " << k << ": " << got << ", mean " << mean;
                    else
                        EXPECT_LE(std::abs(got - mean), 1.0)
                            << "texel " << x << "," << y << " channel " << k << ": " << got << ", mean " << mean;
                }
    }
}

// The one destination texel's centre is the centre of the middle source
// texel, which every format gives back bit for bit.
TEST_P(ScaledCopies, ReducingThreeByThreeToOneTakesTheMiddleTexel)
{
    Format const formats[] = {Format::B8G8R8,        Format::B8G8R8X8,      Format::R8G8,          Format::R16,
                              Format::R8G8B8A8SN,    Format::R16G16B16A16SN, Format::R16G16F,      Format::R32F,
                              Format::R32G32B32A32F, Format::R8G8B8A8U,     Format::R16U,          Format::R32G32U,
                              Format::R8I,           Format::R16G16B16A16I, Format::R32G32B32A32I};
    std::mt19937 random(13);
    for (Format format : formats) {
        SCOPED_TRACE(ToString(format));
        Bytes source(std::size_t{GetSize(format)} * 9);
        for (std::byte& byte : source) {
            byte = static_cast<std::byte>(random());
            if (byte == std::byte{0x80}) // the lowest snorm codes read as -1 and come back one up
                byte = std::byte{0x81};
        }
        // Finite halves and floats: their exponents stay below all ones.
        if (format == Format::R16G16F)
            for (std::size_t i = 1; i < source.size(); i += 2)
                source[i] &= std::byte{0xBB};
        if (format == Format::R32F || format == Format::R32G32B32A32F)
            for (std::size_t i = 3; i < source.size(); i += 4)
                source[i] &= std::byte{0xBF};
        Bytes const middle(source.begin() + 4 * GetSize(format), source.begin() + 5 * GetSize(format));
        EXPECT_EQ(ScaledCopy(Gpu(), format, {3, 3, 0}, {1, 1, 0}, source), middle);
    }
    std::vector<float> const depths{0.125f, 0.25f, 0.375f, 0.5f, 0.625f, 0.75f, 0.875f, 1.0f, 0.0625f};
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::D32F, {3, 3, 0}, {1, 1, 0}, AsBytes(depths))),
              std::vector<float>{0.625f});
    std::vector<std::uint16_t> const shorts{100, 200, 300, 400, 500, 600, 700, 800, 900};
    EXPECT_EQ(As<std::uint16_t>(ScaledCopy(Gpu(), Format::D16, {3, 3, 0}, {1, 1, 0}, AsBytes(shorts))),
              std::vector<std::uint16_t>{500});
}

// A destination texel centre at (x + 0.5) * from / to reads between the two
// source texels around it, and past the outer centres the edge texel alone.
TEST_P(ScaledCopies, BlendsTheTwoTexelsAroundEachCentreAndClampsAtTheEdges)
{
    std::vector<float> const ramp{0.0f, 4.0f, 8.0f, 12.0f, 16.0f};
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::R32F, {5, 1, 0}, {2, 1, 0}, AsBytes(ramp))),
              (std::vector<float>{3.0f, 13.0f}))
        << "centres at 1.25 and 3.75";
    std::vector<float> const pair{0.0f, 8.0f};
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::R32F, {2, 1, 0}, {4, 1, 0}, AsBytes(pair))),
              (std::vector<float>{0.0f, 2.0f, 6.0f, 8.0f}))
        << "centres at 0.25, 0.75, 1.25 and 1.75";
    std::vector<float> const column{0.0f, 8.0f};
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::R32F, {1, 2, 0}, {1, 4, 0}, AsBytes(column))),
              (std::vector<float>{0.0f, 2.0f, 6.0f, 8.0f}))
        << "rows blend as columns do";
}

// Integer and depth texels are never blended: each destination texel is
// the source texel under its centre.
TEST_P(ScaledCopies, IntegerAndDepthTexelsAreTakenWhole)
{
    std::vector<std::uint8_t> const bytes{10, 20, 30, 40, 50, 60};
    EXPECT_EQ(As<std::uint8_t>(ScaledCopy(Gpu(), Format::R8U, {6, 1, 0}, {2, 1, 0}, AsBytes(bytes))),
              (std::vector<std::uint8_t>{20, 50}));
    std::vector<std::int32_t> const words{-7, 1 << 30};
    EXPECT_EQ(As<std::int32_t>(ScaledCopy(Gpu(), Format::R32I, {2, 1, 0}, {6, 1, 0}, AsBytes(words))),
              (std::vector<std::int32_t>{-7, -7, -7, 1 << 30, 1 << 30, 1 << 30}));
    std::vector<float> const depths{0.125f, 0.25f, 0.375f, 0.5f, 0.625f, 0.75f};
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::D32F, {1, 6, 0}, {1, 2, 0}, AsBytes(depths))),
              (std::vector<float>{0.25f, 0.625f}));
}

// Each level is the 2x2 box average of the one above; multiples of 1024
// keep every average exact through four halvings.
TEST_P(ScaledCopies, MipChainLevelsAreBoxFilteredLevels)
{
    std::mt19937 random(3);
    std::vector<float> level(16 * 16);
    for (float& texel : level)
        texel = static_cast<float>(random() % 256 * 1024);
    ScopedImage source = MakeImage(Gpu(), {16, 16, 0}, Format::R32F, ImageUsage::CopySource | ImageUsage::HostWrite);
    WriteLevel(Gpu(), source.Get(), {}, level);
    ScopedImage chain = MipMapBuilder(Gpu()).BuildMipMapChain(source.Get(), 0, ImageUsage::HostRead);
    ASSERT_TRUE(chain.IsValid());
    ASSERT_EQ(Gpu().GetImageDescription(chain.Get()).mipLevels, 5u);
    for (std::uint32_t mip = 0, size = 16; mip < 5; ++mip, size /= 2) {
        SCOPED_TRACE("level " + std::to_string(mip));
        EXPECT_EQ(ReadMapped<float>(Gpu(), chain.Get(), {mip, 0}), level);
        std::uint32_t const half = size / 2;
        std::vector<float> next(half * half);
        for (std::uint32_t y = 0; y < half; ++y)
            for (std::uint32_t x = 0; x < half; ++x)
                next[y * half + x] = (level[2 * y * size + 2 * x] + level[2 * y * size + 2 * x + 1] +
                                      level[(2 * y + 1) * size + 2 * x] + level[(2 * y + 1) * size + 2 * x + 1]) /
                                     4.0f;
        level = std::move(next);
    }
}

// Depth slices are not blended: each destination slice is filtered from
// the source slice under its centre, (z + 0.5) * from / to.
TEST_P(ScaledVolumeCopies, EachSliceIsFilteredFromTheSliceUnderItsCentre)
{
    std::vector<float> texels;
    for (int slice = 0; slice < 6; ++slice)
        for (int i = 0; i < 4; ++i)
            texels.push_back(static_cast<float>(slice * 16 + i * 4));
    // 2x2x6 -> 1x1x2 reads slices 1 and 4, each the mean of its four texels (6 within the slice).
    EXPECT_EQ(As<float>(ScaledCopy(Gpu(), Format::R32F, {2, 2, 6}, {1, 1, 2}, AsBytes(texels))),
              (std::vector<float>{16.0f + 6.0f, 64.0f + 6.0f}));
}

// Per-sample values from a shader that reads the sample index, resolved.
class ResolveOfSamples {
public:
    ResolveOfSamples(IGpu& gpu, Format format, std::string const& output)
        : msaa_(MakeImage(gpu, {2, 2, 0}, format, ImageUsage::RenderTarget | ImageUsage::Resolvable, 1, 4)),
          resolved_(MakeImage(gpu, {2, 2, 0}, format, ImageUsage::ResolveDestination | ImageUsage::HostRead))
    {
        samples_ = gpu.GetImageDescription(msaa_.Get()).sampleCount;
        bool const depth = IsDepthFormat(format);
        {
            ScopedTarget const view(&gpu, gpu.CreateRenderTargetView(msaa_.Get(), {}));
            ShaderDescription program;
            program.vertex = "void main() { float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                             "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                             "    $Position$ = float4(x, y, 0.0, 1.0); }\n";
            program.fragment = output + "\n";
            ScopedShader const shader(&gpu, gpu.CreateShader(program));
            PipelineStateDescription description;
            description.shader = shader.Get();
            description.sampleCount = samples_;
            BindingState bindings;
            if (depth) {
                description.depthComparison = Comparison::Always;
                description.depthStencilFormat = format;
                bindings.depthStencil = view.Get();
            } else {
                description.renderTargetFormats[0] = format;
                bindings.renderTargets[0] = view.Get();
            }
            ScopedPipeline const pipeline(&gpu, gpu.CreatePipelineState(description));
            gpu.BindPipelineState(pipeline.Get(), bindings);
            gpu.Draw({}, 3, 0);
        }
        gpu.ResolveImage(msaa_.Get(), {}, resolved_.Get(), {});
        texels_ = ReadMapped<std::byte>(gpu, resolved_.Get());
    }

    std::uint32_t Samples() const { return samples_; }
    template <typename T>
    std::vector<T> Texels() const
    {
        return As<T>(texels_);
    }

private:
    ScopedImage msaa_;
    ScopedImage resolved_;
    std::uint32_t samples_ = 0;
    Bytes texels_;
};

TEST_P(AveragedResolves, ColourSamplesResolveToTheirMean)
{
    // Sample i holds codes 10 + 8i and 250 - 12i; i + 1; and 2i, i, 0, -i.
    ResolveOfSamples const bytes(Gpu(), Format::R8G8,
                                 "[out float2 c : 0] void main() { float i = float($SampleId$);\n"
                                 "    $c$ = float2(10.0 + 8.0 * i, 250.0 - 12.0 * i) / 255.0; }");
    double const middle = (bytes.Samples() - 1) / 2.0;
    std::vector<std::uint8_t> const codes = bytes.Texels<std::uint8_t>();
    ASSERT_EQ(codes.size(), 2u * 2 * 2);
    for (std::size_t texel = 0; texel < 4; ++texel) {
        EXPECT_NEAR(codes[2 * texel], 10.0 + 8.0 * middle, 1.0) << "texel " << texel;
        EXPECT_NEAR(codes[2 * texel + 1], 250.0 - 12.0 * middle, 1.0) << "texel " << texel;
    }

    ResolveOfSamples const floats(Gpu(), Format::R32F,
                                  "[out float c : 0] void main() { $c$ = float($SampleId$) + 1.0; }");
    EXPECT_EQ(floats.Texels<float>(), std::vector<float>(4, static_cast<float>(floats.Samples() + 1) / 2.0f));

    ResolveOfSamples const halves(Gpu(), Format::R16G16B16A16F,
                                  "[out float4 c : 0] void main() { $c$ = float4(2.0, 1.0, 0.0, -1.0) * "
                                  "float($SampleId$); }");
    float const mean = static_cast<float>(halves.Samples() - 1) / 2.0f;
    std::vector<unsigned short> expected;
    for (int texel = 0; texel < 4; ++texel)
        for (float weight : {2.0f, 1.0f, 0.0f, -1.0f})
            expected.push_back(float2half(weight * mean));
    EXPECT_EQ(halves.Texels<unsigned short>(), expected);
}

TEST_P(AveragedResolves, IntegerAndDepthSamplesResolveToSampleZero)
{
    ResolveOfSamples const unsignedInts(Gpu(), Format::R32U,
                                        "[out uint c : 0] void main() { $c$ = $SampleId$ * 10u + 5u; }");
    EXPECT_EQ(unsignedInts.Texels<std::uint32_t>(), std::vector<std::uint32_t>(4, 5u));
    ResolveOfSamples const signedBytes(Gpu(), Format::R8G8I,
                                       "[out int2 c : 0] void main() { int i = int($SampleId$);\n"
                                       "    $c$ = int2(-3 - 20 * i, 7 + i); }");
    EXPECT_EQ(signedBytes.Texels<std::int8_t>(), (std::vector<std::int8_t>{-3, 7, -3, 7, -3, 7, -3, 7}));
    ResolveOfSamples const depth(Gpu(), Format::D32F,
                                 "void main() { $FragDepth$ = float($SampleId$ + 1u) / 8.0; }");
    EXPECT_EQ(depth.Texels<float>(), std::vector<float>(4, 0.125f));
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(ScaledCopies, Capability::LinearFiltering);
INSTANTIATE_CONFORMANCE_SUITE(ScaledVolumeCopies, Capability::LinearFiltering | Capability::VolumeImages);
INSTANTIATE_CONFORMANCE_SUITE(AveragedResolves,
                              Capability::LinearFiltering | Capability::Multisampling | Capability::Shaders);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Filtering)
