// The device contract pinned by numbers: the defaults of the records a device
// receives, read back from their bytes; the constants a device must agree
// with; the order of bases and operations as a device's vtable sees them; and
// what the library puts into the device on two paths whose bytes matter.

#include <Rendering/Device.h>
#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using namespace Zorvan::Rendering;
using Testing::Op;

namespace {

// One field of a record's default as the contract states it: its byte
// offset, its width in bytes and its value.
struct Field {
    std::size_t offset;
    std::size_t width;
    std::uint64_t value;
};

template <typename Record>
std::uint64_t Read(Record const& record, Field const& field)
{
    std::array<unsigned char, sizeof(Record)> bytes{};
    std::memcpy(bytes.data(), &record, sizeof(Record));
    std::uint64_t value = 0; // little-endian, like the targets the layout is pinned for
    std::memcpy(&value, bytes.data() + field.offset, field.width);
    return value;
}

template <typename Record>
void ExpectFields(Record const& record, std::vector<Field> const& fields)
{
    for (Field const& field : fields)
        EXPECT_EQ(Read(record, field), field.value) << "field at byte " << field.offset;
}

constexpr std::uint64_t AllOnes64 = ~std::uint64_t{0};
constexpr std::uint64_t AllOnes32 = 0xFFFF'FFFFu;

} // namespace

// ---- Defaults, read from the bytes a device receives

TEST(DeviceContract, PipelineStateDefaultsByNumber)
{
    std::vector<Field> fields;
    for (std::size_t entry = 0; entry < 10; ++entry) { // ten empty attributes: null name, all zero
        fields.push_back({entry * 32, 8, 0});
        for (std::size_t word = 0; word < 5; ++word)
            fields.push_back({entry * 32 + 8 + word * 4, 4, 0});
    }
    std::vector<Field> const rest{
        {320, 8, 0},          {328, 8, 0},        // two further words
        {336, 8, AllOnes64},                      // shader program: none
        {344, 8, 2},          {352, 8, 1},        // topology, fill mode
        {360, 4, 0},          {364, 4, 0},        // further state: 16 bytes of 0
        {368, 4, 0},          {372, 4, 0},
        {376, 1, 255},        {380, 4, 2},        // stencil read mask, depth comparison
        {384, 1, 1},                              // depth write
        {388, 4, 0},          {392, 4, 0},        // further state: 24 bytes of 0
        {396, 4, 0},          {400, 4, 0},
        {404, 4, 0},          {408, 4, 0},
        {412, 1, 255},        {416, 4, 1},        // stencil write mask, blend source
        {420, 4, 1},          {424, 1, 1},        // blend operation, colour write
        {428, 4, 0},          {432, 4, 0},        // render-target formats
        {436, 4, 0},          {440, 4, 0},
        {444, 4, 0},          {448, 4, 1},        // depth-stencil format, sample count
    };
    fields.insert(fields.end(), rest.begin(), rest.end());
    ExpectFields(PipelineStateDescription{}, fields);

    // The one change the library makes besides formats and counts: the
    // resolver's comparison that passes every fragment is 0.
    PipelineStateDescription resolver;
    resolver.depthComparison = Comparison::Always;
    EXPECT_EQ(Read(resolver, {380, 4, 0}), 0u);
}

TEST(DeviceContract, BindingStateDefaultsAndPackedViewsByNumber)
{
    std::vector<Field> fields;
    for (std::size_t i = 0; i < 8; ++i) { // constant buffers: no buffer, no stage
        fields.push_back({i * 16, 8, AllOnes64});
        fields.push_back({i * 16 + 8, 4, 0});
    }
    for (std::size_t i = 0; i < 16; ++i) { // textures: no view, no sampler, no stage
        fields.push_back({128 + i * 24, 8, AllOnes64});
        fields.push_back({128 + i * 24 + 8, 8, AllOnes64});
        fields.push_back({128 + i * 24 + 16, 4, 0});
    }
    fields.push_back({512, 4, 0});
    for (std::size_t i = 0; i < 10; ++i) // eight targets, depth-stencil, further view
        fields.push_back({516 + i * 4, 4, AllOnes32});
    ExpectFields(BindingState{}, fields);

    // A packed view holds the low 32 bits of the handle; an invalid handle
    // packs to all ones whatever its upper half.
    BindingState bindings;
    bindings.renderTargets[7] = RtvId{0x0000'0042'8000'0001u};
    bindings.depthStencil = RtvId{0x1234'5678'0000'0000u};
    bindings.reservedView = RtvId{0x0000'0007'FFFF'FFFFu};
    EXPECT_EQ(Read(bindings, {544, 4, 0}), 0x8000'0001u);
    EXPECT_EQ(Read(bindings, {548, 4, 0}), 0u);
    EXPECT_EQ(Read(bindings, {552, 4, 0}), AllOnes32);
    EXPECT_FALSE(bindings.reservedView.IsValid());
    EXPECT_TRUE(bindings.depthStencil.IsValid());
    EXPECT_EQ(bindings.renderTargets[7], RtvId{0x0000'0042'8000'0001u});
}

TEST(DeviceContract, RecordsCompareFieldByField)
{
    PipelineStateDescription const base;
    PipelineStateDescription other = base;
    EXPECT_EQ(other, base);
    other.stencilWriteMask = 254;
    EXPECT_NE(other, base);
    other = base;
    other.inputLayout[9].extra = 1;
    EXPECT_NE(other, base);

    // Names compare as the layout functions compare them: by pointer, else
    // over 200 characters.
    std::string const copied = PositionSemantic;
    PipelineStateDescription a;
    PipelineStateDescription b;
    a.inputLayout[0] = {PositionSemantic, 0, Format::R32G32F, 0, 0, 0};
    b.inputLayout[0] = {copied.c_str(), 0, Format::R32G32F, 0, 0, 0};
    EXPECT_EQ(a, b);
    std::string const longA = std::string(200, 'n') + "a";
    std::string const longB = std::string(200, 'n') + "b";
    a.inputLayout[1].name = longA.c_str();
    b.inputLayout[1].name = longB.c_str();
    EXPECT_EQ(a, b);
    b.inputLayout[1].name = nullptr;
    EXPECT_NE(a, b);
}

// Constants a device must read the same way; a change here breaks devices.
static_assert(BufferUsage::Vertex == 1 && BufferUsage::Constant == 4 && BufferUsage::Dynamic == 32);
static_assert(ShaderStage::Vertex == 1 && ShaderStage::TessellationControl == 2 &&
              ShaderStage::TessellationEvaluation == 4 && ShaderStage::Geometry == 8 && ShaderStage::Fragment == 16);
static_assert(ImageUsage::ShaderResource == 0x01 && ImageUsage::RenderTarget == 0x02 && ImageUsage::HostRead == 0x08 &&
              ImageUsage::HostWrite == 0x10 && ImageUsage::CopySource == 0x20 &&
              ImageUsage::CopyDestination == 0x40 && ImageUsage::Resolvable == 0x80 &&
              ImageUsage::ResolveDestination == 0x100 && ImageUsage::CubeMap == 0x200);
static_assert(MapMode::Read == 0 && MapMode::Write == 1);
static_assert(static_cast<std::uint32_t>(QueryType::Timestamp) == 0 &&
              static_cast<std::uint32_t>(QueryType::TimestampFrequency) == 1);
static_assert(static_cast<std::uint32_t>(SamplerFilter::Linear) == 1 &&
              static_cast<std::uint32_t>(SamplerAddress::Clamp) == 1 && SamplerDescription{} ==
              SamplerDescription{SamplerFilter::Linear, SamplerAddress::Clamp});

// ---- The interfaces as a device's vtable sees them

#if defined(__GXX_ABI_VERSION) && (defined(__x86_64__) || defined(__aarch64__))
namespace {

// Where a virtual member function sits: the vtable slot and the offset of the
// base subobject whose vtable holds it. Itanium C++ ABI member pointers: on
// x86-64 {1 + slot byte offset, this adjustment}; on AArch64 {slot byte
// offset, 2 * this adjustment + 1}.
struct Entry {
    std::ptrdiff_t slot;
    std::ptrdiff_t base;
    bool isVirtual;
};

template <typename F>
Entry Locate(F function)
{
    static_assert(sizeof(F) == 2 * sizeof(std::ptrdiff_t));
    std::ptrdiff_t words[2];
    std::memcpy(words, &function, sizeof words);
#if defined(__aarch64__)
    return {words[0] / std::ptrdiff_t{sizeof(void*)}, words[1] >> 1, (words[1] & 1) != 0};
#else
    return {(words[0] - 1) / std::ptrdiff_t{sizeof(void*)}, words[1], (words[0] & 1) != 0};
#endif
}

// Operations taken as members of IGpu: their base offset says which base's
// vtable they live in.
template <typename F>
struct AsGpuMember;
template <typename R, typename C, typename... A>
struct AsGpuMember<R (C::*)(A...)> {
    using type = R (IGpu::*)(A...);
};
template <typename R, typename C, typename... A>
struct AsGpuMember<R (C::*)(A...) noexcept> {
    using type = R (IGpu::*)(A...) noexcept;
};

template <typename F>
Entry InGpu(F function)
{
    return Locate(static_cast<typename AsGpuMember<F>::type>(function));
}

void ExpectInOrder(std::vector<Entry> const& entries, char const* what)
{
    for (std::size_t i = 0; i < entries.size(); ++i) {
        EXPECT_TRUE(entries[i].isVirtual) << what << " operation " << i;
        if (i == 0)
            continue;
        EXPECT_EQ(entries[i].base, entries[0].base) << what << " operation " << i << " is in another base";
        EXPECT_GT(entries[i].slot, entries[i - 1].slot) << what << " operation " << i << " is out of order";
    }
}

} // namespace

TEST(DeviceContract, BasesAndOperationsKeepTheirOrder)
{
    std::vector<Entry> const buffers{
        InGpu(&IBufferFactory::GetMaximumBufferSize), InGpu(&IBufferFactory::GetBufferDescription),
        InGpu(&IBufferFactory::CreateBuffer),         InGpu(&IBufferFactory::DestroyBuffer),
        InGpu(&IBufferFactory::MapBuffer),            InGpu(&IBufferFactory::UnmapBuffer)};
    std::vector<Entry> const images{
        InGpu(&IImageFactory::GetRenderTargetViewDescription), InGpu(&IImageFactory::GetImageDescription),
        InGpu(&IImageFactory::CreateImage),                    InGpu(&IImageFactory::DestroySampler),
        InGpu(&IImageFactory::DestroyRenderTargetView),        InGpu(&IImageFactory::DestroyShaderResourceView),
        InGpu(&IImageFactory::DestroyImage),                   InGpu(&IImageFactory::CreateShaderResourceView),
        InGpu(&IImageFactory::CreateRenderTargetView),         InGpu(&IImageFactory::CopyImage),
        InGpu(&IImageFactory::ResolveImage),                   InGpu(&IImageFactory::MapImage),
        InGpu(&IImageFactory::UnmapImage),                     InGpu(&IImageFactory::CreateSampler)};
    std::vector<Entry> const shaders{InGpu(&IShaderFactory::CreateShader), InGpu(&IShaderFactory::DestroyShader)};
    std::vector<Entry> const commands{
        InGpu(&ICommandContext::Draw),       InGpu(&ICommandContext::BeginQuery),
        InGpu(&ICommandContext::EndQuery),   InGpu(&ICommandContext::RecordQuery),
        InGpu(&ICommandContext::GetQueryResult), InGpu(&ICommandContext::DrawIndexed)};
    std::vector<Entry> const gpu{InGpu(&IGpu::CreatePipelineState), InGpu(&IGpu::DestroyQuery),
                                 InGpu(&IGpu::DestroyPipelineState), InGpu(&IGpu::BindPipelineState),
                                 InGpu(&IGpu::CreateQuery)};
    ExpectInOrder(buffers, "IBufferFactory");
    ExpectInOrder(images, "IImageFactory");
    ExpectInOrder(shaders, "IShaderFactory");
    ExpectInOrder(commands, "ICommandContext");
    ExpectInOrder(gpu, "IGpu");

    // Bases in order: IResourceFactory (IBufferFactory, then IImageFactory),
    // IShaderFactory, ICommandContext; IGpu's own operations follow those of
    // IBufferFactory in the vtable they share.
    EXPECT_EQ(buffers[0].base, 0);
    EXPECT_GT(images[0].base, buffers[0].base);
    EXPECT_GT(shaders[0].base, images[0].base);
    EXPECT_GT(commands[0].base, shaders[0].base);
    EXPECT_EQ(gpu[0].base, buffers[0].base);
    EXPECT_GT(gpu[0].slot, buffers.back().slot);
    EXPECT_EQ(Locate(static_cast<ImageDesc (IResourceFactory::*)(ImageId)>(&IImageFactory::GetImageDescription)).base,
              images[0].base)
        << "IResourceFactory holds its two bases at the offsets IGpu sees";
}
#else
TEST(DeviceContract, BasesAndOperationsKeepTheirOrder)
{
    GTEST_SKIP() << "reads vtable slots from member pointers as the Itanium C++ ABI lays them out on x86-64 and "
                    "AArch64";
}
#endif

// ---- Bytes the library hands the device

namespace {

std::vector<std::byte> Bytes(std::initializer_list<unsigned> values)
{
    std::vector<std::byte> bytes;
    for (unsigned v : values)
        bytes.push_back(static_cast<std::byte>(v));
    return bytes;
}

} // namespace

TEST(DeviceContract, ClearWritesItsSixteenConstantBytesInArgumentOrder)
{
    Testing::RecordingGpu gpu;
    ImageId const image = gpu.CreateImage({{4, 4, 0}, Format::R32G32B32A32F, 1, 1, ImageUsage::RenderTarget});
    RtvId const target = gpu.CreateRenderTargetView(image, {});
    {
        ShaderBasedImageClear clear(gpu);
        clear.Clear(target, 1.0f, 0.5f, 0.25f, -2.0f);
        clear.Clear(target, -1, 2, -2147483647 - 1, 7);
        clear.Clear(target, 0xDEADBEEFu, 1u, 0u, 0x80000000u);
    }
    std::vector<std::vector<std::byte>> const expected{
        Bytes({0x00, 0x00, 0x80, 0x3F, 0x00, 0x00, 0x00, 0x3F, 0x00, 0x00, 0x80, 0x3E, 0x00, 0x00, 0x00, 0xC0}),
        Bytes({0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80, 0x07, 0x00, 0x00, 0x00}),
        Bytes({0xEF, 0xBE, 0xAD, 0xDE, 0x01, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x80}),
    };
    auto const unmaps = gpu.Calls(Op::UnmapBuffer);
    auto const binds = gpu.Calls(Op::BindPipelineState);
    ASSERT_EQ(unmaps.size(), 3u) << gpu.Dump();
    ASSERT_EQ(binds.size(), 3u);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(unmaps[i]->written, expected[i]) << "clear " << i;
        // ... in the buffer that constant-buffer slot 0 then names.
        EXPECT_EQ(binds[i]->As<BindingState>().constantBuffers[0].buffer.Value(), unmaps[i]->handles[0]);
    }
    gpu.DestroyRenderTargetView(target);
    gpu.DestroyImage(image);
    EXPECT_EQ(gpu.Problems(), "");
}

TEST(DeviceContract, FailedUploadMapCopiesNothing)
{
    Testing::RecordingGpu gpu;
    std::vector<unsigned char> const pixels(4 * 4 * 4, 0xAB);

    // Through an upload image: no copy into the texture follows the failed map.
    ImageId const staged = gpu.CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::CopyDestination});
    gpu.ClearLog();
    gpu.InjectFault(Op::MapImage, 0, Testing::FaultKind::NullMap);
    FillRgbaTexture(gpu, staged, {}, pixels);
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::GetImageDescription, Op::CreateImage, Op::MapImage, Op::UnmapImage,
                                          Op::DestroyImage}))
        << gpu.Dump();
    EXPECT_EQ(gpu.ReadImage(staged), std::vector<std::byte>(4 * 4 * 4));

    // Directly: the image keeps its bytes.
    ImageId const direct = gpu.CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::HostWrite});
    gpu.ClearLog();
    gpu.InjectFault(Op::MapImage, 0, Testing::FaultKind::NullMap);
    FillRgbaTexture(gpu, direct, {}, pixels);
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::GetImageDescription, Op::MapImage, Op::UnmapImage}));
    EXPECT_EQ(gpu.ReadImage(direct), std::vector<std::byte>(4 * 4 * 4));

    // The same call without the fault does write, so the checks above can fail.
    FillRgbaTexture(gpu, direct, {}, pixels);
    EXPECT_EQ(gpu.ReadImage(direct), std::vector<std::byte>(4 * 4 * 4, std::byte{0xAB}));
    gpu.DestroyImage(direct);
    gpu.DestroyImage(staged);
    EXPECT_EQ(gpu.Problems(), "");
}
