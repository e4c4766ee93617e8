// A managed app's Login Item and LaunchAgent taken over at one login pass and
// given back by --restore-startup, with the fake launchctl and osascript in
// place of the system's (HOLDENMERE_TOOLS_DIR) and a probe server on loopback.
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/support/child_process.h"
#include "tests/support/e2e_home.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/plist_files.h"
#include "tests/support/system_events_login_items.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using ::testing::HasSubstr;
using testing::FakeLaunchctlTool;
using testing::FakeLoginItem;
using testing::SystemEventsLoginItems;

const std::string kDash = " \xE2\x80\x94 ";

class TakeoverRoundTrip : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool launchd;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204};
    SystemAppRunning apps;
    std::string identifier = "com.example.drive." + home.path().filename().string();
    std::string label = identifier + ".agent";
    std::filesystem::path bundle = home / "Applications/Drive.app";

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path loginItemsFile() const { return home / "login-items.json"; }
    std::filesystem::path agentPlist() const { return home / "Library/LaunchAgents" / (label + ".plist"); }

    void SetUp() override {
        std::filesystem::create_directories(home / "tools");
        std::filesystem::create_symlink(FakeLaunchctlTool::executable(), home / "tools/launchctl");
        std::filesystem::create_symlink(testing::fakeOsascriptPath(), home / "tools/osascript");

        // Drive.app, whose executable stays running once started.
        testing::writeLingeringApp(bundle, identifier);

        // macOS starts it twice before the network: a hidden Login Item and a LaunchAgent.
        SystemEventsLoginItems::save(loginItemsFile(), {FakeLoginItem{bundle.string(), true}});
        testing::writeFile(agentPlist(), testing::xmlPlist(
            "<key>Label</key><string>" + label + "</string><key>ProgramArguments</key><array><string>" +
            (bundle / "Contents/MacOS/LingeringApp").string() +
            "</string><string>--background</string></array><key>RunAtLoad</key><true/>"));
        launchd.load(label, agentPlist().string());

        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        ManagedApp drive;
        drive.bundleIdentifier = identifier;
        drive.name = "Drive";
        drive.path = bundle.string();
        config.apps = {drive};
        config.grantStartupConsent({});
        ConfigStore{configPath()}.save(config);

        // macOS already opened it, so the pass finds it running and the
        // re-registration sweep has nothing it just opened to watch.
        ASSERT_EQ(apps.launch(bundle.string(), OpenOptions{}), LaunchAttempt::opened());
    }

    void TearDown() override {
        for (int pid : apps.processIdentifiers(identifier)) ::kill(pid, SIGKILL);
    }

    ChildProcessResult run(const std::vector<std::string>& arguments) {
        ChildProcessRequest request;
        request.executable = testing::holdenmerePath();
        request.arguments = arguments;
        request.environment = std::vector<std::string>{
            "HOME=" + home.path().string(), "PATH=/usr/bin:/bin",
            "HOLDENMERE_TOOLS_DIR=" + (home / "tools").string(),
            "HOLDENMERE_FAKE_LAUNCHCTL_STATE=" + launchd.stateFolder().string(),
            "FAKE_OSASCRIPT_STATE=" + loginItemsFile().string(),
            "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string()};
        request.timeout = std::chrono::seconds(60);
        return runChildProcess(request);
    }

    bool agentDisabled() const {
        auto state = launchd.state();
        return state.disabled.count(label) != 0 && state.disabled.at(label);
    }
};

TEST_F(TakeoverRoundTrip, TakenOverAtOnePassAndGivenBackExactlyAsItWas) {
    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] taken over: Drive" + kDash + "a managed app's Login Item; removed\n"));
    EXPECT_THAT(pass.output, HasSubstr("LaunchAgent " + label));
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] Drive" + kDash + "recorded for --restore-startup\n"));
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] done: launched=0 already_running=1 failed=0 login_items_not_removed=0\n"));
    EXPECT_TRUE(SystemEventsLoginItems::load(loginItemsFile()).empty());
    EXPECT_TRUE(agentDisabled());

    // The ledger knows both, as they were.
    auto config = ConfigStore{configPath()}.load();
    ASSERT_EQ(config.takeovers.size(), 1u);
    EXPECT_EQ(config.takeovers[0].loginItems, (std::vector<RemovedLoginItem>{{bundle.string(), true}}));
    ASSERT_EQ(config.takeovers[0].agents.size(), 1u);
    EXPECT_EQ(config.takeovers[0].agents[0].label, label);

    // A second pass finds nothing more to take over and changes nothing.
    pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, ::testing::Not(HasSubstr("taken over:")));
    EXPECT_EQ(ConfigStore{configPath()}.load().takeovers, config.takeovers);

    auto restore = run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()),
              (std::vector<FakeLoginItem>{FakeLoginItem{bundle.string(), true}}));
    EXPECT_FALSE(agentDisabled());
    EXPECT_EQ(launchd.loadedLabels().count(label), 1u);
    config = ConfigStore{configPath()}.load();
    EXPECT_TRUE(config.takeovers.empty());
    EXPECT_EQ(config.startupConsent, StartupConsent::declined);

    // Nothing is given back twice, and no later pass takes anything over.
    restore = run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output, HasSubstr("nothing to give back"));
    pass = run({"--gate"});
    EXPECT_THAT(pass.output, HasSubstr("startup take-over not enabled" + kDash +
                                       "Login Items left to macOS (consent: declined)\n"));
    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()).size(), 1u);
    EXPECT_FALSE(agentDisabled());
}

}  // namespace
}  // namespace holdenmere
