#include "Outputs.h"

#include "Errors.h"
#include "Interrupts.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

std::atomic<unsigned> stagingCounter{0};

fs::path NearestExisting(fs::path path)
{
    std::error_code error;
    while (!path.empty() && !fs::is_directory(path, error))
        path = path.parent_path();
    return path.empty() ? fs::path(".") : path;
}

bool Exists(fs::path const& path)
{
    std::error_code error;
    return fs::symlink_status(path, error).type() != fs::file_type::not_found;
}

// Fails with EEXIST instead of replacing; plain rename where the file system
// cannot do that (the caller has checked for existing files just before).
int RenameNoReplace(fs::path const& from, fs::path const& to)
{
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL && errno != ENOSYS)
        return -1;
    return std::rename(from.c_str(), to.c_str());
}

} // namespace

StagedOutputs::StagedOutputs(fs::path destination) : destination_(std::move(destination)) {}

StagedOutputs::~StagedOutputs()
{
    if (staging_.empty())
        return;
    std::error_code error;
    fs::remove_all(staging_, error);
    UnregisterStaging(staging_);
}

fs::path StagedOutputs::Stage(std::string const& name)
{
    if (staging_.empty()) {
        fs::path const parent = NearestExisting(destination_);
        fs::path const folder = parent / (".zgu-" + std::to_string(::getpid()) + "-" +
                                          std::to_string(stagingCounter.fetch_add(1)) + ".staging");
        // Registered first: a signal between the two steps then finds
        // nothing to remove, instead of leaving a folder behind.
        RegisterStaging(folder);
        std::error_code error;
        if (!fs::create_directory(folder, error)) {
            UnregisterStaging(folder);
            throw Failure("cannot write in " + Quoted(parent) + ": " +
                          (error ? error.message() : std::string("a file named like the staging folder exists")));
        }
        staging_ = folder;
    }
    return staging_ / name;
}

std::vector<fs::path> StagedOutputs::Commit(bool replace, std::vector<fs::path> const& obsolete)
{
    std::vector<std::string> names;
    std::vector<fs::path> committed;
    {
        auto const lock = LockOutputs();
        std::error_code error;
        if (!staging_.empty()) {
            for (auto const& entry : fs::directory_iterator(staging_, error))
                if (entry.is_regular_file(error))
                    names.push_back(entry.path().filename().string());
            if (error)
                throw Failure("cannot list the staging folder " + Quoted(staging_) + ": " + error.message());
        }
        std::sort(names.begin(), names.end());

        if (!names.empty() && !destination_.empty()) {
            fs::create_directories(destination_, error);
            if (error)
                throw Failure("cannot create the folder " + Quoted(destination_) + ": " + error.message());
        }
        for (auto const& name : names) {
            fs::path const target = destination_ / name;
            fs::file_status const status = fs::symlink_status(target, error);
            if (status.type() == fs::file_type::not_found)
                continue;
            // --force replaces files, never a folder and what it holds.
            if (status.type() == fs::file_type::directory)
                throw Failure(Quoted(target) + " is a folder; it cannot be replaced by a file");
            if (!replace)
                throw Failure(Quoted(target) + " exists; pass --force to overwrite it");
        }

        // Every move is recorded so that a failure can put things back.
        std::vector<std::pair<fs::path, fs::path>> moved;
        auto const undo = [&moved] {
            for (auto it = moved.rbegin(); it != moved.rend(); ++it)
                std::rename(it->second.c_str(), it->first.c_str());
        };
        fs::path const previous = staging_ / ".previous";
        for (auto const& name : names) {
            fs::path const target = destination_ / name;
            if (replace && Exists(target)) {
                fs::create_directory(previous, error);
                if (std::rename(target.c_str(), (previous / name).c_str()) != 0) {
                    std::string const reason = std::strerror(errno);
                    undo();
                    throw Failure("cannot replace " + Quoted(target) + ": " + reason);
                }
                moved.emplace_back(target, previous / name);
            }
            int const result = replace ? std::rename((staging_ / name).c_str(), target.c_str())
                                       : RenameNoReplace(staging_ / name, target);
            if (result != 0) {
                std::string const reason = errno == EEXIST ? "it appeared meanwhile" : std::strerror(errno);
                undo();
                throw Failure("cannot move " + Quoted(target) + " into place: " + reason);
            }
            moved.emplace_back(staging_ / name, target);
            committed.push_back(target);
        }
        if (replace)
            for (auto const& path : obsolete)
                fs::remove(path, error);
        if (!staging_.empty())
            fs::remove_all(staging_, error);
    }
    if (!staging_.empty())
        UnregisterStaging(staging_);
    staging_.clear();
    return committed;
}

fs::path FolderOf(fs::path const& path)
{
    return path.parent_path();
}

} // namespace Zorvan::Tool
