// The ownership pass: Login Items and LaunchAgents taken over at the end of
// a login pass, every change recorded in the ledger before it is made.
#include <algorithm>
#include <exception>

#include "core/discovery/startup_discovery.h"
#include "core/support/text.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

constexpr const char* kDash = " \xE2\x80\x94 ";

bool launchFailed(const std::vector<LaunchRecord>& records, const std::string& bundleIdentifier) {
    return std::any_of(records.begin(), records.end(), [&](const LaunchRecord& record) {
        return record.bundleIdentifier == bundleIdentifier && record.outcome == LaunchOutcome::failed;
    });
}

template <typename Item>
bool contains(const std::vector<Item>& items, const Item& item) {
    return std::find(items.begin(), items.end(), item) != items.end();
}

void appendOnce(std::vector<std::string>& names, const std::string& name) {
    if (!contains(names, name)) names.push_back(name);
}

// The configuration as the pass works on it. Every save starts from a fresh
// read of the file, so that what the desktop app changed meanwhile
// survives, and carries the ledger entries of the pass so far.
class PassConfig {
public:
    PassConfig(const std::function<HoldenmereConfig()>& load, const std::function<void(const HoldenmereConfig&)>& save)
        : load_(load), save_(save) {}

    HoldenmereConfig config;            // in memory: what was last loaded or saved, with unsaved imports
    HoldenmereConfig ledger;            // only its ledger is used: this pass's entries
    std::vector<std::string> recorded;  // names of the apps with entries, in order
    std::optional<HoldenmereConfig> lastSaved;
    // Imports whose save failed: the pass goes on with them in memory.
    std::vector<ManagedApp> unsavedImports;

    // Applies `change` to a fresh read with the ledger merged and saves it;
    // on success the in-memory configuration becomes what was saved. The
    // error's text on failure, when nothing was saved.
    std::optional<std::string> saveFresh(const std::function<void(HoldenmereConfig&)>& change) {
        try {
            HoldenmereConfig fresh = load_();
            fresh.mergeLedger(ledger);
            change(fresh);
            save_(fresh);
            lastSaved = fresh;
            adopt(std::move(fresh));
            return std::nullopt;
        } catch (const std::exception& error) {
            return std::string(error.what());
        }
    }

    // The configuration as saved becomes the one in memory, with the
    // unsaved imports kept.
    void adopt(HoldenmereConfig saved) {
        config = std::move(saved);
        for (const auto& app : unsavedImports) config.manage(app);
    }

    // The names of the apps whose entries of this pass no save has reached.
    std::vector<std::string> unsaved() const {
        std::vector<std::string> names;
        for (const auto& record : ledger.takeovers) {
            const TakeoverRecord* saved = lastSaved ? lastSaved->takeover(record.bundleIdentifier) : nullptr;
            bool known = saved != nullptr && (!record.loginItem || saved->loginItem);
            for (const auto& agent : record.agents) {
                known = known &&
                        std::any_of(saved->agents.begin(), saved->agents.end(),
                                    [&](const DisabledAgent& candidate) { return candidate.label == agent.label; });
            }
            if (!known) appendOnce(names, record.name);
        }
        return names;
    }

private:
    const std::function<HoldenmereConfig()>& load_;
    const std::function<void(const HoldenmereConfig&)>& save_;
};

ManagedApp asManagedRecord(const BlockedApp& blocked) {
    ManagedApp app;
    app.bundleIdentifier = blocked.bundleIdentifier;
    app.name = blocked.name;
    app.path = blocked.path;
    app.isEnabled = false;  // marks a blocked app for takeOverAgents' lines
    return app;
}

// The Login Items the plan removes, in Login-Item order.
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

}  // namespace

std::vector<LoginOwnership::AgentTakeoverResult> LoginOwnership::takeOverAgents(
    const std::vector<ManagedApp>& of, const LaunchAgentScanner& scanner, AgentTakeover& takeover,
    const RecordFirst& recordFirst, std::vector<std::string>& lines, const StaysReason& staysReason) {
    std::vector<AgentTakeoverResult> switchedOff;
    std::set<std::string> kept;  // apps whose agents stay, reported once
    for (const auto& conflict : scanner.conflicts(of)) {
        const ManagedApp& app = conflict.managed;
        const std::string& label = conflict.agentLabel;
        if (StartupDiscovery::ownLaunchdLabels.count(label) != 0) continue;
        if (auto reason = staysReason ? staysReason(app) : std::nullopt) {
            if (kept.insert(app.bundleIdentifier).second) lines.push_back(app.name + kDash + *reason);
            continue;
        }
        const std::string agentText = kDash + std::string("LaunchAgent ") + label;
        const std::string notDisabled = app.name + agentText + " is NOT disabled: ";

        // The safety rules come first: what they do not allow is never
        // recorded, and launchd is not asked.
        const SafetyTier tier =
            StartupSafety::tier(agentCandidate(app, label, conflict.plistPath), takeover.environment());
        if (tier.kind != SafetyTier::Kind::allowed) {
            lines.push_back(notDisabled +
                            takeover.switchOff(label, tier, false, AgentTakeover::Mechanism::disable).reason);
            continue;
        }
        // An agent already off is not Holdenmere's change, so it is neither
        // recorded nor ever switched on by giving startup back.
        if (takeover.isDisabled(label)) {
            lines.push_back(app.name + agentText + " was already disabled; left as it is");
            continue;
        }
        AgentTakeoverResult result{app.name, app.bundleIdentifier, label, conflict.plistPath};
        if (!recordFirst || !recordFirst(result)) {
            lines.push_back(notDisabled + "the recovery record could not be saved, so launchd was not changed");
            continue;
        }
        const auto outcome = takeover.switchOff(label, tier, false, AgentTakeover::Mechanism::disable);
        switch (outcome.kind) {
            case AgentTakeover::Result::Kind::switchedOff:
                lines.push_back((app.isEnabled ? "taken over: " : "blocked: ") + app.name + agentText + " disabled");
                switchedOff.push_back(std::move(result));
                break;
            case AgentTakeover::Result::Kind::alreadyOff:
            case AgentTakeover::Result::Kind::switchedOn:
                lines.push_back(app.name + agentText + " was already disabled; left as it is");
                break;
            case AgentTakeover::Result::Kind::failed:
                lines.push_back(notDisabled + outcome.reason);
                break;
        }
    }
    return switchedOff;
}

LoginOwnership::PassResult LoginOwnership::ownershipPass(
    const std::function<HoldenmereConfig()>& load, const std::function<void(const HoldenmereConfig&)>& save,
    const std::vector<LaunchRecord>& records, LoginItemsAuditor& auditor, const LaunchAgentScanner& agentScanner,
    AgentTakeover& takeover, const std::set<std::string>& systemDaemonAppPaths,
    const std::set<std::string>& switchedOff) {
    PassResult result;
    auto& lines = result.lines;
    PassConfig pass(load, save);
    try {
        pass.config = load();
    } catch (const std::exception& error) {
        lines.push_back(std::string("WARNING: could not read the config") + kDash + error.what() +
                        "; Login Items and LaunchAgents left as they are");
        return result;
    }

    // 1. Consent.
    if (pass.config.startupConsent != StartupConsent::granted) {
        lines.push_back("startup take-over not enabled" + std::string(kDash) + "Login Items left to macOS (consent: " +
                        std::string(rawValue(pass.config.startupConsent)) + ")");
        result.config = std::move(pass.config);
        return result;
    }

    // Changes of earlier versions that no ledger recorded. Nothing in the
    // system changes, so they are saved with the pass's other entries.
    {
        HoldenmereConfig backfilled = pass.config;
        backfill(agentScanner.disabledEligibleAgents(), backfilled, lines);
        for (const auto& record : backfilled.takeovers) {
            const TakeoverRecord* before = pass.config.takeover(record.bundleIdentifier);
            if (before == nullptr || *before != record) appendOnce(pass.recorded, record.name);
        }
        pass.ledger.mergeLedger(backfilled);
        pass.config = std::move(backfilled);
    }

    // 2. Plan the Login Items.
    const std::vector<LoginItem> loginItems = auditor.loginItems(/*readingHidden=*/true);
    const Plan plan = LoginOwnership::plan(loginItems, pass.config.apps, pass.config.blockedApps, systemDaemonAppPaths,
                                           switchedOff, pass.config.leftToMacOS);
    lines.insert(lines.end(), plan.logLines.begin(), plan.logLines.end());

    // 3. Import, and save the imports.
    std::vector<ManagedApp> imports;
    for (const auto& app : plan.imports) {
        if (pass.config.manage(app)) imports.push_back(app);
    }
    const std::vector<StartupItem> agentItems = agentScanner.startupItems();
    for (const auto& app : discoveredImports(agentItems, pass.config.apps, pass.config.blockedApps,
                                             systemDaemonAppPaths, pass.config.leftToMacOS)) {
        pass.config.manage(app);
        imports.push_back(app);
        lines.push_back("imported: " + app.name + kDash + "was a macOS startup item; Holdenmere now starts it");
        auto item = std::find_if(agentItems.begin(), agentItems.end(), [&](const StartupItem& candidate) {
            return candidate.bundleIdentifier == app.bundleIdentifier &&
                   std::holds_alternative<StartupItem::LaunchAgent>(candidate.source);
        });
        if (item == agentItems.end()) continue;
        const auto& agent = std::get<StartupItem::LaunchAgent>(item->source);
        auto dropped = droppedArguments(std::filesystem::path(agent.plistPath));
        if (!dropped.empty()) {
            for (auto& argument : dropped) argument = "\"" + argument + "\"";
            lines.push_back(app.name + kDash + "its agent passed " + text::joined(dropped, " ") +
                            "; Holdenmere opens it without them");
        }
    }
    // Apps whose import is not saved keep their Login Items and agents: the
    // next login would start them neither way.
    std::set<std::string> unsavedImports;
    if (!imports.empty()) {
        auto failure = pass.saveFresh([&](HoldenmereConfig& fresh) {
            for (const auto& app : imports) fresh.manage(app);
        });
        if (failure) {
            lines.push_back("WARNING: could not save imported apps" + std::string(kDash) + *failure);
            for (const auto& app : imports) unsavedImports.insert(app.bundleIdentifier);
            pass.unsavedImports = imports;
        }
    }

    // 4. Remove Login Items, recorded first.
    std::vector<LoginItem> toRemove;
    for (const auto& item : plannedRemovals(loginItems, plan)) {
        const std::string& identifier = *item.bundleIdentifier;
        if (launchFailed(records, identifier)) {
            lines.push_back(item.name + kDash + "its launch failed this pass, so its Login Item stays");
            ++result.loginItemsNotRemoved;
        } else if (unsavedImports.count(identifier) != 0) {
            lines.push_back(item.name + kDash + "its import could not be saved, so its Login Item stays");
            ++result.loginItemsNotRemoved;
        } else {
            toRemove.push_back(item);
        }
    }
    if (!toRemove.empty()) {
        HoldenmereConfig entries;
        for (const auto& item : toRemove) {
            entries.recordLoginItem(*item.bundleIdentifier, item.name, RemovedLoginItem{item.path, item.hidden});
        }
        if (auto failure = pass.saveFresh([&](HoldenmereConfig& fresh) { fresh.mergeLedger(entries); })) {
            lines.push_back("WARNING: could not save the recovery record of the Login Items" + std::string(kDash) +
                            *failure);
            for (const auto& item : toRemove) {
                lines.push_back(item.name + kDash + "the recovery record could not be saved, so its Login Item stays");
            }
            result.loginItemsNotRemoved += static_cast<int>(toRemove.size());
        } else {
            pass.ledger.mergeLedger(entries);
            for (const auto& item : toRemove) {
                if (auditor.remove(item) == LoginItemRemoval::failed) {
                    lines.push_back(item.name + kDash + "could NOT remove it from Login Items");
                    ++result.loginItemsNotRemoved;
                } else {
                    appendOnce(pass.recorded, item.name);
                }
            }
        }
    }

    // 5 and 6. Take the LaunchAgents over, each recorded first.
    std::vector<ManagedApp> owners = pass.config.apps;
    for (const auto& blocked : pass.config.blockedApps) owners.push_back(asManagedRecord(blocked));
    std::optional<std::string> recordFailure;
    const RecordFirst recordFirst = [&](const AgentTakeoverResult& agent) {
        auto failure = pass.saveFresh([&](HoldenmereConfig& fresh) { fresh.record(agent); });
        if (failure) {
            if (!recordFailure) {
                recordFailure = failure;
                lines.push_back("WARNING: could not save the recovery record of a LaunchAgent" + std::string(kDash) +
                                *failure);
            }
            return false;
        }
        pass.ledger.record(agent);
        return true;
    };
    const StaysReason staysReason = [&](const ManagedApp& app) -> std::optional<std::string> {
        if (launchFailed(records, app.bundleIdentifier)) return "its launch failed this pass, so its LaunchAgent stays";
        if (unsavedImports.count(app.bundleIdentifier) != 0) {
            return "its import could not be saved, so its LaunchAgent stays";
        }
        return std::nullopt;
    };
    for (const auto& agent : takeOverAgents(owners, agentScanner, takeover, recordFirst, lines, staysReason)) {
        appendOnce(pass.recorded, agent.name);
    }

    // 7. The ledger, merged into a fresh read of the configuration.
    if (!pass.recorded.empty()) {
        HoldenmereConfig fresh;
        bool reread = true;
        try {
            fresh = load();
        } catch (const std::exception&) {
            reread = false;
            lines.emplace_back("WARNING: could not re-read the config to save the take-over ledger");
            pass.config.mergeLedger(pass.ledger);
        }
        if (reread) {
            fresh.mergeLedger(pass.ledger);
            try {
                save(fresh);
                pass.adopt(std::move(fresh));
                for (const auto& name : pass.recorded) lines.push_back(name + kDash + "recorded for --restore-startup");
            } catch (const std::exception& error) {
                // Each change was saved on its own before it was made; only
                // what no save reached is unknown to --restore-startup.
                const auto unknown = pass.unsaved();
                lines.push_back("WARNING: could not save the take-over ledger" + std::string(kDash) +
                                (unknown.empty()
                                     ? "its entries were saved before each change (" + std::string(error.what()) + ")"
                                     : "--restore-startup will not know about " + text::joined(unknown, ", ")));
                pass.config.mergeLedger(pass.ledger);
            }
        }
    }

    result.config = std::move(pass.config);
    return result;
}

}  // namespace holdenmere
