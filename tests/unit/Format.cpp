#include <Rendering/Format.h>

#include <gtest/gtest.h>

#include <array>
#include <cctype>
#include <cstdint>
#include <string>

using namespace Zorvan::Rendering;

namespace {

// The enumerator names in value order, written out independently of the library.
constexpr std::array<char const*, 46> Names = {
    "None",          "B8G8R8",        "B8G8R8A8",       "B8G8R8X8",      "R8",           "R8G8",
    "R8G8B8A8",      "R16",           "R16G16",         "R16G16B16A16",  "R8SN",         "R8G8SN",
    "R8G8B8A8SN",    "R16SN",         "R16G16SN",       "R16G16B16A16SN", "R8U",         "R8G8U",
    "R8G8B8A8U",     "R16U",          "R16G16U",        "R16G16B16A16U", "R32U",         "R32G32U",
    "R32G32B32A32U", "R8I",           "R8G8I",          "R8G8B8A8I",     "R16I",         "R16G16I",
    "R16G16B16A16I", "R32I",          "R32G32I",        "R32G32B32A32I", "R16F",         "R16G16F",
    "R16G16B16A16F", "R32F",          "R32G32F",        "R32G32B32F",    "R32G32B32A32F", "D32F",
    "D32FS8X24",     "D24S8",         "D24X8",          "D16",
};

// What the naming rule says about a format: channels in memory order with
// their widths, then a type suffix ("" unorm, SN, U, I, F).
struct NamedFacts {
    int channels = 0;
    unsigned bits = 0;
    bool alpha = false, depth = false, stencil = false, blueFirst = false;
    std::string suffix;
};

NamedFacts Parse(std::string const& name)
{
    NamedFacts f;
    for (std::size_t i = 0; i < name.size();) {
        char const c = name[i];
        bool const channel = std::string("RGBADSX").find(c) != std::string::npos && i + 1 < name.size() &&
                             std::isdigit(static_cast<unsigned char>(name[i + 1]));
        if (!channel) {
            f.suffix += c;
            ++i;
            continue;
        }
        f.blueFirst = f.blueFirst || (f.channels == 0 && c == 'B');
        f.alpha = f.alpha || c == 'A';
        f.depth = f.depth || c == 'D';
        f.stencil = f.stencil || c == 'S';
        ++f.channels;
        unsigned width = 0;
        for (++i; i < name.size() && std::isdigit(static_cast<unsigned char>(name[i])); ++i)
            width = width * 10 + static_cast<unsigned>(name[i] - '0');
        f.bits += width;
    }
    return f;
}

TEST(Format, EveryFormatFollowsItsName)
{
    for (std::uint32_t v = 1; v < FormatCount; ++v) {
        auto const format = static_cast<Format>(v);
        SCOPED_TRACE(Names[v]);
        ASSERT_STREQ(ToString(format), Names[v]);
        NamedFacts const f = Parse(Names[v]);
        bool const unorm = f.suffix.empty(), snorm = f.suffix == "SN";
        EXPECT_EQ(GetSize(format), f.bits / 8);
        EXPECT_EQ(GetChannelCount(format), f.channels);
        EXPECT_EQ(HasAlphaChannel(format), f.alpha);
        EXPECT_EQ(IsDepthFormat(format), f.depth);
        EXPECT_EQ(IsStencilFormat(format), f.stencil);
        EXPECT_EQ(IsNormalizedFormat(format), !f.depth && (unorm || snorm));
        EXPECT_EQ(IsSignedFormat(format), !f.depth && (snorm || f.suffix == "I" || f.suffix == "F"));
        std::string shader = "<unsupported format>";
        if (!f.depth && !f.blueFirst) {
            shader = f.suffix == "U" ? "uint" : f.suffix == "I" ? "int" : "float";
            if (f.channels > 1)
                shader += std::to_string(f.channels);
        }
        EXPECT_EQ(ToShaderType(format), shader);
    }
}

// Facts that look like mistakes and are not.
TEST(Format, DeliberateQuirks)
{
    EXPECT_EQ(GetChannelCount(Format::B8G8R8X8), 4);
    EXPECT_FALSE(HasAlphaChannel(Format::B8G8R8X8));
    EXPECT_EQ(GetChannelCount(Format::D32FS8X24), 3);
    EXPECT_EQ(GetSize(Format::D32FS8X24), 8u);
    EXPECT_EQ(GetChannelCount(Format::D24X8), 2);
    EXPECT_FALSE(IsStencilFormat(Format::D24X8));
    EXPECT_FALSE(IsSignedFormat(Format::D32F));
    EXPECT_TRUE(IsSignedFormat(Format::R16F));
    EXPECT_FALSE(IsNormalizedFormat(Format::R16F));
    EXPECT_STREQ(ToShaderType(Format::R32G32B32F), "float3");
    EXPECT_STREQ(ToShaderType(Format::B8G8R8A8), "<unsupported format>");
    EXPECT_STREQ(ToShaderType(Format::D32F), "<unsupported format>");
    for (std::uint32_t v = 0; v < FormatCount; ++v)
        EXPECT_EQ(IsNormalizedFormat(static_cast<Format>(v)), v >= 1 && v <= 15) << v;
}

TEST(Format, NoneAndUnknownValuesAnswerAlike)
{
    for (std::uint32_t v : {0u, 46u, 47u, 1000u, 0x80000000u, 0xFFFFFFFFu}) {
        auto const format = static_cast<Format>(v);
        SCOPED_TRACE(v);
        EXPECT_EQ(GetChannelCount(format), -1);
        EXPECT_EQ(GetSize(format), 0u);
        EXPECT_FALSE(HasAlphaChannel(format) || IsDepthFormat(format) || IsNormalizedFormat(format) ||
                     IsSignedFormat(format) || IsStencilFormat(format));
        EXPECT_STREQ(ToShaderType(format), "<unsupported format>");
        EXPECT_STREQ(ToString(format), v == 0 ? "None" : "<unknown Zorvan::Rendering::Format>");
    }
}

} // namespace
