#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/launchd/launchctl_running.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// The launchctl side of switching one LaunchAgent of the user's GUI domain
// off on an app's behalf and back on again. Every switch is checked against
// launchd's disabled list afterwards: an exit status of 0 alone proves
// nothing (a configuration profile can keep a label enabled).
//
// Nothing here writes the recovery ledger; callers record the agent in the
// configuration before they switch it off.
class AgentTakeover {
public:
    // How one switch ended.
    struct Result {
        enum class Kind { switchedOff, alreadyOff, switchedOn, failed };

        Kind kind = Kind::failed;
        // Why it failed; for switchedOn, an optional note ("its plist is gone").
        std::string reason;

        static Result switchedOff() { return {Kind::switchedOff, {}}; }
        static Result alreadyOff() { return {Kind::alreadyOff, {}}; }
        static Result switchedOn(std::string note = {}) { return {Kind::switchedOn, std::move(note)}; }
        static Result failed(std::string reason) { return {Kind::failed, std::move(reason)}; }

        bool succeeded() const { return kind != Kind::failed; }
        friend bool operator==(const Result&, const Result&) = default;
    };

    // How an agent is switched off: only marked disabled, so that launchd
    // does not start it at the next login (a running job keeps running), or
    // also unloaded from this session at once.
    enum class Mechanism { disable, disableAndBootout };

    // Whether a plist file exists; the file system by default.
    using FileExists = std::function<bool(const std::string& path)>;

    // The launchctl runner must outlive this object. `environment` answers
    // the safety rules' questions about the machine; the default one reads
    // app bundles on disk and lists no system extensions.
    explicit AgentTakeover(LaunchctlRunning& launchctl, StartupSafety::Environment environment = systemEnvironment(),
                           FileExists fileExists = {});

    // The safety environment the default constructor uses.
    static StartupSafety::Environment systemEnvironment();

    const StartupSafety::Environment& environment() const { return environment_; }
    bool isDisabled(std::string_view label) { return launchctl_.isDisabled(label); }
    // launchd's disabled list; nothing when it cannot be read.
    std::optional<std::set<std::string>> disabledLabels() { return launchctl_.disabledLabels(); }

    // Marks the label disabled and checks that launchd took it: alreadyOff
    // (nothing run) when launchd lists it disabled before; failed with
    // "launchctl disable failed (exit {n})" or "LaunchAgent is still enabled
    // in launchd".
    Result takeOver(std::string_view label);

    // takeOver, but only where the safety tier allows: a refused tier fails
    // with its reason and a tier that needs confirmation fails unless
    // `confirmed`, in both cases without asking launchd anything. With
    // `disableAndBootout` the job is also unloaded after it was disabled; a
    // job that was not loaded is no failure.
    Result switchOff(std::string_view label, const SafetyTier& tier, bool confirmed, Mechanism mechanism);

    // Clears the disabled mark and checks it: switchedOn, or failed with
    // "launchctl enable failed (exit {n})" / "LaunchAgent is still disabled
    // in launchd". Nothing is loaded.
    Result switchOn(std::string_view label);

    // Gives a switched-off agent back: switchOn, then, when launchd has not
    // loaded the job, bootstraps its plist, so that it runs as it did before.
    // When the plist is gone the disabled mark is still cleared and the
    // result is switchedOn with the note "its plist is gone, so there is
    // nothing to load" (without a plist path, "no plist was recorded, so
    // nothing was loaded"); a bootstrap that fails is a failure.
    Result undo(std::string_view label, const std::string& plistPath);

private:
    // "launchctl {verb} failed (exit {n})" when the status is not 0.
    std::optional<std::string> runChecked(const std::vector<std::string>& arguments);

    LaunchctlRunning& launchctl_;
    StartupSafety::Environment environment_;
    FileExists fileExists_;
};

}  // namespace holdenmere

template <>
struct std::hash<holdenmere::AgentTakeover::Result> {
    std::size_t operator()(const holdenmere::AgentTakeover::Result& result) const noexcept {
        return std::hash<std::string>()(result.reason) * 31 + static_cast<std::size_t>(result.kind);
    }
};
