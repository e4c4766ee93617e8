#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "core/takeover/login_ownership.h"
#include "tests/support/fake_launchctl_running.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlRunning;
using Calls = std::vector<std::vector<std::string>>;
const std::string kDash = " \xE2\x80\x94 ";

HeldStartupItem held(StartupSource source, const std::string& handle, const std::string& name) {
    return HeldStartupItem{source, handle, "com.example." + name, name, "startsAtLogin", std::nullopt, Date{0}};
}

class StartupSourcesPass : public ::testing::Test {
protected:
    FakeLaunchctlRunning launchd;
    AgentTakeover enforcer{launchd};
    HoldenmereConfig config;

    void SetUp() override {
        config.heldStartup = {
            held(StartupSource::launchdJob, "com.example.off", "Off"),
            held(StartupSource::launchdJob, "com.example.back", "Back"),
            held(StartupSource::appExtension, "com.example.ext", "Ext"),
            held(StartupSource::launchdJob, "com.example.kept", "Kept"),
        };
        config.restoreOptOuts = {"launchdJob:com.example.kept"};
        launchd.disabled = {"com.example.off"};
    }

    LoginOwnership::StartupSourcesResult run() {
        return LoginOwnership::startupSourcesPass([this] { return config; }, enforcer);
    }
};

TEST_F(StartupSourcesPass, SwitchesHeldJobsThatCameBackOnOffAgain) {
    auto result = run();
    EXPECT_EQ(result.optOuts.size(), 3u);
    EXPECT_EQ(result.lines,
              (std::vector<std::string>{
                  "re-asserted: Back" + kDash + "com.example.back was switched on again; switched off again",
                  "skipped: Ext" + kDash + "this build cannot re-assert held appExtension items",
              }));
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", launchdServiceTarget("com.example.back")}}));
    EXPECT_EQ(result.countsLine(), "re_assert_failed=0 re_assert_skipped=1 gracefully_quit=0");
    EXPECT_EQ(LoginOwnership::startupStepBudget(result.optOuts), 30 + 3 * 25);
}

TEST_F(StartupSourcesPass, FailuresAndAnUnreadableDisabledList) {
    launchd.exitStatus["disable"] = 5;
    auto result = run();
    EXPECT_EQ(result.lines.front(),
              "Back" + kDash +
                  "com.example.back is switched on again and could NOT be switched off: launchctl "
                  "disable failed (exit 5)");
    EXPECT_EQ(result.countsLine(), "re_assert_failed=1 re_assert_skipped=1 gracefully_quit=0");

    // Without the list no enabled job can be told apart: nothing is switched.
    launchd.exitStatus.clear();
    launchd.disabledListReadable = false;
    result = run();
    EXPECT_EQ(result.countsLine(), "re_assert_failed=0 re_assert_skipped=3 gracefully_quit=0");
    EXPECT_EQ(launchd.changes().size(), 1u);  // the failed one above
}

TEST_F(StartupSourcesPass, AnUnreadableConfig) {
    auto result = LoginOwnership::startupSourcesPass(
        []() -> HoldenmereConfig { throw ConfigStoreError(ConfigStoreError::Kind::read, "gone"); }, enforcer);
    EXPECT_EQ(result.countsLine(), "re_assert_failed=0 re_assert_skipped=0 gracefully_quit=0 config=unreadable");
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_EQ(LoginOwnership::startupStepBudget({}), 30);
}

}  // namespace
}  // namespace holdenmere
