#pragma once

// Running a command over many files: inputs given as files or folders
// (--recursive), outputs mapped under --out-dir with the folder structure
// kept, -j N files at a time, progress on stderr, every failure recorded
// against its file while the rest go on, and one JSON report covering every
// file (schema in docs/zgu-report.md). One file given by name runs as a plain
// command: its own table on stdout, its error as zgu's error and exit code.

#include "Isolation.h"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace Zorvan::Tool {

// The report's layout; raise it when a field changes meaning or goes away.
inline constexpr int ReportSchemaVersion = 1;

// The options every batch command shares; AddBatchOptions registers them.
struct BatchOptions {
    std::vector<std::string> inputs;
    bool recursive = false;
    std::string outDir;
    unsigned jobs = 1;
    std::string report; // a file, "-" for stdout, or empty
    bool force = false;
    double memoryLimitMiB = 4096.0;
    double timeLimitSeconds = 300.0;

    IsolationLimits Limits() const;
};

// A numeric option's check: a finite number (an integer where `integer`)
// from low to high, with a message saying which of those it is not.
CLI::Validator NumberBetween(double low, double high, bool integer = false);

// `isolates`: the command runs its risky work through RunIsolated with
// options.Limits(), so --memory-limit and --time-limit mean something.
void AddBatchOptions(CLI::App& command, BatchOptions& options, std::string const& inputHelp, bool isolates);

// One input file and where its outputs go.
struct BatchFile {
    std::filesystem::path input;
    // The outputs' path without extension: --out-dir, then the folders below
    // the folder input it came from, then its stem; without --out-dir, the
    // stem beside the input. Where two inputs would share it, the whole file
    // name replaces the stem (Wuson.ply, Wuson.off -> Wuson.ply.*, Wuson.off.*).
    std::filesystem::path outputBase;
};

// What a command reports about one file that worked.
struct FileResult {
    nlohmann::ordered_json details; // the report's "result"
    std::vector<std::filesystem::path> outputs;
};

struct BatchCommand {
    std::string name;                                          // "image"
    std::string inputKind;                                     // "image files", for messages
    std::function<bool(std::filesystem::path const&)> accepts; // the files taken from folders
    // Whether the command writes beside its inputs when there is no
    // --out-dir; a folder input then needs --out-dir, so that a second run
    // does not take the first run's outputs for inputs.
    bool writesBesideInputs = true;
    nlohmann::ordered_json settings;                           // the report's "settings"
    // Does one file's work; throws UsageError or Failure. Called from -j
    // threads at once.
    std::function<FileResult(BatchFile const&)> run;
    // Prints a lone file's result (a table, or JSON) on stdout.
    std::function<void(BatchFile const&, FileResult const&)> printSingle;
    // Optional: refuses a plan (UsageError) before any work starts, for
    // problems only the planned files show (an output format per input).
    std::function<void(std::vector<BatchFile> const&)> checkPlan;
};

// The files a run would process, in order, with their output bases. Throws
// UsageError for missing inputs, folders with nothing to do, a folder
// without --out-dir where the command needs one, and outputs that would
// collide even with their extensions kept.
std::vector<BatchFile> PlanBatch(BatchOptions const& options, BatchCommand const& command);

// Plans, runs and reports; returns the exit code (0 all done, 1 a file
// failed). A lone file named on the command line throws its error instead.
int RunBatch(BatchOptions const& options, BatchCommand const& command);

} // namespace Zorvan::Tool
