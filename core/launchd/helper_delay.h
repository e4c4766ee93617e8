#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/launchd/launchctl_running.h"
#include "core/launchd/login_agent_status.h"
#include "core/support/date.h"

namespace holdenmere {

// When holding a helper off at login is allowed: only while Holdenmere's own
// login agent will run, since nothing else would start a held helper.
struct HelperDelayPolicy {
    static constexpr std::string_view kRefusal =
        "Holdenmere is not set to start at login, so a held helper would never start. "
        "Turn on Start at login in Settings first.";

    // Nothing when the login agent is active at login, else the refusal.
    static std::optional<std::string> refusal(HoldenmereLoginAgentStatus loginAgent);
    // Nothing for "off" (a helper kept off needs no login pass) or when the
    // login agent is active at login, else the refusal.
    static std::optional<std::string> refusal(DelayedHelper::Mode mode, HoldenmereLoginAgentStatus loginAgent);
    static bool needsLoginAgentRepair(HoldenmereLoginAgentStatus loginAgent) {
        return holdenmere::needsLoginAgentRepair(loginAgent);
    }
};

// Holds a managed app's own LaunchAgent off at login: its label stays
// disabled in launchd, and each login pass starts it once the network
// answers and disables it again, so that the next login waits again.
// Holding a helper, starting it and letting it go again are changes of
// startup state, made by the startup-change engine (record first, then
// switch); this class converts the records.
class HelperDelay final {
public:
    // The outcome of changing a recorded helper's mode.
    struct Conversion {
        std::variant<DelayedHelper, std::string> value;

        static Conversion converted(DelayedHelper helper) { return {std::move(helper)}; }
        static Conversion refused(std::string text) { return {std::move(text)}; }
        // The helper with its new mode, or null when refused.
        const DelayedHelper* helper() const { return std::get_if<DelayedHelper>(&value); }
        // The refusal text, or null when converted.
        const std::string* refusal() const { return std::get_if<std::string>(&value); }
        friend bool operator==(const Conversion&, const Conversion&) = default;
    };

    explicit HelperDelay(LaunchdReading& launchctl) : launchctl_(launchctl) {}

    bool isDisabled(std::string_view label);

    // Records the helper in another mode: only while launchd has it disabled,
    // and as "delay" only while the login agent runs at login.
    Conversion convert(const DelayedHelper& helper, DelayedHelper::Mode mode, HoldenmereLoginAgentStatus loginAgent);

private:
    LaunchdReading& launchctl_;
};

}  // namespace holdenmere
