// zgu mesh: import, crease-aware normals, 16-bit submeshes in Tipsify order,
// export; reports vertex counts, cache efficiency and time per stage.

#include "Batch.h"
#include "Commands.h"
#include "Errors.h"
#include "MeshIo.h"
#include "MeshPrep.h"
#include "Outputs.h"
#include "Table.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <memory>

namespace Zorvan::Tool {
namespace {

// Meshes from this size on take long enough for progress lines to help.
constexpr std::size_t BigMeshTriangles = 100000;

struct MeshOptions {
    BatchOptions batch;
    std::string output;
    std::string to;
    double creaseDegrees = 30.0;
    unsigned cacheSize = 16;
    bool json = false;
};

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// The output for one file: -o, or the batch's base with --to's extension
// (or the input's own) when there is an --out-dir or a --to; else none.
std::filesystem::path OutputFor(MeshOptions const& options, BatchFile const& file)
{
    if (!options.output.empty())
        return options.output;
    if (options.batch.outDir.empty() && options.to.empty())
        return {};
    std::string const extension = options.to.empty() ? file.input.extension().string() : "." + options.to;
    return file.outputBase.string() + extension;
}

FileResult RunMeshFile(MeshOptions const& options, BatchFile const& file)
{
    std::filesystem::path const output = OutputFor(options, file);
    std::string format;
    if (!output.empty()) {
        format = ExportFormatFor(output);
        CheckMayWrite(output, options.batch.force);
    }

    auto start = std::chrono::steady_clock::now();
    MeshData const mesh = ImportMesh(file.input);
    double const importSeconds = SecondsSince(start);

    bool const big = mesh.triangles.size() >= BigMeshTriangles;
    Progress progress = [big](std::string const& message) {
        if (big)
            std::cerr << "zgu: " << message << "\n";
    };
    progress("imported " + std::to_string(mesh.triangles.size()) + " triangles");

    PreparedMesh const prepared =
        PrepareMesh(mesh, options.creaseDegrees, static_cast<std::uint16_t>(options.cacheSize), progress);

    FileResult result;
    double exportSeconds = 0.0;
    if (!output.empty()) {
        progress("writing '" + output.string() + "'");
        start = std::chrono::steady_clock::now();
        StagedOutputs staged(FolderOf(output));
        ExportMesh(staged.Stage(output.filename().string()), format, prepared.Parts(mesh));
        result.outputs = staged.Commit(options.batch.force);
        exportSeconds = SecondsSince(start);
    }

    nlohmann::ordered_json& report = result.details;
    report["input"] = file.input.string();
    report["output"] = output.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(output.string());
    report["triangles"] = mesh.triangles.size();
    report["vertices_in"] = mesh.positions.size();
    report["vertices_remapped"] = prepared.remapping.vertices.size();
    report["vertices_out"] = prepared.OutputVertexCount();
    report["submeshes"] = prepared.submeshes.size();
    auto& perSubmesh = report["submesh_vertices"] = nlohmann::ordered_json::array();
    for (Rendering::Submesh const& sub : prepared.submeshes)
        perSubmesh.push_back(sub.vertices.size());
    report["crease_degrees"] = options.creaseDegrees;
    report["cache_size"] = options.cacheSize;
    report["acmr_before"] = prepared.before.acmr;
    report["acmr_after"] = prepared.after.acmr;
    report["atvr_before"] = prepared.before.atvr;
    report["atvr_after"] = prepared.after.atvr;
    report["seconds"] = {{"import", importSeconds},
                         {"normals", prepared.normalsSeconds},
                         {"reorder", prepared.reorderSeconds},
                         {"export", exportSeconds}};
    return result;
}

void PrintMesh(MeshOptions const& options, FileResult const& result)
{
    nlohmann::ordered_json const& report = result.details;
    if (options.json) {
        std::cout << report.dump(2) << "\n";
        return;
    }
    auto const count = [&report](char const* key) { return std::to_string(report[key].get<std::size_t>()); };
    auto const ratio = [&report](char const* key) { return Fixed(report[key].get<double>(), 3); };
    auto const ms = [&report](char const* key) {
        return Fixed(report["seconds"][key].get<double>() * 1000.0, 1) + " ms";
    };
    Table table({"", "value"});
    table.Add({"triangles", count("triangles")});
    table.Add({"vertices in", count("vertices_in")});
    table.Add({"vertices out", count("vertices_out")});
    table.Add({"submeshes", count("submeshes")});
    table.Add({"ACMR before / after", ratio("acmr_before") + " / " + ratio("acmr_after")});
    table.Add({"ATVR before / after", ratio("atvr_before") + " / " + ratio("atvr_after")});
    table.Add({"import", ms("import")});
    table.Add({"normals + remap", ms("normals")});
    table.Add({"split + tipsify", ms("reorder")});
    if (!report["output"].is_null())
        table.Add({"export", ms("export")});
    table.Print(std::cout);
}

int RunMesh(MeshOptions const& options)
{
    std::error_code error;
    bool const oneFile =
        options.batch.inputs.size() == 1 && !std::filesystem::is_directory(options.batch.inputs[0], error);
    if (!options.output.empty() && !oneFile)
        throw UsageError("-o names the output of one input; with several, use --out-dir");
    if (!options.output.empty() && !options.batch.outDir.empty())
        throw UsageError("-o and --out-dir cannot be used together");
    if (options.json && !oneFile)
        throw UsageError("--json prints one file's report; for several, use --report FILE (- for stdout)");

    BatchCommand command;
    command.name = "mesh";
    command.inputKind = "mesh files Assimp reads";
    command.accepts = IsMeshFile;
    command.writesBesideInputs = !options.to.empty();
    command.settings = {{"crease_degrees", options.creaseDegrees},
                        {"cache_size", options.cacheSize},
                        {"to", options.to.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(options.to)}};
    command.run = [&options](BatchFile const& file) { return RunMeshFile(options, file); };
    command.printSingle = [&options](BatchFile const&, FileResult const& result) { PrintMesh(options, result); };
    return RunBatch(options.batch, command);
}

} // namespace

Command RegisterMeshCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<MeshOptions>();
    subcommand = app.add_subcommand("mesh", "Smooth normals with a crease angle, split into 16-bit submeshes, "
                                            "reorder each for the vertex cache (Tipsify) and export");
    subcommand->add_option("-o,--output", options->output, "one input's output mesh; its extension picks the format")
        ->type_name("OUT");
    subcommand->add_option("--to", options->to,
                           "output format by extension (obj, ply, glb, ...) for batches: written beside the inputs, "
                           "or under --out-dir (default there: the input's own format)")
        ->type_name("EXT");
    subcommand->add_option("--crease", options->creaseDegrees, "crease angle in degrees")
        ->check(CLI::Range(0.0, 180.0))
        ->capture_default_str();
    subcommand->add_option("--cache", options->cacheSize, "vertex cache size to optimise for")
        ->check(CLI::Range(1u, 65535u))
        ->capture_default_str();
    subcommand->add_flag("--json", options->json, "print one file's report as JSON");
    AddBatchOptions(*subcommand, options->batch,
                    "input meshes (OBJ, PLY, STL, glTF, ... anything Assimp reads) or folders of them", false);
    return [options] { return RunMesh(*options); };
}

} // namespace Zorvan::Tool
