#pragma once

// Mesh files in through Assimp, as a MeshAsset: node transforms applied,
// polygons triangulated, one primitive per material. Only Assimp's
// triangulation runs on the scene; everything else (transforms, joining,
// validation) is zgu's own, because several of Assimp's post-processing
// steps abort or crash on scenes its own importers produce.

#include "MeshAsset.h"

#include <filesystem>

namespace Zorvan::Tool {

// Whether Assimp has an importer for the file's extension (for folder inputs).
bool IsMeshFile(std::filesystem::path const& path);

// Refuses, with Failure, a file whose header declares more elements than
// the file could hold (OFF and PLY), before an importer reserves memory for
// them; other files pass.
void CheckDeclaredCounts(std::filesystem::path const& path);

// Imports in this process. Throws UsageError for a path that is not a file
// or a format Assimp cannot read, Failure for a file it cannot parse or that
// holds no triangles. zgu runs it in a child process (MeshJob.h); the fuzz
// target calls it directly.
MeshAsset ImportMeshAsset(std::filesystem::path const& path);

} // namespace Zorvan::Tool
