#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "core/apps/app_running.h"

namespace holdenmere {

// One open request: delivers its result exactly once, whichever comes first
// of the platform's answer, the hidden confirmation and the time limit.
class LaunchRequest : public std::enable_shared_from_this<LaunchRequest> {
public:
    using Schedule = std::function<void(double delay, std::function<void()> work)>;

    explicit LaunchRequest(AppRunning::Completion completion) : completion_(std::move(completion)) {}

    // Starts the time limit: when it passes first, the request fails with
    // "LaunchServices did not respond within {n}s" (no answer yet) or ends
    // unconfirmed with "application hidden state was not confirmed within {n}s".
    void startTimeLimit(const Schedule& schedule, double seconds);
    // The platform's open call has answered.
    void openReturned();
    // Delivers the result unless one was delivered already; true when this one was.
    bool deliver(LaunchAttempt attempt);

private:
    std::mutex mutex_;
    bool openReturned_ = false;
    bool delivered_ = false;
    AppRunning::Completion completion_;
};

}  // namespace holdenmere
