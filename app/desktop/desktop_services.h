#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/apps/installed_app.h"
#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/launchd/login_agent_status.h"
#include "core/reachability/reachability_probe.h"
#include "core/support/clock.h"

namespace holdenmere::desktop {

// Everything the desktop app asks of the system, behind one seam, so that
// the window and its models run against a fixture or a fake. The first group
// is complete; the login-agent group is the place where installing and
// removing Holdenmere's own login agent plugs in.
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

    // Holdenmere's own login agent, which runs the login pass.
    virtual HoldenmereLoginAgentStatus loginAgentStatus() = 0;
    // Whether this build can switch the login agent on and off.
    virtual bool canChangeStartAtLogin() { return false; }
    // Switches the login agent on or off; the failure's text, or nothing.
    virtual std::optional<std::string> setStartAtLogin(bool on);
};

// The real system: the stores at their default places or the paths of
// HOLDENMERE_CONFIG_PATH, HOLDENMERE_HISTORY_PATH and HOLDENMERE_LOG_PATH,
// the Applications folders of the home folder and the system, a libcurl probe.
class SystemDesktopServices : public DesktopServices {
public:
    SystemDesktopServices();

    ConfigStore configStore() const override { return configStore_; }
    HistoryStore historyStore() const override { return historyStore_; }
    std::filesystem::path logPath() const override { return logPath_; }

    std::vector<InstalledApp> installedApps() override;
    InstalledApp readBundle(const std::filesystem::path& path) override { return InstalledApp::read(path); }
    bool bundleExists(const std::filesystem::path& path) override;

    std::unique_ptr<ReachabilityProbe> makeProbe() override;
    Clock& clock() override { return clock_; }

    // Tells only whether the agent's plist is in place; whether launchd has
    // loaded it or it was switched off comes with the launchd side.
    HoldenmereLoginAgentStatus loginAgentStatus() override;

    // ~/Library/LaunchAgents/com.tavik.holdenmere.agent.plist
    static std::filesystem::path loginAgentPlistPath();

private:
    ConfigStore configStore_;
    HistoryStore historyStore_;
    std::filesystem::path logPath_;
    SystemClock clock_;
};

}  // namespace holdenmere::desktop
