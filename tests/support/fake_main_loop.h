#pragma once

#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "core/support/main_loop.h"
#include "tests/support/fake_clock.h"

namespace holdenmere::testing {

// A main run loop that the test feeds: work posted for a (fake) time runs
// in the first slice that begins at or after it, the way the workspace
// delivers its answers while the main run loop turns. A slice then waits on
// the clock, which jumps. Records the length of every slice.
class FakeMainLoop final : public MainLoop {
public:
    void post(double at, std::function<void()> work) {
        std::lock_guard lock(mutex_);
        posted_.emplace_back(at, std::move(work));
    }

    bool runSlice(Clock& clock, const Signal& done, double seconds) override {
        std::vector<std::function<void()>> due;
        {
            std::lock_guard lock(mutex_);
            slices_.push_back(seconds);
            const double now = clock.uptime();
            for (auto it = posted_.begin(); it != posted_.end();) {
                if (it->first <= now) {
                    due.push_back(std::move(it->second));
                    it = posted_.erase(it);
                } else {
                    ++it;
                }
            }
        }
        for (auto& work : due) work();
        return clock.waitFor(done, seconds);
    }

    std::vector<double> slices() const {
        std::lock_guard lock(mutex_);
        return slices_;
    }
    std::size_t pending() const {
        std::lock_guard lock(mutex_);
        return posted_.size();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::pair<double, std::function<void()>>> posted_;
    std::vector<double> slices_;
};

}  // namespace holdenmere::testing
