// The engine's switches of app extensions, launcher children and session
// restore: each recorded before its change (the fakes fail the test when a
// change comes first), confirmed after it, re-asserted at login and given
// back, through in-process fakes of pluginkit, defaults and launchd.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>

#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_sources_pass.h"
#include "core/takeover/other_source_scans.h"
#include "core/takeover/startup_actions.h"
#include "core/takeover/startup_restorer.h"
#include "core/takeover/startup_switch.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/fake_tool_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::ConfigFile;
using testing::FakeToolRunning;
using ::testing::HasSubstr;
using Status = StartupChangeOutcome::Status;

const std::string kDash = " \xE2\x80\x94 ";
const std::string kExtension = "com.example.drive.FinderSync";
const std::string kLauncher = "com.example.sync.launcher";

struct FakeApps final : AppQuitting {
    std::set<std::string> running;
    std::vector<std::string> quit_;
    bool refuses = false;
    bool isRunning(const std::string& identifier) override { return running.count(identifier) != 0; }
    std::optional<std::string> quit(const std::string& identifier) override {
        quit_.push_back(identifier);
        if (refuses) return "osascript: the app did not quit (-128)";
        running.erase(identifier);
        return std::nullopt;
    }
};

class HeldItemChanges : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlRunning launchd;
    testing::CheckedLaunchctl launchctl{launchd, file};
    testing::FakeScriptRunning scripts;
    FakeToolRunning tools;
    std::map<std::string, std::string> elections{{kExtension, " "}};  // pluginkit's markers
    std::map<std::string, bool> preferences;                            // defaults -currentHost
    AppExtensionSwitch extensions{tools};
    LauncherChildSwitch launchers{launchctl};
    SystemReopenWindowsSetting reopen{tools};
    FakeApps apps;
    SessionRestore restore;
    StartupSwitches switches;

    void SetUp() override {
        tools.handlers["pluginkit"] = [this](const std::vector<std::string>& arguments) {
            if (arguments[0] == "-e") {
                elections[arguments[3]] = arguments[1] == "use" ? "+" : "-";
                return FakeToolRunning::printing("");
            }
            std::string list = "     com.apple.share.Mail(1)\n";
            for (const auto& [identifier, marker] : elections) list += marker + "    " + identifier + "(1.0)\n";
            return FakeToolRunning::printing(list);
        };
        tools.handlers["defaults"] = [this](const std::vector<std::string>& arguments) {
            const std::string& key = arguments[3];
            if (arguments[1] == "write") preferences[key] = arguments[5] == "true";
            if (arguments[1] == "delete") preferences.erase(key);
            if (arguments[1] != "read") return FakeToolRunning::printing("");
            if (!preferences.count(key)) return FakeToolRunning::printing("", 1, "\nThe domain/default pair of (x, " + key + ") does not exist\n");
            return FakeToolRunning::printing(preferences[key] ? "1\n" : "0\n");
        };
        // Nothing switches before its recovery entry is saved.
        tools.beforeRun = [this](const FakeToolRunning::Call& call) {
            if (call[0] == "pluginkit" && call[1] == "-e" && call[2] == "ignore") {
                EXPECT_TRUE(testing::holdsItem(file.stored, call[4])) << "elected off before it was recorded";
            }
            if (call[0] == "defaults" && call[2] != "read") {
                EXPECT_TRUE(file.stored.reopenWindowsOriginal) << "setting changed before it was recorded";
            }
        };
        switches = {&extensions, &launchers, &reopen, &apps, [this] { return SessionRestoreScanner::Read(restore); }};
    }

    template <typename Action>
    auto inEngine(Action action) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        engine.useSwitches(&switches);
        return action(engine);
    }

    static StartupEntry row(StartupSource source, const std::string& handle, const std::string& name) {
        return {source, "com.example." + name, name, handle, StartupEntry::State::startsAtLogin(), SafetyTier::allowed()};
    }
};

TEST_F(HeldItemChanges, AnExtensionIsRecordedThenElectedOffThenGivenBackOn) {
    const auto entry = row(StartupSource::appExtension, kExtension, "Drive");
    auto outcome = inEngine([&](StartupChangeEngine& engine) {
        return engine.holdItem(extensions, entry, SafetyTier::allowed(), false);
    });
    EXPECT_EQ(outcome.status, Status::changed) << outcome.line();
    EXPECT_EQ(outcome.subject, "Drive" + kDash + "app extension " + kExtension);
    EXPECT_EQ(elections[kExtension], "-");
    ASSERT_EQ(file.stored.heldStartup.size(), 1u);
    EXPECT_EQ(file.stored.heldStartup[0].previous, "startsAtLogin");

    // Already off: nothing run, nothing recorded anew.
    const auto calls = tools.calls.size();
    outcome = inEngine([&](StartupChangeEngine& engine) {
        return engine.holdItem(extensions, entry, SafetyTier::allowed(), false);
    });
    EXPECT_EQ(outcome.status, Status::unchanged);
    EXPECT_EQ(tools.calls.size(), calls + 1);  // the fresh read only

    // macOS (or the user) elected it on again: the login pass switches it off.
    elections[kExtension] = "+";
    auto pass = inEngine([](StartupChangeEngine& engine) { return LoginOwnership::startupSourcesPass(engine); });
    EXPECT_EQ(pass.lines, (std::vector<std::string>{"re-asserted: Drive" + kDash + kExtension +
                                                    " was switched on again; switched off again"}));
    EXPECT_EQ(elections[kExtension], "-");

    const auto report = inEngine([](StartupChangeEngine& engine) { return StartupRestorer::giveBack(engine, false); });
    ASSERT_EQ(report.entries.size(), 1u);
    EXPECT_EQ(report.entries[0].line(), "app extensions: given back: Drive" + kDash + kExtension + " switched back on");
    EXPECT_EQ(elections[kExtension], "+");
    EXPECT_TRUE(file.stored.heldStartup.empty());
}

TEST_F(HeldItemChanges, TiersAndUnreadableStatesChangeNothing) {
    const auto entry = row(StartupSource::appExtension, kExtension, "Drive");
    const auto finder = SafetyTier::needsConfirmation({"Switching this off removes Drive's folder from Finder until you switch it back on."});
    auto outcome = inEngine([&](StartupChangeEngine& engine) { return engine.holdItem(extensions, entry, finder, false); });
    EXPECT_EQ(outcome.status, Status::notChanged);
    EXPECT_THAT(outcome.reason, HasSubstr("folder from Finder"));
    tools.handlers.erase("pluginkit");
    tools.answers["pluginkit"] = FakeToolRunning::timedOut();
    outcome = inEngine([&](StartupChangeEngine& engine) { return engine.holdItem(extensions, entry, finder, true); });
    EXPECT_EQ(outcome.status, Status::notChanged);
    EXPECT_EQ(outcome.reason, "pluginkit -mAD -vvv: timed out after 10s, so nothing was changed");
    EXPECT_TRUE(file.stored.heldStartup.empty());
    EXPECT_EQ(file.saves, 0);
}

TEST_F(HeldItemChanges, ALauncherIsSwitchedOffInLaunchdRecordedFirstAndReasserted) {
    const auto entry = row(StartupSource::launcherChild, kLauncher, "Sync");
    auto outcome = inEngine([&](StartupChangeEngine& engine) {
        return engine.holdItem(launchers, entry, SafetyTier::allowed(), false);
    });
    EXPECT_EQ(outcome.status, Status::changed) << outcome.line();
    EXPECT_EQ(launchd.changes(), (std::vector<std::vector<std::string>>{{"disable", launchdServiceTarget(kLauncher)}}));
    launchd.disabled.erase(kLauncher);
    launchd.exitStatus["disable"] = 5;
    auto pass = inEngine([](StartupChangeEngine& engine) { return LoginOwnership::startupSourcesPass(engine); });
    EXPECT_EQ(pass.countsLine(), "re_assert_failed=1 re_assert_skipped=0 gracefully_quit=0");
    EXPECT_THAT(pass.lines[0], HasSubstr("could NOT be switched off: launchctl disable failed (exit 5)"));
}

TEST_F(HeldItemChanges, TheReopenWindowsSettingIsRecordedAsItWasAndRestoredWithAnUnsetKeyUnset) {
    preferences["LoginwindowLaunchesRelaunchApps"] = true;  // TALLogoutSavesState is not set
    auto outcome = inEngine([&](StartupChangeEngine& engine) { return engine.switchReopenWindowsOff(reopen); });
    EXPECT_EQ(outcome.status, Status::changed) << outcome.line();
    ASSERT_TRUE(file.stored.reopenWindowsOriginal);
    EXPECT_FALSE(file.stored.reopenWindowsOriginal->logoutSavesState);
    EXPECT_EQ(file.stored.reopenWindowsOriginal->launchesRelaunchApps, true);
    EXPECT_EQ(preferences, (std::map<std::string, bool>{{"LoginwindowLaunchesRelaunchApps", false},
                                                         {"TALLogoutSavesState", false}}));

    auto dryRun = inEngine([](StartupChangeEngine& engine) { return StartupRestorer::giveBack(engine, true); });
    EXPECT_EQ(dryRun.entries[0].line(),
              "reopen-windows setting: would give back: reopen windows when logging back in" + kDash +
                  "restore TALLogoutSavesState not set, LoginwindowLaunchesRelaunchApps true");
    auto report = inEngine([](StartupChangeEngine& engine) { return StartupRestorer::giveBack(engine, false); });
    EXPECT_EQ(report.entries[0].outcome, StartupRestorer::Outcome::givenBack) << report.entries[0].line();
    EXPECT_EQ(preferences, (std::map<std::string, bool>{{"LoginwindowLaunchesRelaunchApps", true}}));
    EXPECT_FALSE(file.stored.reopenWindowsOriginal);
}

TEST_F(HeldItemChanges, AHeldSessionRestoredAppIsQuitGracefullyOnlyWhenLoginwindowReopenedIt) {
    for (const auto& name : {"Chat", "Mail", "Notes", "Stuck"}) {
        auto outcome = inEngine([&](StartupChangeEngine& engine) {
            return engine.quitAfterLogin(row(StartupSource::sessionRestore, std::string("com.example.") + name, name),
                                         SafetyTier::allowed(), false);
        });
        EXPECT_EQ(outcome.status, Status::changed);
        EXPECT_TRUE(outcome.recorded);
    }
    EXPECT_EQ(file.stored.heldStartup.size(), 4u);
    // Chat was reopened and quits; Mail runs but was not reopened; Notes is
    // managed (Holdenmere opens it); Stuck refuses to quit.
    restore.apps = {{"com.example.Chat", "/Applications/Chat.app", false},
                    {"com.example.Notes", "/Applications/Notes.app", false},
                    {"com.example.Stuck", "/Applications/Stuck.app", false}};
    apps.running = {"com.example.Chat", "com.example.Mail", "com.example.Notes"};
    file.stored.apps = {ManagedApp{"com.example.Notes", "Notes", "/Applications/Notes.app"}};
    auto pass = inEngine([](StartupChangeEngine& engine) { return LoginOwnership::startupSourcesPass(engine); });
    EXPECT_EQ(apps.quit_, (std::vector<std::string>{"com.example.Chat"}));
    EXPECT_EQ(pass.countsLine(), "re_assert_failed=0 re_assert_skipped=0 gracefully_quit=1");
    EXPECT_THAT(pass.lines, ::testing::Contains("quit: Chat" + kDash + "reopened by loginwindow; quit as you asked"));

    apps.running = {"com.example.Stuck"};
    apps.refuses = true;
    pass = inEngine([](StartupChangeEngine& engine) { return LoginOwnership::startupSourcesPass(engine); });
    EXPECT_EQ(pass.countsLine(), "re_assert_failed=1 re_assert_skipped=0 gracefully_quit=0");

    // Given back: no longer quit; nothing to switch on.
    auto report = inEngine([](StartupChangeEngine& engine) { return StartupRestorer::giveBack(engine, false); });
    EXPECT_EQ(report.entries.size(), 4u);
    EXPECT_EQ(report.entries[0].line(),
              "session-restored apps: given back: Chat" + kDash + "com.example.Chat is no longer quit after login");
    EXPECT_TRUE(file.stored.heldStartup.empty());
}

TEST(OtherSourceScans, TiersComeFromTheSafetyRules) {
    AppExtension fileProvider{"com.example.drive.FileProvider", "1", AppExtension::Election::none,
                              "/Applications/Drive.app/Contents/PlugIns/FP.appex", "/Applications/Drive.app",
                              "com.apple.fileprovider-nonui", "Drive"};
    const auto tier = StartupSafety::tier(OtherSourceScans::candidate(fileProvider), {});
    EXPECT_EQ(tier, SafetyTier::needsConfirmation(
                        {"Switching this off removes Drive's folder from Finder until you switch it back on."}));
    LauncherChild child{{"Drive", "0x1", "com.example.drive", "/Applications/Drive.app",
                         "/Applications/Drive.app/Contents/MacOS/Drive", 1, "Starter", "0x2"},
                        {"Starter", "0x2", "com.example.starter", "/Applications/Drive.app/Contents/Helpers/Starter.app",
                         std::nullopt, 2, std::nullopt, std::nullopt},
                        false};
    EXPECT_EQ(OtherSourceScans::launcherRefusal(child),
              "Starter opens Drive and is no login item that launchd starts, so Holdenmere cannot keep it from "
              "opening Drive.");
    const SessionRestore::App finder{"com.apple.finder", "/System/Library/CoreServices/Finder.app", false};
    EXPECT_EQ(StartupSafety::tier(OtherSourceScans::candidate(finder), {}).kind, SafetyTier::Kind::refused);
}

}  // namespace
}  // namespace holdenmere

namespace holdenmere {
namespace {

// The desktop's Switch Off and Switch On of inventory rows of these sources.
TEST_F(HeldItemChanges, TheDesktopsRowActionsGoThroughTheSourcesSwitches) {
    using Action = StartupActions::RowAction;
    StartupActions actions{{file.access(), launchctl, scripts, StartupSafety::Environment{}, {}, &switches}};
    auto extension = row(StartupSource::appExtension, kExtension, "Drive");
    EXPECT_EQ(StartupActions::actionFor(extension, file.stored), Action::switchOff);

    auto outcome = actions.holdEntry(extension, false, Date{7});
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_EQ(elections[kExtension], "-");
    extension.state = StartupEntry::State::off();
    EXPECT_EQ(StartupActions::actionFor(extension, file.stored), Action::switchOn);
    outcome = actions.unholdEntry(extension);
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_EQ(elections[kExtension], "+");
    EXPECT_TRUE(file.stored.heldStartup.empty());

    // A reopened app is held to be quit after each login; nothing runs now.
    const auto reopened = row(StartupSource::sessionRestore, "com.example.Notes", "Notes");
    outcome = actions.holdEntry(reopened, false, Date{7});
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_EQ(outcome.lines.back(), "Notes" + kDash + "com.example.Notes will be quit after each login; macOS still reopens it.");
    ASSERT_EQ(file.stored.heldStartup.size(), 1u);
    EXPECT_TRUE(apps.quit_.empty());
    outcome = actions.unholdEntry(reopened);
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_TRUE(file.stored.heldStartup.empty());

    // The reopen-windows row switches the setting itself, and back as it was.
    preferences["TALLogoutSavesState"] = true;
    const auto setting = row(StartupSource::sessionRestore, SessionRestoreScanner::kReopenWindowsHandle, "Reopen");
    outcome = actions.holdEntry(setting, false, Date{7});
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_FALSE(preferences["TALLogoutSavesState"]);
    EXPECT_EQ(StartupActions::actionFor(setting, file.stored), Action::switchOn);
    outcome = actions.unholdEntry(setting);
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_TRUE(preferences["TALLogoutSavesState"]);
    EXPECT_EQ(preferences.count("LoginwindowLaunchesRelaunchApps"), 0u);  // unset before, unset again
    EXPECT_FALSE(file.stored.reopenWindowsOriginal);

    // Without the switches nothing is asked of pluginkit.
    StartupActions bare{{file.access(), launchctl, scripts, StartupSafety::Environment{}, {}, nullptr}};
    const auto calls = tools.calls.size();
    EXPECT_FALSE(bare.holdEntry(row(StartupSource::appExtension, kExtension, "Drive"), true, Date{7}).ok);
    EXPECT_EQ(tools.calls.size(), calls);
}

}  // namespace
}  // namespace holdenmere
