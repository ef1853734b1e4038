#include "DeviceThread.h"

#if defined(ZGU_TOOL_WITH_GL)

#include "GlSession.h"

namespace Zorvan::Tool {

DeviceThread::DeviceThread() : thread_([this] { Loop(); }) {}

DeviceThread::~DeviceThread()
{
    {
        std::lock_guard<std::mutex> const lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    thread_.join();
}

void DeviceThread::Run(std::function<void(Rendering::Gl::GlDevice&)> const& work)
{
    Task task;
    task.work = &work;
    std::unique_lock<std::mutex> lock(mutex_);
    queue_.push_back(&task);
    wake_.notify_all();
    wake_.wait(lock, [&task] { return task.done; });
    if (task.error)
        std::rethrow_exception(task.error);
}

void DeviceThread::Loop()
{
    std::unique_ptr<Rendering::Gl::GlDevice> device;
    std::exception_ptr openError;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty())
            break; // stopping, and nothing left to do
        Task* task = queue_.front();
        queue_.pop_front();
        lock.unlock();
        try {
            if (!device && !openError) {
                try {
                    device = OpenGlDevice();
                } catch (...) {
                    openError = std::current_exception();
                }
            }
            if (openError)
                std::rethrow_exception(openError);
            (*task->work)(*device);
        } catch (...) {
            task->error = std::current_exception();
        }
        lock.lock();
        task->done = true;
        wake_.notify_all();
    }
    lock.unlock();
    device.reset(); // on the thread whose context it is
}

} // namespace Zorvan::Tool

#endif
