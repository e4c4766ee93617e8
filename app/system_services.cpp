#include "app/system_services.h"

namespace holdenmere {

std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl() {
    // LEAD: return the launchctl runner (/bin/launchctl) once it is in this
    // build. Until then every launchctl call fails with -1 and nothing is
    // loaded or disabled, so the modes change nothing.
    return std::make_unique<InertLaunchctl>();
}

std::vector<IneligibleStartupItem> scanDisabledAgents() {
    // LEAD: return the LaunchAgent scanner's ineligible items over its
    // default folders, only those that launchd has disabled. Until then
    // nothing is found, so --repair-helpers has nothing to repair.
    return {};
}

}  // namespace holdenmere
