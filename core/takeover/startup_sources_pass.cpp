// The startup-sources step's re-assert: held items that launchd switched
// back on are switched off again.
#include <algorithm>
#include <exception>

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

LoginOwnership::StartupSourcesResult LoginOwnership::startupSourcesPass(const std::function<HoldenmereConfig()>& load,
                                                                        AgentTakeover& enforcer) {
    StartupSourcesResult result;
    HoldenmereConfig config;
    try {
        config = load();
    } catch (const std::exception& error) {
        result.tally.configUnreadable = true;
        result.lines.push_back(std::string("WARNING: could not read the config") + kDash + error.what() +
                               "; held startup items not re-checked");
        return result;
    }
    result.optOuts = startupOptOuts(config);

    // launchd's disabled list once for all items; nothing is switched when
    // it cannot be read, since an enabled label cannot be told apart then.
    std::optional<std::set<std::string>> disabled;
    bool asked = false;
    for (const auto& item : result.optOuts) {
        if (item.source != StartupSource::launchdJob) {
            result.lines.push_back("skipped: " + item.name + kDash + "this build cannot re-assert held " +
                                   std::string(rawValue(item.source)) + " items");
            continue;
        }
        if (!asked) {
            disabled = enforcer.disabledLabels();
            asked = true;
        }
        if (!disabled) {
            ++result.tally.reassertSkipped;
            result.lines.push_back("skipped: " + item.name + kDash + "launchd's disabled list could not be read, so " +
                                   item.handle + " was not re-checked");
            continue;
        }
        if (disabled->count(item.handle) != 0) continue;
        // Its recovery entry is the held item itself, already saved.
        const auto outcome = enforcer.takeOver(item.handle);
        if (outcome.kind == AgentTakeover::Result::Kind::failed) {
            ++result.tally.reassertFailed;
            result.lines.push_back(item.name + kDash + item.handle +
                                   " is switched on again and could NOT be switched off: " + outcome.reason);
        } else if (outcome.kind == AgentTakeover::Result::Kind::switchedOff) {
            result.lines.push_back("re-asserted: " + item.name + kDash + item.handle +
                                   " was switched on again; switched off again");
        }
    }
    return result;
}

}  // namespace holdenmere
