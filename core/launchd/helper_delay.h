#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/launchd/helper_starting.h"
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
// Holding a helper and letting it go again are changes of startup state,
// made by the startup-change engine (record first, then switch); this class
// starts the held helpers and converts their records.
class HelperDelay final : public HelperStarting {
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

    using FileExists = std::function<bool(const std::string& path)>;

    // `fileExists` answers whether a helper's plist is there; the file
    // system by default.
    explicit HelperDelay(LaunchctlRunning& launchctl, FileExists fileExists = {});

    bool isDisabled(std::string_view label);

    // Records the helper in another mode: only while launchd has it disabled,
    // and as "delay" only while the login agent runs at login.
    Conversion convert(const DelayedHelper& helper, DelayedHelper::Mode mode, HoldenmereLoginAgentStatus loginAgent);

    // Starts one recorded helper for this session and disables it again for
    // the next login; the record the login pass keeps for it.
    LaunchRecord startAfter(const DelayedHelper& helper, Date now);

    // startAfter for every recorded helper, in the configuration's order.
    std::vector<LaunchRecord> startAfterGate(const HoldenmereConfig& config, Date now) override;

private:
    // "launchctl {verb} failed (exit {status})" when the status is not 0.
    std::optional<std::string> runChecked(const std::string& verb, const std::vector<std::string>& arguments);

    LaunchctlRunning& launchctl_;
    FileExists fileExists_;
};

}  // namespace holdenmere
