// The dialect-to-GLSL translator on its own: the library's texts, the
// rewrites with traps (nested parentheses, comments, integer varyings), and
// clean errors for malformed input.

#include "ShaderTranslator.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>

namespace Zorvan::Rendering::Gl::detail {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr char const* ClearVertex = "\nvoid main()\n    {\n    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                                    "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                                    "    $Position$ = float4(x, y, 0.0, 1.0);\n  }\n";
constexpr char const* ClearFragmentInt = "CBUFFER(constant_buffer, 0) { int4 ClearColor; };\n[out int4 color : 0]\n"
                                         "void main() { $color$ = ClearColor; }\n";
constexpr char const* CopyVertex = "\n[in float2 pos : position]\n[out float2 uv :  tex_coord]\nvoid main()\n        {\n"
                                   "        $Position$ = float4($pos$, 0.0, 1.0);\n"
                                   "        $uv$ = ($pos$ + float2(1.0,1.0)) * 0.5;\n        }\n";
constexpr char const* CopyFragment = "\nTEXTURE_2D(float4, source_image, 0);\n[in float2 uv : tex_coord]\n"
                                     "[out float4 color : 0]\nvoid main()\n        {\n"
                                     "        $color$ = SAMPLE(source_image, $uv$);\n        }\n";
constexpr char const* ResolveFragmentMin =
    "TEXTURE_2DMS(float4, msaaDepth, 0);\nvoid main()\n  {\n  $FragDepth$ = 1;\n  [unroll]\n"
    "  for (uint i = 0; i < uint(4); ++i)\n"
    "    $FragDepth$ = min($FragDepth$, READ_SAMPLE(msaaDepth, uint2($FragCoord$.xy), i).x);\n  }\n";

std::string Glsl(ShaderStageKind stage, std::string const& source)
{
    TranslatedShader const result = TranslateShader(stage, source);
    EXPECT_TRUE(result.Ok()) << result.error << "\n" << source;
    return result.glsl;
}

TEST(ShaderTranslator, ClearShadersBecomeGlsl450)
{
    std::string const vertex = Glsl(ShaderStageKind::Vertex, ClearVertex);
    EXPECT_TRUE(vertex.starts_with("#version 450 core\n"));
    EXPECT_THAT(vertex, HasSubstr("float(uint(gl_VertexID) / uint(2))"));
    EXPECT_THAT(vertex, HasSubstr("gl_Position = vec4(x, y, 0.0, 1.0);"));

    std::string const fragment = Glsl(ShaderStageKind::Fragment, ClearFragmentInt);
    EXPECT_THAT(fragment, HasSubstr("layout(std140, binding = 0) uniform zgu_cbuffer0 { ivec4 ClearColor; };"));
    // Integer targets need an integer output: a vec4 would store float bits.
    EXPECT_THAT(fragment, HasSubstr("layout(location = 0) out ivec4 zgu_out_color;"));
    EXPECT_THAT(fragment, HasSubstr("zgu_out_color = ClearColor;"));
}

TEST(ShaderTranslator, CopyStagesLinkBySemanticNotByName)
{
    TranslatedShader const vertex = TranslateShader(ShaderStageKind::Vertex, CopyVertex);
    ASSERT_TRUE(vertex.Ok()) << vertex.error;
    ASSERT_EQ(vertex.vertexInputs.size(), 1u);
    EXPECT_EQ(vertex.vertexInputs[0].semantic, "position");
    EXPECT_EQ(vertex.vertexInputs[0].location, 0);
    EXPECT_EQ(vertex.vertexInputs[0].identifier, AttributeIdentifier("position", 0));
    EXPECT_THAT(vertex.glsl, HasSubstr("layout(location = 0) in vec2 zgu_in_position0;"));
    // The double blank before the semantic is part of the library's text.
    EXPECT_THAT(vertex.glsl, HasSubstr("out vec2 zgu_io_tex_coord;"));
    EXPECT_THAT(vertex.glsl, HasSubstr("zgu_io_tex_coord = (zgu_in_position0 + vec2(1.0,1.0)) * 0.5;"));

    std::string const fragment = Glsl(ShaderStageKind::Fragment, CopyFragment);
    EXPECT_THAT(fragment, HasSubstr("layout(binding = 0) uniform sampler2D zgu_tex_source_image;"));
    EXPECT_THAT(fragment, HasSubstr("in vec2 zgu_io_tex_coord;"));
    EXPECT_THAT(fragment, HasSubstr("zgu_out_color = (texture(zgu_tex_source_image, zgu_io_tex_coord));"));
}

TEST(ShaderTranslator, ResolveFetchesSamplesWithIntegerCoordinates)
{
    std::string const fragment = Glsl(ShaderStageKind::Fragment, ResolveFragmentMin);
    EXPECT_THAT(fragment, HasSubstr("uniform sampler2DMS zgu_tex_msaaDepth;"));
    EXPECT_THAT(fragment, Not(HasSubstr("unroll")));
    EXPECT_THAT(fragment, HasSubstr("gl_FragDepth = min(gl_FragDepth, "
                                    "(texelFetch(zgu_tex_msaaDepth, ivec2(uvec2(gl_FragCoord.xy)), int(i))).x);"));
}

TEST(ShaderTranslator, SingleSampleVariantReadsTheOnlySampleOfAPlainTexture)
{
    TranslatedShader const normal = TranslateShader(ShaderStageKind::Fragment, ResolveFragmentMin);
    EXPECT_TRUE(normal.multisampledTextures);
    TranslatedShader const variant = TranslateShader(ShaderStageKind::Fragment, ResolveFragmentMin, {true});
    ASSERT_TRUE(variant.Ok()) << variant.error;
    EXPECT_THAT(variant.glsl, HasSubstr("uniform sampler2D zgu_tex_msaaDepth;"));
    EXPECT_THAT(variant.glsl, HasSubstr("texelFetch(zgu_tex_msaaDepth, ivec2(uvec2(gl_FragCoord.xy)), 0 * int(i))"));
    EXPECT_FALSE(TranslateShader(ShaderStageKind::Fragment, CopyFragment).multisampledTextures);
}

TEST(ShaderTranslator, MacroArgumentsKeepNestedParenthesesAndCommas)
{
    std::string const fragment =
        Glsl(ShaderStageKind::Fragment, "TEXTURE_2D(uint2, t, 3);\n[out uint4 o : 1]\n"
                                        "void main() { uint2 v = READ_SAMPLE(t, uint2(max(1, 2), (3)), f(1, (2))); "
                                        "$o$ = uint4(v, 0, 0); }\n");
    EXPECT_THAT(fragment, HasSubstr("layout(binding = 3) uniform usampler2D zgu_tex_t;"));
    EXPECT_THAT(fragment, HasSubstr("(texelFetch(zgu_tex_t, ivec2(uvec2(max(1, 2), (3))), int(f(1, (2)))).xy)"));
    EXPECT_THAT(fragment, HasSubstr("layout(location = 1) out uvec4 zgu_out_o;"));
}

TEST(ShaderTranslator, IntegerVaryingsAreFlatAndLocatedInputsFollowTheSemanticTable)
{
    TranslatedShader const vertex =
        TranslateShader(ShaderStageKind::Vertex, "[in float3 p : position]\n[in float2 t : texcoord1]\n"
                                                 "[in float4 w : weights]\n[out int id : object]\n"
                                                 "void main() { $id$ = 3; $Position$ = float4($p$, $t$.x + $w$.x); }");
    ASSERT_TRUE(vertex.Ok()) << vertex.error;
    ASSERT_EQ(vertex.vertexInputs.size(), 3u);
    EXPECT_EQ(vertex.vertexInputs[1].semantic, "texcoord");
    EXPECT_EQ(vertex.vertexInputs[1].index, 1u);
    EXPECT_EQ(vertex.vertexInputs[1].location, 6);
    EXPECT_EQ(vertex.vertexInputs[2].location, -1); // found by name when the pipeline is made
    EXPECT_THAT(vertex.glsl, HasSubstr("\nin vec4 zgu_in_weights0;"));
    EXPECT_THAT(vertex.glsl, HasSubstr("flat out int zgu_io_object;"));
    std::string const fragment = Glsl(ShaderStageKind::Fragment, "[in int id : object]\n[out float4 c : 0]\n"
                                                                  "void main() { $c$ = float4($id$); }");
    EXPECT_THAT(fragment, HasSubstr("flat in int zgu_io_object;"));
}

TEST(ShaderTranslator, CommentsAndNumbersPassThroughUntouched)
{
    std::string const fragment = Glsl(ShaderStageKind::Fragment, "// float4 $not_a_variable$ [unroll\n"
                                                                  "/* SAMPLE(x, y) */ [out float4 c : 0]\n"
                                                                  "void main() { float a[2]; a[1] = 1.5e+3; "
                                                                  "$c$ = float4(a[1], 0x1F, 2.0f, 1); }");
    EXPECT_THAT(fragment, HasSubstr("// float4 $not_a_variable$ [unroll\n/* SAMPLE(x, y) */ layout(location = 0)"));
    EXPECT_THAT(fragment, HasSubstr("a[1] = 1.5e+3;"));
    EXPECT_THAT(fragment, HasSubstr("zgu_out_c = vec4(a[1], 0x1F, 2.0f, 1);"));
}

TEST(ShaderTranslator, UndeclaredDollarNamesArePrefixedSoKeywordsAreSafe)
{
    std::string const fragment =
        Glsl(ShaderStageKind::Fragment, "[out float4 c : 0]\nvoid main() { float $input$ = 1.0; $c$ = float4($input$); }");
    EXPECT_THAT(fragment, HasSubstr("float zgu_var_input = 1.0;"));
}

TEST(ShaderTranslator, MalformedSourcesGiveErrorsWithLineNumbers)
{
    struct Case {
        ShaderStageKind stage;
        char const* source;
        char const* error;
    };
    Case const cases[] = {
        {ShaderStageKind::Fragment, "void main()\n{ $c = 1; }", "line 2: unterminated \"$\" reference"},
        {ShaderStageKind::Fragment, "\n\n[unknown thing]", "line 3: unknown \"[unknown thing]\""},
        {ShaderStageKind::Fragment, "[in float2 uv]", "line 1: a declaration reads"},
        {ShaderStageKind::Fragment, "[out float5 c : 0]", "unknown type \"float5\""},
        {ShaderStageKind::Fragment, "[out float4 c : 9]", "render target 0 to 7"},
        {ShaderStageKind::Fragment, "[in float a : x]\n[in float a : y]", "line 2: variable \"a\" declared twice"},
        {ShaderStageKind::Fragment, "[in float a : x]\n[in float b : x]", "share a semantic"},
        {ShaderStageKind::Fragment, "void main() { float4 c = SAMPLE(nothing, uv); }", "undeclared texture \"nothing\""},
        {ShaderStageKind::Fragment, "TEXTURE_2D(float4, t, 0);\nvoid main() { SAMPLE(t, f(uv); }",
         "line 2: unbalanced parentheses"},
        {ShaderStageKind::Fragment, "TEXTURE_2D(float4x4, t, 0);", "needs a float, int or uint type"},
        {ShaderStageKind::Fragment, "CBUFFER(b, slot) { float x; };", "CBUFFER needs a slot number"},
        {ShaderStageKind::Fragment, "TEXTURE_2D(float, t, 0);\nTEXTURE_2D(float, t, 1);", "declared twice"},
        {ShaderStageKind::Vertex, "void main() { $FragDepth$ = 0.0; }", "not available in the vs stage"},
        {ShaderStageKind::Vertex, "/* open", "unterminated comment"},
        {ShaderStageKind::Vertex, "[in float a : __x]", "not a semantic name"},
    };
    for (Case const& c : cases) {
        TranslatedShader const result = TranslateShader(c.stage, c.source);
        EXPECT_THAT(result.error, HasSubstr(c.error)) << c.source;
        EXPECT_TRUE(result.glsl.empty()) << c.source;
    }
}

// Arbitrary text gives GLSL or an error, never a crash or a hang: mutate the
// library's texts and throw in random bytes.
TEST(ShaderTranslator, MutatedAndRandomTextNeverBreaksTheTranslator)
{
    std::mt19937 random(12345);
    std::string const seeds[] = {ClearVertex, ClearFragmentInt, CopyVertex, CopyFragment, ResolveFragmentMin};
    std::string const alphabet = "$[](),;:{} \n\x01" "abcINSAMPLE_READ0123.+-/*";
    std::size_t errors = 0;
    for (int round = 0; round < 3000; ++round) {
        std::string text = seeds[static_cast<std::size_t>(round) % std::size(seeds)];
        int const edits = 1 + static_cast<int>(random() % 6);
        for (int e = 0; e < edits && !text.empty(); ++e) {
            std::size_t const at = random() % text.size();
            switch (random() % 3) {
            case 0: text.erase(at, 1 + random() % 4); break;
            case 1: text.insert(at, 1, alphabet[random() % alphabet.size()]); break;
            default: text[at] = static_cast<char>(random() % 256); break;
            }
        }
        auto const stage = round % 2 == 0 ? ShaderStageKind::Vertex : ShaderStageKind::Fragment;
        TranslatedShader const result = TranslateShader(stage, text);
        EXPECT_NE(result.Ok(), result.glsl.empty());
        errors += result.Ok() ? 0 : 1;
    }
    EXPECT_GT(errors, 0u); // the mutations did reach the error paths
}

} // namespace
} // namespace Zorvan::Rendering::Gl::detail
