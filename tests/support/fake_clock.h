#pragma once

#include <mutex>
#include <vector>

#include "core/support/clock.h"

namespace holdenmere::testing {

// A clock that moves only when told, or when the code under test waits for
// something that has not happened: the wait then jumps straight to its end.
// Every wait is recorded, so tests can assert what was slept.
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
        advance(seconds);
        return signal.isRaised();
    }

    // Real seconds a wait gives other threads to raise its signal before
    // the clock jumps: for code that waits on work running elsewhere (a
    // deadline over a worker thread) while other waits should still jump.
    double realGrace = 0;

    void advance(double seconds) {
        std::lock_guard lock(mutex_);
        if (seconds > 0) uptime_ += seconds;
    }
    std::vector<double> waits() const {
        std::lock_guard lock(mutex_);
        return waits_;
    }

    // Wall time is uptime plus a fixed offset: 2026-03-01 08:15:00 UTC at uptime 0.
    static constexpr double kWallOffset = 794045700.0;

private:
    mutable std::mutex mutex_;
    double uptime_;
    std::vector<double> waits_;
};

}  // namespace holdenmere::testing
