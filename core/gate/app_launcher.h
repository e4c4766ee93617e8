#pragma once

#include <string>
#include <vector>

#include "core/apps/app_running.h"
#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/support/clock.h"

namespace holdenmere {

// Opens the managed apps once the network answers, each at its own offset
// from the start of launching, and says what happened to every one of them.
class AppLauncher {
public:
    AppLauncher(AppRunning& system, Clock& clock) : system_(system), clock_(clock) {}

    // One record per app, in the configuration's order. Launches are begun
    // one after another in that order; their confirmations run concurrently,
    // so a slow app never holds back the next one's offset. A cancellation
    // ends the waiting: apps not yet begun are not opened, confirmations
    // still running are reported as cancelled.
    std::vector<LaunchRecord> launchAll(const std::vector<ManagedApp>& apps, const Signal* cancellation = nullptr);

    // A configured delay as a scheduled offset: negative counts as 0, rounded
    // up to the next multiple of 5 s, at most 40 s.
    static double offset(double delaySeconds);
    // " [issued +10.0s] [late +2.3s]", negative values as 0.
    static std::string timing(double issued, double late);

private:
    AppRunning& system_;
    Clock& clock_;
};

}  // namespace holdenmere
