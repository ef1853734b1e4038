// zgu: mesh preparation, texture work and a demo of the library on a GPU.

#include "Commands.h"
#include "Errors.h"
#include "GlSession.h"
#include "ImageFile.h"
#include "Isolation.h"
#include "MeshJob.h"

#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

namespace {

// CLI11's messages can span lines; the tool promises one line per error.
std::string OneLine(std::string text)
{
    for (char& c : text)
        if (c == '\n')
            c = ' ';
    while (!text.empty() && text.back() == ' ')
        text.pop_back();
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    using namespace Zorvan::Tool;

    // What zgu runs in child processes, for inputs that may crash or exhaust it.
    static constexpr IsolatedJobEntry IsolatedJobs[] = {{DecodeImageJobName, DecodeImageJob},
                                                        {ImportMeshJobName, ImportMeshJob}};
    ServeIsolatedJobIfAsked(argc, argv, IsolatedJobs);

    CLI::App app{"zgu: prepares meshes for the vertex cache, builds mip chains and shows the Zorvan GPU "
                 "Utilities at work.\nWithout a subcommand it runs `demo`.",
                 "zgu"};
    app.require_subcommand(0, 1);
    // Subcommands pass options they do not know to zgu itself, so --device
    // may stand before or after the subcommand.
    app.fallthrough();
    int eglDevice = -1;
    app.add_option("--device", eglDevice,
                   "EGL device to draw on, by its index in `zgu info` (default: ZGU_EGL_DEVICE, else the first "
                   "hardware device, else Mesa's surfaceless platform)")
        ->check(CLI::NonNegativeNumber);

    std::vector<std::pair<CLI::App*, Command>> commands;
    CLI::App* demo = nullptr;
    Command runDemo = RegisterDemoCommand(app, demo);
    commands.emplace_back(demo, runDemo);
    CLI::App* sub = nullptr;
    Command run = RegisterMeshCommand(app, sub);
    commands.emplace_back(sub, run);
    run = RegisterImageCommand(app, sub);
    commands.emplace_back(sub, run);
    run = RegisterInfoCommand(app, sub);
    commands.emplace_back(sub, run);

    try {
        app.parse(argc, argv);
    } catch (CLI::CallForHelp const& e) {
        return app.exit(e);
    } catch (CLI::CallForAllHelp const& e) {
        return app.exit(e);
    } catch (CLI::ParseError const& e) {
        std::cerr << "zgu: " << OneLine(e.what()) << " (see zgu --help)\n";
        return ExitUsage;
    }

    ChooseEglDevice(eglDevice);
    Command chosen = runDemo;
    for (auto const& [subcommand, command] : commands)
        if (subcommand->parsed())
            chosen = command;

    try {
        return chosen();
    } catch (UsageError const& e) {
        std::cerr << "zgu: " << OneLine(e.what()) << "\n";
        return ExitUsage;
    } catch (std::exception const& e) {
        std::cerr << "zgu: " << OneLine(e.what()) << "\n";
        return ExitFailure;
    }
}
