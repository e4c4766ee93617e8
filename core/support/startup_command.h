#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/support/child_process.h"

// The one way this program asks a command-line tool something (launchctl,
// and the tools the startup-source scanners read): a child process started
// from an argument vector, never through a shell, with a time limit after
// which the tool and everything it started are killed. Thin forms of
// runChildProcess for the three ways callers use a tool.
namespace holdenmere {

// How a tool ended when its standard output and standard error were read
// together.
struct [[nodiscard]] CommandOutcome {
    using Ending = ChildProcessResult::Ending;

    Ending ending = Ending::couldNotStart;
    // The exit status; -1 when the tool could not be started, ran past its
    // time limit or was killed by a signal.
    std::int32_t status = -1;
    // Standard output and standard error interleaved as the tool wrote them
    // (what was written before a time-out is kept).
    std::string output;
    // Why there is no exit status: the start error ("could not start …: …"),
    // "timed out after 30s" or "killed by signal 9"; empty when it exited.
    std::string failure;
};

struct StartupCommand {
    // The tool's standard output as text when it exits 0 within the time
    // limit. Nothing when it could not be started, ran past its limit, was
    // killed by a signal or exited non-zero: a failed tool has not answered.
    // Standard error is read and dropped. Bytes that are not UTF-8 become
    // U+FFFD, so the text is always valid UTF-8.
    static std::optional<std::string> run(const std::filesystem::path& executable,
                                          const std::vector<std::string>& arguments,
                                          std::chrono::milliseconds timeout);

    // The exit status, with both output streams drained and dropped; -1 when
    // the tool could not be started, ran past its limit or was killed.
    static std::int32_t exitStatus(const std::filesystem::path& executable, const std::vector<std::string>& arguments,
                                   std::chrono::milliseconds timeout);

    // Standard output and standard error through one pipe, and the status.
    static CommandOutcome runCombined(const std::filesystem::path& executable,
                                      const std::vector<std::string>& arguments, std::chrono::milliseconds timeout);
};

}  // namespace holdenmere
