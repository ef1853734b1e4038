#pragma once

// Device-facing suites are written once as TEST_P bodies on DeviceTest and
// instantiated for every available device with INSTANTIATE_DEVICE_TEST_SUITE.
// Each test gets a fresh device; TearDown fails the test if the device reports
// problems (leaks, misuse, open maps or queries, device errors).

#include <Rendering/Device.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace Zorvan::Rendering::TestSupport {

enum class DeviceKind { Recording, Gl };

std::string ToString(DeviceKind kind);
std::vector<DeviceKind> AvailableDeviceKinds();

// One device under test.
class DeviceProvider {
public:
    virtual ~DeviceProvider() = default;
    virtual IGpu& Gpu() = 0;
    // Everything wrong with the device right now; empty when clean.
    virtual std::string Problems() = 0;
    virtual Testing::RecordingGpu* Recording() { return nullptr; }
};

// Makes a device of the kind, or returns null and says why it cannot exist
// here (e.g. no EGL display).
std::unique_ptr<DeviceProvider> MakeDevice(DeviceKind kind, std::string& whyNot);

class DeviceTest : public ::testing::TestWithParam<DeviceKind> {
protected:
    void SetUp() override;
    void TearDown() override;

    IGpu& Gpu() { return provider_->Gpu(); }
    // The recording device, or null when the suite runs on another device.
    Testing::RecordingGpu* Recording() { return provider_->Recording(); }
    bool OnRecordingDevice() const { return GetParam() == DeviceKind::Recording; }
    DeviceProvider& Provider() { return *provider_; }

private:
    std::unique_ptr<DeviceProvider> provider_;
};

struct DeviceKindName {
    std::string operator()(::testing::TestParamInfo<DeviceKind> const& info) const { return ToString(info.param); }
};

} // namespace Zorvan::Rendering::TestSupport

#define INSTANTIATE_DEVICE_TEST_SUITE(Suite)                                                                      \
    INSTANTIATE_TEST_SUITE_P(Devices, Suite,                                                                     \
                             ::testing::ValuesIn(::Zorvan::Rendering::TestSupport::AvailableDeviceKinds()),     \
                             ::Zorvan::Rendering::TestSupport::DeviceKindName{})

// Skips the rest of a test body that needs the recording device's log or
// scripting; the reason is printed.
#define ZGU_NEEDS_RECORDING_DEVICE()                                                                              \
    do {                                                                                                          \
        if (Recording() == nullptr)                                                                               \
            GTEST_SKIP() << "checks the recording device's call log or scripting";                                \
    } while (false)
