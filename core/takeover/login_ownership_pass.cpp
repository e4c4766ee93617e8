#include "core/takeover/login_ownership_pass.h"

#include <algorithm>
#include <map>

#include "core/discovery/startup_discovery.h"
#include "core/support/log_text.h"
#include "core/support/text.h"
#include "core/takeover/login_ownership.h"

// The ownership pass: Login Items and LaunchAgents taken over at the end of
// a login pass, every change made through the startup-change engine.
namespace holdenmere {
namespace {

using Status = StartupChangeOutcome::Status;

template <typename Item>
bool contains(const std::vector<Item>& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

void appendOnce(std::vector<std::string>& names, const std::string& name) {
    if (!contains(names, name)) names.push_back(name);
}

ManagedApp asManagedRecord(const BlockedApp& blocked) {
    ManagedApp app;
    app.bundleIdentifier = blocked.bundleIdentifier;
    app.name = blocked.name;
    app.path = blocked.path;
    app.isEnabled = false;  // marks a blocked app for takeOverAgents' lines
    return app;
}

// What the pass has recorded, so that the ledger can be checked at its end.
struct Recorded {
    std::vector<std::string> names;  // apps with entries, in order
    std::vector<std::pair<std::string, std::string>> loginItems;  // bundle identifier, path
    std::vector<std::pair<std::string, std::string>> agents;      // bundle identifier, label

    bool empty() const { return names.empty(); }
};

bool holdsLoginItem(const HoldenmereConfig& config, const std::string& bundleIdentifier, const std::string& path) {
    const TakeoverRecord* record = config.takeover(bundleIdentifier);
    return record != nullptr && record->loginItem(path) != nullptr;
}

bool holdsAgent(const HoldenmereConfig& config, const std::string& bundleIdentifier, const std::string& label) {
    const TakeoverRecord* record = config.takeover(bundleIdentifier);
    return record != nullptr && record->agent(label) != nullptr;
}

// Agents switched off at an earlier pass while launchd's disabled list could
// not be read: launchd now says whether the switch took. One that is off is
// Holdenmere's change after all; one that is on was never switched off, so
// there is nothing to give back.
void settleUnconfirmed(StartupChangeEngine& engine, std::vector<std::string>& lines) {
    std::vector<std::pair<std::string, DisabledAgent>> unconfirmed;
    std::map<std::string, std::string> names;
    for (const auto& record : engine.config().takeovers) {
        for (const auto& agent : record.agents) {
            if (agent.unconfirmed) unconfirmed.emplace_back(record.bundleIdentifier, agent);
        }
        names[record.bundleIdentifier] = record.name;
    }
    if (unconfirmed.empty()) return;
    const auto disabled = engine.disabledLabels();
    if (!disabled) return;  // still unknown: the marks stay
    auto failure = engine.transaction().commit([unconfirmed, labels = *disabled](HoldenmereConfig& config) {
        // Applied again by every later commit of the pass: only an entry
        // still marked is settled, so a record made since is never dropped.
        for (const auto& [bundleIdentifier, agent] : unconfirmed) {
            TakeoverRecord* record = config.takeover(bundleIdentifier);
            if (record == nullptr) continue;
            const DisabledAgent* marked = record->agent(agent.label);
            const bool stillMarked = marked != nullptr && marked->unconfirmed;
            if (!stillMarked) continue;
            if (labels.count(agent.label) == 0) {
                config.forgetAgent(bundleIdentifier, agent.label);
                continue;
            }
            for (auto& held : record->agents) {
                if (held.label == agent.label) held.unconfirmed = false;
            }
        }
    });
    for (const auto& [bundleIdentifier, agent] : unconfirmed) {
        const std::string subject = names[bundleIdentifier] + kDash + "LaunchAgent " + agent.label;
        if (failure) {
            lines.push_back("WARNING: ledger: " + subject + " could not be settled (" + *failure + ")");
        } else if (disabled->count(agent.label) != 0) {
            lines.push_back("ledger: " + subject + " is confirmed switched off");
        } else {
            lines.push_back("ledger: " + subject + " was never switched off; its record is dropped");
        }
    }
}

// Changes made before the ledger existed, recorded once.
void backfillOnce(StartupChangeEngine& engine, const LaunchAgentScanner& scanner, std::vector<std::string>& lines,
                  Recorded& recorded) {
    HoldenmereConfig backfilled = engine.config();
    std::vector<std::string> backfillLines;
    LoginOwnership::backfill(scanner.disabledEligibleAgents(), backfilled, backfillLines);
    if (auto failure = engine.transaction().commit(
            [backfilled](HoldenmereConfig& config) { config.mergeLedger(backfilled); })) {
        lines.push_back("WARNING: could not save the ledger of earlier changes" + std::string(kDash) + *failure);
        return;
    }
    lines.insert(lines.end(), backfillLines.begin(), backfillLines.end());
    for (const auto& record : backfilled.takeovers) {
        for (const auto& item : record.loginItems) recorded.loginItems.emplace_back(record.bundleIdentifier, item.path);
        for (const auto& agent : record.agents) recorded.agents.emplace_back(record.bundleIdentifier, agent.label);
        if (!record.isEmpty()) appendOnce(recorded.names, record.name);
    }
}

struct Imports {
    std::vector<ManagedApp> apps;
    std::set<std::string> unsaved;  // bundle identifiers whose import could not be saved
};

// Imports the planned apps and the apps of discovered LaunchAgent items.
// Nothing is imported from LaunchAgents when launchd's disabled list could
// not be read (an agent the user switched off cannot be told from one that
// runs), nor at all when a system LaunchDaemon could not be read (it may run
// the app); a WARNING line says which.
Imports importApps(StartupChangeEngine& engine, const LoginOwnership::Plan& plan,
                   const LaunchAgentScanner::StartupItemListing& agentListing, const LoginOwnership::PassInputs& inputs,
                   std::vector<std::string>& lines) {
    const HoldenmereConfig& config = engine.config();
    std::vector<ManagedApp> imports;
    HoldenmereConfig planned = config;
    for (const auto& app : plan.imports) {
        if (planned.manage(app)) imports.push_back(app);
    }
    const bool daemonsRead = inputs.unreadableSystemDaemons.empty();
    if (!daemonsRead) {
        lines.push_back("WARNING: system LaunchDaemons" + std::string(kDash) +
                        text::joined(inputs.unreadableSystemDaemons, "; ") +
                        "; an app one of them runs cannot be ruled out, so no app was imported and only the Login "
                        "Items of managed apps are removed");
    }
    if (!agentListing.stateKnown()) {
        lines.push_back("WARNING: LaunchAgents" + std::string(kDash) +
                        std::string(LaunchAgentScanner::kDisabledListUnreadable) +
                        ", so no app was imported from them");
    }
    const std::vector<StartupItem> none;
    const std::vector<StartupItem>& agentItems = daemonsRead && agentListing.stateKnown() ? agentListing.items : none;
    for (const auto& app : LoginOwnership::discoveredImports(agentItems, planned.apps, planned.blockedApps,
                                                             inputs.systemDaemonAppPaths, planned.leftToMacOS)) {
        planned.manage(app);
        imports.push_back(app);
        lines.push_back("imported: " + app.name + kDash + "was a macOS startup item; Holdenmere now starts it");
        auto item = std::find_if(agentItems.begin(), agentItems.end(), [&](const StartupItem& candidate) {
            return candidate.bundleIdentifier == app.bundleIdentifier &&
                   std::holds_alternative<StartupItem::LaunchAgent>(candidate.source);
        });
        if (item == agentItems.end()) continue;
        const auto& agent = std::get<StartupItem::LaunchAgent>(item->source);
        auto dropped = LoginOwnership::droppedArguments(std::filesystem::path(agent.plistPath));
        if (!dropped.empty()) {
            for (auto& argument : dropped) argument = "\"" + argument + "\"";
            lines.push_back(app.name + kDash + "its agent passed " + text::joined(dropped, " ") +
                            "; Holdenmere opens it without them");
        }
    }
    Imports result{imports, {}};
    if (imports.empty()) return result;
    if (auto failure = engine.transaction().commit([imports](HoldenmereConfig& fresh) {
            for (const auto& app : imports) fresh.manage(app);
        })) {
        lines.push_back("WARNING: could not save imported apps" + std::string(kDash) + *failure);
        for (const auto& app : imports) result.unsaved.insert(app.bundleIdentifier);
    }
    return result;
}

// The Login Items the plan removes, in Login-Item order, each with the app
// that owns it.
std::vector<LoginOwnership::LoginItem> plannedRemovals(const std::vector<LoginOwnership::LoginItem>& loginItems,
                                                       const LoginOwnership::Plan& plan) {
    std::vector<LoginOwnership::LoginItem> removals;
    for (const auto& item : loginItems) {
        if (contains(plan.managedRemovals, item) || contains(plan.blockRemovals, item) ||
            contains(plan.importRemovals, item)) {
            removals.push_back(item);
        }
    }
    return removals;
}

// The name the ledger files an app's entries under.
std::string appNameFor(const HoldenmereConfig& config, const std::string& bundleIdentifier, const std::string& fallback) {
    for (const auto& app : config.apps) {
        if (app.bundleIdentifier == bundleIdentifier) return app.name;
    }
    for (const auto& app : config.blockedApps) {
        if (app.bundleIdentifier == bundleIdentifier) return app.name;
    }
    return fallback;
}

void removeLoginItems(StartupChangeEngine& engine, const std::vector<LoginOwnership::LoginItem>& removals,
                      const std::set<std::string>& unsavedImports, const LoginOwnership::PassInputs& inputs,
                      LoginOwnership::PassResult& result, Recorded& recorded) {
    auto& lines = result.lines;
    for (const auto& item : removals) {
        const std::string& identifier = *item.bundleIdentifier;
        if (launchFailed(inputs.records, identifier)) {
            lines.push_back(item.name + kDash + "its launch failed this pass, so its Login Item stays");
            ++result.loginItemsNotRemoved;
            continue;
        }
        if (unsavedImports.count(identifier) != 0) {
            lines.push_back(item.name + kDash + "its import could not be saved, so its Login Item stays");
            ++result.loginItemsNotRemoved;
            continue;
        }
        const StartupChangeEngine::App app{identifier, appNameFor(engine.config(), identifier, item.name)};
        const auto outcome = engine.removeLoginItem(app, item.path);
        if (outcome.recorded) {
            appendOnce(recorded.names, app.name);
            recorded.loginItems.emplace_back(identifier, item.path);
        }
        switch (outcome.status) {
            case Status::changed:
            case Status::unchanged:
                break;
            case Status::unconfirmed:
                lines.push_back(item.name + kDash + "Login Item " + item.path + " removed, unconfirmed: " +
                                outcome.reason);
                break;
            case Status::failed:
                lines.push_back(item.name + kDash + "could NOT remove it from Login Items: " + outcome.reason);
                ++result.loginItemsNotRemoved;
                break;
            case Status::notChanged:
                lines.push_back(item.name + kDash + "its Login Item stays: " + outcome.reason);
                ++result.loginItemsNotRemoved;
                break;
        }
    }
}

// Every entry of this pass is on disk: a fresh read shows them. What a save
// has not reached is saved again, or named.
void checkLedger(StartupChangeEngine& engine, const Recorded& recorded, std::vector<std::string>& lines) {
    if (recorded.empty()) return;
    StartupTransaction& transaction = engine.transaction();
    if (transaction.refresh()) {
        lines.emplace_back("WARNING: could not re-read the config to save the take-over ledger");
        return;
    }
    auto missing = [&](const HoldenmereConfig& config) {
        std::vector<std::string> names;
        for (const auto& [identifier, path] : recorded.loginItems) {
            if (!holdsLoginItem(config, identifier, path)) appendOnce(names, appNameFor(config, identifier, identifier));
        }
        for (const auto& [identifier, label] : recorded.agents) {
            if (!holdsAgent(config, identifier, label)) appendOnce(names, appNameFor(config, identifier, identifier));
        }
        return names;
    };
    if (auto names = missing(transaction.config()); !names.empty()) {
        // Committing nothing new writes every change of the pass again.
        if (transaction.commit([](HoldenmereConfig&) {})) {
            lines.push_back("WARNING: could not save the take-over ledger" + std::string(kDash) +
                            "--restore-startup will not know about " + text::joined(names, ", "));
            return;
        }
    }
    for (const auto& name : recorded.names) lines.push_back(name + kDash + "recorded for --restore-startup");
}

// Plans what becomes of the Login Items. A list that cannot be read
// changes nothing.
LoginOwnership::Plan planLoginItems(const StartupChangeEngine& engine,
                                    const std::optional<std::vector<LoginOwnership::LoginItem>>& loginItems,
                                    const LoginOwnership::PassInputs& inputs, std::vector<std::string>& lines) {
    if (!loginItems) {
        lines.push_back("WARNING: Login Items" + std::string(kDash) +
                        std::string(StartupChangeEngine::kLoginItemsUnreadable));
        return {};
    }
    LoginOwnership::Plan plan =
        LoginOwnership::plan(*loginItems, engine.config().apps, engine.config().blockedApps, inputs.systemDaemonAppPaths,
                             inputs.switchedOff, engine.config().leftToMacOS, inputs.unreadableSystemDaemons.empty());
    lines.insert(lines.end(), plan.logLines.begin(), plan.logLines.end());
    return plan;
}

// Takes over the LaunchAgents of the managed and blocked apps, the imports
// among them (unsaved ones too: they keep their agents), each recorded first.
void takeOverOwnersAgents(StartupChangeEngine& engine, const LaunchAgentScanner& agentScanner,
                          const StartupSafety::Environment& environment, const LoginOwnership::PassInputs& inputs,
                          const Imports& imports, std::vector<std::string>& lines, Recorded& recorded) {
    HoldenmereConfig current = engine.config();
    for (const auto& app : imports.apps) current.manage(app);
    std::vector<ManagedApp> owners = current.apps;
    for (const auto& app : current.blockedApps) owners.push_back(asManagedRecord(app));
    const LoginOwnership::StaysReason staysReason = [&](const ManagedApp& app) -> std::optional<std::string> {
        if (launchFailed(inputs.records, app.bundleIdentifier)) {
            return "its launch failed this pass, so its LaunchAgent stays";
        }
        if (imports.unsaved.count(app.bundleIdentifier) != 0) {
            return "its import could not be saved, so its LaunchAgent stays";
        }
        return std::nullopt;
    };
    for (const auto& agent :
         LoginOwnership::takeOverAgents(owners, agentScanner, engine, environment, lines, staysReason)) {
        appendOnce(recorded.names, agent.name);
        recorded.agents.emplace_back(agent.bundleIdentifier, agent.label);
    }
}

}  // namespace

std::vector<LoginOwnership::AgentTakeoverResult> LoginOwnership::takeOverAgents(
    const std::vector<ManagedApp>& of, const LaunchAgentScanner& scanner, StartupChangeEngine& engine,
    const StartupSafety::Environment& environment, std::vector<std::string>& lines, const StaysReason& staysReason) {
    std::vector<AgentTakeoverResult> switchedOff;
    std::set<std::string> kept;  // apps whose agents stay, reported once
    for (const auto& conflict : scanner.conflicts(of)) {
        const ManagedApp& app = conflict.managed;
        const std::string& label = conflict.agentLabel;
        if (StartupChangeEngine::isOwnLabel(label)) continue;
        if (auto reason = staysReason ? staysReason(app) : std::nullopt) {
            if (kept.insert(app.bundleIdentifier).second) lines.push_back(app.name + kDash + *reason);
            continue;
        }
        if (engine.stopped()) {
            lines.push_back(app.name + kDash + "LaunchAgent " + label + " is NOT disabled: " +
                            std::string(StartupChangeEngine::kOutOfTime));
            continue;
        }
        const std::string agentText = kDash + std::string("LaunchAgent ") + label;
        const SafetyTier tier = StartupSafety::tier(agentCandidate(app, label, conflict.plistPath), environment);
        const auto outcome = engine.takeOverAgent({app.bundleIdentifier, app.name}, label, conflict.plistPath, tier,
                                                  /*confirmed=*/false);
        switch (outcome.status) {
            case Status::changed:
                lines.push_back((app.isEnabled ? "taken over: " : "blocked: ") + app.name + agentText + " disabled");
                switchedOff.push_back(AgentTakeoverResult{app.name, app.bundleIdentifier, label, conflict.plistPath});
                break;
            case Status::unchanged:
                // Already off: not Holdenmere's change, so neither recorded
                // nor ever switched on by giving startup back.
                lines.push_back(app.name + agentText + " was already disabled; left as it is");
                break;
            case Status::unconfirmed:
                lines.push_back(app.name + agentText + " is NOT confirmed disabled: " + outcome.reason);
                switchedOff.push_back(AgentTakeoverResult{app.name, app.bundleIdentifier, label, conflict.plistPath});
                break;
            case Status::failed:
            case Status::notChanged:
                lines.push_back(app.name + agentText + " is NOT disabled: " + outcome.reason);
                break;
        }
    }
    return switchedOff;
}

LoginOwnership::PassResult LoginOwnership::ownershipPass(StartupChangeEngine& engine,
                                                         const LaunchAgentScanner& agentScanner,
                                                         const StartupSafety::Environment& environment,
                                                         const PassInputs& inputs) {
    PassResult result;
    auto& lines = result.lines;

    // Consent.
    if (engine.config().startupConsent != StartupConsent::granted) {
        lines.push_back("startup take-over not enabled" + std::string(kDash) + "Login Items left to macOS (consent: " +
                        std::string(rawValue(engine.config().startupConsent)) + ")");
        result.config = engine.config();
        return result;
    }

    Recorded recorded;
    settleUnconfirmed(engine, lines);
    if (inputs.predatesLedger) backfillOnce(engine, agentScanner, lines, recorded);

    const auto loginItems = engine.loginItems();
    const Plan plan = planLoginItems(engine, loginItems, inputs, lines);
    // Import, then remove Login Items and take LaunchAgents over, each
    // recorded first.
    const Imports imports = importApps(engine, plan, agentScanner.startupItems(), inputs, lines);
    if (loginItems) {
        removeLoginItems(engine, plannedRemovals(*loginItems, plan), imports.unsaved, inputs, result, recorded);
    }
    takeOverOwnersAgents(engine, agentScanner, environment, inputs, imports, lines, recorded);

    checkLedger(engine, recorded, lines);
    // Imports that could not be saved stay in memory for the rest of the pass.
    result.config = engine.config();
    for (const auto& app : imports.apps) {
        if (imports.unsaved.count(app.bundleIdentifier) != 0) result.config.manage(app);
    }
    return result;
}

ReregistrationSweep::Remove LoginOwnership::sweepRemoval(ConfigAccess access, LaunchctlRunning& launchctl,
                                                         ScriptRunning& scripts, std::uint64_t giveBackGeneration,
                                                         SweepStop& stop) {
    return [access = std::move(access), &launchctl, &scripts, giveBackGeneration,
            &stop](const ManagedApp& app, const LoginItem& item) -> std::optional<LoginItemRemoval> {
        auto begun =
            StartupTransaction::begin(access, StartupTransaction::Wait::untilFree, &stop.signal, stop.lockPatience);
        auto* transaction = std::get_if<StartupTransaction>(&begun);
        if (transaction == nullptr) {
            if (stop.signal.isRaised()) return std::nullopt;
            if (std::get<StartupTransaction::Failure>(begun).kind != StartupTransaction::Failure::Kind::outOfTime) {
                return LoginItemRemoval::failed;
            }
            // Something else has been changing startup items all along:
            // the sweep leaves the field to it rather than queue behind it.
            stop.reason = kSweepLockBusy;
            stop.signal.raise();
            return std::nullopt;
        }
        StartupChangeEngine engine(*transaction, launchctl, scripts);
        engine.decideUnder(giveBackGeneration);
        const auto outcome = engine.removeLoginItem({app.bundleIdentifier, app.name}, item.path);
        const bool consentWithdrawn = transaction->config().startupConsent != StartupConsent::granted;
        transaction->end();
        if (outcome.madeChange() || outcome.status == Status::unchanged) return LoginItemRemoval::removed;
        if (engine.superseded() || (outcome.status == Status::notChanged && consentWithdrawn)) {
            if (!stop.signal.isRaised()) {
                stop.reason = outcome.reason;
                stop.signal.raise();
            }
            return std::nullopt;
        }
        if (outcome.reason == StartupChangeEngine::kNoLongerManaged ||
            outcome.reason == StartupChangeEngine::kLeftToMacOS) {
            return std::nullopt;
        }
        return LoginItemRemoval::failed;
    };
}

}  // namespace holdenmere
