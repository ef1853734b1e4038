#pragma once

// The GL device on a thread of its own. A GL context belongs to the thread
// that made it current, and the library's objects are used from one thread
// at a time, so workers that decode, filter and write files in parallel hand
// their device work over and wait for it.

#if defined(ZGU_TOOL_WITH_GL)

#include <Rendering/Gl/GlDevice.h>

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Zorvan::Tool {

class DeviceThread {
public:
    DeviceThread();
    // Closes the device on its thread and joins it.
    ~DeviceThread();
    DeviceThread(DeviceThread const&) = delete;
    DeviceThread& operator=(DeviceThread const&) = delete;

    // Runs `work` on the device thread and waits for it; what it throws is
    // thrown here. The device opens on the first call; if it cannot, that
    // call and every later one throw the same Failure.
    void Run(std::function<void(Rendering::Gl::GlDevice&)> const& work);

private:
    struct Task {
        std::function<void(Rendering::Gl::GlDevice&)> const* work = nullptr;
        std::exception_ptr error;
        bool done = false;
    };
    void Loop();

    std::mutex mutex_;
    std::condition_variable wake_;
    std::deque<Task*> queue_;
    bool stopping_ = false;
    std::thread thread_;
};

} // namespace Zorvan::Tool

#endif
