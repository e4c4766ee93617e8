#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/apps/installed_app.h"
#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/discovery/script_running.h"
#include "core/launchd/agent_installer.h"
#include "core/launchd/launchctl_running.h"
#include "core/launchd/login_agent_status.h"
#include "core/reachability/reachability_probe.h"
#include "core/support/clock.h"
#include "core/discovery/startup_inventory.h"
#include "core/discovery/background_item_scanner.h"
#include "core/discovery/settings_opening.h"
#include "core/takeover/login_agent_switch.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/system_tools.h"

namespace holdenmere {
class SystemAppRunning;
class SystemStartupSwitches;
struct StartupSwitches;
}  // namespace holdenmere

namespace holdenmere::desktop {

// Everything the desktop app asks of the system, behind one seam, so that
// the window and its models run against a fixture or a fake.
class DesktopServices {
public:
    virtual ~DesktopServices() = default;

    // The files the login pass reads and writes.
    virtual ConfigStore configStore() const = 0;
    virtual HistoryStore historyStore() const = 0;
    virtual std::filesystem::path logPath() const = 0;

    // The apps in the Applications folders.
    virtual std::vector<InstalledApp> installedApps() = 0;
    // One bundle, read from its Info.plist (a managed app, or one the user picked).
    virtual InstalledApp readBundle(const std::filesystem::path& path) = 0;
    virtual bool bundleExists(const std::filesystem::path& path) = 0;

    // A fresh probe for "Test the network now", and the clock it runs on.
    virtual std::unique_ptr<ReachabilityProbe> makeProbe() = 0;
    virtual Clock& clock() = 0;

    // launchd for the user's GUI domain, and AppleScript for System Events
    // (Login Items). Both are used from a worker thread as well as the UI
    // thread, so implementations must be safe to call from any thread.
    virtual LaunchctlRunning& launchctl() = 0;
    virtual ScriptRunning& scripts() = 0;
    // The switches of app extensions, launcher children and session restore
    // (Give Everything Back gives their held items back); nothing: left as
    // they are.
    virtual const StartupSwitches* startupSwitches() { return nullptr; }
    // The folders the LaunchAgent scanner reads, in order.
    virtual std::vector<std::filesystem::path> launchAgentDirectories();
    // The safety rules' questions about the machine.
    virtual StartupSafety::Environment safetyEnvironment();
    // The startup inventory over launchctl(), launchAgentDirectories(),
    // "systemextensionsctl list", pluginkit, lsappinfo and the home's
    // loginwindow preferences; scanned from a worker thread.
    virtual StartupInventory startupInventory();
    // What runs sfltool for macOS's background-items record (it may ask for
    // an administrator's authorization), and System Settings' panes; safe
    // from any thread.
    virtual ToolRunning& backgroundItemsTool();
    virtual SettingsOpening& settingsOpening();

    // Holdenmere's own login agent, which runs the login pass: the program
    // it runs (the running executable; nothing when it cannot be told) and
    // where its plist goes.
    virtual std::optional<std::filesystem::path> agentExecutable();
    virtual std::filesystem::path loginAgentPlistPath() const;
    // The installer over launchctl(); nothing without an executable.
    std::optional<AgentInstaller> loginAgentInstaller();

    // Whether the login agent will run the login pass at the next login.
    virtual HoldenmereLoginAgentStatus loginAgentStatus();
    // Whether this build can switch the login agent on and off.
    virtual bool canChangeStartAtLogin();
    // Installs (on) or removes (off) the login agent under the startup
    // mutation lock, waiting for it until `cancellation` is raised; called
    // from a worker thread.
    virtual LoginAgentSwitch setStartAtLogin(bool on, const Signal* cancellation);
    // Brings an existing agent's plist up to date (its process type); the
    // error's description when it cannot, nothing otherwise. A plist of
    // another job is never rewritten.
    virtual std::optional<std::string> updateLoginAgent();

private:
    // systemextensionsctl, pluginkit, lsappinfo and sfltool (or their
    // stand-ins in HOLDENMERE_TOOLS_DIR).
    std::unique_ptr<ToolRunning> tools_ = makeSystemToolRunning();
};

// The real system: the stores at their default places or the paths of
// HOLDENMERE_CONFIG_PATH, HOLDENMERE_HISTORY_PATH and HOLDENMERE_LOG_PATH,
// the Applications folders of the home folder and the system, a libcurl
// probe, launchctl and osascript (or their stand-ins in HOLDENMERE_TOOLS_DIR).
class SystemDesktopServices : public DesktopServices {
public:
    SystemDesktopServices();
    ~SystemDesktopServices() override;

    ConfigStore configStore() const override { return configStore_; }
    HistoryStore historyStore() const override { return historyStore_; }
    std::filesystem::path logPath() const override { return logPath_; }

    std::vector<InstalledApp> installedApps() override;
    InstalledApp readBundle(const std::filesystem::path& path) override { return InstalledApp::read(path); }
    bool bundleExists(const std::filesystem::path& path) override;

    std::unique_ptr<ReachabilityProbe> makeProbe() override;
    Clock& clock() override { return clock_; }

    LaunchctlRunning& launchctl() override { return *launchctl_; }
    ScriptRunning& scripts() override { return *scripts_; }
    const StartupSwitches* startupSwitches() override;

private:
    ConfigStore configStore_;
    HistoryStore historyStore_;
    std::filesystem::path logPath_;
    SystemClock clock_;
    std::unique_ptr<LaunchctlRunning> launchctl_;
    std::unique_ptr<ScriptRunning> scripts_;
    std::unique_ptr<SystemAppRunning> apps_;
    std::unique_ptr<SystemStartupSwitches> switches_;
};

}  // namespace holdenmere::desktop
