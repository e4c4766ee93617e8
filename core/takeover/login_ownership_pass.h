#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/reregistration_sweep.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"

namespace holdenmere {
namespace LoginOwnership {

// What the ownership pass did.
struct PassResult {
    HoldenmereConfig config;         // the configuration after the pass
    std::vector<std::string> lines;  // log lines, in order, without the "[Holdenmere] " tag
    int loginItemsNotRemoved = 0;    // planned removals that did not happen
};

// Switches off the LaunchAgents that open these apps (managed apps, and
// blocked apps turned into managed-app records) through the engine, one
// line per agent: only agents the safety rules allow without
// confirmation, each recorded first, never for an app that `staysReason`
// keeps. The agents switched off, in order.
std::vector<AgentTakeoverResult> takeOverAgents(const std::vector<ManagedApp>& of, const LaunchAgentScanner& scanner,
                                                StartupChangeEngine& engine,
                                                const StartupSafety::Environment& environment,
                                                std::vector<std::string>& lines, const StaysReason& staysReason = {});

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
PassResult ownershipPass(StartupChangeEngine& engine, const LaunchAgentScanner& agentScanner,
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
inline constexpr const char* kSweepLockBusy = "another change of startup items kept the startup mutation lock busy";

// The re-registration sweep's removal: each one a transaction of its own
// (the startup mutation lock taken for that removal only, never for the
// sweep's whole window), recorded first through the engine, and made
// only while still wanted as the configuration reads then: decided under
// `giveBackGeneration` (what the pass read at its start), with consent
// granted and the app still managed or blocked. An app no longer
// watched gives nothing; a give-back, a withdrawn consent or a lock held
// elsewhere for longer than `stop.lockPatience` raises `stop`.
ReregistrationSweep::Remove sweepRemoval(ConfigAccess access, LaunchctlRunning& launchctl, ScriptRunning& scripts,
                                         std::uint64_t giveBackGeneration, SweepStop& stop);

}  // namespace LoginOwnership
}  // namespace holdenmere
