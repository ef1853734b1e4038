// Isolated work: whatever happens in the child comes back as a result or as
// one line naming what went wrong, and the caller goes on.

#include "Errors.h"
#include "Isolation.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

namespace {

using namespace Zorvan::Tool;

std::string MessageOf(std::function<void()> const& call)
{
    try {
        call();
    } catch (std::exception const& e) {
        return e.what();
    }
    return "(no exception)";
}

TEST(Isolation, ResultsAndErrorsComeBackWhole)
{
    // Far beyond a pipe's buffer, with every byte value.
    std::string big(5 << 20, '\0');
    for (std::size_t i = 0; i < big.size(); ++i)
        big[i] = static_cast<char>(i * 7919 % 251);
    EXPECT_EQ(RunIsolated("copying", {}, [&big] { return big; }), big);
    EXPECT_EQ(RunIsolated("nothing", {}, [] { return std::string(); }), "");

    EXPECT_THROW(RunIsolated("x", {}, []() -> std::string { throw UsageError("unsupported format '.xyz'"); }),
                 UsageError);
    EXPECT_EQ(MessageOf([] { RunIsolated("x", {}, []() -> std::string { throw Failure("cannot read 'a.png'"); }); }),
              "cannot read 'a.png'");
}

TEST(Isolation, CrashesAndHangsBecomeOneLineErrors)
{
    std::string const crash =
        MessageOf([] { RunIsolated("decoding 'a.png'", {}, []() -> std::string { std::abort(); }); });
    EXPECT_EQ(crash.rfind("decoding 'a.png' crashed (signal 6", 0), 0u) << crash;

    IsolationLimits limits;
    limits.seconds = 0.2;
    auto const start = std::chrono::steady_clock::now();
    std::string const hang = MessageOf([&limits] {
        RunIsolated("importing 'b.obj'", limits, []() -> std::string {
            std::this_thread::sleep_for(std::chrono::seconds(30));
            return "late";
        });
    });
    EXPECT_EQ(hang, "importing 'b.obj' took longer than 0.2 s and was stopped");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST(Isolation, RunawayAllocationStopsAtTheLimit)
{
    if (!MemoryLimitSupported())
        GTEST_SKIP() << "sanitizer build: the memory limit is not applied (shadow memory needs terabytes)";
    IsolationLimits limits;
    limits.memoryBytes = 64u << 20;
    std::string const message = MessageOf([&limits] {
        RunIsolated("decoding 'bomb.png'", limits, [] {
            std::vector<std::vector<char>> blocks;
            for (int i = 0; i < 64; ++i)
                blocks.emplace_back(16u << 20, 'x'); // 1 GiB in all
            return std::to_string(blocks.size());
        });
    });
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
        threads.emplace_back([t, &results] {
            results[t] = RunIsolated("work " + std::to_string(t), {}, [t] {
                std::this_thread::sleep_for(std::chrono::milliseconds(20 * (t % 3)));
                return std::string(100000 + t, static_cast<char>('a' + t));
            });
        });
    for (auto& thread : threads)
        thread.join();
    for (std::size_t t = 0; t < results.size(); ++t)
        EXPECT_EQ(results[t], std::string(100000 + t, static_cast<char>('a' + t)));
}

} // namespace
