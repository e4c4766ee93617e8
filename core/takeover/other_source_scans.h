#pragma once

#include <filesystem>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/app_extension_scanner.h"
#include "core/discovery/launcher_child_scanner.h"
#include "core/discovery/session_restore_scanner.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// The app-extension, launcher-child and session-restore sources of the
// startup inventory, each row with the safety tier of switching it off.
struct OtherSourceScans {
    static StartupSourceScan appExtensions(ToolRunning& tools, const StartupSafety::Environment& environment);
    static StartupSourceScan launcherChildren(ToolRunning& tools, const StartupSafety::Environment& environment,
                                              const std::vector<HeldStartupItem>& held);
    static StartupSourceScan sessionRestore(const std::filesystem::path& home,
                                            const StartupSafety::Environment& environment,
                                            const std::vector<HeldStartupItem>& held);

    // What the safety rules are asked about each kind of row.
    static StartupSafety::Candidate candidate(const AppExtension& extension);
    static StartupSafety::Candidate candidate(const LauncherChild& child);
    static StartupSafety::Candidate candidate(const SessionRestore::App& app);

    // The refusal of a child whose launcher is no login-item helper: nothing
    // Holdenmere can switch keeps that launcher from opening it.
    static std::string launcherRefusal(const LauncherChild& child);
};

}  // namespace holdenmere
