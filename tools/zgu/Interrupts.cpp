#include "Interrupts.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <string>
#include <system_error>

namespace Zorvan::Tool {
namespace {

// Thread-directed, so that only the signal thread ever sees it: how the
// destructor tells that thread to stop.
constexpr int StopSignal = SIGUSR2;

struct Registry {
    std::mutex mutex;
    std::set<std::filesystem::path> staging;
    std::set<pid_t> children;
};

Registry& TheRegistry()
{
    static Registry registry;
    return registry;
}

sigset_t HandledSignals()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    sigaddset(&set, SIGHUP);
    sigaddset(&set, StopSignal);
    return set;
}

void WriteStderr(std::string const& text)
{
    // Other threads may hold the iostream locks; write(2) needs none.
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t const n = ::write(STDERR_FILENO, text.data() + done, text.size() - done);
        if (n <= 0)
            return;
        done += static_cast<std::size_t>(n);
    }
}

[[noreturn]] void CleanUpAndExit(int signal)
{
    Registry& registry = TheRegistry();
    std::unique_lock<std::mutex> const lock(registry.mutex); // held to the end: no commit starts after this
    for (pid_t const child : registry.children)
        ::kill(child, SIGKILL);
    std::size_t removed = 0;
    for (auto const& folder : registry.staging) {
        // A worker may still be creating files in it: retry until it is gone.
        for (int attempt = 0; attempt < 20; ++attempt) {
            std::error_code error;
            std::filesystem::remove_all(folder, error);
            if (!std::filesystem::exists(folder, error))
                break;
        }
        ++removed;
    }
    std::string message = "zgu: interrupted";
    if (removed != 0)
        message += "; removed " + std::to_string(removed) + " unfinished output" + (removed == 1 ? "" : "s");
    WriteStderr(message + "\n");
    ::_exit(128 + signal);
}

std::atomic<bool> stopping{false};

} // namespace

InterruptCleanup::InterruptCleanup()
{
    sigset_t const set = HandledSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    stopping = false;
    thread_ = std::thread([set] {
        for (;;) {
            int signal = 0;
            if (sigwait(&set, &signal) != 0)
                continue;
            if (signal == StopSignal) {
                if (stopping)
                    return;
                continue;
            }
            CleanUpAndExit(signal);
        }
    });
}

InterruptCleanup::~InterruptCleanup()
{
    stopping = true;
    pthread_kill(thread_.native_handle(), StopSignal);
    thread_.join();
    // A signal that arrived meanwhile stays pending and is delivered here,
    // with its default action, once the mask is lifted.
    sigset_t set = HandledSignals();
    sigdelset(&set, StopSignal);
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

std::unique_lock<std::mutex> LockOutputs()
{
    return std::unique_lock<std::mutex>(TheRegistry().mutex);
}

void RegisterStaging(std::filesystem::path const& folder)
{
    auto const lock = LockOutputs();
    TheRegistry().staging.insert(folder);
}

void UnregisterStaging(std::filesystem::path const& folder)
{
    auto const lock = LockOutputs();
    TheRegistry().staging.erase(folder);
}

void RegisterChildLocked(pid_t child)
{
    TheRegistry().children.insert(child);
}

void UnregisterChild(pid_t child)
{
    auto const lock = LockOutputs();
    TheRegistry().children.erase(child);
}

} // namespace Zorvan::Tool
