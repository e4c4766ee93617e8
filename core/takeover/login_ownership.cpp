#include "core/takeover/login_ownership.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "core/discovery/startup_discovery.h"
#include "core/support/text.h"

namespace holdenmere {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";

}  // namespace

std::string LoginOwnership::standardizedPath(std::string_view path) { return StartupDiscovery::standardizedPath(path); }

LoginOwnership::Migration LoginOwnership::migrate(const HoldenmereConfig& config,
                                                  const std::set<std::string>& systemDaemonAppPaths) {
    Migration migration;
    migration.config = config;
    std::vector<ManagedApp> kept;
    std::set<std::string> daemonPaths;
    for (const auto& path : systemDaemonAppPaths) daemonPaths.insert(standardizedPath(path));

    for (ManagedApp app : config.apps) {
        if (!app.isEnabled) {
            migration.movedToBlocked.push_back(app);
            migration.logLines.push_back("blocked: " + app.name + kDash +
                                         "was switched off in Holdenmere; it does not start at login");
            auto& blocked = migration.config.blockedApps;
            bool known = std::any_of(blocked.begin(), blocked.end(), [&](const BlockedApp& entry) {
                return entry.bundleIdentifier == app.bundleIdentifier;
            });
            if (!known) blocked.push_back(BlockedApp{app.bundleIdentifier, app.name, app.path});
            continue;
        }
        if (daemonPaths.count(standardizedPath(app.path)) > 0) {
            migration.droppedSystemDaemons.push_back(app);
            migration.logLines.push_back("dropped: " + app.name + kDash +
                                         "a system LaunchDaemon; launchd starts it, Holdenmere cannot gate it");
            continue;
        }
        const double stored = app.delaySeconds;
        if (!(stored >= 0 && stored <= HoldenmereConfig::kMaxDelay)) {
            app.delaySeconds = std::isnan(stored) || stored < 0 ? 0 : HoldenmereConfig::kMaxDelay;
            migration.clampedDelays.push_back(app);
            migration.logLines.push_back("clamped: " + app.name + kDash + "stored delay " + text::number(stored) +
                                         "s is outside 0-" + text::number(HoldenmereConfig::kMaxDelay) +
                                         "s; it now waits " + text::number(app.delaySeconds) + "s");
        }
        kept.push_back(std::move(app));
    }
    migration.config.apps = std::move(kept);
    return migration;
}

}  // namespace holdenmere
