#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/startup_entry.h"
#include "core/support/plist.h"

namespace holdenmere {

// What loginwindow reopens at login, from its per-host preferences
// (~/Library/Preferences/ByHost/com.apple.loginwindow.<UUID>.plist): the
// apps open at the last logout, and the reopen-windows setting.
struct SessionRestore {
    struct App {
        std::string bundleIdentifier;
        std::string path;
        bool hide = false;
        friend bool operator==(const App&, const App&) = default;
    };

    std::vector<App> apps;                     // TALAppsToRelaunchAtLogin
    std::optional<bool> logoutSavesState;      // TALLogoutSavesState
    std::optional<bool> launchesRelaunchApps;  // LoginwindowLaunchesRelaunchApps

    // Both keys absent mean loginwindow's default: windows are reopened.
    bool reopensWindows() const { return logoutSavesState.value_or(true) && launchesRelaunchApps.value_or(true); }
    bool lists(std::string_view bundleIdentifier) const;
    friend bool operator==(const SessionRestore&, const SessionRestore&) = default;
};

// The session-restore source of the startup inventory.
struct SessionRestoreScanner {
    static constexpr std::chrono::milliseconds kTimeLimit{5'000};
    static constexpr const char* kDomain = "com.apple.loginwindow";
    // The handle of the reopen-windows setting's row.
    static constexpr const char* kReopenWindowsHandle = "reopenWindows";
    static constexpr const char* kReopenWindowsName = "Reopen windows when logging back in";

    using TierOf = std::function<SafetyTier(const SessionRestore::App&)>;
    using Read = std::variant<SessionRestore, std::string>;  // or why it could not be read

    // The preferences file: the ByHost loginwindow file of this Mac (the
    // most recently written one when the folder holds several, as it does
    // after a logic-board change); nothing when there is none yet.
    static std::optional<std::filesystem::path> preferencesFile(const std::filesystem::path& home);

    // Nothing when the top level is no dictionary or a key has another type
    // than loginwindow writes.
    static std::optional<SessionRestore> interpret(const plist::Value& preferences);
    // Reads the file within the time limit. No file: nothing reopens yet
    // but what the default setting says.
    static Read read(const std::filesystem::path& home, std::chrono::milliseconds timeLimit = kTimeLimit);

    // The reopen-windows row first, then one row per app; an app held to be
    // quit after login is "off".
    static StartupSourceScan scan(const std::filesystem::path& home, const TierOf& tierOf,
                                  const std::vector<HeldStartupItem>& held);
};

}  // namespace holdenmere
