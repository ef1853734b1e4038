// Registration for the kit's suites: AddDevice, plus a reference to every
// suite file, so that a static link brings them all along.

#include "SuiteFile.h"

#include <Rendering/Conformance/DeviceConformance.h>

namespace Zorvan::Rendering::Conformance {

namespace SuiteFiles {
#define ZGU_SUITE_FILE(Name) extern int const Name;
#include "SuiteFiles.inc"
#undef ZGU_SUITE_FILE
} // namespace SuiteFiles

void RegisterDevice(std::string name, std::uint32_t capabilities, DeviceFactory factory, DeviceHooks hooks)
{
    int volatile linked = 0;
#define ZGU_SUITE_FILE(Name) linked = linked + SuiteFiles::Name;
#include "SuiteFiles.inc"
#undef ZGU_SUITE_FILE
    (void)linked;
    AddDevice(std::move(name), capabilities, std::move(factory), std::move(hooks));
}

} // namespace Zorvan::Rendering::Conformance
