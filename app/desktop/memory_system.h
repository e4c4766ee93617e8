#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "core/discovery/login_items_simulation.h"
#include "core/discovery/script_running.h"
#include "core/discovery/tool_running.h"
#include "core/launchd/launchctl_running.h"
#include "core/launchd/launchd_simulation.h"

namespace holdenmere::desktop {

// launchd for a UI fixture, simulated in memory: "enable", "disable",
// "bootout" and "bootstrap" change it as launchd would; nothing reaches the
// real launchd. Safe to call from any thread.
class MemoryLaunchctl final : public LaunchctlRunning {
public:
    void setLoaded(const std::string& label, bool loaded);
    void setDisabled(const std::string& label, bool disabled);
    // The label that "bootstrap" of this plist loads.
    void setPlist(const std::string& plistPath, const std::string& label);

    std::int32_t run(const std::vector<std::string>& arguments) override;
    bool isLoaded(std::string_view label) override;
    bool isDisabled(std::string_view label) override;
    std::optional<std::set<std::string>> disabledLabels() override;
    std::optional<std::map<std::string, bool>> disabledMarks() override;
    // The service table and a job's own "print" are not simulated: launchd
    // could not tell.
    std::optional<std::vector<std::string>> serviceLabels() override { return std::nullopt; }
    std::optional<std::string> print(std::string_view) override { return std::nullopt; }
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>& arguments) override {
        return {run(arguments), {}};
    }

private:
    std::mutex mutex_;
    SimulatedLaunchd launchd_;
};

// System Events' Login Items for a UI fixture, simulated in memory: the
// auditor's scripts are answered and "delete" and "make new" change the
// list; a script System Events would refuse fails. Safe to call from any
// thread.
class MemoryLoginItems final : public ScriptRunning {
public:
    void add(SimulatedLoginItem item);
    std::optional<std::string> run(const std::string& script) override;

private:
    std::mutex mutex_;
    SimulatedLoginItems loginItems_;
};

// macOS's command-line tools for a UI fixture: "sfltool dumpbtm" prints an
// empty background-items record of the current user; no other tool starts.
// Safe to call from any thread.
class MemoryTools final : public ToolRunning {
public:
    ChildProcessResult run(const std::filesystem::path& tool, const std::vector<std::string>& arguments,
                           std::chrono::milliseconds timeLimit) override;
};

}  // namespace holdenmere::desktop
