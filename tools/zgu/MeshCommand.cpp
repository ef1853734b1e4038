// zgu mesh: import in a child process, degenerate triangles out,
// crease-aware normals, a vertex wherever any carried attribute differs,
// 16-bit submeshes in Tipsify order per material, and a writer of zgu's own
// per output format; reports what it wrote and names what it left out.

#include "Batch.h"
#include "Commands.h"
#include "Errors.h"
#include "MeshAssetPrep.h"
#include "MeshExport.h"
#include "MeshIo.h"
#include "MeshJob.h"
#include "Outputs.h"
#include "Table.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <iostream>
#include <memory>

#ifndef ZGU_TOOL_VERSION
#define ZGU_TOOL_VERSION "unknown"
#endif

namespace Zorvan::Tool {
namespace {
namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

// Meshes from this size on take long enough for progress lines to help.
constexpr std::size_t BigMeshTriangles = 100000;

struct MeshOptions {
    BatchOptions batch;
    std::string output;
    std::string to;
    double creaseDegrees = 30.0;
    unsigned cacheSize = 16;
    bool json = false;
    bool text = false;
};

double SecondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string Extension(fs::path const& path)
{
    std::string extension = path.extension().string();
    return extension.empty() ? extension : extension.substr(1);
}

// The output for one file: -o, or the batch's base with --to's extension
// (or the input's own) when there is an --out-dir or a --to; else none.
fs::path OutputFor(MeshOptions const& options, BatchFile const& file)
{
    if (!options.output.empty())
        return options.output;
    if (options.batch.outDir.empty() && options.to.empty())
        return {};
    std::string const extension =
        options.to.empty() ? file.input.extension().string() : "." + Extension("x." + options.to);
    return file.outputBase.string() + extension;
}

// The files a format writes beside the main one.
std::vector<fs::path> SideFiles(MeshFormat const& format, fs::path const& output)
{
    std::vector<fs::path> sides;
    for (char const* extension : format.sides)
        sides.push_back(fs::path(output).replace_extension(std::string(".") + extension));
    return sides;
}

bool IsUtf8(std::string const& text)
{
    std::size_t i = 0;
    while (i < text.size()) {
        auto const byte = static_cast<unsigned char>(text[i]);
        std::size_t const length = byte < 0x80          ? 1
                                   : (byte >> 5) == 6  ? 2
                                   : (byte >> 4) == 14 ? 3
                                   : (byte >> 3) == 30 ? 4
                                                       : 0;
        if (length == 0 || i + length > text.size())
            return false;
        for (std::size_t k = 1; k < length; ++k)
            if ((static_cast<unsigned char>(text[i + k]) >> 6) != 2)
                return false;
        i += length;
    }
    return true;
}

std::string DroppedSentence(std::vector<std::pair<std::string, std::uint64_t>> const& dropped)
{
    std::string text;
    for (auto const& [name, count] : dropped) {
        text += text.empty() ? "" : ", ";
        text += name;
        text += ' ';
        text += std::to_string(count);
    }
    return text;
}

// The folder an output would be created in must be, or be creatable as, a folder.
void CheckOutputFolder(fs::path const& output, std::string const& what)
{
    std::error_code error;
    for (fs::path folder = output.parent_path(); !folder.empty(); folder = folder.parent_path()) {
        fs::file_status const status = fs::status(folder, error);
        if (status.type() == fs::file_type::not_found) {
            if (folder == folder.parent_path())
                break;
            continue;
        }
        if (status.type() != fs::file_type::directory)
            throw UsageError("cannot write " + what + ": " + Quoted(folder) + " is a file, not a folder");
        break;
    }
}

FileResult RunMeshFile(MeshOptions const& options, BatchFile const& file)
{
    fs::path const output = OutputFor(options, file);
    MeshFormat const* format = output.empty() ? nullptr : FindMeshFormat(Extension(output));
    if (!output.empty()) {
        if (format == nullptr) // the plan was checked; this keeps a later change honest
            throw UsageError("cannot write " + Quoted(output) + ": zgu mesh writes " + MeshOutputExtensions());
        // Checked before the work; the commit checks again, atomically.
        CheckMayWrite(output, options.batch.force);
        for (fs::path const& side : SideFiles(*format, output))
            CheckMayWrite(side, options.batch.force);
    }

    std::vector<std::string> warnings;
    std::string const input = file.input.string();
    if (!IsUtf8(input))
        warnings.push_back("the name " + Quoted(file.input) +
                           " is not valid UTF-8; the JSON report shows U+FFFD for its bad bytes");

    auto start = std::chrono::steady_clock::now();
    MeshAsset asset = ImportMeshIsolated(file.input, options.batch.Limits());
    double const importSeconds = SecondsSince(start);

    bool const big = asset.TriangleCount() >= BigMeshTriangles;
    Progress progress = [big](std::string const& message) {
        if (big)
            std::cerr << "zgu: " + message + "\n";
    };
    progress("imported " + std::to_string(asset.TriangleCount()) + " triangles");

    PartLayout const layout = format != nullptr ? format->layout : PartLayout::Submeshes16;
    PreparedAsset prepared;
    try {
        prepared = PrepareAsset(asset, options.creaseDegrees, static_cast<std::uint16_t>(options.cacheSize), layout,
                                progress);
    } catch (Failure const& failure) {
        throw Failure(Quoted(file.input) + ": " + failure.what());
    }

    FileResult result;
    std::vector<std::pair<std::string, std::uint64_t>> dropped = asset.dropped;
    WrittenMesh written;
    written.vertices = prepared.VerticesOut();
    written.triangles = prepared.TrianglesOut();
    written.parts = prepared.parts.size();
    written.indexBits = 16;
    double exportSeconds = 0.0;
    if (format != nullptr) {
        progress("writing " + Quoted(output));
        start = std::chrono::steady_clock::now();
        std::vector<std::string> missing;
        std::vector<MeshMaterial> const materials =
            MaterialsForOutput(asset.materials, file.input.parent_path(), FolderOf(output), missing);
        std::vector<std::pair<std::string, std::uint64_t>> leftOut = LeftOutBy(*format, asset, materials);
        MeshWriteSettings settings;
        settings.text = options.text;
        settings.generator = std::string("zgu ") + ZGU_TOOL_VERSION;
        StagedOutputs staged(FolderOf(output));
        written = WriteMesh(*format, staged.Stage(output.filename().string()), prepared, materials, asset.images,
                            settings, leftOut);
        result.outputs = staged.Commit(options.batch.force);
        exportSeconds = SecondsSince(start);

        dropped.insert(dropped.end(), leftOut.begin(), leftOut.end());
        if (written.indexBits == 32 && written.vertices > Rendering::MaxSubmeshVertexCount)
            warnings.push_back(Quoted(output) + " holds one index list, so its " + std::to_string(written.vertices) +
                               " vertices take 32-bit indices; write .glb, .gltf or .obj for 16-bit submeshes");
        if (!missing.empty()) {
            std::string list;
            for (std::string const& name : missing) {
                list += list.empty() ? "" : ", ";
                list += name;
            }
            warnings.push_back("textures of " + Quoted(file.input) + " not found (the output names them anyway): " +
                               list);
        }
    }
    if (!dropped.empty())
        warnings.push_back(Quoted(file.input) + (format != nullptr ? " -> " + Quoted(output) : std::string()) +
                           ": dropped " + DroppedSentence(dropped));

    Json& report = result.details;
    report["input"] = input;
    report["output"] = output.empty() ? Json() : Json(output.string());
    report["format"] = format == nullptr ? Json() : Json(format->extension);
    report["triangles"] = prepared.trianglesIn;
    report["degenerate_triangles"] = prepared.degenerateTriangles;
    report["triangles_out"] = written.triangles;
    report["vertices_in"] = prepared.verticesIn;
    report["vertices_remapped"] = prepared.verticesRemapped;
    report["vertices_out"] = written.vertices;
    report["materials"] = asset.materials.size();
    report["submeshes"] = written.parts;
    auto& perSubmesh = report["submesh_vertices"] = Json::array();
    if (format != nullptr && std::string_view(format->extension) == "stl")
        perSubmesh.push_back(written.vertices);
    else
        for (MeshPart const& part : prepared.parts)
            perSubmesh.push_back(part.positions.size());
    report["index_bits"] = written.indexBits == 0 ? Json() : Json(written.indexBits);
    std::size_t uvSets = 0;
    std::size_t colorSets = 0;
    for (MeshPrimitive const& primitive : asset.primitives) {
        uvSets = std::max(uvSets, primitive.uvSets.size());
        colorSets = std::max(colorSets, primitive.colorSets.size());
    }
    report["uv_sets"] = uvSets;
    report["color_sets"] = colorSets;
    report["crease_degrees"] = options.creaseDegrees;
    report["cache_size"] = options.cacheSize;
    report["acmr_before"] = prepared.before.acmr;
    report["acmr_after"] = prepared.after.acmr;
    report["atvr_before"] = prepared.before.atvr;
    report["atvr_after"] = prepared.after.atvr;
    auto& droppedJson = report["dropped"] = Json::object();
    for (auto const& [name, count] : dropped)
        droppedJson[name] = droppedJson.value(name, std::uint64_t(0)) + count;
    report["warnings"] = warnings;
    report["seconds"] = {{"import", importSeconds},
                         {"normals", prepared.normalsSeconds},
                         {"reorder", prepared.reorderSeconds},
                         {"export", exportSeconds}};

    // One write per line: -j threads print at once.
    for (std::string const& warning : warnings)
        std::cerr << "zgu: warning: " + warning + "\n";
    return result;
}

void PrintMesh(MeshOptions const& options, FileResult const& result)
{
    Json const& report = result.details;
    if (options.json) {
        Json document;
        document["schema_version"] = ReportSchemaVersion;
        for (auto const& [key, value] : report.items())
            document[key] = value;
        std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << "\n";
        return;
    }
    // The rows carry the JSON report's names, so that one reads like the other.
    Table table({"", "value"});
    auto const text = [](Json const& value) {
        if (value.is_null())
            return std::string("-");
        if (value.is_number_float())
            return Fixed(value.get<double>(), 3);
        if (value.is_string())
            return value.get<std::string>();
        return value.dump();
    };
    for (char const* key : {"output", "format", "triangles", "degenerate_triangles", "triangles_out", "vertices_in",
                            "vertices_remapped", "vertices_out", "materials", "submeshes", "index_bits", "uv_sets",
                            "color_sets", "acmr_before", "acmr_after", "atvr_before", "atvr_after"})
        table.Add({key, text(report[key])});
    for (auto const& [name, count] : report["dropped"].items())
        table.Add({"dropped." + name, text(count)});
    for (char const* stage : {"import", "normals", "reorder", "export"})
        table.Add({std::string("seconds.") + stage, Fixed(report["seconds"][stage].get<double>(), 3)});
    table.Print(std::cout);
}

void CheckPlan(MeshOptions const& options, std::vector<BatchFile> const& files)
{
    for (BatchFile const& file : files) {
        fs::path const output = OutputFor(options, file);
        if (output.empty())
            continue;
        MeshFormat const* format = FindMeshFormat(Extension(output));
        if (format == nullptr)
            throw UsageError(Quoted(file.input) + " would be written as " + Quoted(output) +
                             ", a format zgu mesh does not write; choose one with --to (" + MeshOutputExtensions() +
                             ")");
        if (options.text && !format->binaryOrText)
            throw UsageError(std::string("--text applies to .ply and .stl, not to ") + format->name + " (" +
                             Quoted(output) + ")");
        CheckOutputFolder(output, Quoted(output));
    }
}

int RunMesh(MeshOptions const& options)
{
    std::error_code error;
    bool const oneFile =
        options.batch.inputs.size() == 1 && !fs::is_directory(options.batch.inputs[0], error);
    if (!options.output.empty()) {
        if (!options.batch.outDir.empty())
            throw UsageError("-o and --out-dir cannot be used together");
        if (!oneFile)
            throw UsageError(options.batch.inputs.size() == 1
                                 ? Quoted(options.batch.inputs[0]) + " is a folder; -o names one file's output, "
                                                                     "--out-dir DIR a folder's"
                                 : "-o names the output of one input; with several, use --out-dir");
        fs::path const output = options.output;
        if (fs::is_directory(output, error))
            throw UsageError("-o " + Quoted(output) + " is a folder; name the output file (" + MeshOutputExtensions() +
                             ") or use --out-dir");
        if (output.extension().empty())
            throw UsageError("-o " + Quoted(output) + " has no extension; zgu mesh writes " +
                             MeshOutputExtensions());
        if (FindMeshFormat(Extension(output)) == nullptr)
            throw UsageError("cannot write " + Quoted(output) + ": zgu mesh writes " + MeshOutputExtensions());
        if (!options.to.empty() && FindMeshFormat(Extension(output)) != FindMeshFormat(options.to))
            throw UsageError("-o " + Quoted(output) + " asks for " + Extension(output) + " but --to asks for " +
                             options.to);
    }
    if (!options.to.empty() && FindMeshFormat(options.to) == nullptr)
        throw UsageError("--to " + options.to + ": zgu mesh writes " + MeshOutputExtensions());
    if (!options.batch.outDir.empty() && fs::exists(options.batch.outDir, error) &&
        !fs::is_directory(options.batch.outDir, error))
        throw UsageError("--out-dir " + Quoted(options.batch.outDir) + " is a file, not a folder");
    if (options.json && !oneFile)
        throw UsageError("--json prints one file's report; for several, use --report FILE (- for stdout)");

    BatchCommand command;
    command.name = "mesh";
    command.inputKind = "mesh files Assimp reads";
    command.accepts = IsMeshFile;
    command.writesBesideInputs = !options.to.empty();
    command.settings = {{"crease_degrees", options.creaseDegrees},
                        {"cache_size", options.cacheSize},
                        {"to", options.to.empty() ? Json() : Json(Extension("x." + options.to))},
                        {"text", options.text},
                        {"memory_limit_mib", options.batch.memoryLimitMiB},
                        {"time_limit_seconds", options.batch.timeLimitSeconds}};
    command.run = [&options](BatchFile const& file) { return RunMeshFile(options, file); };
    command.printSingle = [&options](BatchFile const&, FileResult const& result) { PrintMesh(options, result); };
    command.checkPlan = [&options](std::vector<BatchFile> const& files) { CheckPlan(options, files); };
    return RunBatch(options.batch, command);
}

} // namespace

Command RegisterMeshCommand(CLI::App& app, CLI::App*& subcommand)
{
    auto options = std::make_shared<MeshOptions>();
    subcommand = app.add_subcommand("mesh", "Remove degenerate triangles, smooth normals with a crease angle, split "
                                            "each material's triangles into 16-bit submeshes, reorder each for the "
                                            "vertex cache (Tipsify) and write the whole asset");
    std::string const formats = MeshOutputExtensions();
    subcommand->add_option("-o,--output", options->output,
                           "one input's output mesh; its extension picks the format: " + formats +
                               " (missing folders are made)")
        ->type_name("OUT");
    subcommand->add_option("--to", options->to,
                           "output format for batches (" + formats +
                               "): written beside the inputs, or under --out-dir (default there: the input's own "
                               "format)")
        ->type_name("EXT");
    subcommand->add_option("--crease", options->creaseDegrees,
                           "crease angle in degrees, 0 to 180: faces meeting at a larger angle keep a hard edge "
                           "(0: flat shading)")
        ->type_name("DEG")
        ->check(NumberBetween(0.0, 180.0))
        ->capture_default_str();
    subcommand->add_option("--cache", options->cacheSize, "vertex cache size to optimise for, 1 to 65535")
        ->type_name("N")
        ->check(NumberBetween(1.0, 65535.0, true))
        ->capture_default_str();
    subcommand->add_flag("--text", options->text, "write PLY and STL as text instead of binary");
    subcommand->add_flag("--json", options->json, "print one file's report as JSON");
    AddBatchOptions(*subcommand, options->batch,
                    "input meshes (OBJ, PLY, STL, glTF, FBX, ... anything Assimp reads) or folders of them", true);
    return [options] { return RunMesh(*options); };
}

} // namespace Zorvan::Tool
