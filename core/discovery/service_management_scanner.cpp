#include "core/discovery/service_management_scanner.h"

#include <set>

#include "core/discovery/other_jobs.h"
#include "core/discovery/startup_discovery.h"
#include "core/discovery/system_daemon_scanner.h"
#include "core/launchd/launchctl_output.h"

namespace holdenmere {
namespace {

using Marks = std::optional<std::map<std::string, bool>>;
using OtherJobs = LaunchAgentScanner::OtherJobs;

constexpr std::string_view kSubmitted = "(submitted by";
constexpr std::string_view kPlistInsideApp = ".app/Contents/Library/LaunchAgents/";
constexpr std::string_view kNetworkCategory = "com.apple.system_extension.network_extension";
constexpr std::string_view kSecurityCategory = "com.apple.system_extension.endpoint_security";

// Labels launchd gives things that are no job anyone registered: apps that
// LaunchServices started ("application.com.example.App.1234.5678").
bool isLaunchServicesInstance(const std::string& label) { return label.starts_with("application."); }

StartupEntry::State stateOf(const std::string& label, const Marks& marks) {
    if (!marks) return StartupEntry::State::unknown(std::string(OtherJobs::kNoStateKnown));
    auto mark = marks->find(label);
    return mark != marks->end() && mark->second ? StartupEntry::State::off() : StartupEntry::State::startsAtLogin();
}

std::string appName(const std::string& appPath) { return std::filesystem::path(appPath).stem().string(); }

std::optional<std::string> fieldOf(const std::map<std::string, std::string>& fields, const std::string& key) {
    auto field = fields.find(key);
    if (field == fields.end() || field->second.empty()) return std::nullopt;
    return field->second;
}

}  // namespace

ServiceManagementScanner::ServiceManagementScanner(LaunchctlRunning& launchctl,
                                                   std::optional<std::vector<SystemExtension>> systemExtensions,
                                                   SafetyRules safety, std::filesystem::path daemonFolder)
    : launchctl_(launchctl),
      systemExtensions_(std::move(systemExtensions)),
      safety_(std::move(safety)),
      daemonFolder_(std::move(daemonFolder)) {}

StartupSourceScan ServiceManagementScanner::Result::scan() const {
    StartupSourceScan result;
    result.source = StartupSource::serviceManagement;
    result.entries = jobs;
    result.entries.insert(result.entries.end(), daemons.begin(), daemons.end());
    result.entries.insert(result.entries.end(), extensions.begin(), extensions.end());
    result.incomplete = incomplete;
    // The reasons stay in `incomplete`, one line each.
    if (result.entries.empty() && !servicesRead && !systemExtensions) result.unreadable = std::string(kNothingRead);
    return result;
}

SafetyTier ServiceManagementScanner::tierOf(const StartupCandidate& candidate) const {
    return safety_.tier ? safety_.tier(candidate) : SafetyTier::allowed();
}

ServiceManagementScanner::Result ServiceManagementScanner::scan() const {
    Result result;
    const Marks marks = launchctl_.disabledMarks();
    if (!marks) result.incomplete.emplace_back(OtherJobs::kDisabledListUnreadable);
    scanJobs(result, marks);
    scanDaemons(result);
    scanExtensions(result);
    return result;
}

void ServiceManagementScanner::scanJobs(Result& result, const Marks& marks) const {
    const auto domain = launchctl_.print(launchdDomain());
    const auto labels = domain ? serviceLabelsFromOutput(*domain) : std::nullopt;
    if (!labels) {
        result.incomplete.push_back(std::string("launchd's services could not be listed: ") +
                                    (domain ? kPrintNotRecognised : kPrintFailed));
        return;
    }
    result.servicesRead = true;
    std::set<std::string> seen;
    int failures = 0;
    int notAsked = 0;
    for (const auto& label : *labels) {
        if (!seen.insert(label).second || isLaunchServicesInstance(label)) continue;
        if (StartupDiscovery::ownLaunchdLabels.count(label) != 0) continue;
        StartupCandidate candidate;
        candidate.source = StartupSource::serviceManagement;
        candidate.handle = label;
        if (safety_.isApple && safety_.isApple(candidate)) continue;
        if (failures >= kMaxFailedPrints) {
            ++notAsked;
            continue;
        }
        const auto output = launchctl_.print(launchdServiceTarget(label));
        if (!output) {
            ++failures;
            result.incomplete.push_back(label + ": " + kPrintFailed);
            continue;
        }
        const auto fields = serviceFieldsFromOutput(*output);
        if (!fields) {
            result.incomplete.push_back(label + ": " + kPrintNotRecognised);
            continue;
        }
        const auto path = fieldOf(*fields, "path").value_or("");
        const auto parent = fieldOf(*fields, "parent bundle identifier");
        const bool registered = path.starts_with(kSubmitted) || path.find(kPlistInsideApp) != std::string::npos || parent;
        if (!registered) continue;

        candidate.programPath = fieldOf(*fields, "program");
        auto app = candidate.programPath ? StartupDiscovery::outermostAppPath(*candidate.programPath) : std::nullopt;
        if (!app && !path.starts_with(kSubmitted)) app = StartupDiscovery::outermostAppPath(path);
        candidate.bundlePath = app;
        candidate.ownerBundleIdentifier = parent;
        if (!parent && app) candidate.ownerBundleIdentifier = StartupDiscovery::bundleIdentifier(*app);
        candidate.name = app ? appName(*app) : parent.value_or(label);
        if (safety_.isApple && safety_.isApple(candidate)) continue;

        StartupEntry row{StartupSource::serviceManagement, candidate.ownerBundleIdentifier, candidate.name, label,
                         stateOf(label, marks), tierOf(candidate)};
        result.jobs.push_back(std::move(row));
        result.jobLabels.push_back(label);
    }
    if (notAsked > 0) {
        result.incomplete.push_back(std::to_string(notAsked) + " more jobs were not asked: " + kPrintFailed + " " +
                                    std::to_string(kMaxFailedPrints) + " times");
    }
}

void ServiceManagementScanner::scanDaemons(Result& result) const {
    for (const auto& daemon : SystemDaemonScanner{daemonFolder_}.daemons(result.incomplete)) {
        const auto app = StartupDiscovery::outermostAppPath(daemon.program);
        if (!app) continue;
        StartupCandidate candidate;
        candidate.source = StartupSource::serviceManagement;
        candidate.handle = daemon.label;
        candidate.name = appName(*app);
        candidate.ownerBundleIdentifier = StartupDiscovery::bundleIdentifier(*app);
        candidate.programPath = daemon.program;
        candidate.bundlePath = app;
        candidate.isSystemDomain = true;
        result.daemons.push_back(StartupEntry{
            StartupSource::serviceManagement, candidate.ownerBundleIdentifier, candidate.name, daemon.label,
            daemon.disabledInPlist ? StartupEntry::State::off() : StartupEntry::State::startsAtLogin(),
            tierOf(candidate)});
    }
}

void ServiceManagementScanner::scanExtensions(Result& result) const {
    result.systemExtensions = systemExtensions_;
    if (!result.systemExtensions) {
        result.incomplete.emplace_back(OtherJobs::kSystemExtensionsUnreadable);
        return;
    }
    for (const auto& extension : *result.systemExtensions) {
        // A network system extension is a Network Extension provider; an
        // endpoint-security client holds the security entitlement.
        const StartupCandidate candidate{
            .source = StartupSource::serviceManagement,
            .handle = extension.bundleIdentifier,
            .name = extension.name.empty() ? extension.bundleIdentifier : extension.name,
            .ownerBundleIdentifier = std::nullopt,
            .programPath = std::nullopt,
            .bundlePath = std::nullopt,
            .launchdOnlyReason = std::nullopt,
            .isSystemDomain = false,
            .extensionProtocol = extension.category == kNetworkCategory
                                     ? std::optional<std::string>("com.apple.networkextension")
                                     : std::nullopt,
            .holdsSecurityEntitlement = extension.category == kSecurityCategory};
        // "[activated waiting for user]" is installed but not yet allowed to run.
        const bool running = extension.enabled && extension.active;
        result.extensions.push_back(StartupEntry{StartupSource::serviceManagement, std::nullopt, candidate.name,
                                                 extension.bundleIdentifier,
                                                 running ? StartupEntry::State::startsAtLogin() : StartupEntry::State::off(),
                                                 tierOf(candidate)});
    }
}

}  // namespace holdenmere
