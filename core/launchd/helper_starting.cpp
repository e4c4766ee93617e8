#include "core/launchd/helper_starting.h"

namespace holdenmere {

std::vector<LaunchRecord> HelperStartingOnce::startAfterGate(const HoldenmereConfig& config, Date now) {
    {
        std::lock_guard lock(mutex_);
        if (claimed_) return {};
        claimed_ = true;
    }
    return helpers_.startAfterGate(config, now);
}

bool HelperStartingOnce::claimed() const {
    std::lock_guard lock(mutex_);
    return claimed_;
}

}  // namespace holdenmere
