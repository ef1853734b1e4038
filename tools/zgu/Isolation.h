#pragma once

// Running one file's risky work (a third-party decoder or importer on an
// input nobody has vetted) in a child process, so that a crash, a hang or a
// runaway allocation becomes that file's one-line error instead of the end of
// zgu and of every other file in the batch.
//
// The child is a fresh start of the same executable, not a fork: zgu runs
// worker threads, a device thread and the driver's threads, and a forked copy
// of such a process may find any lock (in the C library, the unwinder, the
// driver) held by a thread that no longer exists in it. An executable that
// isolates work names its jobs in a table and hands control to
// ServeIsolatedJobIfAsked first thing in main.

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Zorvan::Tool {

struct IsolationLimits {
    // Address space the child may add to what it maps at its start; 0: no
    // limit. Not applied in sanitizer builds, whose shadow memory needs
    // terabytes.
    std::uint64_t memoryBytes = 0;
    // Wall-clock seconds before the child is killed; 0: no limit.
    double seconds = 0.0;
};

// Whether the memory limit is enforced in this build.
bool MemoryLimitSupported();

// A job's body: takes the arguments given to RunIsolated, returns the result
// bytes. It reports failure by throwing UsageError or Failure; a
// std::bad_alloc is the memory limit.
using IsolatedJob = std::string (*)(std::vector<std::string> const& arguments);

struct IsolatedJobEntry {
    char const* name;
    IsolatedJob run;
};

// When this process was started by RunIsolated, runs the job it names from
// `jobs`, sends its result to the parent and ends the process; otherwise
// returns at once. Call it before anything else in main.
void ServeIsolatedJobIfAsked(int argc, char** argv, std::span<IsolatedJobEntry const> jobs);

// Runs `job` (a name in the executable's table) in a child process and
// returns the bytes it returned. A UsageError or Failure thrown in the child
// is thrown again here with its message, a std::bad_alloc becomes a Failure
// saying the memory limit was reached; a crash, a kill or the time limit
// becomes a Failure that starts with `what` (say "decoding 'a.png'") and
// names the cause. Arguments travel as command-line arguments, so they may
// not hold NUL bytes. Safe to call from several threads at once; each child
// is registered with the interrupt clean-up while it runs.
std::string RunIsolated(std::string const& what, IsolationLimits const& limits, std::string const& job,
                        std::vector<std::string> const& arguments);

} // namespace Zorvan::Tool
