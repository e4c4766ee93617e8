#include "core/config/login_passes.h"

#include <algorithm>
#include <cmath>

namespace holdenmere {

Date LoginPass::started() const {
    Date earliest = records.empty() ? Date{} : records.front().timestamp;
    for (const LaunchRecord& record : records) earliest = std::min(earliest, record.timestamp);
    return earliest;
}

std::array<int, 5> LoginPass::counts() const {
    std::array<int, 5> result{};
    for (const LaunchRecord& record : records) ++result[static_cast<std::size_t>(record.outcome)];
    return result;
}

bool LoginPass::allWell() const {
    return std::all_of(records.begin(), records.end(), [](const LaunchRecord& record) {
        return record.outcome == LaunchOutcome::launched || record.outcome == LaunchOutcome::alreadyRunning;
    });
}

std::vector<LoginPass> LoginPasses::group(const std::vector<LaunchRecord>& newestFirst) {
    std::vector<LoginPass> passes;
    for (const LaunchRecord& record : newestFirst) {
        bool startsNew = passes.empty();
        if (!startsNew) {
            const LoginPass& current = passes.back();
            const bool repeated =
                std::any_of(current.records.begin(), current.records.end(), [&](const LaunchRecord& other) {
                    return other.bundleIdentifier == record.bundleIdentifier;
                });
            const double gap = std::fabs(record.timestamp.secondsSinceReferenceDate -
                                         current.records.back().timestamp.secondsSinceReferenceDate);
            startsNew = repeated || gap > kGapSeconds;
        }
        if (startsNew) passes.emplace_back();
        passes.back().records.push_back(record);
    }
    return passes;
}

}  // namespace holdenmere
