#pragma once

// Device-facing suites are written once as TEST_P bodies on DeviceTest and
// instantiated with INSTANTIATE_DEVICE_TEST_SUITE on every device that has
// the capabilities the suite needs, and on no other: a skipped test always
// means a device that should be there is missing. Each test gets a fresh
// device; TearDown fails the test if the device reports problems (leaks,
// misuse, open maps or queries, device errors).

#include <Rendering/Device.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace Zorvan::Rendering::TestSupport {

enum class DeviceKind { Recording, Gl };

// What a device does beyond the device contract, as bits. A suite needs none
// (the contract alone), some, or all of them.
namespace DeviceCapability {
inline constexpr std::uint32_t None = 0;
// Runs shaders, filters, resolves and keeps time like a GPU, so pixels and
// timings can be checked by value.
inline constexpr std::uint32_t RealPixels = 1;
// Logs every call and can be scripted and made to fail (RecordingGpu).
inline constexpr std::uint32_t CallLog = 2;
} // namespace DeviceCapability

std::string ToString(DeviceKind kind);
std::uint32_t CapabilitiesOf(DeviceKind kind);
// The devices built into these tests that have every capability in `required`.
std::vector<DeviceKind> DeviceKindsWith(std::uint32_t required);

// One device under test.
class DeviceProvider {
public:
    virtual ~DeviceProvider() = default;
    virtual IGpu& Gpu() = 0;
    // Everything wrong with the device right now; empty when clean.
    virtual std::string Problems() = 0;
    virtual Testing::RecordingGpu* Recording() { return nullptr; }
    // Waits until the device has run everything issued so far.
    virtual void WaitIdle() {}
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
    DeviceProvider& Provider() { return *provider_; }

private:
    std::unique_ptr<DeviceProvider> provider_;
};

struct DeviceKindName {
    std::string operator()(::testing::TestParamInfo<DeviceKind> const& info) const { return ToString(info.param); }
};

} // namespace Zorvan::Rendering::TestSupport

// Instantiates Suite on the devices with every capability in `required`
// (DeviceCapability bits). A build without such a device instantiates none,
// which is not an error.
#define INSTANTIATE_DEVICE_TEST_SUITE(Suite, required)                                                            \
    GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Suite);                                                         \
    INSTANTIATE_TEST_SUITE_P(Devices, Suite,                                                                     \
                             ::testing::ValuesIn(::Zorvan::Rendering::TestSupport::DeviceKindsWith(required)),  \
                             ::Zorvan::Rendering::TestSupport::DeviceKindName{})
