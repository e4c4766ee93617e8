#include "core/takeover/system_inventory.h"

#include <mutex>
#include <optional>

#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/other_jobs.h"
#include "core/discovery/service_management_scanner.h"
#include "core/support/environment.h"
#include "core/takeover/other_source_scans.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/system_tools.h"

namespace holdenmere {
namespace {

// What one inventory shares between its scanners.
struct SharedScan {
    explicit SharedScan(InventoryTools from) : tools(std::move(from)), extensions(tools.extensions) {}

    InventoryTools tools;
    CachedExtensionListing extensions;
    std::mutex mutex;
    std::optional<ServiceManagementScanner::Result> serviceManagement;

    StartupSafety::Environment environment() {
        return StartupSafety::systemEnvironment([this] { return extensions.bundleIdentifiers(); });
    }
    SafetyRules rules() { return StartupSafety::rules(environment()); }
    std::vector<HeldStartupItem> held() const { return tools.held ? tools.held() : std::vector<HeldStartupItem>{}; }

    // The ServiceManagement scan, made once per inventory scan.
    const ServiceManagementScanner::Result& serviceManagementScan() {
        std::lock_guard lock(mutex);
        if (!serviceManagement) {
            serviceManagement =
                ServiceManagementScanner(tools.launchctl, extensions.list(), rules(), tools.daemonFolder).scan();
        }
        return *serviceManagement;
    }
};

}  // namespace

StartupInventory makeStartupInventory(InventoryTools tools) {
    auto shared = std::make_shared<SharedScan>(std::move(tools));
    StartupInventory inventory;
    inventory.plug(StartupSource::serviceManagement, [shared] {
        {
            // A new scan of the inventory reads everything afresh.
            std::lock_guard lock(shared->mutex);
            shared->serviceManagement.reset();
        }
        shared->extensions.forget();
        return shared->serviceManagementScan().scan();
    });
    inventory.plug(StartupSource::launchdJob, [shared] {
        const auto& serviceManagement = shared->serviceManagementScan();
        LaunchAgentScanner::JobSafety safety;
        static_cast<SafetyRules&>(safety) = shared->rules();
        safety.systemExtensionsRead = shared->extensions.list().has_value();
        LaunchAgentScanner scanner(shared->tools.launchctl, shared->tools.agentDirectories);
        return scanner.otherJobs(safety, shared->tools.brackenspur, serviceManagement.jobLabels).scan();
    });
    if (shared->tools.tools != nullptr) {
        inventory.plug(StartupSource::appExtension, [shared] {
            return OtherSourceScans::appExtensions(*shared->tools.tools, shared->environment());
        });
        inventory.plug(StartupSource::launcherChild, [shared] {
            return OtherSourceScans::launcherChildren(*shared->tools.tools, shared->environment(), shared->held());
        });
    }
    if (shared->tools.home) {
        inventory.plug(StartupSource::sessionRestore, [shared] {
            return OtherSourceScans::sessionRestore(*shared->tools.home, shared->environment(), shared->held());
        });
    }
    return inventory;
}

SystemInventory makeSystemStartupInventory(std::function<std::vector<HeldStartupItem>()> held) {
    SystemInventory system;
    system.launchctl = makeSystemLaunchctl();
    system.tools = makeSystemToolRunning();
    system.inventory = makeStartupInventory(InventoryTools{*system.launchctl, *system.tools,
                                                           LaunchAgentScanner::defaultDirectories(),
                                                           "/Library/LaunchDaemons", BrackenspurLabels::fromEnvironment(),
                                                           system.tools.get(), homeDirectory(), std::move(held)});
    return system;
}

}  // namespace holdenmere
