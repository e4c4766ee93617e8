// Whole login passes: the built bundle run with --gate in a temporary home,
// against a probe server on loopback and app bundles made for the test.
#include <signal.h>

#include <chrono>
#include <optional>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/apps/app_running.h"
#include "core/config/config_codec.h"
#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/support/child_process.h"
#include "core/support/clock.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/network_namespace.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using testing::LoopbackHTTPServer;
using testing::TemporaryDirectory;

class GatePass : public ::testing::Test {
protected:
    TemporaryDirectory home;
    SystemAppRunning apps;
    std::vector<std::string> started;  // identifiers of the apps this test may have opened

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path historyPath() const { return home / "history.json"; }

    std::string identifier(const std::string& name) const {
        return "com.example." + name + "." + home.path().filename().string();
    }

    ManagedApp installApp(const std::string& name, const std::string& executable = "LingeringApp") {
        auto bundle = home / ("Applications/" + name + ".app");
        testing::writeFile(bundle / "Contents/Info.plist",
                           "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>" +
                               identifier(name) + "</string><key>CFBundleExecutable</key><string>" + executable +
                               "</string></dict></plist>");
        std::filesystem::create_directories(bundle / "Contents/MacOS");
        std::filesystem::copy_file(testing::testHelperPath(), bundle / "Contents/MacOS" / executable);
        started.push_back(identifier(name));
        ManagedApp app;
        app.bundleIdentifier = identifier(name);
        app.name = name;
        app.path = bundle.string();
        return app;
    }

    void TearDown() override {
        for (const auto& id : started) {
            for (int pid : apps.processIdentifiers(id)) ::kill(pid, SIGKILL);
        }
    }

    ChildProcessResult pass() {
        ChildProcessRequest request;
        request.executable = testing::holdenmerePath();
        request.arguments = {"--gate"};
        request.environment = std::vector<std::string>{"HOME=" + home.path().string(), "PATH=/usr/bin:/bin",
                                                       "HOLDENMERE_HISTORY_PATH=" + historyPath().string()};
        request.timeout = std::chrono::seconds(60);
        return runChildProcess(request);
    }

    HoldenmereConfig settingsFor(const std::string& url) {
        HoldenmereConfig config;
        config.settings.probeURL = url;
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        return config;
    }
};

TEST_F(GatePass, OpensTheAppsOnceTheNetworkAnswersAndRecordsThem) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204);
    HoldenmereConfig config = settingsFor(server.url());
    config.apps = {installApp("Mail"), installApp("Notes")};
    config.apps[1].launchHidden = true;
    ManagedApp gone;
    gone.bundleIdentifier = "com.example.gone";
    gone.name = "Gone";
    gone.path = (home / "Applications/Gone.app").string();
    config.apps.push_back(gone);
    ConfigStore{configPath()}.save(config);

    auto result = pass();
    EXPECT_EQ(result.status, 0) << result.output << result.error;
    EXPECT_EQ(result.error, "");
    EXPECT_THAT(result.output, MatchesRegex(
        "\\[20[0-9-]+T[0-9:]+Z\\] network reachable after 1 attempt\\(s\\) in [0-9.]+s \\[v[^]]+\\] "
        "\\[per attempt: [0-9.]+s\\] \\[warm-up: [0-9.]+s\\] \\[attempt diagnostics: #1 probe [^]]+\\]\n"
        "\\[Holdenmere\\] Mail: launched \xE2\x80\x94 launched \\[issued \\+0.0s\\] \\[late \\+[0-9.]+s\\]\n"
        "\\[Holdenmere\\] Notes: launched \xE2\x80\x94 launched \\(asked macOS to hide it\\) \\[issued \\+0.0s\\] \\[late \\+[0-9.]+s\\]\n"
        "\\[Holdenmere\\] Gone: missing \xE2\x80\x94 no application bundle at [^\n]+/Gone.app\n"
        "\\[Holdenmere\\] startup take-over not enabled \xE2\x80\x94 Login Items left to macOS \\(consent: undecided\\)\n"
        "\\[Holdenmere\\] done: launched=2 already_running=0 failed=0 login_items_not_removed=0\n"));
    EXPECT_TRUE(apps.isRunning(identifier("Mail")));
    EXPECT_TRUE(apps.isRunning(identifier("Notes")));
    EXPECT_EQ(server.requests().size(), 1u);

    auto records = HistoryStore{historyPath(), 200}.loadOrThrow();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].name, "Mail");
    EXPECT_EQ(records[0].outcome, LaunchOutcome::launched);
    EXPECT_EQ(records[2].outcome, LaunchOutcome::missing);

    // A second pass finds them running and records that in front.
    result = pass();
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.output, HasSubstr("[Holdenmere] Mail: alreadyRunning \xE2\x80\x94 already running (" +
                                         identifier("Mail") + ")\n"));
    EXPECT_EQ((HistoryStore{historyPath(), 200}.loadOrThrow().size()), 6u);
}

TEST_F(GatePass, WithTheGateOffNothingIsProbedOrOpened) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 200);
    HoldenmereConfig config = settingsFor(server.url());
    config.settings.isEnabled = false;
    config.apps = {installApp("Mail")};
    ConfigStore{configPath()}.save(config);

    auto result = pass();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, std::string("[Holdenmere] gate disabled\n"
                                         "[Holdenmere] Mail: disabled \xE2\x80\x94 Holdenmere disabled\n"
                                         "[Holdenmere] startup take-over not enabled \xE2\x80\x94 Login Items left to "
                                         "macOS (consent: undecided)\n"
                                         "[Holdenmere] done: launched=0 already_running=0 failed=0 "
                                         "login_items_not_removed=0\n"));
    EXPECT_TRUE(server.requests().empty());
    EXPECT_FALSE(apps.isRunning(identifier("Mail")));
    auto records = HistoryStore{historyPath(), 200}.loadOrThrow();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(records[0].detail, "Holdenmere disabled");
}

TEST_F(GatePass, AnUnreachableNetworkOpensNothingUnlessLaunchAnywayIsSet) {
    const std::string closed = "http://127.0.0.1:" + std::to_string(LoopbackHTTPServer::closedPort()) + "/";
    HoldenmereConfig config = settingsFor(closed);
    config.settings.launchAnywayOnTimeout = false;
    config.apps = {installApp("Mail")};
    ConfigStore{configPath()}.save(config);

    auto result = pass();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, HasSubstr("] network UNREACHABLE after 2 attempt(s) in "));
    EXPECT_THAT(result.output, HasSubstr(" \xE2\x80\x94 last failure: cannot connect to host ["));
    EXPECT_THAT(result.output, MatchesRegex("(.|\n)*\\[Holdenmere\\] Mail: failed \xE2\x80\x94 network unreachable after "
                                            "[0-9]+s \xE2\x80\x94 not opened, because \"launch anyway\" is off\n(.|\n)*"));
    EXPECT_FALSE(apps.isRunning(identifier("Mail")));

    config.settings.launchAnywayOnTimeout = true;
    ConfigStore{configPath()}.save(config);
    result = pass();
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.output, MatchesRegex("(.|\n)*\\[Holdenmere\\] Mail: launched \xE2\x80\x94 network unreachable "
                                            "after [0-9]+s \xE2\x80\x94 launched \\[issued(.|\n)*"));
    EXPECT_TRUE(apps.isRunning(identifier("Mail")));
}

TEST_F(GatePass, HeldHelpersAreStartedPrintedAndRecordedAfterTheApps) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 200);
    HoldenmereConfig config = settingsFor(server.url());
    config.settings.isEnabled = false;
    config.apps = {installApp("Mail")};
    const auto plist = home / "Library/LaunchAgents/com.example.sync.agent.plist";
    config.delayedHelpers = {
        DelayedHelper{"com.example.sync.agent", plist.string(), "com.example.sync", "Sync", DelayedHelper::Mode::delay},
        DelayedHelper{identifier("kept"), plist.string(), "com.example.kept", "Kept", DelayedHelper::Mode::off}};
    ConfigStore{configPath()}.save(config);

    // A missing plist is never handed to launchd; whether a helper held off
    // is off only launchd can tell, and here it cannot.
    auto result = pass();
    EXPECT_EQ(result.status, 0);
    const std::string dash = " \xE2\x80\x94 ";
    EXPECT_EQ(result.output, "[Holdenmere] gate disabled\n"
                             "[Holdenmere] Mail: disabled" + dash + "Holdenmere disabled\n"
                             "[Holdenmere] Sync helper: failed" + dash + "helper plist not found at " + plist.string() +
                                 "\n[Holdenmere] Kept helper: failed" + dash +
                                 "launchd's disabled list could not be read, so nothing was changed.\n"
                             "[Holdenmere] startup take-over not enabled" + dash + "Login Items left to macOS (consent: undecided)\n"
                             "[Holdenmere] done: launched=0 already_running=0 failed=0 login_items_not_removed=0\n");
    auto records = HistoryStore{historyPath(), 200}.loadOrThrow();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(records[0].name, "Mail");
    EXPECT_EQ(records[1].bundleIdentifier, "com.example.sync.agent");
    EXPECT_EQ(records[1].name, "Sync helper");
    EXPECT_EQ(records[1].outcome, LaunchOutcome::failed);
    EXPECT_EQ(records[2].name, "Kept helper");
}

TEST_F(GatePass, MigratesTheConfigAndWarnsWhenTheHistoryCannotBeWritten) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 200);
    HoldenmereConfig config = settingsFor(server.url());
    config.apps = {installApp("Mail"), installApp("Chat")};
    config.apps[0].delaySeconds = -5;
    config.apps[1].isEnabled = false;
    ConfigStore{configPath()}.save(config);
    testing::writeFile(historyPath(), "");
    std::filesystem::remove(historyPath());
    std::filesystem::create_directories(historyPath());  // a folder where the history should be

    auto result = pass();
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, ::testing::StartsWith(
        "[Holdenmere] clamped: Mail \xE2\x80\x94 stored delay -5s is outside 0-40s; it now waits 0s\n"
        "[Holdenmere] blocked: Chat \xE2\x80\x94 was switched off in Holdenmere; it does not start at login\n"
        "[Holdenmere] WARNING: this run was NOT recorded \xE2\x80\x94 Could not write run history: "));
    auto saved = ConfigStore{configPath()}.load();
    ASSERT_EQ(saved.apps.size(), 1u);
    EXPECT_EQ(saved.apps[0].delaySeconds, 0);
    ASSERT_EQ(saved.blockedApps.size(), 1u);
    EXPECT_EQ(saved.blockedApps[0].name, "Chat");
    EXPECT_FALSE(apps.isRunning(identifier("Chat")));
}

// In a network namespace of its own, where loopback starts down: the first
// attempt fails at once, and loopback comes up during the pause after it.
// The system announces the change, and the next attempt goes out at once
// instead of at the end of the two-second interval.
TEST_F(GatePass, TheNextAttemptGoesOutAsSoonAsTheNetworkComesUp) {
    if (!testing::inOwnNetworkNamespace()) return testing::runInOwnNetworkNamespace();

    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204, 30, true);
    HoldenmereConfig config = settingsFor(server.url());
    config.settings.pollInterval = 2;
    config.settings.maxAttempts = 5;
    ConfigStore{configPath()}.save(config);

    Signal passEnded;
    std::optional<std::chrono::steady_clock::time_point> bringingUpAt;
    std::string bringUpError;
    std::thread bringUp([&] {
        if (passEnded.waitFor(0.7)) return;
        bringingUpAt = std::chrono::steady_clock::now();
        bringUpError = testing::setLoopbackUp(true);
    });
    auto result = pass();
    passEnded.raise();
    bringUp.join();

    ASSERT_TRUE(bringingUpAt.has_value()) << "the pass ended before loopback came up:\n" << result.output;
    ASSERT_EQ(bringUpError, "");
    EXPECT_EQ(result.status, 0) << result.output << result.error;
    EXPECT_THAT(result.output, HasSubstr("] network reachable after 2 attempt(s) in "));
    const auto arrivals = server.arrivals();
    ASSERT_EQ(arrivals.size(), 1u) << result.output;
    const auto late = std::chrono::duration_cast<std::chrono::milliseconds>(arrivals[0] - *bringingUpAt);
    EXPECT_LT(late.count(), 100) << "the second attempt arrived " << late.count() << " ms after loopback came up";
}

TEST_F(GatePass, TheHistoryKeepsTheNewestTwoHundredRecords) {
    LoopbackHTTPServer server(LoopbackHTTPServer::Mode::status, 204);
    HoldenmereConfig config = settingsFor(server.url());
    for (const char* name : {"Ada", "Bea", "Cy"}) {
        ManagedApp app;
        app.bundleIdentifier = std::string("com.example.absent.") + name;
        app.name = name;
        app.path = (home / "Applications" / (std::string(name) + ".app")).string();
        config.apps.push_back(app);
    }
    ConfigStore{configPath()}.save(config);
    // 199 records of earlier passes, oldest last.
    const HistoryStore history{historyPath(), 200};
    for (int pass = 0; pass < 199; ++pass) {
        LaunchRecord record;
        record.bundleIdentifier = "com.example.earlier";
        record.name = "Earlier " + std::to_string(198 - pass);
        record.timestamp = Date{static_cast<double>(pass)};
        history.appendOrThrow({record});
    }

    auto result = pass();
    EXPECT_EQ(result.status, 0) << result.output << result.error;
    auto records = history.loadOrThrow();
    ASSERT_EQ(records.size(), 200u);
    EXPECT_EQ(records[0].name, "Ada");
    EXPECT_EQ(records[1].name, "Bea");
    EXPECT_EQ(records[2].name, "Cy");
    EXPECT_EQ(records[2].outcome, LaunchOutcome::missing);
    EXPECT_EQ(records[3].name, "Earlier 0");
    EXPECT_EQ(records[199].name, "Earlier 196");  // the two oldest made room
}

}  // namespace
}  // namespace holdenmere
