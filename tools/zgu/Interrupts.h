#pragma once

// Ctrl-C (SIGINT), SIGTERM and SIGHUP while zgu writes files: the signal is
// taken on a thread of its own, which kills the isolated children still
// running, removes every staging folder still registered and ends the process
// with 128 + the signal's number. Commits hold the same lock, so a signal
// lands before a set of files moves into place or after it, never halfway.

#include <sys/types.h>

#include <filesystem>
#include <mutex>
#include <thread>

namespace Zorvan::Tool {

// While one is alive the signals are handled as above. Create it before any
// other thread starts (threads inherit the blocked signals); one at a time.
class InterruptCleanup {
public:
    InterruptCleanup();
    ~InterruptCleanup();
    InterruptCleanup(InterruptCleanup const&) = delete;
    InterruptCleanup& operator=(InterruptCleanup const&) = delete;

private:
    std::thread thread_;
};

// The lock that commits, forks and the clean-up share. The functions below
// take it themselves unless their name says the caller holds it.
std::unique_lock<std::mutex> LockOutputs();

void RegisterStaging(std::filesystem::path const& folder);
void UnregisterStaging(std::filesystem::path const& folder);
void RegisterChildLocked(pid_t child);
void UnregisterChild(pid_t child);

} // namespace Zorvan::Tool
