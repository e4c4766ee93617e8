#include "app/repair_helpers_mode.h"

#include <algorithm>

#include "app/exit_status.h"
#include "core/config/config_store.h"
#include "core/launchd/helper_repair.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_transaction.h"

namespace holdenmere {
namespace {

// Who repaired, as the run log names it.
constexpr const char* kLogSource = "cli";

}  // namespace

int runRepairHelpers(const RepairHelpersRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                     ScriptRunning& scripts,
                     const std::function<std::vector<IneligibleStartupItem>()>& scanDisabledAgents) {
    const ConfigStore store{run.configPath};
    auto begun = StartupTransaction::begin(ConfigAccess::of(store), StartupTransaction::Wait::untilFree);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        if (failure->kind == StartupTransaction::Failure::Kind::configUnreadable) {
            err << kTag << "ERROR: " << failure->text(store.url) << ". Nothing repaired.\n";
            return exit_status::kConfigUnreadable;
        }
        err << kTag << "ERROR: " << failure->text(store.url) << ". Nothing changed.\n";
        return exit_status::kLockUnavailable;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    StartupChangeEngine engine(transaction, launchctl, scripts);

    // Which helpers are off is launchd's disabled list: without it nothing
    // can be told, which is not the same as nothing to repair.
    if (!engine.disabledLabels()) {
        err << kTag << "ERROR: " << StartupChangeEngine::kDisabledListUnreadable
            << " Holdenmere could not tell which helpers are switched off. Nothing repaired.\n";
        return exit_status::kFailure;
    }
    const auto candidates = HelperRepair::plan(
        engine.config(), scanDisabledAgents ? scanDisabledAgents() : std::vector<IneligibleStartupItem>{});
    if (candidates.empty()) {
        out << kTag
            << "nothing to repair: no helper of a managed app is switched off that Holdenmere cannot start itself\n";
        return exit_status::kSuccess;
    }

    const auto steps = HelperRepair::repair(
        candidates,
        [&](const HelperRepair::Candidate& candidate) {
            return engine.enableJob(candidate.appName + kDash + candidate.label, candidate.label).succeeded();
        },
        run.dryRun);
    for (const auto& step : steps) out << kTag << step.line() << '\n';
    if (run.dryRun) out << kTag << "dry run: nothing changed\n";
    out.flush();

    if (auto failure = HelperRepair::log(steps, kLogSource, run.logPath, Date::now())) {
        err << kTag << "WARNING: could not write the run log" << kDash << *failure << '\n';
    }

    const bool anyFailed = std::any_of(steps.begin(), steps.end(), [](const HelperRepair::Step& step) {
        return step.outcome == HelperRepair::Outcome::failed;
    });
    return anyFailed ? exit_status::kFailure : exit_status::kSuccess;
}

}  // namespace holdenmere
