#pragma once

#include <QByteArray>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtGlobal>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/desktop/desktop_services.h"
#include "app/desktop/settings_model.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_probe.h"
#include "tests/support/background_items_text.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/fake_tool_running.h"

// Shared by the desktop app's Qt tests: a temporary home folder and services
// that stay inside it.
namespace holdenmere::testing {

// A fresh home folder for one test: HOME points at it and the path overrides
// are cleared, so nothing reaches the real user's files.
class TemporaryHome {
public:
    TemporaryHome() {
        qputenv("HOME", folder_.path().toUtf8());
        for (const char* name : {"HOLDENMERE_CONFIG_PATH", "HOLDENMERE_HISTORY_PATH", "HOLDENMERE_LOG_PATH",
                                 "HOLDENMERE_DEFAULTS_SUITE", "HOLDENMERE_UI_FIXTURE", "HOLDENMERE_UI_SCREENSHOTS"}) {
            qunsetenv(name);
        }
    }
    std::filesystem::path path() const { return folder_.path().toStdString(); }
    std::filesystem::path operator/(const std::string& name) const { return path() / name; }

private:
    QTemporaryDir folder_;
};

// Services over a temporary home: the stores at their default places under
// it, installed apps and missing bundles as the test sets them, a fake probe
// on a fake clock, launchd and System Events in memory, LaunchAgents read
// from the home's Library/LaunchAgents only, and a login agent whose state
// the test chooses (`loginAgent`) or, with `loginAgent` unset, the real
// installer over the fake launchctl.
class FakeDesktopServices : public desktop::DesktopServices {
public:
    explicit FakeDesktopServices(std::filesystem::path home) : home_(std::move(home)) {}

    ConfigStore configStore() const override {
        return ConfigStore{home_ / "Library/Application Support/Holdenmere/config.json"};
    }
    HistoryStore historyStore() const override {
        return HistoryStore{home_ / "Library/Application Support/Holdenmere/history.json"};
    }
    std::filesystem::path logPath() const override { return home_ / "Library/Logs/Holdenmere.log"; }

    std::vector<InstalledApp> installedApps() override {
        ++scans;
        return installed;
    }
    InstalledApp readBundle(const std::filesystem::path& path) override {
        for (const InstalledApp& app : installed) {
            if (app.path == path) return app;
        }
        return InstalledApp::read(path);
    }
    bool bundleExists(const std::filesystem::path& path) override { return missing.count(path) == 0; }

    std::unique_ptr<ReachabilityProbe> makeProbe() override {
        if (probeFactory) return probeFactory();
        auto probe = std::make_unique<FakeProbe>(clock_);
        probe->script(probeSteps);
        return probe;
    }
    Clock& clock() override { return clock_; }
    // An empty record unless a test says otherwise; System Settings recorded.
    ToolRunning& backgroundItemsTool() override { return backgroundTool; }
    SettingsOpening& settingsOpening() override { return settings; }
    FakeToolRunning backgroundTool = [] {
        FakeToolRunning tools;
        tools.answers["sfltool"] = FakeToolRunning::printing(btmSection(BackgroundItemScanner::currentUid(), {}));
        return tools;
    }();
    struct RecordingSettings final : SettingsOpening {
        std::vector<std::string> opened;
        std::optional<std::string> open(std::string_view url) override {
            opened.emplace_back(url);
            return std::nullopt;
        }
    } settings;

    LaunchctlRunning& launchctl() override { return fakeLaunchctl; }
    ScriptRunning& scripts() override { return fakeScripts; }
    std::vector<std::filesystem::path> launchAgentDirectories() override { return {home_ / "Library/LaunchAgents"}; }
    std::optional<std::filesystem::path> agentExecutable() override { return executable; }
    // The machine's own rules, with the system LaunchDaemons' apps set here.
    StartupSafety::Environment safetyEnvironment() override {
        auto environment = StartupSafety::systemEnvironment();
        environment.systemDaemonAppPaths = [apps = systemDaemonApps] { return apps; };
        return environment;
    }

    HoldenmereLoginAgentStatus loginAgentStatus() override {
        return loginAgent ? *loginAgent : DesktopServices::loginAgentStatus();
    }
    bool canChangeStartAtLogin() override {
        return loginAgent ? startAtLoginChangeable : DesktopServices::canChangeStartAtLogin();
    }
    LoginAgentSwitch setStartAtLogin(bool on, const Signal* cancellation) override {
        if (!loginAgent) return DesktopServices::setStartAtLogin(on, cancellation);
        if (!startAtLoginChangeable) return {on, LoginAgentSwitch::Kind::notSwitched, "this build cannot change it"};
        startAtLoginRequests.push_back(on);
        loginAgent = on ? HoldenmereLoginAgentStatus::activeAtLogin : HoldenmereLoginAgentStatus::disabled;
        return {on, LoginAgentSwitch::Kind::switched, {}};
    }

    FakeClock& fakeClock() { return clock_; }

    std::vector<InstalledApp> installed;
    std::set<std::filesystem::path> missing;
    std::vector<FakeProbe::Step> probeSteps;
    std::function<std::unique_ptr<ReachabilityProbe>()> probeFactory;
    std::optional<HoldenmereLoginAgentStatus> loginAgent = HoldenmereLoginAgentStatus::activeAtLogin;
    bool startAtLoginChangeable = false;
    std::optional<std::filesystem::path> executable =
        std::filesystem::path("/Applications/Holdenmere.app/Contents/MacOS/holdenmere");
    FakeLaunchctlRunning fakeLaunchctl;
    FakeScriptRunning fakeScripts;
    std::vector<bool> startAtLoginRequests;
    std::set<std::string> systemDaemonApps;
    int scans = 0;

private:
    std::filesystem::path home_;
    FakeClock clock_;
};

// Waits for the end of a switch of the login agent, started by `start`
// (the model's setStartAtLogin, or a click); whether it succeeded.
inline bool startAtLoginSwitched(desktop::SettingsModel& model, const std::function<void()>& start) {
    QSignalSpy ended(&model, &desktop::SettingsModel::startAtLoginSwitched);
    start();
    return ended.wait(10000) && ended.at(0).at(0).toBool();
}
inline bool switchStartAtLogin(desktop::SettingsModel& model, bool on) {
    return startAtLoginSwitched(model, [&] { model.setStartAtLogin(on); });
}

inline InstalledApp installedApp(const std::string& name, const std::string& identifier,
                                 std::vector<NetworkReason> reasons = {}) {
    InstalledApp app;
    app.name = name;
    app.bundleIdentifier = identifier;
    app.path = "/Applications/" + name + ".app";
    app.hasInfoPlist = true;
    app.networkReasons = std::move(reasons);
    return app;
}

inline ManagedApp managedApp(const std::string& name, const std::string& identifier) {
    ManagedApp app;
    app.name = name;
    app.bundleIdentifier = identifier;
    app.path = "/Applications/" + name + ".app";
    return app;
}

}  // namespace holdenmere::testing
