#pragma once

#include <string>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/background_item_scanner.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/login_items_auditor.h"

namespace holdenmere {

// One managed app that macOS also starts by itself, with every mechanism
// that does it: its Login Items, its LaunchAgents and its background items.
struct StartupConflict {
    ManagedApp managed;
    std::vector<LoginItemsAuditor::Conflict> loginItems;
    std::vector<LaunchAgentScanner::AgentConflict> agents;
    std::vector<BackgroundItemScanner::Conflict> backgroundItems;

    std::size_t sourceCount() const { return loginItems.size() + agents.size() + backgroundItems.size(); }
    const std::string& id() const { return managed.bundleIdentifier; }
    friend bool operator==(const StartupConflict&, const StartupConflict&) = default;
};

struct StartupConflicts {
    // The scanners' conflicts grouped by the managed app's bundle
    // identifier, groups in the order each identifier is first seen (Login
    // Items first, then LaunchAgents, then background items), each list in
    // its input order.
    static std::vector<StartupConflict> merge(const std::vector<LoginItemsAuditor::Conflict>& loginItems,
                                              const std::vector<LaunchAgentScanner::AgentConflict>& agents,
                                              const std::vector<BackgroundItemScanner::Conflict>& background = {});
    // The launchd labels a conflict names, for taking its agents over: each
    // agent's label, then each background item's LaunchAgent, once, in order.
    static std::vector<std::string> launchdLabels(const StartupConflict& conflict);
    // Whether the user must go to System Settings to end the conflict: no
    // Login Item (those are removed by script) and a background item that
    // only System Settings can switch off.
    static bool opensLoginItemsSettings(const StartupConflict& conflict);
};

}  // namespace holdenmere
