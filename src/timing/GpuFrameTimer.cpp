// Frame times read two frames late from a ring of three stopwatches, so the
// device never has to finish a frame before the caller can go on.

#include <Rendering/Timing.h>

#include <algorithm>

namespace Zorvan::Rendering {
namespace {

constexpr std::uint64_t RingSize = 3;
constexpr std::uint64_t ReadLag = 2;

} // namespace

GpuFrameTimer::GpuFrameTimer(IGpu& gpu) : stopWatches_{GpuStopWatch(gpu), GpuStopWatch(gpu), GpuStopWatch(gpu)}
{
}

void GpuFrameTimer::BeginFrame()
{
    stopWatches_[frameIndex_ % RingSize].Start();
    inFrame_ = true;
}

void GpuFrameTimer::EndFrame()
{
    inFrame_ = false;
    stopWatches_[frameIndex_ % RingSize].Stop();
    if (frameIndex_ >= ReadLag) {
        double const seconds = stopWatches_[(frameIndex_ - ReadLag) % RingSize].GetSeconds();
        // Not ready yet: that frame is dropped for good.
        if (seconds >= 0.0) {
            history_[historyCount_ % history_.size()] = seconds;
            ++historyCount_;
        }
    }
    ++frameIndex_;
}

// All eleven slots take part, the zero-initialised ones too, so the median
// stays 0.0 until six frames have been recorded.
double GpuFrameTimer::GetSecondsPerFrame() const
{
    auto sorted = history_;
    std::sort(sorted.begin(), sorted.end());
    return sorted[sorted.size() / 2];
}

double GpuFrameTimer::GetMillisecondsPerFrame() const
{
    return GetSecondsPerFrame() * 1000.0;
}

} // namespace Zorvan::Rendering
