#include "core/discovery/settings_opening.h"

#include "core/support/child_process.h"

namespace holdenmere {

std::optional<std::string> SystemSettingsOpening::open(std::string_view url) {
#if defined(__APPLE__)
    ChildProcessRequest request;
    request.executable = "/usr/bin/open";
    request.arguments = {std::string(url)};
    request.timeout = std::chrono::seconds(10);
    const auto result = runChildProcess(request);
    if (result.succeeded()) return std::nullopt;
    return "System Settings could not be opened: " + result.describe(request.timeout);
#else
    return "System Settings cannot be opened on this system; open " + std::string(url) + " on the Mac";
#endif
}

}  // namespace holdenmere
