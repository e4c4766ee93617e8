#include "core/discovery/startup_conflict.h"

#include <algorithm>

namespace holdenmere {

std::vector<StartupConflict> StartupConflicts::merge(const std::vector<LoginItemsAuditor::Conflict>& loginItems,
                                                     const std::vector<LaunchAgentScanner::AgentConflict>& agents,
                                                     const std::vector<BackgroundItemScanner::Conflict>& background) {
    std::vector<StartupConflict> groups;
    auto groupFor = [&](const ManagedApp& managed) -> StartupConflict& {
        auto found = std::find_if(groups.begin(), groups.end(), [&](const StartupConflict& group) {
            return group.managed.bundleIdentifier == managed.bundleIdentifier;
        });
        if (found != groups.end()) return *found;
        groups.push_back(StartupConflict{managed, {}, {}, {}});
        return groups.back();
    };
    for (const auto& conflict : loginItems) groupFor(conflict.managed).loginItems.push_back(conflict);
    for (const auto& conflict : agents) groupFor(conflict.managed).agents.push_back(conflict);
    for (const auto& conflict : background) groupFor(conflict.managed).backgroundItems.push_back(conflict);
    return groups;
}

std::vector<std::string> StartupConflicts::launchdLabels(const StartupConflict& conflict) {
    std::vector<std::string> labels;
    auto add = [&](const std::string& label) {
        if (std::find(labels.begin(), labels.end(), label) == labels.end()) labels.push_back(label);
    };
    for (const auto& agent : conflict.agents) add(agent.agentLabel);
    for (const auto& item : conflict.backgroundItems) {
        if (const auto* agent = std::get_if<BackgroundItemScanner::LaunchAgent>(&item.remedy)) add(agent->label);
    }
    return labels;
}

bool StartupConflicts::opensLoginItemsSettings(const StartupConflict& conflict) {
    return conflict.loginItems.empty() &&
           std::any_of(conflict.backgroundItems.begin(), conflict.backgroundItems.end(), [](const auto& item) {
               return std::holds_alternative<BackgroundItemScanner::OpenLoginItemsSettings>(item.remedy);
           });
}

}  // namespace holdenmere
