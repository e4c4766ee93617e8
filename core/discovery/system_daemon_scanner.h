#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "core/support/plist.h"

namespace holdenmere {

// The apps that system LaunchDaemons run: launchd starts those itself, as
// root, before anyone logs in, so the login pass can never gate them.
struct SystemDaemonScanner {
    // One daemon plist that runs a program.
    struct Daemon {
        std::string label;  // "Label", or the file name without its extension
        std::string program;
        std::string plistPath;
        bool disabledInPlist = false;

        friend bool operator==(const Daemon&, const Daemon&) = default;
    };

    std::filesystem::path folder = "/Library/LaunchDaemons";

    // The outermost app bundle of every daemon's program, from the property
    // lists in the folder. Unreadable folders and plists are passed over.
    std::set<std::string> appPaths() const;

    // Every daemon of the folder that names a program, sorted by plist path.
    // A folder that cannot be listed (not a missing one) and plists that
    // cannot be read are named in `incomplete`.
    std::vector<Daemon> daemons(std::vector<std::string>& incomplete) const;

    // The program a job runs: "Program", else the first of "ProgramArguments".
    static std::optional<std::string> programPath(const plist::Value& job);
};

}  // namespace holdenmere
