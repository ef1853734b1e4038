#include "DeviceFence.h"

#include <thread>

namespace Zorvan::Tool {

bool WaitForDevice(Rendering::IGpu& gpu, std::chrono::milliseconds limit)
{
    using namespace Rendering;
    ScopedResource<QueryId, IGpu> const query(&gpu, gpu.CreateQuery(QueryType::TimestampFrequency));
    if (!query.IsValid())
        return false;
    gpu.BeginQuery(query.Get());
    gpu.EndQuery(query.Get());
    auto const deadline = std::chrono::steady_clock::now() + limit;
    while (gpu.GetQueryResult(query.Get()) == 0) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        // Short sleeps rather than a spin: a software rasteriser needs the cores.
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
    return true;
}

} // namespace Zorvan::Tool
