// zgu mesh: import, crease-aware normals, 16-bit submeshes in Tipsify order,
// export; reports vertex counts, cache efficiency and time per stage.

#include "Commands.h"
#include "Errors.h"
#include "MeshIo.h"
#include "MeshPrep.h"
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
    std::string input;
    std::string output;
    double creaseDegrees = 30.0;
    unsigned cacheSize = 16;
    bool json = false;
    bool force = false;
};

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

int RunMesh(MeshOptions const& options)
{
    std::string format;
    if (!options.output.empty()) {
        format = ExportFormatFor(options.output);
        CheckMayWrite(options.output, options.force);
    }

    auto start = std::chrono::steady_clock::now();
    MeshData const mesh = ImportMesh(options.input);
    double const importSeconds = SecondsSince(start);

    bool const big = mesh.triangles.size() >= BigMeshTriangles;
    Progress progress = [big](std::string const& message) {
        if (big)
            std::cerr << "zgu: " << message << "\n";
    };
    progress("imported " + std::to_string(mesh.triangles.size()) + " triangles");

    PreparedMesh const prepared =
        PrepareMesh(mesh, options.creaseDegrees, static_cast<std::uint16_t>(options.cacheSize), progress);

    double exportSeconds = 0.0;
    if (!options.output.empty()) {
        progress("writing '" + options.output + "'");
        start = std::chrono::steady_clock::now();
        ExportMesh(options.output, format, prepared.Parts(mesh));
        exportSeconds = SecondsSince(start);
    }

    nlohmann::ordered_json report;
    report["input"] = options.input;
    report["output"] = options.output.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(options.output);
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

    if (options.json) {
        std::cout << report.dump(2) << "\n";
        return 0;
    }
    Table table({"", "value"});
    table.Add({"triangles", std::to_string(mesh.triangles.size())});
    table.Add({"vertices in", std::to_string(mesh.positions.size())});
    table.Add({"vertices out", std::to_string(prepared.OutputVertexCount())});
    table.Add({"submeshes", std::to_string(prepared.submeshes.size())});
    table.Add({"ACMR before / after", Fixed(prepared.before.acmr, 3) + " / " + Fixed(prepared.after.acmr, 3)});
    table.Add({"ATVR before / after", Fixed(prepared.before.atvr, 3) + " / " + Fixed(prepared.after.atvr, 3)});
    table.Add({"import", Fixed(importSeconds * 1000.0, 1) + " ms"});
    table.Add({"normals + remap", Fixed(prepared.normalsSeconds * 1000.0, 1) + " ms"});
    table.Add({"split + tipsify", Fixed(prepared.reorderSeconds * 1000.0, 1) + " ms"});
    if (!options.output.empty())
        table.Add({"export", Fixed(exportSeconds * 1000.0, 1) + " ms"});
    table.Print(std::cout);
    return 0;
}

} // namespace

Command RegisterMeshCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<MeshOptions>();
    subcommand = app.add_subcommand("mesh", "Smooth normals with a crease angle, split into 16-bit submeshes, "
                                            "reorder each for the vertex cache (Tipsify) and export");
    subcommand->add_option("IN", options->input, "input mesh (OBJ, PLY, STL, glTF, ... anything Assimp reads)")
        ->required();
    subcommand->add_option("-o,--output", options->output, "output mesh; its extension picks the format");
    subcommand->add_option("--crease", options->creaseDegrees, "crease angle in degrees")
        ->check(CLI::Range(0.0, 180.0))
        ->capture_default_str();
    subcommand->add_option("--cache", options->cacheSize, "vertex cache size to optimise for")
        ->check(CLI::Range(1u, 65535u))
        ->capture_default_str();
    subcommand->add_flag("--json", options->json, "print the report as JSON");
    subcommand->add_flag("--force", options->force, "overwrite an existing output");
    return [options] { return RunMesh(*options); };
}

} // namespace Zorvan::Tool
