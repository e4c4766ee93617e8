#include "core/discovery/startup_conflict.h"

#include <algorithm>

namespace holdenmere {

std::vector<StartupConflict> StartupConflicts::merge(const std::vector<LoginItemsAuditor::Conflict>& loginItems,
                                                     const std::vector<LaunchAgentScanner::AgentConflict>& agents) {
    std::vector<StartupConflict> groups;
    auto groupFor = [&](const ManagedApp& managed) -> StartupConflict& {
        auto found = std::find_if(groups.begin(), groups.end(), [&](const StartupConflict& group) {
            return group.managed.bundleIdentifier == managed.bundleIdentifier;
        });
        if (found != groups.end()) return *found;
        groups.push_back(StartupConflict{managed, {}, {}});
        return groups.back();
    };
    for (const auto& conflict : loginItems) groupFor(conflict.managed).loginItems.push_back(conflict);
    for (const auto& conflict : agents) groupFor(conflict.managed).agents.push_back(conflict);
    return groups;
}

std::vector<std::string> StartupConflicts::launchdLabels(const StartupConflict& conflict) {
    std::vector<std::string> labels;
    for (const auto& agent : conflict.agents) {
        if (std::find(labels.begin(), labels.end(), agent.agentLabel) == labels.end()) labels.push_back(agent.agentLabel);
    }
    return labels;
}

bool StartupConflicts::opensLoginItemsSettings(const StartupConflict&) { return false; }

}  // namespace holdenmere
