// Two timestamps inside one frequency range; read without ever waiting.

#include <Rendering/Timing.h>

#include <utility>

namespace Zorvan::Rendering {
namespace {

constexpr std::uint32_t Idle = 0;
constexpr std::uint32_t Started = 1;
constexpr std::uint32_t Stopped = 2;

} // namespace

// Members are built in declaration order, so a creation that throws leaves
// the queries made before it to their ScopedResource destructors.
GpuStopWatch::GpuStopWatch(IGpu& gpu)
    : gpu_(&gpu),
      frequencyQuery_(&gpu, gpu.CreateQuery(QueryType::TimestampFrequency)),
      startQuery_(&gpu, gpu.CreateQuery(QueryType::Timestamp)),
      endQuery_(&gpu, gpu.CreateQuery(QueryType::Timestamp))
{
}

GpuStopWatch::~GpuStopWatch()
{
    Destroy();
}

GpuStopWatch::GpuStopWatch(GpuStopWatch&& other) noexcept
    : gpu_(std::exchange(other.gpu_, nullptr)),
      frequencyQuery_(std::move(other.frequencyQuery_)),
      startQuery_(std::move(other.startQuery_)),
      endQuery_(std::move(other.endQuery_)),
      state_(std::exchange(other.state_, Idle))
{
}

GpuStopWatch& GpuStopWatch::operator=(GpuStopWatch&& other) noexcept
{
    if (this != &other) {
        Destroy();
        gpu_ = std::exchange(other.gpu_, nullptr);
        frequencyQuery_ = std::move(other.frequencyQuery_);
        startQuery_ = std::move(other.startQuery_);
        endQuery_ = std::move(other.endQuery_);
        state_ = std::exchange(other.state_, Idle);
    }
    return *this;
}

void GpuStopWatch::Start()
{
    state_ = Started;
    if (gpu_ == nullptr)
        return;
    gpu_->BeginQuery(frequencyQuery_.Get());
    gpu_->RecordQuery(startQuery_.Get());
}

void GpuStopWatch::Stop()
{
    state_ = Stopped;
    if (gpu_ == nullptr)
        return;
    gpu_->RecordQuery(endQuery_.Get());
    gpu_->EndQuery(frequencyQuery_.Get());
}

double GpuStopWatch::GetSeconds()
{
    state_ = Idle; // consumed, whatever the device reports
    if (gpu_ == nullptr)
        return -1.0;
    std::uint64_t const frequency = gpu_->GetQueryResult(frequencyQuery_.Get());
    if (frequency == 0) // not ready, or the range was disjoint
        return -1.0;
    std::uint64_t const start = gpu_->GetQueryResult(startQuery_.Get());
    std::uint64_t const end = gpu_->GetQueryResult(endQuery_.Get());
    // Unsigned on purpose: a wrapped clock reads as a huge time, never a negative one.
    return static_cast<double>(end - start) / static_cast<double>(frequency);
}

double GpuStopWatch::GetMilliseconds()
{
    return GetSeconds() * 1000.0;
}

// Finish and read a pending measurement so the device sees every query used
// before it is destroyed. Device calls may throw; a destructor must not.
void GpuStopWatch::Destroy() noexcept
{
    if (state_ == Started) {
        try {
            Stop();
        } catch (...) {
        }
    }
    if (state_ == Stopped) {
        try {
            (void)GetSeconds();
        } catch (...) {
        }
    }
    state_ = Idle;
    endQuery_.Reset();
    startQuery_.Reset();
    frequencyQuery_.Reset();
}

} // namespace Zorvan::Rendering
