#pragma once

// Expectations shared by the shader-based operation suites: comparison of
// pipeline descriptions that names each differing field, and a fault sweep
// that makes every throwing call of an operation fail in turn.

#include <Rendering/Device.h>
#include <Rendering/Testing/RecordingGpu.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace Zorvan::Rendering::TestSupport {

namespace detail {

template <typename T>
auto Printable(T const& value)
{
    if constexpr (std::is_enum_v<T>)
        return +static_cast<std::underlying_type_t<T>>(value);
    else
        return +value;
}

template <typename T>
void Compare(std::ostringstream& out, std::string const& field, T const& actual, T const& expected)
{
    if (!(actual == expected))
        out << "  " << field << ": " << Printable(actual) << ", expected " << Printable(expected) << '\n';
}

} // namespace detail

// Empty when equal; otherwise one line per differing field. Tests build the
// expected record from a default-constructed one and change only the fields
// the operation is meant to set.
inline std::string Differences(PipelineStateDescription const& actual, PipelineStateDescription const& expected)
{
    std::ostringstream out;
    for (std::size_t i = 0; i < actual.inputLayout.size(); ++i) {
        AttributeDesc const& a = actual.inputLayout[i];
        AttributeDesc const& e = expected.inputLayout[i];
        if (!(a == e))
            out << "  inputLayout[" << i << "] differs (name " << (a.name ? a.name : "<null>") << ", format "
                << static_cast<std::uint32_t>(a.format) << ")\n";
    }
    using detail::Compare;
    Compare(out, "reserved[0]", actual.reserved[0], expected.reserved[0]);
    Compare(out, "reserved[1]", actual.reserved[1], expected.reserved[1]);
    Compare(out, "shader", actual.shader.Value(), expected.shader.Value());
    Compare(out, "topology", actual.topology, expected.topology);
    Compare(out, "fillMode", actual.fillMode, expected.fillMode);
    Compare(out, "cullMode", actual.cullMode, expected.cullMode);
    Compare(out, "frontClockwise", actual.frontClockwise, expected.frontClockwise);
    Compare(out, "depthBias", actual.depthBias, expected.depthBias);
    Compare(out, "slopeScaledDepthBias", actual.slopeScaledDepthBias, expected.slopeScaledDepthBias);
    Compare(out, "stencilReadMask", actual.stencilReadMask, expected.stencilReadMask);
    Compare(out, "depthComparison", actual.depthComparison, expected.depthComparison);
    Compare(out, "depthWriteEnable", actual.depthWriteEnable, expected.depthWriteEnable);
    Compare(out, "blendEnable", actual.blendEnable, expected.blendEnable);
    Compare(out, "blendDestination", actual.blendDestination, expected.blendDestination);
    Compare(out, "stencilEnable", actual.stencilEnable, expected.stencilEnable);
    Compare(out, "stencilComparison", actual.stencilComparison, expected.stencilComparison);
    Compare(out, "stencilPassOperation", actual.stencilPassOperation, expected.stencilPassOperation);
    Compare(out, "stencilReference", actual.stencilReference, expected.stencilReference);
    Compare(out, "stencilWriteMask", actual.stencilWriteMask, expected.stencilWriteMask);
    Compare(out, "blendSource", actual.blendSource, expected.blendSource);
    Compare(out, "blendOperation", actual.blendOperation, expected.blendOperation);
    Compare(out, "colorWriteEnable", actual.colorWriteEnable, expected.colorWriteEnable);
    for (std::size_t i = 0; i < actual.renderTargetFormats.size(); ++i)
        Compare(out, "renderTargetFormats[" + std::to_string(i) + "]", static_cast<std::uint32_t>(actual.renderTargetFormats[i]),
                static_cast<std::uint32_t>(expected.renderTargetFormats[i]));
    Compare(out, "depthStencilFormat", static_cast<std::uint32_t>(actual.depthStencilFormat),
            static_cast<std::uint32_t>(expected.depthStencilFormat));
    Compare(out, "sampleCount", actual.sampleCount, expected.sampleCount);
    return out.str();
}

// Runs operation once to learn its calls, then once more per call that may
// throw, with that call made to throw. Each run must pass the exception on
// and leave no more live resources or open maps than before. The operation
// must be self-contained (make and drop its own library object).
template <typename Operation>
void SweepThrowingCalls(Testing::RecordingGpu& gpu, Operation&& operation)
{
    std::uint64_t const first = gpu.CallCount();
    operation();
    std::uint64_t const calls = gpu.CallCount() - first;
    std::vector<Testing::Call> const log(gpu.Log().end() - static_cast<std::ptrdiff_t>(calls), gpu.Log().end());

    for (std::uint64_t i = 0; i < calls; ++i) {
        std::string_view const name = Testing::ToString(log[i].op);
        if (name.starts_with("Destroy") || name.starts_with("Unmap"))
            continue; // must not throw
        std::size_t const live = gpu.LiveCount();
        gpu.InjectFaultAtCall(gpu.CallCount() + i, Testing::FaultKind::Throw);
        EXPECT_THROW(operation(), Testing::InjectedFault) << "fault at call " << i << " (" << name << ")";
        gpu.ClearFaults();
        EXPECT_EQ(gpu.LiveCount(), live) << "leak after a fault at call " << i << " (" << name << ")";
        EXPECT_EQ(gpu.OpenMaps(), 0u) << "open map after a fault at call " << i << " (" << name << ")";
        EXPECT_TRUE(gpu.Errors().empty()) << "device misuse after a fault at call " << i << " (" << name << ")";
    }
}

} // namespace Zorvan::Rendering::TestSupport

#define EXPECT_SAME_PIPELINE(actual, expected)                                                                    \
    EXPECT_EQ(::Zorvan::Rendering::TestSupport::Differences((actual), (expected)), "")
