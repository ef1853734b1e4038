// Buffers: contents given at creation, maps for reading on any buffer and
// for writing on dynamic ones, descriptions as created.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using ScopedBuffer = ScopedResource<BufferId, IResourceFactory>;

class Buffers : public DeviceTest {};

TEST_P(Buffers, HoldTheirInitialContentsAndTakeWrittenOnes)
{
    EXPECT_GE(Gpu().GetMaximumBufferSize(), 1u << 16);
    std::vector<unsigned char> initial(96);
    std::iota(initial.begin(), initial.end(), 1);
    BufferDescription const description{96, BufferUsage::Vertex | BufferUsage::Dynamic};
    ScopedBuffer buffer(&Gpu(), Gpu().CreateBuffer(description, initial.data()));
    ASSERT_TRUE(buffer.IsValid());
    EXPECT_EQ(Gpu().GetBufferDescription(buffer.Get()), description);

    auto const read = [&] {
        std::vector<unsigned char> bytes(96);
        void const* data = Gpu().MapBuffer(buffer.Get(), MapMode::Read);
        if (data != nullptr)
            std::memcpy(bytes.data(), data, bytes.size());
        Gpu().UnmapBuffer(buffer.Get());
        EXPECT_NE(data, nullptr) << "read map of a buffer";
        return bytes;
    };
    EXPECT_EQ(read(), initial);

    std::vector<unsigned char> written(96);
    std::iota(written.rbegin(), written.rend(), 100);
    void* data = Gpu().MapBuffer(buffer.Get(), MapMode::Write);
    if (data != nullptr)
        std::memcpy(data, written.data(), written.size());
    Gpu().UnmapBuffer(buffer.Get());
    ASSERT_NE(data, nullptr) << "write map of a dynamic buffer";
    EXPECT_EQ(read(), written);

    // A static buffer made with its contents reads them back too.
    ScopedBuffer constant(&Gpu(), Gpu().CreateBuffer({24, BufferUsage::Vertex}, initial.data()));
    void const* bytes = Gpu().MapBuffer(constant.Get(), MapMode::Read);
    bool const same = bytes != nullptr && std::equal(initial.begin(), initial.begin() + 24,
                                                     static_cast<unsigned char const*>(bytes));
    Gpu().UnmapBuffer(constant.Get());
    EXPECT_TRUE(same);
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(Buffers, Capability::None);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Buffers)
