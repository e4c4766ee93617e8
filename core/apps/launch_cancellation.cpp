#include "core/apps/launch_cancellation.h"

namespace holdenmere {

void LaunchCancellation::cancel() {
    std::vector<std::function<void()>> handlers;
    {
        std::lock_guard lock(mutex_);
        if (cancelled_) return;
        cancelled_ = true;
        handlers.swap(handlers_);
    }
    // Outside the lock: a handler delivers a result, and whoever receives
    // it may ask this cancellation again.
    for (auto& handler : handlers) handler();
}

bool LaunchCancellation::isCancelled() const {
    std::lock_guard lock(mutex_);
    return cancelled_;
}

void LaunchCancellation::whenCancelled(std::function<void()> handler) {
    {
        std::lock_guard lock(mutex_);
        if (!cancelled_) {
            handlers_.push_back(std::move(handler));
            return;
        }
    }
    handler();
}

}  // namespace holdenmere
