#include <Rendering/Image.h>

namespace Zorvan::Rendering {

ScopedResource<ImageId, IResourceFactory> MipMapBuilder::BuildMipMapChain(ImageId source, unsigned int mipLevels,
                                                                          unsigned int flags)
{
    IResourceFactory& factory = gpu_;
    ImageDesc const sourceDescription = factory.GetImageDescription(source);

    // The chain copies within itself, so it is both copy source and destination.
    ImageDesc const description{sourceDescription.size, sourceDescription.format, 1, mipLevels,
                                flags | ImageUsage::CopySource | ImageUsage::CopyDestination};
    ScopedResource<ImageId, IResourceFactory> chain(&factory, factory.CreateImage(description));
    if (!chain.IsValid())
        return chain;

    // mipLevels 0 lets the device pick the length; ask what it made.
    unsigned int const levels = factory.GetImageDescription(chain.Get()).mipLevels;
    factory.CopyImage(source, SubImage{0, 0}, chain.Get(), SubImage{0, 0});
    // Each level from the one above it, so the device filters a level at a time.
    for (unsigned int level = 1; level < levels; ++level)
        factory.CopyImage(chain.Get(), SubImage{level - 1, 0}, chain.Get(), SubImage{level, 0});
    return chain;
}

} // namespace Zorvan::Rendering
