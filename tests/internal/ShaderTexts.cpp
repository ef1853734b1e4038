// White-box checks of the generated shader texts and the cache-key hashing.

#include "shaderops/Hashing.h"
#include "shaderops/ShaderTexts.h"

#include <Rendering/ShaderOps.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

namespace {

using namespace Zorvan::Rendering;
using namespace Zorvan::Rendering::detail;

TEST(ShaderTexts, FixedTextsAreKeptCharacterForCharacter)
{
    EXPECT_EQ(ClearVertexShaderText(), "\nvoid main()\n    {\n    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                                       "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                                       "    $Position$ = float4(x, y, 0.0, 1.0);\n  }\n");
    EXPECT_EQ(ClearVertexShaderText().size(), 174u);

    EXPECT_EQ(CopyVertexShaderText(), "\n[in float2 pos : position]\n[out float2 uv :  tex_coord]\nvoid main()\n"
                                      "        {\n        $Position$ = float4($pos$, 0.0, 1.0);\n"
                                      "        $uv$ = ($pos$ + float2(1.0,1.0)) * 0.5;\n        }\n");
    EXPECT_EQ(CopyVertexShaderText().size(), 183u);

    EXPECT_EQ(CopyFragmentShaderText(), "\nTEXTURE_2D(float4, source_image, 0);\n[in float2 uv : tex_coord]\n"
                                        "[out float4 color : 0]\nvoid main()\n        {\n"
                                        "        $color$ = SAMPLE(source_image, $uv$);\n        }\n");
    EXPECT_EQ(CopyFragmentShaderText().size(), 166u);

    EXPECT_EQ(ResolveVertexShaderText(), "\n[in float4 pos : position]\nvoid main() { $Position$ = $pos$; }\n");
    EXPECT_EQ(ResolveVertexShaderText().size(), 64u);
}

TEST(ShaderTexts, ClearFragmentSplicesTheTypeName)
{
    EXPECT_EQ(ClearFragmentShaderText("float4"), "CBUFFER(constant_buffer, 0) { float4 ClearColor; };\n"
                                                 "[out float4 color : 0]\nvoid main() { $color$ = ClearColor; }\n");
    EXPECT_EQ(ClearFragmentShaderText("uint4"), "CBUFFER(constant_buffer, 0) { uint4 ClearColor; };\n"
                                                "[out uint4 color : 0]\nvoid main() { $color$ = ClearColor; }\n");
}

TEST(ShaderTexts, ResolveFragmentFollowsModeAndSampleCount)
{
    EXPECT_EQ(ResolveFragmentShaderText(0, 4),
              "TEXTURE_2DMS(float4, msaaDepth, 0);\nvoid main()\n  {\n  $FragDepth$ = 1;\n  [unroll]\n"
              "  for (uint i = 0; i < uint(4); ++i)\n"
              "    $FragDepth$ = min($FragDepth$, READ_SAMPLE(msaaDepth, uint2($FragCoord$.xy), i).x);\n  }\n");

    // One sample still loops; any mode but 0 keeps the maximum from 0.
    std::string const single = ResolveFragmentShaderText(1, 1);
    EXPECT_NE(single.find("  $FragDepth$ = 0;\n"), std::string::npos);
    EXPECT_NE(single.find("i < uint(1); ++i"), std::string::npos);
    EXPECT_NE(single.find("= max($FragDepth$"), std::string::npos);
    EXPECT_EQ(ResolveFragmentShaderText(7, 1), single);
    // Large counts print as plain decimal.
    EXPECT_NE(ResolveFragmentShaderText(0, 4294967295u).find("uint(4294967295)"), std::string::npos);
}

TEST(Hashing, Fnv1aMatchesPublishedValues)
{
    EXPECT_EQ(Fnv1a(""), 0xcbf29ce484222325ull);
    EXPECT_EQ(Fnv1a("int4"), 0xf5a681c57a8fe8feull);
    EXPECT_EQ(Fnv1a("uint4"), 0x34fa7b24f14f312full);
    EXPECT_EQ(Fnv1a("float4"), 0xa3a6f69c54783ca3ull);
    EXPECT_EQ(Fnv1aBytes(std::uint32_t{1}), 0xad2aca7747985764ull);
    EXPECT_EQ(ClearTypeHash(ClearValueType::Int4), 0xf5a681c57a8fe8feull);
    EXPECT_EQ(ClearTypeHash(ClearValueType::Uint4), 0x34fa7b24f14f312full);
    EXPECT_EQ(ClearTypeHash(ClearValueType::Float4), 0xa3a6f69c54783ca3ull);
    // Width matters: the same value over 8 bytes is a different hash.
    EXPECT_NE(Fnv1aBytes(std::uint64_t{1}), Fnv1aBytes(std::uint32_t{1}));
}

// An independent rendering of the key arithmetic: bytes taken from memory
// (the tests run on little-endian hosts), steps written out one by one.
std::uint64_t ReferenceFnv(void const* bytes, std::size_t count)
{
    std::uint64_t h = 14695981039346656037ull;
    auto const* p = static_cast<unsigned char const*>(bytes);
    for (std::size_t i = 0; i < count; ++i)
        h = (h ^ p[i]) * 1099511628211ull;
    return h;
}

std::uint64_t ReferenceCombine(std::uint64_t seed, std::uint64_t value)
{
    std::uint64_t const m = 0xc6a4a7935bd1e995ull;
    std::uint64_t k = ReferenceFnv(&value, sizeof value) * m;
    k = (k ^ (k >> 47)) * m;
    return ((seed ^ k) * m) + 0xe6546b64ull;
}

std::uint64_t ReferenceField(std::uint32_t v) { return ReferenceFnv(&v, sizeof v); }

TEST(Hashing, KeysLayerFnvAndHashCombineExactly)
{
    for (std::uint64_t seed : {0ull, 1ull, 0xffffffffffffffffull, 0x0123456789abcdefull})
        for (std::uint64_t value : {0ull, 42ull, 0xa3a6f69c54783ca3ull})
            EXPECT_EQ(HashCombine(seed, value), ReferenceCombine(seed, value)) << seed << ' ' << value;

    char const name[] = "Zorvan.Rendering.Gpu.Utilities-ShaderBasedImageClear";
    std::uint64_t const nameHash = ReferenceFnv(name, sizeof name - 1);
    EXPECT_EQ(ClearNameHash(), nameHash);

    std::uint64_t const typeHash = 0xa3a6f69c54783ca3ull;
    std::uint64_t const shaderKey = ReferenceCombine(nameHash, ReferenceFnv(&typeHash, 8));
    EXPECT_EQ(ClearShaderKey(ClearValueType::Float4), shaderKey);

    std::uint64_t const pipelineKey =
        ReferenceCombine(ReferenceCombine(shaderKey, ReferenceField(38)), ReferenceField(4));
    EXPECT_EQ(ClearPipelineKey(shaderKey, Format::R32G32F, 4), pipelineKey);
    EXPECT_NE(ClearShaderKey(ClearValueType::Int4), ClearShaderKey(ClearValueType::Uint4));

    ResolverKeyHash const hash;
    EXPECT_EQ(hash(ResolverShaderKey{0, 4}), ReferenceCombine(ReferenceCombine(0, ReferenceField(0)), ReferenceField(4)));
    EXPECT_EQ(hash(ResolverPipelineKey{1, 41, 8}),
              ReferenceCombine(ReferenceCombine(ReferenceCombine(0, ReferenceField(1)), ReferenceField(41)),
                               ReferenceField(8)));
    // Field order is part of the key.
    EXPECT_NE(hash(ResolverShaderKey{0, 4}), hash(ResolverShaderKey{4, 0}));
}

} // namespace
