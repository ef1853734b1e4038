#include "Isolation.h"

#include "Errors.h"
#include "Interrupts.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
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

[[noreturn]] void RunChild(int fd, IsolationLimits const& limits, std::function<std::string()> const& work)
{
    // Only the pipe stays open, so that other threads' pipes see their end
    // when their own children exit, not when this one does.
    if (fd > 3)
        ::close_range(3, static_cast<unsigned>(fd) - 1, 0);
    ::close_range(static_cast<unsigned>(fd) + 1, ~0u, 0);
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_UNBLOCK, &all, nullptr); // Ctrl-C reaches the child too
    ::signal(SIGPIPE, SIG_DFL);
    if (limits.memoryBytes != 0 && !SanitizerBuild) {
        rlimit limit{};
        ::getrlimit(RLIMIT_AS, &limit);
        rlim_t const wanted = static_cast<rlim_t>(MappedBytes() + limits.memoryBytes);
        limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? wanted : std::min(wanted, limit.rlim_max);
        ::setrlimit(RLIMIT_AS, &limit);
    }

    Kind kind = Kind::Result;
    std::string payload;
    try {
        payload = work();
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
    bool const sent = WriteAll(fd, header, sizeof header) && WriteAll(fd, payload.data(), payload.size());
    // _exit: no atexit handlers, no stdio flushes, no leak report of the
    // parent's copied heap.
    ::_exit(sent ? 0 : 1);
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

std::string RunIsolated(std::string const& what, IsolationLimits const& limits,
                        std::function<std::string()> const& work)
{
    Pipe pipe;
    pid_t child = -1;
    {
        // Registered under the lock that Ctrl-C's clean-up takes, so the
        // child is killed with the rest however the timing falls.
        auto const lock = LockOutputs();
        child = ::fork();
        if (child == 0)
            RunChild(pipe.Write(), limits, work);
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
