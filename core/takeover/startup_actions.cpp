#include "core/takeover/startup_actions.h"

#include <algorithm>

#include "core/discovery/login_items_auditor.h"
#include "core/launchd/helper_delay.h"
#include "core/support/log_text.h"
#include "core/support/text.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_restorer.h"

namespace holdenmere {
namespace {

using Status = StartupChangeOutcome::Status;

std::string heldLine(const std::string& name, DelayedHelper::Mode mode) {
    return mode == DelayedHelper::Mode::delay ? name + " now waits for the network at login."
                                              : name + " is kept off at login.";
}

// The line about an agent's arguments that Holdenmere does not pass, if any.
std::optional<std::string> droppedArgumentsLine(const std::string& name, const std::string& plistPath) {
    auto dropped = LoginOwnership::droppedArguments(std::filesystem::path(plistPath));
    if (dropped.empty()) return std::nullopt;
    for (auto& argument : dropped) argument = "\"" + argument + "\"";
    return name + kDash + "its agent passed " + text::joined(dropped, " ") + "; Holdenmere opens it without them";
}

// Makes an app managed and no longer left to macOS.
StartupStep::Change manageApp(const ManagedApp& app) {
    return [app](HoldenmereConfig& config) {
        config.manage(app);
        std::erase(config.leftToMacOS, app.bundleIdentifier);
    };
}

void reportRemoval(const StartupChangeOutcome& outcome, const std::string& name, ActionOutcome& result) {
    switch (outcome.status) {
        case Status::changed:
        case Status::unchanged:
            result.add(message(LoginItemRemoval::removed, name));
            break;
        case Status::unconfirmed:
            result.fail(message(LoginItemRemoval::removed, name) + " " + outcome.reason);
            break;
        case Status::failed:
            result.fail(message(LoginItemRemoval::failed, name));
            break;
        case Status::notChanged:
            result.fail(name + "'s Login Item stays: " + outcome.reason);
            break;
    }
}

// A held helper switched between "delay" and "off": launchd's state
// converted as the new mode needs it, then the record.
void changeHelperMode(StartupChangeEngine& engine, const DelayedHelper& recorded, DelayedHelper::Mode mode,
                      HoldenmereLoginAgentStatus loginAgent, ActionOutcome& outcome) {
    HelperDelay helperDelay(engine.launchctl());
    const auto conversion = helperDelay.convert(recorded, mode, loginAgent);
    if (const std::string* refusal = conversion.refusal()) {
        outcome.fail(*refusal);
        return;
    }
    const DelayedHelper converted = *conversion.helper();
    if (auto failure = engine.transaction().commit([converted](HoldenmereConfig& config) {
            for (auto& existing : config.delayedHelpers) {
                if (existing.label == converted.label) existing = converted;
            }
        })) {
        outcome.fail(recorded.name + " was not changed: " + *failure);
        return;
    }
    outcome.add(heldLine(recorded.name, mode));
}

}  // namespace

std::optional<ActionOutcome> StartupActions::daemonRefusal(const ManagedApp& app) const {
    if (!StartupSafety::runBySystemDaemon(app.path, services_.environment)) return std::nullopt;
    ActionOutcome outcome;
    outcome.fail(app.name + " was not taken over: " + std::string(StartupSafety::kRunBySystemDaemon) +
                 ". Nothing changed.");
    return outcome;
}

ActionOutcome StartupActions::inTransaction(
    const std::function<void(StartupChangeEngine&, ActionOutcome&)>& work) const {
    ActionOutcome outcome;
    auto begun = StartupTransaction::begin(services_.config, StartupTransaction::Wait::never);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        outcome.fail(failure->text(services_.config.url));
        return outcome;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    StartupChangeEngine engine(transaction, services_.launchctl, services_.scripts);
    engine.useSwitches(services_.switches);
    work(engine, outcome);
    transaction.end();
    return outcome;
}

SafetyTier StartupActions::agentTier(const ManagedApp& app, const Agent& agent) const {
    return StartupSafety::tier(LoginOwnership::agentCandidate(app, agent.label, agent.plistPath),
                               services_.environment);
}

std::optional<std::string> StartupActions::tierRefusal(const std::string& name, const SafetyTier& tier,
                                                      bool confirmed) {
    if (tier.kind == SafetyTier::Kind::refused) return name + " was not taken over: " + tier.reason;
    if (tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
        return name + " was not taken over: it needs your confirmation first.";
    }
    return std::nullopt;
}

ActionOutcome StartupActions::takeOverLoginItem(const ManagedApp& row, const std::string& loginItemPath) const {
    if (auto refusal = daemonRefusal(row)) return *refusal;
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        const auto items = engine.loginItems();
        if (!items) {
            outcome.fail(row.name + " was not taken over: " +
                         std::string(StartupChangeEngine::kLoginItemsUnreadable));
            return;
        }
        auto item = std::find_if(items->begin(), items->end(), [&](const LoginItemsAuditor::LoginItem& candidate) {
            return candidate.path == loginItemPath;
        });
        if (item == items->end()) {
            outcome.fail(row.name + " is no longer a Login Item, so nothing was changed.");
            return;
        }
        ManagedApp app = row;
        app.launchHidden = item->hidden;
        app.importedFromLoginItem = true;
        if (auto failure = engine.transaction().commit(manageApp(app))) {
            outcome.fail(row.name + " was not taken over: it could not be added to Holdenmere, so its Login Item "
                                    "stays (" + *failure + ").");
            return;
        }
        reportRemoval(engine.removeLoginItem({app.bundleIdentifier, app.name}, loginItemPath), app.name, outcome);
    });
}

ActionOutcome StartupActions::takeOverAgent(const ManagedApp& row, const Agent& agent, bool confirmed) const {
    if (auto refusal = daemonRefusal(row)) return *refusal;
    ManagedApp app = row;
    app.importedFromStartup = true;
    // Nothing is asked of the system for what the rules do not allow.
    const SafetyTier tier = agentTier(app, agent);
    if (auto refusal = tierRefusal(app.name, tier, confirmed)) {
        ActionOutcome outcome;
        outcome.fail(*refusal);
        return outcome;
    }
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        if (auto failure = engine.transaction().commit(manageApp(app))) {
            outcome.fail(app.name + " was not added: " + *failure);
            return;
        }
        const auto result = engine.takeOverAgent({app.bundleIdentifier, app.name}, agent.label, agent.plistPath,
                                                 tier, confirmed);
        switch (result.status) {
            case Status::changed:
                outcome.add(app.name + " now starts once the network answers; its LaunchAgent " + agent.label +
                            " is switched off.");
                break;
            case Status::unchanged:
                outcome.add(app.name + kDash + "LaunchAgent " + agent.label +
                            " was already switched off; Holdenmere now starts the app");
                break;
            case Status::unconfirmed:
            case Status::failed:
            case Status::notChanged:
                outcome.fail(app.name + " is managed now, but its LaunchAgent " + agent.label +
                             " is NOT switched off: " + result.reason);
                break;
        }
        if (auto line = droppedArgumentsLine(app.name, agent.plistPath)) outcome.add(*line);
    });
}

ActionOutcome StartupActions::stopMacOSStarting(const std::string& bundleIdentifier, const std::string& name,
                                                const std::vector<std::string>& loginItemPaths,
                                                const std::vector<Agent>& agents, bool confirmed) const {
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        const HoldenmereConfig& config = engine.config();
        auto managed = std::find_if(config.apps.begin(), config.apps.end(),
                                    [&](const ManagedApp& app) { return app.bundleIdentifier == bundleIdentifier; });
        if (managed == config.apps.end()) {
            outcome.fail(name + " is no longer managed, so nothing was changed.");
            return;
        }
        const ManagedApp app = *managed;
        // The tiers first: one agent that needs confirmation stops everything.
        std::vector<std::pair<Agent, SafetyTier>> tiers;
        for (const auto& agent : agents) {
            const SafetyTier tier = agentTier(app, agent);
            if (tier.kind == SafetyTier::Kind::needsConfirmation && !confirmed) {
                outcome.fail(app.name + ": nothing was changed" + kDash + "switching LaunchAgent " + agent.label +
                             " off needs your confirmation first.");
                return;
            }
            tiers.emplace_back(agent, tier);
        }
        for (const auto& path : loginItemPaths) {
            reportRemoval(engine.removeLoginItem({app.bundleIdentifier, app.name}, path), app.name, outcome);
        }
        for (const auto& [agent, tier] : tiers) {
            const auto result =
                engine.takeOverAgent({app.bundleIdentifier, app.name}, agent.label, agent.plistPath, tier, confirmed);
            const std::string subject = app.name + kDash + "LaunchAgent " + agent.label;
            switch (result.status) {
                case Status::changed: outcome.add(subject + " switched off"); break;
                case Status::unchanged: outcome.add(subject + " is already switched off"); break;
                case Status::unconfirmed:
                case Status::failed:
                case Status::notChanged: outcome.fail(subject + " is NOT switched off: " + result.reason); break;
            }
        }
        if (outcome.lines.empty()) outcome.add(app.name + ": macOS no longer starts it; nothing to end.");
    });
}

ActionOutcome StartupActions::setHelperMode(const DelayedHelper& helper, std::optional<DelayedHelper::Mode> mode,
                                            HoldenmereLoginAgentStatus loginAgent) const {
    if (mode) {
        // A held helper would never start without the login pass.
        if (auto refusal = HelperDelayPolicy::refusal(*mode, loginAgent)) {
            ActionOutcome outcome;
            outcome.fail(*refusal);
            return outcome;
        }
    }
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        const auto& held = engine.config().delayedHelpers;
        auto record = std::find_if(held.begin(), held.end(),
                                   [&](const DelayedHelper& existing) { return existing.label == helper.label; });
        if (record == held.end()) {
            if (!mode) return;
            DelayedHelper wanted = helper;
            wanted.mode = *mode;
            const auto result = engine.holdHelper(wanted);
            if (result.succeeded() || result.status == Status::unconfirmed) {
                outcome.add(heldLine(helper.name, *mode));
                if (result.status == Status::unconfirmed) outcome.fail(result.line());
            } else {
                outcome.fail(helper.name + " could not be held: " + result.reason);
            }
            return;
        }
        const DelayedHelper recorded = *record;
        if (!mode) {
            // Given back first; the record goes once it is back on.
            const auto result = engine.releaseHelper(
                recorded, [label = recorded.label](HoldenmereConfig& config) {
                    std::erase_if(config.delayedHelpers, [&](const DelayedHelper& existing) { return existing.label == label; });
                    // Asked to start with macOS: no longer one to keep off.
                    std::erase(config.keptOff, label);
                });
            if (result.succeeded()) {
                outcome.add(recorded.name + " starts with macOS again.");
            } else {
                outcome.fail(recorded.name + " could not be switched back on: " + result.reason);
            }
            return;
        }
        if (recorded.mode != *mode) changeHelperMode(engine, recorded, *mode, loginAgent, outcome);
    });
}

ActionOutcome StartupActions::repairHelpers(const std::vector<HelperRepair::Candidate>& candidates,
                                            const std::filesystem::path& logPath, Date now) const {
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        if (!engine.disabledLabels()) {
            outcome.fail(std::string(StartupChangeEngine::kDisabledListUnreadable));
            return;
        }
        // Planned again on the fresh read: a record made meanwhile explains a helper.
        std::vector<HelperRepair::Candidate> still;
        for (const auto& candidate : candidates) {
            const auto& held = engine.config().delayedHelpers;
            const bool recorded = std::any_of(held.begin(), held.end(), [&](const DelayedHelper& helper) {
                return helper.label == candidate.label;
            });
            if (!recorded) still.push_back(candidate);
        }
        const auto steps = HelperRepair::repair(
            still,
            [&](const HelperRepair::Candidate& candidate) {
                return engine.enableJob(candidate.appName + kDash + candidate.label, candidate.label).succeeded();
            },
            /*dryRun=*/false);
        for (const auto& step : steps) {
            if (step.outcome == HelperRepair::Outcome::failed) {
                outcome.fail(step.line());
            } else {
                outcome.add(step.line());
            }
        }
        if (auto failure = HelperRepair::log(steps, "app", logPath, now)) {
            outcome.add("The run log could not be written" + std::string(kDash) + *failure);
        }
    });
}

ActionOutcome StartupActions::giveEverythingBack(
    const std::function<std::optional<std::string>()>& turnOffLoginAgent) const {
    return inTransaction([&](StartupChangeEngine& engine, ActionOutcome& outcome) {
        const auto result = StartupRestorer::giveEverythingBack(engine, /*dryRun=*/false, turnOffLoginAgent);
        if (result.optOutFailure) {
            outcome.fail("could not save startup opt-out" + std::string(kDash) + *result.optOutFailure +
                         ". Nothing restored; login agent left on.");
            return;
        }
        if (result.report.entries.empty()) outcome.add("nothing to give back: the ledger records no startup change");
        for (const auto& entry : result.report.entries) outcome.add(entry.line());
        if (result.loginAgentFailure) {
            outcome.add("could not turn off the login agent" + std::string(kDash) + *result.loginAgentFailure);
        } else {
            outcome.add("login agent: turned off; Holdenmere no longer runs at login");
        }
        outcome.ok = result.ok();
    });
}

}  // namespace holdenmere
