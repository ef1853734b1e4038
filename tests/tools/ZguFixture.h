#pragma once

// The end-to-end tests' harness: each test gets a fresh folder, runs the zgu
// binary in it as a user would, and reads back its files, output and exit
// code.

#if defined(__GNUC__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"
#endif
#include <stb_image.h>
#include <stb_image_write.h>
#if defined(__GNUC__)
#pragma GCC diagnostic pop
#endif

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <zlib.h>

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <thread>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace ZguTesting {

namespace fs = std::filesystem;

struct Result {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline std::string Slurp(fs::path const& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// Staging folders a run left anywhere below `root`.
inline std::vector<std::string> Leftovers(fs::path const& root)
{
    std::vector<std::string> found;
    for (auto const& entry : fs::recursive_directory_iterator(root))
        if (entry.path().filename().string().find(".staging") != std::string::npos)
            found.push_back(entry.path().string());
    return found;
}

struct Png {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> rgba;
    unsigned char const* At(int x, int y) const { return &rgba[(std::size_t(y) * width + x) * 4]; }
};

// Any image stb reads, as 8-bit RGBA.
inline Png LoadPng(fs::path const& path)
{
    Png png;
    int channels = 0;
    unsigned char* data = stbi_load(path.c_str(), &png.width, &png.height, &channels, 4);
    if (data != nullptr) {
        png.rgba.assign(data, data + std::size_t(png.width) * png.height * 4);
        stbi_image_free(data);
    }
    return png;
}

inline bool RequiredByEnvironment(char const* name)
{
    char const* value = std::getenv(name);
    return value != nullptr && std::string(value) == "1";
}

inline std::size_t CountLines(std::string const& text, std::string const& prefix)
{
    std::size_t count = 0;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        count += line.rfind(prefix, 0) == 0 ? 1 : 0;
    return count;
}

// An RGBA PNG file at its plainest: IHDR, one IDAT holding `scanlines` (each
// row led by its filter byte) compressed, IEND. Written apart from any PNG
// library, for inputs stb cannot write (16 bits) or should not (lies).
inline std::string PngFile(std::uint32_t width, std::uint32_t height, int bitDepth, std::string const& scanlines)
{
    uLongf size = compressBound(static_cast<uLong>(scanlines.size()));
    std::string packed(size, '\0');
    compress(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<Bytef const*>(scanlines.data()),
             static_cast<uLong>(scanlines.size()));
    packed.resize(size);
    auto const big = [](std::uint32_t v) {
        return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    };
    auto const chunk = [&big](std::string const& type, std::string const& data) {
        std::string const body = type + data;
        auto const crc = static_cast<std::uint32_t>(
            crc32(0, reinterpret_cast<Bytef const*>(body.data()), static_cast<uInt>(body.size())));
        return big(static_cast<std::uint32_t>(data.size())) + body + big(crc);
    };
    std::string const header = big(width) + big(height) + std::string{char(bitDepth), 6, 0, 0, 0};
    return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) + chunk("IDAT", packed) + chunk("IEND", "");
}

class ZguTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
        dir_ = fs::temp_directory_path() /
               ("zgu-e2e-" + std::to_string(::getpid()) + "-" + info->test_suite_name() + "-" + info->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override
    {
        if (!HasFailure())
            fs::remove_all(dir_);
    }

    fs::path Path(std::string const& name) const { return dir_ / name; }

    // The shell command that runs zgu with `arguments` in the test's folder;
    // `variables` are extra environment assignments, e.g. "NAME=value".
    std::string Command(std::string const& arguments, std::string const& variables = "") const
    {
        // Mesa's driver leaks a few small blocks and is unloaded before
        // LeakSanitizer reports, so they cannot be suppressed by module; the
        // commands that open the device check its resource count instead.
        bool const opensDevice = arguments.rfind("mesh", 0) != 0;
        std::string const environment =
            (opensDevice ? "ASAN_OPTIONS=\"${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0\" " : "") +
            (variables.empty() ? "" : variables + " ");
        return "cd '" + dir_.string() + "' && " + environment + "exec '" ZGU_EXECUTABLE "' " + arguments;
    }

    // Runs zgu and waits, at most ZGU_TEST_COMMAND_SECONDS (default 200, below
    // ctest's limit): a command still running then has the stacks of every
    // thread of it and of its children written into the test's failure, so
    // that a hang seen once, on one machine, can be understood there.
    Result Run(std::string const& arguments, std::string const& variables = "") const
    {
        std::string const command = Command(arguments, variables) + " >stdout.txt 2>stderr.txt";
        char const* shell[] = {"/bin/sh", "-c", command.c_str(), nullptr};
        pid_t child = -1;
        if (::posix_spawn(&child, shell[0], nullptr, nullptr, const_cast<char**>(shell), environ) != 0) {
            ADD_FAILURE() << "cannot start " << command;
            return {};
        }
        char const* limit = std::getenv("ZGU_TEST_COMMAND_SECONDS");
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(limit ? std::atoi(limit) : 200);
        int status = 0;
        for (;;) {
            pid_t const done = ::waitpid(child, &status, WNOHANG);
            if (done == child)
                break;
            if (std::chrono::steady_clock::now() > deadline) {
                ADD_FAILURE() << "zgu " << arguments << " did not finish; its threads and its children's:\n"
                              << StacksOf(child);
                ::kill(child, SIGKILL);
                ::system(("pkill -KILL -P " + std::to_string(child)).c_str());
                ::waitpid(child, &status, 0);
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        Result result;
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        result.out = Slurp(Path("stdout.txt"));
        result.err = Slurp(Path("stderr.txt"));
        return result;
    }

    // Every thread's stack of `pid` (the shell exec'd zgu, so it is zgu) and of
    // its children, through gdb when the machine has it.
    static std::string StacksOf(pid_t pid)
    {
        std::string const pids = "$(pgrep -P " + std::to_string(pid) + ") " + std::to_string(pid);
        std::string const command = "for p in " + pids +
                                    "; do echo \"== process $p: $(tr '\\0' ' ' </proc/$p/cmdline)\"; "
                                    "timeout 60 gdb -q -batch -p $p -ex 'thread apply all bt' 2>&1 | "
                                    "grep -E '^(Thread|#)'; done";
        std::string text;
        if (FILE* pipe = ::popen(command.c_str(), "r")) {
            char buffer[4096];
            while (std::size_t const n = std::fread(buffer, 1, sizeof buffer, pipe))
                text.append(buffer, n);
            ::pclose(pipe);
        }
        return text.empty() ? "(no stacks: is gdb installed?)" : text;
    }

    // A command line zgu must refuse before any work: exit code 2 and one
    // line on stderr, starting "zgu: " and holding `message`.
    void ExpectUsageError(std::string const& arguments, std::string const& message) const
    {
        Result const result = Run(arguments);
        EXPECT_EQ(result.exitCode, 2) << arguments << "\n" << result.err;
        EXPECT_EQ(CountLines(result.err, ""), 1u) << arguments << "\n" << result.err;
        EXPECT_EQ(result.err.rfind("zgu: ", 0), 0u) << arguments << "\n" << result.err;
        EXPECT_NE(result.err.find(message), std::string::npos) << arguments << "\n" << result.err;
    }

    // Ctrl-C as a user presses it: starts zgu, sends SIGINT once a staging
    // folder shows in the test's folder (holding a file, if asked), and waits
    // for zgu. finishedFirst: zgu ended before it could be interrupted.
    struct Interruption {
        bool finishedFirst = false;
        bool signalled = false;
        int exitCode = -1;
    };
    Interruption InterruptWhileStaging(std::string const& arguments, bool stagingHoldsAFile) const
    {
        std::string const command = Command(arguments) + " >stdout.txt 2>stderr.txt";
        char const* shell[] = {"/bin/sh", "-c", command.c_str(), nullptr};
        Interruption result;
        pid_t child = -1;
        if (::posix_spawn(&child, shell[0], nullptr, nullptr, const_cast<char**>(shell), environ) != 0)
            return result;
        auto const deadline = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        int status = 0;
        while (!result.signalled && std::chrono::steady_clock::now() < deadline) {
            if (::waitpid(child, &status, WNOHANG) == child) {
                result.finishedFirst = true;
                return result;
            }
            std::error_code error;
            for (auto const& entry : fs::directory_iterator(dir_, error))
                if (entry.path().filename().string().find(".staging") != std::string::npos &&
                    (!stagingHoldsAFile || !fs::is_empty(entry.path(), error))) {
                    ::kill(child, SIGINT);
                    result.signalled = true;
                    break;
                }
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
        if (!result.signalled)
            ::kill(child, SIGKILL);
        ::waitpid(child, &status, 0);
        result.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }

    // A device command that could not find a display: skip here, fail in CI.
    bool SkipForMissingDisplay(Result const& result)
    {
        if (result.exitCode != 1 || result.err.find("no EGL display") == std::string::npos)
            return false;
        if (RequiredByEnvironment("ZGU_REQUIRE_GL"))
            ADD_FAILURE() << "ZGU_REQUIRE_GL=1 but zgu found no GL device: " << result.err;
        return true;
    }

    void Write(std::string const& name, std::string const& text) const
    {
        fs::create_directories(Path(name).parent_path());
        std::ofstream(Path(name)) << text;
    }

    // A unit cube of 8 shared corners, 12 outward counter-clockwise triangles.
    void WriteCube(std::string const& name) const
    {
        Write(name, "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 0 1\nv 1 0 1\nv 1 1 1\nv 0 1 1\n"
                    "f 1 3 2\nf 1 4 3\nf 5 6 7\nf 5 7 8\nf 1 2 6\nf 1 6 5\n"
                    "f 2 3 7\nf 2 7 6\nf 3 4 8\nf 3 8 7\nf 4 1 5\nf 4 5 8\n");
    }

    fs::path dir_;
};

} // namespace ZguTesting
