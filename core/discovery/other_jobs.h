#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/discovery/brackenspur_labels.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_entry.h"

namespace holdenmere {

// The safety rules for the jobs, and whether they knew the system extensions.
struct LaunchAgentScanner::JobSafety : SafetyRules {
    // systemextensionsctl's list was read, so security tools are known by
    // their system extensions too.
    bool systemExtensionsRead = true;
};

// The launchd jobs of the inventory that are neither Login Items nor
// LaunchAgents that open an app: helpers and tools that apps installed, and
// the user's own jobs, each a `launchdJob` row with its state and tier. The
// jobs left out are named by list, so that nothing disappears silently.
struct LaunchAgentScanner::OtherJobs {
    static constexpr std::string_view kNoStateKnown = "launchd's disabled list could not be read, so no state is known";
    static constexpr std::string_view kDisabledListUnreadable = LaunchAgentScanner::kDisabledListUnreadable;
    static constexpr std::string_view kSystemExtensionsUnreadable =
        "systemextensionsctl list could not be read; security tools are recognised by their app bundle only";
    static constexpr std::string_view kDetailsUnreadable =
        "Holdenmere could not read this item's details, so it cannot rule out that other apps rely on it.";
    // "{name} is your own job, so nothing else will start it."
    static std::string yourOwnJob(const std::string& name);

    std::vector<StartupEntry> installedByApps;  // programs inside an app bundle
    std::vector<StartupEntry> yourOwn;          // programs inside none
    std::vector<std::string> brackenspurOwned;
    std::optional<std::string> brackenspurFailure;
    std::vector<std::string> alsoServiceManagement;
    std::vector<std::string> appleOmitted;
    // Agents that open an app's own executable: Startup Items, not listed here.
    std::vector<std::string> appAgents;
    // Agents that launchd loads only in other sessions (the login window,
    // background sessions): they never start in the user's.
    std::vector<std::string> otherSessions;
    std::vector<std::string> incomplete;

    // installedByApps, then yourOwn.
    std::vector<StartupEntry> entries() const;
    // The inventory's `launchdJob` source: the rows, what could not be read,
    // and one note per list of jobs left out.
    StartupSourceScan scan() const;
};

}  // namespace holdenmere
