#pragma once

#include <filesystem>
#include <optional>
#include <set>
#include <string>

#include "core/support/plist.h"

namespace holdenmere {

// The apps that system LaunchDaemons run: launchd starts those itself, as
// root, before anyone logs in, so the login pass can never gate them.
struct SystemDaemonScanner {
    std::filesystem::path folder = "/Library/LaunchDaemons";

    // The outermost app bundle of every daemon's program, from the property
    // lists in the folder. Unreadable folders and plists are passed over.
    std::set<std::string> appPaths() const;

    // The program a job runs: "Program", else the first of "ProgramArguments".
    static std::optional<std::string> programPath(const plist::Value& job);
};

}  // namespace holdenmere
