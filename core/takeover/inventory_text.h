#pragma once

#include <string>
#include <vector>

#include "core/discovery/startup_entry.h"

namespace holdenmere {

// The words the audit and the desktop app use for the startup inventory, in
// one place so that both say the same.
struct InventoryText {
    // "Other launchd jobs" for launchdJob, …
    static std::string title(StartupSource source);
    // "starts at login", "off", or "unknown: {reason}".
    static std::string state(const StartupEntry::State& state);
    // The short labels of a tier: "refused" with the reason; the tier's
    // chips ("Provides a service", …) or "asks first" when it only warns;
    // "can be switched off" when it is allowed.
    static std::vector<std::string> tierChips(const SafetyTier& tier);
};

}  // namespace holdenmere
