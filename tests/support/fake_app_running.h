#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/apps/app_running.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_main_loop.h"

namespace holdenmere::testing {

// Apps as a test sets them up: which run, which bundles exist, and how each
// launch ends and after how many (fake) seconds. Records every launch begun.
// With a main loop attached, answers come the way the workspace gives them:
// through the main loop, `takes` seconds after the launch began.
class FakeAppRunning final : public AppRunning {
public:
    struct Behaviour {
        LaunchAttempt attempt = LaunchAttempt::opened();
        double takes = 0;    // fake seconds from begin to completion
        bool held = false;   // keep the completion for the test to deliver
    };
    struct Begun {
        std::string path;
        OpenOptions options;
        double at;  // fake uptime
    };

    explicit FakeAppRunning(FakeClock& clock) : clock_(clock) {}

    static constexpr int kRunningProcess = 4242;  // the process of every running app

    std::set<std::string> running;   // bundle identifiers
    std::set<std::string> bundles;   // paths that exist
    std::map<std::string, Behaviour> behaviours;  // by path; default: opened at once
    FakeMainLoop* mainLoop = nullptr;

    std::vector<int> processIdentifiers(const std::string& bundleIdentifier) override {
        std::lock_guard lock(mutex_);
        return running.count(bundleIdentifier) ? std::vector<int>{kRunningProcess} : std::vector<int>{};
    }
    bool exists(const std::string& path) override {
        std::lock_guard lock(mutex_);
        return bundles.count(path) > 0;
    }
    void begin(const std::string& path, const OpenOptions& options, Completion completion) override {
        Behaviour behaviour;
        {
            std::lock_guard lock(mutex_);
            begun_.push_back({path, options, clock_.uptime()});
            if (auto found = behaviours.find(path); found != behaviours.end()) behaviour = found->second;
            if (behaviour.held) {
                held_.push_back({std::move(completion), behaviour.attempt});
                return;
            }
        }
        if (mainLoop != nullptr) {
            answerThroughMainLoop(behaviour, std::move(completion));
            return;
        }
        clock_.advance(behaviour.takes);
        completion(behaviour.attempt);
    }

    void deliverHeld() {
        std::vector<std::pair<Completion, LaunchAttempt>> held;
        {
            std::lock_guard lock(mutex_);
            held.swap(held_);
        }
        for (auto& [completion, attempt] : held) completion(attempt);
    }
    std::vector<Begun> begun() const {
        std::lock_guard lock(mutex_);
        return begun_;
    }

private:
    void answerThroughMainLoop(const Behaviour& behaviour, Completion completion) {
        mainLoop->post(clock_.uptime() + behaviour.takes,
                       [completion = std::move(completion), attempt = behaviour.attempt] { completion(attempt); });
    }

    FakeClock& clock_;
    mutable std::mutex mutex_;
    std::vector<Begun> begun_;
    std::vector<std::pair<Completion, LaunchAttempt>> held_;
};

}  // namespace holdenmere::testing
