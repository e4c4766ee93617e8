#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/startup/startup_source.h"

namespace holdenmere {

// What switching one startup item off would mean: refused outright, allowed
// after the user confirms one or more warnings, or simply allowed.
struct SafetyTier {
    enum class Kind { refused, needsConfirmation, allowed };

    Kind kind = Kind::allowed;
    std::string reason;                 // refused only
    std::vector<std::string> warnings;  // needsConfirmation only, in order

    static SafetyTier refused(std::string reason) { return {Kind::refused, std::move(reason), {}}; }
    static SafetyTier needsConfirmation(std::vector<std::string> warnings) {
        return {Kind::needsConfirmation, {}, std::move(warnings)};
    }
    static SafetyTier allowed() { return {}; }

    friend bool operator==(const SafetyTier&, const SafetyTier&) = default;
};

// A startup item someone may ask to switch off, as the safety rules see it.
struct StartupCandidate {
    StartupSource source = StartupSource::launchdJob;
    std::string handle;  // the item's identifier in its source; a LaunchAgent's label
    std::string name;    // shown in the texts
    std::optional<std::string> ownerBundleIdentifier;
    std::optional<std::string> programPath;
    std::optional<std::string> bundlePath;
    std::optional<std::string> launchdOnlyReason;  // set when only launchd can change it
    bool isSystemDomain = false;                   // a LaunchDaemon
    std::optional<std::string> extensionProtocol;  // an app extension's extension point
    bool holdsSecurityEntitlement = false;

    friend bool operator==(const StartupCandidate&, const StartupCandidate&) = default;
};

// The safety rules as the scanners ask them, so that a scanner can give each
// row its tier without depending on the rules themselves.
struct SafetyRules {
    std::function<SafetyTier(const StartupCandidate&)> tier;
    // Part of macOS itself: such items are left out of the inventory.
    std::function<bool(const StartupCandidate&)> isApple;
};

}  // namespace holdenmere
