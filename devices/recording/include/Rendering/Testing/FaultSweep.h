#pragma once

// SweepFaults: proves that an operation cleans up after every device failure.
//
// The operation runs once on a fresh RecordingGpu to count its device calls.
// Then, for every call index k of that run and every fault kind asked for, it
// runs again on a fresh device (setup first) with that fault injected at its
// k-th call; an InjectedFault leaving the operation is expected and caught.
// After each run the device's problems that were not there right after setup
// (errors, live resources, open maps, open queries) are collected.
//
// Objects under test must be made and destroyed inside operation; what setup
// makes may stay live, it is not reported. The operation must be
// deterministic: the same calls in the same order on every fresh device.

#include <Rendering/Testing/RecordingGpu.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Testing {

struct SweepFailure {
    std::uint64_t call = 0;        // faulted call, counted from the operation's first call
    std::optional<FaultKind> kind; // empty for the run without a fault
    Op op{};                       // what that call was in the run without a fault
    std::string problems;          // new device problems, or the unexpected exception
};

struct SweepResult {
    std::uint64_t calls = 0;            // device calls of the run without a fault
    std::size_t cases = 0;              // faulted runs in which the fault took effect
    std::vector<SweepFailure> failures; // runs that left problems behind
    // The failures as readable text, empty when there are none.
    std::string Report() const;
};

SweepResult SweepFaults(std::function<void(RecordingGpu&)> const& operation,
                        std::function<void(RecordingGpu&)> const& setup = {},
                        std::initializer_list<FaultKind> kinds = {FaultKind::Throw, FaultKind::InvalidHandle,
                                                                  FaultKind::NullMap});

char const* ToString(FaultKind kind);

} // namespace Zorvan::Rendering::Testing
