// The startup inventory's switches in the desktop app: a row held off
// (a launchd job, an app extension, a launcher's child) or quit after each
// login (an app loginwindow reopens), and switched back on.
#include <algorithm>

#include "core/discovery/session_restore_scanner.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_actions.h"
#include "core/takeover/startup_switch.h"

namespace holdenmere {
namespace {

using Status = StartupChangeOutcome::Status;

const HeldStartupItem* heldItem(const HoldenmereConfig& config, const StartupEntry& entry) {
    auto held = std::find_if(config.heldStartup.begin(), config.heldStartup.end(), [&](const HeldStartupItem& item) {
        return item.source == entry.source && item.handle == entry.handle;
    });
    return held == config.heldStartup.end() ? nullptr : &*held;
}

// The plist that defines a job, from the folders in their order.
std::optional<std::string> plistOf(const std::string& label, const std::vector<std::filesystem::path>& directories) {
    InertLaunchctl launchctl;  // reading the plists asks launchd nothing
    for (const auto& agent : LaunchAgentScanner(launchctl, directories).allAgents()) {
        if (agent.label == label) return agent.plistPath;
    }
    return std::nullopt;
}

}  // namespace

StartupActions::RowAction StartupActions::actionFor(const StartupEntry& entry, const HoldenmereConfig& config) {
    if (entry.source == StartupSource::serviceManagement) return RowAction::none;
    if (heldItem(config, entry) != nullptr) return RowAction::switchOn;
    if (entry.source == StartupSource::sessionRestore && entry.handle == SessionRestoreScanner::kReopenWindowsHandle &&
        config.reopenWindowsOriginal) {
        return RowAction::switchOn;
    }
    if (entry.state.kind != StartupEntry::State::Kind::startsAtLogin) return RowAction::none;
    return entry.tier.kind == SafetyTier::Kind::refused ? RowAction::none : RowAction::switchOff;
}

ActionOutcome StartupActions::holdEntry(const StartupEntry& entry, bool confirmed, Date now) const {
    const std::string subject = entry.name + kDash + entry.handle;
    ActionOutcome outcome;
    if (entry.source == StartupSource::serviceManagement) {
        outcome.fail(subject + ": this build cannot switch " + std::string(rawValue(entry.source)) + " items.");
        return outcome;
    }
    // Nothing is asked of the system for what the rules do not allow.
    if (entry.tier.kind == SafetyTier::Kind::refused) {
        outcome.fail(subject + " was not switched off: " + entry.tier.reason);
        return outcome;
    }
    if (entry.tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
        outcome.fail(subject + " was not switched off: it needs your confirmation first.");
        return outcome;
    }
    if (entry.source != StartupSource::launchdJob && entry.source != StartupSource::sessionRestore &&
        (services_.switches == nullptr || services_.switches->find(entry.source) == nullptr)) {
        outcome.fail(subject + ": this build cannot switch " + std::string(rawValue(entry.source)) + " items here.");
        return outcome;
    }
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& result) {
        StartupChangeOutcome change;
        if (entry.source == StartupSource::launchdJob) {
            HeldStartupItem item{StartupSource::launchdJob, entry.handle, entry.ownerBundleIdentifier, entry.name, {},
                                 plistOf(entry.handle, services_.agentDirectories), now};
            change = engine.holdJob(item, entry.tier, confirmed);
        } else if (entry.source == StartupSource::sessionRestore &&
                   entry.handle == SessionRestoreScanner::kReopenWindowsHandle) {
            if (services_.switches == nullptr || services_.switches->reopenWindows == nullptr) {
                result.fail(subject + ": this build cannot change the reopen-windows setting here.");
                return;
            }
            change = engine.switchReopenWindowsOff(*services_.switches->reopenWindows);
        } else if (entry.source == StartupSource::sessionRestore) {
            change = engine.quitAfterLogin(entry, entry.tier, confirmed);
            if (change.status == Status::changed) {
                result.add(subject + " will be quit after each login; macOS still reopens it.");
                return;
            }
        } else {
            change = engine.holdItem(*services_.switches->find(entry.source), entry, entry.tier, confirmed);
        }
        switch (change.status) {
            case Status::changed:
                result.add(subject + " is switched off; Holdenmere switches it off again at each login.");
                break;
            case Status::unchanged:
                result.add(subject + " was already off; Holdenmere keeps it off.");
                break;
            case Status::unconfirmed:
            case Status::failed:
            case Status::notChanged:
                result.fail(subject + " is NOT switched off: " + change.reason);
                break;
        }
    });
}

ActionOutcome StartupActions::unholdEntry(const StartupEntry& entry) const {
    const std::string subject = entry.name + kDash + entry.handle;
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& result) {
        if (entry.source == StartupSource::sessionRestore && entry.handle == SessionRestoreScanner::kReopenWindowsHandle) {
            const auto& original = engine.config().reopenWindowsOriginal;
            ReopenWindowsSetting* setting = engine.switches() ? engine.switches()->reopenWindows : nullptr;
            if (!original || setting == nullptr) {
                result.fail(subject + (original ? ": this build cannot change the reopen-windows setting here."
                                                : " is not held by Holdenmere, so nothing was changed."));
                return;
            }
            const auto change = engine.giveBackReopenWindows(*setting, *original);
            if (change.succeeded()) {
                result.add(subject + " is switched back on.");
            } else {
                result.fail(subject + " is NOT switched back on: " + change.reason);
            }
            return;
        }
        const HeldStartupItem* held = heldItem(engine.config(), entry);
        if (held == nullptr) {
            result.fail(subject + " is not held by Holdenmere, so nothing was changed.");
            return;
        }
        const HeldStartupItem item = *held;
        StartupChangeOutcome change;
        if (item.source == StartupSource::launchdJob) {
            change = engine.switchOnJob(subject, item.handle, item.plistPath.value_or(""),
                                        [item](HoldenmereConfig& config) { config.release(item); });
        } else if (item.source == StartupSource::sessionRestore) {
            // Nothing was switched: the app is simply no longer quit.
            if (auto failure = engine.transaction().commit([item](HoldenmereConfig& config) { config.release(item); })) {
                result.fail(subject + " is still quit after each login: " + *failure);
            } else {
                result.add(subject + " is no longer quit after login.");
            }
            return;
        } else if (StartupSwitch* source = engine.switches() ? engine.switches()->find(item.source) : nullptr) {
            change = engine.giveBackItem(*source, item);
        } else {
            result.fail(subject + " is NOT switched back on: this build cannot switch " +
                        std::string(rawValue(item.source)) + " items here.");
            return;
        }
        if (change.succeeded()) {
            result.add(subject + " is switched back on." + (change.reason.empty() ? "" : " (" + change.reason + ")"));
        } else {
            result.fail(subject + " is NOT switched back on: " + change.reason);
        }
    });
}

}  // namespace holdenmere
