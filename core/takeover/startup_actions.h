#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_entry.h"
#include "core/discovery/script_running.h"
#include "core/launchd/helper_repair.h"
#include "core/launchd/launchctl_running.h"
#include "core/launchd/login_agent_status.h"
#include "core/support/date.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {

// What one user action on startup state did: one line per item it touched,
// and whether every part of it went through.
struct [[nodiscard]] ActionOutcome {
    std::vector<std::string> lines;
    bool ok = true;

    void add(std::string line) { lines.push_back(std::move(line)); }
    void fail(std::string line) {
        lines.push_back(std::move(line));
        ok = false;
    }
};

// The actions a person takes in the desktop app on startup items, each one
// transaction of the startup-change engine: the startup mutation lock taken
// (without waiting: a login pass that holds it is busy changing startup
// items, and the person is told so), the configuration read under it, every
// recovery entry committed before its change, each change confirmed. They
// block while launchd and System Events answer, so callers run them off the
// window's thread.
class StartupActions {
public:
    struct Services {
        ConfigAccess config;
        LaunchctlRunning& launchctl;
        ScriptRunning& scripts;
        StartupSafety::Environment environment;
        // Where the plists of launchd jobs are looked up.
        std::vector<std::filesystem::path> agentDirectories = LaunchAgentScanner::defaultDirectories();
        // The switches of app extensions, launcher children and session
        // restore; without them their held items are left as they are.
        const StartupSwitches* switches = nullptr;
    };

    // What an inventory row allows.
    enum class RowAction { none, switchOff, switchOn };

    // A LaunchAgent as the desktop lists it.
    struct Agent {
        std::string label;
        std::string plistPath;
    };

    explicit StartupActions(Services services) : services_(std::move(services)) {}

    // The safety tier of switching an app's agent off, decided afresh (the
    // plist may have changed since it was listed).
    SafetyTier agentTier(const ManagedApp& app, const Agent& agent) const;
    // Why an agent of this tier is not taken over ("{name} was not taken
    // over: …"), before anything is asked of the system: a refused tier, or
    // one that needs confirmation without it. Nothing when it may go ahead.
    static std::optional<std::string> tierRefusal(const std::string& name, const SafetyTier& tier, bool confirmed);

    // Take Over: the app becomes a managed app (opened hidden when its Login
    // Item was), then its Login Item is removed, recorded first.
    ActionOutcome takeOverLoginItem(const ManagedApp& app, const std::string& loginItemPath) const;
    // Take Over: the app becomes a managed app, then its LaunchAgent is
    // switched off within its safety tier, recorded first.
    ActionOutcome takeOverAgent(const ManagedApp& app, const Agent& agent, bool confirmed) const;
    // Stop macOS Starting It: every Login Item and LaunchAgent of a managed
    // app that macOS also starts, each recorded first. Nothing changes when
    // an agent needs confirmation and `confirmed` is false.
    ActionOutcome stopMacOSStarting(const std::string& bundleIdentifier, const std::string& name,
                                    const std::vector<std::string>& loginItemPaths, const std::vector<Agent>& agents,
                                    bool confirmed) const;

    // A helper's mode: held until the network answers ("delay"), kept off,
    // or (nothing) started by macOS again.
    ActionOutcome setHelperMode(const DelayedHelper& helper, std::optional<DelayedHelper::Mode> mode,
                                HoldenmereLoginAgentStatus loginAgent) const;
    // Switches back on the helpers an earlier version left off without a
    // record; the steps go to the run log at `logPath`.
    ActionOutcome repairHelpers(const std::vector<HelperRepair::Candidate>& candidates,
                                const std::filesystem::path& logPath, Date now) const;

    // The action a row of the startup inventory allows: Switch On for an
    // item Holdenmere holds, Switch Off for a row that starts at login and
    // whose tier does not refuse it (ServiceManagement rows are listed
    // only), nothing for anything else.
    static RowAction actionFor(const StartupEntry& entry, const HoldenmereConfig& config);
    // Switch Off: the row is held off through its source's switch (an app
    // loginwindow reopens: quit after each login), recorded first, within
    // its tier (`confirmed`: the user accepted its warnings).
    ActionOutcome holdEntry(const StartupEntry& entry, bool confirmed, Date now) const;
    // Switch On: a held row is switched back on and no longer held.
    ActionOutcome unholdEntry(const StartupEntry& entry) const;

    // Give Everything Back: as --restore-startup, with the login agent
    // turned off by `turnOffLoginAgent` (its failure text, or nothing).
    ActionOutcome giveEverythingBack(const std::function<std::optional<std::string>()>& turnOffLoginAgent) const;

private:
    // Runs `work` in a transaction of its own; the outcome tells when the
    // transaction could not begin.
    ActionOutcome inTransaction(const std::function<void(StartupChangeEngine&, ActionOutcome&)>& work) const;
    // The refusal to take over an app that a system LaunchDaemon runs.
    std::optional<ActionOutcome> daemonRefusal(const ManagedApp& app) const;

    Services services_;
};

}  // namespace holdenmere
