#pragma once

#include <functional>
#include <string>

#include "core/config/gate_settings.h"
#include "core/reachability/network_change_listening.h"
#include "core/reachability/probe_result.h"
#include "core/reachability/reachability_probe.h"
#include "core/support/clock.h"

namespace holdenmere {

// Waits until the network really answers: repeats single probe attempts,
// each raced against a cap, until one succeeds, the attempts or the overall
// time run out, or the wait is cancelled. While it waits it listens for the
// system's network-change announcements, and one ends the pause before the
// next attempt early. Never throws: running out of time is a result whose
// `reachable` is false.
class ReachabilityGate {
public:
    using OnAttempt = std::function<void(int attempt, const ProbeOutcome&)>;

    // Attempts start at least this far apart, however many announcements
    // come, and an announcement is given this long to finish applying
    // before the attempt it brings forward (see waitForNetwork).
    static constexpr double kMinAttemptSpacing = 0.25;
    static constexpr double kChangeSettle = 0.02;

    // The probe and the clock must outlive every attempt the gate starts
    // (an attempt the cap abandoned still reports to the clock when it ends).
    ReachabilityGate(ReachabilityProbe& probe, Clock& clock,
                     NetworkChangeListening& changes = InertNetworkChangeListening::shared())
        : probe_(probe), clock_(clock), changes_(changes) {}

    // One wait. `changes` is subscribed to for its length; once an
    // announcement has brought an attempt forward, the overall time alone
    // ends the wait, so the result may count more than `maxAttempts`.
    ProbeResult waitForNetwork(const GateSettings& settings, const OnAttempt& onAttempt = {},
                               const Signal* cancellation = nullptr);

    // The URL probed for these settings: the default when the stored one is
    // empty or no absolute URL.
    static std::string probeURL(const GateSettings& settings);
    // How long one attempt may take before the gate stops waiting for it.
    static double attemptCap(const GateSettings& settings);
    // "attempt exceeded its 1.5s cap (URLSession did not honour it)".
    static std::string capExceededText(double cap);

private:
    enum class PauseEnd { elapsed, changed, cancelled };
    PauseEnd pause(double seconds, double earliestNext, const Signal& cancelled, const Signal* changed);

    ReachabilityProbe& probe_;
    Clock& clock_;
    NetworkChangeListening& changes_;
};

}  // namespace holdenmere
