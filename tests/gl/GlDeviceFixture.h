#pragma once

// A fresh GlDevice per test whose error messages are collected. Without an
// EGL display the test is skipped with the reason, unless ZGU_REQUIRE_GL is
// set, which turns that into a failure.

#include <Rendering/Gl/GlDevice.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Zorvan::Rendering::Gl {

class GlDeviceFixture : public ::testing::Test {
protected:
    void SetUp() override
    {
        GlDeviceOptions options;
        options.onMessage = [this](MessageSeverity severity, std::string const& text) {
            if (severity == MessageSeverity::Error)
                messages_.push_back(text);
        };
        try {
            device_ = std::make_unique<GlDevice>(options);
        } catch (GlDeviceError const& error) {
            char const* required = std::getenv("ZGU_REQUIRE_GL");
            if (required != nullptr && std::string_view(required) != "" && std::string_view(required) != "0")
                FAIL() << "ZGU_REQUIRE_GL is set but: " << error.what();
            GTEST_SKIP() << "no GL device here: " << error.what();
        }
    }

    GlDevice& Device() { return *device_; }
    std::vector<std::string> TakeMessages() { return std::exchange(messages_, {}); }

    std::unique_ptr<GlDevice> device_;
    std::vector<std::string> messages_;
};

} // namespace Zorvan::Rendering::Gl
