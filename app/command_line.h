#pragma once

#include <functional>
#include <ostream>
#include <string>
#include <vector>

#include "app/exit_status.h"
#include "core/gate/cli_mode.h"

namespace holdenmere {

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
