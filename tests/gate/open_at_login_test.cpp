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

}  // namespace
}  // namespace holdenmere
