#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/apps/app_running.h"
#include "core/apps/launch_request.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_main_loop.h"

namespace holdenmere::testing {

// Apps as a test sets them up: which run, which bundles exist, and how each
// launch ends and after how many (fake) seconds. Records every launch begun.
// With a main loop attached, answers come the way the workspace gives them:
// through the main loop, `takes` seconds after the launch began, and under
// the launch's own time limit (the same request logic as the real ones).
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
    std::map<int, std::vector<std::string>> processArguments;  // what arguments() tells, by process
    FakeMainLoop* mainLoop = nullptr;

    std::vector<int> processIdentifiers(const std::string& bundleIdentifier) override {
        std::lock_guard lock(mutex_);
        return running.count(bundleIdentifier) ? std::vector<int>{kRunningProcess} : std::vector<int>{};
    }
    std::optional<std::vector<std::string>> arguments(int processIdentifier) override {
        std::lock_guard lock(mutex_);
        auto found = processArguments.find(processIdentifier);
        if (found == processArguments.end()) return std::nullopt;
        return found->second;
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
            answerThroughMainLoop(options, behaviour, std::move(completion));
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
    void answerThroughMainLoop(const OpenOptions& options, const Behaviour& behaviour, Completion completion) {
        auto request = std::make_shared<LaunchRequest>(std::move(completion));
        const double begunAt = clock_.uptime();
        FakeMainLoop* loop = mainLoop;
        if (options.timeLimit) {
            request->startTimeLimit(
                [loop, begunAt](double delay, std::function<void()> work) {
                    loop->post(begunAt + delay, std::move(work));
                },
                *options.timeLimit);
        }
        loop->post(begunAt + behaviour.takes, [request, attempt = behaviour.attempt] {
            request->openReturned();
            request->deliver(attempt);
        });
    }

    FakeClock& clock_;
    mutable std::mutex mutex_;
    std::vector<Begun> begun_;
    std::vector<std::pair<Completion, LaunchAttempt>> held_;
};

}  // namespace holdenmere::testing
