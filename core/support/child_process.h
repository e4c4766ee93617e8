#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// Runs a tool as a child process: started with posix_spawn from an argument
// vector (never through a shell), in a process group of its own, standard
// input from /dev/null, standard output and standard error captured through
// separate pipes that are drained together (so a chatty tool never blocks),
// and a time limit after which the whole group is killed and reaped.
namespace holdenmere {

struct ChildProcessRequest {
    std::filesystem::path executable;
    // argv[1...]; argv[0] is the executable path.
    std::vector<std::string> arguments;
    // The whole environment as "NAME=value"; nothing inherits this process's.
    std::optional<std::vector<std::string>> environment;
    std::chrono::milliseconds timeout{5000};
    // Captured bytes beyond this are read and dropped, per stream.
    std::size_t outputLimit = 16 * 1024 * 1024;
    // When set, the limit for standard error instead of `outputLimit`
    // (0 reads and drops all of it).
    std::optional<std::size_t> errorLimit;
    // Standard error goes into the standard output pipe, so `output` holds
    // both interleaved as the tool wrote them and `error` stays empty.
    bool combineOutput = false;
};

struct [[nodiscard]] ChildProcessResult {
    enum class Ending {
        exited,         // `status` is the exit status
        signalled,      // `status` is the signal number
        timedOut,       // killed when the time limit passed
        couldNotStart,  // `startError` says why
    };

    Ending ending = Ending::couldNotStart;
    int status = 0;
    std::string output;
    std::string error;
    std::string startError;

    bool succeeded() const { return ending == Ending::exited && status == 0; }
    // "exit status 3", "killed by signal 9", "timed out after 5s", or the start error.
    std::string describe(std::chrono::milliseconds timeout) const;
};

ChildProcessResult runChildProcess(const ChildProcessRequest& request);

// This process's environment with `changes` ("NAME=value") applied; a change
// "NAME" without '=' removes the variable.
std::vector<std::string> environmentWith(const std::vector<std::string>& changes);

}  // namespace holdenmere
