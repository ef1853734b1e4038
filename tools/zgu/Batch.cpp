#include "Batch.h"

#include "Errors.h"
#include "Interrupts.h"
#include "Outputs.h"
#include "Table.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <optional>
#include <thread>

#ifndef ZGU_TOOL_VERSION
#define ZGU_TOOL_VERSION "unknown"
#endif

namespace Zorvan::Tool {
namespace fs = std::filesystem;
namespace {

bool IsHidden(fs::path const& relative)
{
    for (auto const& part : relative)
        if (part.string().size() > 1 && part.string()[0] == '.')
            return true;
    return false;
}

bool IsInside(fs::path const& path, fs::path const& folder)
{
    auto const [end, unused] = std::mismatch(folder.begin(), folder.end(), path.begin(), path.end());
    (void)unused;
    return !folder.empty() && end == folder.end();
}

struct Found {
    fs::path input;
    fs::path relative; // below the folder it came from, or its file name
};

std::vector<Found> FilesOf(fs::path const& folder, BatchOptions const& options, BatchCommand const& command)
{
    std::error_code error;
    fs::path const outDir = options.outDir.empty() ? fs::path() : fs::weakly_canonical(options.outDir, error);
    std::vector<Found> found;
    auto const consider = [&](fs::directory_entry const& entry) {
        fs::path const relative = entry.path().lexically_relative(folder);
        if (IsHidden(relative) || !entry.is_regular_file(error) || !command.accepts(entry.path()))
            return;
        if (!outDir.empty() && IsInside(fs::weakly_canonical(entry.path(), error), outDir))
            return; // an earlier run's outputs
        found.push_back({entry.path(), relative});
    };
    if (options.recursive) {
        for (auto const& entry : fs::recursive_directory_iterator(folder, error))
            consider(entry);
    } else {
        for (auto const& entry : fs::directory_iterator(folder, error))
            consider(entry);
    }
    if (error)
        throw UsageError("cannot list " + Quoted(folder) + ": " + error.message());
    std::sort(found.begin(), found.end(), [](Found const& a, Found const& b) { return a.relative < b.relative; });
    return found;
}

// A decoder's or importer's message may span lines; a batch reports one per file.
std::string OneLine(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Outcome {
    std::optional<FileResult> result;
    std::string error;
    double seconds = 0.0;
};

nlohmann::ordered_json Report(BatchCommand const& command, std::vector<BatchFile> const& files,
                              std::vector<Outcome> const& outcomes, double seconds)
{
    nlohmann::ordered_json report;
    report["schema_version"] = ReportSchemaVersion;
    report["tool"] = "zgu";
    report["version"] = ZGU_TOOL_VERSION;
    report["command"] = command.name;
    report["settings"] = command.settings.is_null() ? nlohmann::ordered_json::object() : command.settings;
    std::size_t failed = 0;
    auto& entries = report["files"] = nlohmann::ordered_json::array();
    for (std::size_t i = 0; i < files.size(); ++i) {
        Outcome const& outcome = outcomes[i];
        nlohmann::ordered_json entry;
        entry["input"] = files[i].input.string();
        entry["status"] = outcome.result ? "ok" : "failed";
        auto& outputs = entry["outputs"] = nlohmann::ordered_json::array();
        if (outcome.result)
            for (auto const& path : outcome.result->outputs)
                outputs.push_back(path.string());
        entry["seconds"] = outcome.seconds;
        if (outcome.result)
            entry["result"] = outcome.result->details;
        else
            entry["error"] = outcome.error;
        failed += outcome.result ? 0 : 1;
        entries.push_back(std::move(entry));
    }
    report["summary"] = {{"files", files.size()},
                         {"succeeded", files.size() - failed},
                         {"failed", failed},
                         {"seconds", seconds}};
    return report;
}

void WriteReport(BatchOptions const& options, nlohmann::ordered_json const& report)
{
    if (options.report.empty())
        return;
    if (options.report == "-") {
        std::cout << report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
        return;
    }
    fs::path const path = options.report;
    StagedOutputs staged(FolderOf(path));
    {
        std::ofstream out(staged.Stage(path.filename().string()), std::ios::binary);
        // A file name that is not UTF-8 shows U+FFFD for its bad bytes
        // rather than costing the whole report.
        out << report.dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace) << "\n";
        if (!out.flush())
            throw Failure("cannot write the report " + Quoted(path));
    }
    staged.Commit(options.force);
}

} // namespace

CLI::Validator NumberBetween(double low, double high, bool integer)
{
    auto const check = [low, high, integer](std::string& text) -> std::string {
        char const* begin = text.c_str();
        char* end = nullptr;
        double const value = std::strtod(begin, &end);
        std::string const quoted = "'" + text + "'";
        if (text.empty() || end == begin || *end != '\0')
            return quoted + (integer ? " is not a whole number" : " is not a number");
        if (!std::isfinite(value))
            return quoted + " is not a finite number";
        if (integer && value != std::floor(value))
            return quoted + " is not a whole number";
        if (value < low || value > high)
            return quoted + " is not between " + Fixed(low, 0) + " and " + Fixed(high, 0);
        return {};
    };
    return CLI::Validator(check, "");
}

IsolationLimits BatchOptions::Limits() const
{
    IsolationLimits limits;
    limits.memoryBytes = static_cast<std::uint64_t>(memoryLimitMiB * 1024.0 * 1024.0);
    limits.seconds = timeLimitSeconds;
    return limits;
}

void AddBatchOptions(CLI::App& command, BatchOptions& options, std::string const& inputHelp, bool isolates)
{
    command.add_option("IN", options.inputs, inputHelp)->required();
    command.add_flag("-r,--recursive", options.recursive, "take files from the folders' subfolders too");
    command.add_option("--out-dir", options.outDir,
                       "write outputs under DIR, keeping the folder structure below each folder input")
        ->type_name("DIR");
    command.add_option("-j,--jobs", options.jobs, "files to work on at once (device work stays on one thread)")
        ->type_name("N")
        ->check(NumberBetween(1.0, 256.0, true))
        ->capture_default_str();
    command.add_option("--report", options.report,
                       "write a JSON report on every file to FILE (- for stdout; schema in docs/zgu-report.md)")
        ->type_name("FILE");
    command.add_flag("--force", options.force, "overwrite existing outputs");
    if (!isolates)
        return;
    command.add_option("--memory-limit", options.memoryLimitMiB,
                       "MiB a file's decoder or importer may allocate before it is stopped (0: no limit)")
        ->type_name("MIB")
        ->check(NumberBetween(0.0, 1e9))
        ->capture_default_str();
    command.add_option("--time-limit", options.timeLimitSeconds,
                       "seconds a file's decoder or importer may take before it is stopped (0: no limit)")
        ->type_name("SECONDS")
        ->check(NumberBetween(0.0, 1e9))
        ->capture_default_str();
}

std::vector<BatchFile> PlanBatch(BatchOptions const& options, BatchCommand const& command)
{
    std::vector<Found> found;
    for (std::string const& input : options.inputs) {
        fs::path const path = input;
        std::error_code error;
        if (fs::is_directory(path, error)) {
            if (options.outDir.empty() && command.writesBesideInputs)
                throw UsageError("the folder " + Quoted(path) +
                                 " needs --out-dir, so that outputs do not land among the inputs");
            auto files = FilesOf(path, options, command);
            if (files.empty())
                throw UsageError(Quoted(path) + " holds no " + command.inputKind +
                                 (options.recursive ? "" : " (--recursive takes subfolders too)"));
            found.insert(found.end(), files.begin(), files.end());
        } else if (fs::exists(path, error)) {
            found.push_back({path, path.filename()});
        } else {
            throw UsageError("cannot read " + Quoted(path) + ": no such file");
        }
    }

    // The same file twice (named and inside a named folder) runs once.
    std::vector<BatchFile> files;
    std::vector<fs::path> seen;
    for (Found const& f : found) {
        std::error_code error;
        fs::path const canonical = fs::weakly_canonical(f.input, error);
        if (std::find(seen.begin(), seen.end(), canonical) != seen.end())
            continue;
        seen.push_back(canonical);
        fs::path const folder = options.outDir.empty() ? f.input.parent_path()
                                                       : fs::path(options.outDir) / f.relative.parent_path();
        files.push_back({f.input, folder / f.relative.stem()});
    }

    std::map<fs::path, std::vector<std::size_t>> byBase;
    for (std::size_t i = 0; i < files.size(); ++i)
        byBase[files[i].outputBase].push_back(i);
    for (auto const& [base, users] : byBase)
        if (users.size() > 1)
            for (std::size_t const i : users)
                files[i].outputBase = base.parent_path() / files[i].input.filename();
    byBase.clear();
    for (std::size_t i = 0; i < files.size(); ++i) {
        auto& users = byBase[files[i].outputBase];
        if (!users.empty())
            throw UsageError(Quoted(files[users.front()].input) + " and " + Quoted(files[i].input) +
                             " would write the same outputs (" + Quoted(files[i].outputBase) +
                             "); run them separately or rename one");
        users.push_back(i);
    }
    return files;
}

int RunBatch(BatchOptions const& options, BatchCommand const& command)
{
    std::vector<BatchFile> const files = PlanBatch(options, command);
    if (command.checkPlan)
        command.checkPlan(files);
    std::error_code error;
    bool const single = options.inputs.size() == 1 && files.size() == 1 && !fs::is_directory(options.inputs[0], error);

    // Before any thread starts, so that every thread leaves the signals to it.
    InterruptCleanup const interrupts;
    auto const start = std::chrono::steady_clock::now();
    std::vector<Outcome> outcomes(files.size());

    if (single) {
        Outcome& outcome = outcomes[0];
        try {
            outcome.result = command.run(files[0]);
        } catch (std::exception const& e) {
            outcome.seconds = SecondsSince(start);
            outcome.error = e.what();
            WriteReport(options, Report(command, files, outcomes, outcome.seconds));
            throw;
        }
        outcome.seconds = SecondsSince(start);
        WriteReport(options, Report(command, files, outcomes, outcome.seconds));
        if (options.report != "-")
            command.printSingle(files[0], *outcome.result);
        return 0;
    }

    std::atomic<std::size_t> next{0};
    std::size_t finished = 0;
    std::mutex progressMutex;
    auto const worker = [&] {
        for (std::size_t i = next++; i < files.size(); i = next++) {
            auto const fileStart = std::chrono::steady_clock::now();
            Outcome outcome;
            try {
                outcome.result = command.run(files[i]);
            } catch (std::exception const& e) {
                outcome.error = OneLine(e.what());
            } catch (...) {
                outcome.error = "an unknown error";
            }
            outcome.seconds = SecondsSince(fileStart);
            std::lock_guard<std::mutex> const lock(progressMutex);
            ++finished;
            std::cerr << "zgu: [" << finished << "/" << files.size() << "] "
                      << (outcome.result ? "done " + files[i].input.string() + " (" + Fixed(outcome.seconds, 2) + " s)"
                                         : "failed " + files[i].input.string() + ": " + outcome.error)
                      << "\n";
            outcomes[i] = std::move(outcome);
        }
    };
    unsigned const threads = std::min<unsigned>(options.jobs, static_cast<unsigned>(files.size()));
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t)
        pool.emplace_back(worker);
    worker();
    for (auto& thread : pool)
        thread.join();

    double const seconds = SecondsSince(start);
    std::size_t const failed = static_cast<std::size_t>(
        std::count_if(outcomes.begin(), outcomes.end(), [](Outcome const& o) { return !o.result; }));
    WriteReport(options, Report(command, files, outcomes, seconds));
    if (options.report != "-") {
        Table table({"input", "status", "outputs", "seconds"});
        for (std::size_t i = 0; i < files.size(); ++i)
            table.Add({files[i].input.string(), outcomes[i].result ? "ok" : "failed",
                       outcomes[i].result ? std::to_string(outcomes[i].result->outputs.size()) : "-",
                       Fixed(outcomes[i].seconds, 2)});
        table.Print(std::cout);
    }
    if (failed != 0) {
        std::cerr << "zgu: " << failed << " of " << files.size() << " files failed\n";
        return ExitFailure;
    }
    return 0;
}

} // namespace Zorvan::Tool
