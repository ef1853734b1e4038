#pragma once

// Textures of destroyed images, kept for new images of the same shape: the
// temporaries of every readback, resolve and upload then reuse storage the
// driver has already allocated (and, on a software rasteriser, already
// faulted in) instead of allocating it per call.

#include "GlObject.h"

#include <cstddef>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

// Everything immutable storage is made from.
struct TextureShape {
    GLenum target = 0;
    GLenum internalFormat = 0;
    GLsizei width = 0;
    GLsizei height = 0;
    GLsizei depth = 0;
    GLsizei levels = 0;
    GLsizei samples = 0;
    std::size_t bytes = 0;       // what the storage holds, for the budget

    bool SameStorage(TextureShape const& other) const noexcept
    {
        return target == other.target && internalFormat == other.internalFormat && width == other.width &&
               height == other.height && depth == other.depth && levels == other.levels &&
               samples == other.samples;
    }
};

class TextureBin {
public:
    // Textures beyond this many bytes are deleted, oldest first.
    explicit TextureBin(std::size_t budget) noexcept : budget_(budget) {}

    void Put(TextureShape const& shape, GlTexture texture);
    // A kept texture of this shape, or an empty name.
    GlTexture Take(TextureShape const& shape);
    void Clear() noexcept { kept_.clear(); }

private:
    struct Kept {
        TextureShape shape;
        GlTexture texture;
    };
    std::size_t budget_;
    std::vector<Kept> kept_;
};

} // namespace Zorvan::Rendering::Gl::detail
