#pragma once

// The device conformance kit: GoogleTest suites that run the library over a
// device and check what the device contract (Rendering/Device.h) promises,
// for any IGpu. Register each device with what it can do, before GoogleTest
// starts; every suite whose needs the device covers is instantiated for it,
// the others are not instantiated at all (nothing shows as skipped).
//
//   #include <Rendering/Conformance/DeviceConformance.h>
//   namespace Conformance = Zorvan::Rendering::Conformance;
//
//   int main(int argc, char** argv)
//   {
//       Conformance::RegisterDevice("HostDevice",
//                                   Conformance::Capability::CubeMaps | Conformance::Capability::VolumeImages,
//                                   [](std::string&) { return std::make_unique<HostDevice>(); });
//       ::testing::InitGoogleTest(&argc, argv);
//       return RUN_ALL_TESTS();
//   }
//
// Link ZorvanGpuUtilities::DeviceConformance and GTest::gtest (the kit does
// not bring its own GoogleTest). Test names read
// Devices/<Suite>.<Test>/<device name>.
//
// The kit's suites and what they need. Nothing beyond the contract: Buffers,
// Images (resources, maps, copies that scale), CheckedAccess, ImageReadback,
// ImageDoubles, ImageMipChain (the library's uploads, readbacks and mip
// chains), Timing. VolumeImages: VolumeImages, CheckedAccessVolumes,
// ImageDoublesVolumes. CubeMaps: CubeMaps, CheckedAccessCubes,
// ImageReadbackCubes. Multisampling: Multisampling. Shaders: Drawing,
// ShaderPixels, and with Multisampling DrawingMultisampled and
// ShaderPixelsMultisampled. Timestamps: Timestamps. LinearFiltering:
// ScaledCopies, with VolumeImages ScaledVolumeCopies, and with Multisampling
// and Shaders AveragedResolves.
// docs/device-guide.md says what each capability asks of a device.
//
// Every test gets a fresh device from the factory and reaches it through a
// Testing::ValidatingGpu, so a test also fails when the device returns
// something the contract rules out (a handle still live, a map too small),
// and when anything is left behind (live objects, open maps or queries), and
// when the device's own problems hook reports something.
//
// The same fixture and macro serve suites of your own: derive from
// Conformance::DeviceTest, write TEST_P bodies against Gpu(), and
// instantiate with INSTANTIATE_CONFORMANCE_SUITE(Suite, capabilities), using
// bits from Capability::FirstUserBit up for what only your devices do.

#include <Rendering/Device.h>
#include <Rendering/Testing/DeviceRules.h>
#include <Rendering/Testing/ValidatingGpu.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Conformance {

// What a device does beyond the minimum every device meets (buffers; 1D and
// 2D images with host maps, copies that scale, readback; query objects whose
// results may stay 0). A suite needs none, some or all of these.
namespace Capability {
inline constexpr std::uint32_t None = 0;
// Compiles the shader dialect (docs/shader-dialect.md) into programs and
// draws with them, so shader-based clears, copies and depth resolves write
// real pixels that the suites check by value.
inline constexpr std::uint32_t Shaders = 1u << 0;
// Images with more than one sample per pixel, and resolves of them.
inline constexpr std::uint32_t Multisampling = 1u << 1;
// Timestamp queries give results: a frequency query reads non-zero once its
// range has ended and the device has run the work (see DeviceHooks::waitIdle).
inline constexpr std::uint32_t Timestamps = 1u << 2;
// Cube maps (ImageUsage::CubeMap): six faces addressed as array slices.
inline constexpr std::uint32_t CubeMaps = 1u << 3;
// Three-dimensional images: maps and copies cover every depth slice.
inline constexpr std::uint32_t VolumeImages = 1u << 4;
// Copies that scale and resolves give the values both provided devices give
// (Device.h, at CopyImage and ResolveImage): colour blended around each texel
// centre or averaged over the samples, integer and depth texels taken whole.
// Without it, the suites check only what any filter keeps.
inline constexpr std::uint32_t LinearFiltering = 1u << 5;
// Every capability the kit knows.
inline constexpr std::uint32_t All = Shaders | Multisampling | Timestamps | CubeMaps | VolumeImages | LinearFiltering;
// The kit never uses this bit or those above it: they are free for suites
// of your own (e.g. "logs its calls").
inline constexpr std::uint32_t FirstUserBit = 1u << 16;
} // namespace Capability

// Makes one fresh device for one test. Return null and say why in whyNot to
// skip the test (no such GPU on this machine); throw to fail it.
using DeviceFactory = std::function<std::unique_ptr<IGpu>(std::string& whyNot)>;

struct DeviceHooks {
    // Waits until the device has run everything issued so far. Timing suites
    // call it before reading a measurement; without it they only poll
    // GetQueryResult for a while.
    std::function<void(IGpu&)> waitIdle;
    // The device's own diagnostics after each test (errors it recorded,
    // objects it still holds); empty when all is well.
    std::function<std::string(IGpu&)> problems;
};

struct RegisteredDevice {
    std::string name;
    std::uint32_t capabilities = Capability::None;
    DeviceFactory make;
    DeviceHooks hooks;
};

// gtest prints a test's parameter as the device's name.
void PrintTo(RegisteredDevice const* device, std::ostream* out);

// Registers a device for the kit's suites and for suites of your own. Call it
// before testing::InitGoogleTest (which instantiates the suites). The name
// (letters, digits and underscores) ends every test name and must be unique;
// std::invalid_argument otherwise.
void RegisterDevice(std::string name, std::uint32_t capabilities, DeviceFactory factory, DeviceHooks hooks = {});

// The same for suites of your own only: the kit's suites are not linked into
// a program that registers its devices with this alone.
void AddDevice(std::string name, std::uint32_t capabilities, DeviceFactory factory, DeviceHooks hooks = {});

// Registered devices that have every capability in `required`, in order of
// registration.
std::vector<RegisteredDevice const*> DevicesWith(std::uint32_t required);

// The fixture of every device suite.
class DeviceTest : public ::testing::TestWithParam<RegisteredDevice const*> {
protected:
    void SetUp() override;
    // Fails the test if the device is not left clean. Suites that hold
    // objects in members release them first, then call this.
    void TearDown() override;

    // The device under test behind its validator: what tests call.
    IGpu& Gpu();
    // The device itself, for what only a particular device offers.
    IGpu& Device();
    Testing::ValidatingGpu& Validator();
    std::uint32_t Capabilities() const;
    // Waits for the device (DeviceHooks::waitIdle); false when it has no hook.
    bool WaitIdle();

    // Runs code that breaks the contract on purpose and returns the rules it
    // broke instead of failing the test for them. The device may complain
    // about such calls through its own diagnostics, so after it the test no
    // longer fails for what DeviceHooks::problems reports (the validator's
    // checks for leaks and open maps still apply).
    std::vector<Testing::Rule> BreaksRules(std::function<void()> const& code);

private:
    std::unique_ptr<IGpu> device_;
    std::unique_ptr<Testing::ValidatingGpu> validator_;
    bool collecting_ = false;
    bool deviceMayComplain_ = false;
    std::vector<Testing::Rule> collected_;
};

struct DeviceName {
    std::string operator()(::testing::TestParamInfo<RegisteredDevice const*> const& info) const
    {
        return info.param->name;
    }
};

} // namespace Zorvan::Rendering::Conformance

// Instantiates Suite on the registered devices with every capability in
// `required`. With no such device nothing is instantiated, which is not an
// error.
#define INSTANTIATE_CONFORMANCE_SUITE(Suite, required)                                                            \
    GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(Suite);                                                         \
    INSTANTIATE_TEST_SUITE_P(Devices, Suite,                                                                     \
                             ::testing::ValuesIn(::Zorvan::Rendering::Conformance::DevicesWith(required)),      \
                             ::Zorvan::Rendering::Conformance::DeviceName{})
