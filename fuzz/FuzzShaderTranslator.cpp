// The GL device's dialect translator on arbitrary text: it must return GLSL
// or a clean error, never crash, hang or touch memory it does not own.

#include "ShaderTranslator.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

using namespace Zorvan::Rendering::Gl::detail;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size == 0)
        return 0;
    auto const stage = (data[0] & 1) != 0 ? ShaderStageKind::Fragment : ShaderStageKind::Vertex;
    TranslationOptions options;
    options.singleSampledTextures = (data[0] & 2) != 0;
    std::string_view const source(reinterpret_cast<char const*>(data + 1), size - 1);

    TranslatedShader const shader = TranslateShader(stage, source, options);
    // Exactly one of the two outcomes.
    if (shader.Ok() == shader.glsl.empty())
        std::abort();
    return 0;
}
