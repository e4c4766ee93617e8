#include "app/system_services.h"

#include "core/discovery/launch_agent_scanner.h"

namespace holdenmere {

std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl() {
    // LEAD: return the launchctl runner (/bin/launchctl) once it is in this
    // build. Until then every launchctl call fails with -1 and nothing is
    // loaded or disabled, so the modes change nothing.
    return std::make_unique<InertLaunchctl>();
}

std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchctlRunning& launchctl) {
    return LaunchAgentScanner(launchctl).ineligible(true);
}

}  // namespace holdenmere
