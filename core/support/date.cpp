#include "core/support/date.h"

#include <chrono>

namespace holdenmere {

Date Date::now() {
    using namespace std::chrono;
    const auto sinceEpoch = duration_cast<duration<double>>(system_clock::now().time_since_epoch());
    return fromUnixTime(sinceEpoch.count());
}

}  // namespace holdenmere
