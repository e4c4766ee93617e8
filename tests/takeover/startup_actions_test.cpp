// The desktop app's actions on startup items, as the engine carries them
// out: each a transaction of its own, every change recorded first.
#include "core/takeover/startup_actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::ConfigFile;
using ::testing::Contains;
using ::testing::HasSubstr;
using Calls = std::vector<std::vector<std::string>>;

const std::string kDash = " \xE2\x80\x94 ";

class StartupActionsTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlRunning launchd;
    testing::CheckedLaunchctl launchctl{launchd, file};
    testing::FakeScriptRunning scripts;
    StartupActions actions{{file.access(), launchctl, scripts, StartupSafety::systemEnvironment()}};
    std::string notes;
    std::string sync;

    void SetUp() override {
        notes = testing::writeAppBundle(folder / "Applications", "Notes", "Notes", "com.example.notes").string();
        sync = testing::writeAppBundle(folder / "Applications", "Sync", "Sync", "com.example.sync").string();
        scripts.loginItems.items = {{notes, true}};
        // Every Login Item removal must find its recovery entry saved.
        scripts.beforeEach = [this](const std::string& script) {
            if (script.find(" to delete ") != std::string::npos) {
                EXPECT_TRUE(testing::recordsLoginItem(file.stored, notes));
            }
        };
    }

    static ManagedApp app(const std::string& identifier, const std::string& name, const std::string& path) {
        ManagedApp result;
        result.bundleIdentifier = identifier;
        result.name = name;
        result.path = path;
        return result;
    }
};

TEST_F(StartupActionsTest, TakingALoginItemOverManagesTheAppAsItWasOpened) {
    file.stored.leftToMacOS = {"com.example.notes"};
    const auto outcome = actions.takeOverLoginItem(app("com.example.notes", "Notes", notes), notes);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Removed Notes from Login Items" + kDash +
                                                      "Holdenmere now gates it."});
    ASSERT_EQ(file.stored.apps.size(), 1u);
    EXPECT_TRUE(file.stored.apps[0].launchHidden);
    EXPECT_TRUE(file.stored.apps[0].importedFromLoginItem);
    EXPECT_TRUE(file.stored.leftToMacOS.empty());
    EXPECT_EQ(file.stored.takeover("com.example.notes")->loginItems, (std::vector<RemovedLoginItem>{{notes, true}}));
    EXPECT_TRUE(scripts.loginItems.items.empty());

    // Gone meanwhile: nothing changes.
    const auto again = actions.takeOverLoginItem(app("com.example.notes", "Notes", notes), notes);
    EXPECT_FALSE(again.ok);
    EXPECT_EQ(again.lines, std::vector<std::string>{"Notes is no longer a Login Item, so nothing was changed."});
}

TEST_F(StartupActionsTest, ABusyLockOrAnUnreadableListChangesNothing) {
    {
        auto lease = StartupMutationLock(file.url).acquire(false);
        const auto outcome = actions.takeOverLoginItem(app("com.example.notes", "Notes", notes), notes);
        EXPECT_FALSE(outcome.ok);
        EXPECT_THAT(outcome.lines[0], HasSubstr("Holdenmere is changing your startup items right now."));
    }
    scripts.unavailable = true;
    const auto outcome = actions.takeOverLoginItem(app("com.example.notes", "Notes", notes), notes);
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.lines[0], HasSubstr("could not be read from System Events, so nothing was changed"));
    EXPECT_EQ(file.saves, 0);
    scripts.unavailable = false;
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{notes});
}

TEST_F(StartupActionsTest, TakingALaunchAgentOverKeepsToItsSafetyTier) {
    const StartupActions::Agent agent{"com.example.sync.agent", (folder / "sync.plist").string()};
    // An app that carries a system extension needs the user's confirmation.
    testing::writeFile(std::filesystem::path(sync) / "Contents/Library/SystemExtensions/net.systemextension/x", "");
    auto outcome = actions.takeOverAgent(app("com.example.sync", "Sync", sync), agent, /*confirmed=*/false);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Sync was not taken over: it needs your confirmation first."});
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_EQ(file.saves, 0);

    outcome = actions.takeOverAgent(app("com.example.sync", "Sync", sync), agent, /*confirmed=*/true);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.lines[0], "Sync now starts once the network answers; its LaunchAgent com.example.sync.agent is "
                                "switched off.");
    EXPECT_EQ(launchd.changes(), (Calls{{"disable", launchdServiceTarget("com.example.sync.agent")}}));
    EXPECT_TRUE(file.stored.apps[0].importedFromStartup);
    EXPECT_TRUE(testing::recordsAgent(file.stored, "com.example.sync.agent"));
}

// launchd starts an app a system LaunchDaemon runs before any login: taking
// it over would only end its Login Item or agent, and the next login pass
// would drop it from the managed apps.
TEST_F(StartupActionsTest, AnAppASystemDaemonRunsIsNeverTakenOver) {
    auto environment = StartupSafety::systemEnvironment();
    environment.systemDaemonAppPaths = [this] { return std::set<std::string>{notes + "/", sync}; };
    const StartupActions guarded{{file.access(), launchctl, scripts, environment}};
    const std::string refusal = " was not taken over: run by a system LaunchDaemon; launchd starts it, Holdenmere "
                                "cannot gate it. Nothing changed.";

    const auto item = guarded.takeOverLoginItem(app("com.example.notes", "Notes", notes), notes);
    const auto agent = guarded.takeOverAgent(app("com.example.sync", "Sync", sync),
                                             {"com.example.sync.agent", (folder / "sync.plist").string()}, true);
    EXPECT_FALSE(item.ok);
    EXPECT_EQ(item.lines, std::vector<std::string>{"Notes" + refusal});
    EXPECT_FALSE(agent.ok);
    EXPECT_EQ(agent.lines, std::vector<std::string>{"Sync" + refusal});
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_EQ(file.saves, 0);
}

TEST_F(StartupActionsTest, StoppingMacOSFromStartingAManagedAppEndsEachSourceRecordedFirst) {
    file.stored.apps = {app("com.example.notes", "Notes", notes)};
    const std::vector<StartupActions::Agent> agents{{"com.example.notes.agent", "/L/notes.plist"}};
    auto outcome = actions.stopMacOSStarting("com.example.notes", "Notes", {notes}, agents, /*confirmed=*/true);
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.lines, (std::vector<std::string>{
                                 "Removed Notes from Login Items" + kDash + "Holdenmere now gates it.",
                                 "Notes" + kDash + "LaunchAgent com.example.notes.agent switched off",
                             }));
    EXPECT_TRUE(testing::recordsAgent(file.stored, "com.example.notes.agent"));

    file.stored.apps.clear();
    outcome = actions.stopMacOSStarting("com.example.notes", "Notes", {notes}, agents, false);
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Notes is no longer managed, so nothing was changed."});
}

TEST_F(StartupActionsTest, HelperModesHoldReleaseAndConvert) {
    const std::string plist = (folder / "helper.plist").string();
    testing::writeFile(plist, "<plist/>");
    const DelayedHelper helper{"com.example.notes.helper", plist, "com.example.notes", "Notes Helper",
                               DelayedHelper::Mode::off};
    launchd.labelOfPlist = {{plist, "com.example.notes.helper"}};
    // Waiting for the network needs the login pass.
    auto outcome = actions.setHelperMode(helper, DelayedHelper::Mode::delay, HoldenmereLoginAgentStatus::notInstalled);
    EXPECT_FALSE(outcome.ok);
    EXPECT_THAT(outcome.lines[0], HasSubstr("Turn on Start at login in Settings first."));
    EXPECT_TRUE(launchd.calls().empty());

    outcome = actions.setHelperMode(helper, DelayedHelper::Mode::off, HoldenmereLoginAgentStatus::notInstalled);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Notes Helper is kept off at login."});
    EXPECT_TRUE(launchd.disabled.count(helper.label));
    ASSERT_EQ(file.stored.delayedHelpers.size(), 1u);

    outcome = actions.setHelperMode(helper, DelayedHelper::Mode::delay, HoldenmereLoginAgentStatus::activeAtLogin);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Notes Helper now waits for the network at login."});
    EXPECT_EQ(file.stored.delayedHelpers[0].mode, DelayedHelper::Mode::delay);

    outcome = actions.setHelperMode(helper, std::nullopt, HoldenmereLoginAgentStatus::activeAtLogin);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"Notes Helper starts with macOS again."});
    EXPECT_FALSE(launchd.disabled.count(helper.label));
    EXPECT_TRUE(launchd.loaded.count(helper.label));
    EXPECT_TRUE(file.stored.delayedHelpers.empty());
}

TEST_F(StartupActionsTest, AHelperThatWasOffWhenHeldStaysOffWhenEverythingIsGivenBack) {
    const DelayedHelper helper{"com.example.notes.helper", "/L/helper.plist", "com.example.notes", "Notes Helper",
                               DelayedHelper::Mode::off};
    launchd.disabled = {helper.label};
    EXPECT_TRUE(actions.setHelperMode(helper, DelayedHelper::Mode::off, HoldenmereLoginAgentStatus::notInstalled).ok);
    EXPECT_EQ(file.stored.keptOff, std::vector<std::string>{helper.label});

    const auto outcome = actions.giveEverythingBack([] { return std::optional<std::string>(); });
    EXPECT_THAT(outcome.lines, Contains("held helpers: left off: Notes Helper" + kDash + helper.label +
                                        " was already off when Holdenmere began to hold it"));
    EXPECT_TRUE(launchd.disabled.count(helper.label));
    EXPECT_TRUE(file.stored.delayedHelpers.empty());
}

TEST_F(StartupActionsTest, RepairSaysSoWhenLaunchdCannotBeRead) {
    const HelperRepair::Candidate candidate{"com.example.sync.agent", "Sync", "com.example.sync", "disabled"};
    launchd.disabled = {candidate.label};
    launchd.disabledListReadable = false;
    auto outcome = actions.repairHelpers({candidate}, folder / "Holdenmere.log", Date{0});
    EXPECT_FALSE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"launchd's disabled list could not be read, so nothing was changed."});
    EXPECT_TRUE(launchd.changes().empty());

    launchd.disabledListReadable = true;
    outcome = actions.repairHelpers({candidate}, folder / "Holdenmere.log", Date{0});
    EXPECT_TRUE(outcome.ok);
    EXPECT_EQ(outcome.lines, std::vector<std::string>{"switched back on: Sync" + kDash + "com.example.sync.agent"});
}

TEST_F(StartupActionsTest, GivingEverythingBackSavesTheOptOutFirst) {
    file.stored.startupConsent = StartupConsent::granted;
    file.stored.recordLoginItem("com.example.notes", "Notes", {notes, true});
    scripts.loginItems.items.clear();
    bool agentOff = false;
    auto outcome = actions.giveEverythingBack([&]() -> std::optional<std::string> {
        EXPECT_EQ(file.stored.startupConsent, StartupConsent::declined);
        agentOff = true;
        return std::nullopt;
    });
    EXPECT_TRUE(outcome.ok);
    EXPECT_TRUE(agentOff);
    EXPECT_EQ(outcome.lines, (std::vector<std::string>{
                                 "Login Items: given back: Notes" + kDash + "added " + notes + " (hidden)",
                                 "login agent: turned off; Holdenmere no longer runs at login",
                             }));
    EXPECT_EQ(scripts.loginItems.items, (std::vector<testing::FakeLoginItem>{{notes, true}}));
    EXPECT_TRUE(file.stored.takeovers.empty());

    // The opt-out not saved: nothing is given back, the agent stays on.
    file.stored.recordLoginItem("com.example.notes", "Notes", {notes, true});
    file.failingSaves = {file.saves + 1};
    agentOff = false;
    outcome = actions.giveEverythingBack([&]() -> std::optional<std::string> {
        agentOff = true;
        return std::nullopt;
    });
    EXPECT_FALSE(outcome.ok);
    EXPECT_FALSE(agentOff);
    EXPECT_THAT(outcome.lines[0], HasSubstr("Nothing restored; login agent left on."));
}

}  // namespace
}  // namespace holdenmere
