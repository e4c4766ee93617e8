#include "core/gate/open_at_login.h"

#include <algorithm>
#include <memory>
#include <mutex>

#include "core/gate/cli_mode.h"
#include "core/gate/gate_runner.h"

namespace holdenmere {

bool OpenAtLogin::openedQuietly(const std::vector<std::string>& arguments) {
    return std::find(arguments.begin(), arguments.end(), argument) != arguments.end();
}

std::vector<std::string> OpenAtLogin::withoutOpenedAtLogin(const std::vector<std::string>& arguments) {
    std::vector<std::string> result;
    for (std::size_t index = 0; index < arguments.size(); ++index) {
        if (index > 0 && arguments[index] == argument) continue;
        result.push_back(arguments[index]);
    }
    return result;
}

std::string_view OpenAtLogin::settingsDetail(HoldenmereLoginAgentStatus loginAgent, bool menuBarMode) {
    if (!runsAtLogin(loginAgent)) return "Needs Start at login above.";
    return menuBarMode ? "Opens quietly in the menu bar once your apps have started."
                       : "Opens quietly in the Dock once your apps have started.";
}

std::optional<std::string_view> OpenAtLogin::offWarning(HoldenmereLoginAgentStatus status) {
    if (runsAtLogin(status)) return std::nullopt;
    return "Holdenmere won't run at your next login, so these apps start before the network.";
}

bool OpenAtLogin::isDesktopApp(const std::vector<std::string>& arguments) {
    return CLIMode::from(withoutOpenedAtLogin(arguments)).kind == CLIMode::Kind::app;
}

std::optional<std::string> OpenAtLogin::openHoldenmereIfRequested(const GateSettings& settings,
                                                                  const std::optional<Bundle>& bundle, int ownProcess,
                                                                  AppRunning& apps, Clock& clock, MainLoop& mainLoop) {
    if (!settings.openAppAtLogin) return std::nullopt;
    if (!bundle || bundle->path.extension() != ".app") {
        return "open-at-login: skipped \xE2\x80\x94 not running from an app bundle";
    }
    auto info = bundle->infoDictionary();
    auto identifier = info ? info->stringAt("CFBundleIdentifier") : std::nullopt;
    if (identifier) {
        for (int process : apps.processIdentifiers(*identifier)) {
            if (process == ownProcess) continue;
            // Where the platform tells a process's arguments, a login pass or
            // an audit running at the same time is no open desktop app.
            const auto arguments = apps.arguments(process);
            if (!arguments || isDesktopApp(*arguments)) return "open-at-login: Holdenmere is already open";
        }
    }

    struct Answer {
        Signal arrived;
        std::mutex mutex;
        LaunchAttempt attempt;
    };
    auto answer = std::make_shared<Answer>();
    OpenOptions options;
    options.activates = false;
    options.newInstance = true;
    options.arguments = {std::string(argument)};
    // The wait below is the only limit: the open must not be given up
    // earlier than the 20 s this step grants it.
    options.timeLimit.reset();
    apps.begin(bundle->path.string(), options, [answer](LaunchAttempt attempt) {
        {
            std::lock_guard lock(answer->mutex);
            answer->attempt = std::move(attempt);
        }
        answer->arrived.raise();
    });
    if (!waitWithDeadline(clock, mainLoop, answer->arrived, kOpenTimeLimit)) {
        return "open-at-login: no answer from LaunchServices within 20s";
    }
    std::lock_guard lock(answer->mutex);
    if (answer->attempt.result == LaunchAttempt::Result::failed) {
        return "open-at-login: could NOT open Holdenmere \xE2\x80\x94 " + answer->attempt.reason;
    }
    return "open-at-login: opened Holdenmere";
}

}  // namespace holdenmere
