#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/gate/app_launcher.h"
#include "core/launchd/helper_starting.h"
#include "core/reachability/reachability_gate.h"
#include "core/support/clock.h"
#include "core/support/main_loop.h"

namespace holdenmere {

// What one run of the login pass did.
struct [[nodiscard]] LaunchPlan {
    // The pass reached its end with the network answering (or with the gate
    // switched off, so that nothing had to answer): exit status 0.
    bool completed = false;
    std::vector<LaunchRecord> records;  // one per managed app, in the configuration's order
    std::optional<ProbeResult> probe;   // nothing when the gate is off
    std::vector<LaunchRecord> helperRecords;  // one per held helper, in the configuration's order

    // What the history keeps of the run: the apps' records, then the helpers'.
    std::vector<LaunchRecord> allRecords() const;
};

// Turns a configuration into one login pass: wait for the network, open
// the apps, start the held helpers.
class GateRunner {
public:
    GateRunner(ReachabilityGate& gate, AppLauncher& launcher, Clock& clock, HelperStarting* helpers = nullptr)
        : gate_(gate), launcher_(launcher), clock_(clock), helpers_(helpers) {}

    // With the gate on: wait, then open the apps when the network answered,
    // or when it did not and "launch anyway" is set (each detail then begins
    // "network unreachable after {n}s"); without "launch anyway" nothing is
    // opened and each record says why. With the gate off nothing waits and
    // nothing is opened: every app is recorded "disabled", "Holdenmere disabled".
    LaunchPlan run(const HoldenmereConfig& config, const Signal* cancellation = nullptr);

    static int exitCode(const LaunchPlan& plan) { return plan.completed ? 0 : 1; }

    // "network unreachable after 120s".
    static std::string unreachablePrefix(double elapsed);

private:
    std::vector<LaunchRecord> startHelpers(const HoldenmereConfig& config);

    ReachabilityGate& gate_;
    AppLauncher& launcher_;
    Clock& clock_;
    HelperStarting* helpers_;
};

// Waits for `done` in slices of `slice` seconds of `mainLoop` until
// `seconds` have passed on `clock`; true when it was raised in time. The
// login pass waits on its runner, on its startup-sources step and on the
// opening of the desktop app this way, so that on macOS the main run loop
// keeps turning while it waits.
bool waitWithDeadline(Clock& clock, MainLoop& mainLoop, const Signal& done, double seconds, double slice = 0.05);

}  // namespace holdenmere
