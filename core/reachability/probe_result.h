#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace holdenmere {

// How one probe attempt ended.
struct ProbeOutcome {
    bool isReachable = false;
    std::string failureText;  // why the attempt failed; empty when reachable

    static ProbeOutcome reachable() { return {true, {}}; }
    static ProbeOutcome failure(std::string text) { return {false, text.empty() ? "unknown" : std::move(text)}; }

    friend bool operator==(const ProbeOutcome&, const ProbeOutcome&) = default;
};

// Which end finished one attempt, and when, so a slow login can be explained.
struct ProbeAttemptDiagnostic {
    enum class Winner { probe, cap };

    Winner winner = Winner::probe;
    double callbackElapsed = 0;  // from the attempt's start to its end (the answer, or the cap)
    double resumeLag = 0;        // from that end to the gate resuming

    friend bool operator==(const ProbeAttemptDiagnostic&, const ProbeAttemptDiagnostic&) = default;
};
std::string_view rawValue(ProbeAttemptDiagnostic::Winner winner);

// What one wait for the network found.
struct [[nodiscard]] ProbeResult {
    bool reachable = false;
    int attempts = 0;
    double elapsed = 0;  // from the start of the wait to its end
    std::optional<std::string> lastFailure;
    std::vector<double> attemptDurations;
    std::optional<double> warmUpDuration;
    std::vector<ProbeAttemptDiagnostic> attemptDiagnostics;

    // "0.012s, 1.500s": the duration of each attempt in order.
    std::string attemptTimingSummary() const;
    // "#1 probe 0.012s +0.000s, #2 cap 1.500s +0.001s".
    std::string attemptDiagnosticsSummary() const;

    friend bool operator==(const ProbeResult&, const ProbeResult&) = default;
};

}  // namespace holdenmere
