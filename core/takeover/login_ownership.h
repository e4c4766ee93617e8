#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"

namespace holdenmere {

// Makes Holdenmere the one that starts the managed apps at login, and keeps
// stored configurations up to date.
struct LoginOwnership {
    // A stored configuration brought up to date.
    struct Migration {
        HoldenmereConfig config;
        std::vector<ManagedApp> movedToBlocked;
        std::vector<ManagedApp> droppedSystemDaemons;
        std::vector<ManagedApp> clampedDelays;
        std::vector<std::string> logLines;

        // Whether anything changed, so that the caller saves.
        bool changed() const {
            return !movedToBlocked.empty() || !droppedSystemDaemons.empty() || !clampedDelays.empty();
        }
    };

    // Run at the start of every pass, before the network wait: managed apps
    // switched off in the app become blocked apps, apps that a system
    // LaunchDaemon runs leave the managed list, and stored delays outside
    // 0 ... 40 s are clamped into that range. One line per change.
    static Migration migrate(const HoldenmereConfig& config, const std::set<std::string>& systemDaemonAppPaths);

    // "." and ".." resolved and a trailing slash dropped, without touching
    // the file system: "/Applications/./Mail.app/" -> "/Applications/Mail.app".
    static std::string standardizedPath(std::string_view path);
};

}  // namespace holdenmere
