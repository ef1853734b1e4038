// Vertex buffer sizing and dynamic uploads against the recording device.

#include <Rendering/Device.h>
#include <Rendering/Testing/RecordingGpu.h>
#include <Rendering/Vertex.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

using namespace Zorvan::Rendering;
using Testing::FaultKind;
using Testing::Op;
using Testing::RecordingGpu;

constexpr std::uint32_t dynamicVertex = 33;

class VertexBuffers : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (BufferId buffer : keep)
            gpu.DestroyBuffer(buffer);
        EXPECT_EQ(gpu.Problems(), "") << gpu.Dump();
    }

    BufferId Make(std::uint32_t bytes, std::uint32_t flags)
    {
        BufferId const buffer = gpu.CreateBuffer(BufferDescription{bytes, flags}, nullptr);
        gpu.ClearLog();
        return buffer;
    }

    bool HoldsPayload(BufferId buffer) const
    {
        auto const& bytes = gpu.BufferBytes(buffer);
        return bytes.size() >= payload.size() && std::memcmp(bytes.data(), payload.data(), payload.size()) == 0;
    }

    RecordingGpu gpu;
    std::vector<BufferId> keep;
    std::vector<unsigned char> payload = [] {
        std::vector<unsigned char> bytes(512);
        std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(7));
        return bytes;
    }();
    unsigned int const size = static_cast<unsigned int>(payload.size());
};

TEST_F(VertexBuffers, MaximumVertexCountRoundsToWholeTriangles)
{
    struct Case {
        std::uint32_t maximum;
        unsigned int expected;
    };
    // 32-byte vertices: v >= 6 rounds down to a multiple of 6, 3..5 give 3,
    // fewer than 3 pass through.
    for (Case c : {Case{4096, 126}, Case{160, 3}, Case{96, 3}, Case{64, 2}, Case{32, 1}, Case{0, 0},
                   Case{192, 6}, Case{223, 6}, Case{0xffffffffu, 134217726}}) {
        gpu.SetMaximumBufferSize(c.maximum);
        EXPECT_EQ(CalculateMaximumVertexCount(gpu), c.expected) << c.maximum;
    }
    gpu.SetMaximumBufferSize(1000);
    EXPECT_EQ(CalculateMaximumVertexCount(gpu, 12), 78u);
    EXPECT_EQ(CalculateMaximumVertexCount(gpu, 250), 3u);
    EXPECT_EQ(CalculateMaximumVertexCount(gpu, 1001), 0u);
}

TEST_F(VertexBuffers, InvalidHandleCreatesExactlyTheUploadSize)
{
    BufferId const buffer = UpdateDynamicVertexBuffer(BufferId{}, gpu, size, payload.data());
    keep.push_back(buffer);

    ASSERT_EQ(gpu.Count(Op::CreateBuffer), 1u);
    EXPECT_EQ(gpu.Calls(Op::CreateBuffer)[0]->As<BufferDescription>(), (BufferDescription{size, dynamicVertex}));
    EXPECT_EQ(gpu.Calls(Op::CreateBuffer)[0]->result, buffer.Value());
    EXPECT_EQ(gpu.Calls(Op::MapBuffer)[0]->value, MapMode::Write);
    EXPECT_TRUE(HoldsPayload(buffer));
}

TEST_F(VertexBuffers, ReusesLargeDynamicVertexBuffersAndNeverShrinks)
{
    BufferId const big = Make(1024, dynamicVertex);
    keep.push_back(big);

    EXPECT_EQ(UpdateDynamicVertexBuffer(big, gpu, size, payload.data()), big);
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::GetBufferDescription, Op::MapBuffer, Op::UnmapBuffer}));
    EXPECT_EQ(gpu.Description(big).size, 1024u);
    EXPECT_TRUE(HoldsPayload(big));

    // Exactly the size it holds is still large enough.
    BufferId const exact = Make(size, dynamicVertex | BufferUsage::Index);
    keep.push_back(exact);
    EXPECT_EQ(UpdateDynamicVertexBuffer(exact, gpu, size, payload.data()), exact);
    EXPECT_EQ(gpu.Count(Op::CreateBuffer), 0u);
}

TEST_F(VertexBuffers, RecreatesBuffersThatAreTooSmallOrNotDynamicVertex)
{
    struct Case {
        std::uint32_t size;
        std::uint32_t flags;
    };
    for (Case c : {Case{1024, BufferUsage::Vertex}, Case{1024, BufferUsage::Dynamic},
                   Case{size - 1, dynamicVertex}}) {
        BufferId const old = Make(c.size, c.flags);
        BufferId const fresh = UpdateDynamicVertexBuffer(old, gpu, size, payload.data());
        keep.push_back(fresh);

        EXPECT_NE(fresh, old);
        EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::GetBufferDescription, Op::DestroyBuffer, Op::CreateBuffer,
                                              Op::MapBuffer, Op::UnmapBuffer}))
            << gpu.Dump();
        EXPECT_EQ(gpu.Calls(Op::DestroyBuffer)[0]->handles[0], old.Value());
        EXPECT_EQ(gpu.Description(fresh), (BufferDescription{size, dynamicVertex}));
        EXPECT_TRUE(HoldsPayload(fresh));
    }
}

TEST_F(VertexBuffers, FailedMapSkipsTheCopyButStillUnmaps)
{
    BufferId const buffer = Make(1024, dynamicVertex);
    keep.push_back(buffer);

    gpu.InjectFault(Op::MapBuffer, 0, FaultKind::NullMap);
    Update(buffer, gpu, size, payload.data());
    EXPECT_EQ(gpu.FaultsHit(), 1u);
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::MapBuffer, Op::UnmapBuffer}));
    EXPECT_FALSE(HoldsPayload(buffer));

    gpu.InjectFault(Op::MapBuffer, 0, FaultKind::NullMap);
    EXPECT_EQ(UpdateDynamicVertexBuffer(buffer, gpu, size, payload.data()), buffer);
    EXPECT_EQ(gpu.Count(Op::UnmapBuffer), 2u);
    EXPECT_EQ(gpu.OpenMaps(), 0u);
}

} // namespace
