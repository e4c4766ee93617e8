#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "core/apps/app_running.h"

namespace holdenmere {

// One look at an app that was asked to start hidden.
struct HiddenAppState {
    bool referenceLost = false;     // the platform no longer knows the app
    bool terminated = false;
    bool listed = true;             // still among the running applications
    bool finishedLaunching = true;
    bool hidden = false;
    bool active = false;
};

// Opening hidden is not trusted: an app may show itself after the hide
// request, so the launch only counts as confirmed once the app has been seen
// finished launching and hidden for `stable` consecutive checks. Time,
// cancellation and scheduling are hooks, so tests drive the checks one by one.
class HiddenLaunchConfirmation {
public:
    struct Parameters {
        int maxChecks = 100;
        double interval = 0.1;
        int stable = 10;
        double deadline = 12.0;  // seconds from the start of the confirmation
    };
    struct Hooks {
        std::function<double()> now;                                          // seconds, monotonic
        std::function<bool()> isCancelled;                                    // may be empty
        std::function<void(double delay, std::function<void()> work)> schedule;
    };
    // The platform side of the app being watched.
    struct Application {
        std::function<HiddenAppState()> observe;
        std::function<bool()> requestHide;  // false when the app rejected it
    };

    // The state of one confirmation; every tick and the final result go
    // through its lock, so a tick, the deadline and a cancellation can never
    // deliver two results.
    class Session : public std::enable_shared_from_this<Session> {
    public:
        Session(Parameters parameters, Hooks hooks, Application application, AppRunning::Completion completion);
        // Looks at the app once; schedules the next look unless finished.
        void tick();
        // Ends the session at once with "launch confirmation cancelled",
        // unless it has ended already.
        void cancel();
        bool isComplete() const;
        int checks() const;

    private:
        void finish(LaunchAttempt attempt);                // holds mutex_
        bool retryOrFail(const std::string& reason);       // holds mutex_; true when finished

        Parameters parameters_;
        Hooks hooks_;
        Application application_;
        AppRunning::Completion completion_;
        mutable std::mutex mutex_;
        double start_ = 0;
        int checks_ = 0;
        int consecutiveHidden_ = 0;
        int visibleAfterHidden_ = 0;
        std::optional<bool> lastHidden_;
        std::string lastReason_;
        bool complete_ = false;
        std::optional<LaunchAttempt> pending_;
    };

    // Starts watching: the first tick is scheduled one interval from now.
    // When `cancellation` is given, cancelling it ends the session at once.
    static std::shared_ptr<Session> start(Parameters parameters, Hooks hooks, Application application,
                                          AppRunning::Completion completion,
                                          const std::shared_ptr<LaunchCancellation>& cancellation = nullptr);

    static constexpr const char* kCancelledText = "launch confirmation cancelled";

    static std::string exhaustedText(int checks, const std::string& reason);
};

}  // namespace holdenmere
