// zgu's mesh path: a file Assimp imports (format chosen by the first byte),
// then normals, remapping, the 16-bit split and Tipsify. Import errors must
// surface as the tool's own exceptions; a mesh that imports must prepare.

#include "Errors.h"
#include "MeshIo.h"
#include "MeshPrep.h"

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size)
{
    if (size < 2)
        return 0;
    static char const* const extensions[] = {".obj", ".ply", ".stl", ".off"};
    fs::path const path = fs::temp_directory_path() /
                          ("zgu-fuzz-" + std::to_string(::getpid()) + extensions[data[0] % 4]);
    {
        std::ofstream out(path, std::ios::binary | std::ios::trunc);
        out.write(reinterpret_cast<char const*>(data + 1), static_cast<std::streamsize>(size - 1));
    }
    try {
        Zorvan::Tool::MeshData const mesh = Zorvan::Tool::ImportMesh(path);
        auto const prepared = Zorvan::Tool::PrepareMesh(mesh, 30.0, 16, {});
        auto const parts = prepared.Parts(mesh);
        (void)parts;
    } catch (Zorvan::Tool::UsageError const&) {
    } catch (Zorvan::Tool::Failure const&) {
    }
    fs::remove(path);
    return 0;
}
