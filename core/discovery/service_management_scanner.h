#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "core/discovery/safety_tier.h"
#include "core/discovery/startup_entry.h"
#include "core/discovery/system_extensions.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// The inventory's `serviceManagement` source: jobs that apps registered with
// launchd through ServiceManagement (their plist inside the app, or submitted
// by smd), LaunchDaemons in /Library/LaunchDaemons that run an app, and the
// system extensions of "systemextensionsctl list". Each is a row with its
// state and tier; none is switched from here.
class ServiceManagementScanner {
public:
    struct Result {
        std::vector<StartupEntry> jobs;
        std::vector<StartupEntry> daemons;
        std::vector<StartupEntry> extensions;
        // The labels of the ServiceManagement jobs, for the other-jobs list.
        std::vector<std::string> jobLabels;
        // Nothing when systemextensionsctl's list could not be read.
        std::optional<std::vector<SystemExtension>> systemExtensions;
        std::vector<std::string> incomplete;
        bool servicesRead = false;  // launchd's service list was read

        // jobs, daemons and extensions; unreadable when nothing could be read.
        StartupSourceScan scan() const;
    };

    static constexpr const char* kPrintFailed = "launchctl print failed";
    static constexpr const char* kNothingRead = "neither launchd's services nor the system extensions could be read";
    static constexpr const char* kPrintNotRecognised = "launchctl print output was not recognised";
    // launchd is asked about each job on its own; after this many failed
    // answers the rest are not asked (each could take the whole time limit).
    static constexpr int kMaxFailedPrints = 3;

    // `systemExtensions` as SystemExtensionsReader read them; nothing when
    // they could not be.
    ServiceManagementScanner(LaunchctlRunning& launchctl, std::optional<std::vector<SystemExtension>> systemExtensions,
                             SafetyRules safety, std::filesystem::path daemonFolder = "/Library/LaunchDaemons");

    Result scan() const;

private:
    void scanJobs(Result& result, const std::optional<std::map<std::string, bool>>& marks) const;
    void scanDaemons(Result& result) const;
    void scanExtensions(Result& result) const;
    SafetyTier tierOf(const StartupCandidate& candidate) const;

    LaunchctlRunning& launchctl_;
    std::optional<std::vector<SystemExtension>> systemExtensions_;
    SafetyRules safety_;
    std::filesystem::path daemonFolder_;
};

}  // namespace holdenmere
