// What launchd really starts in the user's session: an agent whose plist
// says "Disabled" runs only where launchd's disabled list marks it enabled,
// and one limited to other session types (the login window, background
// sessions) never runs in the user's. Neither is a login agent, a startup
// item, a conflict or a helper to hold.
#include <gtest/gtest.h>

#include "core/discovery/launch_agent_scanner.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using Agent = LaunchAgentScanner::Agent;
using testing::xmlPlist;

const fs::path kFixtures = fs::path(HOLDENMERE_FIXTURES_DIR) / "launchagents";

Agent fixture(const std::string& name) {
    return *LaunchAgentScanner::agentFrom(plist::readFile(kFixtures / name), kFixtures / name);
}

TEST(LaunchAgentSession, RealPlistsSayWhetherTheyRunInTheUsersSession) {
    const Agent menuBar = fixture("com.example.menubar.helper.plist");
    EXPECT_TRUE(menuBar.disabledInPlist);
    EXPECT_FALSE(menuBar.otherSessionsOnly);
    EXPECT_TRUE(menuBar.startsAtLogin);
    const Agent update = fixture("com.example.update.loginwindow.plist");
    EXPECT_TRUE(update.otherSessionsOnly);
    EXPECT_FALSE(update.disabledInPlist);
    EXPECT_FALSE(fixture("com.example.sync.sessions.plist").otherSessionsOnly);
    EXPECT_FALSE(fixture("com.example.cloudsync.plist").otherSessionsOnly);

    using Marks = std::map<std::string, bool>;
    const std::string label = menuBar.label;
    // "Disabled" in the plist: only an enabled mark lets launchd run it.
    EXPECT_FALSE(LaunchAgentScanner::runsInSession(menuBar, Marks{}));
    EXPECT_FALSE(LaunchAgentScanner::runsInSession(menuBar, Marks{{label, true}}));
    EXPECT_TRUE(LaunchAgentScanner::runsInSession(menuBar, Marks{{label, false}}));
    EXPECT_FALSE(LaunchAgentScanner::runsInSession(menuBar, std::nullopt));
    // Another session type: never, whatever launchd marks.
    EXPECT_FALSE(LaunchAgentScanner::runsInSession(update, Marks{{update.label, false}}));
    EXPECT_TRUE(LaunchAgentScanner::runsInSession(fixture("com.example.cloudsync.plist"), std::nullopt));

    auto limited = [](const std::string& value) {
        return LaunchAgentScanner::agentFrom(
                   plist::parse(xmlPlist("<key>Program</key><string>/x</string><key>LimitLoadToSessionType</key>" + value)),
                   "/L/x.plist")
            ->otherSessionsOnly;
    };
    EXPECT_TRUE(limited("<array><string>LoginWindow</string><string>Background</string></array>"));
    EXPECT_TRUE(limited("<array/>"));
    EXPECT_TRUE(limited("<string>aqua</string>"));  // launchd compares session types exactly
    EXPECT_FALSE(limited("<array><string>Background</string><string>Aqua</string></array>"));
    EXPECT_FALSE(limited("<integer>1</integer>"));  // not a session type: launchd's default, Aqua
}

class LaunchAgentSessionScan : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(agents);
        menuBar = testing::writeAppBundle(folder / "Applications", "MenuBar", "MenuBar", "com.example.menubar").string();
        update = testing::writeAppBundle(folder / "Applications", "Update", "Update", "com.example.update").string();
        helperApp = testing::writeAppBundle(folder / "Applications", "Sync", "Sync", "com.example.sync").string();
        // As shipped: the menu-bar app's own login agent, switched off in
        // its plist until the user turns it on in the app.
        write("com.example.menubar.helper", menuBar + "/Contents/MacOS/MenuBar",
              "<key>Disabled</key><true/><key>RunAtLoad</key><true/>");
        // A software-update job that runs only at the login window.
        write("com.example.update.loginwindow", update + "/Contents/MacOS/Update",
              "<key>LimitLoadToSessionType</key><string>LoginWindow</string><key>RunAtLoad</key><true/>");
        // A helper inside an app, limited to background sessions.
        write("com.example.sync.helper", helperApp + "/Contents/MacOS/SyncHelper",
              "<key>LimitLoadToSessionType</key><array><string>Background</string></array>"
              "<key>RunAtLoad</key><true/>");
    }

    void write(const std::string& label, const std::string& program, const std::string& more) {
        testing::writeFile(agents / (label + ".plist"),
                           xmlPlist("<key>Label</key><string>" + label + "</string><key>ProgramArguments</key><array><string>" +
                                    program + "</string></array>" + more));
    }

    LaunchAgentScanner scanner() { return LaunchAgentScanner(launchctl, {agents}); }

    testing::TemporaryDirectory folder;
    fs::path agents = folder / "Library/LaunchAgents";
    testing::FakeLaunchctlRunning launchctl;
    std::string menuBar, update, helperApp;
};

TEST_F(LaunchAgentSessionScan, AgentsLaunchdDoesNotRunAreNothingToTakeOver) {
    // launchd marks the login-window job enabled and the menu-bar helper
    // not at all: neither runs in this session.
    launchctl.enabledMarks = {"com.example.update.loginwindow"};
    const std::vector<ManagedApp> managed = {{"com.example.menubar", "MenuBar", menuBar},
                                             {"com.example.update", "Update", update}};
    EXPECT_TRUE(scanner().loginStartingAgents().empty());
    EXPECT_EQ(scanner().startupItems(), LaunchAgentScanner::StartupItemListing{});
    EXPECT_TRUE(scanner().disabledEligibleAgents().empty());
    EXPECT_TRUE(scanner().conflicts(managed).empty());
    EXPECT_TRUE(scanner().ineligibleItems().empty());
    EXPECT_TRUE(scanner().helpers().empty());

    // Marked disabled by launchd as well: still nothing Holdenmere switched
    // off, so no give-back could ever switch it on.
    launchctl.disabled = {"com.example.menubar.helper"};
    EXPECT_TRUE(scanner().disabledEligibleAgents().empty());

    // The user turned the menu-bar helper on (launchd's enabled mark): now
    // it starts the app at login like any other agent.
    launchctl.disabled.clear();
    launchctl.enabledMarks.insert("com.example.menubar.helper");
    const auto items = scanner().startupItems().items;
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].bundleIdentifier, "com.example.menubar");
    EXPECT_EQ(scanner().conflicts(managed).size(), 1u);
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(LaunchAgentSessionScan, MarksAreAskedOnlyForPlistDisabledAgentsAndUnreadableMarksRunNothing) {
    fs::remove(agents / "com.example.menubar.helper.plist");
    EXPECT_TRUE(scanner().loginStartingAgents().empty());
    EXPECT_TRUE(launchctl.calls().empty());

    write("com.example.menubar.helper", menuBar + "/Contents/MacOS/MenuBar",
          "<key>Disabled</key><true/><key>RunAtLoad</key><true/>");
    launchctl.enabledMarks = {"com.example.menubar.helper"};
    launchctl.disabledListReadable = false;
    EXPECT_TRUE(scanner().loginStartingAgents().empty());
    EXPECT_EQ(launchctl.calls().size(), 1u);
}

}  // namespace
}  // namespace holdenmere
