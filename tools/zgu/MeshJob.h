#pragma once

// Mesh import in a child process: Assimp meets the file there, so that its
// crashes, hangs and runaway allocations end the child, not zgu.

#include "Isolation.h"
#include "MeshAsset.h"

#include <filesystem>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// The isolated job that imports one file (its one argument), turns embedded
// images into PNG where they are neither PNG nor JPEG, and returns the asset
// serialized; zgu's job table names it ImportMeshJobName.
inline constexpr char const* ImportMeshJobName = "import-mesh";
std::string ImportMeshJob(std::vector<std::string> const& arguments);

// Runs that job on `path`; throws what the job threw, or Failure naming a
// crash, a kill or a limit.
MeshAsset ImportMeshIsolated(std::filesystem::path const& path, IsolationLimits const& limits);

} // namespace Zorvan::Tool
