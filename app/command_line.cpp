#include "app/command_line.h"

#include "app/audit_mode.h"
#include "app/gate_mode.h"
#include "app/repair_helpers_mode.h"
#include "app/restore_startup_mode.h"
#include "core/support/log_text.h"
#include "core/takeover/system_tools.h"

#include <exception>
#include <optional>
#include <utility>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/config/last_login_conflicts.h"
#include "core/gate/open_at_login.h"
#include "core/launchd/agent_installer.h"
#include "core/support/environment.h"

namespace holdenmere {
namespace {

CLIMode gCurrentMode = CLIMode::app();
bool gOpenedQuietly = false;
DesktopEntry gDesktopEntry;


int printVersion(std::ostream& out) {
    out << CLIMode::versionText() << '\n';
    return exit_status::kSuccess;
}

int printUsage(std::ostream& out) {
    out << CLIMode::usageText << '\n';
    return exit_status::kSuccess;
}

int rejectUnknown(const std::string& argument, std::ostream& out, std::ostream& err) {
    err << "Holdenmere: unknown option '" << argument << "'\n";
    out << CLIMode::usageText << '\n';
    return exit_status::kUsage;
}

ConfigStore configStore() { return ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH")); }

// The two modes that change startup state take the startup mutation lock
// for their whole run, and read the configuration only once they hold it.
int runMutatingMode(const CLIMode& mode, std::ostream& out, std::ostream& err) {
    const ConfigStore store = configStore();
    const auto launchctl = makeSystemLaunchctl();
    const auto scripts = makeSystemScriptRunner();
    if (mode.kind == CLIMode::Kind::repairHelpers) {
        const RepairHelpersRun run{mode.dryRun, store.url,
                                   LastLoginConflicts::resolving(environmentValue("HOLDENMERE_LOG_PATH"))};
        return runRepairHelpers(run, out, err, *launchctl, *scripts, [&] { return scanDisabledAgents(*launchctl); });
    }
    const auto run = RestoreStartupRun::atPath(mode.dryRun, store.url, AgentInstaller::defaultPlistURL());
    SystemAppRunning apps;
    const SystemStartupSwitches switches(*launchctl, apps);
    return runRestoreStartup(run, out, err, *launchctl, *scripts, &switches.switches());
}

int runApp(std::ostream& err) {
    if (gDesktopEntry) return gDesktopEntry();
    err << "Holdenmere: this build has no desktop app yet; see 'Holdenmere --help' for the command-line modes.\n";
    return exit_status::kFailure;
}

}  // namespace

const CLIMode& currentMode() { return gCurrentMode; }

bool openedQuietly() { return gOpenedQuietly; }

void setDesktopEntry(DesktopEntry entry) { gDesktopEntry = std::move(entry); }

int runCommandLine(const std::vector<std::string>& arguments, std::ostream& out, std::ostream& err) {
    if (CLIMode::asksForDeemsterUI(arguments)) {
        err << CLIMode::kDeemsterUIMessage;
        return exit_status::kUnavailable;
    }
    // An instance the login pass opened carries "--opened-at-login": it is
    // the desktop app, opened quietly, whatever the other arguments say.
    gOpenedQuietly = OpenAtLogin::openedQuietly(arguments);
    gCurrentMode = CLIMode::from(OpenAtLogin::withoutOpenedAtLogin(arguments));
    try {
        switch (gCurrentMode.kind) {
            case CLIMode::Kind::version: return printVersion(out);
            case CLIMode::Kind::help: return printUsage(out);
            case CLIMode::Kind::unknown: return rejectUnknown(gCurrentMode.argument, out, err);
            case CLIMode::Kind::gate: return runGate(out, err);
            case CLIMode::Kind::audit: return runAudit(out, err);
            case CLIMode::Kind::restoreStartup:
            case CLIMode::Kind::repairHelpers: return runMutatingMode(gCurrentMode, out, err);
            case CLIMode::Kind::app: return runApp(err);
        }
    } catch (const std::exception& error) {
        // A headless mode never falls through into anything else, whatever failed.
        err << kTag << "ERROR: " << error.what() << '\n';
    }
    return exit_status::kFailure;
}

}  // namespace holdenmere
