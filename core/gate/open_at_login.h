#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/apps/app_running.h"
#include "core/config/gate_settings.h"
#include "core/launchd/login_agent_status.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/main_loop.h"

namespace holdenmere {

// The rules around opening the desktop app quietly at the end of a login pass.
struct OpenAtLogin {
    // Passed to the instance the pass opens, so that it knows to stay quiet.
    static constexpr std::string_view argument = "--opened-at-login";

    static bool shouldOpenApp(const GateSettings& settings, bool otherInstanceRunning) {
        return settings.openAppAtLogin && !otherInstanceRunning;
    }
    static bool openedQuietly(const std::vector<std::string>& arguments);
    // The arguments without "--opened-at-login", for the option matching:
    // an instance opened by the pass is the desktop app, opened quietly,
    // not an unknown option.
    static std::vector<std::string> withoutOpenedAtLogin(const std::vector<std::string>& arguments);

    // The welcome window switches the login agent on only while it has never
    // been set up; an agent the user installed and then switched off stays off.
    static bool shouldEnableAfterWelcome(HoldenmereLoginAgentStatus status) {
        return status == HoldenmereLoginAgentStatus::notInstalled;
    }
    // The line under the open-at-login switch in the settings.
    static std::string_view settingsDetail(HoldenmereLoginAgentStatus loginAgent, bool menuBarMode);
    // Shown beside the managed apps when the login agent will not run at the
    // next login; nothing when it will.
    static std::optional<std::string_view> offWarning(HoldenmereLoginAgentStatus status);

    // How long the pass waits for the desktop app to be opened.
    static constexpr double kOpenTimeLimit = 20.0;

    // Whether a process of Holdenmere's executable started with these
    // arguments is the desktop app, rather than a headless run such as a
    // login pass or an audit.
    static bool isDesktopApp(const std::vector<std::string>& arguments);

    // Run at the end of a login pass: opens the desktop app quietly (not
    // activated, a new instance, with "--opened-at-login") when the settings
    // ask for it and no other process is the desktop app already. `bundle`
    // is the bundle the running executable lives in and `ownProcess` this
    // process's id. Waits for the answer at most 20 s, in slices of
    // `mainLoop`. Returns the line to log, without the "[Holdenmere] " tag;
    // nothing when the settings do not ask.
    static std::optional<std::string> openHoldenmereIfRequested(const GateSettings& settings,
                                                                const std::optional<Bundle>& bundle, int ownProcess,
                                                                AppRunning& apps, Clock& clock, MainLoop& mainLoop);
};

}  // namespace holdenmere
