#include "core/takeover/login_ownership.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>

#include "core/discovery/startup_discovery.h"
#include "core/support/log_text.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

template <typename Record>
std::set<std::string> bundleIdentifiers(const std::vector<Record>& records) {
    std::set<std::string> identifiers;
    for (const auto& record : records) identifiers.insert(record.bundleIdentifier);
    return identifiers;
}

std::set<std::string> standardizedPaths(const std::set<std::string>& paths) {
    std::set<std::string> result;
    for (const auto& path : paths) result.insert(StartupDiscovery::standardizedPath(path));
    return result;
}

bool isOwnBundle(std::string_view bundleIdentifier) {
    return bundleIdentifier == StartupDiscovery::ownBundleIdentifier;
}

// An app Holdenmere starts from now on: imported once, however many Login
// Items it has, and each of them removed.
void planImport(LoginOwnership::Plan& plan, const LoginOwnership::LoginItem& item, const std::string& identifier,
                const std::string& path) {
    const bool planned = std::any_of(plan.imports.begin(), plan.imports.end(),
                                     [&](const ManagedApp& app) { return app.bundleIdentifier == identifier; });
    if (!planned) {
        ManagedApp app;
        app.bundleIdentifier = identifier;
        app.name = item.name;
        app.path = path;
        app.isEnabled = true;
        app.launchHidden = item.hidden;
        app.importedFromLoginItem = true;
        app.delaySeconds = 0;
        plan.imports.push_back(std::move(app));
        plan.logLines.push_back("imported: " + item.name + kDash + "was a macOS Login Item; Holdenmere now starts it");
    }
    plan.importRemovals.push_back(item);
}

}  // namespace

std::string LoginOwnership::standardizedPath(std::string_view path) { return StartupDiscovery::standardizedPath(path); }

LoginOwnership::Plan LoginOwnership::plan(const std::vector<LoginItem>& loginItems,
                                          const std::vector<ManagedApp>& managed,
                                          const std::vector<BlockedApp>& blocked,
                                          const std::set<std::string>& systemDaemonAppPaths,
                                          const std::set<std::string>& switchedOff,
                                          const std::vector<std::string>& leftToMacOS, bool systemDaemonsComplete) {
    const std::set<std::string> managedIdentifiers = bundleIdentifiers(managed);
    const std::set<std::string> blockedIdentifiers = bundleIdentifiers(blocked);
    const std::set<std::string> left(leftToMacOS.begin(), leftToMacOS.end());
    const std::set<std::string> daemonPaths = standardizedPaths(systemDaemonAppPaths);

    Plan plan;
    for (const auto& item : loginItems) {
        const std::string path = standardizedPath(item.path);
        if (!item.bundleIdentifier || !path.ends_with(".app") ||
            item.path.find("/LaunchDaemons/") != std::string::npos ||
            path.find("/LaunchDaemons/") != std::string::npos) {
            plan.ignored.push_back(item);
            plan.logLines.push_back("skipped: " + item.name + kDash + "not an app, left in Login Items");
            continue;
        }
        const std::string& identifier = *item.bundleIdentifier;
        if (isOwnBundle(identifier)) continue;
        if (left.count(identifier) != 0) {
            plan.logLines.push_back("skipped: " + item.name + kDash + "left to macOS at your choice");
        } else if (daemonPaths.count(path) != 0) {
            plan.logLines.push_back("skipped: " + item.name + kDash +
                                    "run by a system LaunchDaemon; left in Login Items");
        } else if (!systemDaemonsComplete && managedIdentifiers.count(identifier) == 0) {
            plan.logLines.push_back("skipped: " + item.name + kDash +
                                    "a system LaunchDaemon that could not be read may run it; left in Login Items");
        } else if (managedIdentifiers.count(identifier) != 0) {
            plan.managedRemovals.push_back(item);
            plan.logLines.push_back("taken over: " + item.name + kDash + "a managed app's Login Item; removed");
        } else if (blockedIdentifiers.count(identifier) != 0) {
            plan.blockRemovals.push_back(item);
            plan.logLines.push_back(
                "blocked: " + item.name + kDash +
                (switchedOff.count(identifier) != 0
                     ? "was switched off in Holdenmere but macOS still started it from Login Items; its Login Item "
                       "is removed"
                     : "not in Holdenmere, so its Login Item is removed"));
        } else {
            planImport(plan, item, identifier, path);
        }
    }
    return plan;
}

LoginOwnership::Migration LoginOwnership::migrate(const HoldenmereConfig& config,
                                                  const std::set<std::string>& systemDaemonAppPaths) {
    Migration migration;
    migration.config = config;
    std::vector<ManagedApp> kept;
    const std::set<std::string> daemonPaths = standardizedPaths(systemDaemonAppPaths);

    for (ManagedApp app : config.apps) {
        if (!app.isEnabled) {
            migration.movedToBlocked.push_back(app);
            migration.logLines.push_back("blocked: " + app.name + kDash +
                                         "was switched off in Holdenmere; it does not start at login");
            auto& blocked = migration.config.blockedApps;
            bool known = std::any_of(blocked.begin(), blocked.end(), [&](const BlockedApp& entry) {
                return entry.bundleIdentifier == app.bundleIdentifier;
            });
            if (!known) blocked.push_back(BlockedApp{app.bundleIdentifier, app.name, app.path});
            continue;
        }
        if (daemonPaths.count(standardizedPath(app.path)) > 0) {
            migration.droppedSystemDaemons.push_back(app);
            migration.logLines.push_back("dropped: " + app.name + kDash +
                                         "a system LaunchDaemon; launchd starts it, Holdenmere cannot gate it");
            continue;
        }
        const double stored = app.delaySeconds;
        if (!(stored >= 0 && stored <= HoldenmereConfig::kMaxDelay)) {
            app.delaySeconds = std::isnan(stored) || stored < 0 ? 0 : HoldenmereConfig::kMaxDelay;
            migration.clampedDelays.push_back(app);
            migration.logLines.push_back("clamped: " + app.name + kDash + "stored delay " + text::number(stored) +
                                         "s is outside 0-" + text::number(HoldenmereConfig::kMaxDelay) +
                                         "s; it now waits " + text::number(app.delaySeconds) + "s");
        }
        kept.push_back(std::move(app));
    }
    migration.config.apps = std::move(kept);
    return migration;
}

std::vector<ManagedApp> LoginOwnership::discoveredImports(const std::vector<StartupItem>& items,
                                                          const std::vector<ManagedApp>& managed,
                                                          const std::vector<BlockedApp>& blocked,
                                                          const std::set<std::string>& systemDaemonAppPaths,
                                                          const std::vector<std::string>& leftToMacOS) {
    const std::set<std::string> blockedIdentifiers = bundleIdentifiers(blocked);
    const std::set<std::string> left(leftToMacOS.begin(), leftToMacOS.end());
    const std::set<std::string> daemonPaths = standardizedPaths(systemDaemonAppPaths);

    std::vector<ManagedApp> imports;
    for (const auto& item : StartupDiscovery::unmanaged(items, managed)) {
        if (!std::holds_alternative<StartupItem::LaunchAgent>(item.source)) continue;
        const std::string path = standardizedPath(*item.path);
        if (blockedIdentifiers.count(item.bundleIdentifier) != 0 || left.count(item.bundleIdentifier) != 0 ||
            daemonPaths.count(path) != 0) {
            continue;
        }
        ManagedApp app;
        app.bundleIdentifier = item.bundleIdentifier;
        app.name = item.name;
        app.path = path;
        app.importedFromStartup = true;
        imports.push_back(std::move(app));
    }
    return imports;
}

std::vector<std::string> LoginOwnership::droppedArguments(const plist::Value& agentPlist) {
    std::vector<std::string> dropped;
    const plist::Value* arguments = agentPlist.find("ProgramArguments");
    if (arguments == nullptr || arguments->array() == nullptr) return dropped;
    const auto& list = *arguments->array();
    // The first element is the program's own name (argv[0]).
    for (std::size_t index = 1; index < list.size(); ++index) {
        if (const std::string* argument = list[index].string()) dropped.push_back(*argument);
    }
    return dropped;
}

std::vector<std::string> LoginOwnership::droppedArguments(const std::filesystem::path& agentPlistPath) {
    const auto agentPlist = plist::tryReadFile(agentPlistPath);
    return agentPlist ? droppedArguments(*agentPlist) : std::vector<std::string>{};
}

StartupSafety::Candidate LoginOwnership::agentCandidate(const ManagedApp& app, const std::string& label,
                                                        const std::string& plistPath) {
    StartupSafety::Candidate candidate;
    candidate.source = StartupSource::launchdJob;
    candidate.handle = label;
    candidate.name = app.name;
    candidate.ownerBundleIdentifier = app.bundleIdentifier;
    candidate.bundlePath = app.path;
    if (auto executable = StartupDiscovery::executableName(app.path)) {
        candidate.programPath = (std::filesystem::path(app.path) / "Contents/MacOS" / *executable).string();
    }
    // Read again: the plist may have changed since the scan.
    candidate.launchdOnlyReason = StartupDiscovery::launchdOnlyReason(std::filesystem::path(plistPath));
    return candidate;
}

void LoginOwnership::backfill(const std::vector<StartupItem>& disabledEligibleAgents, HoldenmereConfig& config,
                              std::vector<std::string>& lines) {
    for (const auto& app : config.apps) {
        if (!app.importedFromLoginItem) continue;
        const TakeoverRecord* record = config.takeover(app.bundleIdentifier);
        if (record != nullptr && !record->loginItems.empty()) continue;
        config.recordLoginItem(app.bundleIdentifier, app.name, RemovedLoginItem{app.path, app.launchHidden});
        lines.push_back("ledger: " + app.name + kDash + "Login Item recorded (imported before the ledger existed)");
    }

    // Labels some record already explains: the ledger's agents, held
    // helpers, and items the user chose to keep off.
    std::set<std::string> explained(config.keptOff.begin(), config.keptOff.end());
    for (const auto& record : config.takeovers) {
        for (const auto& agent : record.agents) explained.insert(agent.label);
    }
    for (const auto& helper : config.delayedHelpers) explained.insert(helper.label);

    for (const auto& item : disabledEligibleAgents) {
        const auto* agent = std::get_if<StartupItem::LaunchAgent>(&item.source);
        if (agent == nullptr || StartupDiscovery::ownLaunchdLabels.count(agent->label) != 0) continue;
        if (explained.count(agent->label) != 0) continue;
        auto app = std::find_if(config.apps.begin(), config.apps.end(), [&](const ManagedApp& candidate) {
            return candidate.bundleIdentifier == item.bundleIdentifier;
        });
        if (app == config.apps.end()) continue;
        const std::string name = app->name;
        config.recordAgent(item.bundleIdentifier, name, agent->label, agent->plistPath, /*inferred=*/true);
        explained.insert(agent->label);
        lines.push_back("ledger: " + name + kDash + "LaunchAgent " + agent->label +
                        " is disabled; probably by Holdenmere");
    }
}

std::vector<IneligibleStartupItem> LoginOwnership::shownIneligible(const std::vector<IneligibleStartupItem>& items,
                                                                   const std::vector<ManagedApp>& managed,
                                                                   const std::vector<BlockedApp>& blocked) {
    const std::set<std::string> managedIdentifiers = bundleIdentifiers(managed);
    const std::set<std::string> blockedIdentifiers = bundleIdentifiers(blocked);
    std::set<std::string> labels;
    std::vector<IneligibleStartupItem> ofManaged;
    std::vector<IneligibleStartupItem> others;
    for (const auto& item : items) {
        // A blocked app never starts through Holdenmere; what else starts it
        // is not Holdenmere's to show.
        if (isOwnBundle(item.bundleIdentifier) || blockedIdentifiers.count(item.bundleIdentifier) != 0) continue;
        if (!labels.insert(item.label).second) continue;
        // A managed app's items first: they run before the network and the
        // gate cannot hold them.
        (managedIdentifiers.count(item.bundleIdentifier) != 0 ? ofManaged : others).push_back(item);
    }
    ofManaged.insert(ofManaged.end(), others.begin(), others.end());
    return ofManaged;
}

std::vector<std::string> LoginOwnership::importedFailures(const std::vector<LaunchRecord>& records,
                                                          const std::vector<ManagedApp>& apps) {
    std::vector<std::string> lines;
    for (const auto& app : apps) {
        if (!app.importedFromLoginItem && !app.importedFromStartup) continue;
        bool failed = std::any_of(records.begin(), records.end(), [&](const LaunchRecord& record) {
            return record.bundleIdentifier == app.bundleIdentifier && record.outcome == LaunchOutcome::failed;
        });
        if (!failed) continue;
        lines.push_back(importedFailureLine(
            app.name, app.importedFromLoginItem ? ImportOrigin::loginItem : ImportOrigin::startupItem));
    }
    return lines;
}

std::string LoginOwnership::importedFailureLine(std::string_view appName, ImportOrigin origin) {
    std::string name(appName);
    if (origin == ImportOrigin::loginItem)
        return name + " was moved from Login Items and Holdenmere could not start it";
    return name + " was taken over from its macOS startup item and Holdenmere could not start it";
}

std::string LoginOwnership::doneLine(const std::vector<LaunchRecord>& records, int loginItemsNotRemoved) {
    auto count = [&](LaunchOutcome outcome) {
        return std::count_if(records.begin(), records.end(),
                             [&](const LaunchRecord& record) { return record.outcome == outcome; });
    };
    return "done: launched=" + std::to_string(count(LaunchOutcome::launched)) +
           " already_running=" + std::to_string(count(LaunchOutcome::alreadyRunning)) +
           " failed=" + std::to_string(count(LaunchOutcome::failed)) +
           " login_items_not_removed=" + std::to_string(loginItemsNotRemoved);
}

std::string LoginOwnership::removedMessage(std::string_view appName) {
    return std::string(appName) + " will not start at login.";
}

std::string LoginOwnership::removeHelp(std::string_view appName) {
    const std::string name(appName);
    return "Removing " + name + " from Holdenmere does not give its Login Item or LaunchAgent back: " + name +
           " will not start at login. Add it to Holdenmere again, or to Login Items in System Settings, to have it "
           "start.";
}

}  // namespace holdenmere
