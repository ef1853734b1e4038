// Pipeline states (program + vertex array with the input layout's format +
// fixed-function state) and binding them with their resources and targets.

#include "DeviceCore.h"
#include "ImageStore.h"
#include "ShaderTranslator.h"

#include <Rendering/Vertex.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <type_traits>

namespace Zorvan::Rendering::Gl {

using namespace detail;

namespace {

constexpr GLenum Comparisons[] = {GL_ALWAYS, GL_NEVER, GL_LESS, GL_LEQUAL, GL_EQUAL, GL_GREATER, GL_GEQUAL, GL_NOTEQUAL};
constexpr GLenum BlendFactors[] = {GL_ZERO, GL_ONE, GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA};
constexpr GLenum BlendOperations[] = {0, GL_FUNC_ADD, GL_FUNC_SUBTRACT, GL_MIN, GL_MAX};

template <typename Enum>
constexpr auto Value(Enum e) noexcept
{
    return static_cast<std::underlying_type_t<Enum>>(e);
}

std::string CheckState(PipelineStateDescription const& d)
{
    if (d.topology > PrimitiveTopology::TriangleStrip)
        return "unknown topology " + std::to_string(Value(d.topology));
    if (d.fillMode > FillMode::Solid)
        return "unknown fill mode " + std::to_string(Value(d.fillMode));
    if (d.cullMode > CullMode::Front)
        return "unknown cull mode " + std::to_string(Value(d.cullMode));
    if (d.depthComparison > Comparison::NotEqual || d.stencilComparison > Comparison::NotEqual)
        return "unknown comparison";
    if (d.blendSource > BlendFactor::OneMinusSourceAlpha || d.blendDestination > BlendFactor::OneMinusSourceAlpha)
        return "unknown blend factor";
    if (d.blendOperation < BlendOperation::Add || d.blendOperation > BlendOperation::Max)
        return "unknown blend operation " + std::to_string(Value(d.blendOperation));
    if (d.stencilPassOperation > StencilOperation::Replace)
        return "unknown stencil operation " + std::to_string(Value(d.stencilPassOperation));
    return {};
}

// Attribute names are compared over at most 200 characters.
std::string_view BoundedName(char const* name) noexcept { return {name, strnlen(name, 200)}; }

void ApplyFixedState(PipelineStateDescription const& d)
{
    glPolygonMode(GL_FRONT_AND_BACK, d.fillMode == FillMode::Wireframe ? GL_LINE : GL_FILL);
    if (d.cullMode == CullMode::None) {
        glDisable(GL_CULL_FACE);
    } else {
        glEnable(GL_CULL_FACE);
        glCullFace(d.cullMode == CullMode::Back ? GL_BACK : GL_FRONT);
    }
    glFrontFace(d.frontClockwise != 0 ? GL_CW : GL_CCW);
    bool const bias = d.depthBias != 0.0f || d.slopeScaledDepthBias != 0.0f;
    for (GLenum mode : {GL_POLYGON_OFFSET_FILL, GL_POLYGON_OFFSET_LINE, GL_POLYGON_OFFSET_POINT})
        bias ? glEnable(mode) : glDisable(mode);
    glPolygonOffset(d.slopeScaledDepthBias, d.depthBias);
    if (d.blendEnable != 0) {
        glEnable(GL_BLEND);
        glBlendFunc(BlendFactors[Value(d.blendSource)], BlendFactors[Value(d.blendDestination)]);
        glBlendEquation(BlendOperations[Value(d.blendOperation)]);
    } else {
        glDisable(GL_BLEND);
    }
    GLboolean const write = d.colorWriteEnable != 0 ? GL_TRUE : GL_FALSE;
    glColorMask(write, write, write, write);
}

} // namespace

PsoId GlDevice::CreatePipelineState(PipelineStateDescription const& description)
{
    auto& s = *state_;
    s.MakeCurrent();
    auto* shader = s.Find(s.shaders, description.shader, "CreatePipelineState", "shader");
    if (shader == nullptr)
        return PsoId{};
    if (std::string const problem = CheckState(description); !problem.empty())
        return s.Error("CreatePipelineState: " + problem), PsoId{};

    PipelineRecord record;
    record.description = description;
    record.program = shader->program;
    record.strides = CalculateStrides(description.inputLayout);
    auto const offsets = CalculateOffsets(description.inputLayout);
    GLuint vertexArray = 0;
    glCreateVertexArrays(1, &vertexArray);
    record.vertexArray = GlVertexArray(vertexArray);
    GLuint const program = record.program->Get();
    for (std::size_t i = 0; i < description.inputLayout.size(); ++i) {
        AttributeDesc const& attribute = description.inputLayout[i];
        if (attribute.name == nullptr || attribute.format == Format::None)
            continue;
        std::string_view const name = BoundedName(attribute.name);
        VertexFormat const format = LookUpVertexFormat(attribute.format);
        if (attribute.slot >= record.strides.size() || format.components == 0)
            return s.Error("CreatePipelineState: attribute \"" + std::string(name) + "\" (" +
                           ToString(attribute.format) + ", slot " + std::to_string(attribute.slot) +
                           ") cannot feed a vertex shader"),
                   PsoId{};
        GLint const location = glGetAttribLocation(program, AttributeIdentifier(name, attribute.index).c_str());
        if (location < 0)
            continue; // the shader does not read it
        auto const at = static_cast<GLuint>(location);
        glEnableVertexArrayAttrib(vertexArray, at);
        if (format.integer)
            glVertexArrayAttribIFormat(vertexArray, at, format.components, format.type, offsets[i]);
        else
            glVertexArrayAttribFormat(vertexArray, at, format.components, format.type, format.normalized, offsets[i]);
        glVertexArrayAttribBinding(vertexArray, at, attribute.slot);
        record.slotUsed[attribute.slot] = true;
    }
    s.CheckGlErrors("CreatePipelineState");
    return PsoId{s.pipelines.Insert(std::move(record))};
}

void GlDevice::DestroyPipelineState(PsoId pipeline) noexcept
{
    auto& s = *state_;
    s.MakeCurrent();
    LookupResult result{};
    if (!s.pipelines.Remove(pipeline.Value(), result))
        s.ReportLookup(result, pipeline.Value(), "DestroyPipelineState", "pipeline state");
    if (pipeline == s.boundPipeline)
        s.boundPipeline = PsoId{};
}

void GlDevice::BindPipelineState(PsoId pipeline, BindingState const& bindings)
{
    auto& s = *state_;
    s.MakeCurrent();
    s.boundPipeline = PsoId{};
    s.targetsComplete = false;
    s.boundReads.clear();
    s.boundTargets.clear();
    auto* record = s.Find(s.pipelines, pipeline, "BindPipelineState", "pipeline state");
    if (record == nullptr)
        return;
    PipelineStateDescription const& d = record->description;
    glBindVertexArray(record->vertexArray.Get());
    ApplyFixedState(d);

    for (std::size_t slot = 0; slot < bindings.constantBuffers.size(); ++slot) {
        GLuint name = 0;
        if (bindings.constantBuffers[slot].buffer.IsValid()) {
            auto* buffer = s.Find(s.buffers, bindings.constantBuffers[slot].buffer, "BindPipelineState", "constant buffer");
            if (buffer == nullptr)
                return;
            name = buffer->name.Get();
        }
        glBindBufferBase(GL_UNIFORM_BUFFER, static_cast<GLuint>(slot), name);
    }
    std::array<GLenum, 16> viewTargets{};
    for (std::size_t slot = 0; slot < bindings.textures.size(); ++slot) {
        TextureBinding const& texture = bindings.textures[slot];
        GLuint view = 0;
        GLuint sampler = 0;
        if (texture.view.IsValid()) {
            auto* srv = s.Find(s.shaderResourceViews, texture.view, "BindPipelineState", "shader-resource view");
            if (srv == nullptr)
                return;
            view = srv->name.Get();
            viewTargets[slot] = srv->target;
            NoteBoundView(s, *srv);
        }
        if (texture.sampler.IsValid()) {
            auto* samplerRecord = s.Find(s.samplers, texture.sampler, "BindPipelineState", "sampler");
            if (samplerRecord == nullptr)
                return;
            sampler = samplerRecord->name.Get();
        }
        glBindTextureUnit(static_cast<GLuint>(slot), view);
        glBindSampler(static_cast<GLuint>(slot), sampler);
    }

    // A sampler must meet a view of its kind; a single-sampled view where the
    // shader reads samples selects the program's single-sample variant.
    auto const fits = [&viewTargets](LinkedProgram const& program) -> LinkedProgram::Sampler const* {
        for (auto const& sampler : program.samplers) {
            GLenum const target = sampler.unit < viewTargets.size() ? viewTargets[sampler.unit] : 0;
            if (target != 0 && (target == GL_TEXTURE_2D_MULTISAMPLE) != sampler.multisampled)
                return &sampler;
        }
        return nullptr;
    };
    LinkedProgram const* program = record->program.get();
    if (auto const* misfit = fits(*program)) {
        if (!program->singleSampled || fits(*program->singleSampled) != nullptr)
            return s.Error("BindPipelineState: texture slot " + std::to_string(misfit->unit) + " holds a " +
                           (misfit->multisampled ? "single-sampled" : "multisampled") + " view but the shader reads " +
                           misfit->name + " as " + (misfit->multisampled ? "multisampled" : "single-sampled"));
        program = program->singleSampled.get();
    }
    glUseProgram(program->Get());

    // The targets: one framebuffer, re-attached for every binding.
    GLuint const framebuffer = s.targetFramebuffer.Get();
    for (GLenum point : {GL_DEPTH_ATTACHMENT, GL_STENCIL_ATTACHMENT})
        glNamedFramebufferTexture(framebuffer, point, 0, 0);
    std::array<GLenum, 8> drawBuffers{};
    std::optional<Size> viewport;
    // Attaches a view; depth views go to the depth slot only, colour views to colour slots only.
    auto const attach = [&](PackedRtvId id, bool depth, GLenum colourPoint, char const* what) -> GlFormat const* {
        auto* view = s.FindView(id, "BindPipelineState", what);
        if (view == nullptr)
            return nullptr;
        LookupResult alive{};
        if (s.images.Find(view->image.Value(), alive) == nullptr) {
            s.Error(std::string("BindPipelineState: the image of ") + what + " " + PackedHandleText(id.Handle()) +
                    " is gone");
            return nullptr;
        }
        GlFormat const& format = LookUpFormat(view->info.format);
        if (format.IsDepth() != depth) {
            s.Error(std::string("BindPipelineState: ") + what + " " + PackedHandleText(id.Handle()) + " is " +
                    (depth ? "not of a depth format" : "of a depth format"));
            return nullptr;
        }
        GLenum const point = depth ? format.Attachment() : colourPoint;
        auto const level = static_cast<GLint>(view->info.description.mipLevel);
        if (view->layer >= 0)
            glNamedFramebufferTextureLayer(framebuffer, point, view->texture, level, view->layer);
        else
            glNamedFramebufferTexture(framebuffer, point, view->texture, level);
        if (!viewport)
            viewport = view->info.size;
        NoteBoundTarget(s, *view);
        return &format;
    };
    for (std::size_t slot = 0; slot < bindings.renderTargets.size(); ++slot) {
        auto const point = static_cast<GLenum>(GL_COLOR_ATTACHMENT0 + slot);
        glNamedFramebufferTexture(framebuffer, point, 0, 0);
        drawBuffers[slot] = GL_NONE;
        if (!bindings.renderTargets[slot].IsValid())
            continue;
        if (attach(bindings.renderTargets[slot], false, point, "render-target view") == nullptr)
            return;
        drawBuffers[slot] = point;
    }
    glNamedFramebufferDrawBuffers(framebuffer, static_cast<GLsizei>(drawBuffers.size()), drawBuffers.data());
    bool depthBound = false;
    bool stencilBound = false;
    if (bindings.depthStencil.IsValid()) {
        GlFormat const* format = attach(bindings.depthStencil, true, GL_NONE, "depth-stencil view");
        if (format == nullptr)
            return;
        depthBound = true;
        stencilBound = format->stencil;
    }
    if (!viewport)
        return s.Error("BindPipelineState: no render target or depth-stencil view is bound");
    GLenum const status = glCheckNamedFramebufferStatus(framebuffer, GL_DRAW_FRAMEBUFFER);
    if (status != GL_FRAMEBUFFER_COMPLETE) {
        char code[16];
        std::snprintf(code, sizeof code, "0x%04X", status);
        return s.Error(std::string("BindPipelineState: the bound targets do not make a framebuffer (") + code +
                       "): their sizes or sample counts differ, or GL cannot render to a format");
    }
    glBindFramebuffer(GL_DRAW_FRAMEBUFFER, framebuffer);
    glViewport(0, 0, static_cast<GLsizei>(viewport->width), static_cast<GLsizei>(viewport->height == 0 ? 1 : viewport->height));

    // Depth is tested (and, on some drivers, only then written) while a depth view is bound.
    if (depthBound) {
        glEnable(GL_DEPTH_TEST);
        glDepthFunc(Comparisons[Value(d.depthComparison)]);
        glDepthMask(d.depthWriteEnable != 0 ? GL_TRUE : GL_FALSE);
    } else {
        glDisable(GL_DEPTH_TEST);
    }
    if (stencilBound && d.stencilEnable != 0) {
        glEnable(GL_STENCIL_TEST);
        glStencilFunc(Comparisons[Value(d.stencilComparison)], static_cast<GLint>(d.stencilReference), d.stencilReadMask);
        glStencilOp(GL_KEEP, GL_KEEP, d.stencilPassOperation == StencilOperation::Replace ? GL_REPLACE : GL_KEEP);
        glStencilMask(d.stencilWriteMask);
    } else {
        glDisable(GL_STENCIL_TEST);
    }
    s.boundPipeline = pipeline;
    s.targetsComplete = true;
    s.CheckGlErrors("BindPipelineState");
}

} // namespace Zorvan::Rendering::Gl
