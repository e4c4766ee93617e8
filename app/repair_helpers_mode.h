#pragma once

#include <filesystem>
#include <functional>
#include <ostream>
#include <vector>

#include "core/discovery/script_running.h"
#include "core/startup/startup_item.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// Where `--repair-helpers` reads and writes.
struct RepairHelpersRun {
    bool dryRun = false;
    std::filesystem::path configPath;
    std::filesystem::path logPath;  // the run log the steps are appended to
};

// `--repair-helpers [--dry-run]`: takes the startup mutation lock for the
// whole run, reads the configuration, switches back on (through the
// startup-change engine) the disabled helpers of managed apps that no record
// explains, and prints one line per helper on `out`; errors and warnings go
// to `err`. Returns the exit status: 0 when every helper is back on (or
// nothing had to be), 1 when one stayed disabled or launchd's disabled list
// could not be read (then nothing is known, and nothing is changed), 2 when
// the configuration cannot be read, 75 when the lock cannot be had.
int runRepairHelpers(const RepairHelpersRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                     ScriptRunning& scripts,
                     const std::function<std::vector<IneligibleStartupItem>()>& scanDisabledAgents);

}  // namespace holdenmere
