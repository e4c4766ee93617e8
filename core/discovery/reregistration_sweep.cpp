#include "core/discovery/reregistration_sweep.h"

#include <algorithm>
#include <set>
#include <string>

namespace holdenmere {

std::vector<ReregistrationSweep::Removal> ReregistrationSweep::run(const std::vector<ManagedApp>& launched,
                                                                   const std::vector<BlockedApp>& blocked,
                                                                   const Remove& remove,
                                                                   const Signal* cancellation) const {
    std::vector<ManagedApp> apps = launched;
    for (const auto& app : blocked) apps.push_back(managedRecord(app));
    std::vector<Removal> removals;
    if (apps.empty()) return removals;

    const Signal neverCancelled;
    const Signal& stop = cancellation != nullptr ? *cancellation : neverCancelled;
    const double deadline = clock->uptime() + window;
    for (;;) {
        for (const auto& conflict : auditor.conflicts(apps)) {
            if (stop.isRaised() || clock->uptime() > deadline) return removals;
            if (auto outcome = remove(conflict.managed, conflict.loginItem)) {
                removals.push_back(Removal{conflict.managed, *outcome});
            } else {
                std::erase_if(apps, [&](const ManagedApp& app) {
                    return app.bundleIdentifier == conflict.managed.bundleIdentifier;
                });
            }
        }
        if (apps.empty()) break;
        const double left = deadline - clock->uptime();
        if (left <= 0 || stop.isRaised()) break;
        if (!clock->sleep(std::min(left, interval), stop)) break;
    }
    return removals;
}

namespace {

// The bundle identifiers with a Login Item in the ledger.
std::set<std::string> ledgeredLoginItems(const HoldenmereConfig& config) {
    std::set<std::string> ledgered;
    for (const auto& record : config.takeovers) {
        if (!record.loginItems.empty()) ledgered.insert(record.bundleIdentifier);
    }
    return ledgered;
}

}  // namespace

bool ReregistrationSweep::mayHandOver(const std::vector<ManagedApp>& managed, const HoldenmereConfig& config) {
    if (config.startupConsent != StartupConsent::granted) return false;
    const auto ledgered = ledgeredLoginItems(config);
    return std::any_of(managed.begin(), managed.end(), [&](const ManagedApp& app) {
        return app.importedFromLoginItem || ledgered.count(app.bundleIdentifier) != 0;
    });
}

std::vector<ManagedApp> ReregistrationSweep::handedOver(const std::vector<ManagedApp>& managed,
                                                        const HoldenmereConfig& config,
                                                        const std::vector<LaunchRecord>& history) {
    std::vector<ManagedApp> result;
    if (config.startupConsent != StartupConsent::granted) return result;
    const auto ledgered = ledgeredLoginItems(config);
    std::set<std::string> listed;
    for (const auto& app : managed) {
        if (!app.importedFromLoginItem && ledgered.count(app.bundleIdentifier) == 0) continue;
        auto newest = std::find_if(history.begin(), history.end(), [&](const LaunchRecord& record) {
            return record.bundleIdentifier == app.bundleIdentifier;
        });
        if (newest == history.end() || newest->outcome != LaunchOutcome::launched) continue;
        if (!listed.insert(app.bundleIdentifier).second) continue;
        result.push_back(app);
    }
    return result;
}

ManagedApp ReregistrationSweep::managedRecord(const BlockedApp& blocked) {
    ManagedApp app;
    app.bundleIdentifier = blocked.bundleIdentifier;
    app.name = blocked.name;
    app.path = blocked.path;
    app.isEnabled = false;
    return app;
}

}  // namespace holdenmere
