#include "core/takeover/startup_items_listing.h"

#include <algorithm>
#include <exception>
#include <variant>

#include "core/apps/installed_app.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_conflict.h"
#include "core/discovery/startup_discovery.h"
#include "core/support/date.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

using Offered = StartupItemsListing::Offered;
using LeftAlone = StartupItemsListing::LeftAlone;
using Conflict = StartupItemsListing::Conflict;

// A script runner that notes whether the Login Items could be listed.
class NotingScripts final : public ScriptRunning {
public:
    explicit NotingScripts(ScriptRunning& inner) : inner_(inner) {}
    std::optional<std::string> run(const std::string& script) override {
        auto output = inner_.run(script);
        if (!output && script == LoginItemsAuditor::kListPathsScript) listFailed = true;
        return output;
    }
    bool listFailed = false;

private:
    ScriptRunning& inner_;
};

ManagedApp appOf(const StartupItem& item) {
    ManagedApp app;
    app.bundleIdentifier = item.bundleIdentifier;
    app.name = item.name;
    app.path = item.path.value_or(std::string());
    return app;
}

std::vector<std::string> chipsOf(const SafetyTier& tier) {
    return tier.kind == SafetyTier::Kind::needsConfirmation ? StartupSafety::chips(tier) : std::vector<std::string>{};
}

std::optional<SafetyTier> tierOf(const StartupScan& scan, const std::string& label) {
    auto tier = scan.agentTiers.find(label);
    if (tier == scan.agentTiers.end()) return std::nullopt;
    return tier->second;
}

std::optional<std::filesystem::path> iconOf(const StartupScan& scan, const std::string& path) {
    auto icon = scan.icons.find(path);
    if (icon == scan.icons.end()) return std::nullopt;
    return icon->second;
}

// The background items, with the safety tier of each LaunchAgent behind one;
// a complete result is saved for the login pass.
void scanBackgroundItems(StartupScan& scan, ToolRunning& tools, const StartupSafety::Environment& environment,
                         const BackgroundItemStore& store) {
    auto result = BackgroundItemScanner(tools).scan();
    if (!result.result) {
        scan.backgroundIncomplete = result.incomplete;
        return;
    }
    for (const auto& entry : result.result->items) {
        if (entry.item.path && scan.icons.count(*entry.item.path) == 0) {
            scan.icons[*entry.item.path] = InstalledApp::read(*entry.item.path).iconPath;
        }
        const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&entry.remedy);
        if (agent == nullptr) continue;
        scan.agentTiers[agent->label] = StartupSafety::tier(
            LoginOwnership::agentCandidate(appOf(entry.item), agent->label, agent->plistPath), environment);
    }
    try {
        store.save({*result.result, Date::now()});
    } catch (const std::exception& error) {
        // The listing shows what was read; the login pass keeps the earlier
        // scan, which the atomic save left in place.
        scan.backgroundNotSaved = error.what();
        scan.earlierBackgroundSaved = store.load().has_value();
    }
    scan.background = std::move(result.result);
}

// A background item's identifier, and the LaunchAgent behind it or the
// System Settings remedy.
void describeBackground(Offered& row, const StartupItem::BackgroundItem& source, const StartupScan& scan) {
    row.source = Offered::Source::backgroundItem;
    row.backgroundIdentifier = source.identifier;
    if (!scan.background) return;
    for (const auto& entry : scan.background->items) {
        if (std::get<StartupItem::BackgroundItem>(entry.item.source) != source) continue;
        row.opensItselfAtLogin = entry.appRecord;
        if (const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&entry.remedy)) {
            row.label = agent->label;
            row.plistPath = agent->plistPath;
            if (auto tier = tierOf(scan, agent->label)) row.tier = *tier;
        } else {
            row.opensLoginItemsSettings = true;
        }
        return;
    }
}

Offered offeredOf(const StartupItem& item, const StartupScan& scan, const std::set<std::string>& leftToMacOS) {
    Offered row;
    row.bundleIdentifier = item.bundleIdentifier;
    row.name = item.name;
    row.path = item.path.value_or(std::string());
    row.leftToMacOS = leftToMacOS.count(item.bundleIdentifier) != 0;
    row.iconPath = iconOf(scan, row.path);
    if (const auto* agent = std::get_if<StartupItem::LaunchAgent>(&item.source)) {
        row.source = Offered::Source::launchAgent;
        row.label = agent->label;
        row.plistPath = agent->plistPath;
        if (auto tier = tierOf(scan, agent->label)) row.tier = *tier;
    } else if (const auto* background = std::get_if<StartupItem::BackgroundItem>(&item.source)) {
        describeBackground(row, *background, scan);
    } else {
        for (const auto& loginItem : scan.loginItems) {
            if (loginItem.path == row.path) row.hidden = loginItem.hidden;
        }
    }
    row.chips = chipsOf(row.tier);
    return row;
}

// Every app a Login Item, a LaunchAgent or a background item starts, in that
// order, the first of each app.
std::vector<StartupItem> startupItemsOf(const StartupScan& scan) {
    std::vector<StartupItem> all;
    for (const auto& item : scan.loginItems) {
        if (item.bundleIdentifier) {
            all.push_back(StartupItem{*item.bundleIdentifier, item.name, item.path, StartupItem::LoginItem{}});
        }
    }
    all.insert(all.end(), scan.agentItems.begin(), scan.agentItems.end());
    std::optional<std::vector<StartupItem>> background;
    if (scan.background) background = scan.background->startupItems();
    return StartupDiscovery::merged(all, background);
}

// Adds a conflict's background items: LaunchAgents to its agents, the rest
// as items only System Settings can switch off.
void describeBackgroundConflict(Conflict& row, const StartupConflict& conflict, const StartupScan& scan) {
    for (const auto& item : conflict.backgroundItems) {
        const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&item.remedy);
        if (agent == nullptr) {
            row.settingsItems.push_back(item.identifier);
            continue;
        }
        const bool listed = std::any_of(row.agents.begin(), row.agents.end(),
                                        [&](const Conflict::Agent& known) { return known.label == agent->label; });
        if (listed) continue;
        Conflict::Agent entry{agent->label, agent->plistPath, {}, {}};
        if (auto tier = tierOf(scan, agent->label)) entry.tier = *tier;
        entry.chips = chipsOf(entry.tier);
        row.agents.push_back(std::move(entry));
    }
    row.opensLoginItemsSettings = StartupConflicts::opensLoginItemsSettings(conflict);
}

Conflict conflictOf(const StartupConflict& conflict, const StartupScan& scan) {
    Conflict row;
    row.bundleIdentifier = conflict.managed.bundleIdentifier;
    row.name = conflict.managed.name;
    for (const auto& loginItem : conflict.loginItems) {
        row.loginItems.push_back(loginItem.loginItem);
        if (!row.iconPath) row.iconPath = iconOf(scan, loginItem.loginItem.path);
    }
    for (const auto& agent : conflict.agents) {
        Conflict::Agent entry{agent.agentLabel, agent.plistPath, {}, {}};
        for (const auto& item : scan.agentItems) {
            const auto* source = std::get_if<StartupItem::LaunchAgent>(&item.source);
            if (row.iconPath || source == nullptr || source->label != agent.agentLabel || !item.path) continue;
            row.iconPath = iconOf(scan, *item.path);
        }
        if (auto tier = tierOf(scan, agent.agentLabel)) entry.tier = *tier;
        entry.chips = chipsOf(entry.tier);
        row.agents.push_back(std::move(entry));
    }
    describeBackgroundConflict(row, conflict, scan);
    if (!row.iconPath) row.iconPath = iconOf(scan, conflict.managed.path);
    return row;
}

std::vector<Conflict> conflictsOf(const StartupScan& scan, const std::vector<ManagedApp>& managed) {
    const auto agentConflicts = LaunchAgentScanner::conflicts(managed, scan.agentItems);
    std::vector<BackgroundItemScanner::Conflict> backgroundConflicts;
    if (scan.background) backgroundConflicts = BackgroundItemScanner::conflicts(*scan.background, managed);
    std::vector<Conflict> rows;
    for (const auto& conflict : StartupConflicts::merge(LoginItemsAuditor::conflicts(managed, scan.loginItems),
                                                        agentConflicts, backgroundConflicts)) {
        rows.push_back(conflictOf(conflict, scan));
    }
    return rows;
}

}  // namespace

StartupScan StartupScan::run(LaunchctlRunning& launchctl, ScriptRunning& scripts,
                             const std::vector<std::filesystem::path>& agentDirectories,
                             const StartupSafety::Environment& environment, ToolRunning& backgroundTools,
                             const BackgroundItemStore& backgroundStore) {
    StartupScan scan;
    NotingScripts noting(scripts);
    scan.loginItems = LoginItemsAuditor(noting).loginItems(/*readingHidden=*/true);
    scan.loginItemsUnreadable = noting.listFailed;
    const LaunchAgentScanner scanner(launchctl, agentDirectories);
    auto agents = scanner.startupItems();
    scan.agentItems = std::move(agents.items);
    scan.agentStatesUnknown = !agents.stateKnown();
    scan.ineligible = scanner.ineligibleItems();
    if (environment.systemDaemonAppPaths) scan.systemDaemonApps = environment.systemDaemonAppPaths();
    for (const auto& item : scan.agentItems) {
        const auto& agent = std::get<StartupItem::LaunchAgent>(item.source);
        scan.agentTiers[agent.label] =
            StartupSafety::tier(LoginOwnership::agentCandidate(appOf(item), agent.label, agent.plistPath), environment);
    }
    auto icon = [&](const std::optional<std::string>& path) {
        if (path && scan.icons.count(*path) == 0) scan.icons[*path] = InstalledApp::read(*path).iconPath;
    };
    for (const auto& item : scan.loginItems) {
        if (item.bundleIdentifier) icon(item.path);
    }
    for (const auto& item : scan.agentItems) icon(item.path);
    scanBackgroundItems(scan, backgroundTools, environment, backgroundStore);
    return scan;
}

StartupItemsListing StartupItemsListing::from(const StartupScan& scan, const HoldenmereConfig& config) {
    std::set<std::string> blocked;
    for (const auto& app : config.blockedApps) blocked.insert(app.bundleIdentifier);
    const std::set<std::string> leftToMacOS(config.leftToMacOS.begin(), config.leftToMacOS.end());

    StartupItemsListing listing;
    std::vector<LeftAlone> daemonRun;
    for (const auto& item : StartupDiscovery::unmanaged(startupItemsOf(scan), config.apps)) {
        if (blocked.count(item.bundleIdentifier) != 0) continue;
        if (item.path && StartupSafety::runBySystemDaemon(*item.path, scan.systemDaemonApps)) {
            const auto* agent = std::get_if<StartupItem::LaunchAgent>(&item.source);
            daemonRun.push_back(LeftAlone{item.name, item.bundleIdentifier, agent ? agent->label : *item.path,
                                          std::string(StartupSafety::kRunBySystemDaemon), false});
            continue;
        }
        listing.offered.push_back(offeredOf(item, scan, leftToMacOS));
    }

    std::set<std::string> managed;
    for (const auto& app : config.apps) managed.insert(app.bundleIdentifier);
    auto ineligible = scan.ineligible;
    if (scan.background) {
        ineligible.insert(ineligible.end(), scan.background->ineligible.begin(), scan.background->ineligible.end());
    }
    for (const auto& item : LoginOwnership::shownIneligible(ineligible, config.apps, config.blockedApps)) {
        listing.leftAlone.push_back(LeftAlone{item.name, item.bundleIdentifier, item.label, item.reason,
                                              managed.count(item.bundleIdentifier) != 0});
    }
    for (const auto& item : scan.loginItems) {
        if (item.bundleIdentifier) continue;
        listing.leftAlone.push_back(LeftAlone{item.name, {}, item.path, "not an app, left in Login Items", false});
    }
    listing.leftAlone.insert(listing.leftAlone.end(), daemonRun.begin(), daemonRun.end());

    listing.conflicts = conflictsOf(scan, config.apps);
    return listing;
}

}  // namespace holdenmere
