#pragma once

#include <string>
#include <vector>

#include "core/apps/app_running.h"
#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/support/clock.h"
#include "core/support/main_loop.h"

namespace holdenmere {

// Opens the managed apps once the network answers, each at its own offset
// from the start of launching, and says what happened to every one of them.
class AppLauncher {
public:
    // While confirmations are still running the launcher waits in slices of
    // `mainLoop`, so that on the main thread of a macOS process the
    // workspace can deliver them.
    AppLauncher(AppRunning& system, Clock& clock, MainLoop& mainLoop)
        : system_(system), clock_(clock), mainLoop_(mainLoop) {}

    // One record per app, in the configuration's order. Launches are begun
    // one after another in that order; their confirmations run concurrently,
    // so a slow app never holds back the next one's offset. A cancellation
    // ends the waiting: apps not yet begun are not opened, confirmations
    // still running are ended and reported as cancelled.
    // Has the app access prepare what the launches will ask, while the pass
    // waits for the network.
    void warmUp() { system_.warmUp(); }
    std::vector<LaunchRecord> launchAll(const std::vector<ManagedApp>& apps, const Signal* cancellation = nullptr);

    // How long one wait for the confirmations lasts before the launcher
    // looks at its cancellation again.
    static constexpr double kWaitingSlice = 0.05;

    // A configured delay as a scheduled offset: negative counts as 0, rounded
    // up to the next multiple of 5 s, at most 40 s.
    static double offset(double delaySeconds);
    // " [issued +10.0s] [late +2.3s]", negative values as 0.
    static std::string timing(double issued, double late);

private:
    AppRunning& system_;
    Clock& clock_;
    MainLoop& mainLoop_;
};

}  // namespace holdenmere
