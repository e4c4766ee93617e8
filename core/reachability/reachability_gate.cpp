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

ProbeResult ReachabilityGate::waitForNetwork(const GateSettings& settings, const OnAttempt& onAttempt,
                                             const Signal* cancellation) {
    const std::string url = probeURL(settings);
    const double interval = GateSettings::clampedPollInterval(settings.pollInterval);
    const auto maxAttempts = static_cast<int>(GateSettings::clampedAttempts(settings.maxAttempts));
    const double cap = attemptCap(settings);
    const double overall = interval * maxAttempts;
    const Signal neverCancelled;
    const Signal& cancelled = cancellation != nullptr ? *cancellation : neverCancelled;

    ProbeResult result;
    const double start = clock_.uptime();
    probe_.warmUp(cap);
    result.warmUpDuration = clock_.uptime() - start;

    for (int attempt = 1; attempt <= maxAttempts; ++attempt) {
        if (cancelled.isRaised()) break;

        auto state = std::make_shared<AttemptState>();
        Clock* clock = &clock_;
        const double attemptStart = clock_.uptime();
        probe_.probe(url, cap, [state, clock](ProbeOutcome outcome) {
            {
                std::lock_guard lock(state->mutex);
                state->outcome = std::move(outcome);
                state->answeredAt = clock->uptime();
            }
            state->answered.raise();
        });
        const bool answered = clock_.waitFor(state->answered, cap);
        const double resumedAt = clock_.uptime();

        ProbeOutcome outcome;
        ProbeAttemptDiagnostic diagnostic;
        if (answered) {
            std::lock_guard lock(state->mutex);
            outcome = state->outcome;
            diagnostic = {ProbeAttemptDiagnostic::Winner::probe, state->answeredAt - attemptStart,
                          std::max(0.0, resumedAt - state->answeredAt)};
        } else {
            outcome = ProbeOutcome::failure(capExceededText(cap));
            diagnostic = {ProbeAttemptDiagnostic::Winner::cap, cap, std::max(0.0, resumedAt - attemptStart - cap)};
        }
        result.attempts = attempt;
        result.attemptDurations.push_back(resumedAt - attemptStart);
        result.attemptDiagnostics.push_back(diagnostic);
        if (!outcome.isReachable) result.lastFailure = outcome.failureText;
        if (onAttempt) onAttempt(attempt, outcome);
        if (outcome.isReachable) {
            result.reachable = true;
            break;
        }
        // Every failed attempt is followed by its pause, the last one too:
        // the wait lasts the whole overall time before it gives up. Each
        // round takes at least one interval, so there are never more than
        // maxAttempts of them.
        if (!clock_.sleep(interval, cancelled)) break;
        if (clock_.uptime() - start >= overall) break;
    }
    result.elapsed = clock_.uptime() - start;
    return result;
}

}  // namespace holdenmere
