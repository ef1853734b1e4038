// Where the GL device keeps an image's content (its texture, staging memory,
// or nowhere while it is still zero) must never show: every reader sees the
// last writer, whichever path each took, and new or recycled storage reads
// as zero.

#include "GlDeviceFixture.h"
#include "Staging.h"

#include <Rendering/Image.h>
#include <Rendering/ShaderOps.h>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace Zorvan::Rendering::Gl {
namespace {

using GlTransfersTest = GlDeviceFixture;

constexpr std::uint32_t ReadBackFlags = ImageUsage::HostRead | ImageUsage::CopyDestination;
constexpr std::uint32_t UploadFlags = ImageUsage::HostWrite | ImageUsage::CopySource;
constexpr std::uint32_t TextureFlags = ImageUsage::ShaderResource | ImageUsage::CopySource | ImageUsage::CopyDestination;

std::vector<std::uint8_t> Read(GlDevice& device, ImageId image, std::size_t bytes, SubImage where = {})
{
    MappedImage const mapped = device.MapImage(image, where, MapMode::Read);
    std::vector<std::uint8_t> result;
    if (mapped.data != nullptr)
        result.assign(static_cast<std::uint8_t*>(mapped.data), static_cast<std::uint8_t*>(mapped.data) + bytes);
    device.UnmapImage(image, where);
    return result;
}

void Write(GlDevice& device, ImageId image, std::vector<std::uint8_t> const& bytes, std::size_t at = 0)
{
    MappedImage const mapped = device.MapImage(image, {}, MapMode::Write);
    ASSERT_NE(mapped.data, nullptr);
    std::memcpy(static_cast<std::uint8_t*>(mapped.data) + at, bytes.data(), bytes.size());
    device.UnmapImage(image, {});
}

std::vector<std::uint8_t> Floats(std::vector<float> const& values)
{
    std::vector<std::uint8_t> bytes(values.size() * 4);
    std::memcpy(bytes.data(), values.data(), bytes.size());
    return bytes;
}

// One image written by the host, by a draw and by copies, and read by the
// host and by copies, in an order where a stale copy of the content would show.
TEST_F(GlTransfersTest, EveryReaderSeesTheLastWriter)
{
    GlDevice& gpu = Device();
    std::uint32_t const flags = TextureFlags | ImageUsage::HostRead | ImageUsage::HostWrite | ImageUsage::RenderTarget;
    ImageId const image = gpu.CreateImage({{4, 4, 0}, Format::R32F, 1, 1, flags});
    std::vector<float> first(16);
    for (std::size_t i = 0; i < first.size(); ++i)
        first[i] = static_cast<float>(i) + 0.5f;
    Write(gpu, image, Floats(first));
    EXPECT_EQ(Read(gpu, image, 64), Floats(first));

    // A draw after a host read: the host's copy is stale now.
    {
        RtvId const view = gpu.CreateRenderTargetView(image, {});
        ShaderBasedImageClear clear(gpu);
        clear.Clear(view, 7.0f, 0.0f, 0.0f, 0.0f);
        gpu.DestroyRenderTargetView(view);
    }
    std::vector<float> cleared(16, 7.0f);
    EXPECT_EQ(Read(gpu, image, 64), Floats(cleared));

    // A write map starts from the content: one texel changed, the rest kept.
    Write(gpu, image, Floats({9.0f}), 4 * 5);
    cleared[5] = 9.0f;
    EXPECT_EQ(Read(gpu, image, 64), Floats(cleared));

    // The host's writes reach the GPU: through a texture-only image into a read-back one.
    ImageId const texture = gpu.CreateImage({{4, 4, 0}, Format::R32F, 1, 1, TextureFlags});
    ImageId const readBack = gpu.CreateImage({{4, 4, 0}, Format::R32F, 1, 1, ReadBackFlags});
    gpu.CopyImage(image, {}, texture, {});
    gpu.CopyImage(texture, {}, readBack, {});
    EXPECT_EQ(Read(gpu, readBack, 64), Floats(cleared));

    // A copy onto the read-back image after it was read replaces what it held.
    Write(gpu, image, Floats(first));
    gpu.CopyImage(image, {}, readBack, {});
    EXPECT_EQ(Read(gpu, readBack, 64), Floats(first));

    // A write-only upload image keeps what it holds too, once written.
    ImageId const upload = gpu.CreateImage({{4, 4, 0}, Format::R32F, 1, 1, UploadFlags});
    Write(gpu, upload, Floats(first));
    Write(gpu, upload, Floats({-1.0f}), 4 * 15);
    first[15] = -1.0f;
    gpu.CopyImage(upload, {}, readBack, {});
    EXPECT_EQ(Read(gpu, readBack, 64), Floats(first));

    for (ImageId id : {upload, readBack, texture, image})
        gpu.DestroyImage(id);
    EXPECT_EQ(gpu.Problems(), "");
}

// Storage the device hands out again (textures of destroyed images, pooled
// staging memory) reads as zero, on the host and on the GPU.
TEST_F(GlTransfersTest, NewAndRecycledImagesReadAsZero)
{
    GlDevice& gpu = Device();
    std::vector<std::uint8_t> const zeros(8 * 8 * 4, 0);
    std::vector<std::uint8_t> const filled(8 * 8 * 4, 0xAB);
    std::uint32_t const hostFlags = ImageUsage::HostRead | ImageUsage::HostWrite;
    std::uint32_t const drawnFlags = ImageUsage::RenderTarget | ImageUsage::ShaderResource | ImageUsage::CopySource;
    for (int round = 0; round < 2; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        ImageId const host = gpu.CreateImage({{8, 8, 0}, Format::R8G8B8A8, 1, 1, hostFlags});
        EXPECT_EQ(Read(gpu, host, zeros.size()), zeros);
        Write(gpu, host, filled);
        gpu.DestroyImage(host);

        // A scaling copy reads the texture itself, not a record of it being zero.
        ImageId const drawn = gpu.CreateImage({{8, 8, 0}, Format::R8G8B8A8, 1, 1, drawnFlags});
        ImageId const half = gpu.CreateImage({{4, 4, 0}, Format::R8G8B8A8, 1, 1, ImageUsage::HostRead});
        gpu.CopyImage(drawn, {}, half, {});
        EXPECT_EQ(Read(gpu, half, 4 * 4 * 4), std::vector<std::uint8_t>(4 * 4 * 4, 0));
        RtvId const view = gpu.CreateRenderTargetView(drawn, {});
        ShaderBasedImageClear clear(gpu);
        clear.Clear(view, 1.0f, 1.0f, 1.0f, 1.0f);
        gpu.DestroyRenderTargetView(view);
        gpu.DestroyImage(half);
        gpu.DestroyImage(drawn);
    }

    // Zero copied onto an image that held something makes it zero.
    ImageId const fresh = gpu.CreateImage({{8, 8, 0}, Format::R8G8B8A8, 1, 1, TextureFlags});
    ImageId const readBack = gpu.CreateImage({{8, 8, 0}, Format::R8G8B8A8, 1, 1, ReadBackFlags | hostFlags});
    Write(gpu, readBack, filled);
    gpu.CopyImage(fresh, {}, readBack, {});
    EXPECT_EQ(Read(gpu, readBack, zeros.size()), zeros);
    gpu.DestroyImage(readBack);
    gpu.DestroyImage(fresh);
    EXPECT_EQ(gpu.Problems(), "");
}

// Upload images into textures, textures into read-back images, and read-back
// images onwards again, for formats whose host bytes GL converts on the way
// (blue-first, packed depth) and plain ones; every hop keeps the bits.
TEST_F(GlTransfersTest, StagingImagesCarryPixelsBothWays)
{
    GlDevice& gpu = Device();
    std::mt19937 random(5);
    for (Format format : {Format::R8G8B8A8, Format::B8G8R8A8, Format::B8G8R8, Format::R16F, Format::R32G32B32F,
                          Format::D32F, Format::D24S8}) {
        SCOPED_TRACE(ToString(format));
        Size const size{5, 3, 0};
        std::size_t const bytes = std::size_t{GetSize(format)} * size.width * size.height;
        std::vector<std::uint8_t> pixels(bytes);
        for (auto& byte : pixels)
            byte = static_cast<std::uint8_t>(random());
        if (format == Format::R16F)
            for (std::size_t i = 1; i < bytes; i += 2)
                pixels[i] &= 0x3B;
        if (format == Format::R32G32B32F || format == Format::D32F)
            for (std::size_t i = 0; i < bytes; i += 4) {
                float const value = static_cast<float>(random() % 1000) / 999.0f;
                std::memcpy(&pixels[i], &value, 4);
            }

        ImageId const upload = gpu.CreateImage({size, format, 1, 1, UploadFlags});
        ImageId const texture = gpu.CreateImage({size, format, 1, 1, TextureFlags});
        ImageId const readBack = gpu.CreateImage({size, format, 1, 1, ReadBackFlags | ImageUsage::CopySource});
        ImageId const again = gpu.CreateImage({size, format, 1, 1, TextureFlags});
        ImageId const last = gpu.CreateImage({size, format, 1, 1, ReadBackFlags});
        Write(gpu, upload, pixels);
        gpu.CopyImage(upload, {}, texture, {});
        gpu.CopyImage(texture, {}, readBack, {});
        EXPECT_EQ(Read(gpu, readBack, bytes), pixels);
        gpu.CopyImage(readBack, {}, again, {});
        gpu.CopyImage(again, {}, last, {});
        EXPECT_EQ(Read(gpu, last, bytes), pixels);
        gpu.CopyImage(upload, {}, last, {}); // host to host
        EXPECT_EQ(Read(gpu, last, bytes), pixels);
        for (ImageId id : {last, again, readBack, texture, upload})
            gpu.DestroyImage(id);
    }
    EXPECT_EQ(gpu.Problems(), "");
}

// Copies between formats that share GL storage move the stored colour, not
// the host bytes: blue-first pixels arrive red-first in an RGBA image, the
// same whether the copy goes through textures or straight to staging memory.
TEST_F(GlTransfersTest, CopiesBetweenBlueFirstAndRedFirstMoveColours)
{
    GlDevice& gpu = Device();
    std::vector<std::uint8_t> const bgra = {10, 20, 30, 40, 50, 60, 70, 80};
    std::vector<std::uint8_t> const rgba = {30, 20, 10, 40, 70, 60, 50, 80};
    ImageId const upload = gpu.CreateImage({{2, 1, 0}, Format::B8G8R8A8, 1, 1, UploadFlags});
    ImageId const texture = gpu.CreateImage({{2, 1, 0}, Format::R8G8B8A8, 1, 1, TextureFlags});
    ImageId const readBack = gpu.CreateImage({{2, 1, 0}, Format::R8G8B8A8, 1, 1, ReadBackFlags});
    ImageId const viaTexture = gpu.CreateImage({{2, 1, 0}, Format::R8G8B8A8, 1, 1, ReadBackFlags | TextureFlags});
    Write(gpu, upload, bgra);
    gpu.CopyImage(upload, {}, readBack, {});
    EXPECT_EQ(Read(gpu, readBack, 8), rgba);
    gpu.CopyImage(upload, {}, texture, {});
    gpu.CopyImage(texture, {}, viaTexture, {});
    EXPECT_EQ(Read(gpu, viaTexture, 8), rgba);
    for (ImageId id : {viaTexture, readBack, texture, upload})
        gpu.DestroyImage(id);
    EXPECT_EQ(gpu.Problems(), "");
}

// Released staging memory serves the next transfer of a similar size; a much
// larger buffer is not tied up for a small one, and idle memory beyond the
// pool's budget is freed.
TEST_F(GlTransfersTest, StagingMemoryIsReusedWithinABudget)
{
    (void)Device(); // the pool needs the device's context
    detail::StagingPool pool(std::size_t{4} << 20);
    detail::StagingBuffer first = pool.Acquire(1 << 20);
    ASSERT_TRUE(first);
    ASSERT_NE(first.Data(), nullptr);
    GLuint const name = first.Name();
    pool.Release(std::move(first));
    detail::StagingBuffer again = pool.Acquire((1 << 20) - 1000);
    EXPECT_EQ(again.Name(), name);

    detail::StagingBuffer large = pool.Acquire(std::size_t{3} << 20);
    GLuint const largeName = large.Name();
    pool.Release(std::move(large));
    detail::StagingBuffer small = pool.Acquire(1000);
    EXPECT_NE(small.Name(), largeName);
    EXPECT_LT(small.Capacity(), std::size_t{1} << 20);

    // Over budget, the largest idle buffer goes first.
    std::size_t const kept = again.Capacity() + small.Capacity();
    pool.Release(std::move(again));
    pool.Release(std::move(small));
    EXPECT_EQ(pool.IdleBytes(), kept);
}

} // namespace
} // namespace Zorvan::Rendering::Gl
