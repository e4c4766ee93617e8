#pragma once

#include <array>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/discovery/safety_tier.h"
#include "core/startup/startup_source.h"

namespace holdenmere {

// Holdenmere's own bundle identifier and launchd labels: nothing bearing
// them is ever switched off.
inline constexpr std::string_view kHoldenmereBundleIdentifier = "com.tavik.holdenmere";
inline constexpr std::array<std::string_view, 2> kHoldenmereLaunchdLabels = {
    "com.tavik.holdenmere.agent",
    "com.tavik.holdenmere.axsampler",
};

// The rules that decide whether a startup item may be switched off. Pure
// logic: everything it needs to know about the machine comes through the
// Environment, so every rule can be exercised without one.
struct StartupSafety {
    // The item the user asks to switch off.
    using Candidate = StartupCandidate;

    // Questions about the machine. A missing function counts as "no" (or as
    // an empty list / unknown home folder).
    struct Environment {
        // Bundle identifiers of the installed system extensions; nothing when
        // the list could not be read. Security tools are then recognised by
        // the extensions their app bundle carries only.
        std::function<std::optional<std::vector<std::string>>()> systemExtensions;
        // The path is a helper executable inside another app's bundle; nothing
        // when that cannot be told (the app's executable cannot be read),
        // which refuses the switch like a helper does.
        std::function<std::optional<bool>(const std::string& path)> isHelperBinary;
        // The app bundle at this path carries system extensions.
        std::function<bool(const std::string& appPath)> bundleHasSystemExtensions;
        std::function<std::string()> homeDirectory;
        // The app bundles whose programs system LaunchDaemons run: launchd
        // starts those before any login, so Holdenmere cannot gate them.
        std::function<std::set<std::string>()> systemDaemonAppPaths;
    };

    // Whether a system LaunchDaemon runs the app at `appPath`: launchd
    // starts it whatever Holdenmere does, so it is never taken over.
    static bool runBySystemDaemon(const std::string& appPath, const Environment& environment);
    // The same against the paths `Environment::systemDaemonAppPaths` gave.
    static bool runBySystemDaemon(const std::string& appPath, const std::set<std::string>& daemonAppPaths);
    // Why such an app is not offered or taken over.
    static constexpr std::string_view kRunBySystemDaemon =
        "run by a system LaunchDaemon; launchd starts it, Holdenmere cannot gate it";

    // The refusal if there is one, else the warnings if there are any, else allowed.
    static SafetyTier tier(const Candidate& candidate, const Environment& environment);
    // The machine as it is: app bundles read from disk, and the system
    // extensions of "systemextensionsctl list" (asked once, on the first
    // question). When that list cannot be read, security tools are
    // recognised by the extensions their app bundle carries only.
    static Environment systemEnvironment();
    // The same over a list of system extensions given by the caller.
    static Environment systemEnvironment(std::function<std::optional<std::vector<std::string>>()> systemExtensions);
    // The rules over one environment, as the inventory's scanners ask them.
    static SafetyRules rules(Environment environment);
    // The first refusal rule that matches, in order: a system-wide job, one of
    // Holdenmere's own items, a network system extension, an Apple component,
    // a helper inside another app.
    static std::optional<std::string> refusal(const Candidate& candidate, const Environment& environment);
    // Every warning that applies, in order: a service other apps use, a
    // security or network tool, a Finder folder, the user's own job.
    static std::vector<std::string> confirmations(const Candidate& candidate, const Environment& environment);

    // Short labels of a tier's warnings, for the desktop app's rows.
    static std::vector<std::string> chips(const SafetyTier& tier);

    // Part of macOS itself: an owner or handle in Apple's "com.apple."
    // namespace, or a program or bundle under a system folder (/System,
    // /Library/Apple, /usr/libexec, /usr/bin, /usr/sbin, /bin, /sbin).
    static bool isApple(const Candidate& candidate);
    // A LaunchAgent whose program lies inside no app bundle (and is not
    // macOS's own): nothing but launchd will ever start it.
    static bool isOwnersOwnJob(const Candidate& candidate, const Environment& environment);
};

}  // namespace holdenmere
