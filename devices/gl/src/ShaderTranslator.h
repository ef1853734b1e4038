#pragma once

// Translates the library's portable shader dialect into GLSL 4.50 core by a
// textual rewrite (no preprocessor macros: token pasting differs between
// drivers). Pure host code: it needs no context and is tested on its own.

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

enum class ShaderStageKind { Vertex, TessellationControl, TessellationEvaluation, Geometry, Fragment };

// A vertex-stage input: the input layout binds it by semantic name and index.
struct VertexInput {
    std::string semantic;       // "position" for ": position", "texcoord" for ": texcoord1"
    std::uint32_t index = 0;    // trailing digits of the semantic
    std::string identifier;     // the GLSL attribute name
    int location = -1;          // fixed location for the well-known semantics, else -1
};

struct TranslatedShader {
    std::string glsl;           // empty when error is set
    std::string error;          // "line N: what is wrong"
    std::vector<VertexInput> vertexInputs;

    bool Ok() const noexcept { return error.empty(); }
};

TranslatedShader TranslateShader(ShaderStageKind stage, std::string_view source);

// GLSL name of the vertex attribute an input layout entry feeds; the
// translator gives the matching "[in T x : <name><index>]" this name.
std::string AttributeIdentifier(std::string_view semanticName, std::uint32_t semanticIndex);

char const* ToString(ShaderStageKind stage) noexcept;

} // namespace Zorvan::Rendering::Gl::detail
