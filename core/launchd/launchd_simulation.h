#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace holdenmere {

// launchd's state for one user, simulated in memory: which labels are
// loaded, which are disabled or marked enabled, and which label a plist
// loads. The sample states of the desktop app and the tests' fakes answer
// launchctl through it, so that both follow launchd the same way. Not
// synchronized: its owner guards it.
struct SimulatedLaunchd {
    std::set<std::string> loaded;
    std::set<std::string> disabled;
    // Labels launchd marks enabled: "enable" leaves such a mark, and
    // "disable" replaces it.
    std::set<std::string> enabledMarks;
    // Labels whose disabled mark "enable" does not clear although it exits
    // 0, as launchd does for a service a configuration profile disables.
    std::set<std::string> stuckDisabled;
    // The label that "bootstrap" of a plist path loads.
    std::map<std::string, std::string> labelOfPlist;

    // "enable", "disable", "bootout", "bootstrap" and "print" of one
    // service, with launchctl's exit status: 113 for a service that is not
    // loaded, 5 for a bootstrap launchd refuses, 64 for no arguments.
    std::int32_t apply(const std::vector<std::string>& arguments);
    // What "print-disabled" lists: true for disabled, false for marked enabled.
    std::map<std::string, bool> marks() const;
};

}  // namespace holdenmere
