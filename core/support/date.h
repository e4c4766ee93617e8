#pragma once

#include <compare>
#include <string>

namespace holdenmere {

// A moment in time stored the way the configuration and history files keep it:
// seconds, with fraction, since 2001-01-01 00:00:00 UTC.
struct Date {
    // Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC.
    static constexpr double kReferenceFromUnixEpoch = 978307200.0;

    double secondsSinceReferenceDate = 0;

    static Date now();
    static Date fromUnixTime(double seconds) { return Date{seconds - kReferenceFromUnixEpoch}; }
    double unixTime() const { return secondsSinceReferenceDate + kReferenceFromUnixEpoch; }

    Date adding(double seconds) const { return Date{secondsSinceReferenceDate + seconds}; }

    // ISO 8601 in UTC to the whole second: "2026-03-01T08:15:02Z".
    std::string iso8601() const;

    friend auto operator<=>(const Date&, const Date&) = default;
};

}  // namespace holdenmere
