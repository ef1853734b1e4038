// zgu's mesh path in one process: a file Assimp imports (format chosen by the
// first byte) as zgu's asset, its trip through the bytes that carry it out of
// the importer's child process, the preparation in both layouts, and the
// writers. Import errors must surface as the tool's own exceptions; an asset
// that imports must prepare and write. (The tool itself imports in a child
// process, so that what Assimp does wrong here ends there.)

#include "Errors.h"
#include "MeshAsset.h"
#include "MeshAssetPrep.h"
#include "MeshExport.h"
#include "MeshIo.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;
using namespace Zorvan::Tool;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 2)
        return 0;
    static char const* const extensions[] = {".obj", ".ply", ".stl", ".off"};
    fs::path const folder = fs::temp_directory_path() / ("zgu-fuzz-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    fs::path const path = folder / (std::string("input") + extensions[data[0] % 4]);
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<char const*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    try {
        MeshAsset const asset = DeserializeMeshAsset(SerializeMeshAsset(ImportMeshAsset(path)));
        MeshWriteSettings settings;
        settings.generator = "fuzz";
        for (char const* extension : {"glb", "ply"}) {
            MeshFormat const& format = *FindMeshFormat(extension);
            PreparedAsset const prepared = PrepareAsset(asset, 30.0, 16, format.layout, [](std::string const&) {});
            std::vector<std::string> missing;
            std::vector<std::pair<std::string, std::uint64_t>> leftOut;
            WriteMesh(format, folder / (std::string("output.") + extension), prepared,
                      MaterialsForOutput(asset.materials, folder, folder, missing), asset.images, settings, leftOut);
        }
    } catch (UsageError const&) {
    } catch (Failure const&) {
    }
    fs::remove_all(folder);
    return 0;
}
