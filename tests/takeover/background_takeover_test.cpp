// Background items taken over at the end of a login pass from the saved
// scan, through the engine against in-memory launchd: recorded first, only
// with consent, never for an app whose launch failed.
#include "core/takeover/background_takeover.h"

#include <gtest/gtest.h>

#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Scanner = BackgroundItemScanner;
using testing::managedApp;

class BackgroundTakeoverTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    testing::ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlRunning launchd;
    testing::CheckedLaunchctl launchctl{launchd, file};  // fails the test on a change before its record
    testing::FakeScriptRunning scripts;
    BackgroundItemStore store = BackgroundItemStore::besideConfig(folder / "config.json");
    std::vector<LaunchRecord> records;
    std::string plist = (folder / "Drive.app/Contents/Library/LaunchAgents/a.plist").string();

    void SetUp() override {
        testing::writeFile(plist, testing::xmlPlist("<key>Label</key><string>com.example.drive.agent</string>"
                                                    "<key>RunAtLoad</key><true/>"));
        file.stored.startupConsent = StartupConsent::granted;
        file.stored.apps = {managedApp("com.example.drive", "Drive", "/Applications/Drive.app"),
                            managedApp("com.example.notes", "Notes", "/Applications/Notes.app")};
        launchd.loaded = {"com.example.drive.agent"};
        BackgroundItemStore::Saved saved;
        saved.result.items = {
            {StartupItem{"com.example.drive", "Drive", "/Applications/Drive.app",
                         StartupItem::BackgroundItem{"8.com.example.drive.agent"}},
             Scanner::LaunchAgent{"com.example.drive.agent", plist}},
            {StartupItem{"com.example.notes", "Notes", "/Applications/Notes.app", StartupItem::BackgroundItem{"4.n"}},
             Scanner::OpenLoginItemsSettings{}},
            {StartupItem{"com.example.other", "Other", "/Applications/Other.app", StartupItem::BackgroundItem{"4.o"}},
             Scanner::OpenLoginItemsSettings{}}};
        store.save(saved);
    }

    std::vector<std::string> pass() {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        auto lines = BackgroundTakeover::pass(engine, store, StartupSafety::systemEnvironment(), records);
        transaction.end();
        return lines;
    }
};

TEST_F(BackgroundTakeoverTest, SwitchesTheAgentOffRecordedFirstAndNamesWhatOnlySettingsCanEnd) {
    const std::string dash = " \xE2\x80\x94 ";
    EXPECT_EQ(pass(), (std::vector<std::string>{
                          "taken over: Drive" + dash + "background item 8.com.example.drive.agent: LaunchAgent "
                          "com.example.drive.agent disabled",
                          "Drive" + dash + "recorded for --restore-startup",
                          BackgroundTakeover::settingsLine("Notes", "4.n")}));
    EXPECT_EQ(launchd.disabled, (std::set<std::string>{"com.example.drive.agent"}));
    ASSERT_EQ(file.stored.takeovers.size(), 1u);
    EXPECT_EQ(file.stored.takeovers[0].agents[0].plistPath, plist);
    // Recorded: the next pass leaves it alone.
    EXPECT_EQ(pass(), (std::vector<std::string>{BackgroundTakeover::settingsLine("Notes", "4.n")}));
    EXPECT_EQ(launchd.changes().size(), 1u);
}

TEST_F(BackgroundTakeoverTest, NothingWithoutConsentASavedScanOrASuccessfulLaunch) {
    records = {testing::launchRecord("com.example.drive", LaunchOutcome::failed)};
    auto lines = pass();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Drive \xE2\x80\x94 background item 8.com.example.drive.agent \xE2\x80\x94 its launch failed "
                        "this pass, so the item stays");
    records.clear();

    file.stored.startupConsent = StartupConsent::declined;
    EXPECT_TRUE(pass().empty());
    file.stored.startupConsent = StartupConsent::granted;
    testing::writeFile(store.url, "{damaged");
    EXPECT_TRUE(pass().empty());
    EXPECT_TRUE(launchd.changes().empty());
    EXPECT_TRUE(file.stored.takeovers.empty());
}

}  // namespace
}  // namespace holdenmere
