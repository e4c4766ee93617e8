// The startup-sources step's re-assert: held items that launchd switched
// back on are switched off again.
#include <algorithm>

#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";
constexpr double kStepBase = 30;
constexpr double kStepPerItem = 25;

// Every name an item goes by in "restoreOptOuts": its handle, its owner's
// bundle identifier, or its inventory row's "{source}:{handle}".
bool isOptedOut(const HeldStartupItem& item, const std::vector<std::string>& optOuts) {
    return std::any_of(optOuts.begin(), optOuts.end(), [&](const std::string& identifier) {
        return identifier == item.handle || identifier == item.ownerBundleIdentifier ||
               identifier == std::string(rawValue(item.source)) + ":" + item.handle;
    });
}

}  // namespace

std::vector<HeldStartupItem> LoginOwnership::startupOptOuts(const HoldenmereConfig& config) {
    std::vector<HeldStartupItem> items;
    for (const auto& item : config.heldStartup) {
        if (!isOptedOut(item, config.restoreOptOuts)) items.push_back(item);
    }
    return items;
}

double LoginOwnership::startupStepBudget(const std::vector<HeldStartupItem>& optOuts) {
    return kStepBase + kStepPerItem * static_cast<double>(optOuts.size());
}

std::string LoginOwnership::countsLine(const std::vector<HeldStartupItem>& optOuts, const StartupSourcesTally& tally) {
    const auto otherSources = std::count_if(optOuts.begin(), optOuts.end(), [](const HeldStartupItem& item) {
        return item.source != StartupSource::launchdJob;
    });
    std::string line = "re_assert_failed=" + std::to_string(tally.reassertFailed) +
                       " re_assert_skipped=" + std::to_string(tally.reassertSkipped + otherSources) +
                       " gracefully_quit=" + std::to_string(tally.gracefullyQuit);
    if (tally.configUnreadable) line += " config=unreadable";
    return line;
}

LoginOwnership::StartupSourcesResult LoginOwnership::startupSourcesPass(StartupChangeEngine& engine) {
    StartupSourcesResult result;
    result.optOuts = startupOptOuts(engine.config());
    using Status = StartupChangeOutcome::Status;
    for (const auto& item : result.optOuts) {
        if (item.source != StartupSource::launchdJob) {
            result.lines.push_back("skipped: " + item.name + kDash + "this build cannot re-assert held " +
                                   std::string(rawValue(item.source)) + " items");
            continue;
        }
        // Its recovery entry is the held item itself, already saved.
        const auto outcome = engine.reassertJob(item);
        result.reasserted.emplace_back(item, outcome);
        switch (outcome.status) {
            case Status::unchanged:
                break;
            case Status::changed:
                result.lines.push_back("re-asserted: " + item.name + kDash + item.handle +
                                       " was switched on again; switched off again");
                break;
            case Status::notChanged:
                ++result.tally.reassertSkipped;
                result.lines.push_back("skipped: " + item.name + kDash + item.handle + " was not re-checked: " +
                                       outcome.reason);
                break;
            case Status::unconfirmed:
            case Status::failed:
                ++result.tally.reassertFailed;
                result.lines.push_back(item.name + kDash + item.handle +
                                       " is switched on again and could NOT be switched off: " + outcome.reason);
                break;
        }
    }
    return result;
}

std::vector<LaunchRecord> LoginOwnership::StartupSourcesResult::records(Date now) const {
    std::vector<LaunchRecord> result;
    for (const auto& [item, outcome] : reasserted) {
        LaunchRecord record;
        record.bundleIdentifier = item.handle;
        record.name = item.name;
        record.timestamp = now;
        switch (outcome.status) {
            case StartupChangeOutcome::Status::unchanged:
                record.outcome = LaunchOutcome::disabled;
                record.detail = "held off; still off at login";
                break;
            case StartupChangeOutcome::Status::changed:
                record.outcome = LaunchOutcome::disabled;
                record.detail = "switched on again since the last login; switched off again";
                break;
            case StartupChangeOutcome::Status::unconfirmed:
            case StartupChangeOutcome::Status::failed:
            case StartupChangeOutcome::Status::notChanged:
                record.outcome = LaunchOutcome::failed;
                record.detail = outcome.reason;
                break;
        }
        result.push_back(std::move(record));
    }
    return result;
}

}  // namespace holdenmere
