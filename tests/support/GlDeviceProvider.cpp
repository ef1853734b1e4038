// The GL device as a device under test.

#include "DeviceTestSupport.h"

#if defined(ZGU_WITH_GL)

#include <Rendering/Gl/GlDevice.h>

namespace Zorvan::Rendering::TestSupport {

namespace {

class GlProvider final : public DeviceProvider {
public:
    GlProvider() : device_(Gl::GlDeviceOptions{}) {}
    IGpu& Gpu() override { return device_; }
    std::string Problems() override { return device_.Problems(); }
    void WaitIdle() override { device_.Finish(); }

private:
    Gl::GlDevice device_;
};

} // namespace

std::unique_ptr<DeviceProvider> MakeGlDevice(std::string& whyNot)
{
    try {
        return std::make_unique<GlProvider>();
    } catch (Gl::GlDeviceError const& error) {
        whyNot = error.what();
        return nullptr;
    }
}

} // namespace Zorvan::Rendering::TestSupport

#endif
