#pragma once

// Clear, copy and multisample depth resolve done by drawing one full-screen
// triangle with shaders the library writes in the device's portable dialect.
// Shaders and pipeline states are cached per object and never evicted; the
// device must outlive every object (and cache) built on it. Not thread-safe:
// one object is used by one thread at a time.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Export.h>

#include <cstdint>
#include <unordered_map>

namespace Zorvan::Rendering {

// Caches keyed by precomputed 64-bit hashes (FNV-1a 64 combined with a
// MurmurHash64A-style mixing step).
using ShaderCache = std::unordered_map<std::uint64_t, ScopedResource<ShaderId, IGpu>>;
using PsoCache = std::unordered_map<std::uint64_t, ScopedResource<PsoId, IGpu>>;

// ---------------------------------------------------------------------------
// Clear
// ---------------------------------------------------------------------------

// Clears a render-target view to one value by drawing: the value reaches the
// target unconverted, so integer targets take the int / unsigned overloads.
// Every call makes and destroys its own 16-byte constant buffer; the shader
// and the pipeline (per value type, target format and sample count) are
// cached in the maps the caller passes. The clear pipeline stays bound.
ZGU_API void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, int r, int g, int b,
                        int a);
ZGU_API void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, unsigned int r,
                        unsigned int g, unsigned int b, unsigned int a);
ZGU_API void ClearImage(IGpu& gpu, ShaderCache& shaders, PsoCache& pipelines, RtvId target, float r, float g,
                        float b, float a);

// Holds the caches ClearImage needs. Creates nothing until first used.
class ZGU_API ShaderBasedImageClear {
public:
    explicit ShaderBasedImageClear(IGpu& gpu);
    ~ShaderBasedImageClear();
    ShaderBasedImageClear(ShaderBasedImageClear const&) = delete;
    ShaderBasedImageClear& operator=(ShaderBasedImageClear const&) = delete;

    void Clear(RtvId target, int r, int g, int b, int a);
    void Clear(RtvId target, unsigned int r, unsigned int g, unsigned int b, unsigned int a);
    void Clear(RtvId target, float r, float g, float b, float a);

    IGpu& Device() const noexcept { return gpu_; }
    ShaderCache& Shaders() noexcept { return shaders_; }
    PsoCache& Pipelines() noexcept { return pipelines_; }

private:
    IGpu& gpu_;
    ShaderCache shaders_;
    PsoCache pipelines_;
};

// ---------------------------------------------------------------------------
// Copy
// ---------------------------------------------------------------------------

// Copies by sampling (linear, clamped) into a render target, so the copy
// converts formats and scales extents as sampling does. The program, sampler
// and triangle buffer are made on first use; a pipeline state is made and
// destroyed on every view-to-view copy.
class ZGU_API ShaderBasedImageCopy {
public:
    explicit ShaderBasedImageCopy(IGpu& gpu) noexcept;
    ~ShaderBasedImageCopy();
    ShaderBasedImageCopy(ShaderBasedImageCopy const&) = delete;
    ShaderBasedImageCopy& operator=(ShaderBasedImageCopy const&) = delete;

    void Copy(SrvId source, RtvId target);
    // Routes through temporaries when the source cannot be sampled (needs copy
    // source) or the target cannot be rendered to (needs copy destination);
    // silently does nothing when neither way exists.
    void Copy(ImageId source, SubImage const& sourceRegion, ImageId target, SubImage const& targetRegion);

private:
    IGpu& gpu_;
    ScopedResource<ShaderId, IGpu> shader_;
    ScopedResource<SamplerId, IGpu> sampler_;
    ScopedResource<BufferId, IGpu> vertexBuffer_;
};

// ---------------------------------------------------------------------------
// Multisample depth resolve
// ---------------------------------------------------------------------------

// Which sample's depth a resolved texel keeps. Any value but Min acts as Max.
enum class DepthSelectionMode : std::uint32_t {
    Min = 0,
    Max = 1,
};

namespace detail {
struct ResolverShaderKey {
    std::uint32_t mode = 0;
    std::uint32_t sampleCount = 0;
    friend constexpr bool operator==(ResolverShaderKey const&, ResolverShaderKey const&) = default;
};
struct ResolverPipelineKey {
    std::uint32_t mode = 0;
    std::uint32_t format = 0;
    std::uint32_t sampleCount = 0;
    friend constexpr bool operator==(ResolverPipelineKey const&, ResolverPipelineKey const&) = default;
};
// Seed 0, then HashCombine with the FNV-1a of each field's four bytes.
struct ResolverKeyHash {
    std::size_t operator()(ResolverShaderKey const& key) const noexcept;
    std::size_t operator()(ResolverPipelineKey const& key) const noexcept;
};
} // namespace detail

// Resolves a multisampled, sampleable depth image into a single-sample depth
// image by writing the minimum or maximum of each texel's samples as depth.
class ZGU_API ShaderBasedMsaaDepthResolver {
public:
    // Creates the triangle vertex buffer at once.
    explicit ShaderBasedMsaaDepthResolver(IGpu& gpu);
    ~ShaderBasedMsaaDepthResolver();
    ShaderBasedMsaaDepthResolver(ShaderBasedMsaaDepthResolver const&) = delete;
    ShaderBasedMsaaDepthResolver& operator=(ShaderBasedMsaaDepthResolver const&) = delete;

    void Resolve(ImageId source, ImageId destination, DepthSelectionMode mode);
    // Keeps the maximum depth.
    void Resolve(ImageId source, ImageId destination);

private:
    IGpu& gpu_;
    ScopedResource<BufferId, IGpu> vertexBuffer_;
    std::unordered_map<detail::ResolverShaderKey, ScopedResource<ShaderId, IGpu>, detail::ResolverKeyHash> shaders_;
    std::unordered_map<detail::ResolverPipelineKey, ScopedResource<PsoId, IGpu>, detail::ResolverKeyHash> pipelines_;
};

} // namespace Zorvan::Rendering
