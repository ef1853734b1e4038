#include "DeviceTestSupport.h"

#include <Rendering/Timing.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

using namespace Zorvan::Rendering;
using Testing::FaultKind;
using Testing::InjectedFault;
using Testing::Op;
using Testing::ResourceKind;

namespace {

class Timing : public TestSupport::DeviceTest {
protected:
    // Query operations only, in call order, with the handle each one names.
    std::vector<std::pair<Op, std::uint64_t>> QueryCalls()
    {
        std::vector<std::pair<Op, std::uint64_t>> calls;
        for (Testing::Call const& call : Recording()->Log()) {
            switch (call.op) {
            case Op::CreateQuery: calls.emplace_back(call.op, call.result); break;
            case Op::BeginQuery:
            case Op::EndQuery:
            case Op::RecordQuery:
            case Op::GetQueryResult:
            case Op::DestroyQuery: calls.emplace_back(call.op, call.handles[0]); break;
            default: break;
            }
        }
        return calls;
    }

    // The three handles of the stopwatch created first in the log: frequency, start, end.
    std::array<std::uint64_t, 3> CreatedQueries(std::size_t firstStopWatch = 0)
    {
        auto const created = Recording()->Calls(Op::CreateQuery);
        return {created.at(3 * firstStopWatch)->result, created.at(3 * firstStopWatch + 1)->result,
                created.at(3 * firstStopWatch + 2)->result};
    }
};

// What only a device with a call log and scripting shows.
class TimingRecorded : public Timing {};

TEST_P(TimingRecorded, StopWatchConvertsTicksWithTimestampsInsideTheFrequencyRange)
{
    Recording()->SetTimestampFrequency(1'000'000);
    Recording()->QueueTimestamps({5000, 7500, 5000, 7500});
    GpuStopWatch stopWatch(Gpu());
    auto const [frequency, start, end] = CreatedQueries();
    auto const created = Recording()->Calls(Op::CreateQuery);
    ASSERT_EQ(created.size(), 3u);
    EXPECT_EQ(Recording()->TypeOf(QueryId{frequency}), QueryType::TimestampFrequency);
    EXPECT_EQ(Recording()->TypeOf(QueryId{start}), QueryType::Timestamp);
    EXPECT_EQ(Recording()->TypeOf(QueryId{end}), QueryType::Timestamp);

    stopWatch.Start();
    stopWatch.Stop();
    EXPECT_EQ(stopWatch.GetSeconds(), 0.0025);
    using C = std::pair<Op, std::uint64_t>;
    EXPECT_EQ(QueryCalls(), (std::vector<C>{{Op::CreateQuery, frequency},
                                            {Op::CreateQuery, start},
                                            {Op::CreateQuery, end},
                                            {Op::BeginQuery, frequency},
                                            {Op::RecordQuery, start},
                                            {Op::RecordQuery, end},
                                            {Op::EndQuery, frequency},
                                            {Op::GetQueryResult, frequency},
                                            {Op::GetQueryResult, start},
                                            {Op::GetQueryResult, end}}));

    stopWatch.Start();
    stopWatch.Stop();
    EXPECT_DOUBLE_EQ(stopWatch.GetMilliseconds(), 2.5);
}

TEST_P(TimingRecorded, StopWatchDifferenceIsUnsigned)
{
    Recording()->SetTimestampFrequency(1'000'000);
    Recording()->QueueTimestamps({7500, 5000});
    GpuStopWatch stopWatch(Gpu());
    stopWatch.Start();
    stopWatch.Stop();
    double const seconds = stopWatch.GetSeconds();
    EXPECT_EQ(seconds, static_cast<double>(std::uint64_t{0} - 2500u) / 1e6);
    EXPECT_GT(seconds, 1e13);
}

TEST_P(TimingRecorded, StopWatchWithoutFrequencyReadsNoTimestamps)
{
    Recording()->SetTimestampFrequency(0);
    GpuStopWatch stopWatch(Gpu());
    auto const [frequency, start, end] = CreatedQueries();
    Recording()->ClearLog();
    EXPECT_EQ(stopWatch.GetSeconds(), -1.0); // never measured
    stopWatch.Start();
    stopWatch.Stop();
    Recording()->ClearLog();
    EXPECT_EQ(stopWatch.GetSeconds(), -1.0);
    EXPECT_EQ(stopWatch.GetMilliseconds(), -1000.0);
    using C = std::pair<Op, std::uint64_t>;
    EXPECT_EQ(QueryCalls(), (std::vector<C>{{Op::GetQueryResult, frequency}, {Op::GetQueryResult, frequency}}));
}

TEST_P(TimingRecorded, StopWatchDestructionFinishesDrainsAndDestroysInReverse)
{
    using C = std::pair<Op, std::uint64_t>;
    std::array<std::uint64_t, 3> q{};
    {
        GpuStopWatch running(Gpu());
        q = CreatedQueries();
        running.Start();
        Recording()->ClearLog();
    }
    EXPECT_EQ(QueryCalls(), (std::vector<C>{{Op::RecordQuery, q[2]},
                                            {Op::EndQuery, q[0]},
                                            {Op::GetQueryResult, q[0]},
                                            {Op::GetQueryResult, q[1]},
                                            {Op::GetQueryResult, q[2]},
                                            {Op::DestroyQuery, q[2]},
                                            {Op::DestroyQuery, q[1]},
                                            {Op::DestroyQuery, q[0]}}));

    // Already read: nothing left to drain.
    Recording()->ClearLog();
    {
        GpuStopWatch read(Gpu());
        read.Start();
        read.Stop();
        (void)read.GetSeconds();
        Recording()->ClearLog();
    }
    EXPECT_EQ(Recording()->Ops(), (std::vector<Op>{Op::DestroyQuery, Op::DestroyQuery, Op::DestroyQuery}));
}

TEST_P(TimingRecorded, StopWatchDestructorSwallowsDeviceExceptions)
{
    {
        GpuStopWatch stopWatch(Gpu());
        stopWatch.Start();
        stopWatch.Stop();
        Recording()->InjectFault(Op::GetQueryResult, 0, FaultKind::Throw);
    }
    EXPECT_EQ(Recording()->FaultsHit(), 1u);
    EXPECT_EQ(Recording()->LiveCount(ResourceKind::Query), 0u);
}

TEST_P(TimingRecorded, StopWatchMovesItsQueries)
{
    GpuStopWatch a(Gpu());
    auto const qa = CreatedQueries(0);
    a.Start();
    GpuStopWatch b(std::move(a));
    Recording()->ClearLog();
    a.Start(); // NOLINT(bugprone-use-after-move): a moved-from stopwatch has no device
    a.Stop();
    EXPECT_EQ(a.GetSeconds(), -1.0);
    EXPECT_TRUE(Recording()->Log().empty());

    b.Stop(); // the measurement started in a finishes in b
    EXPECT_GE(b.GetSeconds(), 0.0);
    EXPECT_EQ(Recording()->Calls(Op::RecordQuery).at(0)->handles[0], qa[2]);

    GpuStopWatch c(Gpu());
    auto const qc = CreatedQueries(0);
    c.Start();
    Recording()->ClearLog();
    c = std::move(b);
    // c's own running measurement is finished and its queries destroyed before it takes b's.
    auto const destroyed = Recording()->Calls(Op::DestroyQuery);
    ASSERT_EQ(destroyed.size(), 3u);
    EXPECT_EQ(destroyed[0]->handles[0], qc[2]);
    EXPECT_EQ(destroyed[1]->handles[0], qc[1]);
    EXPECT_EQ(destroyed[2]->handles[0], qc[0]);
    EXPECT_EQ(Recording()->OpenQueries(), 0u);
    EXPECT_EQ(Recording()->LiveCount(ResourceKind::Query), 3u);

    Recording()->ClearLog();
    c.Start();
    EXPECT_EQ(Recording()->Calls(Op::BeginQuery).at(0)->handles[0], qa[0]);
    c.Stop();
}

TEST_P(TimingRecorded, FailedQueryCreationLeavesNoQueryBehind)
{
    for (std::uint64_t nth = 0; nth < 3; ++nth) {
        Recording()->InjectFault(Op::CreateQuery, nth, FaultKind::Throw);
        EXPECT_THROW(GpuStopWatch{Gpu()}, InjectedFault) << nth;
        EXPECT_EQ(Recording()->LiveCount(ResourceKind::Query), 0u) << nth;
        Recording()->ClearFaults();
    }
    // Inside the timers' rings too: the stopwatches already built are torn down.
    Recording()->InjectFault(Op::CreateQuery, 4, FaultKind::Throw);
    EXPECT_THROW(GpuFrameTimer{Gpu()}, InjectedFault);
    Recording()->InjectFault(Op::CreateQuery, 8, FaultKind::Throw);
    EXPECT_THROW(GpuWorkChunker{Gpu()}, InjectedFault);
    EXPECT_EQ(Recording()->LiveCount(ResourceKind::Query), 0u);
}

// Runs frames whose GPU durations (in microseconds) are given; the frequency
// is 1 MHz and every frame starts at tick 0.
void RunFrames(Testing::RecordingGpu& gpu, GpuFrameTimer& timer, std::vector<std::uint64_t> const& micros)
{
    for (std::uint64_t duration : micros) {
        gpu.QueueTimestamps({0, duration});
        timer.BeginFrame();
        timer.EndFrame();
    }
}

TEST_P(TimingRecorded, FrameTimerReadsTwoFramesLate)
{
    Recording()->SetTimestampFrequency(1'000'000);
    GpuFrameTimer timer(Gpu());
    EXPECT_EQ(timer.GetSecondsPerFrame(), 0.0);
    auto const firstFrequency = CreatedQueries(0)[0];
    RunFrames(*Recording(), timer, {10000, 10000});
    EXPECT_EQ(Recording()->Count(Op::GetQueryResult), 0u);
    RunFrames(*Recording(), timer, {10000});
    auto const reads = Recording()->Calls(Op::GetQueryResult);
    ASSERT_EQ(reads.size(), 3u);
    EXPECT_EQ(reads[0]->handles[0], firstFrequency); // the third frame's end reads the first frame
}

TEST_P(TimingRecorded, FrameTimerReportsTheMedianOfElevenSlots)
{
    Recording()->SetTimestampFrequency(1'000'000);
    GpuFrameTimer timer(Gpu());
    // Recorded in this order; the last two frames only let the first eleven be read.
    RunFrames(*Recording(), timer, {20000, 13000, 17000, 11000, 19000});
    EXPECT_EQ(timer.GetSecondsPerFrame(), 0.0); // three samples and eight zero slots
    RunFrames(*Recording(), timer, {14000, 16000, 12000, 18000, 15000, 10000, 1, 1});
    EXPECT_DOUBLE_EQ(timer.GetSecondsPerFrame(), 0.015);
    EXPECT_DOUBLE_EQ(timer.GetMillisecondsPerFrame(), 15.0);
    EXPECT_DOUBLE_EQ(timer.GetSecondsPerFrame(), 0.015); // reading does not disturb the history

    // The twelfth sample (1 us) replaces the first (20 ms), not the latest.
    RunFrames(*Recording(), timer, {1});
    EXPECT_DOUBLE_EQ(timer.GetSecondsPerFrame(), 0.014);
}

TEST_P(TimingRecorded, FrameTimerDropsUnavailableFrames)
{
    Recording()->SetTimestampFrequency(0);
    GpuFrameTimer timer(Gpu());
    RunFrames(*Recording(), timer, std::vector<std::uint64_t>(12, 10000));
    EXPECT_EQ(timer.GetSecondsPerFrame(), 0.0); // not -1.0: nothing was stored
}

TEST_P(TimingRecorded, WorkChunkerReadsAStopWatchBeforeReusingIt)
{
    GpuWorkChunker chunker(Gpu());
    auto const first = CreatedQueries(0);
    for (int i = 0; i < 3; ++i) {
        chunker.BeginChunk();
        chunker.EndChunk();
    }
    EXPECT_EQ(Recording()->Count(Op::GetQueryResult), 0u);
    Recording()->ClearLog();
    chunker.BeginChunk();
    using C = std::pair<Op, std::uint64_t>;
    EXPECT_EQ(QueryCalls(), (std::vector<C>{{Op::GetQueryResult, first[0]},
                                            {Op::GetQueryResult, first[1]},
                                            {Op::GetQueryResult, first[2]},
                                            {Op::BeginQuery, first[0]},
                                            {Op::RecordQuery, first[1]}}));
    chunker.EndChunk();
}

TEST(QueryType, RangeAndSampleAreComplements)
{
    EXPECT_TRUE(IsRangeQuery(QueryType::TimestampFrequency));
    EXPECT_FALSE(IsSampleQuery(QueryType::TimestampFrequency));
    for (std::uint32_t v : {0u, 2u, 7u, 0xFFFFFFFFu}) {
        EXPECT_FALSE(IsRangeQuery(static_cast<QueryType>(v))) << v;
        EXPECT_TRUE(IsSampleQuery(static_cast<QueryType>(v))) << v;
    }
}

} // namespace

INSTANTIATE_DEVICE_TEST_SUITE(TimingRecorded, TestSupport::DeviceCapability::CallLog);
