#include "core/launchd/login_agent_status.h"

#include <gtest/gtest.h>

#include "tests/support/fake_launchctl_running.h"

namespace holdenmere {
namespace {

using Status = HoldenmereLoginAgentStatus;

TEST(LoginAgentStatus, ResolvePrecedence) {
    for (bool loaded : {false, true}) {
        for (bool disabled : {false, true}) {
            EXPECT_EQ(resolveLoginAgentStatus(false, loaded, disabled), Status::notInstalled);
        }
    }
    EXPECT_EQ(resolveLoginAgentStatus(true, true, true), Status::disabled);
    EXPECT_EQ(resolveLoginAgentStatus(true, false, true), Status::disabled);
    EXPECT_EQ(resolveLoginAgentStatus(true, true, false), Status::activeAtLogin);
    EXPECT_EQ(resolveLoginAgentStatus(true, false, false), Status::installedNotLoaded);
}

TEST(LoginAgentStatus, TextsAndPredicates) {
    EXPECT_EQ(settingsDetail(Status::notInstalled), "Not installed \xE2\x80\x94 Holdenmere will not run at login.");
    EXPECT_EQ(settingsDetail(Status::installedNotLoaded), "Plist installed but launchd has NOT loaded it.");
    EXPECT_EQ(settingsDetail(Status::disabled), "Disabled in Login Items \xE2\x80\x94 Holdenmere will not run at login.");
    EXPECT_EQ(settingsDetail(Status::activeAtLogin), "Installed and loaded \xE2\x80\x94 runs at every login.");
    EXPECT_TRUE(runsAtLogin(Status::activeAtLogin));
    EXPECT_FALSE(runsAtLogin(Status::disabled));
    EXPECT_TRUE(needsLoginAgentRepair(Status::installedNotLoaded));
    EXPECT_TRUE(needsLoginAgentRepair(Status::disabled));
    EXPECT_FALSE(needsLoginAgentRepair(Status::notInstalled));
    EXPECT_FALSE(needsLoginAgentRepair(Status::activeAtLogin));
}

TEST(InertLaunchctl, AsksNothingAndKnowsNothing) {
    InertLaunchctl launchctl;
    EXPECT_EQ(launchctl.run({"enable", launchdServiceTarget("com.example.a")}), -1);
    EXPECT_FALSE(launchctl.isLoaded("com.example.a"));
    EXPECT_FALSE(launchctl.disabledLabels().has_value());
    EXPECT_FALSE(launchctl.serviceLabels().has_value());
    EXPECT_EQ(launchdServiceTarget("x").substr(0, 4), "gui/");
}

TEST(FakeLaunchctlRunning, ChangesStateLikeLaunchd) {
    testing::FakeLaunchctlRunning launchctl;
    launchctl.labelOfPlist["/p.plist"] = "com.example.a";
    EXPECT_EQ(launchctl.run({"bootstrap", launchdDomain(), "/p.plist"}), 0);
    EXPECT_TRUE(launchctl.isLoaded("com.example.a"));
    EXPECT_EQ(launchctl.run({"disable", launchdServiceTarget("com.example.a")}), 0);
    EXPECT_TRUE(launchctl.isDisabled("com.example.a"));
    EXPECT_EQ(launchctl.changes().size(), 2u);
}

}  // namespace
}  // namespace holdenmere
