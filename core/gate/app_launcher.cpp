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
    auto run = std::make_shared<Run>();
    run->records.resize(apps.size());
    const Signal neverCancelled;
    const Signal& cancelled = cancellation != nullptr ? *cancellation : neverCancelled;
    const double start = clock_.uptime();
    std::set<std::string> requested;
    // Handed to every launch, so that giving up the wait also ends the
    // hidden confirmations still running.
    auto stopConfirming = std::make_shared<LaunchCancellation>();

    auto settle = [&](std::size_t index, LaunchOutcome outcome, std::string detail) {
        const ManagedApp& app = apps[index];
        std::lock_guard lock(run->mutex);
        run->records[index] = LaunchRecord{app.bundleIdentifier, app.name, outcome, clock_.now(), std::move(detail)};
    };

    for (std::size_t index = 0; index < apps.size(); ++index) {
        const ManagedApp& app = apps[index];
        const std::string& identifier = app.bundleIdentifier;
        if (!app.isEnabled) {
            settle(index, LaunchOutcome::disabled, "disabled in Holdenmere");
            continue;
        }
        if (requested.count(identifier) > 0) {
            settle(index, LaunchOutcome::alreadyRunning,
                   "duplicate bundle identifier already requested (" + identifier + ")");
            continue;
        }
        if (system_.isRunning(identifier)) {
            settle(index, LaunchOutcome::alreadyRunning, "already running (" + identifier + ")");
            continue;
        }
        if (!system_.exists(app.path)) {
            settle(index, LaunchOutcome::missing, "no application bundle at " + app.path);
            continue;
        }

        // Only an app that is really opened claims its identifier: a running
        // or missing entry must not keep a later one of the same app closed.
        requested.insert(identifier);

        const double scheduled = offset(app.delaySeconds);
        const double wait = scheduled - (clock_.uptime() - start);
        if (cancelled.isRaised() || (wait > 0 && !clock_.sleep(wait, cancelled))) {
            settle(index, LaunchOutcome::failed, "not opened: launching was cancelled" + offsetSuffix(scheduled));
            continue;
        }

        {
            std::lock_guard lock(run->mutex);
            ++run->pending;
        }
        const bool hidden = app.launchHidden;
        OpenOptions options;
        options.hidden = hidden;
        options.activates = !hidden;
        options.cancellation = stopConfirming;
        Clock* clock = &clock_;
        system_.begin(app.path, options, [run, index, app, scheduled, hidden, start, clock](LaunchAttempt attempt) {
            const double late = clock->uptime() - start - scheduled;
            const std::string suffix = offsetSuffix(scheduled);
            const std::string hiddenNote = hidden ? " (asked macOS to hide it)" : "";
            LaunchOutcome outcome = LaunchOutcome::launched;
            std::string detail;
            switch (attempt.result) {
                case LaunchAttempt::Result::opened:
                    detail = "launched" + suffix + hiddenNote + timing(scheduled, late);
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
            std::lock_guard lock(run->mutex);
            if (run->closed) return;  // reported as cancelled already
            run->records[index] = LaunchRecord{app.bundleIdentifier, app.name, outcome, clock->now(), detail};
            if (--run->pending == 0) run->allEnded.raise();
        });
    }

    // Wait for the confirmations still running, or for a cancellation.
    for (;;) {
        {
            std::lock_guard lock(run->mutex);
            if (run->pending == 0) break;
        }
        if (cancelled.isRaised()) {
            // Ends them now; each reports itself cancelled (not under the
            // run's lock, which their completions take).
            stopConfirming->cancel();
            break;
        }
        mainLoop_.runSlice(clock_, run->allEnded, kWaitingSlice);
    }

    std::vector<LaunchRecord> records;
    std::lock_guard lock(run->mutex);
    run->closed = true;
    for (std::size_t index = 0; index < apps.size(); ++index) {
        if (run->records[index]) {
            records.push_back(*run->records[index]);
            continue;
        }
        const ManagedApp& app = apps[index];
        const double scheduled = offset(app.delaySeconds);
        records.push_back(LaunchRecord{app.bundleIdentifier, app.name, LaunchOutcome::launched, clock_.now(),
                                       "launched" + offsetSuffix(scheduled) +
                                           (app.launchHidden ? " (asked macOS to hide it)" : "") + kDash +
                                           "running, but unconfirmed: " + HiddenLaunchConfirmation::kCancelledText +
                                           " [issued +" + oneDecimal(scheduled) + "s]"});
    }
    return records;
}

}  // namespace holdenmere
