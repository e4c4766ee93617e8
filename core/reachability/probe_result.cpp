#include "core/reachability/probe_result.h"

#include <cstdio>

namespace holdenmere {
namespace {

std::string seconds3(double value) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%.3fs", value < 0 ? 0.0 : value);
    return buffer;
}

}  // namespace

std::string_view rawValue(ProbeAttemptDiagnostic::Winner winner) {
    return winner == ProbeAttemptDiagnostic::Winner::probe ? "probe" : "cap";
}

std::string ProbeResult::attemptTimingSummary() const {
    std::string summary;
    for (std::size_t index = 0; index < attemptDurations.size(); ++index) {
        if (index > 0) summary += ", ";
        summary += seconds3(attemptDurations[index]);
    }
    return summary;
}

std::string ProbeResult::attemptDiagnosticsSummary() const {
    std::string summary;
    for (std::size_t index = 0; index < attemptDiagnostics.size(); ++index) {
        const auto& diagnostic = attemptDiagnostics[index];
        if (index > 0) summary += ", ";
        summary += "#" + std::to_string(index + 1) + " " + std::string(rawValue(diagnostic.winner)) + " " +
                   seconds3(diagnostic.callbackElapsed) + " +" + seconds3(diagnostic.resumeLag);
    }
    return summary;
}

}  // namespace holdenmere
