#include "core/takeover/startup_restorer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/launchd/system_launchctl.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlRunning;
using testing::FakeLoginItem;
using testing::FakeScriptRunning;
using Outcome = StartupRestorer::Outcome;
using Source = StartupRestorer::Source;
using Entry = StartupRestorer::Entry;
using Calls = std::vector<std::vector<std::string>>;

const std::string kDash = " \xE2\x80\x94 ";

class StartupRestorerTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    testing::ConfigFile file{folder / "config.json"};
    FakeScriptRunning scripts;
    FakeLaunchctlRunning launchd;
    std::set<std::string> files{"/Applications/Mail.app",          "/Applications/Drive.app",  "/Applications/Kept.app",
                                "/L/com.example.mail.agent.plist", "/L/com.example.job.plist", "/L/helper.plist"};
    StartupChangeEngine::FileExists exists = [this](const std::string& path) { return files.count(path) != 0; };
    HoldenmereConfig& config = file.stored;

    void SetUp() override {
        ManagedApp mail{"com.example.mail", "Mail", "/Applications/Mail.app"};
        mail.importedFromLoginItem = true;
        config.apps = {mail};
        config.takeovers = {
            {"com.example.mail",
             "Mail",
             {{"/Applications/Mail.app", true}},
             {{"com.example.mail.agent", "/L/com.example.mail.agent.plist", false}}},
            {"com.example.drive", "Drive", {{"/Applications/Drive.app", false}}, {}},
            {"com.example.gone", "Gone", {{"/Applications/Gone.app", false}}, {}},
            {"com.example.sync", "Sync", {}, {{"com.example.sync.agent", "/L/com.example.sync.agent.plist", true}}},
            {"com.example.kept",
             "Kept",
             {{"/Applications/Kept.app", false}},
             {{"com.example.kept.agent", "/L/kept.plist", false}}},
        };
        config.delayedHelpers = {
            {"com.example.mail.helper", "/L/helper.plist", "com.example.mail", "Mail", DelayedHelper::Mode::delay}};
        config.heldStartup = {
            {StartupSource::launchdJob, "com.example.job", "com.example.job", "Job", "startsAtLogin",
             "/L/com.example.job.plist", Date{0}},
            {StartupSource::launchdJob, "com.example.wasoff", std::nullopt, "WasOff", "off", std::nullopt, Date{0}},
            {StartupSource::appExtension, "com.example.ext", std::nullopt, "Ext", "on", std::nullopt, Date{0}},
        };
        config.reopenWindowsOriginal = ReopenWindowsRecord{true, true, Date{0}};
        config.restoreOptOuts = {"com.example.kept"};

        scripts.loginItems.items = {{"/Applications/Drive.app"}};
        launchd.disabled = {"com.example.mail.agent",  "com.example.sync.agent", "com.example.kept.agent",
                            "com.example.mail.helper", "com.example.job",        "com.example.wasoff"};
        launchd.labelOfPlist = {{"/L/com.example.mail.agent.plist", "com.example.mail.agent"},
                                {"/L/com.example.job.plist", "com.example.job"},
                                {"/L/helper.plist", "com.example.mail.helper"}};
    }

    StartupRestorer::Report giveBack(bool dryRun) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchd, scripts, nullptr, exists);
        return StartupRestorer::giveBack(engine, dryRun);
    }

    static std::vector<std::string> lines(const StartupRestorer::Report& report) {
        std::vector<std::string> result;
        for (const auto& entry : report.entries) result.push_back(entry.line());
        return result;
    }
};

TEST_F(StartupRestorerTest, GivesBackExactlyWhatHoldenmereSwitchedOff) {
    const HoldenmereConfig before = config;
    auto report = giveBack(false);
    EXPECT_EQ(lines(report),
              (std::vector<std::string>{
                  "Login Items: given back: Mail" + kDash + "added /Applications/Mail.app (hidden)",
                  "Login Items: given back: Drive" + kDash + "/Applications/Drive.app is in Login Items already",
                  "Login Items: FAILED: Gone" + kDash + "/Applications/Gone.app: it no longer exists; kept in the ledger",
                  "Login Items: kept off: Kept" + kDash +
                      "/Applications/Kept.app: you excluded it from giving back; kept in the ledger",
                  "LaunchAgents: given back: Mail" + kDash + "com.example.mail.agent switched back on",
                  "LaunchAgents: left off: Sync" + kDash +
                      "com.example.sync.agent was found switched off, maybe not by Holdenmere, so it stays off; to "
                      "switch it on: launchctl enable " + launchdServiceTarget("com.example.sync.agent"),
                  "LaunchAgents: kept off: Kept" + kDash +
                      "com.example.kept.agent: you excluded it from giving back; kept in the ledger",
                  "held helpers: given back: Mail" + kDash + "com.example.mail.helper switched back on",
                  "held startup items: given back: Job" + kDash + "com.example.job switched back on",
                  "held startup items: left off: WasOff" + kDash +
                      "com.example.wasoff was already off when Holdenmere found it",
                  "app extensions: kept in the ledger: Ext" + kDash +
                      "this build cannot switch appExtension items back on; kept in the ledger",
                  "reopen-windows setting: kept in the ledger: reopen windows when logging back in" + kDash +
                      "this build cannot restore it; kept in the ledger",
              }));
    EXPECT_TRUE(report.anyFailed());
    EXPECT_FALSE(report.ledgerFailure);

    // The Login Item came back as it was, once.
    EXPECT_EQ(scripts.loginItems.items,
              (std::vector<FakeLoginItem>{{"/Applications/Drive.app", false}, {"/Applications/Mail.app", true}}));
    // Switched on and loaded; what was off when found, or kept off, stays off.
    EXPECT_EQ(launchd.disabled, (std::set<std::string>{"com.example.sync.agent", "com.example.kept.agent",
                                                       "com.example.wasoff"}));
    EXPECT_EQ(launchd.loaded,
              (std::set<std::string>{"com.example.mail.agent", "com.example.mail.helper", "com.example.job"}));

    // What was given back or left off left the ledger; what failed or was kept stays.
    const HoldenmereConfig& after = file.stored;
    EXPECT_EQ(after.takeovers, (std::vector<TakeoverRecord>{before.takeovers[2], before.takeovers[4]}));
    EXPECT_TRUE(after.delayedHelpers.empty());
    EXPECT_EQ(after.heldStartup, (std::vector<HeldStartupItem>{before.heldStartup[2]}));
    EXPECT_EQ(after.reopenWindowsOriginal, before.reopenWindowsOriginal);
    EXPECT_FALSE(after.apps[0].importedFromLoginItem);

    // A second run gives nothing back twice.
    scripts.clearScripts();
    const auto changesBefore = launchd.changes().size();
    const int saves = file.saves;
    giveBack(false);
    EXPECT_EQ(file.saves, saves + 1) << "only the give-back generation is saved again";
    EXPECT_EQ(launchd.changes().size(), changesBefore);
    for (const auto& script : scripts.scripts()) EXPECT_EQ(script.find("make new"), std::string::npos);
}

// An agent switched off while launchd's list could not be read to confirm
// it: at give-back launchd tells whether the switch took, as the next pass
// would have asked it.
TEST_F(StartupRestorerTest, AnUnconfirmedSwitchOffIsSettledByWhatLaunchdSaysNow) {
    struct Case {
        std::string name;
        bool readable;
        bool disabledNow;
        std::string line;
        bool kept;
    };
    const std::string agent = "com.example.mail.agent";
    for (const auto& c : std::vector<Case>{
             {"off: Holdenmere's switch took", true, true,
              "LaunchAgents: given back: Mail" + kDash + agent + " switched back on", false},
             {"on: it never took", true, false,
              "LaunchAgents: given back: Mail" + kDash + agent + " is on already; its switch-off never took", false},
             {"launchd cannot tell", false, true,
              "LaunchAgents: FAILED: Mail" + kDash + agent +
                  ": launchd's disabled list could not be read, so nothing was changed; kept in the ledger",
              true},
         }) {
        SCOPED_TRACE(c.name);
        config.takeovers = {{"com.example.mail", "Mail", {}, {{agent, "/L/com.example.mail.agent.plist", false, true}}}};
        config.delayedHelpers.clear();
        config.heldStartup.clear();
        config.reopenWindowsOriginal.reset();
        launchd.disabled.clear();
        if (c.disabledNow) launchd.disabled.insert(agent);
        launchd.disabledListReadable = c.readable;
        const auto report = giveBack(false);
        ASSERT_EQ(report.entries.size(), 1u);
        EXPECT_EQ(report.entries[0].line(), c.line);
        EXPECT_EQ(testing::recordsAgent(file.stored, agent), c.kept);
        launchd.disabledListReadable = true;
        EXPECT_EQ(launchd.disabled.count(agent) != 0, c.kept) << "as found: on, or untold and untouched";
    }
}

// Giving a helper back forgets that it was off when it was held, so that
// holding it again later while on gives it back on.
TEST_F(StartupRestorerTest, AHelperGivenBackLeavesNoKeptOffNoteBehind) {
    config.keptOff = {"com.example.mail.helper", "com.example.other"};
    giveBack(false);
    EXPECT_EQ(file.stored.keptOff, (std::vector<std::string>{"com.example.other"}));
    EXPECT_TRUE(file.stored.delayedHelpers.empty());
    EXPECT_TRUE(launchd.disabled.count("com.example.mail.helper")) << "it was off when held: it stays off";
}

TEST_F(StartupRestorerTest, DryRunAsksNothingAndChangesNothing) {
    const HoldenmereConfig before = config;
    auto report = giveBack(true);
    EXPECT_EQ(report.entries[0],
              (Entry{Source::loginItems, "Mail", "add /Applications/Mail.app (hidden)", Outcome::wouldGiveBack}));
    EXPECT_EQ(report.entries[2].line(),
              "Login Items: would fail: Gone" + kDash + "/Applications/Gone.app: it no longer exists; kept in the ledger");
    EXPECT_EQ(report.entries[4].line(),
              "LaunchAgents: would give back: Mail" + kDash + "switch com.example.mail.agent back on");
    EXPECT_EQ(report.entries[9].line(), "held startup items: left off: WasOff" + kDash +
                                            "com.example.wasoff was already off when Holdenmere found it; would leave "
                                            "it off");
    EXPECT_EQ(file.stored, before);
    EXPECT_EQ(file.saves, 0);
    EXPECT_FALSE(report.anyFailed());
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
}

TEST_F(StartupRestorerTest, FailuresAndUnreadableStateStayInTheLedger) {
    // System Events not allowed, launchd refusing.
    scripts.unavailable = true;
    launchd.exitStatus["enable"] = 5;
    config.restoreOptOuts.clear();
    const HoldenmereConfig before = config;
    auto report = giveBack(false);
    EXPECT_THAT(lines(report),
                ::testing::Contains("Login Items: FAILED: Mail" + kDash +
                                    "/Applications/Mail.app (hidden): the Login Items could not be read from System "
                                    "Events, so nothing was changed; kept in the ledger"));
    EXPECT_THAT(lines(report), ::testing::Contains("LaunchAgents: FAILED: Mail" + kDash +
                                                   "com.example.mail.agent: launchctl enable failed (exit 5); kept in "
                                                   "the ledger"));
    EXPECT_THAT(lines(report), ::testing::Contains("held helpers: FAILED: Mail" + kDash +
                                                   "com.example.mail.helper: launchctl enable failed (exit 5); kept in "
                                                   "the ledger"));
    // Only what is left off leaves the ledger.
    HoldenmereConfig expected = before;
    expected.takeovers.erase(expected.takeovers.begin() + 3);         // Sync: found off, stays off
    expected.heldStartup.erase(expected.heldStartup.begin() + 1);     // WasOff: was off when found
    expected.giveBackGeneration = 1;  // a give-back happened, whatever it could give
    EXPECT_EQ(file.stored, expected);

    // launchd's disabled list unreadable: nothing is switched on.
    launchd.exitStatus.clear();
    launchd.disabledListReadable = false;
    const auto changes = launchd.changes().size();
    report = giveBack(false);
    EXPECT_EQ(launchd.changes().size(), changes);
    EXPECT_THAT(lines(report), ::testing::Contains("LaunchAgents: FAILED: Mail" + kDash +
                                                   "com.example.mail.agent: launchd's disabled list could not be "
                                                   "read, so nothing was changed; kept in the ledger"));
}

TEST_F(StartupRestorerTest, AFailedLedgerSaveAfterAGiveBackIsReported) {
    config.takeovers = {{"com.example.mail", "Mail", {{"/Applications/Mail.app", true}}, {}}};
    config.delayedHelpers.clear();
    config.heldStartup.clear();
    config.reopenWindowsOriginal.reset();
    file.failingSaves = {2};  // the first notes the give-back
    auto report = giveBack(false);
    EXPECT_EQ(report.ledgerFailure, "Could not write config: disk full");
    EXPECT_EQ(lines(report), std::vector<std::string>{"Login Items: given back: Mail" + kDash +
                                                      "added /Applications/Mail.app (hidden)"});
    EXPECT_TRUE(testing::recordsLoginItem(file.stored, "/Applications/Mail.app"));
}

TEST_F(StartupRestorerTest, HoldenmeresOwnItemsInTheLedgerAreLeftAsTheyAreAndLeaveIt) {
    const std::string own = "com.tavik.holdenmere.agent";
    config = HoldenmereConfig{};
    config.takeovers = {{"com.tavik.holdenmere", "Holdenmere", {{"/Applications/Holdenmere.app", false}}, {}},
                        {"com.example.mail", "Mail", {}, {{own, "/L/own.plist", false}}}};
    config.delayedHelpers = {{own, "/L/own.plist", "com.example.mail", "Mail", DelayedHelper::Mode::delay}};
    config.heldStartup = {{StartupSource::launchdJob, own, std::nullopt, "Agent", "on", "/L/own.plist", Date{0}}};
    launchd.disabled = {own};
    const std::string left = " is Holdenmere's own item, which it never switches off; left as it is";

    EXPECT_EQ(giveBack(true).entries[0].line(),
              "Login Items: left off: Holdenmere" + kDash + "would leave /Applications/Holdenmere.app" + left);
    EXPECT_EQ(file.saves, 0);
    auto report = giveBack(false);
    EXPECT_EQ(lines(report), (std::vector<std::string>{
                                 "Login Items: left off: Holdenmere" + kDash + "/Applications/Holdenmere.app" + left,
                                 "LaunchAgents: left off: Mail" + kDash + own + left,
                                 "held helpers: left off: Mail" + kDash + own + left,
                                 "held startup items: left off: Agent" + kDash + own + left,
                             }));
    EXPECT_FALSE(report.anyFailed());
    EXPECT_TRUE(launchd.changes().empty());
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(file.stored.takeovers.empty());
    EXPECT_TRUE(file.stored.delayedHelpers.empty());
    EXPECT_TRUE(file.stored.heldStartup.empty());
}

TEST(StartupRestorerHang, AHangingLaunchctlIsAFailureKeptInTheLedger) {
    testing::TemporaryDirectory folder;
    testing::FakeLaunchctlTool tool;
    tool.mark("com.example.sync.agent", true);
    tool.hang("enable");
    SystemLaunchctl launchctl(testing::FakeLaunchctlTool::executable(),
                              SystemLaunchctl::Limits{std::chrono::milliseconds(2000), std::chrono::milliseconds(300)});
    FakeScriptRunning scripts;
    testing::ConfigFile file{folder / "config.json"};
    file.stored.recordAgent("com.example.sync", "Sync", "com.example.sync.agent", "/L/sync.plist", false);
    const HoldenmereConfig before = file.stored;

    StartupTransaction transaction = file.begin();
    StartupChangeEngine engine(transaction, launchctl, scripts);
    auto report = StartupRestorer::giveBack(engine, false);
    ASSERT_EQ(report.entries.size(), 1u);
    EXPECT_EQ(report.entries[0].line(), "LaunchAgents: FAILED: Sync" + kDash +
                                            "com.example.sync.agent: launchctl enable failed (exit -1); kept in the "
                                            "ledger");
    HoldenmereConfig expected = before;
    expected.giveBackGeneration = 1;
    EXPECT_EQ(file.stored, expected);
    EXPECT_TRUE(tool.state().disabled.at("com.example.sync.agent"));
}

}  // namespace
}  // namespace holdenmere
