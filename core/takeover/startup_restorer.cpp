#include "core/takeover/startup_restorer.h"

#include <algorithm>
#include <set>

#include "core/launchd/launchctl_running.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_switch.h"

namespace holdenmere {
namespace {

constexpr const char* kKept = "; kept in the ledger";
constexpr const char* kOptedOut = "you excluded it from giving back; kept in the ledger";

using Source = StartupRestorer::Source;
using Outcome = StartupRestorer::Outcome;
using Status = StartupChangeOutcome::Status;

bool listed(const std::vector<std::string>& identifiers, std::string_view identifier) {
    return std::find(identifiers.begin(), identifiers.end(), identifier) != identifiers.end();
}

// A helper given back leaves the ledger whole: its record, and the note
// that it was off when it was held, which would otherwise keep it off when
// it is held again later while on.
StartupStep::Change forgetHelper(const std::string& label) {
    return [label](HoldenmereConfig& fresh) {
        std::erase_if(fresh.delayedHelpers, [&](const DelayedHelper& held) { return held.label == label; });
        std::erase(fresh.keptOff, label);
    };
}

// The previous states that mean the item was off before it was held.
bool wasOff(const HeldStartupItem& item) { return item.previous == "off" || item.previous == "disabled"; }

std::string_view verb(Outcome outcome) {
    switch (outcome) {
        case Outcome::givenBack: return "given back";
        case Outcome::wouldGiveBack: return "would give back";
        case Outcome::leftOff: return "left off";
        case Outcome::optedOut: return "kept off";
        case Outcome::notInThisBuild: return "kept in the ledger";
        case Outcome::failed: return "FAILED";
        case Outcome::wouldFail: return "would fail";
    }
    return "";
}

// "to switch it on: launchctl enable gui/501/{label}".
std::string howToSwitchOn(const std::string& label) {
    return "to switch it on: launchctl enable " + launchdServiceTarget(label);
}

// A give-back through the engine as a report entry: `item` names what was
// given back, `done` what was done, `already` what was found.
StartupRestorer::Entry entryOf(Source source, const std::string& name, const std::string& item,
                               const std::string& done, const std::string& already,
                               const StartupChangeOutcome& outcome) {
    switch (outcome.status) {
        case Status::changed:
            return {source, name, done + (outcome.reason.empty() ? "" : "; " + outcome.reason), Outcome::givenBack};
        case Status::unchanged:
            return {source, name, already, Outcome::givenBack};
        case Status::unconfirmed:
        case Status::failed:
        case Status::notChanged:
            break;
    }
    std::string reason = outcome.reason;
    if (reason.ends_with('.')) reason.pop_back();
    return {source, name, item + ": " + reason + (outcome.recorded ? kKept : ""), Outcome::failed};
}

class GiveBackRun {
public:
    GiveBackRun(StartupChangeEngine& engine, bool dryRun) : engine_(engine), dryRun_(dryRun) {}

    StartupRestorer::Report run() {
        // Everything is decided on the ledger as it stood at the start; each
        // give-back then commits its own change of the ledger.
        const HoldenmereConfig config = engine_.config();
        // A give-back, whatever it finds to give: a login pass that decided
        // before it changes nothing after it.
        if (!dryRun_) noteLedgerFailure(engine_.noteGiveBack());
        loginItems(config);
        agents(config);
        helpers(config);
        // Held items by source, in the inventory's order of sources.
        for (const StartupSource source : kAllStartupSources) heldStartup(config, source);
        if (config.reopenWindowsOriginal) reopenWindows(*config.reopenWindowsOriginal);
        return std::move(report_);
    }

private:
    void add(StartupRestorer::Entry entry) { report_.entries.push_back(std::move(entry)); }
    void add(StartupRestorer::Entry entry, const StartupChangeOutcome& outcome) {
        if (outcome.ledgerFailure && !report_.ledgerFailure) report_.ledgerFailure = outcome.ledgerFailure;
        add(std::move(entry));
    }
    void noteLedgerFailure(const std::optional<std::string>& failure) {
        if (failure && !report_.ledgerFailure) report_.ledgerFailure = failure;
    }

    void loginItems(const HoldenmereConfig& config) {
        // System Events adds at the end: adding in the order Holdenmere saw
        // them puts the items back in the order they had.
        std::vector<std::pair<const TakeoverRecord*, const RemovedLoginItem*>> removed;
        for (const auto& record : config.takeovers) {
            for (const auto& item : record.loginItems) removed.emplace_back(&record, &item);
        }
        std::stable_sort(removed.begin(), removed.end(), [&](const auto& a, const auto& b) {
            return config.loginItemRank(a.second->path) < config.loginItemRank(b.second->path);
        });
        for (const auto& [entry, removedItem] : removed) {
            const TakeoverRecord& record = *entry;
            const RemovedLoginItem& item = *removedItem;
            const std::string detail = item.path + (item.hidden ? " (hidden)" : "");
            if (listed(config.restoreOptOuts, record.bundleIdentifier)) {
                add({Source::loginItems, record.name, detail + ": " + kOptedOut, Outcome::optedOut});
            } else if (StartupChangeEngine::isOwnBundle(record.bundleIdentifier)) {
                leaveOwnItem(Source::loginItems, record.name, item.path,
                             [identifier = record.bundleIdentifier, path = item.path](HoldenmereConfig& fresh) {
                                 fresh.forgetLoginItem(identifier, path);
                             });
            } else if (dryRun_ && !engine_.exists(item.path)) {
                add({Source::loginItems, record.name, item.path + ": it no longer exists" + kKept,
                     Outcome::wouldFail});
            } else if (dryRun_) {
                add({Source::loginItems, record.name, "add " + detail, Outcome::wouldGiveBack});
            } else {
                const auto outcome = engine_.giveBackLoginItem({record.bundleIdentifier, record.name}, item);
                add(entryOf(Source::loginItems, record.name, detail, "added " + detail,
                            item.path + " is in Login Items already", outcome),
                    outcome);
            }
        }
    }

    void agents(const HoldenmereConfig& config) {
        for (const auto& record : config.takeovers) {
            const bool recordOptedOut = listed(config.restoreOptOuts, record.bundleIdentifier);
            for (const auto& agent : record.agents) {
                if (recordOptedOut || listed(config.restoreOptOuts, agent.label) ||
                    listed(config.restoreOptOuts, "launchdJob:" + agent.label)) {
                    add({Source::launchAgents, record.name, agent.label + ": " + kOptedOut, Outcome::optedOut});
                } else if (StartupChangeEngine::isOwnLabel(agent.label) ||
                           StartupChangeEngine::isOwnBundle(record.bundleIdentifier)) {
                    leaveOwnItem(Source::launchAgents, record.name, agent.label,
                                 [identifier = record.bundleIdentifier, label = agent.label](HoldenmereConfig& fresh) {
                                     fresh.forgetAgent(identifier, label);
                                 });
                } else if (agent.inferred) {
                    leaveAgentOff(record, agent);
                } else if (agent.unconfirmed && !settle(record, agent)) {
                    continue;
                } else if (dryRun_) {
                    add({Source::launchAgents, record.name, "switch " + agent.label + " back on",
                         Outcome::wouldGiveBack});
                } else {
                    const auto outcome = engine_.switchOnJob(
                        record.name + kDash + agent.label, agent.label, agent.plistPath,
                        [identifier = record.bundleIdentifier, label = agent.label](HoldenmereConfig& fresh) {
                            fresh.forgetAgent(identifier, label);
                        });
                    add(entryOf(Source::launchAgents, record.name, agent.label, agent.label + " switched back on",
                                agent.label + " is on already", outcome),
                        outcome);
                }
            }
        }
    }

    // An agent switched off while launchd's disabled list could not be read
    // to confirm it: launchd now tells, as the next login pass would ask it.
    // Off means Holdenmere's switch took, and it is given back (true); on
    // means it never took, and only the entry goes; unreadable keeps the
    // entry for a later try. A dry run asks launchd nothing.
    bool settle(const TakeoverRecord& record, const DisabledAgent& agent) {
        if (dryRun_) {
            add({Source::launchAgents, record.name,
                 "switch " + agent.label + " back on if launchd lists it switched off (never confirmed)",
                 Outcome::wouldGiveBack});
            return false;
        }
        if (!disabled_) disabled_ = engine_.disabledLabels();
        if (!*disabled_) {
            std::string reason(StartupChangeEngine::kDisabledListUnreadable);
            if (reason.ends_with('.')) reason.pop_back();
            add({Source::launchAgents, record.name, agent.label + ": " + reason + kKept, Outcome::failed});
            return false;
        }
        if ((*disabled_)->count(agent.label) != 0) return true;
        noteLedgerFailure(engine_.transaction().commit(
            [identifier = record.bundleIdentifier, label = agent.label](HoldenmereConfig& fresh) {
                fresh.forgetAgent(identifier, label);
            }));
        add({Source::launchAgents, record.name, agent.label + " is on already; its switch-off never took",
             Outcome::givenBack});
        return false;
    }

    // An agent that Holdenmere found off may have been switched off by
    // someone else: it stays off.
    void leaveAgentOff(const TakeoverRecord& record, const DisabledAgent& agent) {
        const std::string why = " was found switched off, maybe not by Holdenmere";
        const std::string detail = agent.label + why + ", so it stays off; " + howToSwitchOn(agent.label);
        if (dryRun_) {
            add({Source::launchAgents, record.name, "would leave " + detail, Outcome::leftOff});
            return;
        }
        noteLedgerFailure(engine_.transaction().commit(
            [identifier = record.bundleIdentifier, label = agent.label](HoldenmereConfig& fresh) {
                fresh.forgetAgent(identifier, label);
            }));
        add({Source::launchAgents, record.name, detail, Outcome::leftOff});
    }

    void helpers(const HoldenmereConfig& config) {
        for (const auto& helper : config.delayedHelpers) {
            if (listed(config.restoreOptOuts, helper.label) ||
                listed(config.restoreOptOuts, helper.appBundleIdentifier)) {
                add({Source::heldHelpers, helper.name, helper.label + ": " + kOptedOut, Outcome::optedOut});
            } else if (StartupChangeEngine::isOwnLabel(helper.label) ||
                       StartupChangeEngine::isOwnBundle(helper.appBundleIdentifier)) {
                leaveOwnItem(Source::heldHelpers, helper.name, helper.label, forgetHelper(helper.label));
            } else if (listed(config.keptOff, helper.label)) {
                helperLeftOff(helper);
            } else if (dryRun_) {
                add({Source::heldHelpers, helper.name, "switch " + helper.label + " back on", Outcome::wouldGiveBack});
            } else {
                const auto outcome = engine_.releaseHelper(helper, forgetHelper(helper.label));
                add(entryOf(Source::heldHelpers, helper.name, helper.label, helper.label + " switched back on",
                            helper.label + " is on already", outcome),
                    outcome);
            }
        }
    }

    // A helper that was off when Holdenmere began to hold it stays off.
    void helperLeftOff(const DelayedHelper& helper) {
        const std::string detail = helper.label + " was already off when Holdenmere began to hold it";
        if (dryRun_) {
            add({Source::heldHelpers, helper.name, detail + "; would leave it off", Outcome::leftOff});
            return;
        }
        noteLedgerFailure(engine_.transaction().commit(forgetHelper(helper.label)));
        add({Source::heldHelpers, helper.name, detail, Outcome::leftOff});
    }

    void heldStartup(const HoldenmereConfig& config, StartupSource source) {
        for (const auto& item : config.heldStartup) {
            if (item.source != source) continue;
            const std::string row = std::string(rawValue(item.source)) + ":" + item.handle;
            if (listed(config.restoreOptOuts, item.handle) || listed(config.restoreOptOuts, row) ||
                (item.ownerBundleIdentifier && listed(config.restoreOptOuts, *item.ownerBundleIdentifier))) {
                add({groupOf(item.source), item.name, item.handle + ": " + kOptedOut, Outcome::optedOut});
            } else if (StartupChangeEngine::isOwnLabel(item.handle) ||
                       (item.ownerBundleIdentifier && StartupChangeEngine::isOwnBundle(*item.ownerBundleIdentifier))) {
                leaveOwnItem(groupOf(item.source), item.name, item.handle,
                             [item](HoldenmereConfig& fresh) { fresh.release(item); });
            } else if (item.source != StartupSource::launchdJob) {
                heldItem(item);
            } else if (wasOff(item)) {
                heldItemLeftOff(item);
            } else if (dryRun_) {
                add({Source::heldStartup, item.name, "switch " + item.handle + " back on", Outcome::wouldGiveBack});
            } else {
                const auto outcome =
                    engine_.switchOnJob(item.name + kDash + item.handle, item.handle, item.plistPath.value_or(""),
                                        [item](HoldenmereConfig& fresh) { fresh.release(item); });
                add(entryOf(Source::heldStartup, item.name, item.handle, item.handle + " switched back on",
                            item.handle + " is on already", outcome),
                    outcome);
            }
        }
    }

    // Holdenmere never switches its own items off, so an entry that names
    // one (a configuration edited by hand, or written by an older version)
    // records no change of Holdenmere's: the item is not touched, and the
    // entry leaves the ledger instead of failing every give-back.
    void leaveOwnItem(Source source, const std::string& name, const std::string& handle,
                      const StartupStep::Change& forget) {
        const std::string detail = handle + " is Holdenmere's own item, which it never switches off; left as it is";
        if (dryRun_) {
            add({source, name, "would leave " + detail, Outcome::leftOff});
            return;
        }
        noteLedgerFailure(engine_.transaction().commit(forget));
        add({source, name, detail, Outcome::leftOff});
    }

    // Only what Holdenmere switched off is given back.
    void heldItemLeftOff(const HeldStartupItem& item) {
        const std::string detail = item.handle + " was already off when Holdenmere found it";
        if (dryRun_) {
            add({groupOf(item.source), item.name, detail + "; would leave it off", Outcome::leftOff});
            return;
        }
        noteLedgerFailure(engine_.transaction().commit([item](HoldenmereConfig& fresh) { fresh.release(item); }));
        add({groupOf(item.source), item.name, detail, Outcome::leftOff});
    }

    // A held item of a source beyond launchd, through that source's switch.
    void heldItem(const HeldStartupItem& item) {
        const Source group = groupOf(item.source);
        const StartupSwitches* switches = engine_.switches();
        StartupSwitch* source = switches != nullptr ? switches->find(item.source) : nullptr;
        if (item.source == StartupSource::sessionRestore) {
            stopQuitting(item);
        } else if (source == nullptr) {
            add({group, item.name,
                 "this build cannot switch " + std::string(rawValue(item.source)) + " items back on; kept in the ledger",
                 Outcome::notInThisBuild});
        } else if (wasOff(item)) {
            heldItemLeftOff(item);
        } else if (dryRun_) {
            add({group, item.name, "switch " + item.handle + " back on", Outcome::wouldGiveBack});
        } else {
            const auto outcome = engine_.giveBackItem(*source, item);
            add(entryOf(group, item.name, item.handle, item.handle + " switched back on",
                        item.handle + " is on already", outcome),
                outcome);
        }
    }

    // An app held to be quit after login: giving it back is no longer
    // quitting it; loginwindow goes on reopening it as it did.
    void stopQuitting(const HeldStartupItem& item) {
        const std::string detail = item.handle + " is no longer quit after login";
        if (dryRun_) {
            add({Source::sessionRestoreApps, item.name, "stop quitting " + item.handle + " after login",
                 Outcome::wouldGiveBack});
            return;
        }
        if (auto failure = engine_.transaction().commit([item](HoldenmereConfig& fresh) { fresh.release(item); })) {
            add({Source::sessionRestoreApps, item.name, item.handle + ": " + *failure + kKept, Outcome::failed});
            return;
        }
        add({Source::sessionRestoreApps, item.name, detail, Outcome::givenBack});
    }

    void reopenWindows(const ReopenWindowsRecord& original) {
        const std::string name = "reopen windows when logging back in";
        const StartupSwitches* switches = engine_.switches();
        const std::string values = "TALLogoutSavesState " + shown(original.logoutSavesState) +
                                   ", LoginwindowLaunchesRelaunchApps " + shown(original.launchesRelaunchApps);
        if (switches == nullptr || switches->reopenWindows == nullptr) {
            add({Source::reopenWindows, name, "this build cannot restore it; kept in the ledger",
                 Outcome::notInThisBuild});
        } else if (dryRun_) {
            add({Source::reopenWindows, name, "restore " + values, Outcome::wouldGiveBack});
        } else {
            const auto outcome = engine_.giveBackReopenWindows(*switches->reopenWindows, original);
            add(entryOf(Source::reopenWindows, name, "the setting", "restored " + values,
                        "it is as it was already (" + values + ")", outcome),
                outcome);
        }
    }

    static std::string shown(const std::optional<bool>& value) {
        if (!value) return "not set";
        return *value ? "true" : "false";
    }

    static Source groupOf(StartupSource source) {
        switch (source) {
            case StartupSource::appExtension: return Source::appExtensions;
            case StartupSource::sessionRestore: return Source::sessionRestoreApps;
            case StartupSource::launcherChild: return Source::launcherChildren;
            case StartupSource::serviceManagement:
            case StartupSource::launchdJob: break;
        }
        return Source::heldStartup;
    }

    StartupChangeEngine& engine_;
    bool dryRun_;
    StartupRestorer::Report report_;
    // launchd's disabled list, read once when an unconfirmed entry needs it.
    std::optional<std::optional<std::set<std::string>>> disabled_;
};

}  // namespace

std::string StartupRestorer::Entry::line() const {
    return std::string(sourceName(source)) + ": " + std::string(verb(outcome)) + ": " + name + kDash + detail;
}

bool StartupRestorer::Report::anyFailed() const {
    return std::any_of(entries.begin(), entries.end(),
                       [](const Entry& entry) { return entry.outcome == Outcome::failed; });
}

std::string_view StartupRestorer::sourceName(Source source) {
    switch (source) {
        case Source::loginItems: return "Login Items";
        case Source::launchAgents: return "LaunchAgents";
        case Source::heldHelpers: return "held helpers";
        case Source::heldStartup: return "held startup items";
        case Source::appExtensions: return "app extensions";
        case Source::sessionRestoreApps: return "session-restored apps";
        case Source::launcherChildren: return "launcher children";
        case Source::reopenWindows: return "reopen-windows setting";
    }
    return "";
}

StartupRestorer::Report StartupRestorer::giveBack(StartupChangeEngine& engine, bool dryRun) {
    return GiveBackRun(engine, dryRun).run();
}

StartupRestorer::GiveBack StartupRestorer::giveEverythingBack(
    StartupChangeEngine& engine, bool dryRun, const std::function<std::optional<std::string>()>& turnOffLoginAgent) {
    GiveBack result;
    // The opt-out first: were it lost, the next login pass would take
    // everything over again.
    if (!dryRun) {
        if (auto failure =
                engine.transaction().commit([](HoldenmereConfig& config) { config.declineStartupConsent(); })) {
            result.optOutFailure = *failure;
            return result;
        }
        // A login pass that decided before now changes nothing after it.
        if (auto failure = engine.noteGiveBack()) {
            result.optOutFailure = *failure;
            return result;
        }
    }
    result.report = giveBack(engine, dryRun);
    if (!dryRun && turnOffLoginAgent) result.loginAgentFailure = turnOffLoginAgent();
    return result;
}

}  // namespace holdenmere
