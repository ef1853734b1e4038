#pragma once

// The checks behind the rules of DeviceRules.h, written once for the two
// devices that apply them: RecordingGpu refuses what they find, ValidatingGpu
// reports it and forwards the call anyway. Each check appends what it finds;
// nothing found means the call keeps the rule. Objects are named by the
// caller (the two devices name handles differently), with their role.

#include <Rendering/Core.h>
#include <Rendering/Device.h>
#include <Rendering/Testing/DeviceRules.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Zorvan::Rendering::Testing::Checks {

struct Finding {
    Rule rule{};
    std::string object;  // the object the rule is about
    std::string message; // the whole finding
};
using Findings = std::vector<Finding>;

// What the checks know of an image.
struct ImageFacts {
    ImageDesc description;  // as created, or as read back when the device changed it
    std::uint32_t levels = 1;
    std::uint32_t slices = 1; // six for cube maps
    std::uint32_t samples = 1;
};

// floor(log2(largest dimension)) + 1, and 1 for an empty size.
std::uint32_t FullChainLength(Size const& size) noexcept;
// Each present dimension of the level, at least 1; absent ones stay 0.
Size LevelSize(Size const& size, std::uint32_t level) noexcept;

// Levels: mipLevels, the full chain for 0, one for a multisampled image.
ImageFacts FactsOf(ImageDesc const& description) noexcept;
std::string SubImageText(SubImage const& where);
std::string Hex(std::uint32_t value);
// "4x4x0 R8G8B8A8, 1 sample, 3 levels, flags 0x41"
std::string DescriptionText(ImageDesc const& description);

// ---- Handles

// "<who>: stale handle, already destroyed" and the like, for the handle rules.
std::string HandleMessage(Rule rule, std::string const& who);

// ---- Creation

void CreateImage(ImageDesc const& description, Findings& found);
void CreateShaderResourceView(std::string const& image, ImageFacts const& facts,
                              ShaderResourceViewDescription const& description, Findings& found);
void CreateRenderTargetView(std::string const& image, ImageFacts const& facts,
                            RenderTargetViewDescription const& description, Findings& found);
void CreateQuery(QueryType type, Findings& found);

// ---- Maps

void MapImage(std::string const& image, ImageFacts const& facts, SubImage const& where, std::uint32_t mode,
              bool alreadyMapped, Findings& found);
void UnmapImage(std::string const& image, SubImage const& where, bool mapped, Findings& found);
void MapBuffer(std::string const& buffer, BufferDescription const& description, std::uint32_t mode,
               bool alreadyMapped, Findings& found);
void UnmapBuffer(std::string const& buffer, bool mapped, Findings& found);
// Destroying an image with `openMaps` sub-images mapped, or a mapped buffer.
void DestroyImage(std::string const& image, std::vector<SubImage> const& openMaps, Findings& found);
void DestroyBuffer(std::string const& buffer, bool mapped, Findings& found);

// ---- Copies and resolves

struct Part {
    std::string const& name; // with its role: "source Image(...)"
    ImageFacts const& facts;
    SubImage where;
};
void CopyImage(Part const& source, Part const& destination, bool sameImage, Findings& found);
void ResolveImage(Part const& source, Part const& destination, Findings& found);

// ---- Queries and draws

void BeginQuery(std::string const& query, QueryType type, bool begun, Findings& found);
void EndQuery(std::string const& query, QueryType type, bool begun, Findings& found);
void RecordQuery(std::string const& query, QueryType type, Findings& found);
void DestroyQuery(std::string const& query, bool begun, Findings& found);
void DrawIndexed(std::string const& indices, BufferDescription const& description, std::uint32_t indexCount,
                 std::uint32_t firstIndex, Findings& found);

// ---- Results of the device

// A description read back against the one the image was created with.
void DescriptionReadBack(std::string const& image, ImageDesc const& created, ImageDesc const& readBack,
                         Findings& found);
// A successful map's pitches against the sub-image's rows and slices.
void MapPitches(std::string const& image, ImageFacts const& facts, SubImage const& where, MappedImage const& mapped,
                Findings& found);

} // namespace Zorvan::Rendering::Testing::Checks
