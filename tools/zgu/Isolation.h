#pragma once

// Running one file's risky work (a third-party decoder or importer on an
// input nobody has vetted) in a child process, so that a crash, a hang or a
// runaway allocation becomes that file's one-line error instead of the end of
// zgu and of every other file in the batch.

#include <cstdint>
#include <functional>
#include <string>

namespace Zorvan::Tool {

struct IsolationLimits {
    // Address space the child may add to what it inherits; 0: no limit.
    // Not applied in sanitizer builds, whose shadow memory needs terabytes.
    std::uint64_t memoryBytes = 0;
    // Wall-clock seconds before the child is killed; 0: no limit.
    double seconds = 0.0;
};

// Whether the memory limit is enforced in this build.
bool MemoryLimitSupported();

// Runs `work` in a child made with fork and returns the string it returned.
// A UsageError or Failure thrown in the child is thrown again here with its
// message, a std::bad_alloc becomes a Failure saying the memory limit was
// reached; a crash, a kill or the time limit becomes a Failure that starts
// with `what` (say "decoding 'a.png'") and names the cause.
//
// The child is a copy of the calling thread only: `work` must not use
// threads it did not start (oneTBB, the GL device) nor locks that other
// threads may hold; allocating and throwing are fine (the C library resets
// its allocator and loader locks in the child). Safe to call from several
// threads at once.
std::string RunIsolated(std::string const& what, IsolationLimits const& limits,
                        std::function<std::string()> const& work);

} // namespace Zorvan::Tool
