#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/support/date.h"
#include "core/takeover/startup_change_engine.h"

namespace holdenmere {
namespace LoginOwnership {

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

// "re_assert_failed={n} re_assert_skipped={n} gracefully_quit={n}", and
// " config=unreadable" when the configuration could not be read.
std::string countsLine(const std::vector<HeldStartupItem>& optOuts, const StartupSourcesTally& tally);

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

// The held items the startup-sources step looks at: every held item not
// excluded in "restoreOptOuts", in the configuration's order.
std::vector<HeldStartupItem> startupOptOuts(const HoldenmereConfig& config);
// Switches held items that macOS switched back on off again, through
// the engine (launchd jobs, and through the engine's switches app
// extensions and launcher children), and quits, gracefully, held apps
// that loginwindow reopened. Held items of sources without a switch are
// passed over and counted as skipped. Runs before the ownership pass,
// under the same lock: it touches only what earlier passes recorded, so
// a slow or hanging Login Items script cannot starve it.
StartupSourcesResult startupSourcesPass(StartupChangeEngine& engine);

}  // namespace LoginOwnership
}  // namespace holdenmere
