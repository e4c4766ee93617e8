#pragma once

#include <string>

#include "core/reachability/probe_result.h"
#include "core/support/date.h"

namespace holdenmere {

// The one log line a login pass writes about its wait for the network; the
// audit later finds the last pass by its head:
// "[2026-03-01T08:15:02Z] network reachable after 3 attempt(s) in 4.2s [v1.4 (57)] ...".
struct ProbeLogLine {
    static std::string text(const ProbeResult& result, const std::string& version, Date at);
};

}  // namespace holdenmere
