#pragma once

// Everything a GlDevice holds: the context, the diagnostics, one handle table
// per kind of object and the state of the current binding. The operations
// are spread over one source file per concern.

#include "Context.h"
#include "Formats.h"
#include "GlObject.h"
#include "HandleTable.h"
#include "Staging.h"
#include "TextureBin.h"

#include <Rendering/Gl/GlDevice.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Zorvan::Rendering::Gl::detail {

struct BufferRecord {
    GlBuffer name;
    BufferDescription description;
    bool mapped = false;
};

struct OpenImageMap {
    SubImage where;
    std::uint32_t mode = 0;
};

// Where the content of one sub-image (a level, or a cube face of it) lives.
// A new image is all zero without clearing anything; the texture and a host
// copy in staging memory are brought up to date only when used, so a read
// back through a read-back image is one GPU-to-host copy and an upload one
// host-to-GPU copy.
struct SubImageState {
    bool zero = true;               // nothing has been written: the content is zero
    bool textureCurrent = false;    // the texture holds the content
    bool hostCurrent = false;       // `host` holds the content, in the host's layout
    bool mapped = false;
    StagingBuffer host;
};

struct ImageRecord {
    GlTexture name;                // made on first GPU use (staging-only images never need one)
    GLenum target = 0;
    ImageDesc description;         // as the caller reads it back (real samples, real levels)
    GlFormat const* format = nullptr;
    std::uint32_t layers = 1;      // cube faces
    std::vector<SubImageState> subImages; // level-major: level * layers + layer
    std::vector<OpenImageMap> maps;
};

struct SrvRecord {
    GlTexture name;
    ImageId image;
    GLenum target = 0;
    std::uint32_t firstLevel = 0;
    std::uint32_t levelCount = 0;
    std::uint32_t firstLayer = 0;
    std::uint32_t layerCount = 0;
};

struct RtvRecord {
    ImageId image;
    GLuint texture = 0;            // owned by the image
    RenderTargetViewInfo info;
    GLint layer = -1;              // -1: the whole level is attached
};

struct SamplerRecord {
    GlSampler name;
};

// A linked program and the texture units its samplers read.
struct LinkedProgram {
    struct Sampler {
        GLuint unit = 0;
        bool multisampled = false;
        std::string name;
    };
    GlProgram program;
    std::vector<Sampler> samplers;
    // The same program with multisampled textures read as single-sampled ones.
    std::shared_ptr<LinkedProgram> singleSampled;

    GLuint Get() const noexcept { return program.Get(); }
};

struct ShaderRecord {
    std::shared_ptr<LinkedProgram> program; // pipelines share it: a shader may go before its pipelines
};

struct PipelineRecord {
    GlVertexArray vertexArray;
    PipelineStateDescription description;
    std::shared_ptr<LinkedProgram> program;
    std::array<unsigned int, 4> strides{};
    std::array<bool, 4> slotUsed{};
};

struct QueryRecord {
    QueryType type = QueryType::Timestamp;
    GlQuery first;                 // the timestamp, or the range's start
    GlQuery second;                // the range's end
    bool issued = false;           // the timestamp is recorded, or the range has begun
    bool open = false;             // a range between BeginQuery and EndQuery
    bool ended = false;
};

struct DeviceCore {
    explicit DeviceCore(GlDeviceOptions options);

    // ---- diagnostics
    void Report(MessageSeverity severity, std::string const& text);
    void Error(std::string const& text) { Report(MessageSeverity::Error, text); }
    // Drains glGetError when the driver's debug output is not forwarding it.
    void CheckGlErrors(char const* operation);

    // Looks the handle up; reports why when it does not name a live object.
    template <typename Record, typename IdType>
    Record* Find(HandleTable<Record>& table, IdType id, char const* operation, char const* what)
    {
        LookupResult result = LookupResult::Found;
        Record* record = table.Find(id.Value(), result);
        if (record == nullptr)
            ReportLookup(result, id.Value(), operation, what);
        return record;
    }
    // The same for a view that reached the device as the low 32 bits of its handle.
    RtvRecord* FindView(PackedRtvId view, char const* operation, char const* what);
    void ReportLookup(LookupResult result, std::uint64_t handle, char const* operation, char const* what);

    void MakeCurrent() const noexcept { context.MakeCurrent(); }

    GlDeviceOptions options;
    Context context;
    bool debugOutput = false;
    std::vector<std::string> errors;
    GlDeviceInfo info;

    HandleTable<BufferRecord> buffers{ObjectKind::Buffer};
    HandleTable<ImageRecord> images{ObjectKind::Image};
    HandleTable<SrvRecord> shaderResourceViews{ObjectKind::ShaderResourceView};
    HandleTable<RtvRecord> renderTargetViews{ObjectKind::RenderTargetView, HandlePacking::SlotAndGeneration};
    HandleTable<SamplerRecord> samplers{ObjectKind::Sampler};
    HandleTable<ShaderRecord> shaders{ObjectKind::Shader};
    HandleTable<PipelineRecord> pipelines{ObjectKind::Pipeline};
    HandleTable<QueryRecord> queries{ObjectKind::Query};

    // Framebuffers of the transfer paths and of the bound render targets.
    GlFramebuffer readFramebuffer;
    GlFramebuffer drawFramebuffer;
    GlFramebuffer targetFramebuffer;

    PsoId boundPipeline{};
    bool targetsComplete = false;
    // The sub-images the bound pipeline's views read and its targets write.
    std::vector<std::pair<ImageId, SubImage>> boundReads;
    std::vector<std::pair<ImageId, SubImage>> boundTargets;

    // Staging memory of host maps and copies to and from the host, and
    // textures of destroyed images kept for new images of the same shape.
    StagingPool staging{std::size_t{256} << 20};
    TextureBin textureBin{std::size_t{256} << 20};
};

// Level extent of an image with absent dimensions kept 0 (CalculateMipLevelSize).
Size LevelSize(ImageDesc const& description, std::uint32_t level) noexcept;
// The same with absent dimensions as 1 (what GL calls for).
Size LevelExtent(ImageDesc const& description, std::uint32_t level) noexcept;
std::string HandleText(std::uint64_t handle);
std::string PackedHandleText(std::uint32_t handle);

} // namespace Zorvan::Rendering::Gl::detail

struct Zorvan::Rendering::Gl::GlDevice::State : Zorvan::Rendering::Gl::detail::DeviceCore {
    using DeviceCore::DeviceCore;
};
