#pragma once

// Each subcommand lives in its own file and registers itself here: it adds
// its options to the application and returns the function that runs it with
// the parsed values (exit code as result; errors as UsageError / Failure).

#include <CLI/CLI.hpp>

#include <functional>

namespace Zorvan::Tool {

using Command = std::function<int()>;

// `subcommand` receives the subcommand CLI11 made, so Main can tell which ran.
Command RegisterDemoCommand(CLI::App& app, CLI::App*& subcommand);
Command RegisterMeshCommand(CLI::App& app, CLI::App*& subcommand);
Command RegisterImageCommand(CLI::App& app, CLI::App*& subcommand);
Command RegisterInfoCommand(CLI::App& app, CLI::App*& subcommand);

} // namespace Zorvan::Tool
