// Isolated work: whatever happens in the child comes back as a result or as
// one line naming what went wrong, and the caller goes on. The children are
// fresh starts of this test binary, which serves the jobs below from main.

#include "Errors.h"
#include "Isolation.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace Zorvan::Tool;

std::string Pattern()
{
    // Far beyond a pipe's buffer, with every byte value.
    std::string big(5 << 20, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7919 % 251);
    return big;
}

// A lock that some other thread of the parent holds while it starts a child;
// a forked child would wait on its copy forever.
std::mutex sharedLock;

std::string Join(std::vector<std::string> const& arguments)
{
    std::string text;
    for (auto const& argument : arguments)
        text += argument + "|";
    return text;
}

IsolatedJobEntry const TestJobs[] = {
    {"pattern", [](std::vector<std::string> const&) { return Pattern(); }},
    {"echo", [](std::vector<std::string> const& arguments) { return Join(arguments); }},
    {"usage", [](std::vector<std::string> const& a) -> std::string { throw UsageError(a.at(0)); }},
    {"failure", [](std::vector<std::string> const& a) -> std::string { throw Failure(a.at(0)); }},
    {"abort", [](std::vector<std::string> const&) -> std::string { std::abort(); }},
    {"sleep",
     [](std::vector<std::string> const&) -> std::string {
         std::this_thread::sleep_for(std::chrono::seconds(30));
         return "late";
     }},
    {"allocate",
     [](std::vector<std::string> const&) {
         std::vector<std::vector<char>> blocks;
         for (int i = 0; i < 64; ++i)
             blocks.emplace_back(16u << 20, 'x'); // 1 GiB in all
         return std::to_string(blocks.size());
     }},
    {"letters",
     [](std::vector<std::string> const& a) {
         std::size_t const t = std::stoul(a.at(0));
         std::this_thread::sleep_for(std::chrono::milliseconds(20 * (t % 3)));
         return std::string(100000 + t, static_cast<char>('a' + t));
     }},
    {"take-shared-lock",
     [](std::vector<std::string> const&) {
         std::lock_guard<std::mutex> const lock(sharedLock);
         return std::string("taken");
     }},
    {"environment",
     [](std::vector<std::string> const&) {
         // What the job finds: its blocked signals and descriptors above stderr.
         sigset_t blocked;
         pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
         std::string text = sigismember(&blocked, SIGINT) ? "SIGINT blocked;" : "SIGINT open;";
         for (int fd = 3; fd < 1024; ++fd)
             if (::fcntl(fd, F_GETFD) != -1) {
                 text += ' ';
                 text += std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).string();
             }
         return text;
     }},
};

std::string MessageOf(std::function<void()> const& call)
{
    try {
        call();
    } catch (std::exception const& e) {
        return e.what();
    }
    return "(no exception)";
}

TEST(Isolation, ResultsErrorsAndArgumentsComeBackWhole)
{
    EXPECT_EQ(RunIsolated("copying", {}, "pattern", {}), Pattern());
    EXPECT_EQ(RunIsolated("echoing", {}, "echo", {}), "");
    EXPECT_EQ(RunIsolated("echoing", {}, "echo", {"a b", "", "ünï'cödé\"", "-x"}), "a b||ünï'cödé\"|-x|");

    EXPECT_THROW(RunIsolated("x", {}, "usage", {"unsupported format '.xyz'"}), UsageError);
    EXPECT_EQ(MessageOf([] { RunIsolated("x", {}, "failure", {"cannot read 'a.png'"}); }), "cannot read 'a.png'");
    EXPECT_EQ(MessageOf([] { RunIsolated("x", {}, "no-such-job", {}); }),
              "this executable has no isolated job named 'no-such-job'");
}

TEST(Isolation, CrashesAndHangsBecomeOneLineErrors)
{
    std::string const crash = MessageOf([] { RunIsolated("decoding 'a.png'", {}, "abort", {}); });
    EXPECT_EQ(crash.rfind("decoding 'a.png' crashed (signal 6", 0), 0u) << crash;

    IsolationLimits limits;
    limits.seconds = 0.2;
    auto const start = std::chrono::steady_clock::now();
    std::string const hang = MessageOf([&limits] { RunIsolated("importing 'b.obj'", limits, "sleep", {}); });
    EXPECT_EQ(hang, "importing 'b.obj' took longer than 0.2 s and was stopped");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(Isolation, RunawayAllocationStopsAtTheLimit)
{
    if (!MemoryLimitSupported())
        GTEST_SKIP() << "sanitizer build: the memory limit is not applied (shadow memory needs terabytes)";
    IsolationLimits limits;
    limits.memoryBytes = 64u << 20;
    std::string const message = MessageOf([&limits] { RunIsolated("decoding 'bomb.png'", limits, "allocate", {}); });
    EXPECT_EQ(message, "decoding 'bomb.png' ran out of memory (limit 64 MiB)");
    // The limit is the child's alone.
    std::vector<char> parent(256u << 20, 'y');
    EXPECT_EQ(parent.back(), 'y');
}

TEST(Isolation, ThreadsIsolateAtOnceWithoutMixingResults)
{
    std::vector<std::string> results(8);
    std::vector<std::thread> threads;
    for (std::size_t t = 0; t < results.size(); ++t)
        threads.emplace_back(
            [t, &results] { results[t] = RunIsolated("work " + std::to_string(t), {}, "letters", {std::to_string(t)}); });
    for (auto& thread : threads)
        thread.join();
    for (std::size_t t = 0; t < results.size(); ++t)
        EXPECT_EQ(results[t], std::string(100000 + t, static_cast<char>('a' + t)));
}

// What a fork of a busy process gets wrong: the child would inherit the lock
// as held, by a thread it does not have, and the signal mask of the thread
// that started it, and every descriptor some other thread left open.
TEST(Isolation, ChildrenStartCleanWhateverTheParentHolds)
{
    IsolationLimits limits;
    limits.seconds = 20.0;
    std::unique_lock<std::mutex> held(sharedLock);
    EXPECT_EQ(RunIsolated("locking", limits, "take-shared-lock", {}), "taken");
    held.unlock();

    int const open = ::open("/proc/self/exe", O_RDONLY); // no close-on-exec, as an ofstream's
    ASSERT_GE(open, 0);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGINT);
    sigset_t previous;
    pthread_sigmask(SIG_BLOCK, &blocked, &previous);
    std::string const environment = RunIsolated("looking", limits, "environment", {});
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    ::close(open);
    // Only the result pipe is open above stderr.
    EXPECT_EQ(environment.rfind("SIGINT open; pipe:[", 0), 0u) << environment;
    EXPECT_EQ(environment.find(' ', 14), std::string::npos) << environment;
}

} // namespace

int main(int argc, char** argv)
{
    ServeIsolatedJobIfAsked(argc, argv, TestJobs);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
