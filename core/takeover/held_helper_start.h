#pragma once

#include <cstdint>
#include <vector>

#include "core/discovery/script_running.h"
#include "core/launchd/helper_starting.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/clock.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {

// Starts the held helpers of a login pass through the startup-change engine:
// under the startup mutation lock, from the configuration read afresh, and
// only while no give-back happened since the pass read its configuration
// (its give-back generation). A helper given back meanwhile is launchd's
// again and is left as it is.
class HeldHelperStarting final : public HelperStarting {
public:
    HeldHelperStarting(ConfigAccess access, LaunchctlRunning& launchctl, ScriptRunning& scripts,
                       std::uint64_t giveBackGeneration, const Signal* cancellation = nullptr,
                       StartupChangeEngine::FileExists fileExists = {});

    // One record per helper `config` holds, in its order.
    std::vector<LaunchRecord> startAfterGate(const HoldenmereConfig& config, Date now) override;

private:
    ConfigAccess access_;
    LaunchctlRunning& launchctl_;
    ScriptRunning& scripts_;
    std::uint64_t giveBackGeneration_;
    const Signal* cancellation_;
    StartupChangeEngine::FileExists fileExists_;
};

}  // namespace holdenmere
