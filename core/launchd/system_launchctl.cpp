#include "core/launchd/system_launchctl.h"

#include <utility>

#include "core/launchd/launchctl_output.h"
#include "core/support/startup_command.h"

namespace holdenmere {

SystemLaunchctl::SystemLaunchctl(std::filesystem::path tool) : SystemLaunchctl(std::move(tool), Limits{}) {}

SystemLaunchctl::SystemLaunchctl(std::filesystem::path tool, Limits limits)
    : tool_(std::move(tool)), limits_(limits) {}

std::int32_t SystemLaunchctl::run(const std::vector<std::string>& arguments) {
    return StartupCommand::exitStatus(tool_, arguments, limits_.change);
}

bool SystemLaunchctl::isLoaded(std::string_view label) {
    return StartupCommand::exitStatus(tool_, {"print", launchdServiceTarget(label)}, limits_.read) == 0;
}

bool SystemLaunchctl::isDisabled(std::string_view label) {
    auto output = StartupCommand::run(tool_, {"print-disabled", launchdDomain()}, limits_.read);
    return output && isDisabledInOutput(*output, label);
}

std::optional<std::set<std::string>> SystemLaunchctl::disabledLabels() {
    auto output = StartupCommand::run(tool_, {"print-disabled", launchdDomain()}, limits_.read);
    if (!output) return std::nullopt;
    return disabledLabelsFromOutput(*output);
}

std::optional<std::map<std::string, bool>> SystemLaunchctl::disabledMarks() {
    auto output = StartupCommand::run(tool_, {"print-disabled", launchdDomain()}, limits_.read);
    if (!output) return std::nullopt;
    return disabledMarksFromOutput(*output);
}

std::optional<std::string> SystemLaunchctl::print(std::string_view target) {
    return StartupCommand::run(tool_, {"print", std::string(target)}, limits_.read);
}

std::optional<std::vector<std::string>> SystemLaunchctl::serviceLabels() {
    auto output = StartupCommand::run(tool_, {"print", launchdDomain()}, limits_.read);
    if (!output) return std::nullopt;
    return serviceLabelsFromOutput(*output);
}

LaunchctlOutput SystemLaunchctl::runCapturingOutput(const std::vector<std::string>& arguments) {
    auto outcome = StartupCommand::runCombined(tool_, arguments, limits_.change);
    if (outcome.ending == CommandOutcome::Ending::exited) return LaunchctlOutput{outcome.status, std::move(outcome.output)};
    if (outcome.ending == CommandOutcome::Ending::couldNotStart) {
        return LaunchctlOutput{-1, "failed to run launchctl: " + outcome.failure};
    }
    std::string output = std::move(outcome.output);
    if (!output.empty() && output.back() != '\n') output += '\n';
    output += "launchctl " + outcome.failure;
    return LaunchctlOutput{-1, std::move(output)};
}

}  // namespace holdenmere
