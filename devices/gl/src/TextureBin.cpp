#include "TextureBin.h"

#include <iterator>
#include <utility>

namespace Zorvan::Rendering::Gl::detail {

void TextureBin::Put(TextureShape const& shape, GlTexture texture)
{
    if (!texture || shape.bytes > budget_)
        return;
    kept_.push_back({shape, std::move(texture)});
    std::size_t total = 0;
    for (auto const& kept : kept_)
        total += kept.shape.bytes;
    while (total > budget_) {
        total -= kept_.front().shape.bytes;
        kept_.erase(kept_.begin());
    }
}

GlTexture TextureBin::Take(TextureShape const& shape)
{
    // The most recently kept first: its memory is the likeliest to be warm.
    for (auto it = kept_.rbegin(); it != kept_.rend(); ++it)
        if (it->shape.SameStorage(shape)) {
            GlTexture texture = std::move(it->texture);
            kept_.erase(std::next(it).base());
            return texture;
        }
    return {};
}

} // namespace Zorvan::Rendering::Gl::detail
