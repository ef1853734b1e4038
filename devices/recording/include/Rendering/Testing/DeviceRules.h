#pragma once

// The rules of the device contract that can be checked from outside a
// device, named, so that a report says which one was broken. RecordingGpu
// enforces them and ValidatingGpu reports them over any device; both use one
// implementation of the checks.
//
// Most rules bind the caller (the library, or code of the user's own); the
// Device* rules bind the device, checked on what it returns.

#include <cstdint>
#include <string>

namespace Zorvan::Rendering::Testing {

// Every operation of the interfaces, in declaration order.
enum class Op : std::uint32_t {
    GetMaximumBufferSize,
    GetBufferDescription,
    CreateBuffer,
    DestroyBuffer,
    MapBuffer,
    UnmapBuffer,
    GetRenderTargetViewDescription,
    GetImageDescription,
    CreateImage,
    DestroySampler,
    DestroyRenderTargetView,
    DestroyShaderResourceView,
    DestroyImage,
    CreateShaderResourceView,
    CreateRenderTargetView,
    CopyImage,
    ResolveImage,
    MapImage,
    UnmapImage,
    CreateSampler,
    CreateShader,
    DestroyShader,
    Draw,
    BeginQuery,
    EndQuery,
    RecordQuery,
    GetQueryResult,
    DrawIndexed,
    CreatePipelineState,
    DestroyQuery,
    DestroyPipelineState,
    BindPipelineState,
    CreateQuery,
};

char const* ToString(Op op);

enum class Rule : std::uint32_t {
    // Handles
    InvalidHandle,         // the invalid handle where a live object is needed
    UnknownHandle,         // never returned by a create operation of that kind
    StaleHandle,           // used after it was destroyed
    DoubleDestroy,         // destroyed a second time
    ViewOfDestroyedImage,  // a view used after its image was destroyed

    // Creation
    ImageDescription,      // an image no device makes: no format, empty extent, 0 samples, bad cube, ...
    ViewRange,             // a view of levels or slices its image does not have
    QueryType,             // a query type the contract does not know

    // Host maps
    MapFlags,              // image read map without HostRead, write map without HostWrite; buffer write map without Dynamic
    MapMode,               // a mode other than MapMode::Read or MapMode::Write
    MapMultisampled,       // multisampled images are resolved, never mapped
    SubImageOutside,       // a mip level or slice the image does not have
    MapTwice,              // mapped again before the unmap
    UnmapWithoutMap,       // unmapped without a map before it
    DestroyWhileMapped,

    // Copies and resolves
    CopyFlags,             // source without CopySource, destination without CopyDestination
    CopySampleCounts,      // copies keep the sample count; a resolve changes it
    CopyPixelSizes,        // copies move pixels of one size
    CopyOntoItself,        // a sub-image copied onto itself
    ScaledCopy,            // a copy between different extents needs single-sampled images of one format
    ResolveFlags,          // source without Resolvable, destination without ResolveDestination
    ResolveSampleCounts,   // from a multisampled image to a single-sampled one
    ResolveFormats,        // both images have one format
    ResolveExtents,        // both sub-images have one extent

    // Queries
    QueryOperation,        // Begin/EndQuery on a sample query, RecordQuery on a range query
    QueryBeginTwice,
    QueryEndWithoutBegin,
    DestroyWhileBegun,

    // Draws
    IndexBuffer,           // DrawIndexed from a buffer without BufferUsage::Index, or past its end

    // Results a device returned
    DeviceReusedHandle,    // a create returned a handle that is still live
    DeviceDescription,     // a description read back that contradicts the one created
    DeviceMapPitch,        // a map whose pitches do not hold the sub-image's rows or slices
    DevicePackedHandle,    // two live render-target views whose low 32 bits are equal
};

// A short kebab-case name of the rule, e.g. "copy-flags".
char const* ToString(Rule rule);

// One broken rule: which, during which operation, about which object.
struct Violation {
    Rule rule{};
    Op op{};
    std::string object;  // the object the rule is about, as the reporting device names it
    std::string message; // the whole finding, naming every object involved

    // "<Op>: <message> [<rule>]"
    std::string Text() const;
};

} // namespace Zorvan::Rendering::Testing
