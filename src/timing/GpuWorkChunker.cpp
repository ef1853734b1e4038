// Chunks of GPU work bracketed by a ring of three stopwatches; a stopwatch's
// measurement is consumed three chunks later, just before it is reused.

#include <Rendering/Timing.h>

namespace Zorvan::Rendering {
namespace {

constexpr std::uint64_t RingSize = 3;

} // namespace

GpuWorkChunker::GpuWorkChunker(IGpu& gpu) : stopWatches_{GpuStopWatch(gpu), GpuStopWatch(gpu), GpuStopWatch(gpu)}
{
}

void GpuWorkChunker::BeginChunk()
{
    GpuStopWatch& stopWatch = stopWatches_[chunkIndex_ % RingSize];
    if (chunkIndex_ >= RingSize)
        (void)stopWatch.GetSeconds();
    stopWatch.Start();
}

void GpuWorkChunker::EndChunk()
{
    stopWatches_[chunkIndex_ % RingSize].Stop();
    ++chunkIndex_;
}

} // namespace Zorvan::Rendering
