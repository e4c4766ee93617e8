#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/discovery/background_item_scanner.h"
#include "core/discovery/script_running.h"
#include "core/startup/startup_item.h"
#include "core/launchd/launchctl_running.h"
#include "core/takeover/startup_switch.h"

namespace holdenmere {

// The system-facing pieces that the modes and the desktop app are built
// with, in one place, so that each takes them as parameters and the tests
// can hand in fakes instead.

// Where a system tool is run from: its usual place, or the folder named by
// HOLDENMERE_TOOLS_DIR, where the tests and diagnostics put stand-ins for
// launchctl, osascript and sfltool ("/bin/launchctl" -> "$HOLDENMERE_TOOLS_DIR/launchctl").
std::filesystem::path toolPath(const std::filesystem::path& systemPath);

// launchd for the current user's GUI domain.
std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl();

// AppleScript for System Events (Login Items).
std::unique_ptr<ScriptRunning> makeSystemScriptRunner();

// The LaunchAgents that the scanner leaves alone because launchd has them
// disabled, with the scanner's reason for each.
std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchdReading& launchctl);

class AppRunning;

// The tools the startup-source scanners and switches ask (pluginkit,
// lsappinfo, defaults, osascript, systemextensionsctl, sfltool), from
// HOLDENMERE_TOOLS_DIR when it is set. sfltool only where a person is
// present: it asks for an administrator's authorization.
std::unique_ptr<ToolRunning> makeSystemToolRunning();

// Quits an app through an Apple event, as the Quit menu item does, so that
// it can save and close its windows first.
class SystemAppQuitting final : public AppQuitting {
public:
    static constexpr const char* kOsascript = "/usr/bin/osascript";
    SystemAppQuitting(ToolRunning& tools, AppRunning& apps) : tools_(tools), apps_(apps) {}
    bool isRunning(const std::string& bundleIdentifier) override;
    std::optional<std::string> quit(const std::string& bundleIdentifier) override;

private:
    ToolRunning& tools_;
    AppRunning& apps_;
};

// The switches of app extensions, launcher children and session restore
// on the system's tools, for the modes and the desktop app.
class SystemStartupSwitches {
public:
    SystemStartupSwitches(LaunchctlRunning& launchctl, AppRunning& apps);
    SystemStartupSwitches(const SystemStartupSwitches&) = delete;
    SystemStartupSwitches& operator=(const SystemStartupSwitches&) = delete;

    const StartupSwitches& switches() const { return switches_; }

private:
    std::unique_ptr<ToolRunning> tools_;
    AppExtensionSwitch extensions_;
    LauncherChildSwitch launchers_;
    SystemReopenWindowsSetting reopenWindows_;
    SystemAppQuitting quitting_;
    StartupSwitches switches_;
};

}  // namespace holdenmere
