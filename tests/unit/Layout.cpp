#include <Rendering/Vertex.h>

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <string>

using namespace Zorvan::Rendering;

namespace {

using Offsets = std::array<unsigned int, 10>;
using Strides = std::array<unsigned int, 4>;

AttributeDesc Attr(char const* name, Format format, std::uint32_t offset = 0, std::uint32_t slot = 0,
                   std::uint32_t index = 0)
{
    return AttributeDesc{name, index, format, offset, slot, 0};
}

InputLayout Layout(std::initializer_list<AttributeDesc> entries)
{
    InputLayout layout{};
    std::copy(entries.begin(), entries.end(), layout.begin());
    return layout;
}

TEST(Layout, AddAttributeFillsTheFirstNamelessEntryAndIgnoresFullLayouts)
{
    // A present entry without data is not free.
    InputLayout layout = Layout({Attr("a", Format::None), {}, Attr("c", Format::R32F)});
    layout = AddAttribute(layout, Attr("new", Format::R8G8B8A8));
    EXPECT_STREQ(layout[1].name, "new");
    EXPECT_STREQ(layout[0].name, "a");
    EXPECT_STREQ(layout[2].name, "c");

    InputLayout full{};
    full.fill(Attr("x", Format::R32F));
    full[9].format = Format::None;
    InputLayout const after = AddAttribute(full, Attr("y", Format::R32G32F));
    for (std::size_t i = 0; i < full.size(); ++i)
        EXPECT_TRUE(full[i].name == after[i].name && full[i].format == after[i].format) << i;
}

TEST(Layout, OffsetsAndStridesOfSimpleLayouts)
{
    EXPECT_EQ(CalculateOffsets(InputLayout{}), Offsets{});
    EXPECT_EQ(CalculateStrides(InputLayout{}), Strides{});
    // Entries without data give nothing, whatever their offset says.
    InputLayout const inactive = Layout({Attr("p", Format::None, 16), Attr(nullptr, Format::R32F, 4)});
    EXPECT_EQ(CalculateOffsets(inactive), Offsets{});
    EXPECT_EQ(CalculateStrides(inactive), Strides{});

    InputLayout const packed = Layout({Attr("p", Format::R32G32B32F), Attr("t", Format::R32G32F)});
    EXPECT_EQ(CalculateOffsets(packed), (Offsets{0, 12}));
    EXPECT_EQ(CalculateStrides(packed), (Strides{20, 0, 0, 0}));

    // The lowest start of a slot counts: an attribute alone at 16 spans only itself.
    InputLayout const lone = Layout({Attr("p", Format::None), Attr("n", Format::R32G32B32F, 16, 1)});
    EXPECT_EQ(CalculateOffsets(lone), (Offsets{0, 16}));
    EXPECT_EQ(CalculateStrides(lone), (Strides{0, 12, 0, 0}));
}

TEST(Layout, ExplicitOffsetsAndSlots)
{
    // Explicit 0 is automatic: it lands behind the first attribute. An explicit
    // offset inside the slot does not pull the running end back.
    InputLayout const layout = Layout({
        Attr("a", Format::R32G32B32A32F),
        Attr("b", Format::R32F, 0),
        Attr("c", Format::R8G8B8A8, 4),
        Attr("d", Format::R16G16F, 0, 2),
        Attr("e", Format::R32F),
        Attr("ignored", Format::None, 100),
        Attr("f", Format::R32G32F, 8, 2),
    });
    EXPECT_EQ(CalculateOffsets(layout), (Offsets{0, 16, 4, 0, 20, 0, 8, 0, 0, 0}));
    EXPECT_EQ(CalculateStrides(layout), (Strides{24, 0, 16, 0}));

    InputLayout const normalized = Normalize(layout);
    Offsets written{};
    for (std::size_t i = 0; i < normalized.size(); ++i)
        written[i] = normalized[i].offset;
    EXPECT_EQ(written, CalculateOffsets(layout));
    EXPECT_EQ(CalculateOffsets(normalized), written);
}

TEST(Layout, EquivalenceIgnoresEntryOrderAndAutomaticOffsets)
{
    std::string const positionCopy = "position";
    InputLayout const a = Layout({Attr("position", Format::R32G32B32F), Attr("normal", Format::R32G32B32F),
                                  Attr("uv", Format::R32G32F, 0, 1)});
    InputLayout const b = Layout({{}, Attr("uv", Format::R32G32F, 0, 1), Attr(positionCopy.c_str(), Format::R32G32B32F),
                                  {}, Attr("normal", Format::R32G32B32F, 12)});
    EXPECT_TRUE(AreEquivalent(a, b));
    EXPECT_TRUE(AreEquivalent(b, a));
    EXPECT_TRUE(AreEquivalent(InputLayout{}, InputLayout{}));
    // Entries alike in everything but the name are ordered by name.
    EXPECT_TRUE(AreEquivalent(Layout({Attr("x", Format::R32F, 4), Attr("y", Format::R32F, 4)}),
                              Layout({Attr("y", Format::R32F, 4), Attr("x", Format::R32F, 4)})));

    InputLayout differentName = b;
    differentName[1].name = "uv2";
    EXPECT_FALSE(AreEquivalent(a, differentName));
    InputLayout differentExtra = b;
    differentExtra[1].extra = 1;
    EXPECT_FALSE(AreEquivalent(a, differentExtra));
    InputLayout differentOffset = b;
    differentOffset[4].offset = 16;
    EXPECT_FALSE(AreEquivalent(a, differentOffset));
    // A present entry without data still takes part.
    EXPECT_FALSE(AreEquivalent(a, AddAttribute(a, Attr("unused", Format::None))));
}

TEST(Layout, NamesCompareOverTwoHundredCharacters)
{
    std::string const longA = std::string(200, 'n') + "A";
    std::string const longB = std::string(200, 'n') + "B";
    std::string shortDiff = std::string(200, 'n');
    shortDiff[199] = 'm';

    InputLayout const a = Layout({Attr(longA.c_str(), Format::R32F)});
    EXPECT_TRUE(AreEquivalent(a, Layout({Attr(longB.c_str(), Format::R32F)})));
    EXPECT_FALSE(AreEquivalent(a, Layout({Attr(shortDiff.c_str(), Format::R32F)})));
    EXPECT_TRUE(HasAttribute(a, longB.c_str()));
    EXPECT_FALSE(HasAttribute(a, shortDiff.c_str()));
    EXPECT_FALSE(HasAttribute(a, nullptr));
}

TEST(Layout, AttributeQueries)
{
    std::string const position = "position";
    InputLayout const layout = Layout({
        Attr(position.c_str(), Format::R32G32B32F, 4),
        Attr("normal", Format::None),                  // present but without data
        Attr("texcoord", Format::R32G32F, 0, 0, 1),    // only index 0 counts
        Attr("color", Format::R8G8B8A8, 0, 3),
    });
    EXPECT_TRUE(HasPosition(layout));
    EXPECT_FALSE(HasNormal(layout));
    EXPECT_FALSE(HasTextureCoordinate(layout));
    EXPECT_TRUE(HasColor(layout));
    EXPECT_FALSE(HasAttribute(layout, "positio"));
    EXPECT_TRUE(HasAttribute(layout, position.c_str()));

    // Entry 0 only; its offset and index are not looked at.
    EXPECT_TRUE(Has3dPositionAsFirstAttribute(layout));
    InputLayout variant = layout;
    variant[0].index = 2;
    EXPECT_TRUE(Has3dPositionAsFirstAttribute(variant));
    variant[0].slot = 1;
    EXPECT_FALSE(Has3dPositionAsFirstAttribute(variant));
    variant = layout;
    variant[0].format = Format::R32G32B32A32F;
    EXPECT_FALSE(Has3dPositionAsFirstAttribute(variant));
    EXPECT_FALSE(Has3dPositionAsFirstAttribute(Layout({Attr("color", Format::R8G8B8A8), layout[0]})));
    EXPECT_FALSE(Has3dPositionAsFirstAttribute(InputLayout{}));
}

TEST(Layout, VertexDescriptionCountsDistinctIndicesOfPresentEntries)
{
    InputLayout const layout = Layout({
        Attr("position", Format::R32G32B32F),
        Attr("texcoord", Format::R32G32F, 0, 0, 1),
        Attr("texcoord", Format::R32G32F, 0, 1, 1), // same index again
        Attr("texcoord", Format::R32G32F, 0, 0, 3),
        Attr("normal", Format::None),               // counted although without data
        Attr("tangent", Format::R32G32B32F),
    });
    EXPECT_EQ(InputLayout2VertexDescription(layout), (VertexDescription{1, 1, 2, 0}));
}

TEST(Layout, VertexDescriptionBuildsPackedSlotZeroLayouts)
{
    InputLayout const layout = VertexDescription2InputLayout({1, 1, 2, 1});
    char const* const names[] = {"position", "normal", "texcoord", "texcoord", "color"};
    Format const formats[] = {Format::R32G32B32F, Format::R32G32B32F, Format::R32G32F, Format::R32G32F,
                              Format::R8G8B8A8};
    std::uint32_t const indices[] = {0, 0, 0, 1, 0};
    for (std::size_t i = 0; i < 5; ++i) {
        SCOPED_TRACE(i);
        ASSERT_NE(layout[i].name, nullptr);
        EXPECT_STREQ(layout[i].name, names[i]);
        EXPECT_EQ(layout[i].format, formats[i]);
        EXPECT_EQ(layout[i].index, indices[i]);
        EXPECT_EQ(layout[i].offset + layout[i].slot + layout[i].extra, 0u);
    }
    EXPECT_EQ(layout[2].name, layout[3].name); // one shared literal per semantic
    EXPECT_EQ(layout[5].name, nullptr);
    EXPECT_EQ(CalculateStrides(layout), (Strides{12 + 12 + 8 + 8 + 4, 0, 0, 0}));
    EXPECT_TRUE(Has3dPositionAsFirstAttribute(layout));

    for (int p = 0; p <= 4; ++p)
        for (int n = 0; n <= 4; ++n)
            for (int t = 0; t <= 4; ++t)
                for (int c = 0; c <= 4 && p + n + t + c <= 10; ++c) {
                    VertexDescription const d{static_cast<std::uint8_t>(p), static_cast<std::uint8_t>(n),
                                              static_cast<std::uint8_t>(t), static_cast<std::uint8_t>(c)};
                    ASSERT_EQ(InputLayout2VertexDescription(VertexDescription2InputLayout(d)), d)
                        << p << n << t << c;
                }
}

} // namespace
