// A managed app that macOS starts from its background item, a LaunchAgent
// inside the app registered with the system: --audit reads it through the
// fake sfltool, the scan is saved as the desktop app saves it, a login pass
// takes it over from that saved scan (recorded first) and --restore-startup
// gives it back. The fake launchctl, osascript and sfltool stand in for the
// system's (HOLDENMERE_TOOLS_DIR); the probe answers on loopback.
#include <signal.h>

#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/discovery/background_item_store.h"
#include "core/support/child_process.h"
#include "tests/support/background_items_text.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/e2e_home.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/plist_files.h"
#include "tests/support/system_events_login_items.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::FakeBackgroundItem;
using testing::FakeLaunchctlTool;

const std::string kDash = " \xE2\x80\x94 ";

class BackgroundItemsEndToEnd : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool launchd;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204};
    SystemAppRunning apps;
    std::string identifier = "com.example.drive." + home.path().filename().string();
    std::string label = identifier + ".agent";
    std::string itemIdentifier = "8." + label;
    std::filesystem::path bundle = home / "Applications/Drive.app";

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path agentPlist() const { return bundle / "Contents/Library/LaunchAgents" / (label + ".plist"); }
    std::filesystem::path sfltoolState() const { return home / "sfltool.json"; }

    void SetUp() override {
        testing::linkFakeTools(home.path());
        testing::SystemEventsLoginItems::save(home / "login-items.json", {});

        // Drive.app registered its own agent, which opens the app itself.
        testing::writeFile(bundle / "Contents/Info.plist",
                           testing::xmlPlist("<key>CFBundleIdentifier</key><string>" + identifier +
                                             "</string><key>CFBundleExecutable</key><string>LingeringApp</string>"));
        std::filesystem::create_directories(bundle / "Contents/MacOS");
        std::filesystem::copy_file(testing::testHelperPath(), bundle / "Contents/MacOS/LingeringApp");
        testing::writeFile(agentPlist(), testing::xmlPlist("<key>Label</key><string>" + label +
                                                           "</string><key>BundleProgram</key><string>Contents/MacOS/"
                                                           "LingeringApp</string><key>RunAtLoad</key><true/>"));
        launchd.load(label, agentPlist().string());
        const std::vector<FakeBackgroundItem> records{
            // As in the captured sample: the app's own record is off, its agent on.
            {"Drive", "app (0x2)", "[disabled, allowed, not notified] (0x2)", "2." + identifier,
             "file://" + bundle.string() + "/", std::nullopt, identifier, std::nullopt, std::nullopt},
            {"Drive Agent", "agent (0x8)", "[enabled, allowed, notified] (0xb)", itemIdentifier,
             "Contents/Library/LaunchAgents/" + label + ".plist", "Contents/MacOS/LingeringApp", std::nullopt,
             "2." + identifier, std::nullopt}};
        std::ofstream(sfltoolState()) << nlohmann::json{{"records", records}}.dump();

        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        ManagedApp drive;
        drive.bundleIdentifier = identifier;
        drive.name = "Drive";
        drive.path = bundle.string();
        config.apps = {drive};
        config.grantStartupConsent({});
        ConfigStore{configPath()}.save(config);
        ASSERT_EQ(apps.launch(bundle.string(), OpenOptions{}), LaunchAttempt::opened());
    }

    void TearDown() override {
        for (int pid : apps.processIdentifiers(identifier)) ::kill(pid, SIGKILL);
    }

    ChildProcessResult run(const std::vector<std::string>& arguments) {
        return testing::runInHome(home.path(), launchd, home / "login-items.json", arguments);
    }

    // What the desktop app does after a scan a person started.
    void saveScan() {
        ::setenv("HOLDENMERE_FAKE_SFLTOOL_STATE", sfltoolState().c_str(), 1);
        SystemToolRunning tools(home / "tools");
        const auto scan = BackgroundItemScanner(tools).scan();
        ::unsetenv("HOLDENMERE_FAKE_SFLTOOL_STATE");
        ASSERT_TRUE(scan.result) << scan.incomplete;
        BackgroundItemStore::besideConfig(configPath()).save({*scan.result, Date::now()});
    }

    bool agentDisabled() const {
        auto state = launchd.state();
        return state.disabled.count(label) != 0 && state.disabled.at(label);
    }
};

TEST_F(BackgroundItemsEndToEnd, AuditNamesTheConflictAndItsRemedyChangingNothing) {
    auto audit = run({"--audit"});
    ASSERT_EQ(audit.status, 0) << audit.error;
    EXPECT_THAT(audit.output, HasSubstr("[Holdenmere] BACKGROUND ITEMS (macOS starts these at login):\n"
                                        "[Holdenmere]   CONFLICT: Drive" + kDash + "background item " +
                                        itemIdentifier + " starts it before the network; switch off its LaunchAgent " +
                                        label + " (Take Over in Holdenmere, or at the next login)\n"));
    EXPECT_FALSE(agentDisabled());
    EXPECT_TRUE(ConfigStore{configPath()}.load().takeovers.empty());

    // An authorization nobody answers (the tool fails), then output that is
    // not sfltool's: incomplete, never an empty list.
    std::ofstream(sfltoolState()) << R"({"exit": 1, "stderr": "sfltool: Operation not permitted\n"})";
    audit = run({"--audit"});
    EXPECT_THAT(audit.output, HasSubstr("[Holdenmere] BACKGROUND ITEMS: incomplete" + kDash +
                                        "sfltool dumpbtm failed with exit status 1: sfltool: Operation not permitted\n"));
    std::ofstream(sfltoolState()) << R"({"stdout": "hello\n"})";
    audit = run({"--audit"});
    EXPECT_THAT(audit.output, HasSubstr("[Holdenmere] BACKGROUND ITEMS: incomplete" + kDash +
                                        "sfltool dumpbtm printed nothing Holdenmere recognises\n"));
}

TEST_F(BackgroundItemsEndToEnd, TakenOverFromTheSavedScanRecordedFirstAndGivenBack) {
    // Without a saved scan the pass knows nothing of background items and
    // never runs sfltool itself.
    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, Not(HasSubstr("background item")));
    EXPECT_FALSE(agentDisabled());
    EXPECT_FALSE(std::filesystem::exists(sfltoolState().string() + ".calls") &&
                 testing::readFile(sfltoolState().string() + ".calls").size() > 0);

    saveScan();
    pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] taken over: Drive" + kDash + "background item " + itemIdentifier +
                                       ": LaunchAgent " + label + " disabled\n"
                                       "[Holdenmere] Drive" + kDash + "recorded for --restore-startup\n"));
    EXPECT_TRUE(agentDisabled());
    auto config = ConfigStore{configPath()}.load();
    ASSERT_EQ(config.takeovers.size(), 1u);
    ASSERT_EQ(config.takeovers[0].agents.size(), 1u);
    EXPECT_EQ(config.takeovers[0].agents[0].label, label);
    EXPECT_EQ(config.takeovers[0].agents[0].plistPath, agentPlist().string());

    // The next pass finds it recorded and changes nothing.
    pass = run({"--gate"});
    EXPECT_THAT(pass.output, Not(HasSubstr("background item")));
    EXPECT_EQ(ConfigStore{configPath()}.load().takeovers, config.takeovers);

    auto restore = run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_FALSE(agentDisabled());
    EXPECT_EQ(launchd.loadedLabels().count(label), 1u);
    EXPECT_TRUE(ConfigStore{configPath()}.load().takeovers.empty());
}

TEST_F(BackgroundItemsEndToEnd, AnItemOnlySystemSettingsCanSwitchOffIsNamedNotTouched) {
    // Drive's login item, and Notes, which opens itself at login (its own
    // app record, as System Settings lists under Open at Login).
    const auto notes = testing::writeAppBundle(home / "Applications", "Notes", "Notes", "com.example.notes");
    const std::vector<FakeBackgroundItem> records{
        {"Drive", "login item (0x4)", "[enabled, allowed, notified] (0xb)", "4." + identifier,
         "file://" + bundle.string() + "/", std::nullopt, identifier, std::nullopt, std::nullopt},
        {"Notes", "app (0x2)", "[enabled, allowed, notified] (0xb)", "2.com.example.notes",
         "file://" + notes.string() + "/", std::nullopt, "com.example.notes", std::nullopt, std::nullopt}};
    std::ofstream(sfltoolState()) << nlohmann::json{{"records", records}}.dump();
    saveScan();
    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] CONFLICT: Drive" + kDash + "background item 4." + identifier +
                                       " starts it before the network; only System Settings can switch it off "
                                       "(Login Items)\n"));
    EXPECT_TRUE(ConfigStore{configPath()}.load().takeovers.empty());
    EXPECT_FALSE(agentDisabled());
    EXPECT_THAT(pass.output, Not(HasSubstr("Notes")));
    auto audit = run({"--audit"});
    EXPECT_THAT(audit.output, HasSubstr("only System Settings can switch it off: open Login Items Settings "
                                        "(x-apple.systempreferences:com.apple.LoginItems-Settings.extension)\n"));
    EXPECT_THAT(audit.output, HasSubstr("[Holdenmere]   Notes (com.example.notes)" + kDash +
                                        "background item 2.com.example.notes; the app opens itself at login; only "
                                        "System Settings can switch it off: open Login Items Settings "
                                        "(x-apple.systempreferences:com.apple.LoginItems-Settings.extension)\n"));
}

}  // namespace
}  // namespace holdenmere
