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

    // The apps the daemons run, and what could not be read: an app that an
    // unreadable plist runs cannot be ruled out.
    struct Apps {
        std::set<std::string> paths;  // outermost app bundles of the daemons' programs
        // The folder when it could not be listed, and each plist that could
        // not be read, as the texts of `daemons`.
        std::vector<std::string> unreadable;

        bool complete() const { return unreadable.empty(); }
        friend bool operator==(const Apps&, const Apps&) = default;
    };

    std::filesystem::path folder = "/Library/LaunchDaemons";

    // The outermost app bundle of every daemon's program, from the property
    // lists in the folder, and what of the folder could not be read.
    [[nodiscard]] Apps appPaths() const;

    // Every daemon of the folder that names a program, sorted by plist path.
    // A folder that cannot be listed (not a missing one) and plists that
    // cannot be read are named in `incomplete`.
    std::vector<Daemon> daemons(std::vector<std::string>& incomplete) const;

    // The program a job runs: "Program", else the first of "ProgramArguments".
    static std::optional<std::string> programPath(const plist::Value& job);
};

}  // namespace holdenmere
