#include "core/gate/gate_runner.h"

#include <cmath>
#include <cstdio>

#include "core/support/log_text.h"

namespace holdenmere {

std::string GateRunner::unreachablePrefix(double elapsed) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "network unreachable after %.0fs", std::max(0.0, elapsed));
    return buffer;
}

std::vector<LaunchRecord> LaunchPlan::allRecords() const {
    std::vector<LaunchRecord> all = records;
    all.insert(all.end(), helperRecords.begin(), helperRecords.end());
    return all;
}

std::vector<LaunchRecord> GateRunner::startHelpers(const HoldenmereConfig& config) {
    if (helpers_ == nullptr) return {};
    return helpers_->startAfterGate(config, clock_.now());
}

LaunchPlan GateRunner::run(const HoldenmereConfig& config, const Signal* cancellation) {
    LaunchPlan plan;
    if (!config.settings.isEnabled) {
        plan.helperRecords = startHelpers(config);
        for (const auto& app : config.apps) {
            plan.records.push_back(LaunchRecord{app.bundleIdentifier, app.name, LaunchOutcome::disabled, clock_.now(),
                                                "Holdenmere disabled"});
        }
        plan.completed = true;
        return plan;
    }

    launcher_.warmUp();
    plan.probe = gate_.waitForNetwork(config.settings, {}, cancellation);
    const ProbeResult& probe = *plan.probe;
    if (probe.reachable) {
        plan.records = launcher_.launchAll(config.apps, cancellation);
        plan.completed = true;
    } else if (config.settings.launchAnywayOnTimeout) {
        plan.records = launcher_.launchAll(config.apps, cancellation);
        for (auto& record : plan.records) {
            record.detail = unreachablePrefix(probe.elapsed) + kDash + record.detail;
        }
    } else {
        for (const auto& app : config.apps) {
            LaunchRecord record{app.bundleIdentifier, app.name, LaunchOutcome::failed, clock_.now(), {}};
            if (!app.isEnabled) {
                record.outcome = LaunchOutcome::disabled;
                record.detail = "disabled in Holdenmere";
            } else {
                record.detail = unreachablePrefix(probe.elapsed) +
                                " \xE2\x80\x94 not opened, because \"launch anyway\" is off";
            }
            plan.records.push_back(std::move(record));
        }
    }
    plan.helperRecords = startHelpers(config);
    return plan;
}

bool waitWithDeadline(Clock& clock, MainLoop& mainLoop, const Signal& done, double seconds, double slice) {
    const double deadline = clock.uptime() + seconds;
    for (;;) {
        if (done.isRaised()) return true;
        const double remaining = deadline - clock.uptime();
        if (remaining <= 0) return false;
        if (mainLoop.runSlice(clock, done, std::min(slice, remaining))) return true;
    }
}

}  // namespace holdenmere
