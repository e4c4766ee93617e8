#include "app/restore_startup_mode.h"

#include "app/exit_status.h"
#include "core/config/config_store.h"
#include "core/launchd/agent_installer.h"
#include "core/support/environment.h"
#include "core/support/log_text.h"
#include "core/takeover/startup_restorer.h"

namespace holdenmere {

RestoreStartupRun RestoreStartupRun::atPath(bool dryRun, const std::filesystem::path& configPath,
                                            const std::filesystem::path& loginAgentPlist) {
    return RestoreStartupRun{dryRun, ConfigAccess::of(ConfigStore{configPath}), loginAgentPlist};
}

int runRestoreStartup(const RestoreStartupRun& run, std::ostream& out, std::ostream& err, LaunchctlRunning& launchctl,
                      ScriptRunning& scripts, const StartupSwitches* switches) {
    auto begun = StartupTransaction::begin(run.config, StartupTransaction::Wait::untilFree);
    if (const auto* failure = std::get_if<StartupTransaction::Failure>(&begun)) {
        if (failure->kind == StartupTransaction::Failure::Kind::configUnreadable) {
            err << kTag << "ERROR: " << failure->text(run.config.url) << ". Nothing restored.\n";
            return exit_status::kConfigUnreadable;
        }
        err << kTag << "ERROR: " << failure->text(run.config.url) << ". Nothing changed.\n";
        return exit_status::kLockUnavailable;
    }
    auto& transaction = std::get<StartupTransaction>(begun);
    StartupChangeEngine engine(transaction, launchctl, scripts);
    engine.useSwitches(switches);

    AgentInstaller installer(launchctl, executablePath().value_or(std::filesystem::path()), run.loginAgentPlist);
    const auto result = StartupRestorer::giveEverythingBack(engine, run.dryRun, [&]() -> std::optional<std::string> {
        try {
            installer.uninstall();
            return std::nullopt;
        } catch (const AgentInstallerError& error) {
            return std::string(error.what());
        }
    });
    if (result.optOutFailure) {
        err << kTag << "ERROR: could not save startup opt-out" << kDash << *result.optOutFailure
            << ". Nothing restored; login agent left on.\n";
        return exit_status::kFailure;
    }

    const auto& entries = result.report.entries;
    if (entries.empty()) out << kTag << "nothing to give back: the ledger records no startup change\n";
    for (const auto& entry : entries) out << kTag << entry.line() << '\n';
    if (run.dryRun) {
        out << kTag << "would turn off Holdenmere's login agent\n";
        out << kTag << "dry run: nothing changed\n";
        return exit_status::kSuccess;
    }
    out.flush();
    if (result.report.ledgerFailure) {
        err << kTag << "WARNING: could not save the updated ledger" << kDash << *result.report.ledgerFailure << '\n';
    }
    if (result.loginAgentFailure) {
        err << kTag << "WARNING: could not turn off the login agent" << kDash << *result.loginAgentFailure << '\n';
    } else {
        out << kTag << "login agent: turned off; Holdenmere no longer runs at login\n";
    }
    return result.ok() ? exit_status::kSuccess : exit_status::kFailure;
}

}  // namespace holdenmere
