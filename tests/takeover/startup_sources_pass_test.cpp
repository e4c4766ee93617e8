#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_sources_pass.h"
#include "core/takeover/startup_sources_step.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

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
    testing::TemporaryDirectory folder;
    testing::ConfigFile file{folder / "config.json"};
    FakeLaunchctlRunning launchd;
    testing::FakeScriptRunning scripts;

    void SetUp() override {
        file.stored.heldStartup = {
            held(StartupSource::launchdJob, "com.example.off", "Off"),
            held(StartupSource::launchdJob, "com.example.back", "Back"),
            held(StartupSource::appExtension, "com.example.ext", "Ext"),
            held(StartupSource::launchdJob, "com.example.kept", "Kept"),
        };
        file.stored.restoreOptOuts = {"launchdJob:com.example.kept"};
        launchd.disabled = {"com.example.off"};
    }

    LoginOwnership::StartupSourcesResult run() {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchd, scripts);
        return LoginOwnership::startupSourcesPass(engine);
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
    // 30 s, and 25 s for each held item, managed app and blocked app.
    EXPECT_EQ(StartupSourcesStep::budget(file.stored), 30 + 3 * 25);
    auto withApps = file.stored;
    withApps.apps.resize(2);
    withApps.blockedApps.resize(1);
    EXPECT_EQ(StartupSourcesStep::budget(withApps), 30 + 6 * 25);
    // The records the history keeps of the held jobs.
    const auto records = result.records(Date{5});
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].bundleIdentifier, "com.example.off");
    EXPECT_EQ(records[0].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(records[1].detail, "switched on again since the last login; switched off again");
    EXPECT_EQ(file.saves, 0);  // the held records are their own recovery entries
}

// Held while its plist's "Disabled" kept it off: launchd does not run it,
// so there is nothing to re-assert, and no disabled mark is left behind for
// a give-back to find.
TEST_F(StartupSourcesPass, AJobItsPlistKeepsOffIsLeftWithoutAMark) {
    const auto plist = folder / "com.example.plistoff.plist";
    testing::writeFile(plist, testing::xmlPlist("<key>Label</key><string>com.example.plistoff</string>"
                                                "<key>Program</key><string>/usr/local/bin/off</string>"
                                                "<key>RunAtLoad</key><true/><key>Disabled</key><true/>"));
    HeldStartupItem item = held(StartupSource::launchdJob, "com.example.plistoff", "PlistOff");
    item.previous = "off";
    item.plistPath = plist.string();
    file.stored.heldStartup = {item};
    launchd.disabled.clear();
    const auto result = run();
    EXPECT_TRUE(launchd.changes().empty());
    for (const auto& line : result.lines) EXPECT_EQ(line.find("switched on again"), std::string::npos) << line;
}

TEST_F(StartupSourcesPass, FailuresAndAnUnreadableDisabledList) {
    launchd.exitStatus["disable"] = 5;
    auto result = run();
    EXPECT_EQ(result.lines.front(), "Back" + kDash +
                                        "com.example.back is switched on again and could NOT be switched off: "
                                        "launchctl disable failed (exit 5)");
    EXPECT_EQ(result.countsLine(), "re_assert_failed=1 re_assert_skipped=1 gracefully_quit=0");
    EXPECT_EQ(result.records(Date{0})[1].outcome, LaunchOutcome::failed);

    // Without the list no enabled job can be told apart: nothing is switched.
    launchd.exitStatus.clear();
    launchd.disabledListReadable = false;
    result = run();
    EXPECT_EQ(result.countsLine(), "re_assert_failed=0 re_assert_skipped=3 gracefully_quit=0");
    EXPECT_THAT(result.lines, ::testing::Contains("skipped: Off" + kDash +
                                                  "com.example.off was not re-checked: launchd's disabled list could "
                                                  "not be read, so nothing was changed."));
    EXPECT_EQ(launchd.changes().size(), 1u);  // the failed one above
}

TEST_F(StartupSourcesPass, HoldenmeresOwnJobsAreNeverSwitchedOff) {
    file.stored.heldStartup = {held(StartupSource::launchdJob, "com.tavik.holdenmere.agent", "Holdenmere"),
                               held(StartupSource::launchdJob, "com.tavik.holdenmere.axsampler", "Sampler")};
    auto result = run();
    EXPECT_TRUE(launchd.changes().empty());
    EXPECT_EQ(result.tally.reassertSkipped, 2);
    EXPECT_THAT(result.lines, ::testing::Each(::testing::HasSubstr("Holdenmere's own item.")));
}

TEST_F(StartupSourcesPass, AnUnreadableConfigCountsLine) {
    LoginOwnership::StartupSourcesTally tally;
    tally.configUnreadable = true;
    EXPECT_EQ(LoginOwnership::countsLine({}, tally),
              "re_assert_failed=0 re_assert_skipped=0 gracefully_quit=0 config=unreadable");
    EXPECT_EQ(StartupSourcesStep::budget({}), 30);
}

}  // namespace
}  // namespace holdenmere
