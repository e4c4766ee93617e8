#include "app/repair_helpers_mode.h"

#include <algorithm>

#include "app/command_line.h"
#include "core/config/config_store.h"
#include "core/launchd/helper_repair.h"

namespace holdenmere {
namespace {

constexpr const char* kTag = "[Holdenmere] ";
constexpr const char* kDash = " \xE2\x80\x94 ";
// Who repaired, as the run log names it.
constexpr const char* kLogSource = "cli";

}  // namespace

int runRepairHelpers(const RepairHelpersRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                     const std::function<std::vector<IneligibleStartupItem>()>& scanDisabledAgents) {
    const ConfigStore store{run.configPath};
    HoldenmereConfig config;
    try {
        config = store.load();
    } catch (const ConfigStoreError& error) {
        err << kTag << "ERROR: config unreadable at " << store.url.string() << ": " << error.what()
            << ". Nothing repaired.\n";
        return exit_status::kConfigUnreadable;
    }

    const auto candidates =
        HelperRepair::plan(config, scanDisabledAgents ? scanDisabledAgents() : std::vector<IneligibleStartupItem>{});
    if (candidates.empty()) {
        out << kTag
            << "nothing to repair: no helper of a managed app is switched off that Holdenmere cannot start itself\n";
        return exit_status::kSuccess;
    }

    const auto steps = HelperRepair::repair(candidates, launchctl, run.dryRun);
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
