#pragma once

#include <string_view>

namespace holdenmere {

// Whether Holdenmere's own login agent will run the login pass at the next
// login, as the settings screen shows it.
enum class HoldenmereLoginAgentStatus {
    notInstalled,        // no plist at the agent's location
    installedNotLoaded,  // plist present, launchd has not loaded it, not disabled
    disabled,            // plist present, switched off in launchd (Login Items)
    activeAtLogin,       // plist present, loaded, not disabled
};

// Not installed wins over everything; disabled wins over loaded.
HoldenmereLoginAgentStatus resolveLoginAgentStatus(bool isInstalled, bool isLoaded, bool isDisabled);
// The sentence the settings screen shows for the status.
std::string_view settingsDetail(HoldenmereLoginAgentStatus status);
bool runsAtLogin(HoldenmereLoginAgentStatus status);
// The agent exists but will not run: installed and not loaded, or disabled.
bool needsLoginAgentRepair(HoldenmereLoginAgentStatus status);

}  // namespace holdenmere
