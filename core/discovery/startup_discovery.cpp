#include "core/discovery/startup_discovery.h"

#include "core/support/bundle.h"

namespace holdenmere {

std::optional<std::string> StartupDiscovery::outermostAppPath(std::string_view path) {
    std::optional<std::string> outermost;
    std::filesystem::path current(path);
    while (current.has_relative_path()) {
        if (current.extension() == ".app") outermost = current.string();
        auto parent = current.parent_path();
        if (parent == current) break;
        current = parent;
    }
    return outermost;
}

std::optional<std::string> StartupDiscovery::executableName(const std::filesystem::path& appPath) {
    auto info = Bundle{appPath}.infoDictionary();
    if (!info) return std::nullopt;
    return info->stringAt("CFBundleExecutable");
}

}  // namespace holdenmere
