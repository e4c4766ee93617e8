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
#include "core/launchd/launchd_simulation.h"

namespace holdenmere::testing {

// launchd for one user, simulated in memory ("enable", "disable",
// "bootout" and "bootstrap" change it as launchd would); every call is
// recorded, so tests can assert the exact argument vectors in order.
// `exitStatus` makes a subcommand fail instead.
class FakeLaunchctlRunning final : public LaunchctlRunning, public SimulatedLaunchd {
public:
    // A non-zero status here makes that subcommand ("enable", "bootstrap", …)
    // fail without changing anything.
    std::map<std::string, std::int32_t> exitStatus;
    // When false, disabledLabels() is absent and isDisabled() is false, as
    // when launchd's output cannot be read.
    bool disabledListReadable = true;
    // Called before each read of the disabled list: lets a test change
    // launchd between the reads of one change.
    std::function<void()> beforeDisabledList;
    std::optional<std::vector<std::string>> services;

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
        if (!arguments.empty()) {
            if (auto it = exitStatus.find(arguments[0]); it != exitStatus.end() && it->second != 0) return it->second;
        }
        return apply(arguments);
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
        return marks();
    }
    std::optional<std::vector<std::string>> serviceLabels() override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"print", launchdDomain()});
        return services;
    }
    // A job's own "print" is not simulated: launchd could not tell.
    std::optional<std::string> print(std::string_view target) override {
        std::lock_guard lock(mutex_);
        calls_.push_back({"print", std::string(target)});
        return std::nullopt;
    }
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>& arguments) override {
        return {run(arguments), {}};
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::vector<std::string>> calls_;
};

// Passes every question and change on to another launchd; a test double
// overrides the calls it watches. What a change printed is not kept.
class ForwardingLaunchctl : public LaunchctlRunning {
public:
    explicit ForwardingLaunchctl(LaunchctlRunning& inner) : inner_(inner) {}

    std::int32_t run(const std::vector<std::string>& arguments) override { return inner_.run(arguments); }
    bool isLoaded(std::string_view label) override { return inner_.isLoaded(label); }
    bool isDisabled(std::string_view label) override { return inner_.isDisabled(label); }
    std::optional<std::set<std::string>> disabledLabels() override { return inner_.disabledLabels(); }
    std::optional<std::map<std::string, bool>> disabledMarks() override { return inner_.disabledMarks(); }
    std::optional<std::string> print(std::string_view target) override { return inner_.print(target); }
    std::optional<std::vector<std::string>> serviceLabels() override { return inner_.serviceLabels(); }
    LaunchctlOutput runCapturingOutput(const std::vector<std::string>& arguments) override {
        return {run(arguments), {}};
    }

private:
    LaunchctlRunning& inner_;
};

}  // namespace holdenmere::testing
