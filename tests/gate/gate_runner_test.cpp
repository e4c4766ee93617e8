#include "core/gate/gate_runner.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/gate/open_at_login.h"
#include "tests/support/fake_app_running.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_main_loop.h"
#include "tests/support/fake_probe.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using testing::FakeAppRunning;
using testing::FakeClock;
using testing::FakeMainLoop;
using testing::FakeProbe;

class RecordingHelpers final : public HelperStarting {
public:
    std::vector<LaunchRecord> startAfterGate(const HoldenmereConfig&, Date now) override {
        ++calls;
        return {LaunchRecord{"com.example.sync.agent", "Sync helper", LaunchOutcome::launched, now,
                             "helper started; next login waits for network"}};
    }
    int calls = 0;
};

class GateRunnerTest : public ::testing::Test {
protected:
    FakeClock clock;
    FakeProbe probe{clock};
    FakeAppRunning apps{clock};
    FakeMainLoop loop;
    ReachabilityGate gate{probe, clock};
    AppLauncher launcher{apps, clock, loop};
    RecordingHelpers helpers;
    GateRunner runner{gate, launcher, clock, &helpers};
    HoldenmereConfig config;

    void SetUp() override {
        config.settings.maxAttempts = 3;
        for (const char* name : {"Mail", "Off"}) {
            ManagedApp app;
            app.bundleIdentifier = std::string("com.example.") + name;
            app.name = name;
            app.path = std::string("/Applications/") + name + ".app";
            app.isEnabled = std::string(name) != "Off";
            apps.bundles.insert(app.path);
            config.apps.push_back(app);
        }
    }
};

TEST_F(GateRunnerTest, GateOffProbesNothingOpensNothingAndEndsNormally) {
    config.settings.isEnabled = false;
    auto plan = runner.run(config);
    EXPECT_TRUE(plan.completed);
    EXPECT_EQ(GateRunner::exitCode(plan), 0);
    EXPECT_FALSE(plan.probe.has_value());
    EXPECT_TRUE(probe.asked().empty());
    EXPECT_TRUE(apps.begun().empty());
    ASSERT_EQ(plan.records.size(), 2u);
    for (const auto& record : plan.records) {
        EXPECT_EQ(record.outcome, LaunchOutcome::disabled);
        EXPECT_EQ(record.detail, "Holdenmere disabled");
    }
    EXPECT_EQ(helpers.calls, 1);
    ASSERT_EQ(plan.helperRecords.size(), 1u);
    // The history keeps the apps' records first, then the helpers'.
    auto all = plan.allRecords();
    ASSERT_EQ(all.size(), 3u);
    EXPECT_EQ(all[0].name, "Mail");
    EXPECT_EQ(all[2].name, "Sync helper");
}

TEST_F(GateRunnerTest, ReachableNetworkOpensTheAppsThenStartsHelpers) {
    probe.script({{ProbeOutcome::reachable(), 0.2}});
    auto plan = runner.run(config);
    EXPECT_TRUE(plan.completed);
    ASSERT_TRUE(plan.probe.has_value());
    EXPECT_TRUE(plan.probe->reachable);
    EXPECT_EQ(plan.records[0].outcome, LaunchOutcome::launched);
    EXPECT_EQ(plan.records[1].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(helpers.calls, 1);
}

// Three attempts 2 s apart, each followed by its pause: the wait ends after
// the whole 3 x 2 s, and the records say so.
TEST_F(GateRunnerTest, UnreachableNetworkWithAndWithoutLaunchAnyway) {
    probe.repeat({ProbeOutcome::failure("cannot connect to host"), 0});
    config.settings.launchAnywayOnTimeout = false;
    auto plan = runner.run(config);
    EXPECT_FALSE(plan.completed);
    EXPECT_EQ(GateRunner::exitCode(plan), 1);
    EXPECT_TRUE(apps.begun().empty());
    EXPECT_EQ(plan.records[0].outcome, LaunchOutcome::failed);
    EXPECT_EQ(plan.records[0].detail,
              "network unreachable after 6s \xE2\x80\x94 not opened, because \"launch anyway\" is off");
    EXPECT_EQ(plan.records[1].detail, "disabled in Holdenmere");
    EXPECT_EQ(helpers.calls, 1);

    config.settings.launchAnywayOnTimeout = true;
    plan = runner.run(config);
    EXPECT_FALSE(plan.completed);
    EXPECT_EQ(apps.begun().size(), 1u);
    EXPECT_EQ(plan.records[0].detail, "network unreachable after 6s \xE2\x80\x94 launched [issued +0.0s] [late +0.0s]");
    EXPECT_EQ(plan.records[1].detail, "network unreachable after 6s \xE2\x80\x94 disabled in Holdenmere");
}

TEST(WaitWithDeadline, WaitsInSlicesOfTheMainLoopUntilDoneOrTheDeadline) {
    FakeClock clock;
    FakeMainLoop loop;
    Signal done;
    EXPECT_FALSE(waitWithDeadline(clock, loop, done, 0.2));
    double waited = 0;
    for (double slice : loop.slices()) {
        EXPECT_LE(slice, 0.05 + 1e-9);
        waited += slice;
    }
    EXPECT_NEAR(waited, 0.2, 1e-9);

    // What the main loop delivers ends the wait at the slice that runs it.
    Signal answered;
    loop.post(clock.uptime() + 0.12, [&] { answered.raise(); });
    const auto before = loop.slices().size();
    EXPECT_TRUE(waitWithDeadline(clock, loop, answered, 330));
    EXPECT_EQ(loop.slices().size() - before, 4u);

    done.raise();
    EXPECT_TRUE(waitWithDeadline(clock, loop, done, 330));
}

class OpenAtLoginTest : public ::testing::Test {
protected:
    FakeClock clock;
    FakeMainLoop loop;
    FakeAppRunning apps{clock};
    testing::TemporaryDirectory folder;
    GateSettings settings;
    std::optional<Bundle> bundle;

    void SetUp() override {
        settings.openAppAtLogin = true;
        bundle = Bundle{folder / "Holdenmere.app"};
        testing::writeFile(bundle->infoPlistPath(),
                           "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>com.tavik.holdenmere"
                           "</string></dict></plist>");
    }
    std::optional<std::string> open() {
        return OpenAtLogin::openHoldenmereIfRequested(settings, bundle, 100, apps, clock, loop);
    }
};

TEST_F(OpenAtLoginTest, OpensTheBundleQuietlyWithItsArgument) {
    EXPECT_EQ(open(), "open-at-login: opened Holdenmere");
    auto begun = apps.begun();
    ASSERT_EQ(begun.size(), 1u);
    EXPECT_EQ(begun[0].path, (folder / "Holdenmere.app").string());
    EXPECT_FALSE(begun[0].options.activates);
    EXPECT_TRUE(begun[0].options.newInstance);
    EXPECT_THAT(begun[0].options.arguments, ElementsAre("--opened-at-login"));
}

TEST_F(OpenAtLoginTest, EachOtherOutcome) {
    settings.openAppAtLogin = false;
    EXPECT_EQ(open(), std::nullopt);
    settings.openAppAtLogin = true;

    apps.running.insert("com.tavik.holdenmere");  // pid 4242, not ours
    EXPECT_EQ(open(), "open-at-login: Holdenmere is already open");
    apps.running.clear();

    apps.behaviours[(folder / "Holdenmere.app").string()] = {LaunchAttempt::failed("no application bundle at x")};
    EXPECT_EQ(open(), "open-at-login: could NOT open Holdenmere \xE2\x80\x94 no application bundle at x");
    apps.behaviours[(folder / "Holdenmere.app").string()] = {LaunchAttempt::opened(), 0, true};
    EXPECT_EQ(open(), "open-at-login: no answer from LaunchServices within 20s");

    bundle.reset();
    EXPECT_EQ(open(), "open-at-login: skipped \xE2\x80\x94 not running from an app bundle");
    bundle = Bundle{folder / "holdenmere-bin"};
    EXPECT_EQ(open(), "open-at-login: skipped \xE2\x80\x94 not running from an app bundle");
}

// The workspace answers through the main loop. The step grants it 20 s: an
// answer at 17 s is an opened app, none by 20 s is the step's own line, and
// no shorter limit of the launch itself cuts in first.
TEST_F(OpenAtLoginTest, WaitsTwentySecondsForTheAnswer) {
    apps.mainLoop = &loop;
    const std::string path = (folder / "Holdenmere.app").string();
    apps.behaviours[path] = {LaunchAttempt::opened(), 17};
    const double start = clock.uptime();
    EXPECT_EQ(open(), "open-at-login: opened Holdenmere");
    EXPECT_GE(clock.uptime() - start, 17.0);
    EXPECT_LT(clock.uptime() - start, 17.1);

    apps.behaviours[path] = {
        LaunchAttempt::failed("The application could not be launched [NSOSStatusErrorDomain -10810]"), 19.9};
    EXPECT_EQ(open(),
              "open-at-login: could NOT open Holdenmere \xE2\x80\x94 The application could not be launched "
              "[NSOSStatusErrorDomain -10810]");

    apps.behaviours[path] = {LaunchAttempt::opened(), 20.5};
    const double late = clock.uptime();
    EXPECT_EQ(open(), "open-at-login: no answer from LaunchServices within 20s");
    EXPECT_NEAR(clock.uptime() - late, 20.0, 1e-6);
}

// Away from macOS every process of the executable is listed under its
// bundle identifier: a login pass or an audit running beside this one is
// no open desktop app; one started without a mode, or opened quietly, is.
TEST_F(OpenAtLoginTest, HeadlessRunsOfTheExecutableAreNotAnOpenApp) {
    const std::string executable = (folder / "Holdenmere.app/Contents/MacOS/holdenmere").string();
    apps.running.insert("com.tavik.holdenmere");
    const int other = FakeAppRunning::kRunningProcess;
    for (const char* mode : {"--gate", "--audit", "--restore-startup", "--repair-helpers", "--version"}) {
        apps.processArguments[other] = {executable, mode};
        EXPECT_EQ(open(), "open-at-login: opened Holdenmere") << mode;
    }
    apps.processArguments[other] = {executable, "--repair-helpers", "--dry-run"};
    EXPECT_EQ(open(), "open-at-login: opened Holdenmere");
    for (const std::vector<std::string>& desktop :
         {std::vector<std::string>{executable}, {executable, "--opened-at-login"}, {executable, "-psn_0_4242"}}) {
        apps.processArguments[other] = desktop;
        EXPECT_EQ(open(), "open-at-login: Holdenmere is already open");
    }
    // Where the platform does not tell, a listed process is an open app.
    apps.processArguments.clear();
    EXPECT_EQ(open(), "open-at-login: Holdenmere is already open");

    EXPECT_TRUE(OpenAtLogin::isDesktopApp({executable, "-NSDocumentRevisionsDebugMode", "YES"}));
    EXPECT_FALSE(OpenAtLogin::isDesktopApp({executable, "--opened-at-login", "--gate"}));
}

}  // namespace
}  // namespace holdenmere
