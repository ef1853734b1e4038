#pragma once

// GPU timing with timestamp queries. Nothing here ever waits on the device:
// results are read when asked and reported as -1.0 while unavailable.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Export.h>

#include <array>
#include <cstdint>

namespace Zorvan::Rendering {

// True exactly for TimestampFrequency.
ZGU_API bool IsRangeQuery(QueryType type);
// The plain complement of IsRangeQuery (true also for values never created).
ZGU_API bool IsSampleQuery(QueryType type);

// Measures GPU time between Start and Stop with two timestamps inside one
// frequency range. Owns its three queries; movable (a moved-from stopwatch
// has no device and reads -1.0).
class ZGU_API GpuStopWatch {
public:
    // Creates the frequency query, then the start and end timestamps; if a
    // creation throws, those already made are destroyed.
    explicit GpuStopWatch(IGpu& gpu);
    // Finishes a running measurement and reads it once before destroying the
    // queries (end, start, frequency). Never throws.
    ~GpuStopWatch();

    GpuStopWatch(GpuStopWatch&& other) noexcept;
    GpuStopWatch& operator=(GpuStopWatch&& other) noexcept;
    GpuStopWatch(GpuStopWatch const&) = delete;
    GpuStopWatch& operator=(GpuStopWatch const&) = delete;

    void Start();
    void Stop();
    // (end - start) / frequency in seconds, the difference taken in unsigned
    // 64 bits (a wrapped clock gives a huge positive time); -1.0 while the
    // device reports no frequency. Consumes the measurement.
    double GetSeconds();
    double GetMilliseconds();

private:
    void Destroy() noexcept;

    IGpu* gpu_ = nullptr;
    ScopedResource<QueryId, IGpu> frequencyQuery_;
    ScopedResource<QueryId, IGpu> startQuery_;
    ScopedResource<QueryId, IGpu> endQuery_;
    std::uint32_t state_ = 0; // 0 idle/read, 1 started, 2 stopped
};

// Times whole frames with a ring of three stopwatches read two frames late,
// and reports the median of the last eleven frame times.
class ZGU_API GpuFrameTimer {
public:
    explicit GpuFrameTimer(IGpu& gpu);

    void BeginFrame();
    void EndFrame();
    // Median of all eleven history slots: until eleven frames are recorded the
    // zero-initialised slots take part (fewer than six samples give 0.0).
    double GetSecondsPerFrame() const;
    double GetMillisecondsPerFrame() const;

private:
    std::array<GpuStopWatch, 3> stopWatches_;
    std::array<double, 11> history_{};
    bool inFrame_ = false;
    std::uint64_t frameIndex_ = 0;
    std::uint64_t historyCount_ = 0;
};

// Brackets chunks of GPU work with a ring of three stopwatches, consuming each
// stopwatch's measurement three chunks later so the device never stalls.
class ZGU_API GpuWorkChunker {
public:
    explicit GpuWorkChunker(IGpu& gpu);

    void BeginChunk();
    void EndChunk();

private:
    std::array<GpuStopWatch, 3> stopWatches_;
    std::uint64_t chunkIndex_ = 0;
};

} // namespace Zorvan::Rendering
