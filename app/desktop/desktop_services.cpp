#include "app/desktop/desktop_services.h"

#include "core/apps/app_discovery.h"
#include "core/config/last_login_conflicts.h"
#include "core/reachability/url_session_probe.h"
#include "core/support/environment.h"
#include "core/support/files.h"

namespace holdenmere::desktop {

std::optional<std::string> DesktopServices::setStartAtLogin(bool) {
    return std::string("This build of Holdenmere cannot change Start at login.");
}

SystemDesktopServices::SystemDesktopServices()
    : configStore_(ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH"))),
      historyStore_(HistoryStore::resolving(environmentValue("HOLDENMERE_HISTORY_PATH"))),
      logPath_(LastLoginConflicts::resolving(environmentValue("HOLDENMERE_LOG_PATH"))) {}

std::vector<InstalledApp> SystemDesktopServices::installedApps() {
    return AppDiscovery::scan(AppDiscovery::defaultFolders(homeDirectory()));
}

bool SystemDesktopServices::bundleExists(const std::filesystem::path& path) { return files::exists(path); }

std::unique_ptr<ReachabilityProbe> SystemDesktopServices::makeProbe() { return std::make_unique<URLSessionProbe>(); }

std::filesystem::path SystemDesktopServices::loginAgentPlistPath() {
    return homeDirectory() / "Library" / "LaunchAgents" / "com.tavik.holdenmere.agent.plist";
}

HoldenmereLoginAgentStatus SystemDesktopServices::loginAgentStatus() {
    const bool installed = files::exists(loginAgentPlistPath());
    return resolveLoginAgentStatus(installed, installed, false);
}

}  // namespace holdenmere::desktop
