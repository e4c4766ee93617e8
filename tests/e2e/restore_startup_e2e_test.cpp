// --restore-startup run as a user would, in a temporary home, with the fake
// launchctl and osascript standing in for the system's through
// HOLDENMERE_TOOLS_DIR.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "core/config/config_store.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/plist_files.h"
#include "tests/support/system_events_login_items.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlTool;
using testing::FakeLoginItem;
using testing::readFile;
using testing::SystemEventsLoginItems;

const std::string kTag = "[Holdenmere] ";
const std::string kDash = " \xE2\x80\x94 ";
const std::string kOwnAgent = "com.tavik.holdenmere.agent";

class RestoreStartup : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool launchd;
    std::string mail;

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path loginItemsFile() const { return home / "login-items.json"; }
    std::filesystem::path osascriptLog() const { return home / "osascript.log"; }
    std::filesystem::path agentPlist(const std::string& label) const {
        return home / "Library/LaunchAgents" / (label + ".plist");
    }

    void SetUp() override {
        std::filesystem::create_directories(home / "tools");
        std::filesystem::create_symlink(FakeLaunchctlTool::executable(), home / "tools/launchctl");
        std::filesystem::create_symlink(testing::fakeOsascriptPath(), home / "tools/osascript");

        mail = testing::writeAppBundle(home / "Applications", "Mail", "Mail", "com.example.mail").string();
        for (const auto& label :
             {std::string("com.example.sync.agent"), std::string("com.example.mail.helper"), kOwnAgent}) {
            testing::writeFile(agentPlist(label),
                               testing::xmlPlist("<key>Label</key><string>" + label +
                                                 "</string><key>Program</key><string>/bin/true</string>"));
        }
        launchd.mark("com.example.sync.agent", true);
        launchd.mark("com.example.mail.helper", true);
        launchd.mark("com.example.untouched", true);  // off before Holdenmere: not in the ledger
        launchd.load(kOwnAgent, agentPlist(kOwnAgent).string());

        HoldenmereConfig config;
        config.startupConsent = StartupConsent::granted;
        config.apps = {ManagedApp{"com.example.mail", "Mail", mail}};
        config.recordLoginItem("com.example.mail", "Mail", {mail, true});
        config.recordAgent("com.example.sync", "Sync", "com.example.sync.agent",
                           agentPlist("com.example.sync.agent").string(), false);
        config.delayedHelpers = {{"com.example.mail.helper", agentPlist("com.example.mail.helper").string(),
                                  "com.example.mail", "Mail", DelayedHelper::Mode::delay}};
        ConfigStore{configPath()}.save(config);
    }

    ChildProcessRequest request(std::vector<std::string> arguments) const {
        ChildProcessRequest request;
        request.executable = testing::holdenmerePath();
        request.arguments = std::move(arguments);
        request.environment = std::vector<std::string>{
            "HOME=" + home.path().string(),
            "PATH=/usr/bin:/bin",
            "HOLDENMERE_TOOLS_DIR=" + (home / "tools").string(),
            std::string(testing::fake_launchctl::kStateVariable) + "=" + launchd.stateFolder().string(),
            "FAKE_OSASCRIPT_STATE=" + loginItemsFile().string(),
            "FAKE_OSASCRIPT_LOG=" + osascriptLog().string(),
        };
        request.timeout = std::chrono::seconds(60);
        return request;
    }

    ChildProcessResult run(std::vector<std::string> arguments) const { return runChildProcess(request(arguments)); }

    // The launchctl subcommands that change launchd, in order.
    std::vector<std::vector<std::string>> changes() const {
        std::vector<std::vector<std::string>> result;
        for (const auto& call : launchd.calls()) {
            if (call[0] != "print" && call[0] != "print-disabled") result.push_back(call);
        }
        return result;
    }
};

TEST_F(RestoreStartup, DryRunListsWhatItWouldGiveBackAndChangesNothing) {
    const std::string before = readFile(configPath());
    auto result = run({"--restore-startup", "--dry-run"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output,
              kTag + "Login Items: would give back: Mail" + kDash + "add " + mail + " (hidden)\n" + kTag +
                  "LaunchAgents: would give back: Sync" + kDash + "switch com.example.sync.agent back on\n" + kTag +
                  "held helpers: would give back: Mail" + kDash + "switch com.example.mail.helper back on\n" + kTag +
                  "would turn off Holdenmere's login agent\n" + kTag + "dry run: nothing changed\n");
    EXPECT_EQ(readFile(configPath()), before);
    EXPECT_TRUE(launchd.calls().empty());
    EXPECT_FALSE(std::filesystem::exists(osascriptLog()));
    EXPECT_TRUE(std::filesystem::exists(agentPlist(kOwnAgent)));
}

TEST_F(RestoreStartup, GivesBackExactlyWhatWasRecordedOnce) {
    auto result = run({"--restore-startup"});
    EXPECT_EQ(result.status, 0) << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_EQ(result.output, kTag + "Login Items: given back: Mail" + kDash + "added " + mail + " (hidden)\n" + kTag +
                                 "LaunchAgents: given back: Sync" + kDash +
                                 "com.example.sync.agent switched back on\n" + kTag + "held helpers: given back: Mail" +
                                 kDash + "com.example.mail.helper switched back on\n" + kTag +
                                 "login agent: turned off; Holdenmere no longer runs at login\n");

    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()), (std::vector<FakeLoginItem>{{mail, true}}));
    const auto state = launchd.state();
    EXPECT_FALSE(state.disabled.at("com.example.sync.agent"));
    EXPECT_FALSE(state.disabled.at("com.example.mail.helper"));
    EXPECT_TRUE(state.disabled.at("com.example.untouched"));
    EXPECT_TRUE(state.disabled.at(kOwnAgent));
    EXPECT_EQ(launchd.loadedLabels(), (std::set<std::string>{"com.example.sync.agent", "com.example.mail.helper"}));
    EXPECT_FALSE(std::filesystem::exists(agentPlist(kOwnAgent)));

    const HoldenmereConfig after = ConfigStore{configPath()}.load();
    EXPECT_EQ(after.startupConsent, StartupConsent::declined);
    EXPECT_TRUE(after.takeovers.empty());
    EXPECT_TRUE(after.delayedHelpers.empty());
    EXPECT_EQ(after.apps.size(), 1u);

    // Again: nothing is given back twice.
    launchd.forgetCalls();
    result = run({"--restore-startup"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, kTag + "nothing to give back: the ledger records no startup change\n" + kTag +
                                 "login agent: turned off; Holdenmere no longer runs at login\n");
    const std::string target = launchdServiceTarget(kOwnAgent);
    EXPECT_EQ(changes(), (std::vector<std::vector<std::string>>{{"bootout", target}, {"disable", target}}));
    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()).size(), 1u);
}

TEST_F(RestoreStartup, ASecondRunQueuesBehindTheFirst) {
    // The first run answers its Login Items slowly, holding the lock meanwhile.
    testing::writeFile(loginItemsFile().string() + ".mode", "slow:1500");
    ChildProcessResult first;
    std::thread firstRun([&] { first = run({"--restore-startup"}); });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!std::filesystem::exists(osascriptLog()) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_TRUE(std::filesystem::exists(osascriptLog()));
    const auto secondStarted = std::chrono::steady_clock::now();
    auto second = run({"--restore-startup"});
    const auto secondEnded = std::chrono::steady_clock::now();
    firstRun.join();

    EXPECT_EQ(first.status, 0) << first.error;
    EXPECT_THAT(first.output, ::testing::HasSubstr("Login Items: given back: Mail"));
    // The second read the ledger only after the first had saved it.
    EXPECT_EQ(second.status, 0) << second.error;
    EXPECT_THAT(second.output, ::testing::StartsWith(kTag + "nothing to give back"));
    EXPECT_GE(secondEnded - secondStarted, std::chrono::milliseconds(500));
    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()).size(), 1u);
}

}  // namespace
}  // namespace holdenmere
