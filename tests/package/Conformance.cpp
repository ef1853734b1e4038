// The conformance kit from the installed package, run on a device of our own
// (HostDevice) for the capabilities it claims.

#include "HostDevice.h"

#include <Rendering/Conformance/DeviceConformance.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace Conformance = Zorvan::Rendering::Conformance;

int main(int argc, char** argv)
{
    Conformance::RegisterDevice(
        "HostDevice", Conformance::Capability::CubeMaps | Conformance::Capability::VolumeImages,
        [](std::string&) -> std::unique_ptr<Zorvan::Rendering::IGpu> { return std::make_unique<HostDevice>(); },
        {.waitIdle = {}, .problems = [](Zorvan::Rendering::IGpu& gpu) {
             auto const& device = static_cast<HostDevice const&>(gpu);
             std::string problems;
             for (std::string const& error : device.Errors())
                 problems += error + "\n";
             if (device.LiveCount() != 0)
                 problems += std::to_string(device.LiveCount()) + " objects alive\n";
             return problems;
         }});
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
