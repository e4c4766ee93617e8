#include "core/launchd/launchctl_running.h"

#include <unistd.h>

namespace holdenmere {

std::string launchdDomain() { return "gui/" + std::to_string(::getuid()); }

std::string launchdServiceTarget(std::string_view label) {
    std::string target = launchdDomain();
    target += '/';
    target += label;
    return target;
}

}  // namespace holdenmere
