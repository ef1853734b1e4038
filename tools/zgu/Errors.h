#pragma once

// How zgu fails: a usage error (bad arguments, exit 2) or a failure of the
// work itself (unreadable input, no device, exit 1). Main prints the message
// as one line on stderr.

#include <filesystem>
#include <stdexcept>
#include <string>

namespace Zorvan::Tool {

inline constexpr int ExitUsage = 2;
inline constexpr int ExitFailure = 1;

class UsageError : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

class Failure : public std::runtime_error {
public:
    using runtime_error::runtime_error;
};

// A path as messages show it: 'like/this'.
inline std::string Quoted(std::filesystem::path const& path)
{
    // Appended piecewise: GCC 12 misreads "'" + text + "'" as overlapping copies (-Wrestrict).
    std::string text = "'";
    text += path.string();
    text += '\'';
    return text;
}

// Refuses to replace a file the user already has unless asked to.
inline void CheckMayWrite(std::filesystem::path const& path, bool force)
{
    if (!force && std::filesystem::exists(path))
        throw Failure("'" + path.string() + "' exists; pass --force to overwrite it");
}

} // namespace Zorvan::Tool
