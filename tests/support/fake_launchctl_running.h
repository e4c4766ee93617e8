#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/launchd/launchctl_running.h"

namespace holdenmere::testing {

// launchd's state for one user, kept in memory: which labels are loaded and
// which are disabled. "enable", "disable", "bootout" and "bootstrap" change
// it as launchd would; every call is recorded, so tests can assert the exact
// argument vectors in order. `exitStatus` makes a subcommand fail instead.
class FakeLaunchctlRunning final : public LaunchctlRunning {
public:
    std::set<std::string> loaded;
    std::set<std::string> disabled;
    // Labels that "bootstrap" of a plist path loads: plist path -> label.
    std::map<std::string, std::string> labelOfPlist;
    // A non-zero status here makes that subcommand ("enable", "bootstrap", …)
    // fail without changing anything.
    std::map<std::string, std::int32_t> exitStatus;
    // Labels whose disabled mark "enable" does not clear although it exits 0,
    // as launchd does for a service that a configuration profile disables.
    std::set<std::string> stuckDisabled;
    // When false, disabledLabels() is absent and isDisabled() is false, as
    // when launchd's output cannot be read.
    bool disabledListReadable = true;
    // Called before each read of the disabled list: lets a test change
    // launchd between the reads of one change.
    std::function<void()> beforeDisabledList;
    std::optional<std::vector<std::string>> services;
    // Labels launchd marks enabled: "enable" leaves such a mark, as launchd
    // does, and a test can set one up for a job whose plist says "Disabled".
    std::set<std::string> enabledMarks;

    std::vector<std::vector<std::string>> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    // The calls that change state (enable, disable, bootout, bootstrap).
    std::vector<std::vector<std::string>> changes() const {
        std::lock_guard lock(mutex_);
        std::vector<std::vector<std::string>> result;
        for (const auto& call : calls_) {
            if (!call.empty() && call[0] != "print" && call[0] != "print-disabled") result.push_back(call);
        }
        return result;
    }

    std::int32_t run(const std::vector<std::string>& arguments) override {
        std::lock_guard lock(mutex_);
        calls_.push_back(arguments);
        if (arguments.empty()) return 64;
        const std::string& verb = arguments[0];
        if (auto it = exitStatus.find(verb); it != exitStatus.end() && it->second != 0) return it->second;
        const std::string prefix = launchdDomain() + "/";
        auto labelOf = [&](const std::string& target) {
            return target.starts_with(prefix) ? target.substr(prefix.size()) : target;
        };
        if (verb == "enable" && arguments.size() == 2) {
            if (stuckDisabled.count(labelOf(arguments[1])) == 0) {
                disabled.erase(labelOf(arguments[1]));
                enabledMarks.insert(labelOf(arguments[1]));
            }
        } else if (verb == "disable" && arguments.size() == 2) {
            disabled.insert(labelOf(arguments[1]));
            enabledMarks.erase(labelOf(arguments[1]));
        } else if (verb == "bootout" && arguments.size() == 2) {
            if (loaded.erase(labelOf(arguments[1])) == 0) return 113;  // "Could not find specified service"
        } else if (verb == "bootstrap" && arguments.size() == 3) {
            auto it = labelOfPlist.find(arguments[2]);
            if (it == labelOfPlist.end()) return 5;  // "Bootstrap failed: 5: Input/output error"
            if (disabled.count(it->second) != 0) return 5;
            loaded.insert(it->second);
        } else if (verb == "print" && arguments.size() == 2) {
            return loaded.count(labelOf(arguments[1])) != 0 ? 0 : 113;
        }
        return 0;
    }
    bool isLoaded(std::string_view label) override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"print", launchdServiceTarget(label)});
        return loaded.count(std::string(label)) != 0;
    }
    bool isDisabled(std::string_view label) override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"print-disabled", launchdDomain()});
        return disabledListReadable && disabled.count(std::string(label)) != 0;
    }
    std::optional<std::set<std::string>> disabledLabels() override {
        if (beforeDisabledList) beforeDisabledList();
        std::lock_guard lock(mutex_);
        calls_.push_back({"print-disabled", launchdDomain()});
        if (!disabledListReadable) return std::nullopt;
        return disabled;
    }
    std::optional<std::map<std::string, bool>> disabledMarks() override {
        if (beforeDisabledList) beforeDisabledList();
        std::lock_guard lock(mutex_);
        calls_.push_back({"print-disabled", launchdDomain()});
        if (!disabledListReadable) return std::nullopt;
        std::map<std::string, bool> marks;
        for (const auto& label : enabledMarks) marks[label] = false;
        for (const auto& label : disabled) marks[label] = true;
        return marks;
    }
    std::optional<std::vector<std::string>> serviceLabels() override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"print", launchdDomain()});
        return services;
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::vector<std::string>> calls_;
};

}  // namespace holdenmere::testing
