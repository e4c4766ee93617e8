#include "core/launchd/login_agent_status.h"

namespace holdenmere {

HoldenmereLoginAgentStatus resolveLoginAgentStatus(bool isInstalled, bool isLoaded, bool isDisabled) {
    if (!isInstalled) return HoldenmereLoginAgentStatus::notInstalled;
    if (isDisabled) return HoldenmereLoginAgentStatus::disabled;
    return isLoaded ? HoldenmereLoginAgentStatus::activeAtLogin : HoldenmereLoginAgentStatus::installedNotLoaded;
}

std::string_view settingsDetail(HoldenmereLoginAgentStatus status) {
    switch (status) {
        case HoldenmereLoginAgentStatus::notInstalled:
            return "Not installed \xE2\x80\x94 Holdenmere will not run at login.";
        case HoldenmereLoginAgentStatus::installedNotLoaded:
            return "Plist installed but launchd has NOT loaded it.";
        case HoldenmereLoginAgentStatus::disabled:
            return "Disabled in Login Items \xE2\x80\x94 Holdenmere will not run at login.";
        case HoldenmereLoginAgentStatus::activeAtLogin:
            return "Installed and loaded \xE2\x80\x94 runs at every login.";
    }
    return {};
}

bool runsAtLogin(HoldenmereLoginAgentStatus status) { return status == HoldenmereLoginAgentStatus::activeAtLogin; }

bool needsLoginAgentRepair(HoldenmereLoginAgentStatus status) {
    return status == HoldenmereLoginAgentStatus::installedNotLoaded || status == HoldenmereLoginAgentStatus::disabled;
}

}  // namespace holdenmere
