#include "core/reachability/probe_log_line.h"

#include <cstdio>

namespace holdenmere {

std::string ProbeLogLine::text(const ProbeResult& result, const std::string& version, Date at) {
    char elapsed[48];
    std::snprintf(elapsed, sizeof elapsed, "%.1f", result.elapsed);
    std::string line = "[" + at.iso8601() + "] " + (result.reachable ? "network reachable" : "network UNREACHABLE") +
                       " after " + std::to_string(result.attempts) + " attempt(s) in " + elapsed + "s [v" + version +
                       "]";
    if (result.lastFailure) line += " \xE2\x80\x94 last failure: " + *result.lastFailure;
    line += " [per attempt: " + result.attemptTimingSummary() + "]";
    if (result.warmUpDuration) {
        char warmUp[48];
        std::snprintf(warmUp, sizeof warmUp, "%.3f", *result.warmUpDuration);
        line += std::string(" [warm-up: ") + warmUp + "s]";
    }
    line += " [attempt diagnostics: " + result.attemptDiagnosticsSummary() + "]";
    return line;
}

}  // namespace holdenmere
