#pragma once

#include <functional>
#include <optional>
#include <ostream>
#include <set>
#include <string>

#include "core/apps/app_running.h"
#include "core/discovery/script_running.h"
#include "core/discovery/system_daemon_scanner.h"
#include "core/launchd/launchctl_running.h"
#include "core/reachability/network_change_listening.h"
#include "core/reachability/reachability_probe.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/main_loop.h"

namespace holdenmere {

struct StartupSwitches;

// The system-facing pieces one login pass works with, so that a whole pass
// can also run in-process against fakes. Each must outlive the pass.
struct GateServices {
    Clock& clock;
    ReachabilityProbe& probe;
    AppRunning& apps;
    LaunchctlRunning& launchctl;
    ScriptRunning& scripts;
    // The app paths that system LaunchDaemons run, and the daemons that
    // could not be read.
    std::function<SystemDaemonScanner::Apps()> systemDaemonAppPaths;
    // Holdenmere's own bundle and process, for opening the desktop app.
    std::optional<Bundle> bundle;
    int processIdentifier = 0;
    // What the pass's waits on the main thread serve.
    MainLoop& mainLoop = InertMainLoop::shared();
    // The system's network-change announcements, which bring the gate's
    // next attempt forward.
    NetworkChangeListening& networkChanges = InertNetworkChangeListening::shared();
    // The switches of app extensions, launcher children and session
    // restore; without them their held items are passed over.
    const StartupSwitches* switches = nullptr;
};

// `--gate`: one headless login pass. Log lines go to `out` (the login agent
// sends standard output to the run log), errors to `err`. Returns the exit
// status; a pass that passes its deadline ends the process itself.
int runGate(std::ostream& out, std::ostream& err);
int runGate(std::ostream& out, std::ostream& err, GateServices& services);

}  // namespace holdenmere
