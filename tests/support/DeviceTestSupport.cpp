#include "DeviceTestSupport.h"

#include <cstdlib>
#include <string_view>

namespace Zorvan::Rendering::TestSupport {

#if defined(ZGU_WITH_GL)
// Defined next to the GL device's test glue.
std::unique_ptr<DeviceProvider> MakeGlDevice(std::string& whyNot);
#endif

namespace {

class RecordingProvider final : public DeviceProvider {
public:
    IGpu& Gpu() override { return gpu_; }
    std::string Problems() override { return gpu_.Problems(); }
    Testing::RecordingGpu* Recording() override { return &gpu_; }

private:
    Testing::RecordingGpu gpu_;
};

bool GlRequired()
{
    char const* value = std::getenv("ZGU_REQUIRE_GL");
    return value != nullptr && std::string_view(value) != "" && std::string_view(value) != "0";
}

} // namespace

std::string ToString(DeviceKind kind)
{
    switch (kind) {
    case DeviceKind::Recording: return "Recording";
    case DeviceKind::Gl: return "Gl";
    }
    return "Unknown";
}

std::uint32_t CapabilitiesOf(DeviceKind kind)
{
    switch (kind) {
    case DeviceKind::Recording: return DeviceCapability::CallLog;
    case DeviceKind::Gl: return DeviceCapability::RealPixels;
    }
    return DeviceCapability::None;
}

std::vector<DeviceKind> DeviceKindsWith(std::uint32_t required)
{
#if defined(ZGU_WITH_GL)
    DeviceKind const built[] = {DeviceKind::Recording, DeviceKind::Gl};
#else
    DeviceKind const built[] = {DeviceKind::Recording};
#endif
    std::vector<DeviceKind> kinds;
    for (DeviceKind kind : built)
        if ((CapabilitiesOf(kind) & required) == required)
            kinds.push_back(kind);
    return kinds;
}

std::unique_ptr<DeviceProvider> MakeDevice(DeviceKind kind, std::string& whyNot)
{
    switch (kind) {
    case DeviceKind::Recording: return std::make_unique<RecordingProvider>();
    case DeviceKind::Gl:
#if defined(ZGU_WITH_GL)
        return MakeGlDevice(whyNot);
#else
        whyNot = "built without the GL device";
        return nullptr;
#endif
    }
    whyNot = "unknown device kind";
    return nullptr;
}

void DeviceTest::SetUp()
{
    std::string whyNot;
    provider_ = MakeDevice(GetParam(), whyNot);
    if (provider_ == nullptr) {
        if (GetParam() == DeviceKind::Gl && GlRequired())
            FAIL() << "ZGU_REQUIRE_GL is set but no GL device could be made: " << whyNot;
        GTEST_SKIP() << "no " << ToString(GetParam()) << " device here: " << whyNot;
    }
}

void DeviceTest::TearDown()
{
    if (provider_ == nullptr)
        return;
    std::string const problems = provider_->Problems();
    EXPECT_EQ(problems, "") << "the " << ToString(GetParam()) << " device reports problems after the test";
    provider_.reset();
}

} // namespace Zorvan::Rendering::TestSupport
