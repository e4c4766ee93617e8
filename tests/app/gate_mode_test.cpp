// Whole login passes in-process, against fakes of every system service and a
// clock that jumps: the paths a real pass only takes after minutes (the pass
// deadline, the two-minute re-registration sweep) run here at once.
#include "app/gate_mode.h"

#include <stdlib.h>

#include <fstream>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/takeover/startup_restorer.h"
#include "core/takeover/startup_transaction.h"
#include "tests/support/fake_app_running.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_network_changes.h"
#include "tests/support/fake_probe.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using testing::FakeLoginItem;

class GateModeTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    testing::FakeClock clock;
    testing::FakeProbe probe{clock};
    testing::FakeAppRunning apps{clock};
    testing::FakeLaunchctlRunning launchctl;
    testing::FakeScriptRunning scripts;
    GateServices services{clock,        probe, apps, launchctl, scripts, [] { return SystemDaemonScanner::Apps{}; },
                          std::nullopt, 1};

    void SetUp() override {
        // The pass waits on its runner in slices against its deadline: give
        // the runner real time to finish before a slice counts as passed.
        clock.realGrace = 0.02;
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("HOLDENMERE_CONFIG_PATH", (home / "config.json").c_str(), 1);
        ::setenv("HOLDENMERE_HISTORY_PATH", (home / "history.json").c_str(), 1);
        probe.repeat({ProbeOutcome::reachable(), 0.01, false});
    }

    ManagedApp app(const std::string& name) {
        auto path = testing::writeAppBundle(home / "Applications", name, name, "com.example." + name);
        ManagedApp managed;
        managed.bundleIdentifier = "com.example." + name;
        managed.name = name;
        managed.path = path.string();
        apps.bundles.insert(managed.path);
        return managed;
    }

    std::vector<LaunchRecord> history() const { return HistoryStore{home / "history.json", 200}.load(); }

    // What --restore-startup or the desktop app's Give Everything Back does,
    // from another process: under the startup mutation lock, through the
    // same launchd and System Events.
    std::vector<std::string> giveBack(bool everything) {
        auto begun = StartupTransaction::begin(ConfigAccess::of(ConfigStore{home / "config.json"}),
                                               StartupTransaction::Wait::untilFree);
        auto& transaction = std::get<StartupTransaction>(begun);
        StartupChangeEngine engine(transaction, launchctl, scripts, nullptr, [](const std::string&) { return true; });
        const auto report = everything
                                ? StartupRestorer::giveEverythingBack(engine, false, [] { return std::nullopt; }).report
                                : StartupRestorer::giveBack(engine, false);
        std::vector<std::string> lines;
        for (const auto& entry : report.entries) lines.push_back(entry.line());
        return lines;
    }
};

TEST_F(GateModeTest, ManagedAppsThatMacOSStartedFromLoginItemsAreWarnedAbout) {
    HoldenmereConfig config;
    config.apps = {app("Mail"), app("Notes"), app("Chat")};
    config.startupConsent = StartupConsent::declined;
    ConfigStore{home / "config.json"}.save(config);
    apps.running.insert("com.example.Mail");  // macOS got there first
    scripts.loginItems.items = {FakeLoginItem{config.apps[0].path}, FakeLoginItem{config.apps[1].path}};

    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, services), 0);
    // Notes was opened by the pass itself, so only Mail is a conflict.
    EXPECT_THAT(out.str(), HasSubstr(
        "[Holdenmere] WARNING: 1 app(s) are ALSO macOS Login Items \xE2\x80\x94 macOS starts these before the "
        "network, so the gate has no effect on them:\n"
        "[Holdenmere]   CONFLICT: Mail \xE2\x80\x94 remove it from Login Items\n"));
    EXPECT_THAT(out.str(), Not(HasSubstr("CONFLICT: Notes")));
    // Without consent nothing is swept and the pass does not wait for it.
    EXPECT_THAT(out.str(), Not(HasSubstr("re-registered")));
    EXPECT_EQ(scripts.loginItems.items.size(), 2u);
}

TEST_F(GateModeTest, AppsThatPutTheirLoginItemBackAreRemovedForTwoMinutes) {
    HoldenmereConfig config;
    config.apps = {app("Drive"), app("Notes")};
    config.apps[0].importedFromLoginItem = true;
    config.startupConsent = StartupConsent::granted;
    ConfigStore{home / "config.json"}.save(config);
    // Drive has a Login Item, which the pass takes over; once the sweep
    // watches (the clock has moved on), Drive puts it back twice, each time
    // a list is read that is not the check right after a removal.
    scripts.loginItems.items = {FakeLoginItem{config.apps[0].path}};
    const double start = clock.uptime();
    int readdsLeft = 2;
    std::string lastScript;
    scripts.beforeEach = [&](const std::string& script) {
        if (readdsLeft > 0 && clock.uptime() > start + 1 && script.ends_with("get path of every login item") &&
            scripts.loginItems.items.empty() && lastScript.find(" to delete ") == std::string::npos) {
            scripts.loginItems.items.push_back(FakeLoginItem{config.apps[0].path});
            --readdsLeft;
        }
        lastScript = script;
    };

    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, services), 0) << out.str();
    const std::string line =
        "[Holdenmere] re-registered: Drive put itself back in Login Items \xE2\x80\x94 removed again\n";
    const std::string text = out.str();
    EXPECT_THAT(text, HasSubstr("[Holdenmere] taken over: Drive \xE2\x80\x94 a managed app's Login Item; removed\n"));
    EXPECT_THAT(text, HasSubstr("[Holdenmere] done: launched=2 already_running=0 failed=0 login_items_not_removed=0\n"));
    auto first = text.find(line);
    ASSERT_NE(first, std::string::npos) << text;
    EXPECT_NE(text.find(line, first + 1), std::string::npos) << text;
    EXPECT_TRUE(scripts.loginItems.items.empty());
    // The sweep watched its whole window in five-second naps.
    auto waits = clock.waits();
    EXPECT_GE(std::count(waits.begin(), waits.end(), 5.0), 23);
}

// The sweep must not undo what the user was told was given back: once the
// ledger is given back, the Login Item stays, and the sweep says why it
// stopped.
TEST_F(GateModeTest, AGiveBackDuringTheSweepStaysGivenBack) {
    HoldenmereConfig config;
    config.apps = {app("Drive")};
    config.apps[0].importedFromLoginItem = true;
    config.startupConsent = StartupConsent::granted;
    ConfigStore{home / "config.json"}.save(config);
    const std::vector<FakeLoginItem> found{FakeLoginItem{config.apps[0].path, true}};
    scripts.loginItems.items = found;
    std::vector<std::string> given;
    clock.at(clock.uptime() + 12, [&] { given = giveBack(false); });

    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, services), 0) << err.str();
    const std::string text = out.str();
    EXPECT_THAT(text, HasSubstr("[Holdenmere] taken over: Drive \xE2\x80\x94 a managed app's Login Item; removed\n"));
    ASSERT_EQ(given.size(), 1u) << text;
    EXPECT_THAT(given[0], HasSubstr("given back: Drive"));
    EXPECT_THAT(text, HasSubstr("[Holdenmere] re-registration sweep stopped \xE2\x80\x94 startup was given back "
                                "since this pass started, so nothing was changed\n"));
    EXPECT_THAT(text, Not(HasSubstr("re-registered: Drive")));
    EXPECT_EQ(scripts.loginItems.items, found);
    const HoldenmereConfig after = ConfigStore{home / "config.json"}.load();
    EXPECT_TRUE(after.takeovers.empty());
    EXPECT_EQ(after.giveBackGeneration, 1u);
}

// Held helpers are started after the network answers; one given back while
// the pass waited is launchd's again and stays switched on. Holdenmere's own
// jobs listed as held helpers are never switched.
TEST_F(GateModeTest, AGiveBackWhileThePassWaitsKeepsHeldHelpersGivenBack) {
    HoldenmereConfig config;
    config.apps = {app("Mail")};
    const DelayedHelper helper{"com.example.Mail.helper", (home / "helper.plist").string(), "com.example.Mail",
                               "Mail", DelayedHelper::Mode::delay};
    const DelayedHelper own{"com.tavik.holdenmere.agent", (home / "own.plist").string(), "com.example.Mail", "Mail",
                            DelayedHelper::Mode::delay};
    config.delayedHelpers = {helper, own};
    config.startupConsent = StartupConsent::granted;
    ConfigStore{home / "config.json"}.save(config);
    testing::writeFile(helper.plistPath, testing::xmlPlist("<key>Label</key><string>com.example.Mail.helper</string>"));
    launchctl.labelOfPlist[helper.plistPath] = helper.label;
    launchctl.disabled = {helper.label};
    // The network answers at the third attempt; the user gives everything
    // back after the first.
    probe.script({{ProbeOutcome::failure("HTTP 503"), 0.01, false}, {ProbeOutcome::failure("HTTP 503"), 0.01, false}});
    std::vector<std::string> given;
    clock.at(clock.uptime() + 0.5, [&] { given = giveBack(true); });

    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, services), 0) << err.str();
    const std::string text = out.str();
    ASSERT_FALSE(given.empty()) << text;
    EXPECT_THAT(text, HasSubstr("[Holdenmere] Mail helper: disabled \xE2\x80\x94 startup was given back since this "
                                "pass started, so nothing was changed\n"));
    EXPECT_FALSE(launchctl.disabled.count(helper.label)) << "given back, then switched off again";
    EXPECT_TRUE(launchctl.loaded.count(helper.label));
    for (const auto& call : launchctl.changes()) {
        EXPECT_EQ(call.back().find("com.tavik.holdenmere"), std::string::npos) << call[0];
    }
    EXPECT_TRUE(ConfigStore{home / "config.json"}.load().delayedHelpers.empty());
}

TEST_F(GateModeTest, HoldenmeresOwnJobListedAsAHeldHelperIsNeverSwitched) {
    HoldenmereConfig config;
    config.delayedHelpers = {{"com.tavik.holdenmere.agent", (home / "own.plist").string(), "com.tavik.holdenmere",
                              "Holdenmere", DelayedHelper::Mode::delay}};
    ConfigStore{home / "config.json"}.save(config);
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, services), 0) << err.str();
    EXPECT_THAT(out.str(), HasSubstr("[Holdenmere] Holdenmere helper: failed \xE2\x80\x94 Holdenmere's own job, "
                                     "which it never switches; left as it is\n"));
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(GateModeTest, TheGateListensForNetworkChangesWhileItWaits) {
    ConfigStore{home / "config.json"}.save(HoldenmereConfig{});
    testing::FakeNetworkChangeListening changes;
    GateServices listening{clock,        probe,   apps,
                           launchctl,    scripts, [] { return SystemDaemonScanner::Apps{}; },
                           std::nullopt, 1,       InertMainLoop::shared(),
                           changes};
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runGate(out, err, listening), 0) << err.str();
    EXPECT_THAT(out.str(), HasSubstr("] network reachable after 1 attempt(s)"));
    EXPECT_EQ(changes.subscriptions(), 1);
    EXPECT_FALSE(changes.subscribed());
}

TEST_F(GateModeTest, APassWhoseDeadlinePassesWhileAppsOpenRecordsNothing) {
    HoldenmereConfig config;
    config.apps = {app("Mail"), app("Slow")};
    DelayedHelper helper;
    helper.label = "com.example.Mail.helper";
    helper.plistPath = (home / "helper.plist").string();
    helper.name = "Mail";
    helper.appBundleIdentifier = "com.example.Mail";
    config.delayedHelpers = {helper};
    ConfigStore{home / "config.json"}.save(config);
    testing::writeFile(helper.plistPath, testing::xmlPlist("<key>Label</key><string>com.example.Mail.helper</string>"));
    launchctl.labelOfPlist[helper.plistPath] = helper.label;
    launchctl.disabled.insert(helper.label);
    // Slow's launch never completes: the runner waits for it until the
    // pass's deadline, which the jumping clock reaches at once.
    apps.behaviours[config.apps[1].path].held = true;
    clock.realGrace = 0;

    const auto outPath = home / "out.log";
    // The pass ends the process itself: run it in a forked child, which
    // shares this test's home (no thread runs here yet).
    const auto errPath = home / "err.log";
    EXPECT_EXIT(
        {
            std::ofstream out(outPath);
            std::ofstream err(errPath);
            runGate(out, err, services);
        },
        ::testing::ExitedWithCode(1), "");
    const std::string text = testing::readFile(outPath);
    // Errors go to standard error (the login agent sends both to the log).
    EXPECT_EQ(testing::readFile(errPath), "[Holdenmere] ERROR: gate run timed out \xE2\x80\x94 run incomplete; some "
                                          "apps may already have launched\n");
    // The held helper is still started, since nothing else would start it.
    EXPECT_THAT(text, HasSubstr("[Holdenmere] Mail helper: "));
    EXPECT_TRUE(history().empty());
}

}  // namespace
}  // namespace holdenmere
