#include "core/takeover/startup_change_engine.h"

#include <algorithm>
#include <exception>
#include <map>
#include <memory>

#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/startup_discovery.h"
#include "core/support/files.h"
#include "core/support/log_text.h"

namespace holdenmere {
namespace {

using Status = StartupChangeOutcome::Status;

// Whether launchd runs the job in the user's session, by its marks and its
// plist's "Disabled" and "LimitLoadToSessionType" (a plist that cannot be
// read goes by the marks alone).
bool jobRuns(const std::string& label, const std::optional<std::string>& plistPath,
             const std::map<std::string, bool>& marks) {
    auto mark = marks.find(label);
    if (mark != marks.end() && mark->second) return false;
    if (!plistPath || plistPath->empty()) return true;
    // A plist that cannot be read cannot show the job is off: it may run.
    const auto job = plist::tryReadFile(*plistPath);
    if (!job) return true;
    auto agent = LaunchAgentScanner::agentFrom(*job, *plistPath);
    if (!agent) return true;
    agent->label = label;
    return LaunchAgentScanner::runsInSession(*agent, marks);
}

}  // namespace

std::string StartupChangeOutcome::line() const { return reason.empty() ? subject : subject + ": " + reason; }

StartupChangeEngine::StartupChangeEngine(StartupTransaction& transaction, LaunchctlRunning& launchctl,
                                         ScriptRunning& scripts, const Signal* cancellation, FileExists fileExists)
    : transaction_(transaction),
      launchctl_(launchctl),
      scripts_(scripts),
      auditor_(scripts),
      cancellation_(cancellation),
      fileExists_(std::move(fileExists)) {
    if (!fileExists_) fileExists_ = [](const std::string& path) { return files::exists(path); };
}

bool StartupChangeEngine::stopped() const { return cancellation_ != nullptr && cancellation_->isRaised(); }

bool StartupChangeEngine::isOwnLabel(std::string_view label) {
    return StartupDiscovery::ownLaunchdLabels.count(label) != 0 || label == StartupDiscovery::ownBundleIdentifier;
}

bool StartupChangeEngine::isOwnBundle(std::string_view bundleIdentifier) {
    return bundleIdentifier == StartupDiscovery::ownBundleIdentifier;
}

// The transaction holds the startup lock throughout: still wanted, read
// afresh, recorded first, changed, confirmed.
StartupChangeOutcome StartupChangeEngine::run(const StartupStep& step) {
    StartupChangeOutcome outcome;
    outcome.subject = step.subject;
    outcome.recorded = step.alreadyRecorded;
    if (auto reason = reasonNotToGoAhead(step)) {
        outcome.reason = std::move(*reason);
        return outcome;
    }
    if (endsAtFreshRead(step, outcome)) return outcome;
    if (!recordFirst(step, outcome)) return outcome;

    const std::optional<std::string> failure = step.apply();
    const std::optional<bool> confirmed = step.confirm ? step.confirm() : std::optional<bool>(!failure);
    settleConfirmed(step, failure, confirmed, outcome);
    return outcome;
}

std::optional<std::string> StartupChangeEngine::reasonNotToGoAhead(const StartupStep& step) {
    if (stopped()) return std::string(kOutOfTime);
    if (auto reason = unwanted(step.purpose, step.forApp)) return reason;
    // A pass that decided before this give-back must not take the item
    // again: the generation is raised before the item goes back.
    if (step.purpose == StartupStep::Purpose::giveBack) {
        if (auto failure = noteGiveBack()) {
            return "the give-back could not be noted in the configuration (" + *failure + "), so nothing was changed";
        }
    }
    return std::nullopt;
}

bool StartupChangeEngine::endsAtFreshRead(const StartupStep& step, StartupChangeOutcome& outcome) {
    if (!step.isDone) return false;
    const auto done = step.isDone();
    if (!done) {
        outcome.reason = step.unreadableBefore;
        return true;
    }
    if (!*done) return false;
    outcome.status = Status::unchanged;
    if (step.whenDone) {
        if (auto failure = transaction_.commit(step.whenDone)) {
            outcome.ledgerFailure = *failure;
        } else {
            outcome.recorded = false;
        }
    }
    return true;
}

bool StartupChangeEngine::recordFirst(const StartupStep& step, StartupChangeOutcome& outcome) {
    if (!step.record) return true;
    if (auto failure = transaction_.commit(step.record)) {
        const std::string_view text = step.recordNotSaved.empty() ? kRecordNotSavedElsewhere : step.recordNotSaved;
        outcome.reason = std::string(text) + " (" + *failure + ")";
        return false;
    }
    outcome.recorded = true;
    return true;
}

void StartupChangeEngine::settleConfirmed(const StartupStep& step, const std::optional<std::string>& failure,
                                          std::optional<bool> confirmed, StartupChangeOutcome& outcome) {
    auto commitAfter = [&](const StartupStep::Change& change, bool recordedAfter) {
        if (!change) return;
        if (auto saveFailure = transaction_.commit(change)) {
            outcome.ledgerFailure = *saveFailure;
        } else {
            outcome.recorded = recordedAfter;
        }
    };
    if (confirmed && *confirmed) {
        outcome.status = Status::changed;
        commitAfter(step.whenDone, false);
    } else if (!confirmed) {
        outcome.status = Status::unconfirmed;
        outcome.reason = failure ? *failure + "; " + step.unreadableAfter : step.unreadableAfter;
        commitAfter(step.whenUnconfirmed, outcome.recorded);
    } else {
        outcome.status = Status::failed;
        outcome.reason = failure ? *failure : step.notTaken;
        commitAfter(step.whenNotTaken, false);
    }
}

std::optional<std::string> StartupChangeEngine::noteGiveBack() {
    if (giveBackNoted_) return std::nullopt;
    // Set, not added: the transaction applies its changes again to every
    // fresh read it commits on.
    const std::uint64_t next = config().giveBackGeneration + 1;
    if (auto failure = transaction_.commit([next](HoldenmereConfig& fresh) {
            fresh.giveBackGeneration = std::max(fresh.giveBackGeneration, next);
        })) {
        return failure;
    }
    giveBackNoted_ = true;
    return std::nullopt;
}

std::optional<std::string> StartupChangeEngine::unwanted(StartupStep::Purpose purpose, const std::string& forApp) {
    using Purpose = StartupStep::Purpose;
    if (!decidedUnder_ || purpose == Purpose::giveBack || purpose == Purpose::change) return std::nullopt;
    if (superseded_) return std::string(kGivenBackSince);
    if (auto failure = transaction_.refresh()) {
        return "the configuration could not be read again (" + *failure + "), so nothing was changed";
    }
    const HoldenmereConfig& fresh = config();
    if (fresh.giveBackGeneration != *decidedUnder_) {
        superseded_ = true;
        return std::string(kGivenBackSince);
    }
    if (purpose != Purpose::takeOver) return std::nullopt;
    if (fresh.startupConsent != StartupConsent::granted) return std::string(kConsentWithdrawn);
    if (forApp.empty()) return std::nullopt;
    auto sameApp = [&](const auto& app) { return app.bundleIdentifier == forApp; };
    if (std::find(fresh.leftToMacOS.begin(), fresh.leftToMacOS.end(), forApp) != fresh.leftToMacOS.end()) {
        return std::string(kLeftToMacOS);
    }
    if (std::none_of(fresh.apps.begin(), fresh.apps.end(), sameApp) &&
        std::none_of(fresh.blockedApps.begin(), fresh.blockedApps.end(), sameApp)) {
        return std::string(kNoLongerManaged);
    }
    return std::nullopt;
}

StartupChangeOutcome StartupChangeEngine::refused(std::string subject, std::string_view reason) const {
    StartupChangeOutcome outcome;
    outcome.subject = std::move(subject);
    outcome.reason = std::string(reason);
    return outcome;
}

std::optional<StartupChangeOutcome> StartupChangeEngine::outsideTier(const std::string& subject,
                                                                     const SafetyTier& tier, bool confirmed) const {
    if (auto reason = tierRefusal(tier, confirmed)) return refused(subject, *reason);
    return std::nullopt;
}

StartupStep::ReadState StartupChangeEngine::labelDisabled(const std::string& label, bool wanted) {
    return [this, label, wanted]() -> std::optional<bool> {
        const auto disabled = launchctl_.disabledLabels();
        if (!disabled) return std::nullopt;
        return (disabled->count(label) != 0) == wanted;
    };
}

StartupStep::ReadState StartupChangeEngine::switchedOnAnyway() {
    return [this]() -> std::optional<bool> {
        if (!launchctl_.disabledLabels()) return std::nullopt;
        return false;
    };
}

StartupStep::ReadState StartupChangeEngine::loginItemListed(const std::string& path, bool wanted) const {
    return [this, path, wanted]() -> std::optional<bool> {
        const auto items = auditor_.readLoginItems(/*readingHidden=*/false);
        if (!items) return std::nullopt;
        const bool listed = std::any_of(items->begin(), items->end(),
                                        [&](const LoginItemsAuditor::LoginItem& item) { return item.path == path; });
        return listed == wanted;
    };
}

std::optional<std::string> StartupChangeEngine::launchctlRun(const std::vector<std::string>& arguments) {
    const auto status = launchctl_.run(arguments);
    if (status == 0) return std::nullopt;
    return "launchctl " + arguments.front() + " failed (exit " + std::to_string(status) + ")";
}

std::optional<std::vector<LoginItemsAuditor::LoginItem>> StartupChangeEngine::loginItems() const {
    return auditor_.readLoginItems(/*readingHidden=*/true);
}

StartupChangeOutcome StartupChangeEngine::removeLoginItem(const App& app, const std::string& path) {
    const std::string subject = app.name + kDash + "Login Item " + path;
    if (isOwnBundle(app.bundleIdentifier)) return refused(subject, kOwnItem);
    if (stopped()) return refused(subject, kOutOfTime);
    // Read afresh: the hidden flag recorded is the one the user has now.
    const auto items = loginItems();
    if (!items) return refused(subject, kLoginItemsUnreadable);
    auto item = std::find_if(items->begin(), items->end(),
                             [&](const LoginItemsAuditor::LoginItem& candidate) { return candidate.path == path; });
    if (item == items->end()) {
        StartupChangeOutcome outcome;
        outcome.status = Status::unchanged;
        outcome.subject = subject;
        outcome.reason = "no longer in Login Items";
        return outcome;
    }
    const RemovedLoginItem removed{item->path, item->hidden};
    const TakeoverRecord* before = config().takeover(app.bundleIdentifier);
    const bool knownBefore = before != nullptr && before->loginItem(path) != nullptr;

    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::takeOver;
    step.forApp = app.bundleIdentifier;
    step.recordNotSaved = kRecordNotSavedLoginItems;
    std::vector<std::string> listed;
    for (const auto& candidate : *items) listed.push_back(candidate.path);
    step.record = [app, removed, listed = std::move(listed)](HoldenmereConfig& config) {
        config.noteLoginItemsOrder(listed);
        config.recordLoginItem(app.bundleIdentifier, app.name, removed);
    };
    step.apply = [this, path]() -> std::optional<std::string> {
        if (!scripts_.run(LoginItemsAuditor::removeByPathScript(path))) return "System Events did not delete it";
        return std::nullopt;
    };
    step.confirm = loginItemListed(path, false);
    step.notTaken = "it is still in Login Items";
    step.unreadableAfter = std::string(kLoginItemsUnconfirmed);
    if (!knownBefore) {
        step.whenNotTaken = [app, path](HoldenmereConfig& config) { config.forgetLoginItem(app.bundleIdentifier, path); };
    }
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::giveBackLoginItem(const App& app, const RemovedLoginItem& item) {
    const std::string subject = app.name + kDash + "Login Item " + item.path + (item.hidden ? " (hidden)" : "");
    if (isOwnBundle(app.bundleIdentifier)) return refused(subject, kOwnItem);
    if (!fileExists_(item.path)) {
        StartupChangeOutcome outcome = refused(subject, "it no longer exists");
        outcome.status = Status::failed;
        outcome.recorded = true;
        return outcome;
    }
    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::giveBack;
    step.alreadyRecorded = true;
    step.isDone = loginItemListed(item.path, true);
    step.unreadableBefore = std::string(kLoginItemsUnreadable);
    step.apply = [this, item]() -> std::optional<std::string> {
        if (!scripts_.run(LoginItemsAuditor::addScript(item.path, item.hidden))) {
            return "System Events did not add it (is Holdenmere allowed to control System Events?)";
        }
        return std::nullopt;
    };
    step.confirm = loginItemListed(item.path, true);
    step.notTaken = "System Events did not add it";
    step.unreadableAfter = std::string(kLoginItemsUnconfirmed);
    // macOS starts the app again: a later pass must not take that Login Item
    // for one Holdenmere removed.
    step.whenDone = [app, item](HoldenmereConfig& config) {
        config.forgetLoginItem(app.bundleIdentifier, item.path);
        const TakeoverRecord* record = config.takeover(app.bundleIdentifier);
        if (record != nullptr && !record->loginItems.empty()) return;
        for (auto& managed : config.apps) {
            if (managed.bundleIdentifier == app.bundleIdentifier) managed.importedFromLoginItem = false;
        }
    };
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::takeOverAgent(const App& app, const std::string& label,
                                                        const std::string& plistPath, const SafetyTier& tier,
                                                        bool confirmed) {
    const std::string subject = app.name + kDash + "LaunchAgent " + label;
    if (isOwnLabel(label) || isOwnBundle(app.bundleIdentifier)) return refused(subject, kOwnItem);
    if (auto refusal = outsideTier(subject, tier, confirmed)) return *refusal;
    const TakeoverRecord* before = config().takeover(app.bundleIdentifier);
    const bool knownBefore =
        before != nullptr && std::any_of(before->agents.begin(), before->agents.end(),
                                         [&](const DisabledAgent& agent) { return agent.label == label; });

    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::takeOver;
    step.forApp = app.bundleIdentifier;
    step.recordNotSaved = kRecordNotSaved;
    step.isDone = labelDisabled(label, true);
    step.unreadableBefore = std::string(kDisabledListUnreadable);
    step.record = [app, label, plistPath](HoldenmereConfig& config) {
        config.recordAgent(app.bundleIdentifier, app.name, label, plistPath, /*inferred=*/false);
    };
    step.apply = [this, label] { return launchctlRun({"disable", launchdServiceTarget(label)}); };
    step.confirm = labelDisabled(label, true);
    step.notTaken = "LaunchAgent is still enabled in launchd";
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    step.whenUnconfirmed = [app, label, plistPath](HoldenmereConfig& config) {
        config.recordAgent(app.bundleIdentifier, app.name, label, plistPath, /*inferred=*/false);
        for (auto& agent : config.takeover(app.bundleIdentifier)->agents) {
            if (agent.label == label) agent.unconfirmed = true;
        }
    };
    if (!knownBefore) {
        step.whenNotTaken = [app, label](HoldenmereConfig& config) { config.forgetAgent(app.bundleIdentifier, label); };
    }
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::holdJob(HeldStartupItem item, const SafetyTier& tier, bool confirmed) {
    const std::string subject = item.name + kDash + item.handle;
    if (isOwnLabel(item.handle) || (item.ownerBundleIdentifier && isOwnBundle(*item.ownerBundleIdentifier))) {
        return refused(subject, kOwnItem);
    }
    if (auto refusal = outsideTier(subject, tier, confirmed)) return *refusal;
    if (stopped()) return refused(subject, kOutOfTime);
    // Read first: the state recorded is the one before anything changed.
    const auto marks = launchctl_.disabledMarks();
    if (!marks) return refused(subject, kDisabledListUnreadable);
    const bool wasOff = !jobRuns(item.handle, item.plistPath, *marks);
    item.source = StartupSource::launchdJob;
    item.previous = wasOff ? "off" : "startsAtLogin";
    const bool knownBefore = std::any_of(config().heldStartup.begin(), config().heldStartup.end(),
                                         [&](const HeldStartupItem& held) {
                                             return held.source == item.source && held.handle == item.handle;
                                         });

    StartupStep step;
    step.subject = subject;
    step.recordNotSaved = kRecordNotSaved;
    step.record = [item](HoldenmereConfig& config) { config.hold(item); };
    if (wasOff) {
        // Nothing to switch: holding it is the whole change.
        StartupChangeOutcome outcome;
        outcome.subject = subject;
        if (auto failure = transaction_.commit(step.record)) {
            outcome.reason = std::string(kRecordNotSaved) + " (" + *failure + ")";
            return outcome;
        }
        outcome.status = Status::unchanged;
        outcome.recorded = true;
        outcome.reason = "already off; held off";
        return outcome;
    }
    step.apply = [this, label = item.handle] { return launchctlRun({"disable", launchdServiceTarget(label)}); };
    step.confirm = labelDisabled(item.handle, true);
    step.notTaken = "it is still enabled in launchd";
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    if (!knownBefore) step.whenNotTaken = [item](HoldenmereConfig& config) { config.release(item); };
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::reassertJob(const HeldStartupItem& item) {
    const std::string subject = item.name + kDash + item.handle;
    if (isOwnLabel(item.handle) || (item.ownerBundleIdentifier && isOwnBundle(*item.ownerBundleIdentifier))) {
        return refused(subject, kOwnItem);
    }
    // Off is what launchd would do at login: a plist whose "Disabled" keeps
    // the job off needs no mark, and gets none.
    auto isOff = [this, label = item.handle, plistPath = item.plistPath]() -> std::optional<bool> {
        const auto marks = launchctl_.disabledMarks();
        if (!marks) return std::nullopt;
        return !jobRuns(label, plistPath, *marks);
    };
    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::reassert;
    step.alreadyRecorded = true;
    step.isDone = isOff;
    step.unreadableBefore = std::string(kDisabledListUnreadable);
    step.apply = [this, label = item.handle] { return launchctlRun({"disable", launchdServiceTarget(label)}); };
    step.confirm = isOff;
    step.notTaken = "it is still enabled in launchd";
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::holdHelper(const DelayedHelper& helper) {
    const std::string subject = helper.name + kDash + helper.label;
    if (isOwnLabel(helper.label) || isOwnBundle(helper.appBundleIdentifier)) return refused(subject, kOwnItem);
    if (stopped()) return refused(subject, kOutOfTime);
    // Read first: a list that cannot be read is no ground to change anything,
    // and a helper that was off already is kept off by a give-back too.
    const auto disabled = launchctl_.disabledLabels();
    if (!disabled) return refused(subject, kDisabledListUnreadable);
    const bool wasOff = disabled->count(helper.label) != 0;
    const bool knownBefore = std::any_of(config().delayedHelpers.begin(), config().delayedHelpers.end(),
                                         [&](const DelayedHelper& held) { return held.label == helper.label; });

    StartupStep step;
    step.subject = subject;
    step.recordNotSaved = kRecordNotSaved;
    step.record = [helper, wasOff](HoldenmereConfig& config) {
        auto held = std::find_if(config.delayedHelpers.begin(), config.delayedHelpers.end(),
                                 [&](const DelayedHelper& existing) { return existing.label == helper.label; });
        if (held == config.delayedHelpers.end()) {
            config.delayedHelpers.push_back(helper);
        } else {
            *held = helper;
        }
        if (wasOff) config.keepOff({helper.label});
    };
    step.apply = [this, label = helper.label] { return launchctlRun({"disable", launchdServiceTarget(label)}); };
    step.confirm = labelDisabled(helper.label, true);
    step.notTaken = "helper is still enabled in launchd";
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    if (!knownBefore) {
        step.whenNotTaken = [label = helper.label](HoldenmereConfig& config) {
            std::erase_if(config.delayedHelpers, [&](const DelayedHelper& held) { return held.label == label; });
        };
    }
    return run(step);
}

StartupStep StartupChangeEngine::jobGiveBack(const std::string& subject, const StartupStep::Change& forget) {
    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::giveBack;
    step.alreadyRecorded = true;
    step.isDone = switchedOnAnyway();
    step.unreadableBefore = std::string(kDisabledListUnreadable);
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    step.whenDone = forget;
    return step;
}

StartupChangeOutcome StartupChangeEngine::switchOnJob(const std::string& subject, const std::string& label,
                                                      const std::string& plistPath,
                                                      const StartupStep::Change& forget) {
    if (isOwnLabel(label)) return refused(subject, kOwnItem);
    auto note = std::make_shared<std::string>();
    StartupStep step = jobGiveBack(subject, forget);
    step.apply = [this, label, plistPath, note]() -> std::optional<std::string> {
        if (auto failure = launchctlRun({"enable", launchdServiceTarget(label)})) return failure;
        // A job that launchd has not loaded runs again only once its plist is.
        if (launchctl_.isLoaded(label)) return std::nullopt;
        if (plistPath.empty()) {
            *note = "no plist was recorded, so nothing was loaded";
        } else if (!fileExists_(plistPath)) {
            *note = "its plist is gone, so there is nothing to load";
        } else if (auto failure = launchctlRun({"bootstrap", launchdDomain(), plistPath})) {
            return "switched back on, but " + *failure;
        }
        return std::nullopt;
    };
    step.confirm = labelDisabled(label, false);
    step.notTaken = "it is still disabled in launchd";
    StartupChangeOutcome outcome = run(step);
    if (outcome.status == Status::changed && !note->empty()) outcome.reason = *note;
    return outcome;
}

StartupChangeOutcome StartupChangeEngine::releaseHelper(const DelayedHelper& helper, const StartupStep::Change& forget) {
    const std::string subject = helper.name + kDash + helper.label;
    if (isOwnLabel(helper.label) || isOwnBundle(helper.appBundleIdentifier)) return refused(subject, kOwnItem);
    auto notTaken = std::make_shared<std::string>();
    StartupStep step = jobGiveBack(subject, forget);
    step.apply = [this, helper]() -> std::optional<std::string> {
        if (auto failure = launchctlRun({"enable", launchdServiceTarget(helper.label)})) return failure;
        if (launchctl_.isLoaded(helper.label)) return std::nullopt;
        if (!fileExists_(helper.plistPath)) return std::string(kHelperPlistMissing) + helper.plistPath;
        return launchctlRun({"bootstrap", launchdDomain(), helper.plistPath});
    };
    step.confirm = [this, label = helper.label, notTaken]() -> std::optional<bool> {
        const auto disabled = launchctl_.disabledLabels();
        if (!disabled) return std::nullopt;
        const bool loaded = launchctl_.isLoaded(label);
        if (!loaded) {
            *notTaken = std::string(kHelperNotLoaded);
        } else if (disabled->count(label) != 0) {
            *notTaken = "helper is still disabled in launchd";
        }
        return loaded && disabled->count(label) == 0;
    };
    StartupChangeOutcome outcome = run(step);
    if (outcome.status == Status::failed && outcome.reason.empty()) outcome.reason = *notTaken;
    return outcome;
}

StartupChangeOutcome StartupChangeEngine::enableJob(const std::string& subject, const std::string& label) {
    if (isOwnLabel(label)) return refused(subject, kOwnItem);
    StartupStep step;
    step.subject = subject;
    step.isDone = labelDisabled(label, false);
    step.unreadableBefore = std::string(kDisabledListUnreadable);
    step.apply = [this, label] { return launchctlRun({"enable", launchdServiceTarget(label)}); };
    step.confirm = labelDisabled(label, false);
    step.notTaken = "still disabled after `launchctl enable`";
    step.unreadableAfter = std::string(kDisabledListUnconfirmed);
    return run(step);
}

}  // namespace holdenmere
