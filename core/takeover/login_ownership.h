#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/login_items_auditor.h"
#include "core/startup/startup_item.h"
#include "core/support/plist.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// Makes Holdenmere the one that starts the managed apps at login, and keeps
// stored configurations up to date: the pure planning rules and the pass's
// report lines. The pass that carries a plan out through the
// startup-change engine is in login_ownership_pass.h, the re-assert of held
// startup items in startup_sources_pass.h.
namespace LoginOwnership {

using LoginItem = LoginItemsAuditor::LoginItem;
using AgentTakeoverResult = holdenmere::AgentTakeoverResult;

// What to do with the current Login Items.
struct Plan {
    std::vector<ManagedApp> imports;         // apps to add to the configuration
    std::vector<LoginItem> importRemovals;   // Login Items of those apps, to remove
    std::vector<LoginItem> blockRemovals;    // Login Items of blocked apps, to remove
    std::vector<LoginItem> managedRemovals;  // Login Items of managed apps, to remove
    std::vector<LoginItem> ignored;          // not apps; they stay
    std::vector<std::string> logLines;       // in Login-Item order

    // The log lines do not count.
    bool isEmpty() const {
        return imports.empty() && importRemovals.empty() && blockRemovals.empty() && managedRemovals.empty() &&
               ignored.empty();
    }
    friend bool operator==(const Plan&, const Plan&) = default;
};

// A stored configuration brought up to date.
struct Migration {
    HoldenmereConfig config;
    std::vector<ManagedApp> movedToBlocked;
    std::vector<ManagedApp> droppedSystemDaemons;
    std::vector<ManagedApp> clampedDelays;
    std::vector<std::string> logLines;

    // Whether anything changed, so that the caller saves.
    bool changed() const { return !movedToBlocked.empty() || !droppedSystemDaemons.empty() || !clampedDelays.empty(); }
};

// Where an imported app came from, for the warning when it fails to open.
enum class ImportOrigin { loginItem, startupItem };

// Why an app's agents stay as they are this pass (the rest of the line
// after "{name} — "), or nothing.
using StaysReason = std::function<std::optional<std::string>(const ManagedApp&)>;

// Decides, for each Login Item in order, by the first rule that matches:
// not an app (ignored), Holdenmere itself (nothing), left to macOS, run
// by a system LaunchDaemon, managed (removed), blocked (removed), else
// imported (removed). `switchedOff` holds the bundle identifiers the user
// switched off in Holdenmere; it only changes a blocked app's line. When
// not every system LaunchDaemon could be read (`systemDaemonsComplete`
// false), an app that is not managed may be run by one of those: its
// Login Item stays, and nothing is imported.
Plan plan(const std::vector<LoginItem>& loginItems, const std::vector<ManagedApp>& managed,
          const std::vector<BlockedApp>& blocked, const std::set<std::string>& systemDaemonAppPaths,
          const std::set<std::string>& switchedOff, const std::vector<std::string>& leftToMacOS,
          bool systemDaemonsComplete = true);

// Run at the start of every pass, before the network wait: managed apps
// switched off in the app become blocked apps, apps that a system
// LaunchDaemon runs leave the managed list, and stored delays outside
// 0 ... 40 s are clamped into that range. One line per change.
Migration migrate(const HoldenmereConfig& config, const std::set<std::string>& systemDaemonAppPaths);

// Apps to import from startup items other than Login Items (LaunchAgents
// that open an app's own executable): those with a path that are not
// Holdenmere, not managed, not blocked, not left to macOS and not run by
// a system LaunchDaemon; the first item of each app, in input order.
std::vector<ManagedApp> discoveredImports(const std::vector<StartupItem>& items, const std::vector<ManagedApp>& managed,
                                          const std::vector<BlockedApp>& blocked,
                                          const std::set<std::string>& systemDaemonAppPaths,
                                          const std::vector<std::string>& leftToMacOS);

// The arguments an agent's "ProgramArguments" passes after the program,
// which Holdenmere does not pass when it opens the app itself. Empty for
// a plist that cannot be read.
std::vector<std::string> droppedArguments(const plist::Value& agentPlist);
std::vector<std::string> droppedArguments(const std::filesystem::path& agentPlistPath);

// The safety candidate for one agent that opens `app`.
StartupSafety::Candidate agentCandidate(const ManagedApp& app, const std::string& label, const std::string& plistPath);

// Fills the ledger for changes made before it existed: imported Login
// Items of managed apps, and disabled LaunchAgents of managed apps that
// no record explains (recorded as inferred). One line per entry.
void backfill(const std::vector<StartupItem>& disabledEligibleAgents, HoldenmereConfig& config,
              std::vector<std::string>& lines);

// The ineligible startup items still worth showing: not Holdenmere's,
// not of a blocked app, the first of each label.
std::vector<IneligibleStartupItem> shownIneligible(const std::vector<IneligibleStartupItem>& items,
                                                   const std::vector<ManagedApp>& managed,
                                                   const std::vector<BlockedApp>& blocked);

// For each app imported in an earlier pass whose launch failed in this
// one, in the apps' order, its warning line.
std::vector<std::string> importedFailures(const std::vector<LaunchRecord>& records,
                                          const std::vector<ManagedApp>& apps);
std::string importedFailureLine(std::string_view appName, ImportOrigin origin = ImportOrigin::loginItem);
// "done: launched={n} already_running={n} failed={n}
// login_items_not_removed={n}", the counts from this pass's app records.
std::string doneLine(const std::vector<LaunchRecord>& records, int loginItemsNotRemoved);
// "{appName} will not start at login."
std::string removedMessage(std::string_view appName);
// The desktop app's help text about removing an app.
std::string removeHelp(std::string_view appName);

// "." and ".." resolved and a trailing slash dropped, without touching
// the file system: "/Applications/./Mail.app/" -> "/Applications/Mail.app".
std::string standardizedPath(std::string_view path);

}  // namespace LoginOwnership
}  // namespace holdenmere
