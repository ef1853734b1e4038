#include "Isolation.h"

#include "Errors.h"
#include "Interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>

namespace Zorvan::Tool {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SanitizerBuild = true;
#else
constexpr bool SanitizerBuild = false;
#endif

// What the child sends: one frame, a kind byte and a length, then the bytes.
enum class Kind : unsigned char { Result = 0, Failure = 1, Usage = 2, OutOfMemory = 3 };
constexpr std::size_t FrameHeader = 1 + sizeof(std::uint64_t);

bool WriteAll(int fd, void const* data, std::size_t size)
{
    auto const* bytes = static_cast<char const*>(data);
    while (size != 0) {
        ssize_t const n = ::write(fd, bytes, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        bytes += n;
        size -= static_cast<std::size_t>(n);
    }
    return true;
}

std::uint64_t MappedBytes()
{
    std::ifstream statm("/proc/self/statm");
    std::uint64_t pages = 0;
    statm >> pages;
    return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

// The flag that makes a start of the executable an isolated child; what
// follows it: the job's name, the memory limit in bytes, the arguments.
constexpr char const* ChildFlag = "--zgu-isolated-job";
// The result pipe's descriptor in the child.
constexpr int ResultFd = 3;

void LimitAddressSpace(std::uint64_t bytes)
{
    if (bytes == 0 || SanitizerBuild)
        return;
    rlimit limit{};
    ::getrlimit(RLIMIT_AS, &limit);
    rlim_t const wanted = static_cast<rlim_t>(MappedBytes() + bytes);
    limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? wanted : std::min(wanted, limit.rlim_max);
    ::setrlimit(RLIMIT_AS, &limit);
}

[[noreturn]] void ServeChild(int argc, char** argv, std::span<IsolatedJobEntry const> jobs)
{
    // Descriptors that another thread of the parent opened without
    // close-on-exec (a file being written) are no business of the job.
    ::close_range(ResultFd + 1, ~0u, 0);

    Kind kind = Kind::Result;
    std::string payload;
    try {
        if (argc < 4)
            throw Failure("an isolated child was started without its job");
        std::string const name = argv[2];
        LimitAddressSpace(std::strtoull(argv[3], nullptr, 10));
        std::vector<std::string> const arguments(argv + 4, argv + argc);
        auto const job = std::find_if(jobs.begin(), jobs.end(),
                                      [&name](IsolatedJobEntry const& entry) { return name == entry.name; });
        if (job == jobs.end())
            throw Failure("this executable has no isolated job named '" + name + "'");
        payload = job->run(arguments);
    } catch (UsageError const& e) {
        kind = Kind::Usage;
        payload = e.what();
    } catch (std::bad_alloc const&) {
        kind = Kind::OutOfMemory;
        payload.clear();
    } catch (std::exception const& e) {
        kind = Kind::Failure;
        payload = e.what();
    } catch (...) {
        kind = Kind::Failure;
        payload = "an unknown exception";
    }
    unsigned char header[FrameHeader];
    header[0] = static_cast<unsigned char>(kind);
    std::uint64_t const size = payload.size();
    std::memcpy(header + 1, &size, sizeof size);
    bool const sent = WriteAll(ResultFd, header, sizeof header) && WriteAll(ResultFd, payload.data(), payload.size());
    // _exit: no atexit handlers, no static destructors, no leak report.
    ::_exit(sent ? 0 : 1);
}

// Starts the child; the caller holds the outputs lock, so that the child is
// registered for Ctrl-C's clean-up before that can run.
pid_t SpawnChild(int resultFd, IsolationLimits const& limits, std::string const& job,
                 std::vector<std::string> const& arguments)
{
    std::string const memory = std::to_string(limits.memoryBytes);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>("/proc/self/exe"));
    argv.push_back(const_cast<char*>(ChildFlag));
    argv.push_back(const_cast<char*>(job.c_str()));
    argv.push_back(const_cast<char*>(memory.c_str()));
    for (std::string const& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawnattr_init(&attributes);
    // The result pipe at a fixed number; nothing to read; stray prints of a
    // decoder go to stderr, never into a report written to stdout.
    ::posix_spawn_file_actions_adddup2(&actions, resultFd, ResultFd);
    ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions, STDERR_FILENO, STDOUT_FILENO);
    // The calling thread blocks the signals that the clean-up thread waits
    // for; the child takes them, and SIGPIPE, the default way.
    sigset_t none;
    sigemptyset(&none);
    sigset_t defaults;
    sigemptyset(&defaults);
    for (int const signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGUSR2, SIGQUIT})
        sigaddset(&defaults, signal);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &defaults);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    pid_t child = -1;
    int const error = ::posix_spawn(&child, argv[0], &actions, &attributes, argv.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        errno = error;
        return -1;
    }
    return child;
}

std::string DescribeMiB(std::uint64_t bytes)
{
    return std::to_string((bytes + (1u << 20) - 1) >> 20) + " MiB";
}

std::string DescribeSeconds(double seconds)
{
    std::string text = std::to_string(seconds);
    text.erase(text.find_last_not_of('0') + 1);
    if (!text.empty() && text.back() == '.')
        text.pop_back();
    return text + " s";
}

class Pipe {
public:
    Pipe()
    {
        if (::pipe2(fds_, O_CLOEXEC) != 0)
            throw Failure(std::string("cannot create a pipe: ") + std::strerror(errno));
        // Above the descriptors the child's set-up renumbers (0 to 3), so
        // that none of its steps overwrites another's source.
        for (int& fd : fds_) {
            int const moved = ::fcntl(fd, F_DUPFD_CLOEXEC, 10);
            if (moved < 0) {
                int const error = errno;
                CloseRead();
                CloseWrite();
                throw Failure(std::string("cannot create a pipe: ") + std::strerror(error));
            }
            ::close(fd);
            fd = moved;
        }
    }
    ~Pipe()
    {
        CloseRead();
        CloseWrite();
    }
    Pipe(Pipe const&) = delete;
    Pipe& operator=(Pipe const&) = delete;
    int Read() const { return fds_[0]; }
    int Write() const { return fds_[1]; }
    void CloseRead() { Close(fds_[0]); }
    void CloseWrite() { Close(fds_[1]); }

private:
    static void Close(int& fd)
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    int fds_[2] = {-1, -1};
};

} // namespace

bool MemoryLimitSupported()
{
    return !SanitizerBuild;
}

void ServeIsolatedJobIfAsked(int argc, char** argv, std::span<IsolatedJobEntry const> jobs)
{
    if (argc >= 2 && std::strcmp(argv[1], ChildFlag) == 0)
        ServeChild(argc, argv, jobs);
}

std::string RunIsolated(std::string const& what, IsolationLimits const& limits, std::string const& job,
                        std::vector<std::string> const& arguments)
{
    Pipe pipe;
    pid_t child = -1;
    {
        auto const lock = LockOutputs();
        child = SpawnChild(pipe.Write(), limits, job, arguments);
        if (child < 0)
            throw Failure(what + " failed: cannot start a child process: " + std::strerror(errno));
        RegisterChildLocked(child);
    }
    pipe.CloseWrite();

    using Clock = std::chrono::steady_clock;
    auto const deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                             std::chrono::duration<double>(limits.seconds));
    std::string received;
    std::uint64_t expected = 0; // the payload's size, once the header is in
    bool timedOut = false;
    char buffer[1 << 16];
    // Until the frame is complete (not until end of file: the child may
    // have passed its end of the pipe to a grandchild) or the pipe closes.
    while (received.size() < FrameHeader || received.size() - FrameHeader < expected) {
        int timeoutMs = -1;
        if (limits.seconds > 0.0) {
            auto const left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
            if (left <= 0) {
                timedOut = true;
                break;
            }
            timeoutMs = static_cast<int>(std::min<long long>(left, 1 << 30));
        }
        pollfd poll{pipe.Read(), POLLIN, 0};
        int const ready = ::poll(&poll, 1, timeoutMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready == 0)
            continue; // the deadline is checked above
        ssize_t const n = ::read(pipe.Read(), buffer, sizeof buffer);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        bool const hadHeader = received.size() >= FrameHeader;
        received.append(buffer, static_cast<std::size_t>(n));
        if (!hadHeader && received.size() >= FrameHeader) {
            std::memcpy(&expected, received.data() + 1, sizeof expected);
            // Large results (decoded images) then arrive without regrowing.
            if (expected < (std::uint64_t(1) << 36))
                received.reserve(FrameHeader + static_cast<std::size_t>(expected));
        }
    }
    if (timedOut)
        ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    UnregisterChild(child);

    if (timedOut)
        throw Failure(what + " took longer than " + DescribeSeconds(limits.seconds) + " and was stopped");
    std::uint64_t size = 0;
    if (received.size() >= FrameHeader)
        std::memcpy(&size, received.data() + 1, sizeof size);
    bool const complete = received.size() >= FrameHeader && received.size() - FrameHeader == size;
    if (!complete || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        if (WIFSIGNALED(status)) {
            int const signal = WTERMSIG(status);
            std::string const name = ::strsignal(signal) != nullptr ? ::strsignal(signal) : "unknown signal";
            if (signal == SIGKILL)
                throw Failure(what + " was killed (signal 9, " + name + "), perhaps for using too much memory");
            throw Failure(what + " crashed (signal " + std::to_string(signal) + ", " + name + ")");
        }
        throw Failure(what + " ended without a result (exit status " +
                      std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : -1) + ")");
    }
    Kind const kind = static_cast<Kind>(received[0]);
    received.erase(0, FrameHeader); // in place: a decoded image is not copied again
    switch (kind) {
    case Kind::Result:
        return received;
    case Kind::Usage:
        throw UsageError(received);
    case Kind::OutOfMemory:
        throw Failure(what + " ran out of memory" +
                      (limits.memoryBytes != 0 && MemoryLimitSupported()
                           ? " (limit " + DescribeMiB(limits.memoryBytes) + ")"
                           : std::string()));
    case Kind::Failure:
        break;
    }
    throw Failure(received);
}

} // namespace Zorvan::Tool
