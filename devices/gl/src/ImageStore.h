#pragma once

// Where an image's content lives and how it moves. Each sub-image is zero
// (never written), in its texture, in host staging memory, or in both; an
// operation brings the copy it needs up to date first and marks the other
// stale after writing. So a read-back image (host read, no GPU use) is only
// ever staging memory that the GPU packs into, an upload image only staging
// memory the GPU unpacks from, and a new image costs no clear.

#include "DeviceCore.h"

#include <cstddef>

namespace Zorvan::Rendering::Gl::detail {

// Texels of one sub-image (absent dimensions 1) and its bytes tightly packed.
Size SubImageExtent(ImageRecord const& record, SubImage const& where) noexcept;
std::size_t SubImageBytes(ImageRecord const& record, SubImage const& where) noexcept;

SubImageState& StateOf(ImageRecord& record, SubImage const& where) noexcept;

// The image's texture, made on first use (or taken from the device's bin of
// textures of destroyed images of the same shape).
GLuint TextureOf(DeviceCore& s, ImageRecord& record);

// Before the GPU reads a sub-image, or writes only part of it.
void PrepareTexture(DeviceCore& s, ImageRecord& record, SubImage const& where);
// After the GPU wrote the sub-image's texture (all of it, or part of it after
// PrepareTexture).
void TextureWritten(DeviceCore& s, ImageRecord& record, SubImage const& where);

// The sub-image's content in staging memory, tightly packed in the host's
// layout, with every GPU command on it done; null when no staging memory
// can be mapped. With `overwrite`, a sub-image nothing has written yet is
// handed out as the memory stands instead of zeroed: for write maps of
// images the host cannot read, which are written, not read.
std::byte* PrepareHost(DeviceCore& s, ImageRecord& record, SubImage const& where, bool overwrite = false);
// After the host wrote the staging memory of a mapped sub-image.
void HostWritten(ImageRecord& record, SubImage const& where) noexcept;

// An exact copy between sub-images of equal extents and pixel sizes done
// without going through both textures: zero stays zero, staging memory is
// packed into straight from the source texture or unpacked straight into
// the destination texture, or copied buffer to buffer. False when the copy
// needs the textures (glCopyImageSubData).
bool CopyAroundTextures(DeviceCore& s, ImageRecord& from, SubImage const& sourceWhere, ImageRecord& to,
                        SubImage const& destinationWhere);

// Gives a destroyed image's staging memory back to the pool and, unless a
// view still shares its storage, its texture to the bin.
void Recycle(DeviceCore& s, ImageRecord& record, bool textureShared);

// Notes the sub-images a bound view reads or a bound target writes.
void NoteBoundView(DeviceCore& s, SrvRecord const& view);
void NoteBoundTarget(DeviceCore& s, RtvRecord const& view);

// Brings the textures that the bound pipeline reads and writes up to date
// before a draw, and marks the written ones after it.
void PrepareDrawTextures(DeviceCore& s);
void DrawTexturesWritten(DeviceCore& s);

} // namespace Zorvan::Rendering::Gl::detail
