#include "core/takeover/startup_sources_pass.h"

#include <algorithm>

#include "core/takeover/login_ownership.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_switch.h"

// The startup-sources step's re-assert: held items that macOS switched back
// on are switched off again, and apps held to be quit after login are quit
// when loginwindow reopened them.
namespace holdenmere {
namespace {

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

std::string LoginOwnership::countsLine(const std::vector<HeldStartupItem>& /*optOuts*/,
                                       const StartupSourcesTally& tally) {
    std::string line = "re_assert_failed=" + std::to_string(tally.reassertFailed) +
                       " re_assert_skipped=" + std::to_string(tally.reassertSkipped) +
                       " gracefully_quit=" + std::to_string(tally.gracefullyQuit);
    if (tally.configUnreadable) line += " config=unreadable";
    return line;
}

namespace {

using Status = StartupChangeOutcome::Status;

// One held item switched off again where macOS switched it back on: the
// line and the count of its outcome.
void reasserted(LoginOwnership::StartupSourcesResult& result, const HeldStartupItem& item,
                const StartupChangeOutcome& outcome) {
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

bool isManaged(const HoldenmereConfig& config, const std::string& bundleIdentifier) {
    return std::any_of(config.apps.begin(), config.apps.end(),
                       [&](const ManagedApp& app) { return app.bundleIdentifier == bundleIdentifier; });
}

// Quits, gracefully, an app the user asked to be quit after login when
// loginwindow reopened it at this login. An app Holdenmere opens itself,
// or one loginwindow did not reopen, is left running.
void quitIfReopened(LoginOwnership::StartupSourcesResult& result, StartupChangeEngine& engine,
                    const HeldStartupItem& item, const std::optional<SessionRestoreScanner::Read>& restore) {
    const StartupSwitches& switches = *engine.switches();
    if (isManaged(engine.config(), item.handle)) {
        result.lines.push_back("skipped: " + item.name + kDash + "Holdenmere opens it at login, so it is not quit");
        return;
    }
    if (const auto* failure = std::get_if<std::string>(&*restore)) {
        ++result.tally.reassertSkipped;
        result.lines.push_back("skipped: " + item.name + kDash + "not quit: " + *failure);
        return;
    }
    if (!std::get<SessionRestore>(*restore).lists(item.handle)) return;
    const auto outcome = engine.quitRestoredApp(*switches.apps, item);
    switch (outcome.status) {
        case Status::unchanged:
            break;
        case Status::changed:
            ++result.tally.gracefullyQuit;
            result.lines.push_back("quit: " + item.name + kDash + "reopened by loginwindow; quit as you asked");
            break;
        case Status::notChanged:
            ++result.tally.reassertSkipped;
            result.lines.push_back("skipped: " + item.name + kDash + "not quit: " + outcome.reason);
            break;
        case Status::unconfirmed:
        case Status::failed:
            ++result.tally.reassertFailed;
            result.lines.push_back(item.name + kDash + "reopened by loginwindow and could NOT be quit: " +
                                   outcome.reason);
            break;
    }
}

}  // namespace

LoginOwnership::StartupSourcesResult LoginOwnership::startupSourcesPass(StartupChangeEngine& engine) {
    StartupSourcesResult result;
    result.optOuts = startupOptOuts(engine.config());
    const StartupSwitches* switches = engine.switches();
    // What loginwindow reopened, read once and only when an app is held.
    std::optional<SessionRestoreScanner::Read> restore;
    for (const auto& item : result.optOuts) {
        if (item.source == StartupSource::launchdJob) {
            // Its recovery entry is the held item itself, already saved.
            reasserted(result, item, engine.reassertJob(item));
            continue;
        }
        StartupSwitch* source = switches != nullptr ? switches->find(item.source) : nullptr;
        if (source != nullptr) {
            reasserted(result, item, engine.reassertItem(*source, item));
        } else if (item.source == StartupSource::sessionRestore && switches != nullptr && switches->apps != nullptr &&
                   switches->sessionRestore) {
            if (!restore) restore = switches->sessionRestore();
            quitIfReopened(result, engine, item, restore);
        } else {
            ++result.tally.reassertSkipped;
            result.lines.push_back("skipped: " + item.name + kDash + "this build cannot re-assert held " +
                                   std::string(rawValue(item.source)) + " items");
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
