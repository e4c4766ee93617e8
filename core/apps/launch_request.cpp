#include "core/apps/launch_request.h"

#include "core/support/text.h"

namespace holdenmere {

void LaunchRequest::startTimeLimit(const Schedule& schedule, double seconds) {
    std::weak_ptr<LaunchRequest> weak = weak_from_this();
    schedule(seconds, [weak, seconds] {
        auto request = weak.lock();
        if (!request) return;
        bool answered = false;
        {
            std::lock_guard lock(request->mutex_);
            answered = request->openReturned_;
        }
        const std::string limit = text::number(seconds) + "s";
        request->deliver(answered ? LaunchAttempt::unconfirmed("application hidden state was not confirmed within " + limit)
                                  : LaunchAttempt::failed("LaunchServices did not respond within " + limit));
    });
}

void LaunchRequest::openReturned() {
    std::lock_guard lock(mutex_);
    openReturned_ = true;
}

bool LaunchRequest::deliver(LaunchAttempt attempt) {
    AppRunning::Completion completion;
    {
        std::lock_guard lock(mutex_);
        if (delivered_) return false;
        delivered_ = true;
        completion = std::move(completion_);
    }
    if (completion) completion(std::move(attempt));
    return true;
}

}  // namespace holdenmere
