// The ownership pass against in-memory System Events and launchd, through
// the startup-change engine, with a configuration whose loads and saves can
// be made to fail one by one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/takeover/ownership_pass_fixture.h"

namespace holdenmere {
namespace {

using testing::Calls;
using ::testing::Contains;
using testing::launchRecord;
using testing::managedApp;
using testing::OwnershipPass;
using testing::recordsAgent;
using testing::recordsLoginItem;

const std::string kDash = " \xE2\x80\x94 ";

TEST_F(OwnershipPass, WithoutConsentNothingIsTouched) {
    for (auto consent : {StartupConsent::undecided, StartupConsent::declined}) {
        file.stored.startupConsent = consent;
        auto result = pass();
        EXPECT_EQ(result.lines, std::vector<std::string>{
                                    "startup take-over not enabled" + kDash +
                                    "Login Items left to macOS (consent: " + std::string(rawValue(consent)) + ")"});
        EXPECT_EQ(result.loginItemsNotRemoved, 0);
        EXPECT_EQ(result.config, file.stored);
    }
    EXPECT_TRUE(scripts.scripts().empty());
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_EQ(file.saves, 0);
}

TEST_F(OwnershipPass, TakesEverythingOverAndRecordsItFirst) {
    auto result = pass({"com.example.chat"});
    EXPECT_EQ(result.lines,
              (std::vector<std::string>{
                  "taken over: Mail" + kDash + "a managed app's Login Item; removed",
                  "imported: Drive" + kDash + "was a macOS Login Item; Holdenmere now starts it",
                  "blocked: Chat" + kDash +
                      "was switched off in Holdenmere but macOS still started it from Login Items; its Login Item is "
                      "removed",
                  "imported: Cloud" + kDash + "was a macOS startup item; Holdenmere now starts it",
                  "Cloud" + kDash + "its agent passed \"--quiet\"; Holdenmere opens it without them",
                  "taken over: Sync" + kDash + "LaunchAgent com.example.sync.agent disabled",
                  "taken over: Cloud" + kDash + "LaunchAgent com.example.cloud.agent disabled",
                  "Mail" + kDash + "recorded for --restore-startup",
                  "Drive" + kDash + "recorded for --restore-startup",
                  "Chat" + kDash + "recorded for --restore-startup",
                  "Sync" + kDash + "recorded for --restore-startup",
                  "Cloud" + kDash + "recorded for --restore-startup",
              }));
    EXPECT_EQ(result.loginItemsNotRemoved, 0);
    EXPECT_TRUE(scripts.loginItems.items.empty());
    EXPECT_EQ(disables(), (Calls{disableOf("com.example.sync.agent"), disableOf("com.example.cloud.agent")}));

    const HoldenmereConfig& saved = file.stored;
    EXPECT_EQ(result.config, saved);
    ASSERT_EQ(saved.apps.size(), 4u);
    EXPECT_EQ(saved.apps[2].name, "Drive");
    EXPECT_TRUE(saved.apps[2].launchHidden);
    EXPECT_TRUE(saved.apps[2].importedFromLoginItem);
    EXPECT_EQ(saved.apps[3].name, "Cloud");
    EXPECT_TRUE(saved.apps[3].importedFromStartup);
    EXPECT_EQ(saved.takeovers,
              (std::vector<TakeoverRecord>{
                  {"com.example.mail", "Mail", {{mail, false}}, {}},
                  {"com.example.drive", "Drive", {{drive, true}}, {}},
                  {"com.example.chat", "Chat", {{chat, false}}, {}},
                  {"com.example.sync", "Sync", {}, {{"com.example.sync.agent", plistOf("com.example.sync.agent"), false}}},
                  {"com.example.cloud", "Cloud", {}, {{"com.example.cloud.agent", plistOf("com.example.cloud.agent"), false}}},
              }));

    // The next pass finds nothing left to do and changes nothing.
    const int saves = file.saves;
    launchd.exitStatus["disable"] = 5;
    auto again = pass();
    EXPECT_TRUE(again.lines.empty());
    EXPECT_EQ(file.saves, saves);
}

TEST_F(OwnershipPass, EveryLoginItemOfAnAppIsRecordedAndRemoved) {
    // Two copies of Drive, each with a Login Item of its own.
    const std::string copy = testing::writeAppBundle(folder / "Users/sam/Applications", "Drive", "Drive",
                                                     "com.example.drive").string();
    scripts.loginItems.items = {{drive, true}, {copy, false}};
    auto result = pass();
    EXPECT_EQ(std::count(result.lines.begin(), result.lines.end(),
                         "imported: Drive" + kDash + "was a macOS Login Item; Holdenmere now starts it"),
              1);
    EXPECT_TRUE(scripts.loginItems.items.empty());
    EXPECT_EQ(file.stored.takeover("com.example.drive")->loginItems,
              (std::vector<RemovedLoginItem>{{drive, true}, {copy, false}}));
}

TEST_F(OwnershipPass, AppsWhoseLaunchFailedKeepTheirLoginItemAndAgent) {
    records = {launchRecord("com.example.mail", LaunchOutcome::failed),
               launchRecord("com.example.sync", LaunchOutcome::failed)};
    auto result = pass();
    EXPECT_THAT(result.lines, Contains("Mail" + kDash + "its launch failed this pass, so its Login Item stays"));
    EXPECT_THAT(result.lines, Contains("Sync" + kDash + "its launch failed this pass, so its LaunchAgent stays"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{mail});
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_EQ(file.stored.takeover("com.example.mail"), nullptr);
    EXPECT_EQ(file.stored.takeover("com.example.sync"), nullptr);
}

TEST_F(OwnershipPass, UnsavedImportsKeepTheirLoginItemsAndAgents) {
    file.failingSaves = {1};
    auto result = pass();
    EXPECT_THAT(result.lines,
                Contains("WARNING: could not save imported apps" + kDash + "Could not write config: disk full"));
    EXPECT_THAT(result.lines, Contains("Drive" + kDash + "its import could not be saved, so its Login Item stays"));
    EXPECT_THAT(result.lines, Contains("Cloud" + kDash + "its import could not be saved, so its LaunchAgent stays"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{drive});
    EXPECT_EQ(disables(), Calls{disableOf("com.example.sync.agent")});
    // The later saves start from the file, so the unsaved imports never reach it.
    EXPECT_EQ(file.stored.apps.size(), 2u);
    EXPECT_EQ(file.stored.takeover("com.example.drive"), nullptr);
    // The pass goes on with them in memory.
    EXPECT_EQ(result.config.apps.size(), 4u);
}

TEST_F(OwnershipPass, AChangeWhoseRecordIsNotSavedIsNotMade) {
    manageAll();
    // Saves: Mail's Login Item, Drive's, Sync's agent, Cloud's.
    file.failingSaves = {1, 3};
    auto result = pass();
    EXPECT_THAT(result.lines, Contains("Mail" + kDash +
                                       "its Login Item stays: the recovery record could not be saved, so the Login "
                                       "Items were not changed (Could not write config: disk full)"));
    EXPECT_THAT(result.lines, Contains("Sync" + kDash +
                                       "LaunchAgent com.example.sync.agent is NOT disabled: the recovery record could "
                                       "not be saved, so launchd was not changed (Could not write config: disk full)"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{mail});
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_FALSE(recordsLoginItem(file.stored, mail));
    EXPECT_TRUE(recordsLoginItem(file.stored, drive));
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
}

TEST_F(OwnershipPass, NoReadNoRecordNoChange) {
    manageAll();
    file.failingLoads = {2, 3, 4, 5, 6};
    auto result = pass();
    EXPECT_TRUE(launchd.changes().empty());
    for (const auto& script : scripts.scripts()) EXPECT_EQ(script.find(" to delete "), std::string::npos);
    EXPECT_EQ(file.saves, 0);
    EXPECT_EQ(result.loginItemsNotRemoved, 2);
}

TEST_F(OwnershipPass, AnUnconfirmedSwitchIsMarkedThenSettledAtTheNextPass) {
    manageAll();
    scripts.loginItems.items.clear();
    // launchd answers before the disable and not after it.
    int reads = 0;
    launchd.beforeDisabledList = [&] { launchd.disabledListReadable = ++reads % 2 == 1; };
    auto result = pass();
    EXPECT_THAT(result.lines, Contains("Sync" + kDash +
                                       "LaunchAgent com.example.sync.agent is NOT confirmed disabled: The command ran "
                                       "but launchd's disabled list could not be read to confirm it."));
    const auto& agents = file.stored.takeover("com.example.sync")->agents;
    ASSERT_EQ(agents.size(), 1u);
    EXPECT_TRUE(agents[0].unconfirmed);

    // Read at the next pass: Sync's switch took, Cloud's did not.
    launchd.beforeDisabledList = nullptr;
    launchd.disabledListReadable = true;
    launchd.disabled.erase("com.example.cloud.agent");
    launchd.exitStatus["disable"] = 5;
    result = pass();
    EXPECT_THAT(result.lines, Contains("ledger: Sync" + kDash + "LaunchAgent com.example.sync.agent is confirmed "
                                                                "switched off"));
    EXPECT_THAT(result.lines, Contains("ledger: Cloud" + kDash + "LaunchAgent com.example.cloud.agent was never "
                                                                 "switched off; its record is dropped"));
    EXPECT_FALSE(file.stored.takeover("com.example.sync")->agents[0].unconfirmed);
    EXPECT_EQ(file.stored.takeover("com.example.cloud"), nullptr);
}

TEST_F(OwnershipPass, ASettledRecordNeverDropsOneMadeLaterInThePass) {
    manageAll();
    scripts.loginItems.items = {{mail}};
    // Sync was marked unconfirmed and launchd lists it enabled: the pass
    // drops that record, switches Sync off again and records it anew; Cloud
    // is recorded after that, in a later commit of the same pass.
    file.stored.recordAgent("com.example.sync", "Sync", "com.example.sync.agent", plistOf("com.example.sync.agent"),
                            false);
    file.stored.takeover("com.example.sync")->agents[0].unconfirmed = true;
    pass();
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.sync.agent"));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
    EXPECT_TRUE(launchd.disabled.count("com.example.sync.agent"));
}

TEST_F(OwnershipPass, TheBackfillRunsOnlyForAConfigurationOlderThanTheLedger) {
    // Sync's agent was switched off long ago, by the user.
    file.stored.blockedApps.clear();
    scripts.loginItems.items.clear();
    launchd.disabled = {"com.example.sync.agent", "com.example.cloud.agent"};
    auto result = pass();
    EXPECT_TRUE(result.lines.empty());
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));

    predatesLedger = true;
    result = pass();
    EXPECT_THAT(result.lines,
                Contains("ledger: Sync" + kDash + "LaunchAgent com.example.sync.agent is disabled; probably by Holdenmere"));
    EXPECT_EQ(file.stored.takeover("com.example.sync")->agents,
              (std::vector<DisabledAgent>{{"com.example.sync.agent", plistOf("com.example.sync.agent"), true}}));
}

TEST_F(OwnershipPass, TheLedgerIsMergedIntoAFreshRead) {
    scripts.loginItems.items = {{mail}};
    file.stored.blockedApps.clear();
    // The desktop app adds an app while the pass runs.
    file.beforeLoad = [this](HoldenmereConfig& config) {
        if (file.loads == 3) config.apps.push_back(ManagedApp{"com.example.new", "New", "/New.app"});
    };
    auto result = pass();
    ASSERT_EQ(file.stored.apps.size(), 4u);
    EXPECT_EQ(file.stored.apps[2].name, "Cloud");
    EXPECT_EQ(file.stored.apps[3].name, "New");
    EXPECT_TRUE(recordsLoginItem(file.stored, mail));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.sync.agent"));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
    EXPECT_EQ(result.config, file.stored);
}

TEST_F(OwnershipPass, TheLedgersReReadFailing) {
    manageAll();
    scripts.loginItems.items = {{mail}};
    // Loads: the transaction's, Mail's record, Sync's, Cloud's, the ledger's check.
    file.failingLoads = {5};
    auto result = pass();
    EXPECT_EQ(result.lines.back(), "WARNING: could not re-read the config to save the take-over ledger");
    EXPECT_EQ(file.saves, 3);
    EXPECT_TRUE(recordsLoginItem(file.stored, mail));
    EXPECT_TRUE(recordsAgent(file.stored, "com.example.cloud.agent"));
}

TEST_F(OwnershipPass, ALedgerOverwrittenMeanwhileIsSavedAgainOrNamed) {
    manageAll();
    scripts.loginItems.items = {{mail}};
    // Another writer drops the ledger just before the pass checks it.
    file.beforeLoad = [this](HoldenmereConfig& config) {
        if (file.loads == 5) config.takeovers.clear();
    };
    file.failingSaves = {4};
    auto result = pass();
    EXPECT_EQ(result.lines.back(), "WARNING: could not save the take-over ledger" + kDash +
                                       "--restore-startup will not know about Mail, Sync, Cloud");

    file.failingSaves.clear();
    file.stored.takeovers.clear();
    file.loads = 0;
    file.saves = 0;
    scripts.loginItems.items = {{mail}};
    result = pass();
    EXPECT_EQ(result.lines.back(), "Mail" + kDash + "recorded for --restore-startup");
    EXPECT_TRUE(recordsLoginItem(file.stored, mail));
}

TEST_F(OwnershipPass, FailedSwitchesAndRemovalsAreReportedAndLeaveNoRecord) {
    file.stored.blockedApps.clear();
    scripts.loginItems.items = {{mail}};
    scripts.ignoreDeletes = true;
    launchd.exitStatus["disable"] = 5;
    auto result = pass();
    EXPECT_THAT(result.lines, Contains("Mail" + kDash + "could NOT remove it from Login Items: it is still in Login Items"));
    EXPECT_THAT(result.lines, Contains("Sync" + kDash +
                                       "LaunchAgent com.example.sync.agent is NOT disabled: launchctl disable failed "
                                       "(exit 5)"));
    EXPECT_EQ(result.loginItemsNotRemoved, 1);
    // Nothing changed, so nothing is left for a give-back to switch on.
    EXPECT_FALSE(recordsLoginItem(file.stored, mail));
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));
}

TEST_F(OwnershipPass, SafetyRulesComeBeforeAnyRecord) {
    // An app that carries a system extension is a security or network tool:
    // its agent is not switched off at login without the user's confirmation.
    testing::writeFile(std::filesystem::path(sync) / "Contents/Library/SystemExtensions/net.systemextension/x", "");
    file.stored.blockedApps.clear();
    scripts.loginItems.items.clear();
    auto result = pass();
    EXPECT_THAT(result.lines,
                Contains(::testing::StartsWith(
                    "Sync" + kDash +
                    "LaunchAgent com.example.sync.agent is NOT disabled: not switched off without your confirmation: "
                    "Sync is a security or network tool.")));
    EXPECT_EQ(disables(), Calls{disableOf("com.example.cloud.agent")});
    EXPECT_FALSE(recordsAgent(file.stored, "com.example.sync.agent"));
}

TEST_F(OwnershipPass, OnceOutOfTimeNoChangeStarts) {
    cancellation.raise();
    auto result = pass();
    EXPECT_TRUE(launchd.changes().empty());
    for (const auto& script : scripts.scripts()) EXPECT_EQ(script.find(" to delete "), std::string::npos);
    EXPECT_THAT(result.lines, Contains("Mail" + kDash + "its Login Item stays: " +
                                       std::string(StartupChangeEngine::kOutOfTime)));
    EXPECT_THAT(result.lines, Contains("Sync" + kDash + "LaunchAgent com.example.sync.agent is NOT disabled: " +
                                       std::string(StartupChangeEngine::kOutOfTime)));
    EXPECT_TRUE(file.stored.takeovers.empty());
}

TEST_F(OwnershipPass, HoldenmeresOwnItemsAreNeverTouched) {
    const std::string own = app("Holdenmere", "com.tavik.holdenmere");
    agent("com.tavik.holdenmere.agent", own + "/Contents/MacOS/Holdenmere", {"--gate"});
    file.stored.apps.push_back(managedApp("com.tavik.holdenmere", "Holdenmere", own));
    scripts.loginItems.items = {{own}};
    auto result = pass();
    EXPECT_EQ(scripts.paths(), std::vector<std::string>{own});
    for (const auto& call : launchd.changes()) EXPECT_EQ(call[1].find("holdenmere"), std::string::npos);
    EXPECT_EQ(file.stored.takeover("com.tavik.holdenmere"), nullptr);
}

}  // namespace
}  // namespace holdenmere
