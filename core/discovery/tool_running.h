#pragma once

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "core/support/child_process.h"

namespace holdenmere {

// Asks a command-line tool of macOS something (pluginkit, lsappinfo,
// defaults, osascript, sfltool, systemextensionsctl): the one seam between
// the startup-source scanners and switches and the tools, so that their
// logic can run against a fake. Every call has a
// time limit and an argument vector, never a shell.
class ToolRunning {
public:
    virtual ~ToolRunning() = default;
    // Runs `tool` (its usual absolute path) with the arguments.
    virtual ChildProcessResult run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                                   std::chrono::milliseconds timeLimit) = 0;

    // Standard output when the tool exited 0 in time; otherwise nothing, and
    // `failure` says why: "pluginkit -mAD -vvv: timed out after 10s",
    // "...: exit status 1: {its first line on standard error}".
    std::optional<std::string> output(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                                      std::chrono::milliseconds timeLimit, std::string& failure);
};

// Runs nothing: every tool "could not start", so every source reads as
// unknown and nothing is changed.
class InertToolRunning final : public ToolRunning {
public:
    ChildProcessResult run(const std::filesystem::path& tool, const std::vector<std::string>&,
                           std::chrono::milliseconds) override {
        ChildProcessResult result;
        result.startError = "could not start " + tool.string() + ": no tools in this build";
        return result;
    }
};

// The tools themselves, or stand-ins of the same file name in `toolsFolder`
// when one is given (the tests' fakes).
class SystemToolRunning final : public ToolRunning {
public:
    explicit SystemToolRunning(std::optional<std::filesystem::path> toolsFolder = std::nullopt)
        : toolsFolder_(std::move(toolsFolder)) {}

    ChildProcessResult run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                           std::chrono::milliseconds timeLimit) override;

private:
    std::optional<std::filesystem::path> toolsFolder_;
};

}  // namespace holdenmere
