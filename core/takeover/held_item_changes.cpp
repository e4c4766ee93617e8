// The startup-change engine's steps for held items of the sources beyond
// launchd jobs and Login Items (app extensions, launcher children, session
// restore), each through its source's switch.
#include <algorithm>
#include <memory>

#include "core/takeover/startup_change_engine.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_switch.h"

namespace holdenmere {
namespace {

constexpr const char* kStartsAtLogin = "startsAtLogin";

using Status = StartupChangeOutcome::Status;

std::string_view what(StartupSource source) {
    switch (source) {
        case StartupSource::appExtension: return "app extension ";
        case StartupSource::launcherChild: return "launcher ";
        case StartupSource::sessionRestore: return "reopened by loginwindow ";
        case StartupSource::serviceManagement:
        case StartupSource::launchdJob: break;
    }
    return "";
}

std::string subjectOf(StartupSource source, const std::string& name, const std::string& handle) {
    return name + kDash + std::string(what(source)) + handle;
}

bool isHeld(const HoldenmereConfig& config, StartupSource source, const std::string& handle) {
    return std::any_of(config.heldStartup.begin(), config.heldStartup.end(), [&](const HeldStartupItem& item) {
        return item.source == source && item.handle == handle;
    });
}

HeldStartupItem heldOf(const StartupEntry& entry) {
    return {entry.source, entry.handle, entry.ownerBundleIdentifier, entry.name, kStartsAtLogin, std::nullopt,
            Date::now()};
}

// The switch's state as a step reads it: `wanted` off or on; the reason of
// an unreadable state lands in `failure`.
StartupStep::ReadState offState(StartupSwitch& source, std::string handle, bool wantedOff,
                                std::shared_ptr<std::string> failure) {
    return [&source, handle, wantedOff, failure]() -> std::optional<bool> {
        const auto off = source.isOff(handle, *failure);
        if (!off) return std::nullopt;
        return *off == wantedOff;
    };
}

// A held item switched off again (a re-assert) or back on (a give-back):
// its recovery entry is the held item itself, saved already.
StartupChangeOutcome switchHeld(StartupChangeEngine& engine, StartupSwitch& source, const HeldStartupItem& item,
                                bool off, StartupStep::Change whenDone) {
    auto failure = std::make_shared<std::string>();
    StartupStep step;
    step.subject = subjectOf(item.source, item.name, item.handle);
    if (StartupChangeEngine::isOwnLabel(item.handle)) {
        StartupChangeOutcome outcome;
        outcome.subject = step.subject;
        outcome.reason = std::string(StartupChangeEngine::kOwnItem);
        return outcome;
    }
    step.purpose = off ? StartupStep::Purpose::reassert : StartupStep::Purpose::giveBack;
    step.alreadyRecorded = true;
    step.isDone = offState(source, item.handle, off, failure);
    step.apply = [&source, handle = item.handle, off] { return off ? source.switchOff(handle) : source.switchOn(handle); };
    step.confirm = offState(source, item.handle, off, failure);
    step.notTaken = off ? "it is still on" : "it is still off";
    step.whenDone = std::move(whenDone);
    StartupChangeOutcome outcome = engine.run(step);
    if (outcome.reason.empty() && !outcome.succeeded() && outcome.status != Status::changed) outcome.reason = *failure;
    return outcome;
}

}  // namespace

std::optional<std::string> StartupChangeEngine::tierRefusal(const SafetyTier& tier, bool confirmed) {
    if (tier.kind == SafetyTier::Kind::refused) return tier.reason;
    if (tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
        std::string reason = "not switched off without your confirmation:";
        for (const auto& warning : tier.warnings) reason += " " + warning;
        return reason;
    }
    return std::nullopt;
}

StartupChangeOutcome StartupChangeEngine::holdItem(StartupSwitch& source, const StartupEntry& entry,
                                                   const SafetyTier& tier, bool confirmed) {
    const std::string subject = subjectOf(entry.source, entry.name, entry.handle);
    if (isOwnLabel(entry.handle) || (entry.ownerBundleIdentifier && isOwnBundle(*entry.ownerBundleIdentifier))) {
        return refused(subject, kOwnItem);
    }
    if (auto reason = tierRefusal(tier, confirmed)) return refused(subject, *reason);
    const bool knownBefore = isHeld(config(), entry.source, entry.handle);
    auto failure = std::make_shared<std::string>();

    StartupStep step;
    step.subject = subject;
    step.isDone = offState(source, entry.handle, true, failure);
    step.record = [item = heldOf(entry)](HoldenmereConfig& config) { config.hold(item); };
    step.apply = [&source, handle = entry.handle] { return source.switchOff(handle); };
    step.confirm = offState(source, entry.handle, true, failure);
    step.notTaken = "it is still on";
    if (!knownBefore) {
        step.whenNotTaken = [item = heldOf(entry)](HoldenmereConfig& config) { config.release(item); };
    }
    // The texts of an unreadable state are the switch's own, known only
    // once it was asked: the step is run, then its reason filled in.
    StartupChangeOutcome outcome = run(step);
    if ((outcome.status == Status::notChanged || outcome.status == Status::unconfirmed) && outcome.reason.empty()) {
        outcome.reason = *failure + (outcome.status == Status::unconfirmed ? "; it may be off, and is held"
                                                                           : ", so nothing was changed");
    }
    return outcome;
}

StartupChangeOutcome StartupChangeEngine::reassertItem(StartupSwitch& source, const HeldStartupItem& item) {
    if (item.ownerBundleIdentifier && isOwnBundle(*item.ownerBundleIdentifier)) {
        return refused(subjectOf(item.source, item.name, item.handle), kOwnItem);
    }
    return switchHeld(*this, source, item, /*off=*/true, {});
}

StartupChangeOutcome StartupChangeEngine::giveBackItem(StartupSwitch& source, const HeldStartupItem& item) {
    return switchHeld(*this, source, item, /*off=*/false,
                      [item](HoldenmereConfig& config) { config.release(item); });
}

StartupChangeOutcome StartupChangeEngine::quitAfterLogin(const StartupEntry& entry, const SafetyTier& tier,
                                                         bool confirmed) {
    const std::string subject = entry.name + kDash + "quit after login";
    if (isOwnBundle(entry.handle)) return refused(subject, kOwnItem);
    if (auto reason = tierRefusal(tier, confirmed)) return refused(subject, *reason);
    StartupStep step;
    step.subject = subject;
    step.isDone = [this, handle = entry.handle]() -> std::optional<bool> {
        return isHeld(config(), StartupSource::sessionRestore, handle);
    };
    step.record = [item = heldOf(entry)](HoldenmereConfig& config) { config.hold(item); };
    step.apply = []() -> std::optional<std::string> { return std::nullopt; };
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::quitRestoredApp(AppQuitting& apps, const HeldStartupItem& item) {
    const std::string subject = item.name + kDash + item.handle;
    if (isOwnBundle(item.handle)) return refused(subject, kOwnItem);
    StartupStep step;
    step.subject = subject;
    step.purpose = StartupStep::Purpose::reassert;
    step.alreadyRecorded = true;
    step.isDone = [&apps, handle = item.handle]() -> std::optional<bool> { return !apps.isRunning(handle); };
    step.apply = [&apps, handle = item.handle] { return apps.quit(handle); };
    step.confirm = [&apps, handle = item.handle]() -> std::optional<bool> { return !apps.isRunning(handle); };
    step.notTaken = "it is still running";
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::switchReopenWindowsOff(ReopenWindowsSetting& setting) {
    StartupChangeOutcome outcome;
    outcome.subject = "reopen windows when logging back in";
    if (stopped()) return refused(outcome.subject, kOutOfTime);
    std::string failure;
    const auto before = setting.read(failure);
    if (!before) return refused(outcome.subject, failure + ", so nothing was changed");
    const ReopenWindowsSetting::Values off{false, false};
    StartupStep step;
    step.subject = outcome.subject;
    step.isDone = [&] () -> std::optional<bool> { return *before == off; };
    // The first record knows the setting before Holdenmere changed it.
    if (!config().reopenWindowsOriginal) {
        step.record = [values = *before](HoldenmereConfig& config) {
            if (!config.reopenWindowsOriginal) {
                config.reopenWindowsOriginal =
                    ReopenWindowsRecord{values.logoutSavesState, values.launchesRelaunchApps, Date::now()};
            }
        };
    }
    step.apply = [&setting, off] { return setting.write(off); };
    step.confirm = [&setting, off, &failure]() -> std::optional<bool> {
        const auto after = setting.read(failure);
        if (!after) return std::nullopt;
        return *after == off;
    };
    step.notTaken = "loginwindow still reopens windows";
    step.unreadableAfter = "the setting could not be read back to confirm it";
    return run(step);
}

StartupChangeOutcome StartupChangeEngine::giveBackReopenWindows(ReopenWindowsSetting& setting,
                                                                const ReopenWindowsRecord& original) {
    const ReopenWindowsSetting::Values wanted{original.logoutSavesState, original.launchesRelaunchApps};
    auto failure = std::make_shared<std::string>();
    auto isBack = [&setting, wanted, failure]() -> std::optional<bool> {
        const auto now = setting.read(*failure);
        if (!now) return std::nullopt;
        return *now == wanted;
    };
    StartupStep step;
    step.subject = "reopen windows when logging back in";
    step.purpose = StartupStep::Purpose::giveBack;
    step.alreadyRecorded = true;
    step.isDone = isBack;
    step.unreadableBefore = "the setting could not be read, so nothing was changed";
    step.apply = [&setting, wanted] { return setting.write(wanted); };
    step.confirm = isBack;
    step.notTaken = "the setting did not take its old values";
    step.unreadableAfter = "the setting could not be read back to confirm it";
    step.whenDone = [](HoldenmereConfig& config) { config.reopenWindowsOriginal.reset(); };
    return run(step);
}

}  // namespace holdenmere
