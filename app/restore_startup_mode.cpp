#include "app/restore_startup_mode.h"

#include "app/command_line.h"
#include "core/config/config_store.h"
#include "core/discovery/login_items_auditor.h"
#include "core/launchd/agent_installer.h"
#include "core/launchd/helper_delay.h"
#include "core/support/environment.h"
#include "core/takeover/agent_takeover.h"
#include "core/takeover/startup_restorer.h"

namespace holdenmere {
namespace {

constexpr const char* kTag = "[Holdenmere] ";
constexpr const char* kDash = " \xE2\x80\x94 ";

}  // namespace

RestoreStartupRun RestoreStartupRun::atPath(bool dryRun, const std::filesystem::path& configPath,
                                            const std::filesystem::path& loginAgentPlist) {
    const ConfigStore store{configPath};
    return RestoreStartupRun{dryRun, configPath, loginAgentPlist, [store] { return store.load(); },
                             [store](const HoldenmereConfig& config) { store.save(config); }};
}

int runRestoreStartup(const RestoreStartupRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                      ScriptRunning& scripts) {
    HoldenmereConfig config;
    try {
        config = run.load();
    } catch (const ConfigStoreError& error) {
        err << kTag << "ERROR: config unreadable at " << run.configPath.string() << ": " << error.what()
            << ". Nothing restored.\n";
        return exit_status::kConfigUnreadable;
    }

    // The opt-out first: were it lost, the next login pass would take
    // everything over again.
    if (!run.dryRun) {
        config.declineStartupConsent();
        try {
            run.save(config);
        } catch (const ConfigStoreError& error) {
            err << kTag << "ERROR: could not save startup opt-out" << kDash << error.what()
                << ". Nothing restored; login agent left on.\n";
            return exit_status::kFailure;
        }
    }

    LoginItemsAuditor auditor(scripts);
    AgentTakeover agents(launchctl);
    HelperDelay helperDelay(launchctl);
    StartupRestorer restorer(auditor, agents);
    const auto report = restorer.giveBack(config, run.dryRun, helperDelay);
    if (report.entries.empty()) out << kTag << "nothing to give back: the ledger records no startup change\n";
    for (const auto& entry : report.entries) out << kTag << entry.line() << '\n';

    if (run.dryRun) {
        out << kTag << "would turn off Holdenmere's login agent\n";
        out << kTag << "dry run: nothing changed\n";
        return exit_status::kSuccess;
    }

    int status = report.anyFailed() ? exit_status::kFailure : exit_status::kSuccess;
    if (report.ledgerChanged) {
        try {
            run.save(report.config);
        } catch (const ConfigStoreError& error) {
            err << kTag << "WARNING: could not save the updated ledger" << kDash << error.what() << '\n';
        }
    }
    out.flush();

    AgentInstaller installer(launchctl, executablePath().value_or(std::filesystem::path()), run.loginAgentPlist);
    try {
        installer.uninstall();
        out << kTag << "login agent: turned off; Holdenmere no longer runs at login\n";
    } catch (const AgentInstallerError& error) {
        err << kTag << "WARNING: could not turn off the login agent" << kDash << error.what() << '\n';
        status = exit_status::kFailure;
    }
    return status;
}

}  // namespace holdenmere
