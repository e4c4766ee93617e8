#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace holdenmere {

// The current user's GUI domain, "gui/{uid}", and a service target in it,
// "gui/{uid}/{label}".
std::string launchdDomain();
std::string launchdServiceTarget(std::string_view label);

// What launchctl said when its output was kept: the exit status (-1 when it
// could not be run) and its standard output and standard error as one text.
struct LaunchctlOutput {
    std::int32_t status = -1;
    std::string output;

    friend bool operator==(const LaunchctlOutput&, const LaunchctlOutput&) = default;
};

// What is asked of launchd for the current user, never told: the scanners
// and every other reader need no more, and so cannot switch a job. An absent
// answer means launchd could not be asked or its answer was not understood;
// callers keep it apart from an empty answer.
class LaunchdReading {
public:
    virtual ~LaunchdReading() = default;

    // "print gui/{uid}/{label}" exits 0.
    virtual bool isLoaded(std::string_view label) = 0;
    // The label's line of "print-disabled gui/{uid}" says disabled; false
    // also when the tool fails.
    virtual bool isDisabled(std::string_view label) = 0;
    // The labels "print-disabled gui/{uid}" lists as disabled.
    virtual std::optional<std::set<std::string>> disabledLabels() = 0;
    // launchd's enabled/disabled marks ("print-disabled gui/{uid}"): label ->
    // disabled. A label marked enabled runs even when its plist says
    // "Disabled"; an unmarked one goes by its plist.
    virtual std::optional<std::map<std::string, bool>> disabledMarks() = 0;
    // The output of "print {target}".
    virtual std::optional<std::string> print(std::string_view target) = 0;
    // The labels of the domain's service table ("print gui/{uid}"), in order.
    virtual std::optional<std::vector<std::string>> serviceLabels() = 0;
};

// What launchd is told: enable, disable, bootstrap, bootout. Only the
// startup-change engine and the login agent's installer tell it anything.
class LaunchdSwitching {
public:
    virtual ~LaunchdSwitching() = default;

    // launchctl with these arguments; the exit status, -1 when the tool could
    // not be started. Output is discarded.
    virtual std::int32_t run(const std::vector<std::string>& arguments) = 0;
    // launchctl with these arguments, keeping what it printed (the login
    // agent shows launchd's refusal).
    virtual LaunchctlOutput runCapturingOutput(const std::vector<std::string>& arguments) = 0;
};

// launchd for the current user, asked and told, as one seam so that the
// logic can run against a fake.
class LaunchctlRunning : public LaunchdReading, public LaunchdSwitching {};

// Asks nothing and changes nothing: every command "fails" with -1, nothing
// is loaded or disabled, and the lists are absent.
class InertLaunchctl final : public LaunchctlRunning {
public:
    std::int32_t run(const std::vector<std::string>&) override { return -1; }
    bool isLoaded(std::string_view) override { return false; }
    bool isDisabled(std::string_view) override { return false; }
    std::optional<std::set<std::string>> disabledLabels() override { return std::nullopt; }
    std::optional<std::map<std::string, bool>> disabledMarks() override { return std::nullopt; }
    std::optional<std::string> print(std::string_view) override { return std::nullopt; }
    std::optional<std::vector<std::string>> serviceLabels() override { return std::nullopt; }
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>&) override { return {-1, {}}; }
};

}  // namespace holdenmere
