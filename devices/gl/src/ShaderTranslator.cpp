#include "ShaderTranslator.h"

#include <array>
#include <cctype>
#include <charconv>
#include <map>
#include <optional>
#include <utility>

namespace Zorvan::Rendering::Gl::detail {

namespace {

// Marks a "$name$" reference whose declaration may still follow; resolved
// once the whole text has been read.
constexpr char ReferenceMark = '\x01';

bool IsIdentifierStart(char c) noexcept { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool IsIdentifierChar(char c) noexcept { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool IsSpace(char c) noexcept { return std::isspace(static_cast<unsigned char>(c)) != 0; }

bool IsIdentifier(std::string_view s) noexcept
{
    if (s.empty() || !IsIdentifierStart(s.front()))
        return false;
    for (char c : s)
        if (!IsIdentifierChar(c))
            return false;
    return true;
}

std::string_view Trim(std::string_view s) noexcept
{
    while (!s.empty() && IsSpace(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && IsSpace(s.back()))
        s.remove_suffix(1);
    return s;
}

std::optional<std::uint32_t> ParseUnsigned(std::string_view s) noexcept
{
    s = Trim(s);
    std::uint32_t value = 0;
    auto const [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value);
    if (s.empty() || ec != std::errc{} || end != s.data() + s.size())
        return std::nullopt;
    return value;
}

// Dialect scalar/vector types: GLSL spelling, component count, base kind.
struct TypeInfo {
    char const* glsl;
    int components;
    char kind; // 'f' float, 'i' int, 'u' uint, 'b' bool, 'm' matrix
};

std::optional<TypeInfo> LookUpType(std::string_view name) noexcept
{
    static constexpr std::array<std::pair<std::string_view, TypeInfo>, 23> table{{
        {"float", {"float", 1, 'f'}},   {"float2", {"vec2", 2, 'f'}},   {"float3", {"vec3", 3, 'f'}},
        {"float4", {"vec4", 4, 'f'}},   {"int", {"int", 1, 'i'}},       {"int2", {"ivec2", 2, 'i'}},
        {"int3", {"ivec3", 3, 'i'}},    {"int4", {"ivec4", 4, 'i'}},    {"uint", {"uint", 1, 'u'}},
        {"uint2", {"uvec2", 2, 'u'}},   {"uint3", {"uvec3", 3, 'u'}},   {"uint4", {"uvec4", 4, 'u'}},
        {"bool", {"bool", 1, 'b'}},     {"bool2", {"bvec2", 2, 'b'}},   {"bool3", {"bvec3", 3, 'b'}},
        {"bool4", {"bvec4", 4, 'b'}},   {"float2x2", {"mat2", 4, 'm'}}, {"float3x3", {"mat3", 9, 'm'}},
        {"float4x4", {"mat4", 16, 'm'}}, {"half", {"float", 1, 'f'}},   {"half2", {"vec2", 2, 'f'}},
        {"half3", {"vec3", 3, 'f'}},    {"half4", {"vec4", 4, 'f'}},
    }};
    for (auto const& [key, info] : table)
        if (key == name)
            return info;
    return std::nullopt;
}

// Identifiers renamed wherever they stand as a whole token.
std::optional<std::string_view> RenamedIdentifier(std::string_view name) noexcept
{
    if (auto type = LookUpType(name))
        return std::string_view(type->glsl);
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 4> functions{{
        {"lerp", "mix"}, {"frac", "fract"}, {"rsqrt", "inversesqrt"}, {"ddx", "dFdx"}}};
    for (auto const& [from, to] : functions)
        if (from == name)
            return to;
    return std::nullopt;
}

std::optional<std::string_view> BuiltIn(ShaderStageKind stage, std::string_view name) noexcept
{
    if (name == "VertexId" && stage == ShaderStageKind::Vertex)
        return "uint(gl_VertexID)";
    if (name == "InstanceId" && stage == ShaderStageKind::Vertex)
        return "uint(gl_InstanceID)";
    if (name == "Position" && stage != ShaderStageKind::Fragment)
        return "gl_Position";
    if (name == "FragDepth" && stage == ShaderStageKind::Fragment)
        return "gl_FragDepth";
    if (name == "FragCoord" && stage == ShaderStageKind::Fragment)
        return "gl_FragCoord";
    if (name == "SampleId" && stage == ShaderStageKind::Fragment)
        return "uint(gl_SampleID)";
    return std::nullopt;
}

int KnownSemanticBase(std::string_view semantic) noexcept
{
    static constexpr std::array<std::string_view, 4> known{"position", "normal", "texcoord", "color"};
    for (std::size_t i = 0; i < known.size(); ++i)
        if (known[i] == semantic)
            return static_cast<int>(i);
    return -1;
}

std::pair<std::string_view, std::uint32_t> SplitSemantic(std::string_view semantic) noexcept
{
    std::size_t digits = semantic.size();
    while (digits > 0 && std::isdigit(static_cast<unsigned char>(semantic[digits - 1])) != 0)
        --digits;
    if (digits == 0 || digits == semantic.size() || semantic.size() - digits > 3)
        return {semantic, 0};
    std::uint32_t index = 0;
    std::from_chars(semantic.data() + digits, semantic.data() + semantic.size(), index);
    return {semantic.substr(0, digits), index};
}

struct Texture {
    std::string identifier;
    int components = 4;
    bool multisampled = false;
};

std::string Swizzle(int components)
{
    switch (components) {
    case 1: return ".x";
    case 2: return ".xy";
    case 3: return ".xyz";
    default: return "";
    }
}

class Translator {
public:
    Translator(ShaderStageKind stage, std::string_view source, TranslationOptions options)
        : stage_(stage), source_(source), options_(options)
    {
    }

    TranslatedShader Run()
    {
        TranslatedShader result;
        if (source_.find(ReferenceMark) != std::string_view::npos) {
            result.error = "line 1: control character \\x01 in the source";
            return result;
        }
        std::string body;
        if (Translate(source_, 0, body)) {
            std::string resolved;
            if (Resolve(body, resolved)) {
                result.glsl = "#version 450 core\n" + resolved;
                result.vertexInputs = std::move(inputs_);
                result.multisampledTextures = multisampled_;
                return result;
            }
        }
        result.error = std::move(error_);
        return result;
    }

private:
    bool Fail(std::size_t offset, std::string const& what)
    {
        if (error_.empty()) {
            std::size_t line = 1;
            for (std::size_t i = 0; i < offset && i < source_.size(); ++i)
                line += source_[i] == '\n' ? 1 : 0;
            error_ = "line " + std::to_string(line) + ": " + what;
        }
        return false;
    }

    // Translates text (a piece of source_ starting at base) into out.
    bool Translate(std::string_view text, std::size_t base, std::string& out)
    {
        bool statementStart = true; // only here may "[" open a declaration or hint
        std::size_t i = 0;
        while (i < text.size()) {
            char const c = text[i];
            if (c == '/' && i + 1 < text.size() && (text[i + 1] == '/' || text[i + 1] == '*')) {
                std::size_t end = text[i + 1] == '/' ? text.find('\n', i) : text.find("*/", i + 2);
                if (end == std::string_view::npos) {
                    if (text[i + 1] == '*')
                        return Fail(base + i, "unterminated comment");
                    end = text.size();
                } else if (text[i + 1] == '*') {
                    end += 2;
                }
                out.append(text.substr(i, end - i));
                i = end;
                continue;
            }
            if (IsSpace(c)) {
                out.push_back(c);
                ++i;
                continue;
            }
            if (c == '$') {
                std::size_t const end = text.find('$', i + 1);
                if (end == std::string_view::npos)
                    return Fail(base + i, "unterminated \"$\" reference");
                std::string_view const name = text.substr(i + 1, end - i - 1);
                if (!IsIdentifier(name))
                    return Fail(base + i, "\"$" + std::string(name) + "$\" does not name a variable");
                if (auto builtIn = BuiltIn(stage_, name))
                    out.append(*builtIn);
                else
                    out.append(1, ReferenceMark).append(name).append(1, ReferenceMark);
                i = end + 1;
                statementStart = false;
                continue;
            }
            if (c == '[' && statementStart) {
                std::size_t const end = text.find(']', i);
                if (end == std::string_view::npos)
                    return Fail(base + i, "unterminated \"[\"");
                if (!Bracket(text.substr(i + 1, end - i - 1), base + i, out))
                    return false;
                i = end + 1;
                continue; // a declaration or hint leaves us at a statement start
            }
            if (std::isdigit(static_cast<unsigned char>(c)) != 0 ||
                (c == '.' && i + 1 < text.size() && std::isdigit(static_cast<unsigned char>(text[i + 1])) != 0)) {
                std::size_t end = i;
                while (end < text.size() &&
                       (IsIdentifierChar(text[end]) || text[end] == '.' ||
                        ((text[end] == '+' || text[end] == '-') && (text[end - 1] == 'e' || text[end - 1] == 'E'))))
                    ++end;
                out.append(text.substr(i, end - i));
                i = end;
                statementStart = false;
                continue;
            }
            if (IsIdentifierStart(c)) {
                std::size_t end = i;
                while (end < text.size() && IsIdentifierChar(text[end]))
                    ++end;
                std::string_view const word = text.substr(i, end - i);
                std::size_t next = end;
                while (next < text.size() && IsSpace(text[next]))
                    ++next;
                if (next < text.size() && text[next] == '(' && IsMacro(word)) {
                    std::size_t close = 0;
                    std::vector<std::pair<std::string_view, std::size_t>> arguments;
                    if (!SplitArguments(text, next, base, close, arguments))
                        return false;
                    if (!Macro(word, arguments, base + i, out))
                        return false;
                    i = close + 1;
                } else {
                    if (auto texture = textures_.find(std::string(word)); texture != textures_.end())
                        out.append(texture->second.identifier);
                    else if (auto renamed = RenamedIdentifier(word))
                        out.append(*renamed);
                    else
                        out.append(word);
                    i = end;
                }
                statementStart = false;
                continue;
            }
            out.push_back(c);
            statementStart = c == ';' || c == '{' || c == '}';
            ++i;
        }
        return true;
    }

    static bool IsMacro(std::string_view word) noexcept
    {
        return word == "CBUFFER" || word == "TEXTURE_2D" || word == "TEXTURE_2DMS" || word == "SAMPLE" ||
               word == "READ_SAMPLE";
    }

    // Splits "(a, f(b, c), d)" at top-level commas; open is the "(" position.
    bool SplitArguments(std::string_view text, std::size_t open, std::size_t base, std::size_t& close,
                        std::vector<std::pair<std::string_view, std::size_t>>& arguments)
    {
        int depth = 0;
        std::size_t start = open + 1;
        for (std::size_t i = open; i < text.size(); ++i) {
            char const c = text[i];
            if (c == '(' || c == '[') {
                ++depth;
            } else if (c == ')' || c == ']') {
                if (--depth == 0) {
                    if (c != ')')
                        return Fail(base + i, "unbalanced \"]\"");
                    arguments.emplace_back(text.substr(start, i - start), base + start);
                    close = i;
                    return true;
                }
                if (depth < 0)
                    return Fail(base + i, "unbalanced parentheses");
            } else if (c == ',' && depth == 1) {
                arguments.emplace_back(text.substr(start, i - start), base + start);
                start = i + 1;
            } else if (c == ';' || c == '{' || c == '}') {
                return Fail(base + i, "unbalanced parentheses");
            }
        }
        return Fail(base + open, "unbalanced parentheses");
    }

    bool Macro(std::string_view word, std::vector<std::pair<std::string_view, std::size_t>> const& arguments,
               std::size_t at, std::string& out)
    {
        auto const count = [&](std::size_t n) {
            return arguments.size() == n ||
                   Fail(at, std::string(word) + " takes " + std::to_string(n) + " arguments");
        };
        if (word == "CBUFFER") {
            if (!count(2))
                return false;
            std::string_view const name = Trim(arguments[0].first);
            auto const slot = ParseUnsigned(arguments[1].first);
            if (!IsIdentifier(name))
                return Fail(at, "CBUFFER needs a name");
            if (!slot)
                return Fail(at, "CBUFFER needs a slot number");
            // Named by slot, not by stage: a buffer both stages declare is one
            // block of the linked program, and GLSL checks that they agree.
            out += "layout(std140, binding = " + std::to_string(*slot) + ") uniform zgu_cbuffer" +
                   std::to_string(*slot);
            return true;
        }
        if (word == "TEXTURE_2D" || word == "TEXTURE_2DMS") {
            if (!count(3))
                return false;
            auto const type = LookUpType(Trim(arguments[0].first));
            std::string_view const name = Trim(arguments[1].first);
            auto const slot = ParseUnsigned(arguments[2].first);
            if (!type || (type->kind != 'f' && type->kind != 'i' && type->kind != 'u'))
                return Fail(at, word == "TEXTURE_2D" ? "TEXTURE_2D needs a float, int or uint type"
                                                    : "TEXTURE_2DMS needs a float, int or uint type");
            if (!IsIdentifier(name))
                return Fail(at, std::string(word) + " needs a name");
            if (!slot)
                return Fail(at, std::string(word) + " needs a slot number");
            std::string const identifier = "zgu_tex_" + std::string(name);
            bool const multisampled = word == "TEXTURE_2DMS";
            multisampled_ = multisampled_ || multisampled;
            if (!textures_.emplace(std::string(name), Texture{identifier, type->components, multisampled}).second)
                return Fail(at, "texture \"" + std::string(name) + "\" declared twice");
            char const* prefix = type->kind == 'i' ? "i" : type->kind == 'u' ? "u" : "";
            bool const asMultisampled = multisampled && !options_.singleSampledTextures;
            out += "layout(binding = " + std::to_string(*slot) + ") uniform " + prefix +
                   (asMultisampled ? "sampler2DMS " : "sampler2D ") + identifier;
            return true;
        }
        // SAMPLE(texture, uv) and READ_SAMPLE(texture, coordinates, sample)
        bool const fetch = word == "READ_SAMPLE";
        if (!count(fetch ? 3 : 2))
            return false;
        auto const texture = textures_.find(std::string(Trim(arguments[0].first)));
        if (texture == textures_.end())
            return Fail(at, std::string(word) + " of undeclared texture \"" + std::string(Trim(arguments[0].first)) +
                                "\"");
        std::vector<std::string> translated;
        for (std::size_t a = 1; a < arguments.size(); ++a) {
            std::string piece;
            if (!Translate(arguments[a].first, arguments[a].second, piece))
                return false;
            if (Trim(piece).empty())
                return Fail(at, std::string(word) + " has an empty argument");
            translated.emplace_back(Trim(piece));
        }
        out += "(";
        if (fetch && texture->second.multisampled && options_.singleSampledTextures)
            out += "texelFetch(" + texture->second.identifier + ", ivec2(" + translated[0] + "), 0 * int(" +
                   translated[1] + "))";
        else if (fetch)
            out += "texelFetch(" + texture->second.identifier + ", ivec2(" + translated[0] + "), int(" +
                   translated[1] + "))";
        else
            out += "texture(" + texture->second.identifier + ", " + translated[0] + ")";
        out += Swizzle(texture->second.components) + ")";
        return true;
    }

    // "[in T name : semantic]", "[out T name : target]" or a hint like "[unroll]".
    bool Bracket(std::string_view content, std::size_t at, std::string& out)
    {
        std::string_view const trimmed = Trim(content);
        static constexpr std::array<std::string_view, 5> hints{"unroll", "loop", "flatten", "branch", "fastopt"};
        for (auto hint : hints)
            if (trimmed == hint || (trimmed.starts_with(hint) && Trim(trimmed.substr(hint.size())).starts_with('(')))
                return true;

        std::size_t const colon = trimmed.find(':');
        std::vector<std::string_view> words;
        std::string_view head = colon == std::string_view::npos ? trimmed : trimmed.substr(0, colon);
        while (!(head = Trim(head)).empty()) {
            std::size_t end = 0;
            while (end < head.size() && !IsSpace(head[end]))
                ++end;
            words.push_back(head.substr(0, end));
            head.remove_prefix(end);
        }
        if (words.empty() || (words[0] != "in" && words[0] != "out"))
            return Fail(at, "unknown \"[" + std::string(trimmed) + "]\"");
        bool const input = words[0] == "in";
        if (words.size() != 3 || colon == std::string_view::npos)
            return Fail(at, "a declaration reads \"[in|out type name : semantic]\"");
        auto const type = LookUpType(words[1]);
        if (!type)
            return Fail(at, "unknown type \"" + std::string(words[1]) + "\"");
        std::string_view const name = words[2];
        std::string_view const semantic = Trim(trimmed.substr(colon + 1));
        if (!IsIdentifier(name))
            return Fail(at, "\"" + std::string(name) + "\" is not a variable name");
        if (variables_.count(std::string(name)) != 0)
            return Fail(at, "variable \"" + std::string(name) + "\" declared twice");

        std::string identifier;
        std::string declaration;
        bool const integer = type->kind == 'i' || type->kind == 'u';
        if (stage_ == ShaderStageKind::Fragment && !input) {
            auto const target = ParseUnsigned(semantic);
            if (!target || *target > 7)
                return Fail(at, "a fragment output names a render target 0 to 7");
            identifier = "zgu_out_" + std::string(name);
            declaration = "layout(location = " + std::to_string(*target) + ") out " + type->glsl + " " + identifier;
        } else {
            if (!IsIdentifier(semantic) || semantic.find("__") != std::string_view::npos || semantic.front() == '_')
                return Fail(at, "\"" + std::string(semantic) + "\" is not a semantic name");
            if (stage_ == ShaderStageKind::Vertex && input) {
                auto const [semanticName, index] = SplitSemantic(semantic);
                identifier = AttributeIdentifier(semanticName, index);
                for (auto const& existing : inputs_)
                    if (existing.identifier == identifier)
                        return Fail(at, "semantic \"" + std::string(semantic) + "\" used twice");
                int const known = KnownSemanticBase(semanticName);
                int const location = known >= 0 && index < 4 ? known + 4 * static_cast<int>(index) : -1;
                if (location >= 0)
                    declaration = "layout(location = " + std::to_string(location) + ") ";
                declaration += std::string("in ") + type->glsl + " " + identifier;
                inputs_.push_back({std::string(semanticName), index, identifier, location});
            } else {
                // Stages link by semantic: both sides get the same name.
                identifier = "zgu_io_" + std::string(semantic);
                declaration = std::string(integer ? "flat " : "") + (input ? "in " : "out ") + type->glsl + " " +
                              identifier;
            }
        }
        for (auto const& [other, otherIdentifier] : variables_)
            if (otherIdentifier == identifier)
                return Fail(at, "\"" + std::string(name) + "\" and \"" + other + "\" share a semantic");
        variables_.emplace(std::string(name), identifier);
        out += declaration + ";";
        return true;
    }

    bool Resolve(std::string const& body, std::string& out)
    {
        std::size_t i = 0;
        while (i < body.size()) {
            std::size_t const mark = body.find(ReferenceMark, i);
            if (mark == std::string::npos) {
                out.append(body, i, std::string::npos);
                break;
            }
            std::size_t const end = body.find(ReferenceMark, mark + 1);
            out.append(body, i, mark - i);
            std::string const name = body.substr(mark + 1, end - mark - 1);
            if (auto variable = variables_.find(name); variable != variables_.end())
                out += variable->second;
            else if (BuiltIn(ShaderStageKind::Vertex, name) || BuiltIn(ShaderStageKind::Fragment, name))
                return Fail(0, "\"$" + name + "$\" is not available in the " + ToString(stage_) + " stage");
            else
                out += "zgu_var_" + name; // a local the shader declares itself
            i = end + 1;
        }
        return true;
    }

    ShaderStageKind stage_;
    std::string_view source_;
    TranslationOptions options_;
    bool multisampled_ = false;
    std::string error_;
    std::map<std::string, std::string> variables_;
    std::map<std::string, Texture> textures_;
    std::vector<VertexInput> inputs_;
};

} // namespace

char const* ToString(ShaderStageKind stage) noexcept
{
    switch (stage) {
    case ShaderStageKind::Vertex: return "vs";
    case ShaderStageKind::TessellationControl: return "tcs";
    case ShaderStageKind::TessellationEvaluation: return "tes";
    case ShaderStageKind::Geometry: return "gs";
    case ShaderStageKind::Fragment: return "fs";
    }
    return "unknown";
}

std::string AttributeIdentifier(std::string_view semanticName, std::uint32_t semanticIndex)
{
    return "zgu_in_" + std::string(semanticName) + std::to_string(semanticIndex);
}

TranslatedShader TranslateShader(ShaderStageKind stage, std::string_view source, TranslationOptions options)
{
    return Translator(stage, source, options).Run();
}

} // namespace Zorvan::Rendering::Gl::detail
