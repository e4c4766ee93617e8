#include "core/gate/app_launcher.h"

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/fake_app_running.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_main_loop.h"

namespace holdenmere {
namespace {

using testing::FakeAppRunning;
using testing::FakeClock;
using testing::FakeMainLoop;

ManagedApp app(const std::string& name, double delay = 0, bool hidden = false, bool enabled = true) {
    ManagedApp result;
    result.bundleIdentifier = "com.example." + name;
    result.name = name;
    result.path = "/Applications/" + name + ".app";
    result.delaySeconds = delay;
    result.launchHidden = hidden;
    result.isEnabled = enabled;
    return result;
}

class AppLauncherTest : public ::testing::Test {
protected:
    FakeClock clock;
    FakeMainLoop loop;
    FakeAppRunning system{clock};
    AppLauncher launcher{system, clock, loop};

    void install(const std::vector<ManagedApp>& apps) {
        for (const auto& entry : apps) system.bundles.insert(entry.path);
    }
};

TEST(AppLauncherOffsets, FiveSecondStepsUpToForty) {
    EXPECT_EQ(AppLauncher::offset(0), 0);
    EXPECT_EQ(AppLauncher::offset(-3), 0);
    EXPECT_EQ(AppLauncher::offset(1), 5);
    EXPECT_EQ(AppLauncher::offset(3), 5);
    EXPECT_EQ(AppLauncher::offset(5), 5);
    EXPECT_EQ(AppLauncher::offset(12.5), 15);
    EXPECT_EQ(AppLauncher::offset(41), 40);
    EXPECT_EQ(AppLauncher::offset(90), 40);
    EXPECT_EQ(AppLauncher::timing(10, 2.3), " [issued +10.0s] [late +2.3s]");
    EXPECT_EQ(AppLauncher::timing(0, -0.4), " [issued +0.0s] [late +0.0s]");
}

TEST_F(AppLauncherTest, SkipRulesComeBeforeAnyWaiting) {
    std::vector<ManagedApp> apps = {app("Off", 40, false, false), app("Mail", 0), app("Mail", 30), app("Chat", 40),
                                    app("Gone", 40)};
    apps[2].path = "/Applications/Other Mail.app";
    install({apps[1], apps[3]});
    system.running = {"com.example.Chat"};
    auto records = launcher.launchAll(apps);
    ASSERT_EQ(records.size(), 5u);
    EXPECT_EQ(records[0].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(records[0].detail, "disabled in Holdenmere");
    EXPECT_EQ(records[1].outcome, LaunchOutcome::launched);
    EXPECT_EQ(records[1].detail, "launched [issued +0.0s] [late +0.0s]");
    EXPECT_EQ(records[2].outcome, LaunchOutcome::alreadyRunning);
    EXPECT_EQ(records[2].detail, "duplicate bundle identifier already requested (com.example.Mail)");
    EXPECT_EQ(records[3].outcome, LaunchOutcome::alreadyRunning);
    EXPECT_EQ(records[3].detail, "already running (com.example.Chat)");
    EXPECT_EQ(records[4].outcome, LaunchOutcome::missing);
    EXPECT_EQ(records[4].detail, "no application bundle at /Applications/Gone.app");
    // Nothing was waited for: only Mail, with no offset, was opened.
    EXPECT_TRUE(clock.waits().empty());
    EXPECT_EQ(system.begun().size(), 1u);
}

// Only an entry that is really opened claims its bundle identifier: a
// missing copy of an app listed first does not keep the real one closed.
TEST_F(AppLauncherTest, ADuplicateIdentifierBlocksOnlyAnAppReallyRequested) {
    std::vector<ManagedApp> apps = {app("Mail"), app("Mail"), app("Mail")};
    apps[0].path = "/Volumes/Old/Mail.app";
    install({apps[1]});
    auto records = launcher.launchAll(apps);
    EXPECT_EQ(records[0].outcome, LaunchOutcome::missing);
    EXPECT_EQ(records[1].outcome, LaunchOutcome::launched);
    EXPECT_EQ(records[1].detail, "launched [issued +0.0s] [late +0.0s]");
    EXPECT_EQ(records[2].detail, "duplicate bundle identifier already requested (com.example.Mail)");
    ASSERT_EQ(system.begun().size(), 1u);
    EXPECT_EQ(system.begun()[0].path, "/Applications/Mail.app");

    // One that runs already: every entry of it reads so, none is a duplicate.
    system.running = {"com.example.Mail"};
    records = launcher.launchAll({app("Mail"), app("Mail")});
    EXPECT_EQ(records[0].detail, "already running (com.example.Mail)");
    EXPECT_EQ(records[1].detail, "already running (com.example.Mail)");
}

// On macOS the workspace delivers a launch's answer, and the hidden state
// the confirmation watches, only while the main run loop turns: the
// launcher waits for its confirmations in slices of the main loop.
TEST_F(AppLauncherTest, WaitsForConfirmationsInSlicesOfTheMainLoop) {
    std::vector<ManagedApp> apps = {app("Notes", 0, true), app("Mail", 5)};
    install(apps);
    system.mainLoop = &loop;
    system.behaviours[apps[0].path] = {LaunchAttempt::opened(), 5.08};
    system.behaviours[apps[1].path] = {LaunchAttempt::opened(), 0.07};
    auto records = launcher.launchAll(apps);
    // Mail was begun at 5 s; both answers came in the slices after it.
    EXPECT_EQ(records[0].detail, "launched (asked macOS to hide it) [issued +0.0s] [late +5.1s]");
    EXPECT_EQ(records[1].detail, "launched after 5s offset [issued +5.0s] [late +0.1s]");
    EXPECT_THAT(loop.slices(), ::testing::ElementsAre(0.05, 0.05, 0.05));
}

TEST_F(AppLauncherTest, OffsetsAreMeasuredFromTheStart) {
    std::vector<ManagedApp> apps = {app("Three", 3), app("Ninety", 90, true), app("Zero", 0)};
    install(apps);
    system.behaviours[apps[0].path] = {LaunchAttempt::opened(), 1.0};
    auto records = launcher.launchAll(apps);
    auto begun = system.begun();
    ASSERT_EQ(begun.size(), 3u);
    EXPECT_DOUBLE_EQ(begun[0].at - 1000.0, 5.0);
    EXPECT_DOUBLE_EQ(begun[1].at - 1000.0, 40.0);
    EXPECT_DOUBLE_EQ(begun[2].at - 1000.0, 40.0);  // issued in order, its offset long passed
    EXPECT_TRUE(begun[1].options.hidden);
    EXPECT_FALSE(begun[1].options.activates);
    EXPECT_TRUE(begun[0].options.activates);
    EXPECT_EQ(records[0].detail, "launched after 5s offset [issued +5.0s] [late +1.0s]");
    EXPECT_EQ(records[1].detail, "launched after 40s offset (asked macOS to hide it) [issued +40.0s] [late +0.0s]");
    EXPECT_EQ(records[2].detail, "launched [issued +0.0s] [late +40.0s]");
}

TEST_F(AppLauncherTest, WorkedExampleCompletionAtTwelvePointThree) {
    std::vector<ManagedApp> apps = {app("Mail", 10)};
    install(apps);
    system.behaviours[apps[0].path] = {LaunchAttempt::opened(), 2.3};
    auto records = launcher.launchAll(apps);
    EXPECT_EQ(records[0].outcome, LaunchOutcome::launched);
    EXPECT_EQ(records[0].detail, "launched after 10s offset [issued +10.0s] [late +2.3s]");
}

TEST_F(AppLauncherTest, FailedAndUnconfirmedLaunches) {
    std::vector<ManagedApp> apps = {app("Broken", 5), app("Shy", 0, true)};
    install(apps);
    system.behaviours[apps[0].path] = {LaunchAttempt::failed("LaunchServices did not respond within 15s"), 15};
    system.behaviours[apps[1].path] = {
        LaunchAttempt::unconfirmed("application became active before hidden confirmation"), 1};
    auto records = launcher.launchAll(apps);
    EXPECT_EQ(records[0].outcome, LaunchOutcome::failed);
    EXPECT_EQ(records[0].detail, "open failed after 5s offset: LaunchServices did not respond within 15s");
    EXPECT_EQ(records[1].outcome, LaunchOutcome::launched);
    EXPECT_EQ(records[1].detail,
              "launched (asked macOS to hide it) \xE2\x80\x94 running, but unconfirmed: application became active "
              "before hidden confirmation [issued +0.0s]");
}

TEST_F(AppLauncherTest, ConfirmationsCompleteConcurrentlyAndCancellationReportsThem) {
    std::vector<ManagedApp> apps = {app("Slow", 0, true), app("Next", 5)};
    install(apps);
    system.behaviours[apps[0].path] = {LaunchAttempt::opened(), 0, true};
    Signal cancel;
    std::thread canceller([&] {
        // The launcher waits for Slow's confirmation; Next was begun meanwhile.
        while (system.begun().size() < 2) std::this_thread::yield();
        cancel.raise();
    });
    auto records = launcher.launchAll(apps, &cancel);
    canceller.join();
    EXPECT_EQ(records[0].detail,
              "launched (asked macOS to hide it) \xE2\x80\x94 running, but unconfirmed: launch confirmation cancelled "
              "[issued +0.0s]");
    EXPECT_EQ(records[1].detail, "launched after 5s offset [issued +5.0s] [late +0.0s]");
    // Every launch of the run was told, so that a confirmation still
    // watching its app ends now instead of running out its checks.
    for (const auto& begun : system.begun()) {
        ASSERT_NE(begun.options.cancellation, nullptr);
        EXPECT_TRUE(begun.options.cancellation->isCancelled());
    }
    system.deliverHeld();  // a late answer changes nothing
    EXPECT_EQ(records[0].outcome, LaunchOutcome::launched);

    Signal already;
    already.raise();
    auto none = launcher.launchAll({app("Next", 5)}, &already);
    EXPECT_EQ(none[0].outcome, LaunchOutcome::failed);
    EXPECT_EQ(none[0].detail, "not opened: launching was cancelled after 5s offset");
}

}  // namespace
}  // namespace holdenmere
