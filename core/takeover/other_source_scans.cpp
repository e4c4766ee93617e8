#include "core/takeover/other_source_scans.h"

#include "core/discovery/startup_discovery.h"

namespace holdenmere {

StartupSafety::Candidate OtherSourceScans::candidate(const AppExtension& extension) {
    StartupSafety::Candidate candidate;
    candidate.source = StartupSource::appExtension;
    candidate.handle = extension.identifier;
    candidate.name = extension.displayName.value_or(extension.identifier);
    candidate.bundlePath = extension.path;
    candidate.extensionProtocol = extension.extensionPoint;
    if (extension.parentBundle) candidate.ownerBundleIdentifier = StartupDiscovery::bundleIdentifier(*extension.parentBundle);
    return candidate;
}

StartupSafety::Candidate OtherSourceScans::candidate(const LauncherChild& child) {
    StartupSafety::Candidate candidate;
    candidate.source = StartupSource::launcherChild;
    candidate.handle = child.launcher.bundleIdentifier.value_or("");
    candidate.name = child.child.name;
    candidate.ownerBundleIdentifier = child.child.bundleIdentifier;
    // The child's own executable: the launcher is a helper by design.
    candidate.programPath = child.child.executablePath;
    candidate.bundlePath = child.child.bundlePath;
    return candidate;
}

StartupSafety::Candidate OtherSourceScans::candidate(const SessionRestore::App& app) {
    StartupSafety::Candidate candidate;
    candidate.source = StartupSource::sessionRestore;
    candidate.handle = app.bundleIdentifier;
    candidate.name = app.path.empty() ? app.bundleIdentifier : std::filesystem::path(app.path).stem().string();
    candidate.ownerBundleIdentifier = app.bundleIdentifier;
    if (!app.path.empty()) candidate.bundlePath = app.path;
    return candidate;
}

std::string OtherSourceScans::launcherRefusal(const LauncherChild& child) {
    return child.launcher.name + " opens " + child.child.name +
           " and is no login item that launchd starts, so Holdenmere cannot keep it from opening " + child.child.name +
           ".";
}

StartupSourceScan OtherSourceScans::appExtensions(ToolRunning& tools, const StartupSafety::Environment& environment) {
    return AppExtensionScanner::scan(tools, [&](const AppExtension& extension) {
        return StartupSafety::tier(candidate(extension), environment);
    });
}

StartupSourceScan OtherSourceScans::launcherChildren(ToolRunning& tools, const StartupSafety::Environment& environment,
                                                     const std::vector<HeldStartupItem>& held) {
    return LauncherChildScanner::scan(
        tools,
        [&](const LauncherChild& child) {
            if (!child.launcherIsLoginItem) return SafetyTier::refused(launcherRefusal(child));
            return StartupSafety::tier(candidate(child), environment);
        },
        held);
}

StartupSourceScan OtherSourceScans::sessionRestore(const std::filesystem::path& home,
                                                   const StartupSafety::Environment& environment,
                                                   const std::vector<HeldStartupItem>& held) {
    return SessionRestoreScanner::scan(
        home, [&](const SessionRestore::App& app) { return StartupSafety::tier(candidate(app), environment); }, held);
}

}  // namespace holdenmere
