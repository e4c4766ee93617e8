#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/support/date.h"
#include "core/support/json.h"

namespace holdenmere {

// What happened to one managed app in one login pass.
enum class LaunchOutcome { launched, alreadyRunning, missing, disabled, failed };

inline constexpr std::array kAllLaunchOutcomes = {
    LaunchOutcome::launched, LaunchOutcome::alreadyRunning, LaunchOutcome::missing,
    LaunchOutcome::disabled, LaunchOutcome::failed,
};

std::string_view rawValue(LaunchOutcome outcome);
std::optional<LaunchOutcome> launchOutcomeFromRaw(std::string_view raw);

// One app's outcome in one login pass; history.json is an array of these.
struct LaunchRecord {
    std::string bundleIdentifier;
    std::string name;
    LaunchOutcome outcome = LaunchOutcome::launched;
    Date timestamp;
    std::string detail;

    friend bool operator==(const LaunchRecord&, const LaunchRecord&) = default;
};

// Whether the app's launch failed among these records (one pass's).
bool launchFailed(const std::vector<LaunchRecord>& records, std::string_view bundleIdentifier);

json::Value encode(const LaunchRecord& record);
// Throws json::DecodeError (an unknown outcome included).
LaunchRecord decodeLaunchRecord(const json::Value& value, const std::string& path);

}  // namespace holdenmere
