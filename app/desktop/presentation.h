#pragma once

#include <QString>

#include <array>

#include "core/config/launch_record.h"
#include "core/support/date.h"

// Words and numbers as the window shows them.
namespace holdenmere::desktop::presentation {

// "0.4 s", "12 s", "2 min", "3 min 30 s", "1 h 5 min".
QString duration(double seconds);

// "Opened", "Already running", "Not found", "Not opened", "Failed".
QString outcomeTitle(LaunchOutcome outcome);

// When a pass ran, relative to `now` in local time: "Today 08:15",
// "Yesterday 22:40", "Mon 2 Mar 08:15", "2 Mar 2025 08:15" (another year).
QString passTime(Date when, Date now);

// "3 opened, 1 failed": the outcomes of one pass in the order of
// LaunchOutcome, counts indexed alike; "nothing to open" for none.
QString outcomeCounts(const std::array<int, 5>& counts);

}  // namespace holdenmere::desktop::presentation
