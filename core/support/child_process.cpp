#include "core/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <system_error>
#include <thread>

#include "core/support/spawn.h"

extern char** environ;

namespace holdenmere {
namespace {

using Clock = std::chrono::steady_clock;

class Pipe {
public:
    Pipe() {
#if defined(__linux__)
        if (::pipe2(fds_.data(), O_CLOEXEC) != 0) fds_ = {-1, -1};
#else
        if (::pipe(fds_.data()) != 0) {
            fds_ = {-1, -1};
        } else {
            for (int fd : fds_) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        }
#endif
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe() {
        closeRead();
        closeWrite();
    }
    bool valid() const { return fds_[0] >= 0; }
    int readEnd() const { return fds_[0]; }
    int writeEnd() const { return fds_[1]; }
    void closeRead() { closeOne(0); }
    void closeWrite() { closeOne(1); }

private:
    void closeOne(int index) {
        if (fds_[index] >= 0) ::close(fds_[index]);
        fds_[index] = -1;
    }
    std::array<int, 2> fds_{-1, -1};
};

struct Stream {
    Pipe* pipe;
    std::string* sink;
    std::size_t limit;
    bool open = true;
};

// Reads what is available now; false at end of file or on a hard error.
bool drain(Stream& stream) {
    const std::size_t limit = stream.limit;
    std::array<char, 16384> buffer{};
    for (;;) {
        ssize_t count = ::read(stream.pipe->readEnd(), buffer.data(), buffer.size());
        if (count > 0) {
            std::size_t room = stream.sink->size() < limit ? limit - stream.sink->size() : 0;
            stream.sink->append(buffer.data(), std::min(room, static_cast<std::size_t>(count)));
            continue;
        }
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
        return false;
    }
}

// Whether the child has ended, without reaping it: its process group stays
// addressable until the status is collected.
bool hasEnded(pid_t pid) {
    siginfo_t info{};
    for (;;) {
        info.si_pid = 0;
        if (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0) return info.si_pid == pid;
        if (errno != EINTR) return true;
    }
}

int reap(pid_t pid) {
    int status = 0;
    for (;;) {
        if (::waitpid(pid, &status, 0) == pid) return status;
        if (errno != EINTR) return -1;
    }
}

// Starts the tool with its output and error going to the pipes' write ends:
// in a process group of its own (so a time-out kills the tool's children
// too), default signal dispositions and an empty mask whatever this process
// set up. The spawn's error number, or 0 with `pid` set.
int spawnTool(const ChildProcessRequest& request, const Pipe& output, const Pipe& error, pid_t& pid) {
    SpawnSetup setup;
    setup.nullDevice(STDIN_FILENO)
        .descriptor(output.writeEnd(), STDOUT_FILENO)
        .descriptor(request.combineOutput ? output.writeEnd() : error.writeEnd(), STDERR_FILENO)
        .onlyNamedDescriptors()
        .ownProcessGroup()
        .defaultSignals({SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD});

    std::vector<std::string> argv{request.executable.string()};
    argv.insert(argv.end(), request.arguments.begin(), request.arguments.end());
    const std::vector<std::string> environment = request.environment ? *request.environment : environmentWith({});
    int spawned = 0;
    pid = setup.spawn(argv, &environment, spawned);
    return spawned;
}

// Only the child holds the write ends now, and reading never blocks.
void keepReadEnds(Pipe& output, Pipe& error) {
    output.closeWrite();
    error.closeWrite();
    for (int fd : {output.readEnd(), error.readEnd()}) ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
}

enum class Watched { ended, timedOut, pollFailed };

// Drains both streams until the child ends or the deadline passes; what is
// left in the pipes of a child that ended is read too.
Watched watchUntilEnded(pid_t pid, std::array<Stream, 2>& streams, Clock::time_point deadline) {
    bool timedOut = false;
    bool ended = false;
    std::chrono::microseconds idle{50};

    while (!ended && !timedOut) {
        std::array<pollfd, 2> watched{};
        nfds_t count = 0;
        for (auto& stream : streams) {
            if (stream.open) watched[count++] = pollfd{stream.pipe->readEnd(), POLLIN, 0};
        }
        auto remaining = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (remaining.count() <= 0) {
            timedOut = true;
            break;
        }
        if (count == 0) {
            // Both pipes are closed: the tool is exiting (usually within
            // microseconds), or lives on without them. Look again soon, then
            // less and less often.
            std::this_thread::sleep_for(std::min<std::chrono::microseconds>(idle, remaining));
            idle = std::min<std::chrono::microseconds>(idle * 2, std::chrono::milliseconds(5));
            ended = hasEnded(pid);
            continue;
        }
        // Wake up now and then: a tool that exits while a child of its own
        // keeps the pipes open must not hold us until the time limit.
        int slice = static_cast<int>(std::min<long long>(remaining.count(), 50));
        int ready = ::poll(watched.data(), count, slice);
        if (ready < 0 && errno != EINTR) break;
        for (auto& stream : streams) {
            if (stream.open) stream.open = drain(stream);
        }
        ended = hasEnded(pid);
    }
    if (ended) {
        for (auto& stream : streams) {
            if (stream.open) drain(stream);
        }
    }
    return timedOut ? Watched::timedOut : ended ? Watched::ended : Watched::pollFailed;
}

// Whatever is left of the group (a timed-out tool, or children a tool
// left behind) goes before the leader is reaped, while its id is still ours.
// The leader's wait status, or -1.
int killGroupAndReap(pid_t pid, bool timedOut) {
    ::kill(-pid, SIGKILL);
    if (timedOut) ::kill(pid, SIGKILL);
    return reap(pid);
}

// How the tool ended, from its wait status.
void noteEnding(const ChildProcessRequest& request, bool timedOut, int status, ChildProcessResult& result) {
    if (timedOut) {
        result.ending = ChildProcessResult::Ending::timedOut;
    } else if (status >= 0 && WIFEXITED(status)) {
        result.ending = ChildProcessResult::Ending::exited;
        result.status = WEXITSTATUS(status);
    } else if (status >= 0 && WIFSIGNALED(status)) {
        result.ending = ChildProcessResult::Ending::signalled;
        result.status = WTERMSIG(status);
    } else {
        result.ending = ChildProcessResult::Ending::couldNotStart;
        result.startError = "could not wait for " + request.executable.string();
    }
}

}  // namespace

std::string ChildProcessResult::describe(std::chrono::milliseconds timeout) const {
    switch (ending) {
        case Ending::exited: return "exit status " + std::to_string(status);
        case Ending::signalled: return "killed by signal " + std::to_string(status);
        case Ending::timedOut: {
            auto seconds = std::chrono::duration<double>(timeout).count();
            std::string text = std::to_string(seconds);
            text.erase(text.find_last_not_of('0') + 1);
            if (!text.empty() && text.back() == '.') text.pop_back();
            return "timed out after " + text + "s";
        }
        case Ending::couldNotStart: return startError;
    }
    return startError;
}

std::vector<std::string> environmentWith(const std::vector<std::string>& changes) {
    std::vector<std::string> result;
    auto nameOf = [](std::string_view entry) { return entry.substr(0, entry.find('=')); };
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string_view current(*entry);
        bool replaced = false;
        for (const auto& change : changes) replaced = replaced || nameOf(change) == nameOf(current);
        if (!replaced) result.emplace_back(current);
    }
    for (const auto& change : changes) {
        if (change.find('=') != std::string::npos) result.push_back(change);
    }
    return result;
}

ChildProcessResult runChildProcess(const ChildProcessRequest& request) {
    ChildProcessResult result;
    // A tool that is not there, or may not be run, is told without starting
    // a process, in the words posix_spawn would use.
    if (::access(request.executable.c_str(), X_OK) != 0) {
        result.startError = "could not start " + request.executable.string() + ": " + std::strerror(errno);
        return result;
    }
    Pipe output;
    Pipe error;
    if (!output.valid() || !error.valid()) {
        result.startError = std::string("could not create a pipe: ") + std::strerror(errno);
        return result;
    }
    pid_t pid = 0;
    if (const int spawned = spawnTool(request, output, error, pid); spawned != 0) {
        result.startError = "could not start " + request.executable.string() + ": " + std::strerror(spawned);
        return result;
    }
    keepReadEnds(output, error);

    std::array<Stream, 2> streams{Stream{&output, &result.output, request.outputLimit},
                                  Stream{&error, &result.error, request.errorLimit.value_or(request.outputLimit)}};
    const bool timedOut = watchUntilEnded(pid, streams, Clock::now() + request.timeout) == Watched::timedOut;
    const int status = killGroupAndReap(pid, timedOut);
    noteEnding(request, timedOut, status, result);
    return result;
}

}  // namespace holdenmere
