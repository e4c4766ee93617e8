#include "core/gate/open_at_login.h"

#include <gtest/gtest.h>

#include "core/gate/cli_mode.h"

namespace holdenmere {
namespace {

TEST(OpenAtLogin, OpenedQuietlyInstancesAreTheDesktopApp) {
    const std::vector<std::string> arguments{"/Applications/Holdenmere.app/Contents/MacOS/holdenmere",
                                             "--opened-at-login", "-psn_0_99"};
    EXPECT_TRUE(OpenAtLogin::openedQuietly(arguments));
    EXPECT_EQ(CLIMode::from(arguments), CLIMode::unknown("--opened-at-login"));
    EXPECT_EQ(CLIMode::from(OpenAtLogin::withoutOpenedAtLogin(arguments)), CLIMode::app());
    EXPECT_FALSE(OpenAtLogin::openedQuietly({"holdenmere", "--gate"}));

    GateSettings settings;
    EXPECT_FALSE(OpenAtLogin::shouldOpenApp(settings, false));
    settings.openAppAtLogin = true;
    EXPECT_TRUE(OpenAtLogin::shouldOpenApp(settings, false));
    EXPECT_FALSE(OpenAtLogin::shouldOpenApp(settings, true));
}

TEST(OpenAtLogin, SettingsDetailFollowsTheLoginAgentAndThePresence) {
    using Status = HoldenmereLoginAgentStatus;
    EXPECT_EQ(OpenAtLogin::settingsDetail(Status::activeAtLogin, true),
              "Opens quietly in the menu bar once your apps have started.");
    EXPECT_EQ(OpenAtLogin::settingsDetail(Status::activeAtLogin, false),
              "Opens quietly in the Dock once your apps have started.");
    for (Status status : {Status::notInstalled, Status::installedNotLoaded, Status::disabled}) {
        EXPECT_EQ(OpenAtLogin::settingsDetail(status, true), "Needs Start at login above.");
        EXPECT_EQ(OpenAtLogin::settingsDetail(status, false), "Needs Start at login above.");
    }
}

TEST(OpenAtLogin, OffWarningIsEmptyExactlyWhenTheAgentRuns) {
    using Status = HoldenmereLoginAgentStatus;
    EXPECT_EQ(OpenAtLogin::offWarning(Status::activeAtLogin), std::nullopt);
    for (Status status : {Status::notInstalled, Status::installedNotLoaded, Status::disabled}) {
        EXPECT_EQ(OpenAtLogin::offWarning(status),
                  "Holdenmere won't run at your next login, so these apps start before the network.");
    }
}

TEST(OpenAtLogin, WelcomeEnablesOnlyAnAgentNeverSetUp) {
    using Status = HoldenmereLoginAgentStatus;
    EXPECT_TRUE(OpenAtLogin::shouldEnableAfterWelcome(Status::notInstalled));
    EXPECT_FALSE(OpenAtLogin::shouldEnableAfterWelcome(Status::installedNotLoaded));
    EXPECT_FALSE(OpenAtLogin::shouldEnableAfterWelcome(Status::disabled));
    EXPECT_FALSE(OpenAtLogin::shouldEnableAfterWelcome(Status::activeAtLogin));
}

}  // namespace
}  // namespace holdenmere
