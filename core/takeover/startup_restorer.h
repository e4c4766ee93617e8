#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/login_items_auditor.h"
#include "core/launchd/helper_delay.h"
#include "core/takeover/agent_takeover.h"

namespace holdenmere {

// Gives back every change of macOS startup that the configuration's ledger
// records: removed Login Items are added again as they were, switched-off
// LaunchAgents switched back on and loaded, held helpers and held launchd
// jobs released. Only the ledger is given back, so nothing that was already
// off when Holdenmere found it is switched on; identifiers in
// "restoreOptOuts" are left as they are. What was given back leaves the
// ledger, what failed stays in it for the next try.
class StartupRestorer {
public:
    // Where an entry came from, in the order they are given back.
    enum class Source { loginItems, launchAgents, heldHelpers, heldStartup, reopenWindows };

    enum class Outcome {
        givenBack,       // switched back on (or found back already); leaves the ledger
        wouldGiveBack,   // dry run
        leftOff,         // it was off before it was held: nothing switched; leaves the ledger
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
        HoldenmereConfig config;     // the configuration with what was given back out of its ledger

        bool anyFailed() const;
        // Whether the ledger in `config` differs from the one given.
        bool ledgerChanged = false;
    };

    using FileExists = std::function<bool(const std::string& path)>;

    // "Login Items", "LaunchAgents", "held helpers", "held startup items",
    // "reopen-windows setting".
    static std::string_view sourceName(Source source);

    // The runners must outlive the restorer. `fileExists` tells whether a
    // Login Item's app is still there; the file system by default.
    StartupRestorer(LoginItemsAuditor& auditor, AgentTakeover& agents, FileExists fileExists = {});

    // Gives everything in the ledger back, or with `dryRun` only says what
    // it would give back, asking nothing of launchd or System Events and
    // returning the configuration unchanged.
    Report giveBack(const HoldenmereConfig& config, bool dryRun, HelperDelay& helperDelay);

private:
    void giveBackLoginItems(Report& report, bool dryRun);
    void giveBackAgents(Report& report, bool dryRun);
    void giveBackHelpers(Report& report, bool dryRun, HelperDelay& helperDelay);
    void giveBackHeldStartup(Report& report, bool dryRun);

    LoginItemsAuditor& auditor_;
    AgentTakeover& agents_;
    FileExists fileExists_;
};

}  // namespace holdenmere
