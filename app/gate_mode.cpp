#include "app/gate_mode.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include "app/command_line.h"
#include "app/system_services.h"
#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/discovery/system_daemon_scanner.h"
#include "core/gate/app_launcher.h"
#include "core/gate/cli_mode.h"
#include "core/gate/gate_runner.h"
#include "core/gate/open_at_login.h"
#include "core/launchd/helper_delay.h"
#include "core/reachability/probe_log_line.h"
#include "core/reachability/url_session_probe.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/environment.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

constexpr const char* kTag = "[Holdenmere] ";
constexpr const char* kDash = " \xE2\x80\x94 ";

// The version as the probe line carries it after "[v": "0.1.0 (12)".
std::string versionForLog() {
    std::string text = CLIMode::versionText();
    constexpr std::string_view product = "Holdenmere ";
    if (text.starts_with(product)) text.erase(0, product.size());
    return text;
}

// "[Holdenmere] Mail: launched — launched [issued +0.0s] ..."; a held
// helper's record reads the same ("Sync helper: alreadyRunning — ...").
void printRecord(std::ostream& out, const LaunchRecord& record) {
    out << kTag << record.name << ": " << rawValue(record.outcome);
    if (!record.detail.empty()) out << kDash << record.detail;
    out << '\n';
}

// Everything one pass works with; the clock is declared first so that it
// outlives the probe's attempts. The held helpers are started once, by the
// runner or, when the pass deadline passes first, by the main thread.
struct Pass {
    SystemClock clock;
    URLSessionProbe probe;
    SystemAppRunning apps;
    std::unique_ptr<LaunchctlRunning> launchctl = makeSystemLaunchctl();
    HelperDelay helperDelay{*launchctl};
    HelperStartingOnce helpers{helperDelay};
    ReachabilityGate gate{probe, clock};
    AppLauncher launcher{apps, clock};
    GateRunner runner{gate, launcher, clock, &helpers};
};

}  // namespace

int runGate(std::ostream& out, std::ostream& err) {
    // The configuration; nothing happens without it.
    const ConfigStore store = ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH"));
    HoldenmereConfig config;
    try {
        config = store.load();
    } catch (const ConfigStoreError& error) {
        err << kTag << "ERROR: config unreadable at " << store.url.string() << ": " << error.what()
            << ". Launching nothing. Open Holdenmere to repair it.\n";
        return exit_status::kConfigUnreadable;
    }

    // Bring it up to date.
    auto migration = LoginOwnership::migrate(config, SystemDaemonScanner{}.appPaths());
    for (const auto& line : migration.logLines) out << kTag << line << '\n';
    config = std::move(migration.config);
    if (migration.changed()) {
        try {
            store.save(config);
        } catch (const ConfigStoreError& error) {
            out << kTag << "WARNING: could not save the migrated config" << kDash << error.what() << '\n';
        }
    }
    out.flush();

    // The run, under the whole pass's deadline. The runner works on a
    // thread of its own; when the deadline passes first the process ends
    // here, leaving the apps already opened open and recording nothing, but
    // not before the held helpers are started (unless the runner already
    // began starting them), since nothing else would start them this session.
    auto pass = std::make_unique<Pass>();
    auto done = std::make_shared<Signal>();
    LaunchPlan plan;
    std::thread worker([&pass, &plan, &config, done] {
        plan = pass->runner.run(config);
        done->raise();
    });
    if (!waitWithDeadline(pass->clock, *done, config.runTimeout())) {
        out << kTag << "ERROR: gate run timed out" << kDash
            << "run incomplete; some apps may already have launched\n";
        out.flush();
        for (const auto& record : pass->helpers.startAfterGate(config, pass->clock.now())) printRecord(out, record);
        out.flush();
        err.flush();
        (void)std::fflush(nullptr);
        std::_Exit(exit_status::kFailure);
    }
    worker.join();

    // Record the run.
    const HistoryStore history = HistoryStore::resolving(environmentValue("HOLDENMERE_HISTORY_PATH"));
    try {
        history.appendOrThrow(plan.allRecords());
    } catch (const HistoryStoreError& error) {
        out << kTag << "WARNING: this run was NOT recorded" << kDash << error.what() << '\n';
    }

    // The probe's line and one line per app.
    if (plan.probe) {
        out << ProbeLogLine::text(*plan.probe, versionForLog(), pass->clock.now()) << '\n';
    } else {
        out << kTag << "gate disabled\n";
    }
    for (const auto& record : plan.allRecords()) printRecord(out, record);
    out.flush();

    // Open the desktop app quietly when the settings ask for it.
    if (auto line = OpenAtLogin::openHoldenmereIfRequested(config.settings, Bundle::main(), static_cast<int>(::getpid()),
                                                          pass->apps, pass->clock)) {
        out << kTag << *line << '\n';
    }
    out.flush();

    return GateRunner::exitCode(plan);
}

}  // namespace holdenmere
