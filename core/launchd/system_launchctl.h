#pragma once

#include <chrono>
#include <filesystem>

#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// launchd through its command-line tool: each call starts launchctl as a
// child process with an argument vector, in the current user's GUI domain,
// and reads its text output with the parsers of launchctl_output.h. Holds no
// state besides its settings; any thread may call it. Every call has a time
// limit, after which launchctl is killed and the call answers as if the tool
// had failed.
class SystemLaunchctl final : public LaunchctlRunning {
public:
    struct Limits {
        // Questions: print, print-disabled.
        std::chrono::milliseconds read{5000};
        // Changes: enable, disable, bootout, bootstrap (launchd may take a
        // while to stop a job at bootout).
        std::chrono::milliseconds change{30000};
    };

    explicit SystemLaunchctl(std::filesystem::path tool = "/bin/launchctl");
    SystemLaunchctl(std::filesystem::path tool, Limits limits);

    // Output discarded; -1 when launchctl could not be started, ran past its
    // limit or was killed.
    std::int32_t run(const std::vector<std::string>& arguments) override;
    // "print gui/{uid}/{label}" exits 0; false for any other status and for
    // a launchctl that cannot be started.
    bool isLoaded(std::string_view label) override;
    // From "print-disabled gui/{uid}"; false when launchctl fails.
    bool isDisabled(std::string_view label) override;
    std::optional<std::set<std::string>> disabledLabels() override;
    std::optional<std::map<std::string, bool>> disabledMarks() override;
    std::optional<std::string> print(std::string_view target) override;
    std::optional<std::vector<std::string>> serviceLabels() override;
    // Standard output and standard error together. When launchctl cannot be
    // started the status is -1 and the output "failed to run launchctl:
    // {error}"; past its limit or killed, the status is -1 and the output is
    // what it printed followed by "launchctl timed out after 30s" (or "…
    // killed by signal 9").
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>& arguments) override;

    const std::filesystem::path& tool() const { return tool_; }
    const Limits& limits() const { return limits_; }

private:
    std::filesystem::path tool_;
    Limits limits_;
};

}  // namespace holdenmere
