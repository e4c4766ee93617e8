#pragma once

#include <ostream>

#include "core/discovery/script_running.h"

namespace holdenmere {

// `--audit`: the macOS Login Items, what Holdenmere manages, the apps in both,
// and what macOS started before the gate at the last login, read from System
// Events, the configuration and the run log.
int runAudit(std::ostream& out, std::ostream& err);
int runAudit(std::ostream& out, std::ostream& err, ScriptRunning& scripts);

}  // namespace holdenmere
