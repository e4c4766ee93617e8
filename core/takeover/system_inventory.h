#pragma once

#include <filesystem>
#include <memory>
#include <vector>

#include "core/discovery/brackenspur_labels.h"
#include "core/discovery/startup_inventory.h"
#include "core/discovery/system_extensions.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// What the inventory's launchd and ServiceManagement scanners read: launchd,
// the system extensions, the LaunchAgent and LaunchDaemon folders and
// Brackenspur's owned labels. The tools must outlive the inventory.
struct InventoryTools {
    LaunchctlRunning& launchctl;
    ExtensionListing& extensions;
    std::vector<std::filesystem::path> agentDirectories;
    std::filesystem::path daemonFolder = "/Library/LaunchDaemons";
    BrackenspurLabels brackenspur;
};

// An inventory with the `serviceManagement` and `launchdJob` scanners plugged
// in; the other sources read "not scanned in this build" until theirs are.
// One scan asks systemextensionsctl and launchd's service list once: the
// launchd jobs are told which labels ServiceManagement registered, and the
// safety tiers of both sources know the system extensions.
StartupInventory makeStartupInventory(InventoryTools tools);

// The same on this machine: launchctl and systemextensionsctl (or their
// stand-ins in HOLDENMERE_TOOLS_DIR), the default folders, and the labels
// named by HOLDENMERE_BRACKENSPUR_OWNED_LABELS.
struct SystemInventory {
    std::unique_ptr<LaunchctlRunning> launchctl;
    std::unique_ptr<ExtensionListing> extensions;
    StartupInventory inventory;
};
SystemInventory makeSystemStartupInventory();

}  // namespace holdenmere
