#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/discovery/safety_tier.h"
#include "core/startup/startup_source.h"

namespace holdenmere {

// One row of the startup-sources inventory: something macOS starts at login
// (a ServiceManagement job, another launchd job, an app extension, an app
// that loginwindow reopens, a launcher's child), its state now and what
// switching it off would mean.
struct StartupEntry {
    struct State {
        enum class Kind { unknown, startsAtLogin, off };

        Kind kind = Kind::unknown;
        std::string reason;  // unknown only: why the state could not be read

        static State unknown(std::string reason) { return {Kind::unknown, std::move(reason)}; }
        static State startsAtLogin() { return {Kind::startsAtLogin, {}}; }
        static State off() { return {Kind::off, {}}; }

        friend bool operator==(const State&, const State&) = default;
    };

    StartupSource source = StartupSource::launchdJob;
    std::optional<std::string> ownerBundleIdentifier;
    std::string name;
    // What the source's switch acts on: a launchd label, an extension
    // identifier, a bundle identifier.
    std::string handle;
    State state;
    SafetyTier tier;

    // "{source raw value}:{handle}", e.g. "launchdJob:com.example.agent".
    std::string id() const { return std::string(rawValue(source)) + ":" + handle; }

    friend bool operator==(const StartupEntry&, const StartupEntry&) = default;
};

// What one scanner of the inventory read. A source that could not be read
// at all says why in `unreadable` (shown as the source's state, never as an
// empty source); parts that could not be read are listed in `incomplete`
// beside the entries that could.
struct StartupSourceScan {
    StartupSource source = StartupSource::launchdJob;
    std::vector<StartupEntry> entries;
    std::optional<std::string> unreadable;
    std::vector<std::string> incomplete;
    // What the scan left out on purpose and where it is listed instead, one
    // line each ("12 of Apple's own jobs are not listed").
    std::vector<std::string> notes;

    friend bool operator==(const StartupSourceScan&, const StartupSourceScan&) = default;
};

}  // namespace holdenmere
