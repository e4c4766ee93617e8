#include "core/discovery/reregistration_sweep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>

#include "tests/support/fake_clock.h"
#include "tests/support/fake_script_running.h"

namespace holdenmere {
namespace {

using testing::FakeClock;
using testing::FakeLoginItem;
using testing::FakeScriptRunning;
using Removal = ReregistrationSweep::Removal;

const std::string kListPaths(LoginItemsAuditor::kListPathsScript);

// Apps whose bundles do not exist: Login Items match them by path.
ManagedApp managedApp(const std::string& name) {
    ManagedApp app;
    app.bundleIdentifier = "com.example." + name;
    app.name = name;
    app.path = "/Apps/" + name + ".app";
    return app;
}

class ReregistrationSweepTest : public ::testing::Test {
protected:
    FakeClock clock;
    FakeScriptRunning runner;
    ReregistrationSweep sweep{LoginItemsAuditor{runner}, clock};
    // The auditor's own removal: the sweep's rounds are what is tested here,
    // not how a removal is recorded.
    const ReregistrationSweep::Remove remove = [this](const ManagedApp&, const LoginItemsAuditor::LoginItem& item) {
        return LoginItemsAuditor{runner}.remove(item);
    };
    const double start = clock.uptime();

    double elapsed() { return clock.uptime() - start; }
    std::size_t count(const std::string& script) const {
        auto scripts = runner.scripts();
        return static_cast<std::size_t>(std::count(scripts.begin(), scripts.end(), script));
    }
};

TEST_F(ReregistrationSweepTest, NothingToWatchReturnsAtOnceWithoutSleeping) {
    runner.loginItems.items = {{"/Apps/Sync.app"}};
    EXPECT_TRUE(sweep.run({}, {}, remove).empty());
    EXPECT_TRUE(clock.waits().empty());
    EXPECT_TRUE(runner.scripts().empty());
    EXPECT_EQ(elapsed(), 0);
}

TEST_F(ReregistrationSweepTest, WatchesTheWholeWindowAtTheIntervalEvenWhenNothingComesBack) {
    EXPECT_EQ(sweep.window, 120.0);
    EXPECT_EQ(sweep.interval, 5.0);
    EXPECT_TRUE(sweep.run({managedApp("Sync")}, {}, remove).empty());
    EXPECT_EQ(clock.waits(), std::vector<double>(24, 5.0));
    EXPECT_EQ(runner.scripts(), std::vector<std::string>(25, kListPaths));
    EXPECT_EQ(elapsed(), 120.0);
}

TEST_F(ReregistrationSweepTest, TimeSpentInOsascriptCountsAgainstTheWindow) {
    runner.beforeEach = [&](const std::string&) { clock.advance(1.5); };
    sweep.run({managedApp("Sync")}, {}, remove);
    // Rounds take 1.5 s of script and 5 s of sleep: after 18 of them 1.5 s is
    // left to sleep, and the round after that finds the window spent.
    std::vector<double> expected(18, 5.0);
    expected.push_back(1.5);
    EXPECT_EQ(clock.waits(), expected);
    EXPECT_EQ(count(kListPaths), 20u);
    EXPECT_EQ(elapsed(), 121.5);
}

TEST_F(ReregistrationSweepTest, AnAppThatPutsItselfBackIsRemovedEachTime) {
    auto sync = managedApp("Sync");
    runner.loginItems.items = {{"/Apps/Other.app"}, {sync.path}};
    std::deque<double> reAddAt{10.0, 60.0};
    runner.beforeEach = [&](const std::string& script) {
        if (script == kListPaths && !reAddAt.empty() && elapsed() >= reAddAt.front()) {
            reAddAt.pop_front();
            runner.loginItems.items.push_back(FakeLoginItem{sync.path, true});
        }
    };
    EXPECT_EQ(sweep.run({sync}, {}, remove), (std::vector<Removal>(3, Removal{sync, LoginItemRemoval::removed})));
    EXPECT_EQ(count(LoginItemsAuditor::removeByPathScript(sync.path)), 3u);
    EXPECT_EQ(runner.paths(), (std::vector<std::string>{"/Apps/Other.app"}));
    EXPECT_EQ(elapsed(), 120.0);  // still the whole window
}

TEST_F(ReregistrationSweepTest, AnItemThatCannotBeRemovedIsReportedEveryRound) {
    auto sync = managedApp("Sync");
    runner.loginItems.items = {{sync.path}};
    runner.ignoreDeletes = true;
    EXPECT_EQ(sweep.run({sync}, {}, remove), (std::vector<Removal>(25, Removal{sync, LoginItemRemoval::failed})));
}

TEST_F(ReregistrationSweepTest, BlockedAppsAreWatchedAfterTheLaunchedOnes) {
    auto mail = managedApp("Mail");
    BlockedApp chat{"com.example.chat", "Chat", "/Apps/Chat.app"};
    runner.loginItems.items = {{chat.path}, {mail.path}};
    ReregistrationSweep oneRound{LoginItemsAuditor{runner}, clock, 0.0, 5.0};
    EXPECT_EQ(oneRound.run({mail}, {chat}, remove),
              (std::vector<Removal>{{mail, LoginItemRemoval::removed},
                                    {ReregistrationSweep::managedRecord(chat), LoginItemRemoval::removed}}));
    EXPECT_TRUE(runner.loginItems.items.empty());
    EXPECT_TRUE(clock.waits().empty());

    // Blocked apps alone are enough to watch.
    runner.loginItems.items = {{chat.path}};
    EXPECT_EQ(sweep.run({}, {chat}, remove).size(), 1u);
}

TEST(ReregistrationSweepRecords, ABlockedAppBecomesASwitchedOffManagedApp) {
    ManagedApp expected;
    expected.bundleIdentifier = "com.example.chat";
    expected.name = "Chat";
    expected.path = "/Apps/Chat.app";
    expected.isEnabled = false;
    EXPECT_EQ(ReregistrationSweep::managedRecord(BlockedApp{"com.example.chat", "Chat", "/Apps/Chat.app"}), expected);
}

TEST(ReregistrationSweepHandedOver, AppsWhoseLoginItemWasTakenOverAndThatTheLatestPassOpened) {
    auto imported = managedApp("Imported");
    imported.importedFromLoginItem = true;
    auto ledgered = managedApp("Ledgered");
    auto agentOnly = managedApp("AgentOnly");
    auto wasRunning = managedApp("WasRunning");
    wasRunning.importedFromLoginItem = true;
    auto neverRecorded = managedApp("NeverRecorded");
    neverRecorded.importedFromLoginItem = true;
    auto ownChoice = managedApp("OwnChoice");  // added by the user, never a Login Item

    HoldenmereConfig config;
    config.startupConsent = StartupConsent::granted;
    config.takeovers = {
        TakeoverRecord{ledgered.bundleIdentifier, "Ledgered", {RemovedLoginItem{ledgered.path, false}}, {}},
        TakeoverRecord{agentOnly.bundleIdentifier,
                       "AgentOnly",
                       {},
                       {DisabledAgent{"com.example.agent", "/x.plist", false}}}};
    auto launchRecord = [](const ManagedApp& app, LaunchOutcome outcome) {
        return LaunchRecord{app.bundleIdentifier, app.name, outcome, Date{0}, ""};
    };
    // Newest first, as the history store keeps it.
    std::vector<LaunchRecord> history{
        launchRecord(imported, LaunchOutcome::launched),  launchRecord(ledgered, LaunchOutcome::launched),
        launchRecord(agentOnly, LaunchOutcome::launched), launchRecord(wasRunning, LaunchOutcome::alreadyRunning),
        launchRecord(ownChoice, LaunchOutcome::launched), launchRecord(wasRunning, LaunchOutcome::launched),
        launchRecord(imported, LaunchOutcome::failed),
    };
    std::vector<ManagedApp> managed{imported, ledgered, agentOnly, wasRunning, neverRecorded, ownChoice, imported};

    EXPECT_EQ(ReregistrationSweep::handedOver(managed, config, history), (std::vector<ManagedApp>{imported, ledgered}));
    // Whether the history is worth reading at all.
    EXPECT_TRUE(ReregistrationSweep::mayHandOver(managed, config));
    EXPECT_TRUE(ReregistrationSweep::mayHandOver({ledgered}, config));
    EXPECT_FALSE(ReregistrationSweep::mayHandOver({agentOnly, ownChoice}, config));
    EXPECT_FALSE(ReregistrationSweep::mayHandOver({}, config));

    for (auto consent : {StartupConsent::undecided, StartupConsent::declined}) {
        config.startupConsent = consent;
        EXPECT_TRUE(ReregistrationSweep::handedOver(managed, config, history).empty());
        EXPECT_FALSE(ReregistrationSweep::mayHandOver(managed, config));
    }
}

TEST_F(ReregistrationSweepTest, NoRemovalStartsOnceCancelled) {
    auto sync = managedApp("Sync");
    runner.loginItems.items = {{sync.path}};
    Signal cancellation;
    int removals = 0;
    const ReregistrationSweep::Remove counting = [&](const ManagedApp& app, const LoginItemsAuditor::LoginItem& item) {
        ++removals;
        cancellation.raise();  // the pass ends while this removal runs
        return remove(app, item);
    };
    runner.beforeEach = [&](const std::string& script) {
        if (script == kListPaths) runner.loginItems.items = {{sync.path}};  // it keeps coming back
    };
    EXPECT_EQ(sweep.run({sync}, {}, counting, &cancellation).size(), 1u);
    EXPECT_EQ(removals, 1);
    EXPECT_LT(elapsed(), 120.0);
}

}  // namespace
}  // namespace holdenmere
