#pragma once

#include <string>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"

namespace holdenmere::testing {

// A managed app with the defaults of a freshly added one.
inline ManagedApp managedApp(const std::string& bundleIdentifier, const std::string& name,
                             const std::string& path = "/A.app") {
    ManagedApp app;
    app.bundleIdentifier = bundleIdentifier;
    app.name = name;
    app.path = path;
    return app;
}

// One app's record of a pass, named after its bundle identifier.
inline LaunchRecord launchRecord(const std::string& bundleIdentifier, LaunchOutcome outcome) {
    return LaunchRecord{bundleIdentifier, bundleIdentifier, outcome, Date{0}, ""};
}

}  // namespace holdenmere::testing
