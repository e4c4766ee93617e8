#include "core/takeover/startup_switch.h"

#include <chrono>

#include "core/discovery/app_extension_scanner.h"

namespace holdenmere {
namespace {

constexpr std::chrono::milliseconds kDefaultsTimeLimit{10'000};
constexpr const char* kLogoutSavesState = "TALLogoutSavesState";
constexpr const char* kLaunchesRelaunchApps = "LoginwindowLaunchesRelaunchApps";

std::vector<std::string> defaultsArguments(const char* verb, const char* key) {
    return {"-currentHost", verb, SessionRestoreScanner::kDomain, key};
}

}  // namespace

std::optional<bool> AppExtensionSwitch::isOff(const std::string& identifier, std::string& failure) {
    const auto extensions = AppExtensionScanner::list(tools_, failure);
    if (!extensions) return std::nullopt;
    const AppExtension* extension = AppExtensionScanner::find(*extensions, identifier);
    if (extension == nullptr) {
        failure = "pluginkit no longer lists " + identifier;
        return std::nullopt;
    }
    return extension->isOff();
}

std::optional<std::string> AppExtensionSwitch::elect(const std::string& identifier, bool use) {
    std::string failure;
    if (tools_.output(AppExtensionScanner::kPluginkit, AppExtensionScanner::electionArguments(identifier, use),
                      AppExtensionScanner::kTimeLimit, failure)) {
        return std::nullopt;
    }
    return failure;
}

std::optional<bool> LauncherChildSwitch::isOff(const std::string& label, std::string& failure) {
    const auto disabled = launchctl_.disabledLabels();
    if (!disabled) {
        failure = "launchd's disabled list could not be read";
        return std::nullopt;
    }
    return disabled->count(label) != 0;
}

std::optional<std::string> LauncherChildSwitch::run(const char* subcommand, const std::string& label) {
    const auto status = launchctl_.run({subcommand, launchdServiceTarget(label)});
    if (status == 0) return std::nullopt;
    return std::string("launchctl ") + subcommand + " failed (exit " + std::to_string(status) + ")";
}

std::optional<ReopenWindowsSetting::Values> SystemReopenWindowsSetting::read(std::string& failure) {
    Values values;
    for (const auto& [key, value] : {std::pair{kLogoutSavesState, &values.logoutSavesState},
                                     std::pair{kLaunchesRelaunchApps, &values.launchesRelaunchApps}}) {
        const auto result = tools_.run(kDefaults, defaultsArguments("read", key), kDefaultsTimeLimit);
        if (result.succeeded()) {
            const std::string text = result.output.substr(0, result.output.find('\n'));
            if (text != "0" && text != "1") {
                failure = std::string("defaults printed \"") + text + "\" for " + key + ", not a boolean";
                return std::nullopt;
            }
            *value = text == "1";
        } else if (result.ending == ChildProcessResult::Ending::exited && result.status == 1 &&
                   result.error.find("does not exist") != std::string::npos) {
            *value = std::nullopt;  // not set
        } else {
            failure = "defaults read " + std::string(key) + ": " + result.describe(kDefaultsTimeLimit);
            return std::nullopt;
        }
    }
    return values;
}

std::optional<std::string> SystemReopenWindowsSetting::write(const Values& values) {
    for (const auto& [key, value] : {std::pair{kLogoutSavesState, values.logoutSavesState},
                                     std::pair{kLaunchesRelaunchApps, values.launchesRelaunchApps}}) {
        std::vector<std::string> arguments = defaultsArguments(value ? "write" : "delete", key);
        if (value) arguments.insert(arguments.end(), {"-bool", *value ? "true" : "false"});
        const auto result = tools_.run(kDefaults, arguments, kDefaultsTimeLimit);
        // Deleting a key that is not set fails (status 1); the setting read
        // back afterwards confirms what is set.
        const bool absentAlready = !value && result.ending == ChildProcessResult::Ending::exited && result.status == 1;
        if (!result.succeeded() && !absentAlready) {
            return "defaults " + arguments[1] + " " + key + " failed: " + result.describe(kDefaultsTimeLimit);
        }
    }
    return std::nullopt;
}

StartupSwitch* StartupSwitches::find(StartupSource source) const {
    switch (source) {
        case StartupSource::appExtension: return appExtension;
        case StartupSource::launcherChild: return launcherChild;
        case StartupSource::serviceManagement:
        case StartupSource::launchdJob:
        case StartupSource::sessionRestore: break;
    }
    return nullptr;
}

}  // namespace holdenmere
