#include "core/launchd/helper_delay.h"

#include "core/support/files.h"
#include "core/support/text.h"

namespace holdenmere {

std::optional<std::string> HelperDelayPolicy::refusal(HoldenmereLoginAgentStatus loginAgent) {
    if (loginAgent == HoldenmereLoginAgentStatus::activeAtLogin) return std::nullopt;
    return std::string(kRefusal);
}

std::optional<std::string> HelperDelayPolicy::refusal(DelayedHelper::Mode mode, HoldenmereLoginAgentStatus loginAgent) {
    if (mode == DelayedHelper::Mode::off) return std::nullopt;
    return refusal(loginAgent);
}

HelperDelay::HelperDelay(LaunchctlRunning& launchctl, FileExists fileExists)
    : launchctl_(launchctl), fileExists_(std::move(fileExists)) {
    if (!fileExists_) fileExists_ = [](const std::string& path) { return files::exists(path); };
}

std::optional<std::string> HelperDelay::runChecked(const std::string& verb, const std::vector<std::string>& arguments) {
    std::vector<std::string> command{verb};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const auto status = launchctl_.run(command);
    if (status == 0) return std::nullopt;
    return "launchctl " + verb + " failed (exit " + std::to_string(status) + ")";
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

LaunchRecord HelperDelay::startAfter(const DelayedHelper& helper, Date now) {
    LaunchRecord record{helper.label, helper.name + " helper", LaunchOutcome::failed, now, {}};

    if (helper.mode == DelayedHelper::Mode::off) {
        if (isDisabled(helper.label)) {
            record.outcome = LaunchOutcome::disabled;
            record.detail = "helper is off; not started and stays off at the next login";
        } else {
            record.detail = "helper is off in Holdenmere but launchd lists it as enabled";
        }
        return record;
    }
    if (!fileExists_(helper.plistPath)) {
        record.detail = "helper plist not found at " + helper.plistPath;
        return record;
    }

    const std::string target = launchdServiceTarget(helper.label);
    std::vector<std::string> problems;
    auto enableFailure = runChecked("enable", {target});
    if (enableFailure) problems.push_back(*enableFailure);
    const bool wasLoaded = launchctl_.isLoaded(helper.label);
    if (!wasLoaded && !enableFailure) {
        if (auto failure = runChecked("bootstrap", {launchdDomain(), helper.plistPath})) problems.push_back(*failure);
    }
    // Disabled again whatever happened above, so that the next login waits.
    if (auto failure = runChecked("disable", {target})) problems.push_back(*failure);
    if (!launchctl_.isLoaded(helper.label)) problems.emplace_back("helper is not loaded in launchd");
    if (!isDisabled(helper.label)) problems.emplace_back("helper is still enabled for the next login");

    if (!problems.empty()) {
        record.detail = text::joined(problems, "; ");
    } else if (wasLoaded) {
        record.outcome = LaunchOutcome::alreadyRunning;
        record.detail = "helper already loaded; next login waits for network";
    } else {
        record.outcome = LaunchOutcome::launched;
        record.detail = "helper started; next login waits for network";
    }
    return record;
}

std::vector<LaunchRecord> HelperDelay::startAfterGate(const HoldenmereConfig& config, Date now) {
    std::vector<LaunchRecord> records;
    records.reserve(config.delayedHelpers.size());
    for (const auto& helper : config.delayedHelpers) records.push_back(startAfter(helper, now));
    return records;
}

}  // namespace holdenmere
