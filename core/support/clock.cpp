#include "core/support/clock.h"

#include <algorithm>
#include <chrono>

namespace holdenmere {

void Signal::raise() {
    // Everything under the lock: a waiter that sees the flag may destroy
    // the signal as soon as it returns, and a link being destroyed waits
    // here for a forward in progress.
    std::lock_guard lock(mutex_);
    raised_ = true;
    changed_.notify_all();
    for (Signal* to : forwards_) to->raise();
}

Signal::Link::Link(const Signal& from, Signal& to) : from_(from), to_(to) {
    std::lock_guard lock(from_.mutex_);
    from_.forwards_.push_back(&to_);
    if (from_.raised_) to_.raise();
}

Signal::Link::~Link() {
    std::lock_guard lock(from_.mutex_);
    auto& forwards = from_.forwards_;
    forwards.erase(std::find(forwards.begin(), forwards.end(), &to_));
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
