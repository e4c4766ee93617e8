#include "core/config/launch_record.h"

#include <algorithm>

namespace holdenmere {

std::string_view rawValue(LaunchOutcome outcome) {
    switch (outcome) {
        case LaunchOutcome::launched: return "launched";
        case LaunchOutcome::alreadyRunning: return "alreadyRunning";
        case LaunchOutcome::missing: return "missing";
        case LaunchOutcome::disabled: return "disabled";
        case LaunchOutcome::failed: return "failed";
    }
    return "";
}

std::optional<LaunchOutcome> launchOutcomeFromRaw(std::string_view raw) {
    for (auto outcome : kAllLaunchOutcomes) {
        if (rawValue(outcome) == raw) return outcome;
    }
    return std::nullopt;
}

json::Value encode(const LaunchRecord& record) {
    return json::Value{
        {"bundleIdentifier", record.bundleIdentifier},
        {"name", record.name},
        {"outcome", std::string(rawValue(record.outcome))},
        {"timestamp", record.timestamp.secondsSinceReferenceDate},
        {"detail", record.detail},
    };
}

LaunchRecord decodeLaunchRecord(const json::Value& value, const std::string& path) {
    json::ObjectReader reader(value, path);
    LaunchRecord record;
    record.bundleIdentifier = reader.string("bundleIdentifier");
    record.name = reader.string("name");
    std::string outcome = reader.string("outcome");
    auto decoded = launchOutcomeFromRaw(outcome);
    if (!decoded) throw json::DecodeError("\"" + reader.pathOf("outcome") + "\": \"" + outcome + "\" is not an outcome");
    record.outcome = *decoded;
    record.timestamp = reader.date("timestamp");
    record.detail = reader.string("detail");
    return record;
}

bool launchFailed(const std::vector<LaunchRecord>& records, std::string_view bundleIdentifier) {
    return std::any_of(records.begin(), records.end(), [&](const LaunchRecord& record) {
        return record.bundleIdentifier == bundleIdentifier && record.outcome == LaunchOutcome::failed;
    });
}

}  // namespace holdenmere
