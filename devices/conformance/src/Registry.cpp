// The devices registered for the suites, and the fixture every suite uses.

#include <Rendering/Conformance/DeviceConformance.h>

#include <algorithm>
#include <cctype>
#include <ostream>
#include <stdexcept>
#include <utility>

namespace Zorvan::Rendering::Conformance {

namespace {

// Stable addresses: the suites are instantiated with pointers into it.
std::vector<std::unique_ptr<RegisteredDevice>>& Registry()
{
    static std::vector<std::unique_ptr<RegisteredDevice>> devices;
    return devices;
}

} // namespace

void PrintTo(RegisteredDevice const* device, std::ostream* out)
{
    *out << (device != nullptr ? device->name : std::string("no device"));
}

void AddDevice(std::string name, std::uint32_t capabilities, DeviceFactory factory, DeviceHooks hooks)
{
    bool const usable = !name.empty() && std::all_of(name.begin(), name.end(), [](unsigned char c) {
        return std::isalnum(c) != 0 || c == '_';
    });
    if (!usable)
        throw std::invalid_argument("Conformance::RegisterDevice: '" + name +
                                    "' is not a device name (letters, digits and underscores)");
    for (auto const& device : Registry())
        if (device->name == name)
            throw std::invalid_argument("Conformance::RegisterDevice: a device named '" + name +
                                        "' is registered already");
    if (!factory)
        throw std::invalid_argument("Conformance::RegisterDevice: '" + name + "' has no factory");
    Registry().push_back(std::make_unique<RegisteredDevice>(
        RegisteredDevice{std::move(name), capabilities, std::move(factory), std::move(hooks)}));
}

std::vector<RegisteredDevice const*> DevicesWith(std::uint32_t required)
{
    std::vector<RegisteredDevice const*> devices;
    for (auto const& device : Registry())
        if ((device->capabilities & required) == required)
            devices.push_back(device.get());
    return devices;
}

void DeviceTest::SetUp()
{
    RegisteredDevice const& registered = *GetParam();
    std::string whyNot;
    device_ = registered.make(whyNot);
    if (device_ == nullptr)
        GTEST_SKIP() << "no " << registered.name << " device here: " << whyNot;
    validator_ = std::make_unique<Testing::ValidatingGpu>(*device_, [this](Testing::Violation const& violation) {
        if (collecting_)
            collected_.push_back(violation.rule);
        else
            ADD_FAILURE() << "contract broken: " << violation.Text();
    });
}

void DeviceTest::TearDown()
{
    if (validator_ == nullptr)
        return;
    RegisteredDevice const& registered = *GetParam();
    // Violations have failed the test as they happened.
    validator_->ClearViolations();
    EXPECT_EQ(validator_->Problems(), "") << "the test left objects, maps or queries behind on " << registered.name;
    if (registered.hooks.problems && !deviceMayComplain_) {
        EXPECT_EQ(registered.hooks.problems(*device_), "") << registered.name << " reports problems after the test";
    }
    validator_.reset();
    device_.reset();
}

IGpu& DeviceTest::Gpu() { return *validator_; }
IGpu& DeviceTest::Device() { return *device_; }
Testing::ValidatingGpu& DeviceTest::Validator() { return *validator_; }
std::uint32_t DeviceTest::Capabilities() const { return GetParam()->capabilities; }

bool DeviceTest::WaitIdle()
{
    auto const& wait = GetParam()->hooks.waitIdle;
    if (!wait)
        return false;
    wait(*device_);
    return true;
}

std::vector<Testing::Rule> DeviceTest::BreaksRules(std::function<void()> const& code)
{
    collected_.clear();
    collecting_ = true;
    deviceMayComplain_ = true;
    try {
        code();
    } catch (...) {
        collecting_ = false;
        throw;
    }
    collecting_ = false;
    return std::exchange(collected_, {});
}

} // namespace Zorvan::Rendering::Conformance
