#include "core/support/clock.h"

#include <chrono>

namespace holdenmere {

void Signal::raise() {
    {
        std::lock_guard lock(mutex_);
        raised_ = true;
    }
    changed_.notify_all();
}

bool Signal::isRaised() const {
    std::lock_guard lock(mutex_);
    return raised_;
}

bool Signal::waitFor(double seconds) const {
    std::unique_lock lock(mutex_);
    if (seconds <= 0) return raised_;
    return changed_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return raised_; });
}

void Signal::wait() const {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return raised_; });
}

Date SystemClock::now() { return Date::now(); }

double SystemClock::uptime() {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

bool SystemClock::waitFor(const Signal& signal, double seconds) { return signal.waitFor(seconds); }

}  // namespace holdenmere
