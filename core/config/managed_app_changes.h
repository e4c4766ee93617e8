#pragma once

#include <optional>
#include <string>

#include "core/config/holdenmere_config.h"

namespace holdenmere {

// The changes a person makes to the managed apps, each applied to the
// configuration it is given (the caller loads and saves it under the
// configuration's own rules). Each answers whether anything changed; the
// ones that report to the person answer with the app's name.
struct ManagedAppChanges {
    // A delay chosen in the app: whole steps of 5 s from 5 to 40 s, rounded up.
    static constexpr int kDelayStep = 5;
    static constexpr int kMinDelay = 5;
    static constexpr int kMaxDelay = 40;
    static int steppedDelay(int seconds);

    // Moves an app that is switched on to a place among the apps that are
    // switched on; apps switched off keep their places among them.
    static bool move(HoldenmereConfig& config, const std::string& bundleIdentifier, int toIndex);
    static bool setLaunchHidden(HoldenmereConfig& config, const std::string& bundleIdentifier, bool hidden);
    // Delayed: the stored delay in steps (at least one); not delayed: none.
    static bool setDelayed(HoldenmereConfig& config, const std::string& bundleIdentifier, bool delayed);
    static bool setDelay(HoldenmereConfig& config, const std::string& bundleIdentifier, int seconds);

    // Kept in the list, marked off: the next login pass moves it to the
    // blocked apps itself, and so knows it was switched off in the app
    // rather than never added.
    static std::optional<std::string> switchOff(HoldenmereConfig& config, const std::string& bundleIdentifier);
    // Marked on again, or moved back from the blocked apps to the managed
    // ones.
    static std::optional<std::string> switchOn(HoldenmereConfig& config, const std::string& bundleIdentifier);
    // Gone from the managed apps and the blocked apps.
    static std::optional<std::string> remove(HoldenmereConfig& config, const std::string& bundleIdentifier);

    // What macOS started it with was switched off for Holdenmere, so removing
    // the app does not give that back.
    static bool takenOver(const HoldenmereConfig& config, const ManagedApp& app);
};

}  // namespace holdenmere
