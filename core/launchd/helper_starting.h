#pragma once

#include <mutex>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/support/date.h"

namespace holdenmere {

// Starts the launchd helpers of managed apps that are held off at login:
// after the network answered, or at once when the gate is off or the pass
// gave up. A seam, so that the login pass can run against a fake.
class HelperStarting {
public:
    virtual ~HelperStarting() = default;
    // One record per recorded helper, in the configuration's order.
    virtual std::vector<LaunchRecord> startAfterGate(const HoldenmereConfig& config, Date now) = 0;
};

// Lets the helpers be started once per process, whoever asks first: the
// pass's runner when it gets that far, or the main thread when the pass
// deadline passes first. A later caller gets nothing back at once, even
// while the first is still at work, so that it never waits on launchd.
class HelperStartingOnce final : public HelperStarting {
public:
    explicit HelperStartingOnce(HelperStarting& helpers) : helpers_(helpers) {}

    std::vector<LaunchRecord> startAfterGate(const HoldenmereConfig& config, Date now) override;
    // Whether some caller has begun starting the helpers.
    bool claimed() const;

private:
    HelperStarting& helpers_;
    mutable std::mutex mutex_;
    bool claimed_ = false;
};

}  // namespace holdenmere
