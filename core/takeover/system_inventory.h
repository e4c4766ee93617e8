#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/tool_running.h"
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
    // What runs systemextensionsctl.
    ToolRunning& extensions;
    std::vector<std::filesystem::path> agentDirectories;
    std::filesystem::path daemonFolder = "/Library/LaunchDaemons";
    BrackenspurLabels brackenspur;
    // pluginkit and lsappinfo; without them the app-extension and
    // launcher-child sources are not scanned.
    ToolRunning* tools = nullptr;
    // The home whose per-host loginwindow preferences tell what is
    // reopened at login; without it session restore is not scanned.
    std::optional<std::filesystem::path> home;
    // The ledger's held items, so that a held launcher child or reopened
    // app reads as held.
    std::function<std::vector<HeldStartupItem>()> held;
};

// An inventory with the scanner of every source the tools allow plugged in;
// a source without one reads "not scanned in this build".
// One scan asks systemextensionsctl and launchd's service list once: the
// launchd jobs are told which labels ServiceManagement registered, and the
// safety tiers of both sources know the system extensions.
StartupInventory makeStartupInventory(InventoryTools tools);

// The same on this machine: launchctl, systemextensionsctl, pluginkit and
// lsappinfo (or their stand-ins in HOLDENMERE_TOOLS_DIR), the default
// folders, and the labels named by HOLDENMERE_BRACKENSPUR_OWNED_LABELS.
struct SystemInventory {
    std::unique_ptr<LaunchctlRunning> launchctl;
    std::unique_ptr<ToolRunning> tools;
    StartupInventory inventory;
};
SystemInventory makeSystemStartupInventory(std::function<std::vector<HeldStartupItem>()> held = {});

}  // namespace holdenmere
