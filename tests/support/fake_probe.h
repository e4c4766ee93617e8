#pragma once

#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "core/reachability/reachability_probe.h"
#include "tests/support/fake_clock.h"

namespace holdenmere::testing {

// A probe that answers from a script. Each step either answers after a
// number of (fake) seconds, or never: its completion is kept so that a test
// can deliver the late answer itself. Records every URL and timeout asked,
// and when.
class FakeProbe final : public ReachabilityProbe {
public:
    struct Step {
        ProbeOutcome outcome;
        double after = 0;    // fake seconds before the answer
        bool never = false;  // keep the completion instead of answering
    };

    explicit FakeProbe(FakeClock& clock) : clock_(clock) {}

    void script(std::vector<Step> steps) { steps_.assign(steps.begin(), steps.end()); }
    void repeat(Step step) { repeat_ = step; }

    void probe(const std::string& url, double timeout, Completion completion) override {
        Step step = repeat_;
        {
            std::lock_guard lock(mutex_);
            asked_.push_back({url, timeout, clock_.uptime()});
            if (!steps_.empty()) {
                step = steps_.front();
                steps_.pop_front();
            }
        }
        if (step.never) {
            std::lock_guard lock(mutex_);
            held_.push_back({std::move(completion), step.outcome});
            return;
        }
        clock_.advance(step.after);
        completion(step.outcome);
    }
    void warmUp(double) override { ++warmUps; }

    // Delivers the answers the probe held back.
    void answerHeld() {
        std::vector<std::pair<Completion, ProbeOutcome>> held;
        {
            std::lock_guard lock(mutex_);
            held.swap(held_);
        }
        for (auto& [completion, outcome] : held) completion(outcome);
    }

    struct Asked {
        std::string url;
        double timeout;
        double at;  // the clock's uptime when asked
    };
    std::vector<Asked> asked() const {
        std::lock_guard lock(mutex_);
        return asked_;
    }
    int warmUps = 0;

private:
    FakeClock& clock_;
    mutable std::mutex mutex_;
    std::deque<Step> steps_;
    Step repeat_{ProbeOutcome::failure("HTTP 503"), 0.1, false};
    std::vector<Asked> asked_;
    std::vector<std::pair<Completion, ProbeOutcome>> held_;
};

}  // namespace holdenmere::testing
