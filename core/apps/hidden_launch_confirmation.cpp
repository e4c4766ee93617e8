#include "core/apps/hidden_launch_confirmation.h"

namespace holdenmere {
namespace {

// An app that goes from hidden back to visible this many times is not
// settling down, whatever it is asked.
constexpr int kMaxVisibleAfterHidden = 3;

}  // namespace

std::string HiddenLaunchConfirmation::exhaustedText(int checks, const std::string& reason) {
    return "could not confirm application hidden after " + std::to_string(checks) + " startup checks: " + reason;
}

HiddenLaunchConfirmation::Session::Session(Parameters parameters, Hooks hooks, Application application,
                                           AppRunning::Completion completion)
    : parameters_(parameters),
      hooks_(std::move(hooks)),
      application_(std::move(application)),
      completion_(std::move(completion)),
      start_(hooks_.now()) {}

std::shared_ptr<HiddenLaunchConfirmation::Session> HiddenLaunchConfirmation::start(
    Parameters parameters, Hooks hooks, Application application, AppRunning::Completion completion,
    const std::shared_ptr<LaunchCancellation>& cancellation) {
    auto schedule = hooks.schedule;
    auto session = std::make_shared<Session>(parameters, std::move(hooks), std::move(application), std::move(completion));
    schedule(parameters.interval, [session] { session->tick(); });
    if (cancellation) {
        std::weak_ptr<Session> watched = session;
        cancellation->whenCancelled([watched] {
            if (auto current = watched.lock()) current->cancel();
        });
    }
    return session;
}

void HiddenLaunchConfirmation::Session::cancel() {
    AppRunning::Completion completion;
    std::optional<LaunchAttempt> result;
    {
        std::lock_guard lock(mutex_);
        if (complete_) return;
        finish(LaunchAttempt::unconfirmed(kCancelledText));
        result = std::move(pending_);
        completion = std::move(completion_);
    }
    if (result && completion) completion(std::move(*result));
}

bool HiddenLaunchConfirmation::Session::isComplete() const {
    std::lock_guard lock(mutex_);
    return complete_;
}

int HiddenLaunchConfirmation::Session::checks() const {
    std::lock_guard lock(mutex_);
    return checks_;
}

void HiddenLaunchConfirmation::Session::finish(LaunchAttempt attempt) {
    complete_ = true;
    // Delivered by tick() once the lock is released.
    pending_ = std::move(attempt);
}

bool HiddenLaunchConfirmation::Session::retryOrFail(const std::string& reason) {
    lastReason_ = reason;
    consecutiveHidden_ = 0;
    if (checks_ >= parameters_.maxChecks) {
        finish(LaunchAttempt::unconfirmed(exhaustedText(checks_, reason)));
        return true;
    }
    return false;
}

void HiddenLaunchConfirmation::Session::tick() {
    std::optional<LaunchAttempt> result;
    AppRunning::Completion completion;
    bool again = false;
    {
        std::lock_guard lock(mutex_);
        if (complete_) return;
        ++checks_;
        if (hooks_.isCancelled && hooks_.isCancelled()) {
            finish(LaunchAttempt::unconfirmed(kCancelledText));
        } else {
            const HiddenAppState state = application_.observe();
            if (state.referenceLost) {
                finish(LaunchAttempt::unconfirmed("application reference lost before hidden confirmation"));
            } else if (state.terminated) {
                finish(LaunchAttempt::unconfirmed("application terminated before hidden confirmation"));
            } else if (!state.listed) {
                finish(LaunchAttempt::unconfirmed("application disappeared during hidden confirmation"));
            } else if (hooks_.now() - start_ > parameters_.deadline) {
                finish(LaunchAttempt::unconfirmed("hidden confirmation exceeded its startup deadline"));
            } else if (state.active) {
                if (!retryOrFail("application became active before hidden confirmation")) application_.requestHide();
            } else if (!state.finishedLaunching) {
                consecutiveHidden_ = 0;
                lastReason_ = "application did not finish launching before hidden confirmation";
            } else if (state.hidden) {
                lastHidden_ = true;
                if (++consecutiveHidden_ >= parameters_.stable) finish(LaunchAttempt::opened());
            } else {
                if (lastHidden_.value_or(false)) ++visibleAfterHidden_;
                lastHidden_ = false;
                if (visibleAfterHidden_ >= kMaxVisibleAfterHidden) {
                    finish(LaunchAttempt::unconfirmed(exhaustedText(checks_, "hidden state did not settle")));
                } else if (!application_.requestHide()) {
                    retryOrFail("application rejected hide request");
                } else {
                    retryOrFail("application stayed visible after hide request");
                }
            }
            if (!complete_ && checks_ >= parameters_.maxChecks) {
                finish(LaunchAttempt::unconfirmed(exhaustedText(
                    checks_, lastReason_.empty() ? "application did not finish launching before hidden confirmation"
                                                 : lastReason_)));
            }
        }
        if (complete_) {
            result = std::move(pending_);
            completion = std::move(completion_);
        } else {
            again = true;
        }
    }
    if (result && completion) completion(std::move(*result));
    if (again) {
        auto self = shared_from_this();
        hooks_.schedule(parameters_.interval, [self] { self->tick(); });
    }
}

}  // namespace holdenmere
