#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/takeover/startup_change_engine.h"

namespace holdenmere {

// Gives back every change of macOS startup that the configuration's ledger
// records, through the startup-change engine: removed Login Items added
// again as they were, switched-off LaunchAgents switched back on and loaded,
// held helpers and held launchd jobs released. Only the ledger is given
// back, and only what Holdenmere is known to have switched off: an entry it
// found off (inferred, or a held item whose previous state was off) or one
// whose switch-off was never confirmed stays off, with the way to switch it
// on. Holdenmere's own bundle and launchd jobs are never touched: an entry
// that names one leaves the ledger as it is left. Identifiers in
// "restoreOptOuts" are left as they are. What was given back leaves the
// ledger as it is given back; what failed stays for the next try.
class StartupRestorer {
public:
    // Where an entry came from, in the order they are given back.
    enum class Source {
        loginItems,
        launchAgents,
        heldHelpers,
        heldStartup,  // held launchd and ServiceManagement jobs
        appExtensions,
        sessionRestoreApps,
        launcherChildren,
        reopenWindows,
    };

    enum class Outcome {
        givenBack,       // switched back on (or found back already); leaves the ledger
        wouldGiveBack,   // dry run
        leftOff,         // not known to be Holdenmere's change: nothing switched; leaves the ledger
        optedOut,        // in "restoreOptOuts"; stays in the ledger
        notInThisBuild,  // a source this build cannot switch; stays in the ledger
        failed,          // stays in the ledger
        wouldFail,       // dry run: it cannot be given back as things stand
    };

    struct Entry {
        Source source = Source::loginItems;
        std::string name;
        std::string detail;  // what was (or would be) done, or why not
        Outcome outcome = Outcome::givenBack;

        // "{source}: {verb}: {name} — {detail}".
        std::string line() const;
        friend bool operator==(const Entry&, const Entry&) = default;
    };

    struct Report {
        std::vector<Entry> entries;  // by source, each source in ledger order
        // The first error of a ledger save after something was given back:
        // that entry stays in the ledger although its item is back on.
        std::optional<std::string> ledgerFailure;

        bool anyFailed() const;
    };

    // What giving everything back did, as --restore-startup and the desktop
    // app's Give Everything Back show it.
    struct GiveBack {
        // The opt-out could not be saved: nothing else was done.
        std::optional<std::string> optOutFailure;
        Report report;
        // Holdenmere's login agent: turned off, or why not (nothing in a dry run).
        std::optional<std::string> loginAgentFailure;

        bool ok() const { return !optOutFailure && !report.anyFailed() && !loginAgentFailure; }
    };

    // "Login Items", "LaunchAgents", "held helpers", "held startup items",
    // "app extensions", "session-restored apps", "launcher children",
    // "reopen-windows setting".
    static std::string_view sourceName(Source source);

    // Gives everything in the ledger back, or with `dryRun` only says what
    // it would give back, asking nothing of launchd or System Events and
    // changing nothing.
    static Report giveBack(StartupChangeEngine& engine, bool dryRun);

    // The whole give-back: the opt-out (startup consent declined) saved
    // first, so that no later login pass takes anything over again; then
    // giveBack; then `turnOffLoginAgent` (its failure text, or nothing).
    static GiveBack giveEverythingBack(StartupChangeEngine& engine, bool dryRun,
                                       const std::function<std::optional<std::string>()>& turnOffLoginAgent);
};

}  // namespace holdenmere
