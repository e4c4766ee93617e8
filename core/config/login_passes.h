#pragma once

#include <array>
#include <vector>

#include "core/config/launch_record.h"

namespace holdenmere {

// The records of one login pass, as the history keeps them.
struct LoginPass {
    std::vector<LaunchRecord> records;  // in the order the pass recorded them

    // The earliest record's time.
    Date started() const;
    // How many records had each outcome, indexed in the order of LaunchOutcome.
    std::array<int, 5> counts() const;
    // Every app opened or was already running.
    bool allWell() const;
};

// Splits the history (newest first, each pass's records together in launch
// order) back into passes, newest first. The history does not mark where a
// pass ends; a pass names each app once and records all of them within a
// few minutes, so a repeated app or a gap of more than kGapSeconds between
// neighbours starts the next (older) pass.
struct LoginPasses {
    static constexpr double kGapSeconds = 300.0;

    static std::vector<LoginPass> group(const std::vector<LaunchRecord>& newestFirst);
};

}  // namespace holdenmere
