// The tool's wait for the device, on the recording device: a frequency query
// that brackets nothing, polled until it reports, and released.

#include "DeviceFence.h"

#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <vector>

using namespace Zorvan::Rendering;
using Testing::Op;

TEST(DeviceFence, BracketsNothingAndPollsUntilTheDeviceReports)
{
    Testing::RecordingGpu gpu;
    EXPECT_TRUE(Zorvan::Tool::WaitForDevice(gpu));
    EXPECT_EQ(gpu.Ops(), (std::vector<Op>{Op::CreateQuery, Op::BeginQuery, Op::EndQuery, Op::GetQueryResult,
                                          Op::DestroyQuery}));
    EXPECT_EQ(gpu.Problems(), "");
}

TEST(DeviceFence, GivesUpWhenTheDeviceNeverReportsOrHasNoQuery)
{
    Testing::RecordingGpu gpu;
    gpu.SetTimestampFrequency(0); // every frequency unusable: the fence never opens
    EXPECT_FALSE(Zorvan::Tool::WaitForDevice(gpu, std::chrono::milliseconds(20)));
    EXPECT_GT(gpu.Count(Op::GetQueryResult), 1u);
    EXPECT_EQ(gpu.LiveCount(), 0u);

    gpu.InjectFault(Op::CreateQuery, 0, Testing::FaultKind::InvalidHandle);
    EXPECT_FALSE(Zorvan::Tool::WaitForDevice(gpu));
    EXPECT_EQ(gpu.Problems(), "");
}
