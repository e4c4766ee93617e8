#include "core/launchd/helper_delay.h"

namespace holdenmere {

std::optional<std::string> HelperDelayPolicy::refusal(HoldenmereLoginAgentStatus loginAgent) {
    if (loginAgent == HoldenmereLoginAgentStatus::activeAtLogin) return std::nullopt;
    return std::string(kRefusal);
}

std::optional<std::string> HelperDelayPolicy::refusal(DelayedHelper::Mode mode, HoldenmereLoginAgentStatus loginAgent) {
    if (mode == DelayedHelper::Mode::off) return std::nullopt;
    return refusal(loginAgent);
}

bool HelperDelay::isDisabled(std::string_view label) { return launchctl_.isDisabled(label); }

HelperDelay::Conversion HelperDelay::convert(const DelayedHelper& helper, DelayedHelper::Mode mode,
                                             HoldenmereLoginAgentStatus loginAgent) {
    if (!isDisabled(helper.label)) {
        return Conversion::refused("helper is not disabled in launchd, so it cannot be recorded as " +
                                   std::string(rawValue(mode)));
    }
    if (auto refusal = HelperDelayPolicy::refusal(mode, loginAgent)) return Conversion::refused(std::move(*refusal));
    DelayedHelper converted = helper;
    converted.mode = mode;
    return Conversion::converted(std::move(converted));
}

}  // namespace holdenmere
