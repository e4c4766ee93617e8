#include "app/system_services.h"

#include "core/discovery/launch_agent_scanner.h"
#include "core/launchd/system_launchctl.h"

namespace holdenmere {

std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl() { return std::make_unique<SystemLaunchctl>(); }

std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchctlRunning& launchctl) {
    return LaunchAgentScanner(launchctl).ineligible(true);
}

}  // namespace holdenmere
