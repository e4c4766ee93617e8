#pragma once

#include <filesystem>
#include <ostream>

#include "core/discovery/script_running.h"
#include "core/launchd/launchctl_running.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {

struct StartupSwitches;

// Where `--restore-startup` reads and writes.
struct RestoreStartupRun {
    bool dryRun = false;
    ConfigAccess config;                    // its path is named in the messages
    std::filesystem::path loginAgentPlist;  // Holdenmere's own LaunchAgent, turned off at the end

    // A run against the configuration file at `configPath`.
    static RestoreStartupRun atPath(bool dryRun, const std::filesystem::path& configPath,
                                    const std::filesystem::path& loginAgentPlist);
};

// `--restore-startup [--dry-run]`: takes the startup mutation lock for the
// whole run, saves the opt-out (startup consent declined) so that no later
// login pass takes anything over again, gives back everything the ledger
// records through the startup-change engine and prints one line per item by
// source on `out`, and turns Holdenmere's login agent off. A dry run prints
// what would happen and changes nothing, the opt-out included. Errors and
// warnings go to `err`. Returns the exit status: 0 when everything was given
// back, 1 when the opt-out could not be saved (nothing is then done) or an
// item or the login agent could not be given back, 2 when the configuration
// cannot be read, 75 when the lock cannot be had.
// `switches` act on the held items of the other sources (app extensions,
// launcher children, session restore, the reopen-windows setting); without
// them those stay in the ledger.
int runRestoreStartup(const RestoreStartupRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                      ScriptRunning& scripts, const StartupSwitches* switches = nullptr);

}  // namespace holdenmere
