// Held items of the sources beyond launchd and Login Items, run as a user
// would in a temporary home: an app extension and a launcher that macOS
// switched back on are switched off again at login, and --restore-startup
// lists and gives back every held item by source, the reopen-windows setting
// restored with its unset key unset. The fake launchctl, pluginkit, lsappinfo,
// defaults and osascript stand in for the system's (HOLDENMERE_TOOLS_DIR);
// the probe answers on loopback.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "core/discovery/session_restore_scanner.h"
#include "core/support/files.h"
#include "tests/support/e2e_home.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlTool;
using ::testing::HasSubstr;
using ::testing::Not;

const std::string kDash = " \xE2\x80\x94 ";
const std::string kExtension = "com.example.drive.FinderSync";
const std::string kLauncher = "com.example.sync.launcher";
const std::string kChat = "com.example.chat";

class StartupSources : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool launchd;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204};

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path byHost() const {
        return home / "Library/Preferences/ByHost/com.apple.loginwindow.24844F30-679B-528F-901D-69B709AF2175.plist";
    }

    void SetUp() override {
        testing::linkFakeTools(home.path());

        // macOS elected the extension and enabled the launcher again since
        // Holdenmere switched them off.
        elect("use");
        launchd.mark(kLauncher, false);
        // Holdenmere switched the reopen-windows setting off; loginwindow
        // reopens Chat (which does not run now).
        testing::writeFile(byHost(), testing::xmlPlist(
                                         "<key>TALLogoutSavesState</key><false/>"
                                         "<key>LoginwindowLaunchesRelaunchApps</key><false/>"
                                         "<key>TALAppsToRelaunchAtLogin</key><array><dict><key>BundleID</key><string>" +
                                         kChat + "</string><key>Path</key><string>/Applications/Chat.app</string></dict></array>"));

        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        config.heldStartup = {
            {StartupSource::appExtension, kExtension, "com.example.drive", "Drive Finder", "startsAtLogin", std::nullopt, Date{0}},
            {StartupSource::launcherChild, kLauncher, "com.example.sync", "Sync", "startsAtLogin", std::nullopt, Date{0}},
            {StartupSource::sessionRestore, kChat, kChat, "Chat", "startsAtLogin", std::nullopt, Date{0}},
        };
        config.reopenWindowsOriginal = ReopenWindowsRecord{std::nullopt, true, Date{0}};
        ConfigStore{configPath()}.save(config);
    }

    void elect(const std::string& election) {
        files::writeAtomically(home / "pluginkit.json",
                               nlohmann::json::array({{{"identifier", kExtension},
                                                       {"version", "4.2"},
                                                       {"election", election},
                                                       {"path", "/Applications/Drive.app/Contents/PlugIns/F.appex"},
                                                       {"sdk", "com.apple.FinderSync"},
                                                       {"parent", "/Applications/Drive.app"},
                                                       {"displayName", "Drive Finder"}}})
                                   .dump());
    }
    std::string election() const {
        return nlohmann::json::parse(files::read(home / "pluginkit.json"))[0]["election"].get<std::string>();
    }
    bool disabled(const std::string& label) const {
        const auto state = launchd.state();
        return state.disabled.count(label) != 0 && state.disabled.at(label);
    }
    SessionRestore restore() const { return std::get<SessionRestore>(SessionRestoreScanner::read(home.path())); }

    ChildProcessResult run(const std::vector<std::string>& arguments) {
        return testing::runInHome(home.path(), launchd, home / "login-items.json", arguments);
    }
};

TEST_F(StartupSources, HeldItemsAreReassertedAtLoginAndGivenBackBySource) {
    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] re-asserted: Drive Finder" + kDash + kExtension +
                                       " was switched on again; switched off again\n"));
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] re-asserted: Sync" + kDash + kLauncher +
                                       " was switched on again; switched off again\n"));
    EXPECT_THAT(pass.output, HasSubstr("re_assert_failed=0 re_assert_skipped=0 gracefully_quit=0\n"));
    EXPECT_EQ(election(), "ignore");
    EXPECT_TRUE(disabled(kLauncher));

    // A dry run lists every held item by source and changes nothing.
    auto dryRun = run({"--restore-startup", "--dry-run"});
    ASSERT_EQ(dryRun.status, 0) << dryRun.output << dryRun.error;
    const std::string expected =
        "[Holdenmere] app extensions: would give back: Drive Finder" + kDash + "switch " + kExtension + " back on\n" +
        "[Holdenmere] session-restored apps: would give back: Chat" + kDash + "stop quitting " + kChat +
        " after login\n" + "[Holdenmere] launcher children: would give back: Sync" + kDash + "switch " + kLauncher +
        " back on\n" + "[Holdenmere] reopen-windows setting: would give back: reopen windows when logging back in" +
        kDash + "restore TALLogoutSavesState not set, LoginwindowLaunchesRelaunchApps true\n";
    EXPECT_THAT(dryRun.output, HasSubstr(expected));
    EXPECT_EQ(election(), "ignore");
    EXPECT_FALSE(restore().reopensWindows());

    auto giveBack = run({"--restore-startup"});
    EXPECT_EQ(giveBack.status, 0) << giveBack.output << giveBack.error;
    EXPECT_THAT(giveBack.output, HasSubstr("[Holdenmere] app extensions: given back: Drive Finder" + kDash + kExtension +
                                           " switched back on\n"));
    EXPECT_THAT(giveBack.output, HasSubstr("[Holdenmere] launcher children: given back: Sync" + kDash + kLauncher +
                                           " switched back on\n"));
    EXPECT_THAT(giveBack.output, Not(HasSubstr("FAILED")));
    EXPECT_EQ(election(), "use");
    EXPECT_FALSE(disabled(kLauncher));
    const SessionRestore after = restore();
    EXPECT_FALSE(after.logoutSavesState);  // unset, as it was
    EXPECT_EQ(after.launchesRelaunchApps, true);
    EXPECT_TRUE(after.lists(kChat));
    const auto config = ConfigStore{configPath()}.load();
    EXPECT_TRUE(config.heldStartup.empty());
    EXPECT_FALSE(config.reopenWindowsOriginal);
}

TEST_F(StartupSources, AToolThatCannotBeReadChangesNothingAndKeepsTheLedger) {
    std::filesystem::create_directories(home / "answers/pluginkit");
    files::writeAtomically(home / "answers/pluginkit/status", "1");
    files::writeAtomically(home / "answers/pluginkit/stderr", "pluginkit: connection invalid\n");
    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] skipped: Drive Finder" + kDash + kExtension +
                                       " was not re-checked: pluginkit -mAD -vvv: exit status 1: pluginkit: "
                                       "connection invalid\n"));
    auto giveBack = run({"--restore-startup"});
    EXPECT_EQ(giveBack.status, 1);
    EXPECT_THAT(giveBack.output, HasSubstr("[Holdenmere] app extensions: FAILED: Drive Finder" + kDash + kExtension +
                                           ": pluginkit -mAD -vvv: exit status 1: pluginkit: connection invalid; kept "
                                           "in the ledger\n"));
    EXPECT_EQ(election(), "use");
    EXPECT_EQ(ConfigStore{configPath()}.load().heldStartup.size(), 1u);
}

}  // namespace
}  // namespace holdenmere
