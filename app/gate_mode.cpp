#include "app/gate_mode.h"

#include <unistd.h>

#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include "app/exit_status.h"
#include "core/support/log_text.h"
#include "core/takeover/system_tools.h"
#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/config/history_store.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/discovery/login_items_auditor.h"
#include "core/discovery/reregistration_sweep.h"
#include "core/discovery/system_daemon_scanner.h"
#include "core/gate/app_launcher.h"
#include "core/gate/cli_mode.h"
#include "core/gate/gate_runner.h"
#include "core/gate/open_at_login.h"
#include "core/takeover/held_helper_start.h"
#include "core/reachability/network_change_listening.h"
#include "core/reachability/probe_log_line.h"
#include "core/reachability/url_session_probe.h"
#include "core/support/bundle.h"
#include "core/support/clock.h"
#include "core/support/environment.h"
#include "core/takeover/background_takeover.h"
#include "core/takeover/startup_change_engine.h"
#include "core/takeover/startup_safety.h"
#include "core/takeover/startup_sources_step.h"
#include "core/takeover/startup_transaction.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/login_ownership_pass.h"

namespace holdenmere {
namespace {

// How long a step that ran out of time gets to finish the change it is
// making: longer than any one change's tool calls may take.
constexpr double kStepGrace = 45.0;

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

// What one pass builds over its services. The held helpers are started
// once, by the runner or, when the pass deadline passes first, by the main
// thread.
// Held helpers are started through the startup-change engine, under the
// startup mutation lock, and only while nothing was given back since the
// configuration was read at the pass's start.
struct Pass {
    Pass(GateServices& services, const ConfigStore& store, std::uint64_t giveBackGeneration)
        : heldHelpers(ConfigAccess::of(store), services.launchctl, services.scripts, giveBackGeneration),
          helpers(heldHelpers),
          gate(services.probe, services.clock, services.networkChanges),
          launcher(services.apps, services.clock, services.mainLoop),
          runner(gate, launcher, services.clock, &helpers) {}

    HeldHelperStarting heldHelpers;
    HelperStartingOnce helpers;
    ReachabilityGate gate;
    AppLauncher launcher;
    GateRunner runner;
};

// The services of a real pass; the clock is declared first so that it
// outlives the probe's abandoned attempts.
struct SystemGateServices {
    SystemClock clock;
    SystemMainLoop mainLoop;
    SystemNetworkChangeListening networkChanges;
    URLSessionProbe probe;
    SystemAppRunning apps;
    std::unique_ptr<LaunchctlRunning> launchctl = makeSystemLaunchctl();
    std::unique_ptr<ScriptRunning> scripts = makeSystemScriptRunner();
    SystemStartupSwitches startupSwitches{*launchctl, apps};
    GateServices services{clock,
                          probe,
                          apps,
                          *launchctl,
                          *scripts,
                          [] { return SystemDaemonScanner{}.appPaths(); },
                          Bundle::main(),
                          static_cast<int>(::getpid()),
                          mainLoop,
                          networkChanges,
                          &startupSwitches.switches()};
};

// Work of the pass that goes on beside the main thread until its result is
// wanted; done on the spot when no thread can be had. What the work throws
// is thrown again from get(), on the thread that wants the result, rather
// than ending the process from a thread of its own.
template <class Result>
class Beside {
public:
    explicit Beside(std::function<Result()> work) : work_(std::move(work)) {
        try {
            thread_ = std::thread([this] { perform(); });
        } catch (const std::system_error&) {
            perform();
        }
    }
    ~Beside() {
        if (thread_.joinable()) thread_.join();
    }
    Beside(const Beside&) = delete;
    Beside& operator=(const Beside&) = delete;

    // Waits for the work when it is still going on. One caller at a time.
    Result& get() {
        if (thread_.joinable()) thread_.join();
        if (failure_) std::rethrow_exception(failure_);
        return *result_;
    }

private:
    void perform() {
        try {
            result_ = work_();
        } catch (...) {
            failure_ = std::current_exception();
        }
    }

    std::function<Result()> work_;
    std::optional<Result> result_;
    std::exception_ptr failure_;
    std::thread thread_;
};

// A line of the pass: errors to standard error, the rest to standard output.
void printLine(std::ostream& out, std::ostream& err, const LogLine& line) {
    (line.severity == LogLine::Severity::error ? err : out) << kTag << line.text << '\n';
}

// Managed apps that macOS also starts from a Login Item and that this pass
// did not open itself: macOS got there first, so the gate did nothing.
void printConflicts(std::ostream& out, const std::vector<LoginItemsAuditor::Conflict>& conflicts) {
    if (conflicts.empty()) return;
    out << kTag << "WARNING: " << conflicts.size() << " app(s) are ALSO macOS Login Items" << kDash
        << "macOS starts these before the network, so the gate has no effect on them:\n";
    for (const auto& conflict : conflicts) {
        out << kTag << "  CONFLICT: " << conflict.managed.name << kDash << "remove it from Login Items\n";
    }
}

// Apps that put their Login Item back when they start: watched for two
// minutes after the pass and removed again each time. Only where startup
// take-over is granted; otherwise there is nothing to watch and the pass
// does not wait.
// Each removal is decided again under the lock: a give-back since the pass
// started ends the sweep, and an app no longer managed is no longer watched.
void sweepReregistrations(std::ostream& out, const LoginItemsAuditor& auditor, GateServices& services,
                          const ConfigStore& store, const HoldenmereConfig& config, std::uint64_t giveBackGeneration,
                          const HistoryStore& history) {
    if (config.startupConsent != StartupConsent::granted) return;
    if (config.giveBackGeneration != giveBackGeneration) return;
    // The history (up to 200 records) is read only when an app could have
    // been handed over.
    const auto launched = ReregistrationSweep::mayHandOver(config.apps, config)
                              ? ReregistrationSweep::handedOver(config.apps, config, history.load())
                              : std::vector<ManagedApp>{};
    const ReregistrationSweep sweep(auditor, services.clock);
    LoginOwnership::SweepStop stop;
    const auto remove = LoginOwnership::sweepRemoval(ConfigAccess::of(store), services.launchctl, services.scripts,
                                                     giveBackGeneration, stop);
    for (const auto& removal : sweep.run(launched, config.blockedApps, remove, &stop.signal)) {
        out << kTag << "re-registered: " << removal.app.name << " put itself back in Login Items" << kDash
            << (removal.outcome == LoginItemRemoval::failed ? "could NOT remove it" : "removed again") << '\n';
        out.flush();
    }
    if (stop.signal.isRaised()) out << kTag << "re-registration sweep stopped" << kDash << stop.reason << '\n';
}

// The configuration as the pass uses it, brought up to date.
struct LoadedConfig {
    ConfigStore store;
    HoldenmereConfig config;
    // The file was written before the ledger existed; any save below
    // writes the ledger's keys.
    bool predatesLedger = false;
    std::set<std::string> systemDaemonAppPaths;
    // What of the system LaunchDaemons could not be read: the pass then
    // imports nothing (an app they run cannot be ruled out).
    std::vector<std::string> unreadableSystemDaemons;
    std::vector<ManagedApp> movedToBlocked;
};

// How long the migration's save waits for the startup mutation lock.
constexpr double kMigrationLockPatience = 10.0;

// Reads the configuration and migrates it, saving it when that changed
// anything. Nothing, after the error is printed, when it cannot be read:
// then nothing happens at all.
std::optional<LoadedConfig> loadAndMigrate(std::ostream& out, std::ostream& err, GateServices& services) {
    LoadedConfig loaded{ConfigStore::resolving(environmentValue("HOLDENMERE_CONFIG_PATH")), {}, false, {}, {}, {}};
    try {
        loaded.config = loaded.store.load();
    } catch (const ConfigStoreError& error) {
        err << kTag << "ERROR: config unreadable at " << loaded.store.url.string() << ": " << error.what()
            << ". Launching nothing. Open Holdenmere to repair it.\n";
        return std::nullopt;
    }
    loaded.predatesLedger = loaded.config.predatesLedger;
    // An app is dropped for a daemon that could be read; what could not be
    // read holds the pass's imports back later.
    auto daemons = services.systemDaemonAppPaths();
    loaded.systemDaemonAppPaths = std::move(daemons.paths);
    loaded.unreadableSystemDaemons = std::move(daemons.unreadable);
    auto migration = LoginOwnership::migrate(loaded.config, loaded.systemDaemonAppPaths);
    for (const auto& line : migration.logLines) out << kTag << line << '\n';
    loaded.config = std::move(migration.config);
    loaded.movedToBlocked = std::move(migration.movedToBlocked);
    if (migration.changed()) {
        // Saved under the startup mutation lock, migrating the file as it
        // reads then: a give-back the desktop saved since the load above is
        // kept, never overwritten by the copy read before it.
        auto begun = StartupTransaction::begin(ConfigAccess::of(loaded.store), StartupTransaction::Wait::untilFree,
                                               nullptr, kMigrationLockPatience);
        std::optional<std::string> failure;
        if (auto* transaction = std::get_if<StartupTransaction>(&begun)) {
            const auto& daemonPaths = loaded.systemDaemonAppPaths;
            failure = transaction->commit([&daemonPaths](HoldenmereConfig& fresh) {
                fresh = LoginOwnership::migrate(fresh, daemonPaths).config;
            });
            transaction->end();
        } else {
            failure = std::get<StartupTransaction::Failure>(begun).text(loaded.store.url);
        }
        if (failure) out << kTag << "WARNING: could not save the migrated config" << kDash << *failure << '\n';
    }
    out.flush();
    return loaded;
}

// The run, under the whole pass's deadline. The runner works on a thread of
// its own; when the deadline passes first the process ends here, leaving
// the apps already opened open and recording nothing, but not before the
// held helpers are started (unless the runner already began starting
// them), since nothing else would start them this session.
LaunchPlan runUnderDeadline(std::ostream& out, std::ostream& err, GateServices& services,
                            const LoadedConfig& loaded) {
    const HoldenmereConfig& config = loaded.config;
    auto pass = std::make_unique<Pass>(services, loaded.store, config.giveBackGeneration);
    auto done = std::make_shared<Signal>();
    LaunchPlan plan;
    std::thread worker([&pass, &plan, &config, done] {
        plan = pass->runner.run(config);
        done->raise();
    });
    if (!waitWithDeadline(services.clock, services.mainLoop, *done, config.runTimeout())) {
        err << kTag << "ERROR: gate run timed out" << kDash
            << "run incomplete; some apps may already have launched\n";
        err.flush();
        for (const auto& record : pass->helpers.startAfterGate(config, services.clock.now())) printRecord(out, record);
        out.flush();
        err.flush();
        (void)std::fflush(nullptr);
        std::_Exit(exit_status::kFailure);
    }
    worker.join();
    return plan;
}

// The startup-sources step on its thread, under its own deadline.
struct StartupSourcesRun {
    std::shared_ptr<StartupSourcesStep> step = std::make_shared<StartupSourcesStep>();
    double budget = 0;
    double start = 0;
    std::thread worker;

    StartupSourcesRun() = default;
    StartupSourcesRun(const StartupSourcesRun&) = delete;
    StartupSourcesRun& operator=(const StartupSourcesRun&) = delete;
    ~StartupSourcesRun() {
        if (worker.joinable()) worker.join();
    }
};

void startStartupSources(StartupSourcesRun& run, GateServices& services, const LoadedConfig& loaded,
                         const LaunchPlan& plan) {
    StartupSourcesStep::Inputs inputs{
        loaded.store,
        {plan.records, loaded.systemDaemonAppPaths, {}, loaded.predatesLedger, loaded.unreadableSystemDaemons},
        loaded.config.giveBackGeneration};
    for (const auto& app : loaded.movedToBlocked) inputs.pass.switchedOff.insert(app.bundleIdentifier);
    run.budget = StartupSourcesStep::budget(loaded.config);
    run.start = services.clock.uptime();
    run.worker = std::thread([step = run.step, &services, inputs] {
        step->run({services.launchctl, services.scripts, services.clock, services.switches}, inputs);
    });
}

// The run's lines, in their order: whether it was recorded, the probe, one
// line per app and held helper, and the Login Items conflicts.
void printRun(std::ostream& out, GateServices& services, const std::optional<std::string>& recordingFailure,
              const LaunchPlan& plan, const std::vector<LoginItemsAuditor::Conflict>& conflicts) {
    if (recordingFailure) out << kTag << "WARNING: this run was NOT recorded" << kDash << *recordingFailure << '\n';
    if (plan.probe) {
        out << ProbeLogLine::text(*plan.probe, versionForLog(), services.clock.now()) << '\n';
    } else {
        out << kTag << "gate disabled\n";
    }
    for (const auto& record : plan.allRecords()) printRecord(out, record);
    printConflicts(out, conflicts);
    out.flush();
}

// Waits out the step's deadline. Once it passes no new change starts; the
// one in flight (each tool call has its own time limit) finishes and is
// reported. Then the step's lines are printed and its records appended.
void finishStartupSources(std::ostream& out, std::ostream& err, GateServices& services, StartupSourcesRun& run,
                          const HistoryStore& history, const LaunchPlan& plan) {
    auto& step = *run.step;
    const double left = run.budget - (services.clock.uptime() - run.start);
    const bool inTime = waitWithDeadline(services.clock, services.mainLoop, step.done, std::max(0.0, left));
    if (!inTime) step.cancel.raise();
    const bool finished = inTime || waitWithDeadline(services.clock, services.mainLoop, step.done, kStepGrace);
    if (finished) run.worker.join();
    auto [lines, records] = step.take();
    for (const auto& line : lines) printLine(out, err, line);
    if (!records.empty()) {
        try {
            history.appendOrThrow(records);
        } catch (const HistoryStoreError& error) {
            out << kTag << "WARNING: the startup-sources records were NOT saved" << kDash << error.what() << '\n';
        }
    }
    if (!inTime) {
        out << kTag << "WARNING: the startup-sources step did not finish in time; it is retried at the next login\n";
    }
    out.flush();
    err.flush();
    if (!finished) {
        // Only a change still waiting on a tool past its own time limit gets
        // here; its recovery entry was saved before it started. End here
        // rather than tear the pass's services down under it.
        (void)std::fflush(nullptr);
        std::_Exit(GateRunner::exitCode(plan));
    }
}

// Opens the desktop app quietly when the settings ask for it.
void openDesktopIfAsked(std::ostream& out, GateServices& services, const HoldenmereConfig& config) {
    if (auto line = OpenAtLogin::openHoldenmereIfRequested(config.settings, services.bundle, services.processIdentifier,
                                                           services.apps, services.clock, services.mainLoop)) {
        out << kTag << *line << '\n';
    }
    out.flush();
}

}  // namespace

int runGate(std::ostream& out, std::ostream& err) {
    SystemGateServices system;
    return runGate(out, err, system.services);
}

int runGate(std::ostream& out, std::ostream& err, GateServices& services) {
    const auto loaded = loadAndMigrate(out, err, services);
    if (!loaded) return exit_status::kConfigUnreadable;
    const HoldenmereConfig& config = loaded->config;

    // The history is read while the pass waits for the network, and the
    // run's records are put in front of that reading at the end (unless the
    // file changed in between, when it is read again).
    const HistoryStore history = HistoryStore::resolving(environmentValue("HOLDENMERE_HISTORY_PATH"));
    Beside<HistoryStore::Reading> historyReading([&history] { return history.read(); });

    const LaunchPlan plan = runUnderDeadline(out, err, services, *loaded);

    // The run is recorded (the file written and flushed to disk) beside the
    // Login Items question and the startup-sources step, which touch
    // neither the history nor the lines printed before theirs.
    Beside<std::optional<std::string>> recording([&history, &historyReading, records = plan.allRecords()] {
        try {
            history.appendOrThrow(records, &historyReading.get());
            return std::optional<std::string>();
        } catch (const HistoryStoreError& error) {
            return std::optional<std::string>(error.what());
        }
    });

    // Managed apps that macOS also starts from Login Items, asked before the
    // startup-sources step may change them.
    const LoginItemsAuditor auditor(services.scripts);
    const auto conflicts = LoginItemsAuditor::conflictsNotLaunchedThisRun(auditor.conflicts(config.apps), plan.records);

    StartupSourcesRun startupSources;
    startStartupSources(startupSources, services, *loaded, plan);
    printRun(out, services, recording.get(), plan, conflicts);
    finishStartupSources(out, err, services, startupSources, history, plan);

    openDesktopIfAsked(out, services, config);

    // Apps that put their Login Item back as they start, as the
    // configuration now stands (the step may have imported some).
    const HoldenmereConfig current = loaded->store.tryLoad().value_or(config);
    sweepReregistrations(out, auditor, services, loaded->store, current, config.giveBackGeneration, history);
    out.flush();

    return GateRunner::exitCode(plan);
}

}  // namespace holdenmere
