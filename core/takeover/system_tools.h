#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/discovery/background_item_scanner.h"
#include "core/discovery/script_running.h"
#include "core/discovery/startup_item.h"
#include "core/launchd/launchctl_running.h"

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

// sfltool for the background-items record. Only where a person is present:
// the tool asks for an administrator's authorization.
std::unique_ptr<BackgroundItemsTool> makeSystemBackgroundItemsTool();

// The LaunchAgents that the scanner leaves alone because launchd has them
// disabled, with the scanner's reason for each.
std::vector<IneligibleStartupItem> scanDisabledAgents(LaunchctlRunning& launchctl);

}  // namespace holdenmere
