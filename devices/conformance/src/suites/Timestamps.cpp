// Timing on every device, and on devices that keep time: a stopwatch reads a
// time once the device has run the work, and sample and range queries are
// used only as such.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Timing.h>

#include <algorithm>
#include <vector>

namespace Zorvan::Rendering::Conformance {
namespace {

using Testing::Rule;
using ScopedQuery = ScopedResource<QueryId, IGpu>;

class Timing : public DeviceTest {};
class Timestamps : public DeviceTest {};

// Every device, timing or not: a stopwatch reads a time or says it has none.
TEST_P(Timing, StopWatchAroundNothingReadsUnavailableOrNonNegative)
{
    GpuStopWatch stopWatch(Gpu());
    stopWatch.Start();
    stopWatch.Stop();
    double const seconds = stopWatch.GetSeconds();
    EXPECT_TRUE(seconds == -1.0 || seconds >= 0.0) << seconds;
}


TEST_P(Timestamps, RangesQualifyTheTimestampsInside)
{
    ScopedQuery range(&Gpu(), Gpu().CreateQuery(QueryType::TimestampFrequency));
    ScopedQuery first(&Gpu(), Gpu().CreateQuery(QueryType::Timestamp));
    ScopedQuery second(&Gpu(), Gpu().CreateQuery(QueryType::Timestamp));
    Gpu().BeginQuery(range.Get());
    Gpu().RecordQuery(first.Get());
    Gpu().RecordQuery(second.Get());
    Gpu().EndQuery(range.Get());

    // Never blocks: poll, waiting for the device when it can be waited for.
    std::uint64_t frequency = 0;
    for (int attempt = 0; attempt < 1000 && frequency == 0; ++attempt) {
        WaitIdle();
        frequency = Gpu().GetQueryResult(range.Get());
    }
    ASSERT_NE(frequency, 0u) << "no usable frequency once the range ended and the device ran it";
    EXPECT_GE(Gpu().GetQueryResult(second.Get()), Gpu().GetQueryResult(first.Get()));

    std::vector<Rule> const broken = BreaksRules([&] {
        Gpu().BeginQuery(first.Get());
        Gpu().RecordQuery(range.Get());
    });
    EXPECT_EQ(std::count(broken.begin(), broken.end(), Rule::QueryOperation), 2);
}

TEST_P(Timestamps, StopwatchReadsATime)
{
    GpuStopWatch watch(Gpu());
    watch.Start();
    watch.Stop();
    double seconds = -1.0;
    for (int attempt = 0; attempt < 1000 && seconds < 0.0; ++attempt) {
        WaitIdle();
        seconds = watch.GetSeconds();
        if (seconds < 0.0) {
            watch.Start();
            watch.Stop();
        }
    }
    EXPECT_GE(seconds, 0.0);
    EXPECT_LT(seconds, 60.0);
}

} // namespace

INSTANTIATE_CONFORMANCE_SUITE(Timing, Capability::None);
INSTANTIATE_CONFORMANCE_SUITE(Timestamps, Capability::Timestamps);

} // namespace Zorvan::Rendering::Conformance

ZGU_CONFORMANCE_SUITE_FILE(Timestamps)
