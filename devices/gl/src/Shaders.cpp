// Shader programs: the dialect is translated stage by stage, compiled and
// linked; failures reach the message callback with the translated source.

#include "DeviceCore.h"
#include "ShaderTranslator.h"

#include <sstream>

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

std::string Numbered(std::string const& source)
{
    std::ostringstream out;
    std::istringstream lines(source);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number)
        out << number << ": " << line << "\n";
    return out.str();
}

std::string ShaderLog(GLuint shader)
{
    GLint length = 0;
    glGetShaderiv(shader, GL_INFO_LOG_LENGTH, &length);
    std::string log(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    if (length > 0)
        glGetShaderInfoLog(shader, length, nullptr, log.data());
    while (!log.empty() && (log.back() == '\0' || log.back() == '\n'))
        log.pop_back();
    return log;
}

std::string ProgramLog(GLuint program)
{
    GLint length = 0;
    glGetProgramiv(program, GL_INFO_LOG_LENGTH, &length);
    std::string log(static_cast<std::size_t>(length > 0 ? length : 0), '\0');
    if (length > 0)
        glGetProgramInfoLog(program, length, nullptr, log.data());
    while (!log.empty() && (log.back() == '\0' || log.back() == '\n'))
        log.pop_back();
    return log;
}

std::vector<LinkedProgram::Sampler> Samplers(GLuint program)
{
    std::vector<LinkedProgram::Sampler> samplers;
    GLint count = 0;
    glGetProgramiv(program, GL_ACTIVE_UNIFORMS, &count);
    for (GLint i = 0; i < count; ++i) {
        char name[256];
        GLint size = 0;
        GLenum type = 0;
        glGetActiveUniform(program, static_cast<GLuint>(i), sizeof name, nullptr, &size, &type, name);
        bool const multisampled = type == GL_SAMPLER_2D_MULTISAMPLE || type == GL_INT_SAMPLER_2D_MULTISAMPLE ||
                                  type == GL_UNSIGNED_INT_SAMPLER_2D_MULTISAMPLE;
        bool const flat = type == GL_SAMPLER_2D || type == GL_INT_SAMPLER_2D || type == GL_UNSIGNED_INT_SAMPLER_2D;
        GLint const location = glGetUniformLocation(program, name);
        if ((!multisampled && !flat) || location < 0)
            continue;
        GLint unit = 0;
        glGetUniformiv(program, location, &unit);
        samplers.push_back({static_cast<GLuint>(unit), multisampled, name});
    }
    return samplers;
}

struct Stage {
    ShaderStageKind kind;
    GLenum glStage;
    std::string const* source;
};

} // namespace

ShaderId GlDevice::CreateShader(ShaderDescription const& description)
{
    auto& s = *state_;
    s.MakeCurrent();
    Stage const stages[] = {
        {ShaderStageKind::Vertex, GL_VERTEX_SHADER, &description.vertex},
        {ShaderStageKind::TessellationControl, GL_TESS_CONTROL_SHADER, &description.tessellationControl},
        {ShaderStageKind::TessellationEvaluation, GL_TESS_EVALUATION_SHADER, &description.tessellationEvaluation},
        {ShaderStageKind::Geometry, GL_GEOMETRY_SHADER, &description.geometry},
        {ShaderStageKind::Fragment, GL_FRAGMENT_SHADER, &description.fragment},
    };
    if (description.vertex.empty())
        return s.Error("CreateShader: a program needs a vertex stage"), ShaderId{};

    std::vector<GlShader> compiled;
    for (Stage const& stage : stages) {
        if (stage.source->empty())
            continue;
        TranslatedShader translated = TranslateShader(stage.kind, *stage.source);
        if (!translated.Ok())
            return s.Error(std::string("CreateShader: the ") + ToString(stage.kind) +
                           " stage does not translate: " + translated.error + "\n" + Numbered(*stage.source)),
                   ShaderId{};
        GlShader shader(glCreateShader(stage.glStage));
        char const* text = translated.glsl.c_str();
        glShaderSource(shader.Get(), 1, &text, nullptr);
        glCompileShader(shader.Get());
        GLint ok = GL_FALSE;
        glGetShaderiv(shader.Get(), GL_COMPILE_STATUS, &ok);
        if (ok != GL_TRUE)
            return s.Error(std::string("CreateShader: the ") + ToString(stage.kind) +
                           " stage does not compile:\n" + ShaderLog(shader.Get()) + "\n" + Numbered(translated.glsl)),
                   ShaderId{};
        compiled.push_back(std::move(shader));
    }
    GlProgram program(glCreateProgram());
    for (auto const& shader : compiled)
        glAttachShader(program.Get(), shader.Get());
    glLinkProgram(program.Get());
    for (auto const& shader : compiled)
        glDetachShader(program.Get(), shader.Get());
    GLint ok = GL_FALSE;
    glGetProgramiv(program.Get(), GL_LINK_STATUS, &ok);
    if (ok != GL_TRUE) {
        std::string sources;
        for (Stage const& stage : stages)
            if (!stage.source->empty())
                sources += std::string(ToString(stage.kind)) + ":\n" +
                           Numbered(TranslateShader(stage.kind, *stage.source).glsl);
        return s.Error("CreateShader: the program does not link:\n" + ProgramLog(program.Get()) + "\n" + sources),
               ShaderId{};
    }
    s.CheckGlErrors("CreateShader");
    auto linked = std::make_shared<LinkedProgram>();
    linked->samplers = Samplers(program.Get());
    linked->program = std::move(program);
    return ShaderId{s.shaders.Insert(ShaderRecord{std::move(linked)})};
}

void GlDevice::DestroyShader(ShaderId shader) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    if (!s.shaders.Remove(shader.Value(), result))
        s.ReportLookup(result, shader.Value(), "DestroyShader", "shader");
}

} // namespace Zorvan::Rendering::Gl
