#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <mutex>
#include <set>
#include <string>
#include <variant>

#include "core/config/config_store.h"
#include "core/launchd/launchctl_running.h"
#include "core/takeover/startup_transaction.h"
#include "tests/support/fake_launchctl_running.h"

namespace holdenmere::testing {

// config.json in memory, for the startup-change engine. Loads and saves are
// counted from 1; a listed one throws as the store does. The startup
// mutation lock is real: it lies beside `url`, in a temporary folder.
struct ConfigFile {
    explicit ConfigFile(std::filesystem::path path) : url(std::move(path)) {}

    std::filesystem::path url;
    HoldenmereConfig stored;
    int loads = 0;
    int saves = 0;
    std::set<int> failingLoads;
    std::set<int> failingSaves;
    // What another writer (the desktop app) changes before a load.
    std::function<void(HoldenmereConfig&)> beforeLoad;

    ConfigAccess access() {
        return ConfigAccess{url,
                            [this] {
                                if (failingLoads.count(++loads) != 0) {
                                    throw ConfigStoreError(ConfigStoreError::Kind::read, "disk gone");
                                }
                                if (beforeLoad) beforeLoad(stored);
                                return stored;
                            },
                            [this](const HoldenmereConfig& config) {
                                if (failingSaves.count(++saves) != 0) {
                                    throw ConfigStoreError(ConfigStoreError::Kind::write, "disk full");
                                }
                                stored = config;
                            }};
    }

    // A transaction over this file; fails the test when it cannot begin.
    StartupTransaction begin() {
        auto begun = StartupTransaction::begin(access(), StartupTransaction::Wait::never);
        if (auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
            ADD_FAILURE() << "transaction did not begin: " << failure->text(url);
        }
        return std::move(std::get<StartupTransaction>(begun));
    }
};

inline bool recordsAgent(const HoldenmereConfig& config, const std::string& label) {
    return std::any_of(config.takeovers.begin(), config.takeovers.end(), [&](const TakeoverRecord& record) {
        return std::any_of(record.agents.begin(), record.agents.end(),
                           [&](const DisabledAgent& agent) { return agent.label == label; });
    });
}

inline bool recordsLoginItem(const HoldenmereConfig& config, const std::string& path) {
    return std::any_of(config.takeovers.begin(), config.takeovers.end(),
                       [&](const TakeoverRecord& record) { return record.loginItem(path) != nullptr; });
}

inline bool holdsHelper(const HoldenmereConfig& config, const std::string& label) {
    return std::any_of(config.delayedHelpers.begin(), config.delayedHelpers.end(),
                       [&](const DelayedHelper& helper) { return helper.label == label; });
}

inline bool holdsItem(const HoldenmereConfig& config, const std::string& handle) {
    return std::any_of(config.heldStartup.begin(), config.heldStartup.end(),
                       [&](const HeldStartupItem& item) { return item.handle == handle; });
}

// launchd that fails the test when a label is disabled before its recovery
// entry (a take-over agent, a held helper or a held item) is in the saved
// configuration (`saved`, the configuration as stored now: in memory, or
// read from disk). Everything else goes to `inner`.
class CheckedLaunchctl final : public ForwardingLaunchctl {
public:
    CheckedLaunchctl(LaunchctlRunning& inner, const ConfigFile& file)
        : CheckedLaunchctl(inner, [&file] { return file.stored; }) {}
    CheckedLaunchctl(LaunchctlRunning& inner, std::function<HoldenmereConfig()> saved)
        : ForwardingLaunchctl(inner), saved_(std::move(saved)) {}
    std::int32_t run(const std::vector<std::string>& arguments) override {
        if (arguments.size() == 2 && arguments[0] == "disable") {
            const std::string label = arguments[1].substr(arguments[1].rfind('/') + 1);
            const HoldenmereConfig stored = saved_();
            EXPECT_TRUE(recordsAgent(stored, label) || holdsHelper(stored, label) || holdsItem(stored, label))
                << label << " disabled before it was recorded";
        }
        return ForwardingLaunchctl::run(arguments);
    }

private:
    std::function<HoldenmereConfig()> saved_;
};

}  // namespace holdenmere::testing
