#include "app/desktop/desktop_services.h"

#include "core/takeover/system_tools.h"
#include "core/apps/app_discovery.h"
#include "core/apps/app_running.h"
#include "core/config/last_login_conflicts.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/reachability/url_session_probe.h"
#include "core/support/environment.h"
#include "core/support/files.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/system_inventory.h"

namespace holdenmere::desktop {

std::vector<std::filesystem::path> DesktopServices::launchAgentDirectories() {
    return LaunchAgentScanner::defaultDirectories();
}

StartupSafety::Environment DesktopServices::safetyEnvironment() { return StartupSafety::systemEnvironment(); }

StartupInventory DesktopServices::startupInventory() {
    return makeStartupInventory(InventoryTools{launchctl(), *tools_, launchAgentDirectories(),
                                               "/Library/LaunchDaemons", BrackenspurLabels::fromEnvironment(),
                                               tools_.get(), homeDirectory(), [store = configStore()] {
                                                   auto config = store.tryLoad();
                                                   return config ? config->heldStartup
                                                                 : std::vector<HeldStartupItem>{};
                                               }});
}

ToolRunning& DesktopServices::backgroundItemsTool() { return *tools_; }

SettingsOpening& DesktopServices::settingsOpening() {
    static SystemSettingsOpening opening;
    return opening;
}

std::optional<std::filesystem::path> DesktopServices::agentExecutable() { return executablePath(); }

std::filesystem::path DesktopServices::loginAgentPlistPath() const { return AgentInstaller::defaultPlistURL(); }

std::optional<AgentInstaller> DesktopServices::loginAgentInstaller() {
    auto executable = agentExecutable();
    if (!executable) return std::nullopt;
    return AgentInstaller(launchctl(), *executable, loginAgentPlistPath(), logPath());
}

HoldenmereLoginAgentStatus DesktopServices::loginAgentStatus() {
    if (auto installer = loginAgentInstaller()) return installer->status();
    // Without an executable nothing could have been installed by this copy;
    // the plist tells whether another one did.
    const bool installed = files::exists(loginAgentPlistPath());
    return resolveLoginAgentStatus(installed, launchctl().isLoaded(AgentInstaller::kLabel),
                                   launchctl().isDisabled(AgentInstaller::kLabel));
}

bool DesktopServices::canChangeStartAtLogin() { return agentExecutable().has_value(); }

LoginAgentSwitch DesktopServices::setStartAtLogin(bool on, const Signal* cancellation) {
    auto installer = loginAgentInstaller();
    if (!installer) {
        return {on, LoginAgentSwitch::Kind::notSwitched, "Holdenmere cannot tell where its own program is."};
    }
    return switchLoginAgent(ConfigAccess::of(configStore()), *installer, on, cancellation);
}

std::optional<std::string> DesktopServices::updateLoginAgent() {
    auto installer = loginAgentInstaller();
    if (!installer) return std::nullopt;
    try {
        installer->migrateProcessTypeIfNeeded();
        return std::nullopt;
    } catch (const AgentInstallerError& error) {
        return std::string(error.what());
    }
}

SystemDesktopServices::SystemDesktopServices()
    : configStore_(ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH"))),
      historyStore_(HistoryStore::resolving(environmentValue("HOLDENMERE_HISTORY_PATH"))),
      logPath_(LastLoginConflicts::resolving(environmentValue("HOLDENMERE_LOG_PATH"))),
      launchctl_(makeSystemLaunchctl()),
      scripts_(makeSystemScriptRunner()),
      apps_(std::make_unique<SystemAppRunning>()),
      switches_(std::make_unique<SystemStartupSwitches>(*launchctl_, *apps_)) {}

SystemDesktopServices::~SystemDesktopServices() = default;

const StartupSwitches* SystemDesktopServices::startupSwitches() { return &switches_->switches(); }

std::vector<InstalledApp> SystemDesktopServices::installedApps() {
    return AppDiscovery::scan(AppDiscovery::defaultFolders(homeDirectory()));
}

bool SystemDesktopServices::bundleExists(const std::filesystem::path& path) { return files::exists(path); }

std::unique_ptr<ReachabilityProbe> SystemDesktopServices::makeProbe() { return std::make_unique<URLSessionProbe>(); }

}  // namespace holdenmere::desktop
