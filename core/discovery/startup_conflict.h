#pragma once

#include <string>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/login_items_auditor.h"

namespace holdenmere {

// One managed app that macOS also starts by itself, with every mechanism
// that does it: its Login Items and its LaunchAgents. (macOS's record of
// background items is not read by this build, so it contributes nothing.)
struct StartupConflict {
    ManagedApp managed;
    std::vector<LoginItemsAuditor::Conflict> loginItems;
    std::vector<LaunchAgentScanner::AgentConflict> agents;

    std::size_t sourceCount() const { return loginItems.size() + agents.size(); }
    const std::string& id() const { return managed.bundleIdentifier; }
    friend bool operator==(const StartupConflict&, const StartupConflict&) = default;
};

struct StartupConflicts {
    // The scanners' conflicts grouped by the managed app's bundle
    // identifier, groups in the order each identifier is first seen (Login
    // Items first, then LaunchAgents), each list in its input order.
    static std::vector<StartupConflict> merge(const std::vector<LoginItemsAuditor::Conflict>& loginItems,
                                              const std::vector<LaunchAgentScanner::AgentConflict>& agents);
    // The launchd labels a conflict names, for taking its agents over: each
    // agent's label once, in order.
    static std::vector<std::string> launchdLabels(const StartupConflict& conflict);
    // Whether the user must go to System Settings to end the conflict.
    // Login Items are removed by script and agents through launchd, so with
    // what this build reads the answer is always no.
    static bool opensLoginItemsSettings(const StartupConflict& conflict);
};

}  // namespace holdenmere
