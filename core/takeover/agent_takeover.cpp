#include "core/takeover/agent_takeover.h"

#include <filesystem>
#include <system_error>

#include "core/discovery/startup_discovery.h"
#include "core/support/environment.h"
#include "core/support/files.h"

namespace holdenmere {

AgentTakeover::AgentTakeover(LaunchctlRunning& launchctl, StartupSafety::Environment environment, FileExists fileExists)
    : launchctl_(launchctl), environment_(std::move(environment)), fileExists_(std::move(fileExists)) {
    if (!fileExists_) fileExists_ = [](const std::string& path) { return files::exists(path); };
}

StartupSafety::Environment AgentTakeover::systemEnvironment() {
    StartupSafety::Environment environment;
    // This build does not ask systemextensionsctl; security tools are
    // recognised by the extensions their app bundle carries.
    environment.systemExtensions = [] { return std::vector<std::string>{}; };
    environment.isHelperBinary = [](const std::string& path) {
        return StartupDiscovery::isHelperBinary(path).value_or(false);
    };
    environment.bundleHasSystemExtensions = [](const std::string& appPath) {
        std::error_code error;
        std::filesystem::directory_iterator entries(
            std::filesystem::path(appPath) / "Contents/Library/SystemExtensions", error);
        return !error && entries != std::filesystem::directory_iterator();
    };
    environment.homeDirectory = [] { return homeDirectory().string(); };
    return environment;
}

std::optional<std::string> AgentTakeover::runChecked(const std::vector<std::string>& arguments) {
    const auto status = launchctl_.run(arguments);
    if (status == 0) return std::nullopt;
    return "launchctl " + arguments.front() + " failed (exit " + std::to_string(status) + ")";
}

AgentTakeover::Result AgentTakeover::takeOver(std::string_view label) {
    if (launchctl_.isDisabled(label)) return Result::alreadyOff();
    auto failure = runChecked({"disable", launchdServiceTarget(label)});
    const bool disabled = launchctl_.isDisabled(label);
    if (failure) return Result::failed(std::move(*failure));
    if (!disabled) return Result::failed("LaunchAgent is still enabled in launchd");
    return Result::switchedOff();
}

AgentTakeover::Result AgentTakeover::switchOff(std::string_view label, const SafetyTier& tier, bool confirmed,
                                               Mechanism mechanism) {
    switch (tier.kind) {
        case SafetyTier::Kind::refused:
            return Result::failed(tier.reason);
        case SafetyTier::Kind::needsConfirmation:
            if (!confirmed) {
                std::string reason = "not switched off without your confirmation:";
                for (const auto& warning : tier.warnings) reason += " " + warning;
                return Result::failed(std::move(reason));
            }
            break;
        case SafetyTier::Kind::allowed:
            break;
    }
    Result result = takeOver(label);
    if (result.kind != Result::Kind::switchedOff || mechanism != Mechanism::disableAndBootout) return result;
    // The job stays disabled whatever bootout says; only a job that is
    // still loaded afterwards is a failure.
    if (auto failure = runChecked({"bootout", launchdServiceTarget(label)}); failure && launchctl_.isLoaded(label)) {
        return Result::failed(std::move(*failure) + "; it is disabled for the next login but still running");
    }
    return result;
}

AgentTakeover::Result AgentTakeover::switchOn(std::string_view label) {
    if (auto failure = runChecked({"enable", launchdServiceTarget(label)})) return Result::failed(std::move(*failure));
    if (launchctl_.isDisabled(label)) return Result::failed("LaunchAgent is still disabled in launchd");
    return Result::switchedOn();
}

AgentTakeover::Result AgentTakeover::undo(std::string_view label, const std::string& plistPath) {
    Result result = switchOn(label);
    if (!result.succeeded() || launchctl_.isLoaded(label)) return result;
    if (plistPath.empty()) return Result::switchedOn("no plist was recorded, so nothing was loaded");
    if (!fileExists_(plistPath)) {
        return Result::switchedOn("its plist is gone, so there is nothing to load");
    }
    if (auto failure = runChecked({"bootstrap", launchdDomain(), plistPath})) {
        return Result::failed("switched back on, but " + *failure);
    }
    return result;
}

}  // namespace holdenmere
