#pragma once

// Waiting for a device through the contract alone, for the tool's pacing and
// timing: no device-specific finish call is needed.

#include <Rendering/Device.h>

#include <chrono>

namespace Zorvan::Tool {

// Returns once the device has executed everything issued before the call,
// or after `limit` when it never says so. A frequency query's result stays 0
// until both of its timestamps have passed and GetQueryResult never blocks,
// so polling one that brackets nothing is a fence. False when the device
// made no query or the limit passed.
bool WaitForDevice(Rendering::IGpu& gpu, std::chrono::milliseconds limit = std::chrono::seconds(30));

} // namespace Zorvan::Tool
