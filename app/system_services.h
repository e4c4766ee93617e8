#pragma once

#include <memory>
#include <vector>

#include "core/discovery/startup_item.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// The system-facing pieces that the headless modes are built with, in one
// place, so that each mode takes them as parameters and the tests can hand
// in fakes instead.

// launchd for the current user's GUI domain.
std::unique_ptr<LaunchctlRunning> makeSystemLaunchctl();

// The LaunchAgents that the scanner leaves alone because launchd has them
// disabled, with the scanner's reason for each.
std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchctlRunning& launchctl);

}  // namespace holdenmere
