#include "ShaderTexts.h"

#include <sstream>

namespace Zorvan::Rendering::detail {

namespace {

// The closing brace is indented less than the body; kept as is.
constexpr std::string_view clearVertex = "\n"
                                         "void main()\n"
                                         "    {\n"
                                         "    float x = float($VertexId$ / uint(2)) * 4.0 - 1.0;\n"
                                         "    float y = float($VertexId$ % uint(2)) * 4.0 - 1.0;\n"
                                         "    $Position$ = float4(x, y, 0.0, 1.0);\n"
                                         "  }\n";

// Two blanks before tex_coord in the output declaration; kept as is.
constexpr std::string_view copyVertex = "\n"
                                        "[in float2 pos : position]\n"
                                        "[out float2 uv :  tex_coord]\n"
                                        "void main()\n"
                                        "        {\n"
                                        "        $Position$ = float4($pos$, 0.0, 1.0);\n"
                                        "        $uv$ = ($pos$ + float2(1.0,1.0)) * 0.5;\n"
                                        "        }\n";

constexpr std::string_view copyFragment = "\n"
                                          "TEXTURE_2D(float4, source_image, 0);\n"
                                          "[in float2 uv : tex_coord]\n"
                                          "[out float4 color : 0]\n"
                                          "void main()\n"
                                          "        {\n"
                                          "        $color$ = SAMPLE(source_image, $uv$);\n"
                                          "        }\n";

// Declared float4 over two-float vertex data: the device fills z = 0, w = 1.
constexpr std::string_view resolveVertex = "\n"
                                           "[in float4 pos : position]\n"
                                           "void main() { $Position$ = $pos$; }\n";

} // namespace

std::string_view ClearVertexShaderText() noexcept { return clearVertex; }
std::string_view CopyVertexShaderText() noexcept { return copyVertex; }
std::string_view CopyFragmentShaderText() noexcept { return copyFragment; }
std::string_view ResolveVertexShaderText() noexcept { return resolveVertex; }

std::string ClearFragmentShaderText(std::string_view typeName)
{
    std::ostringstream text;
    text << "CBUFFER(constant_buffer, 0) { " << typeName << " ClearColor; };\n";
    text << "[out " << typeName << " color : 0]\nvoid main() { $color$ = ClearColor; }\n";
    return text.str();
}

std::string ResolveFragmentShaderText(std::uint32_t mode, std::uint32_t sampleCount)
{
    bool const keepMinimum = mode == 0;
    int const initialDepth = keepMinimum ? 1 : 0;
    char const* const reduce = keepMinimum ? "min" : "max";

    std::ostringstream text;
    text << "TEXTURE_2DMS(float4, msaaDepth, 0);\n"
         << "void main()\n"
         << "  {\n"
         << "  $FragDepth$ = " << initialDepth << ";\n"
         << "  [unroll]\n"
         << "  for (uint i = 0; i < uint(" << sampleCount << "); ++i)\n"
         << "    $FragDepth$ = " << reduce << "($FragDepth$, READ_SAMPLE(msaaDepth, uint2($FragCoord$.xy), i).x);\n"
         << "  }\n";
    return text.str();
}

} // namespace Zorvan::Rendering::detail
