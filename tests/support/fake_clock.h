#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "core/support/clock.h"

namespace holdenmere::testing {

// A clock that moves only when told, or when the code under test waits for
// something that has not happened: the wait then jumps straight to its end.
// Every wait is recorded, so tests can assert what was slept. Alarms stand
// for things that happen at a given time while the code waits (an
// announcement from another thread): a jump stops at each alarm on its way
// and runs it, and a wait whose signal that raised ends there.
class FakeClock final : public Clock {
public:
    explicit FakeClock(double start = 1000.0) : uptime_(start) {}

    Date now() override {
        std::lock_guard lock(mutex_);
        return Date{kWallOffset + uptime_};
    }
    double uptime() override {
        std::lock_guard lock(mutex_);
        return uptime_;
    }
    bool waitFor(const Signal& signal, double seconds) override {
        {
            std::lock_guard lock(mutex_);
            waits_.push_back(seconds);
        }
        if (signal.isRaised()) return true;
        if (realGrace > 0 && signal.waitFor(realGrace)) return true;
        if (moveBy(seconds, &signal)) return true;
        return signal.isRaised();
    }

    // Runs `alarm` (on the thread that moves the clock) when the clock
    // reaches `uptime`; alarms at the same time run in the order set.
    void at(double uptime, std::function<void()> alarm) {
        std::lock_guard lock(mutex_);
        alarms_.emplace(uptime, std::move(alarm));
    }

    // Real seconds a wait gives other threads to raise its signal before
    // the clock jumps: for code that waits on work running elsewhere (a
    // deadline over a worker thread) while other waits should still jump.
    double realGrace = 0;

    void advance(double seconds) { moveBy(seconds, nullptr); }
    std::vector<double> waits() const {
        std::lock_guard lock(mutex_);
        return waits_;
    }

    // Wall time is uptime plus a fixed offset: 2026-03-01 08:15:00 UTC at uptime 0.
    static constexpr double kWallOffset = 794045700.0;

private:
    // Moves forward by `seconds`, through the alarms due on the way; true
    // when one of them raised `signal`, with the clock left at that alarm.
    bool moveBy(double seconds, const Signal* signal) {
        double end = 0;
        {
            std::lock_guard lock(mutex_);
            end = uptime_ + std::max(seconds, 0.0);
        }
        for (;;) {
            std::function<void()> alarm;
            {
                std::lock_guard lock(mutex_);
                const auto next = alarms_.begin();
                if (next == alarms_.end() || next->first > end) {
                    uptime_ = std::max(uptime_, end);
                    return false;
                }
                uptime_ = std::max(uptime_, next->first);
                alarm = std::move(next->second);
                alarms_.erase(next);
            }
            alarm();
            if (signal != nullptr && signal->isRaised()) return true;
        }
    }

    mutable std::mutex mutex_;
    double uptime_;
    std::vector<double> waits_;
    std::multimap<double, std::function<void()>> alarms_;
};

}  // namespace holdenmere::testing
