// Starting held helpers after the network answered: the engine's step that
// switches a helper on for this session and off again for the next login.
#include "core/takeover/held_helper_start.h"

#include <algorithm>

#include "core/support/text.h"

namespace holdenmere {
namespace {

LaunchRecord recordOf(const DelayedHelper& helper, Date now, LaunchOutcome outcome, std::string detail) {
    return LaunchRecord{helper.label, helper.name + " helper", outcome, now, std::move(detail)};
}

}  // namespace

LaunchRecord StartupChangeEngine::startHeldHelper(const DelayedHelper& asRead, Date now) {
    if (isOwnLabel(asRead.label) || isOwnBundle(asRead.appBundleIdentifier)) {
        return recordOf(asRead, now, LaunchOutcome::failed,
                        "Holdenmere's own job, which it never switches; left as it is");
    }
    if (stopped()) return recordOf(asRead, now, LaunchOutcome::failed, std::string(kOutOfTime));
    if (auto reason = unwanted(StartupStep::Purpose::reassert, {})) {
        return recordOf(asRead, now, LaunchOutcome::disabled, *reason);
    }
    // The helper as the file holds it now: one given back since the pass
    // began is launchd's again.
    const auto& held = config().delayedHelpers;
    const auto current = std::find_if(held.begin(), held.end(),
                                      [&](const DelayedHelper& helper) { return helper.label == asRead.label; });
    if (current == held.end()) {
        return recordOf(asRead, now, LaunchOutcome::disabled,
                        "no longer held by Holdenmere, so it was left to launchd");
    }
    const DelayedHelper helper = *current;
    if (helper.mode == DelayedHelper::Mode::off) return checkHelperKeptOff(helper, now);
    if (!fileExists_(helper.plistPath)) {
        return recordOf(helper, now, LaunchOutcome::failed, std::string(kHelperPlistMissing) + helper.plistPath);
    }
    return startHelperForSession(helper, now);
}

std::optional<bool> StartupChangeEngine::helperDisabled(const std::string& label) {
    const auto disabled = launchctl_.disabledLabels();
    if (!disabled) return std::nullopt;
    return disabled->count(label) != 0;
}

LaunchRecord StartupChangeEngine::checkHelperKeptOff(const DelayedHelper& helper, Date now) {
    const auto off = helperDisabled(helper.label);
    if (!off) return recordOf(helper, now, LaunchOutcome::failed, std::string(kDisabledListUnreadable));
    if (*off) {
        return recordOf(helper, now, LaunchOutcome::disabled,
                        "helper is off; not started and stays off at the next login");
    }
    return recordOf(helper, now, LaunchOutcome::failed, "helper is off in Holdenmere but launchd lists it as enabled");
}

LaunchRecord StartupChangeEngine::startHelperForSession(const DelayedHelper& helper, Date now) {
    // Its record is in the ledger already; enabling it is this session's
    // start, and it is disabled again whatever happens, so that the next
    // login waits for the network again.
    std::vector<std::string> problems;
    const auto enableFailure = launchctlRun({"enable", launchdServiceTarget(helper.label)});
    if (enableFailure) problems.push_back(*enableFailure);
    const bool wasLoaded = launchctl_.isLoaded(helper.label);
    if (!wasLoaded && !enableFailure) {
        if (auto failure = launchctlRun({"bootstrap", launchdDomain(), helper.plistPath})) problems.push_back(*failure);
    }
    if (auto failure = launchctlRun({"disable", launchdServiceTarget(helper.label)})) problems.push_back(*failure);
    if (!launchctl_.isLoaded(helper.label)) problems.emplace_back(kHelperNotLoaded);
    const auto off = helperDisabled(helper.label);
    if (!off) {
        problems.emplace_back(kDisabledListUnconfirmed);
    } else if (!*off) {
        problems.emplace_back("helper is still enabled for the next login");
    }

    if (!problems.empty()) return recordOf(helper, now, LaunchOutcome::failed, text::joined(problems, "; "));
    if (wasLoaded) {
        return recordOf(helper, now, LaunchOutcome::alreadyRunning,
                        "helper already loaded; next login waits for network");
    }
    return recordOf(helper, now, LaunchOutcome::launched, "helper started; next login waits for network");
}

HeldHelperStarting::HeldHelperStarting(ConfigAccess access, LaunchctlRunning& launchctl, ScriptRunning& scripts,
                                       std::uint64_t giveBackGeneration, const Signal* cancellation,
                                       StartupChangeEngine::FileExists fileExists)
    : access_(std::move(access)),
      launchctl_(launchctl),
      scripts_(scripts),
      giveBackGeneration_(giveBackGeneration),
      cancellation_(cancellation),
      fileExists_(std::move(fileExists)) {}

std::vector<LaunchRecord> HeldHelperStarting::startAfterGate(const HoldenmereConfig& config, Date now) {
    std::vector<LaunchRecord> records;
    if (config.delayedHelpers.empty()) return records;
    auto begun = StartupTransaction::begin(access_, StartupTransaction::Wait::untilFree, cancellation_);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        for (const auto& helper : config.delayedHelpers) {
            records.push_back(recordOf(helper, now, LaunchOutcome::failed,
                                       failure->text(access_.url) + ", so it was not started"));
        }
        return records;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    StartupChangeEngine engine(transaction, launchctl_, scripts_, cancellation_, fileExists_);
    engine.decideUnder(giveBackGeneration_);
    for (const auto& helper : config.delayedHelpers) records.push_back(engine.startHeldHelper(helper, now));
    transaction.end();
    return records;
}

}  // namespace holdenmere
