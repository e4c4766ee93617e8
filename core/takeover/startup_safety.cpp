#include "core/takeover/startup_safety.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <system_error>

#include "core/discovery/startup_discovery.h"
#include "core/discovery/system_daemon_scanner.h"
#include "core/discovery/system_extensions.h"
#include "core/support/environment.h"
#include "core/takeover/system_tools.h"

namespace holdenmere {
namespace {

constexpr std::string_view kApplePrefix = "com.apple.";

// The data volume's firmlink: "/System/Volumes/Data/Applications/X.app" is
// the same bundle as "/Applications/X.app", not a system one.
constexpr std::string_view kDataVolume = "/system/volumes/data/";

// Folders that only macOS installs into (compared in lower case: the system
// volume is case-insensitive). "/System/Applications/" is under "/system/".
constexpr std::array<std::string_view, 7> kSystemFolders = {
    "/system/", "/library/apple/", "/usr/libexec/", "/usr/bin/", "/usr/sbin/", "/bin/", "/sbin/",
};

std::string lowercased(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

bool isUnderSystemFolder(const std::string& path) {
    if (path.empty() || path.front() != '/') return false;
    std::string normal = lowercased(std::filesystem::path(path).lexically_normal().string());
    if (normal.starts_with(kDataVolume)) return false;
    return std::any_of(kSystemFolders.begin(), kSystemFolders.end(),
                       [&](std::string_view folder) { return normal.starts_with(folder); });
}

bool isOwnLabel(std::string_view handle) {
    if (handle == kHoldenmereBundleIdentifier) return true;
    return std::find(kHoldenmereLaunchdLabels.begin(), kHoldenmereLaunchdLabels.end(), handle) !=
           kHoldenmereLaunchdLabels.end();
}

// "~/bin/job" against the home folder; every other path as it stands.
std::string expandingHome(const std::string& path, const StartupSafety::Environment& environment) {
    if (!path.starts_with("~/") || !environment.homeDirectory) return path;
    std::string home = environment.homeDirectory();
    if (home.empty()) return path;
    return (std::filesystem::path(home) / path.substr(2)).string();
}

// The outermost app that contains the item: its program's, else its bundle's.
std::optional<std::string> containingApp(const StartupSafety::Candidate& candidate) {
    if (candidate.programPath) {
        if (auto app = StartupDiscovery::outermostAppPath(*candidate.programPath)) return app;
    }
    if (candidate.bundlePath) return StartupDiscovery::outermostAppPath(*candidate.bundlePath);
    return std::nullopt;
}

// The owner ships a system extension: one named after its bundle identifier
// ("com.vendor.vpn" owns "com.vendor.vpn.tunnel"). Nothing when the list of
// system extensions could not be read.
std::optional<bool> ownerHasSystemExtension(const StartupSafety::Candidate& candidate,
                                            const StartupSafety::Environment& environment) {
    if (!candidate.ownerBundleIdentifier || candidate.ownerBundleIdentifier->empty() || !environment.systemExtensions) {
        return false;
    }
    const auto extensions = environment.systemExtensions();
    if (!extensions) return std::nullopt;
    const std::string& owner = *candidate.ownerBundleIdentifier;
    for (const auto& extension : *extensions) {
        if (extension == owner || extension.starts_with(owner + ".")) return true;
    }
    return false;
}

bool isSecurityOrNetworkTool(const StartupSafety::Candidate& candidate, const StartupSafety::Environment& environment) {
    if (candidate.holdsSecurityEntitlement) return true;
    if (auto app = containingApp(candidate);
        app && environment.bundleHasSystemExtensions && environment.bundleHasSystemExtensions(*app)) {
        return true;
    }
    // An unreadable list tells nothing either way: the bundle's own
    // extensions, asked above, are then all there is to go by (the
    // inventory says that the list could not be read).
    return ownerHasSystemExtension(candidate, environment) == true;
}

}  // namespace

SafetyTier StartupSafety::tier(const Candidate& candidate, const Environment& environment) {
    if (auto reason = refusal(candidate, environment)) return SafetyTier::refused(std::move(*reason));
    auto warnings = confirmations(candidate, environment);
    if (!warnings.empty()) return SafetyTier::needsConfirmation(std::move(warnings));
    return SafetyTier::allowed();
}

std::optional<std::string> StartupSafety::refusal(const Candidate& candidate, const Environment& environment) {
    if (candidate.isSystemDomain) {
        return "A system-wide job (LaunchDaemons). Holdenmere only switches your own login items.";
    }
    if (isOwnLabel(candidate.handle) || candidate.ownerBundleIdentifier == kHoldenmereBundleIdentifier) {
        return "Holdenmere's own item. Switching it off would stop the login pass.";
    }
    if (candidate.extensionProtocol && candidate.extensionProtocol->starts_with("com.apple.networkextension")) {
        return "A network system extension. macOS controls it in System Settings, not through an election "
               "Holdenmere can change.";
    }
    if (isApple(candidate)) return "An Apple macOS component.";
    if (candidate.programPath && environment.isHelperBinary) {
        const std::optional<bool> helper = environment.isHelperBinary(*candidate.programPath);
        auto app = StartupDiscovery::outermostAppPath(*candidate.programPath);
        std::string appName = app ? std::filesystem::path(*app).stem().string() : "another app";
        if (!helper) {
            return "Can't switch off: Holdenmere could not read which program " + appName +
                   " runs, so it cannot tell whether this is " + appName + " itself or a helper inside it.";
        }
        if (*helper) return "Can't switch off: helper inside " + appName + ".";
    }
    return std::nullopt;
}

std::vector<std::string> StartupSafety::confirmations(const Candidate& candidate, const Environment& environment) {
    std::vector<std::string> warnings;
    const std::string& name = candidate.name;
    if (candidate.launchdOnlyReason) {
        warnings.push_back("Switching this off removes a service other apps use (" + name +
                           "). Those apps may stop working until you switch it back on.");
    }
    if (isSecurityOrNetworkTool(candidate, environment)) {
        warnings.push_back(name +
                           " is a security or network tool. Switching its startup items off can leave this Mac "
                           "unprotected or offline until you switch it back on.");
    }
    if (candidate.extensionProtocol == "com.apple.fileprovider-nonui") {
        warnings.push_back("Switching this off removes " + name + "'s folder from Finder until you switch it back on.");
    }
    if (isOwnersOwnJob(candidate, environment)) {
        warnings.push_back(name + " is your own job, outside any app, so nothing else will start it.");
    }
    return warnings;
}

std::vector<std::string> StartupSafety::chips(const SafetyTier& tier) {
    std::vector<std::string> chips;
    auto mentions = [&](std::string_view fragment) {
        return std::any_of(tier.warnings.begin(), tier.warnings.end(),
                           [&](const std::string& warning) { return warning.find(fragment) != std::string::npos; });
    };
    if (mentions("removes a service other apps use")) chips.emplace_back("Provides a service");
    if (mentions("is a security or network tool")) chips.emplace_back("Security or network tool");
    if (mentions("folder from Finder")) chips.emplace_back("Finder folder");
    return chips;
}

bool StartupSafety::isApple(const Candidate& candidate) {
    if (candidate.ownerBundleIdentifier && candidate.ownerBundleIdentifier->starts_with(kApplePrefix)) return true;
    if (candidate.handle.starts_with(kApplePrefix)) return true;
    if (candidate.programPath && isUnderSystemFolder(*candidate.programPath)) return true;
    return candidate.bundlePath && isUnderSystemFolder(*candidate.bundlePath);
}

bool StartupSafety::isOwnersOwnJob(const Candidate& candidate, const Environment& environment) {
    if (candidate.source != StartupSource::launchdJob || candidate.isSystemDomain || !candidate.programPath) {
        return false;
    }
    if (isApple(candidate)) return false;
    return !StartupDiscovery::outermostAppPath(expandingHome(*candidate.programPath, environment)).has_value();
}

SafetyRules StartupSafety::rules(Environment environment) {
    SafetyRules rules;
    rules.tier = [environment](const Candidate& candidate) { return tier(candidate, environment); };
    rules.isApple = [](const Candidate& candidate) { return isApple(candidate); };
    return rules;
}

StartupSafety::Environment StartupSafety::systemEnvironment() {
    struct Listing {
        std::unique_ptr<ToolRunning> tools = makeSystemToolRunning();
        CachedExtensionListing cached{*tools};
    };
    auto listing = std::make_shared<Listing>();
    return systemEnvironment([listing] { return listing->cached.bundleIdentifiers(); });
}

StartupSafety::Environment StartupSafety::systemEnvironment(
    std::function<std::optional<std::vector<std::string>>()> systemExtensions) {
    Environment environment;
    environment.systemExtensions = std::move(systemExtensions);
    environment.isHelperBinary = [](const std::string& path) { return StartupDiscovery::helperInsideApp(path); };
    environment.bundleHasSystemExtensions = [](const std::string& appPath) {
        std::error_code error;
        std::filesystem::directory_iterator entries(
            std::filesystem::path(appPath) / "Contents/Library/SystemExtensions", error);
        return !error && entries != std::filesystem::directory_iterator();
    };
    environment.homeDirectory = [] { return homeDirectory().string(); };
    // What the desktop offers and refuses; the login pass, which acts on
    // its own, also weighs the daemons it could not read.
    environment.systemDaemonAppPaths = [] { return SystemDaemonScanner{}.appPaths().paths; };
    return environment;
}

bool StartupSafety::runBySystemDaemon(const std::string& appPath, const Environment& environment) {
    return environment.systemDaemonAppPaths && runBySystemDaemon(appPath, environment.systemDaemonAppPaths());
}

bool StartupSafety::runBySystemDaemon(const std::string& appPath, const std::set<std::string>& daemonAppPaths) {
    if (appPath.empty()) return false;
    const std::string path = StartupDiscovery::standardizedPath(appPath);
    return std::any_of(daemonAppPaths.begin(), daemonAppPaths.end(), [&](const std::string& daemonApp) {
        return StartupDiscovery::standardizedPath(daemonApp) == path;
    });
}

}  // namespace holdenmere
