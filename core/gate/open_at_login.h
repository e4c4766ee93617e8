#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "core/config/gate_settings.h"

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
};

}  // namespace holdenmere
