#pragma once

// Shared by the image device suites: images made with explicit flags (so the
// same test runs on strict real devices), raw level writes through the
// device's own mapping, and a fault sweep over the recording device.

#include "DeviceTestSupport.h"

#include <Rendering/Image.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <span>
#include <string>
#include <vector>

namespace Zorvan::Rendering::TestSupport {

using ScopedImage = ScopedResource<ImageId, IResourceFactory>;

inline ScopedImage MakeImage(IResourceFactory& factory, Size size, Format format, std::uint32_t flags,
                             std::uint32_t mipLevels = 1, std::uint32_t samples = 1)
{
    ScopedImage image(&factory, factory.CreateImage(ImageDesc{size, format, samples, mipLevels, flags}));
    EXPECT_TRUE(image.IsValid()) << "the device could not create the test image";
    return image;
}

// Writes a tightly packed level (all depth slices) through a write map; the
// image needs host write (0x10).
template <typename T>
void WriteLevel(IResourceFactory& factory, ImageId image, SubImage where, std::vector<T> const& values)
{
    ImageDesc const description = factory.GetImageDescription(image);
    Size const level = CalculateMipLevelSize(description.size, where.mipLevel);
    std::int64_t const rows = level.height > 0 ? level.height : 1;
    std::int64_t const slices = level.depth > 0 ? level.depth : 1;
    std::int64_t const rowBytes = std::int64_t{GetSize(description.format)} * level.width;
    ASSERT_EQ(values.size() * sizeof(T), static_cast<std::size_t>(rowBytes * rows * slices));
    MappedImage const mapped = factory.MapImage(image, where, MapMode::Write);
    if (mapped.data != nullptr)
        CopyImageBuffer(values.data(), rowBytes, rowBytes * rows, mapped.data, mapped.rowPitch, mapped.slicePitch,
                        level.width, rows, slices);
    factory.UnmapImage(image, where);
    ASSERT_NE(mapped.data, nullptr);
}

// Runs setup, then operation, on fresh recording devices: once cleanly to
// count the operation's calls, then once per call with that call faulted
// (thrown, or a failed map). Every run must leave the device clean: no live
// temporaries, no open maps, no misuse.
template <typename Setup, typename Operation>
void ExpectCleanUnderFaults(Setup setup, Operation operation)
{
    using Testing::FaultKind;
    using Testing::Op;
    std::vector<Op> ops;
    {
        Testing::RecordingGpu gpu;
        {
            auto held = setup(gpu);
            std::size_t const first = gpu.Log().size();
            operation(gpu, held);
            for (std::size_t i = first; i < gpu.Log().size(); ++i)
                ops.push_back(gpu.Log()[i].op);
        }
        ASSERT_EQ(gpu.Problems(), "") << "clean run\n" << gpu.Dump();
    }
    ASSERT_FALSE(ops.empty());
    for (std::size_t n = 0; n < ops.size(); ++n) {
        Op const op = ops[n];
        bool const cleanup = op == Op::DestroyImage || op == Op::UnmapImage;
        for (FaultKind kind : {FaultKind::Throw, FaultKind::NullMap}) {
            if ((kind == FaultKind::Throw && cleanup) || (kind == FaultKind::NullMap && op != Op::MapImage))
                continue;
            Testing::RecordingGpu gpu;
            {
                auto held = setup(gpu);
                gpu.InjectFaultAtCall(gpu.CallCount() + n, kind);
                bool thrown = false;
                try {
                    operation(gpu, held);
                } catch (Testing::InjectedFault const&) {
                    thrown = true;
                }
                EXPECT_EQ(thrown, kind == FaultKind::Throw) << "call " << n << " " << Testing::ToString(op);
                EXPECT_EQ(gpu.FaultsHit(), 1u);
            }
            EXPECT_EQ(gpu.Problems(), "") << "fault " << static_cast<int>(kind) << " at call " << n << " ("
                                          << Testing::ToString(op) << ")\n"
                                          << gpu.Dump();
        }
    }
}

// Calls of the log restricted to the image operations that create, move,
// map or destroy data.
inline std::vector<Testing::Op> ImageTraffic(Testing::RecordingGpu const& gpu)
{
    using Testing::Op;
    return gpu.Ops({Op::CreateImage, Op::DestroyImage, Op::CopyImage, Op::ResolveImage, Op::MapImage,
                    Op::UnmapImage});
}

} // namespace Zorvan::Rendering::TestSupport
