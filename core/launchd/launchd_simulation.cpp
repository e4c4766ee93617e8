#include "core/launchd/launchd_simulation.h"

#include "core/launchd/launchctl_running.h"

namespace holdenmere {

std::int32_t SimulatedLaunchd::apply(const std::vector<std::string>& arguments) {
    if (arguments.empty()) return 64;
    const std::string& verb = arguments[0];
    const std::string prefix = launchdDomain() + "/";
    auto labelOf = [&](const std::string& target) {
        return target.starts_with(prefix) ? target.substr(prefix.size()) : target;
    };
    if (verb == "enable" && arguments.size() == 2) {
        const std::string label = labelOf(arguments[1]);
        if (stuckDisabled.count(label) == 0) {
            disabled.erase(label);
            enabledMarks.insert(label);
        }
    } else if (verb == "disable" && arguments.size() == 2) {
        const std::string label = labelOf(arguments[1]);
        disabled.insert(label);
        enabledMarks.erase(label);
    } else if (verb == "bootout" && arguments.size() == 2) {
        if (loaded.erase(labelOf(arguments[1])) == 0) return 113;  // "Could not find specified service"
    } else if (verb == "bootstrap" && arguments.size() == 3) {
        const auto known = labelOfPlist.find(arguments[2]);
        // "Bootstrap failed: 5: Input/output error"
        if (known == labelOfPlist.end() || disabled.count(known->second) != 0) return 5;
        loaded.insert(known->second);
    } else if (verb == "print" && arguments.size() == 2) {
        return loaded.count(labelOf(arguments[1])) != 0 ? 0 : 113;
    }
    return 0;
}

std::map<std::string, bool> SimulatedLaunchd::marks() const {
    std::map<std::string, bool> result;
    for (const auto& label : enabledMarks) result[label] = false;
    for (const auto& label : disabled) result[label] = true;
    return result;
}

}  // namespace holdenmere
