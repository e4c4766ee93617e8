// A launchd job held off from the startup inventory: recorded first with the
// state it had, within its safety tier, confirmed, switched off again at the
// next login when macOS turned it back on, and switched back on by the
// desktop's Switch On. CheckedLaunchctl fails the test whenever launchd is
// changed before the held item is saved.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_sources_pass.h"
#include "core/takeover/startup_actions.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::ConfigFile;
using ::testing::HasSubstr;
using Status = StartupChangeOutcome::Status;
using Calls = std::vector<std::vector<std::string>>;
using Action = StartupActions::RowAction;

const std::string kLabel = "local.photos.sync";
const std::string kDash = " \xE2\x80\x94 ";
const std::string kWarning = "local.photos.sync is your own job, outside any app, so nothing else will start it.";

class HoldJobTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    std::filesystem::path agents = folder / "Library/LaunchAgents";
    std::string plist = (agents / (kLabel + ".plist")).string();
    ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlRunning launchd;
    testing::CheckedLaunchctl launchctl{launchd, file};
    testing::FakeScriptRunning scripts;
    StartupActions actions{{file.access(), launchctl, scripts, StartupSafety::systemEnvironment(), {agents}}};

    void SetUp() override { writeJob(""); }

    void writeJob(const std::string& more) {
        testing::writeFile(plist, testing::xmlPlist("<key>Label</key><string>" + kLabel +
                                                    "</string><key>Program</key><string>/usr/local/bin/photos-sync"
                                                    "</string><key>RunAtLoad</key><true/>" + more));
    }

    static StartupEntry row(SafetyTier tier = SafetyTier::needsConfirmation({kWarning})) {
        return StartupEntry{StartupSource::launchdJob, std::nullopt, kLabel, kLabel, StartupEntry::State::startsAtLogin(),
                            std::move(tier)};
    }

    StartupChangeOutcome hold(const SafetyTier& tier, bool confirmed) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts);
        return engine.holdJob({StartupSource::launchdJob, kLabel, std::nullopt, kLabel, "", plist, Date{5}}, tier,
                              confirmed);
    }
};

TEST_F(HoldJobTest, RecordedWithItsStateBeforeThenSwitchedOffAndConfirmed) {
    const auto outcome = hold(SafetyTier::needsConfirmation({kWarning}), true);
    EXPECT_EQ(outcome.status, Status::changed) << outcome.line();
    EXPECT_TRUE(outcome.recorded);
    EXPECT_EQ(file.stored.heldStartup, (std::vector<HeldStartupItem>{{StartupSource::launchdJob, kLabel, std::nullopt,
                                                                       kLabel, "startsAtLogin", plist, Date{5}}}));
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", launchdServiceTarget(kLabel)}}));

    // macOS (or the user in launchctl) turns it back on: the next login's
    // startup step switches it off again and says so.
    launchd.run({"enable", launchdServiceTarget(kLabel)});
    StartupTransaction transaction = file.begin();
    StartupChangeEngine engine(transaction, launchctl, scripts);
    const auto pass = LoginOwnership::startupSourcesPass(engine);
    transaction.end();
    EXPECT_EQ(pass.lines, std::vector<std::string>{"re-asserted: " + kLabel + kDash + kLabel +
                                                   " was switched on again; switched off again"});
    EXPECT_TRUE(launchd.disabled.count(kLabel));
    EXPECT_EQ(pass.records(Date{9})[0].detail, "switched on again since the last login; switched off again");
}

TEST_F(HoldJobTest, AJobThatIsOffAlreadyIsHeldWithoutAChangeAndStaysOffOnGiveBack) {
    // Off by launchd's mark, or by its plist's "Disabled" with no enabled
    // mark: either way "off" is what give-back must come back to.
    launchd.disabled = {kLabel};
    EXPECT_EQ(hold(SafetyTier{}, false).status, Status::unchanged);
    EXPECT_EQ(file.stored.heldStartup.at(0).previous, "off");
    file.stored.heldStartup.clear();
    launchd.disabled.clear();
    writeJob("<key>Disabled</key><true/>");
    const auto outcome = hold(SafetyTier{}, false);
    EXPECT_EQ(outcome.status, Status::unchanged);
    EXPECT_EQ(outcome.reason, "already off; held off");
    EXPECT_EQ(file.stored.heldStartup.at(0).previous, "off");
    EXPECT_TRUE(launchd.changes().empty());

    // Marked enabled, the plist's "Disabled" no longer holds it off.
    file.stored.heldStartup.clear();
    launchd.enabledMarks = {kLabel};
    EXPECT_EQ(hold(SafetyTier{}, false).status, Status::changed);
    EXPECT_EQ(file.stored.heldStartup.at(0).previous, "startsAtLogin");
}

TEST_F(HoldJobTest, TheTierAndAnUnreadableLaunchdChangeNothing) {
    EXPECT_EQ(hold(SafetyTier::refused("An Apple macOS component."), true).reason, "An Apple macOS component.");
    EXPECT_THAT(hold(SafetyTier::needsConfirmation({kWarning}), false).reason,
                HasSubstr("not switched off without your confirmation: " + kWarning));
    launchd.disabledListReadable = false;
    EXPECT_EQ(hold(SafetyTier{}, false).reason, StartupChangeEngine::kDisabledListUnreadable);
    EXPECT_TRUE(launchd.calls().size() == 1u && launchd.changes().empty());
    EXPECT_TRUE(file.stored.heldStartup.empty());

    StartupTransaction transaction = file.begin();
    StartupChangeEngine engine(transaction, launchctl, scripts);
    EXPECT_EQ(engine.holdJob({StartupSource::launchdJob, "com.tavik.holdenmere.agent", {}, "Holdenmere", "", {}, Date{}},
                             SafetyTier{}, true)
                  .reason,
              StartupChangeEngine::kOwnItem);
}

TEST_F(HoldJobTest, TheDesktopsSwitchOffAndSwitchOnOfARow) {
    EXPECT_EQ(StartupActions::actionFor(row(), file.stored), Action::switchOff);
    EXPECT_EQ(StartupActions::actionFor(row(SafetyTier::refused("An Apple macOS component.")), file.stored), Action::none);
    StartupEntry off = row();
    off.state = StartupEntry::State::off();
    EXPECT_EQ(StartupActions::actionFor(off, file.stored), Action::none);
    StartupEntry extension = row();
    extension.source = StartupSource::serviceManagement;
    EXPECT_EQ(StartupActions::actionFor(extension, file.stored), Action::none);

    auto outcome = actions.holdEntry(row(), false, Date{7});
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{kLabel + kDash + kLabel +
                                                      " was not switched off: it needs your confirmation first."});
    EXPECT_TRUE(launchd.calls().empty());

    outcome = actions.holdEntry(row(), true, Date{7});
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_EQ(outcome.lines, std::vector<std::string>{kLabel + kDash + kLabel +
                                                      " is switched off; Holdenmere switches it off again at each login."});
    ASSERT_EQ(file.stored.heldStartup.size(), 1u);
    EXPECT_EQ(file.stored.heldStartup[0].plistPath, plist);
    EXPECT_EQ(StartupActions::actionFor(off, file.stored), Action::switchOn);

    launchd.labelOfPlist[plist] = kLabel;
    outcome = actions.unholdEntry(off);
    EXPECT_TRUE(outcome.ok) << outcome.lines[0];
    EXPECT_EQ(outcome.lines, std::vector<std::string>{kLabel + kDash + kLabel + " is switched back on."});
    EXPECT_TRUE(file.stored.heldStartup.empty());
    EXPECT_FALSE(launchd.disabled.count(kLabel));
    EXPECT_TRUE(launchd.loaded.count(kLabel));

    outcome = actions.unholdEntry(off);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{kLabel + kDash + kLabel +
                                                      " is not held by Holdenmere, so nothing was changed."});
}

}  // namespace
}  // namespace holdenmere
