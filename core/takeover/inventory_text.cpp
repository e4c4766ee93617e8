#include "core/takeover/inventory_text.h"

#include "core/takeover/startup_safety.h"

namespace holdenmere {

std::string InventoryText::title(StartupSource source) {
    switch (source) {
        case StartupSource::serviceManagement: return "ServiceManagement jobs, LaunchDaemons and system extensions";
        case StartupSource::launchdJob: return "Other launchd jobs";
        case StartupSource::appExtension: return "App extensions";
        case StartupSource::sessionRestore: return "Apps reopened at login";
        case StartupSource::launcherChild: return "Apps started by another app's launcher";
    }
    return std::string(rawValue(source));
}

std::string InventoryText::state(const StartupEntry::State& state) {
    switch (state.kind) {
        case StartupEntry::State::Kind::startsAtLogin: return "starts at login";
        case StartupEntry::State::Kind::off: return "off";
        case StartupEntry::State::Kind::unknown: return "unknown: " + state.reason;
    }
    return "unknown";
}

std::vector<std::string> InventoryText::tierChips(const SafetyTier& tier) {
    switch (tier.kind) {
        case SafetyTier::Kind::refused: return {"refused: " + tier.reason};
        case SafetyTier::Kind::needsConfirmation: {
            auto chips = StartupSafety::chips(tier);
            if (chips.empty()) chips.emplace_back("asks first");
            return chips;
        }
        case SafetyTier::Kind::allowed: return {"can be switched off"};
    }
    return {};
}

}  // namespace holdenmere
