#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "core/gate/cli_mode.h"

namespace holdenmere {

// Exit statuses of the headless modes.
namespace exit_status {
inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kConfigUnreadable = 2;
inline constexpr int kUsage = 64;            // unknown option (EX_USAGE)
inline constexpr int kUnavailable = 69;      // --deemsterui (EX_UNAVAILABLE)
inline constexpr int kLockUnavailable = 75;  // startup mutation lock (EX_TEMPFAIL)
}  // namespace exit_status

// The mode this process runs, decided once at start, for the parts of the
// program that behave differently by mode.
const CLIMode& currentMode();
// Whether the login pass opened this instance ("--opened-at-login"): the
// desktop app then starts without raising a window.
bool openedQuietly();

// What opens the desktop app: set by the entry point of a build that has
// one, before runCommandLine; it returns the app's exit status. Without it
// the `app` mode says that this build has no desktop app.
using DesktopEntry = std::function<int()>;
void setDesktopEntry(DesktopEntry entry);

// Decides the mode from the whole argument vector and runs it. Reports go to
// `out`, errors to `err`; the return value is the process's exit status.
int runCommandLine(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err);

}  // namespace holdenmere
