#pragma once

// Output files that appear together, complete, or not at all.

#include <filesystem>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// A set of files for one destination folder. They are written under their
// final names into a hidden staging folder (in the destination, or in its
// nearest existing parent, so that a failure creates no folders), and Commit
// moves them into place, creating the destination first. Destroyed without
// a commit (an error, an exception) the staging folder goes, with everything
// in it; on Ctrl-C, InterruptCleanup removes it.
//
// Everything a writer puts into the staging folder is committed, so writers
// that add files of their own (an OBJ's .mtl, a glTF's .bin) are covered.
class StagedOutputs {
public:
    explicit StagedOutputs(std::filesystem::path destination);
    ~StagedOutputs();
    StagedOutputs(StagedOutputs const&) = delete;
    StagedOutputs& operator=(StagedOutputs const&) = delete;

    // Where to write the file that is to become destination / name.
    std::filesystem::path Stage(std::string const& name);

    // Moves every staged file into place and returns their final paths,
    // sorted. Without `replace`, an existing file stops the commit before
    // anything moves (Failure naming it and --force). With `replace`, files
    // in `obsolete` are removed as well. A failure while moving puts back
    // what had moved and throws Failure; the destination is as it was.
    std::vector<std::filesystem::path> Commit(bool replace, std::vector<std::filesystem::path> const& obsolete = {});

private:
    std::filesystem::path destination_;
    std::filesystem::path staging_; // empty until the first Stage
};

// The folder of a path the user gave as an output; empty for the current
// folder ("out.ktx2"), which StagedOutputs and paths built on it accept.
std::filesystem::path FolderOf(std::filesystem::path const& path);

} // namespace Zorvan::Tool
