#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace holdenmere {

// Stateless rules that tie launchd jobs and program paths to the apps that
// contain them.
struct StartupDiscovery {
    // The shallowest ".app" bundle on the path (the path itself included, the
    // root not): "/Applications/Foo.app/Contents/Library/LoginItems/Bar.app/
    // Contents/MacOS/Bar" gives "/Applications/Foo.app".
    static std::optional<std::string> outermostAppPath(std::string_view path);
    // CFBundleExecutable of the app's Info.plist (XML or binary); nothing on
    // any read or parse failure, or when the value is not a string.
    static std::optional<std::string> executableName(const std::filesystem::path& appPath);
};

}  // namespace holdenmere
