#pragma once

// Owning wrappers for GL object names. The device keeps its context current
// while records are destroyed, so deleting from a destructor is safe.

#include "GlApi.h"

#include <utility>

namespace Zorvan::Rendering::Gl::detail {

template <void (*Delete)(GLuint)>
class GlName {
public:
    GlName() noexcept = default;
    explicit GlName(GLuint name) noexcept : name_(name) {}
    GlName(GlName const&) = delete;
    GlName& operator=(GlName const&) = delete;
    GlName(GlName&& other) noexcept : name_(std::exchange(other.name_, 0)) {}
    GlName& operator=(GlName&& other) noexcept
    {
        if (this != &other) {
            Reset();
            name_ = std::exchange(other.name_, 0);
        }
        return *this;
    }
    ~GlName() { Reset(); }

    void Reset() noexcept
    {
        if (name_ != 0)
            Delete(name_);
        name_ = 0;
    }
    GLuint Get() const noexcept { return name_; }
    explicit operator bool() const noexcept { return name_ != 0; }

private:
    GLuint name_ = 0;
};

inline void DeleteBufferName(GLuint name) { glDeleteBuffers(1, &name); }
inline void DeleteTextureName(GLuint name) { glDeleteTextures(1, &name); }
inline void DeleteSamplerName(GLuint name) { glDeleteSamplers(1, &name); }
inline void DeleteFramebufferName(GLuint name) { glDeleteFramebuffers(1, &name); }
inline void DeleteVertexArrayName(GLuint name) { glDeleteVertexArrays(1, &name); }
inline void DeleteQueryName(GLuint name) { glDeleteQueries(1, &name); }
inline void DeleteProgramName(GLuint name) { glDeleteProgram(name); }
inline void DeleteShaderName(GLuint name) { glDeleteShader(name); }

using GlBuffer = GlName<DeleteBufferName>;
using GlTexture = GlName<DeleteTextureName>;
using GlSampler = GlName<DeleteSamplerName>;
using GlFramebuffer = GlName<DeleteFramebufferName>;
using GlVertexArray = GlName<DeleteVertexArrayName>;
using GlQuery = GlName<DeleteQueryName>;
using GlProgram = GlName<DeleteProgramName>;
using GlShader = GlName<DeleteShaderName>;

} // namespace Zorvan::Rendering::Gl::detail
