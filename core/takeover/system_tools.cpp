#include "core/takeover/system_tools.h"

#include "core/discovery/launch_agent_scanner.h"
#include "core/launchd/system_launchctl.h"
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

std::unique_ptr<BackgroundItemsTool> makeSystemBackgroundItemsTool() {
    return std::make_unique<SystemBackgroundItemsTool>(toolPath(SystemBackgroundItemsTool::kExecutable));
}

std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchctlRunning& launchctl) {
    return LaunchAgentScanner(launchctl).ineligible(true);
}

}  // namespace holdenmere
