#include "core/support/date.h"

#include <chrono>
#include <cmath>
#include <ctime>

namespace holdenmere {

Date Date::now() {
    using namespace std::chrono;
    const auto sinceEpoch = duration_cast<duration<double>>(system_clock::now().time_since_epoch());
    return fromUnixTime(sinceEpoch.count());
}

std::string Date::iso8601() const {
    const auto seconds = static_cast<std::time_t>(std::floor(unixTime()));
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    char buffer[32];
    std::strftime(buffer, sizeof buffer, "%Y-%m-%dT%H:%M:%SZ", &parts);
    return buffer;
}

}  // namespace holdenmere
