#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/background_item_scanner.h"
#include "core/discovery/background_item_store.h"
#include "core/discovery/login_items_auditor.h"
#include "core/startup/startup_item.h"
#include "core/discovery/script_running.h"
#include "core/launchd/launchctl_running.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// What one look at the startup sources found, for a person to choose from:
// the Login Items through System Events, the LaunchAgents on disk with
// launchd's state, the background items (saved for the login pass), and the
// safety tier of every LaunchAgent behind an app. Everything that depends on
// the configuration is decided afterwards by `StartupItemsListing::from`, so
// that a change of the managed apps needs no new scan.
struct StartupScan {
    std::vector<LoginItemsAuditor::LoginItem> loginItems;
    bool loginItemsUnreadable = false;  // System Events did not answer
    std::vector<StartupItem> agentItems;  // LaunchAgents that open an app and are switched on
    // launchd's disabled list could not be read: LaunchAgents that open an
    // app may be switched on or off, and none is listed.
    bool agentStatesUnknown = false;
    std::map<std::string, SafetyTier> agentTiers;  // by label: what switching each off means
    std::set<std::string> systemDaemonApps;  // apps system LaunchDaemons run: never offered
    std::vector<IneligibleStartupItem> ineligible;
    // The background items, or nothing when sfltool could not be read
    // (`backgroundIncomplete` says why).
    std::optional<BackgroundItemScanner::Result> background;
    std::string backgroundIncomplete;
    // Why a complete background scan could not be saved for the login pass,
    // and whether an earlier one stays saved in its place.
    std::string backgroundNotSaved;
    bool earlierBackgroundSaved = false;
    // The icon file of each app bundle found, by its path.
    std::map<std::string, std::optional<std::filesystem::path>> icons;

    // Runs the scanners. Blocks while System Events and sfltool answer; a
    // complete background scan is saved to `backgroundStore` for the login
    // pass, and a save that fails is noted.
    static StartupScan run(LaunchctlRunning& launchctl, ScriptRunning& scripts,
                           const std::vector<std::filesystem::path>& agentDirectories,
                           const StartupSafety::Environment& environment, ToolRunning& backgroundTools,
                           const BackgroundItemStore& backgroundStore);
};

// What a scan means under a configuration: the items Holdenmere could take
// over, what it leaves alone and why, and the managed apps that macOS also
// starts by itself. The desktop shows it as it stands.
struct StartupItemsListing {
    // One app that macOS starts at login and that Holdenmere could start
    // instead.
    struct Offered {
        enum class Source { loginItem, launchAgent, backgroundItem };

        std::string bundleIdentifier;
        std::string name;
        std::string path;
        Source source = Source::loginItem;
        std::string label;      // a LaunchAgent's
        std::string plistPath;  // a LaunchAgent's
        std::string backgroundIdentifier;      // a background item's
        bool opensLoginItemsSettings = false;  // only System Settings switches it off
        bool opensItselfAtLogin = false;       // a background item that is the app's own registration
        bool hidden = false;  // a Login Item opened hidden
        SafetyTier tier;      // switching a LaunchAgent off; Login Items are always allowed
        std::vector<std::string> chips;  // the tier's, when it needs confirmation
        bool leftToMacOS = false;
        std::optional<std::filesystem::path> iconPath;

        friend bool operator==(const Offered&, const Offered&) = default;
    };

    // Something that starts at login and that Holdenmere leaves alone.
    struct LeftAlone {
        std::string name;
        std::string bundleIdentifier;
        std::string label;  // a launchd label, or a Login Item's path
        std::string reason;
        bool ofManagedApp = false;

        friend bool operator==(const LeftAlone&, const LeftAlone&) = default;
    };

    // A managed app that macOS also starts by itself, before the network.
    struct Conflict {
        struct Agent {
            std::string label;
            std::string plistPath;
            SafetyTier tier;
            std::vector<std::string> chips;
            friend bool operator==(const Agent&, const Agent&) = default;
        };

        std::string bundleIdentifier;
        std::string name;
        std::vector<LoginItemsAuditor::LoginItem> loginItems;
        std::vector<Agent> agents;  // a background item's LaunchAgent too
        std::vector<std::string> settingsItems;  // background items only System Settings switches off
        bool opensLoginItemsSettings = false;
        std::optional<std::filesystem::path> iconPath;

        friend bool operator==(const Conflict&, const Conflict&) = default;
    };

    // Not Holdenmere, not managed, not blocked, the first of each app (a
    // Login Item before a LaunchAgent, a LaunchAgent before a background
    // item); apps a system LaunchDaemon runs are left alone instead.
    std::vector<Offered> offered;
    // A managed app's items first, then Login Items that are not apps, then
    // apps a system LaunchDaemon runs.
    std::vector<LeftAlone> leftAlone;
    std::vector<Conflict> conflicts;

    static StartupItemsListing from(const StartupScan& scan, const HoldenmereConfig& config);
};

}  // namespace holdenmere
