// The conformance kit run on the two devices that ship with the library, the
// way a user runs it on theirs.

#include <Rendering/Conformance/DeviceConformance.h>
#include <Rendering/Testing/RecordingGpu.h>
#if defined(ZGU_WITH_GL)
#include <Rendering/Gl/GlDevice.h>
#endif

#include <memory>
#include <string>

namespace {

namespace Conformance = Zorvan::Rendering::Conformance;
using Zorvan::Rendering::IGpu;
using Zorvan::Rendering::Testing::RecordingGpu;

// Registered before GoogleTest's main instantiates the suites.
[[maybe_unused]] bool const registered = [] {
    // Everything but drawing: the recording device keeps every byte of every
    // sample, slice and face, filters as the GL device does, and answers
    // queries from a scripted clock.
    Conformance::RegisterDevice(
        "Recording",
        Conformance::Capability::Multisampling | Conformance::Capability::Timestamps |
            Conformance::Capability::CubeMaps | Conformance::Capability::VolumeImages |
            Conformance::Capability::LinearFiltering,
        [](std::string&) -> std::unique_ptr<IGpu> { return std::make_unique<RecordingGpu>(); },
        {.waitIdle = {}, .problems = [](IGpu& gpu) { return static_cast<RecordingGpu&>(gpu).Problems(); }});
#if defined(ZGU_WITH_GL)
    namespace Gl = Zorvan::Rendering::Gl;
    Conformance::RegisterDevice(
        "Gl", Conformance::Capability::All,
        [](std::string& whyNot) -> std::unique_ptr<IGpu> {
            try {
                return std::make_unique<Gl::GlDevice>();
            } catch (Gl::GlDeviceError const& error) {
                whyNot = error.what();
                return nullptr;
            }
        },
        {.waitIdle = [](IGpu& gpu) { static_cast<Gl::GlDevice&>(gpu).Finish(); },
         .problems = [](IGpu& gpu) { return static_cast<Gl::GlDevice&>(gpu).Problems(); }});
#endif
    return true;
}();

} // namespace
