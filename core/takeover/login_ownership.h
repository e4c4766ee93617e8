#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/login_items_auditor.h"
#include "core/discovery/reregistration_sweep.h"
#include "core/discovery/startup_item.h"
#include "core/support/plist.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {

// Makes Holdenmere the one that starts the managed apps at login, and keeps
// stored configurations up to date. Pure planning functions plus the pass
// that carries a plan out through the startup-change engine, which records
// every change in the configuration's ledger before it makes it.
struct LoginOwnership {
    using LoginItem = LoginItemsAuditor::LoginItem;
    using AgentTakeoverResult = holdenmere::AgentTakeoverResult;

    // What to do with the current Login Items.
    struct Plan {
        std::vector<ManagedApp> imports;         // apps to add to the configuration
        std::vector<LoginItem> importRemovals;   // Login Items of those apps, to remove
        std::vector<LoginItem> blockRemovals;    // Login Items of blocked apps, to remove
        std::vector<LoginItem> managedRemovals;  // Login Items of managed apps, to remove
        std::vector<LoginItem> ignored;          // not apps; they stay
        std::vector<std::string> logLines;       // in Login-Item order

        // The log lines do not count.
        bool isEmpty() const {
            return imports.empty() && importRemovals.empty() && blockRemovals.empty() && managedRemovals.empty() &&
                   ignored.empty();
        }
        friend bool operator==(const Plan&, const Plan&) = default;
    };

    // A stored configuration brought up to date.
    struct Migration {
        HoldenmereConfig config;
        std::vector<ManagedApp> movedToBlocked;
        std::vector<ManagedApp> droppedSystemDaemons;
        std::vector<ManagedApp> clampedDelays;
        std::vector<std::string> logLines;

        // Whether anything changed, so that the caller saves.
        bool changed() const {
            return !movedToBlocked.empty() || !droppedSystemDaemons.empty() || !clampedDelays.empty();
        }
    };

    // What the ownership pass did.
    struct PassResult {
        HoldenmereConfig config;         // the configuration after the pass
        std::vector<std::string> lines;  // log lines, in order, without the "[Holdenmere] " tag
        int loginItemsNotRemoved = 0;    // planned removals that did not happen
    };

    // How the re-assert step ended for the held startup items.
    struct StartupSourcesTally {
        int reassertFailed = 0;
        // Held items that could not be checked (their state could not be
        // read) or that this build cannot act on.
        int reassertSkipped = 0;
        int gracefullyQuit = 0;  // session-restored apps quit as the user asked
        bool configUnreadable = false;

        friend bool operator==(const StartupSourcesTally&, const StartupSourcesTally&) = default;
    };

    struct StartupSourcesResult {
        std::vector<HeldStartupItem> optOuts;  // the held items the step looked at
        StartupSourcesTally tally;
        std::vector<std::string> lines;
        // How each held launchd job was re-asserted, in order.
        std::vector<std::pair<HeldStartupItem, StartupChangeOutcome>> reasserted;

        std::string countsLine() const { return LoginOwnership::countsLine(optOuts, tally); }
        // The history's records of the step: one per held launchd job, named
        // by its handle, "disabled" while it stays off, "failed" when it
        // could not be switched off again or not checked.
        std::vector<LaunchRecord> records(Date now) const;
    };

    // Where an imported app came from, for the warning when it fails to open.
    enum class ImportOrigin { loginItem, startupItem };

    // Why an app's agents stay as they are this pass (the rest of the line
    // after "{name} — "), or nothing.
    using StaysReason = std::function<std::optional<std::string>(const ManagedApp&)>;

    // --- Planning ---------------------------------------------------------

    // Decides, for each Login Item in order, by the first rule that matches:
    // not an app (ignored), Holdenmere itself (nothing), left to macOS, run
    // by a system LaunchDaemon, managed (removed), blocked (removed), else
    // imported (removed). `switchedOff` holds the bundle identifiers the user
    // switched off in Holdenmere; it only changes a blocked app's line. When
    // not every system LaunchDaemon could be read (`systemDaemonsComplete`
    // false), an app that is not managed may be run by one of those: its
    // Login Item stays, and nothing is imported.
    static Plan plan(const std::vector<LoginItem>& loginItems, const std::vector<ManagedApp>& managed,
                     const std::vector<BlockedApp>& blocked, const std::set<std::string>& systemDaemonAppPaths,
                     const std::set<std::string>& switchedOff, const std::vector<std::string>& leftToMacOS,
                     bool systemDaemonsComplete = true);

    // Run at the start of every pass, before the network wait: managed apps
    // switched off in the app become blocked apps, apps that a system
    // LaunchDaemon runs leave the managed list, and stored delays outside
    // 0 ... 40 s are clamped into that range. One line per change.
    static Migration migrate(const HoldenmereConfig& config, const std::set<std::string>& systemDaemonAppPaths);

    // Apps to import from startup items other than Login Items (LaunchAgents
    // that open an app's own executable): those with a path that are not
    // Holdenmere, not managed, not blocked, not left to macOS and not run by
    // a system LaunchDaemon; the first item of each app, in input order.
    static std::vector<ManagedApp> discoveredImports(const std::vector<StartupItem>& items,
                                                     const std::vector<ManagedApp>& managed,
                                                     const std::vector<BlockedApp>& blocked,
                                                     const std::set<std::string>& systemDaemonAppPaths,
                                                     const std::vector<std::string>& leftToMacOS);

    // The arguments an agent's "ProgramArguments" passes after the program,
    // which Holdenmere does not pass when it opens the app itself. Empty for
    // a plist that cannot be read.
    static std::vector<std::string> droppedArguments(const plist::Value& agentPlist);
    static std::vector<std::string> droppedArguments(const std::filesystem::path& agentPlistPath);

    // The safety candidate for one agent that opens `app`.
    static StartupSafety::Candidate agentCandidate(const ManagedApp& app, const std::string& label,
                                                   const std::string& plistPath);

    // Switches off the LaunchAgents that open these apps (managed apps, and
    // blocked apps turned into managed-app records) through the engine, one
    // line per agent: only agents the safety rules allow without
    // confirmation, each recorded first, never for an app that `staysReason`
    // keeps. The agents switched off, in order.
    static std::vector<AgentTakeoverResult> takeOverAgents(const std::vector<ManagedApp>& of,
                                                           const LaunchAgentScanner& scanner,
                                                           StartupChangeEngine& engine,
                                                           const StartupSafety::Environment& environment,
                                                           std::vector<std::string>& lines,
                                                           const StaysReason& staysReason = {});

    // Fills the ledger for changes made before it existed: imported Login
    // Items of managed apps, and disabled LaunchAgents of managed apps that
    // no record explains (recorded as inferred). One line per entry.
    static void backfill(const std::vector<StartupItem>& disabledEligibleAgents, HoldenmereConfig& config,
                         std::vector<std::string>& lines);

    // The ineligible startup items still worth showing: not Holdenmere's,
    // not of a blocked app, the first of each label.
    static std::vector<IneligibleStartupItem> shownIneligible(const std::vector<IneligibleStartupItem>& items,
                                                              const std::vector<ManagedApp>& managed,
                                                              const std::vector<BlockedApp>& blocked);

    // --- The pass ---------------------------------------------------------

    // What the ownership pass needs besides the engine.
    struct PassInputs {
        std::vector<LaunchRecord> records;  // this pass's: an app whose launch failed keeps its items
        std::set<std::string> systemDaemonAppPaths;
        std::set<std::string> switchedOff;
        // The configuration was written before the ledger existed: its
        // changes are backfilled into the ledger, once.
        bool predatesLedger = false;
        // The system LaunchDaemons that could not be read (the scanner's
        // texts): an app one of them runs cannot be ruled out, so the pass
        // imports nothing and removes only the Login Items of managed apps.
        std::vector<std::string> unreadableSystemDaemons;
    };

    // Takes Login Items and LaunchAgents over, with consent, at the end of a
    // login pass, every change through the engine (whose transaction holds
    // the startup mutation lock). Agents that were switched off unconfirmed
    // at an earlier pass are settled first.
    static PassResult ownershipPass(StartupChangeEngine& engine, const LaunchAgentScanner& agentScanner,
                                    const StartupSafety::Environment& environment, const PassInputs& inputs);

    // Ends the re-registration sweep early, with the reason, once startup
    // was given back or take-over withdrawn since the pass started.
    struct SweepStop {
        Signal signal;
        std::string reason;
        // How long one removal waits for the startup mutation lock, in
        // seconds, before the sweep stops.
        double lockPatience = 10.0;
    };
    static constexpr const char* kSweepLockBusy =
        "another change of startup items kept the startup mutation lock busy";

    // The re-registration sweep's removal: each one a transaction of its own
    // (the startup mutation lock taken for that removal only, never for the
    // sweep's whole window), recorded first through the engine, and made
    // only while still wanted as the configuration reads then: decided under
    // `giveBackGeneration` (what the pass read at its start), with consent
    // granted and the app still managed or blocked. An app no longer
    // watched gives nothing; a give-back, a withdrawn consent or a lock held
    // elsewhere for longer than `stop.lockPatience` raises `stop`.
    static ReregistrationSweep::Remove sweepRemoval(ConfigAccess access, LaunchctlRunning& launchctl,
                                                    ScriptRunning& scripts, std::uint64_t giveBackGeneration,
                                                    SweepStop& stop);

    // --- Re-asserting held startup items ----------------------------------

    // The held items the startup-sources step looks at: every held item not
    // excluded in "restoreOptOuts", in the configuration's order.
    static std::vector<HeldStartupItem> startupOptOuts(const HoldenmereConfig& config);
    // Switches held items that macOS switched back on off again, through
    // the engine (launchd jobs, and through the engine's switches app
    // extensions and launcher children), and quits, gracefully, held apps
    // that loginwindow reopened. Held items of sources without a switch are
    // passed over and counted as skipped. Runs before the ownership pass,
    // under the same lock: it touches only what earlier passes recorded, so
    // a slow or hanging Login Items script cannot starve it.
    static StartupSourcesResult startupSourcesPass(StartupChangeEngine& engine);
    // "re_assert_failed={n} re_assert_skipped={n} gracefully_quit={n}", and
    // " config=unreadable" when the configuration could not be read.
    static std::string countsLine(const std::vector<HeldStartupItem>& optOuts, const StartupSourcesTally& tally);

    // --- Report -----------------------------------------------------------

    // For each app imported in an earlier pass whose launch failed in this
    // one, in the apps' order, its warning line.
    static std::vector<std::string> importedFailures(const std::vector<LaunchRecord>& records,
                                                     const std::vector<ManagedApp>& apps);
    static std::string importedFailureLine(std::string_view appName, ImportOrigin origin = ImportOrigin::loginItem);
    // "done: launched={n} already_running={n} failed={n}
    // login_items_not_removed={n}", the counts from this pass's app records.
    static std::string doneLine(const std::vector<LaunchRecord>& records, int loginItemsNotRemoved);
    // "{appName} will not start at login."
    static std::string removedMessage(std::string_view appName);
    // The desktop app's help text about removing an app.
    static std::string removeHelp(std::string_view appName);

    // "." and ".." resolved and a trailing slash dropped, without touching
    // the file system: "/Applications/./Mail.app/" -> "/Applications/Mail.app".
    static std::string standardizedPath(std::string_view path);
};

}  // namespace holdenmere
