#include "core/takeover/system_tools.h"

#include "core/discovery/launch_agent_scanner.h"
#include "core/launchd/system_launchctl.h"
#include "core/apps/app_running.h"
#include "core/support/environment.h"

namespace holdenmere {

std::filesystem::path toolPath(const std::filesystem::path& systemPath) {
    if (auto folder = environmentValue("HOLDENMERE_TOOLS_DIR")) return std::filesystem::path(*folder) / systemPath.filename();
    return systemPath;
}

std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl() {
    return std::make_unique<SystemLaunchctl>(toolPath("/bin/launchctl"));
}

std::unique_ptr<ScriptRunning> makeSystemScriptRunner() {
    return std::make_unique<OSAScriptRunner>(toolPath(OSAScriptRunner::kExecutable));
}

std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchdReading& launchctl) {
    return LaunchAgentScanner(launchctl).ineligible(true);
}

std::unique_ptr<ToolRunning> makeSystemToolRunning() {
    std::optional<std::filesystem::path> folder;
    if (auto value = environmentValue("HOLDENMERE_TOOLS_DIR")) folder = *value;
    return std::make_unique<SystemToolRunning>(folder);
}

bool SystemAppQuitting::isRunning(const std::string& bundleIdentifier) { return apps_.isRunning(bundleIdentifier); }

std::optional<std::string> SystemAppQuitting::quit(const std::string& bundleIdentifier) {
    // The identifier is quoted in the script: one with a quote or a
    // backslash is none that LaunchServices registers.
    if (bundleIdentifier.find_first_of("\"\\") != std::string::npos) return "not a bundle identifier";
    std::string failure;
    if (tools_.output(kOsascript, {"-e", "tell application id \"" + bundleIdentifier + "\" to quit"},
                      std::chrono::seconds(30), failure)) {
        return std::nullopt;
    }
    return failure;
}

SystemStartupSwitches::SystemStartupSwitches(LaunchctlRunning& launchctl, AppRunning& apps)
    : tools_(makeSystemToolRunning()),
      extensions_(*tools_),
      launchers_(launchctl),
      reopenWindows_(*tools_),
      quitting_(*tools_, apps) {
    switches_.appExtension = &extensions_;
    switches_.launcherChild = &launchers_;
    switches_.reopenWindows = &reopenWindows_;
    switches_.apps = &quitting_;
    switches_.sessionRestore = [] { return SessionRestoreScanner::read(homeDirectory()); };
}

}  // namespace holdenmere
