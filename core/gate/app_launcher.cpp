#include "core/gate/app_launcher.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <set>

#include "core/apps/hidden_launch_confirmation.h"
#include "core/support/log_text.h"

namespace holdenmere {
namespace {

std::string oneDecimal(double value) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%.1f", value < 0 ? 0.0 : value);
    return buffer;
}

std::string offsetSuffix(double offset) {
    if (offset <= 0) return "";
    return " after " + std::to_string(static_cast<long long>(offset)) + "s offset";
}

// The records of one run, filled in as launches end, from any thread.
struct Run {
    std::mutex mutex;
    std::vector<std::optional<LaunchRecord>> records;
    int pending = 0;
    bool closed = false;  // no more results are taken (all begun and ended, or cancelled)
    Signal allEnded;
};

// What became of an app whose open ended, with the time it was issued and
// how late it was.
LaunchRecord recordOfAttempt(const ManagedApp& app, const LaunchAttempt& attempt, double scheduled, double late,
                             Date now) {
    const std::string suffix = offsetSuffix(scheduled);
    const std::string hiddenNote = app.launchHidden ? " (asked macOS to hide it)" : "";
    LaunchOutcome outcome = LaunchOutcome::launched;
    std::string detail;
    switch (attempt.result) {
        case LaunchAttempt::Result::opened:
            detail = "launched" + suffix + hiddenNote + AppLauncher::timing(scheduled, late);
            break;
        case LaunchAttempt::Result::failed:
            outcome = LaunchOutcome::failed;
            detail = "open failed" + suffix + ": " + attempt.reason;
            break;
        case LaunchAttempt::Result::unconfirmed:
            detail = "launched" + suffix + hiddenNote + kDash + "running, but unconfirmed: " + attempt.reason +
                     " [issued +" + oneDecimal(scheduled) + "s]";
            break;
    }
    return LaunchRecord{app.bundleIdentifier, app.name, outcome, now, detail};
}

// An app opened whose confirmation was ended by the cancellation.
LaunchRecord recordOfCancelledConfirmation(const ManagedApp& app, Date now) {
    const double scheduled = AppLauncher::offset(app.delaySeconds);
    return LaunchRecord{app.bundleIdentifier, app.name, LaunchOutcome::launched, now,
                        "launched" + offsetSuffix(scheduled) + (app.launchHidden ? " (asked macOS to hide it)" : "") +
                            kDash + "running, but unconfirmed: " + HiddenLaunchConfirmation::kCancelledText +
                            " [issued +" + oneDecimal(scheduled) + "s]"};
}

// One launchAll: the apps opened one after another, each at its offset from
// the start, and what became of every one of them.
class Launching {
public:
    Launching(const std::vector<ManagedApp>& apps, AppRunning& system, Clock& clock, const Signal& cancelled)
        : apps_(apps), system_(system), clock_(clock), cancelled_(cancelled), run_(std::make_shared<Run>()) {
        run_->records.resize(apps.size());
        start_ = clock_.uptime();
    }

    // Opens the app at `index` at its offset, unless it is not to be opened
    // or the launching was cancelled before.
    void open(std::size_t index) {
        const ManagedApp& app = apps_[index];
        if (auto skipped = reasonNotToOpen(app)) {
            settle(index, skipped->first, std::move(skipped->second));
            return;
        }
        // Only an app that is really opened claims its identifier: a running
        // or missing entry must not keep a later one of the same app closed.
        requested_.insert(app.bundleIdentifier);

        const double scheduled = AppLauncher::offset(app.delaySeconds);
        if (!waitUntil(scheduled)) {
            settle(index, LaunchOutcome::failed, "not opened: launching was cancelled" + offsetSuffix(scheduled));
            return;
        }
        begin(index, scheduled);
    }

    // Waits for the confirmations still running, or for a cancellation.
    void waitForConfirmations(MainLoop& mainLoop) {
        for (;;) {
            {
                std::lock_guard lock(run_->mutex);
                if (run_->pending == 0) break;
            }
            if (cancelled_.isRaised()) {
                // Ends them now; each reports itself cancelled (not under the
                // run's lock, which their completions take).
                stopConfirming_->cancel();
                break;
            }
            mainLoop.runSlice(clock_, run_->allEnded, AppLauncher::kWaitingSlice);
        }
    }

    // One record per app; no result is taken after this.
    std::vector<LaunchRecord> records() {
        std::vector<LaunchRecord> records;
        std::lock_guard lock(run_->mutex);
        run_->closed = true;
        for (std::size_t index = 0; index < apps_.size(); ++index) {
            if (run_->records[index]) {
                records.push_back(*run_->records[index]);
            } else {
                records.push_back(recordOfCancelledConfirmation(apps_[index], clock_.now()));
            }
        }
        return records;
    }

private:
    // Why the app is not opened at all, as its record says it.
    std::optional<std::pair<LaunchOutcome, std::string>> reasonNotToOpen(const ManagedApp& app) const {
        const std::string& identifier = app.bundleIdentifier;
        if (!app.isEnabled) return std::pair{LaunchOutcome::disabled, std::string("disabled in Holdenmere")};
        if (requested_.count(identifier) > 0) {
            return std::pair{LaunchOutcome::alreadyRunning,
                             "duplicate bundle identifier already requested (" + identifier + ")"};
        }
        if (system_.isRunning(identifier)) {
            return std::pair{LaunchOutcome::alreadyRunning, "already running (" + identifier + ")"};
        }
        if (!system_.exists(app.path)) return std::pair{LaunchOutcome::missing, "no application bundle at " + app.path};
        return std::nullopt;
    }

    // Waits until `scheduled` seconds after the start; false when the
    // launching was cancelled before.
    bool waitUntil(double scheduled) {
        const double wait = scheduled - (clock_.uptime() - start_);
        return !(cancelled_.isRaised() || (wait > 0 && !clock_.sleep(wait, cancelled_)));
    }

    // Begins opening the app; its record is settled when the open ends,
    // unless the run was closed before.
    void begin(std::size_t index, double scheduled) {
        {
            std::lock_guard lock(run_->mutex);
            ++run_->pending;
        }
        const ManagedApp& app = apps_[index];
        OpenOptions options;
        options.hidden = app.launchHidden;
        options.activates = !app.launchHidden;
        // Every launch has it, so that giving up the wait also ends the
        // hidden confirmations still running.
        options.cancellation = stopConfirming_;
        Clock* clock = &clock_;
        system_.begin(app.path, options,
                      [run = run_, index, app, scheduled, start = start_, clock](LaunchAttempt attempt) {
                          const double late = clock->uptime() - start - scheduled;
                          std::lock_guard lock(run->mutex);
                          if (run->closed) return;  // reported as cancelled already
                          run->records[index] = recordOfAttempt(app, attempt, scheduled, late, clock->now());
                          if (--run->pending == 0) run->allEnded.raise();
                      });
    }

    void settle(std::size_t index, LaunchOutcome outcome, std::string detail) {
        const ManagedApp& app = apps_[index];
        std::lock_guard lock(run_->mutex);
        run_->records[index] = LaunchRecord{app.bundleIdentifier, app.name, outcome, clock_.now(), std::move(detail)};
    }

    const std::vector<ManagedApp>& apps_;
    AppRunning& system_;
    Clock& clock_;
    const Signal& cancelled_;
    std::shared_ptr<Run> run_;
    std::shared_ptr<LaunchCancellation> stopConfirming_ = std::make_shared<LaunchCancellation>();
    double start_ = 0;
    std::set<std::string> requested_;
};

}  // namespace

double AppLauncher::offset(double delaySeconds) {
    if (!(delaySeconds > 0)) return 0;
    return std::min(std::ceil(delaySeconds / HoldenmereConfig::kDelayStep) * HoldenmereConfig::kDelayStep,
                    HoldenmereConfig::kMaxDelay);
}

std::string AppLauncher::timing(double issued, double late) {
    return " [issued +" + oneDecimal(issued) + "s] [late +" + oneDecimal(late) + "s]";
}

std::vector<LaunchRecord> AppLauncher::launchAll(const std::vector<ManagedApp>& apps, const Signal* cancellation) {
    const Signal neverCancelled;
    Launching launching(apps, system_, clock_, cancellation != nullptr ? *cancellation : neverCancelled);
    for (std::size_t index = 0; index < apps.size(); ++index) launching.open(index);
    launching.waitForConfirmations(mainLoop_);
    return launching.records();
}

}  // namespace holdenmere
