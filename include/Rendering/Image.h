#pragma once

// Image utilities: host buffer copies and swizzles, mip arithmetic, texture
// creation and upload, readback, conversion of any readable image to doubles,
// mip-chain building and sample-to-voxel bounds.
//
// Failures are reported by false or an empty vector; temporaries the routines
// make are released on every path, exceptions included.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Export.h>

#include <cstdint>
#include <vector>

namespace Zorvan::Rendering {

// ---------------------------------------------------------------------------
// Host buffers
// ---------------------------------------------------------------------------

// Strided copy between two pixel buffers. Pitches are bytes and may be
// negative (bottom-up). width is only tested for being at least 1: rows move
// min(|srcRowPitch|, |dstRowPitch|) bytes each. rows < 1 copies one row;
// slices < 1 one slice. Identical layouts move as one block.
ZGU_API void CopyImageBuffer(void const* src, std::int64_t srcRowPitch, std::int64_t srcSlicePitch, void* dst,
                             std::int64_t dstRowPitch, std::int64_t dstSlicePitch, std::int64_t width,
                             std::int64_t rows, std::int64_t slices);
// One row; nothing when width < 1.
ZGU_API void CopyImageBuffer1D(void const* src, std::int64_t srcRowPitch, void* dst, std::int64_t dstRowPitch,
                               std::int64_t width);
// rows rows of one slice; nothing when width or rows < 1.
ZGU_API void CopyImageBuffer2D(void const* src, std::int64_t srcRowPitch, void* dst, std::int64_t dstRowPitch,
                               std::int64_t width, std::int64_t rows);

// In-place swap of bytes 0 and 2 of every four-byte pixel.
ZGU_API void bgra2rgba(unsigned char* data, std::int64_t width, std::int64_t height, std::int64_t rowPitch);
// As bgra2rgba, and byte 3 becomes 255.
ZGU_API void bgrx2rgba(unsigned char* data, std::int64_t width, std::int64_t height, std::int64_t rowPitch);

// floor(log2(max(width, height, depth))) + 1; 1 for an empty size.
ZGU_API unsigned int CalculateFullMipChainCount(Size const& size);
// Each present dimension shifted right by level (mod 32), at least 1; absent
// (zero) dimensions stay 0, and an absent width makes the whole size empty.
ZGU_API Size CalculateMipLevelSize(Size const& size, unsigned int level);
// Cube maps must be square with no depth; 3D images must have one sample.
ZGU_API bool IsValidImageDescription(ImageDesc const& description);

// ---------------------------------------------------------------------------
// Texture creation and upload
// ---------------------------------------------------------------------------

// Create a one-level 2D texture (flags 0x41) of the named format and fill it
// from tightly packed data. With fewer than width * height * channels elements
// the image is returned unfilled, silently. The Raw forms return a bare id the
// caller owns; the others own it.
//
// Flags 0x41 (shader resource, copy destination) have neither HostRead nor
// CopySource, so the readback functions below cannot read these textures:
// they return empty or false at once, without a copy or a map. To read the
// texture back, create it with CreateTextureFromData and readable flags.
ZGU_API ImageId CreateRawRedTexture(IResourceFactory& factory, Size size, array_view<float const> data);
ZGU_API ImageId CreateRawRgTexture(IResourceFactory& factory, Size size, array_view<float const> data);
ZGU_API ImageId CreateRawRgbaTexture(IResourceFactory& factory, Size size, array_view<unsigned char const> data);
ZGU_API ImageId CreateRawRgbaTexture(IResourceFactory& factory, Size size, array_view<float const> data);
ZGU_API ScopedResource<ImageId, IResourceFactory> CreateRedTexture(IResourceFactory& factory, Size size,
                                                                   array_view<float const> data);
ZGU_API ScopedResource<ImageId, IResourceFactory> CreateRgTexture(IResourceFactory& factory, Size size,
                                                                  array_view<float const> data);
ZGU_API ScopedResource<ImageId, IResourceFactory> CreateRgbaTexture(IResourceFactory& factory, Size size,
                                                                    array_view<unsigned char const> data);
ZGU_API ScopedResource<ImageId, IResourceFactory> CreateRgbaTexture(IResourceFactory& factory, Size size,
                                                                    array_view<float const> data);

// Writes tightly packed R8G8B8A8 (bytes) or R32G32B32A32F (floats) pixels into
// one sub-image: directly when the image is host-writable (0x10), otherwise
// through a temporary upload image and a device copy. data must hold the whole
// level (not checked) in the image's own pixel layout.
//
// The upload image is single-sampled, so filling a multisampled image issues
// a copy between different sample counts, which every device refuses: the
// image keeps its contents and nothing is reported. CreateTextureFromData
// reports that case instead.
ZGU_API void FillRgbaTexture(IResourceFactory& factory, ImageId image, SubImage const& where,
                             array_view<unsigned char const> data);
ZGU_API void FillRgbaTexture(IResourceFactory& factory, ImageId image, SubImage const& where,
                             array_view<float const> data);

// ---------------------------------------------------------------------------
// Readback
// ---------------------------------------------------------------------------

// Copies one 2D level of a sub-image into dst at dstRowPitch bytes per row
// (each row moves min(device pitch, |dstRowPitch|) bytes). Multisampled images
// (with 0x80) are resolved first; images without host read (0x08) go through
// a copy (needs 0x20). False, with nothing written, on a bad mip or slice, an
// image that cannot be read, or a failed map.
ZGU_API bool GetBytes(IResourceFactory& factory, ImageId image, SubImage where, void* dst, std::int64_t dstRowPitch);
// Level-0 height * rowPitch bytes (deliberately level 0's height, so a 1D
// image gives an empty vector), zero where nothing was copied.
//
// Only images with HostRead (0x08) or CopySource (0x20) can be read, and
// multisampled ones need Resolvable (0x80) as well. The textures made by the
// Create*Texture functions above have neither: reading them fails without a
// device copy or map. ReadImageLevel below says why a read cannot happen.
ZGU_API std::vector<unsigned char> GetBytes(IResourceFactory& factory, ImageId image, SubImage where,
                                            std::int64_t rowPitch);

// Typed readback of one level, tightly packed. Vector forms return empty on
// failure; view forms return false when out is too small or the read fails.
// The float families read whatever bytes the image has.
//
// Each reads one 2D level: width * height pixels of the mip level's first
// depth slice. A 1D image (height 0) therefore gives nothing and a 3D image
// its first slice only, and both count as success (true, or an empty or
// one-slice vector). ReadImageLevel reads every slice.
ZGU_API std::vector<float> GetR32F(IResourceFactory& factory, ImageId image);
ZGU_API std::vector<float> GetR32F(IResourceFactory& factory, ImageId image, SubImage const& where);
ZGU_API bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out);
ZGU_API bool GetR32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where);

ZGU_API std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image);
ZGU_API std::vector<float> GetR32G32F(IResourceFactory& factory, ImageId image, SubImage const& where);
ZGU_API bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out);
ZGU_API bool GetR32G32F(IResourceFactory& factory, ImageId image, array_view<float> out, SubImage const& where);

ZGU_API std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image);
ZGU_API std::vector<float> GetR32G32B32A32F(IResourceFactory& factory, ImageId image, SubImage const& where);
ZGU_API bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out);
ZGU_API bool GetR32G32B32A32F(IResourceFactory& factory, ImageId image, array_view<float> out,
                              SubImage const& where);

// RGBA bytes from B8G8R8A8 (swizzled), B8G8R8X8 (swizzled, alpha 255) or
// R8G8B8A8 images; false for any other format.
ZGU_API std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image);
ZGU_API std::vector<unsigned char> GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage const& where);
ZGU_API bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out);
ZGU_API bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, array_view<unsigned char> out,
                         SubImage const& where);
ZGU_API bool GetR8G8B8A8(IResourceFactory& factory, ImageId image, SubImage where, unsigned char* dst,
                         std::int64_t rowPitch);

// Every stored channel of one level (all depth slices) as doubles, in memory
// order. raw false maps normalized formats to [0, 1] / [-1, 1] (the most
// negative value clamps to -1); raw true keeps the stored integers. Empty for
// None, depth formats, unknown formats and failed reads. No mip or slice check.
//
// Because nothing is checked, a mip level or slice the image lacks goes to
// the device as it is: a host-readable image gets a map of it, which the
// device refuses (empty result); any other gets a copy from it, which the
// device refuses, and the untouched temporary it was meant to fill is read
// instead. Images without HostRead or CopySource are not read (see GetBytes).
ZGU_API std::vector<double> ReadAsDoubles(IResourceFactory& factory, ImageId image, bool raw,
                                          SubImage const& where);

// ---------------------------------------------------------------------------
// Checked upload and readback
// ---------------------------------------------------------------------------

// Why CreateTextureFromData or ReadImageLevel could not do their work.
enum class ImageAccessError : std::uint32_t {
    None = 0,
    UnknownImage,            // the device describes the image with no format
    NoPixelSize,             // a description whose format has no pixel size
    NoSuchLevel,             // the image has no such mip level
    DataTooShort,            // fewer bytes than the level holds
    MultisampledUpload,      // multisampled images can be neither mapped nor copied into from host data
    NeedsHostWriteOrCopyDestination, // filling needs HostWrite (0x10) or CopyDestination (0x40)
    NeedsResolvable,         // reading a multisampled image needs Resolvable (0x80)
    NeedsHostReadOrCopySource, // reading needs HostRead (0x08) or CopySource (0x20)
    CreateFailed,            // the device returned the invalid handle for the image or a temporary
    MapFailed,               // the device returned a null map
};

// A short English phrase for the error, e.g. "needs HostRead (0x08) or CopySource (0x20)".
ZGU_API char const* ToString(ImageAccessError error) noexcept;

// An image made from host data, or the reason there is none.
struct TextureFromData {
    ScopedResource<ImageId, IResourceFactory> image; // invalid unless error is None
    ImageAccessError error = ImageAccessError::None;

    explicit operator bool() const noexcept { return error == ImageAccessError::None; }
};

// Creates an image of any description (flags chosen by the caller) and fills
// its mip level 0 from data: tightly packed pixels of the description's
// format, every depth slice, and for cube maps the six faces one after the
// other. Filled through a write map when the flags have HostWrite, otherwise
// through an upload image and a device copy (CopyDestination). Other levels
// keep what the device puts there. Everything is checked before the device
// is asked for anything; a description the device refuses gives CreateFailed.
ZGU_API TextureFromData CreateTextureFromData(IResourceFactory& factory, ImageDesc const& description,
                                              array_view<unsigned char const> data);

// One whole mip level read back, or the reason it could not be.
struct ImageLevel {
    ImageAccessError error = ImageAccessError::None;
    ImageDesc description{};  // the image's, as the device describes it
    Size size{};              // the level's extent
    std::uint32_t slices = 0; // depth slices of a 3D level, 6 for a cube map, else 1
    // Tightly packed pixels: slices, each of max(height, 1) rows of width
    // pixels of the image's format. Empty unless error is None.
    std::vector<unsigned char> bytes;

    explicit operator bool() const noexcept { return error == ImageAccessError::None; }
};

// Reads every pixel of one mip level: every row (one for a 1D image), every
// depth slice, every cube face, of any format with a pixel size. A
// multisampled image is resolved first (the device's resolve decides the
// value), an image without HostRead is copied first. Each requirement is
// checked before the device is asked for anything, and the first one missing
// is reported; a device failure names the operation that failed.
ZGU_API ImageLevel ReadImageLevel(IResourceFactory& factory, ImageId image, unsigned int mipLevel);

// ---------------------------------------------------------------------------
// Mip chains
// ---------------------------------------------------------------------------

// Builds a new single-sample image holding a copy of a source in level 0 and
// each following level scaled from the one above by the device's CopyImage.
class ZGU_API MipMapBuilder {
public:
    explicit MipMapBuilder(IGpu& gpu) noexcept : gpu_(gpu) {}

    // mipLevels 0 asks for the full chain; the new image gets flags | 0x60.
    // An invalid id in the result means the device could not create it.
    ScopedResource<ImageId, IResourceFactory> BuildMipMapChain(ImageId source, unsigned int mipLevels,
                                                               unsigned int flags);

private:
    IGpu& gpu_;
};

// ---------------------------------------------------------------------------
// Volumes
// ---------------------------------------------------------------------------

// Grows the box spanned by the first and last sample centres by half a voxel
// on each side of every axis with more than one sample; returns it ordered.
ZGU_API Math::boundingbox<float, 3> SampleBounds2VoxelBounds(std::uint64_t countX, std::uint64_t countY,
                                                             std::uint64_t countZ,
                                                             Math::boundingbox<float, 3> const& sampleBounds);

} // namespace Zorvan::Rendering
