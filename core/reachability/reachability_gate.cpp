#include "core/reachability/reachability_gate.h"

#include <algorithm>
#include <cstdio>
#include <memory>
#include <mutex>

namespace holdenmere {
namespace {

// What an attempt's completion leaves for the gate. Shared, because an
// attempt the cap abandoned may answer after the gate has moved on.
struct AttemptState {
    Signal answered;
    std::mutex mutex;
    ProbeOutcome outcome;
    double answeredAt = 0;
};

// One attempt as the gate saw it.
struct AttemptReport {
    ProbeOutcome outcome;
    ProbeAttemptDiagnostic diagnostic;
    double duration = 0;
};

// The attempt's count, duration and diagnostic in the result, and its
// failure as the last one.
void noteAttempt(ProbeResult& result, int attempt, const AttemptReport& report) {
    result.attempts = attempt;
    result.attemptDurations.push_back(report.duration);
    result.attemptDiagnostics.push_back(report.diagnostic);
    if (!report.outcome.isReachable) result.lastFailure = report.outcome.failureText;
}

// What the network-change announcements leave for the gate: a signal per
// attempt, raised by any announcement after that attempt started. Each
// attempt gets a fresh one, so the announcements of a burst count once: they
// end the pause after the attempt in progress, nothing more. Shared with
// the listener's thread, which may announce while the gate moves on.
class ChangesSinceAttempt {
public:
    void announce() {
        std::lock_guard lock(mutex_);
        current_->raise();
    }
    // A fresh signal for the attempt that starts now.
    std::shared_ptr<const Signal> restart() {
        auto fresh = std::make_shared<Signal>();
        std::lock_guard lock(mutex_);
        current_ = fresh;
        return fresh;
    }

private:
    std::mutex mutex_;
    std::shared_ptr<Signal> current_ = std::make_shared<Signal>();
};

// Sends one probe and waits for its answer, or for the cap.
AttemptReport attemptOnce(ReachabilityProbe& probe, Clock& clock, const std::string& url, double cap) {
    auto state = std::make_shared<AttemptState>();
    Clock* answerClock = &clock;
    const double attemptStart = clock.uptime();
    probe.probe(url, cap, [state, answerClock](ProbeOutcome outcome) {
        {
            std::lock_guard lock(state->mutex);
            state->outcome = std::move(outcome);
            state->answeredAt = answerClock->uptime();
        }
        state->answered.raise();
    });
    const bool answered = clock.waitFor(state->answered, cap);
    const double resumedAt = clock.uptime();

    AttemptReport report;
    report.duration = resumedAt - attemptStart;
    if (answered) {
        std::lock_guard lock(state->mutex);
        report.outcome = state->outcome;
        report.diagnostic = {ProbeAttemptDiagnostic::Winner::probe, state->answeredAt - attemptStart,
                             std::max(0.0, resumedAt - state->answeredAt)};
    } else {
        report.outcome = ProbeOutcome::failure(ReachabilityGate::capExceededText(cap));
        report.diagnostic = {ProbeAttemptDiagnostic::Winner::cap, cap,
                             std::max(0.0, resumedAt - attemptStart - cap)};
    }
    return report;
}

}  // namespace

std::string ReachabilityGate::probeURL(const GateSettings& settings) {
    return isAbsoluteURL(settings.probeURL) ? settings.probeURL : std::string(GateSettings::kDefaultProbeURL);
}

double ReachabilityGate::attemptCap(const GateSettings& settings) {
    return std::min(GateSettings::clampedPollInterval(settings.pollInterval) + 1.0,
                    GateSettings::kMaxProbeAttemptTimeout);
}

std::string ReachabilityGate::capExceededText(double cap) {
    char buffer[96];
    std::snprintf(buffer, sizeof buffer, "attempt exceeded its %.1fs cap (URLSession did not honour it)", cap);
    return buffer;
}

// Announcements. A network that comes up announces itself in a burst: the
// link, then addresses and routes, more of them as DHCP and router
// advertisements answer, spread over a second or more. Were every
// announcement an attempt, a burst while the network is still unusable
// would use the attempts up and the gate would give up long before the
// overall time. So:
// - an announcement ends the pause in progress, or, when it came while an
//   attempt ran (which may have gone out before the change), the pause after
//   that attempt before it begins; any number of them during one attempt and
//   its pause bring one early attempt;
// - the early attempt waits kChangeSettle after the gate noticed: one change
//   is announced piecemeal (the kernel announces a new address before it
//   adds the routes that make it usable; a DHCP client adds the address,
//   then the default route), and an attempt sent on the first piece would
//   fail for want of the rest and spend the spacing below;
// - attempt starts stay kMinAttemptSpacing apart: an early attempt waits out
//   what is left of that spacing, so one after a pause of a while goes
//   after the settle alone;
// - once an attempt has started early, the attempt count no longer ends the
//   wait: the overall time (interval x attempts from the start) does, and no
//   pause runs past it. The wait lasts as long as it would have, and may
//   count more attempts than `maxAttempts`.
// With no announcement heard, or none to be had, the pacing and the counts
// are those of the plain poll.
ProbeResult ReachabilityGate::waitForNetwork(const GateSettings& settings, const OnAttempt& onAttempt,
                                             const Signal* cancellation) {
    const std::string url = probeURL(settings);
    const double interval = GateSettings::clampedPollInterval(settings.pollInterval);
    const auto maxAttempts = static_cast<int>(GateSettings::clampedAttempts(settings.maxAttempts));
    const double cap = attemptCap(settings);
    const double overall = interval * maxAttempts;
    const Signal neverCancelled;
    const Signal& cancelled = cancellation != nullptr ? *cancellation : neverCancelled;

    // Destroyed before the function returns, which waits for an
    // announcement in progress; `changes` is shared with the callback anyway.
    auto changes = std::make_shared<ChangesSinceAttempt>();
    const auto subscription = changes_.subscribe([changes] { changes->announce(); });

    ProbeResult result;
    const double start = clock_.uptime();
    probe_.willProbe(url);
    probe_.warmUp(cap);
    result.warmUpDuration = clock_.uptime() - start;

    bool startedEarly = false;
    for (int attempt = 1;; ++attempt) {
        if (cancelled.isRaised()) break;

        const auto changed = changes->restart();
        const double attemptStart = clock_.uptime();
        const AttemptReport report = attemptOnce(probe_, clock_, url, cap);
        noteAttempt(result, attempt, report);
        if (onAttempt) onAttempt(attempt, report.outcome);
        if (report.outcome.isReachable) {
            result.reachable = true;
            break;
        }

        // Every failed attempt is followed by its pause, the last one too:
        // the wait lasts the whole overall time before it gives up. Without
        // early attempts each round takes at least one interval, so there
        // are never more than maxAttempts of them.
        double pauseLength = interval;
        bool pauseEndsTheWait = false;
        if (startedEarly) {
            const double left = start + overall - clock_.uptime();
            if (left <= 0) break;
            pauseEndsTheWait = left <= interval;
            pauseLength = std::min(interval, left);
        }
        const PauseEnd end = pause(pauseLength, attemptStart + kMinAttemptSpacing, cancelled,
                                   subscription ? changed.get() : nullptr);
        if (end == PauseEnd::cancelled) break;
        if (end == PauseEnd::elapsed && pauseEndsTheWait) break;
        if (end == PauseEnd::changed) startedEarly = true;
        if (clock_.uptime() - start >= overall) break;
        if (!startedEarly && attempt >= maxAttempts) break;
    }
    result.elapsed = clock_.uptime() - start;
    return result;
}

// The pause after a failed attempt: `seconds`, unless cancelled, or unless
// `changed` (when there are announcements to hear) is raised first; then the
// next attempt starts once the change has settled, and not before
// `earliestNext`. The settle and the spacing never make the pause longer
// than `seconds`.
ReachabilityGate::PauseEnd ReachabilityGate::pause(double seconds, double earliestNext, const Signal& cancelled,
                                                   const Signal* changed) {
    if (changed == nullptr) return clock_.sleep(seconds, cancelled) ? PauseEnd::elapsed : PauseEnd::cancelled;
    const double pauseEnd = clock_.uptime() + seconds;
    {
        // Either signal ends the wait; the links go before `woken` does.
        Signal woken;
        const Signal::Link byCancellation(cancelled, woken);
        const Signal::Link byChange(*changed, woken);
        if (!clock_.waitFor(woken, seconds)) return PauseEnd::elapsed;
    }
    if (cancelled.isRaised()) return PauseEnd::cancelled;
    const double noticedAt = clock_.uptime();
    const double next = std::max(earliestNext, noticedAt + kChangeSettle);
    const double rest = std::min(next, pauseEnd) - noticedAt;
    if (rest > 0 && !clock_.sleep(rest, cancelled)) return PauseEnd::cancelled;
    return next < pauseEnd ? PauseEnd::changed : PauseEnd::elapsed;
}

}  // namespace holdenmere
