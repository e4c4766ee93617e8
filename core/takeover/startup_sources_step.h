#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/config/config_store.h"
#include "core/config/holdenmere_config.h"
#include "core/config/launch_record.h"
#include "core/discovery/script_running.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/clock.h"
#include "core/support/log_text.h"
#include "core/takeover/login_ownership.h"
#include "core/takeover/login_ownership_pass.h"

namespace holdenmere {

struct StartupSwitches;

// The startup-sources step of a login pass: held launchd jobs switched off
// again where launchd switched them back on, held items of the other sources
// re-asserted, then the Login Items, LaunchAgents and background items of
// managed and blocked apps taken over (with consent). Every change goes
// through the startup-change engine, under the startup mutation lock, so that
// the desktop app and --restore-startup never interleave with it.
//
// The pass runs it on a thread of its own under `budget(config)`; once that
// passes it raises `cancel`, which stops any further change (the one in
// flight finishes, each tool call having its own time limit), and takes the
// lines and records the step produced to print and record them.
class StartupSourcesStep {
public:
    struct Inputs {
        ConfigStore store;
        LoginOwnership::PassInputs pass;
        // What the pass read at its start: a give-back since then stops the
        // step's changes.
        std::uint64_t giveBackGeneration = 0;
    };
    struct Tools {
        LaunchctlRunning& launchctl;
        ScriptRunning& scripts;
        Clock& clock;
        // The switches of app extensions, launcher children and session
        // restore; without them their held items are passed over.
        const StartupSwitches* switches = nullptr;
    };

    // The step's deadline, in seconds: 30, and 25 for each held item, managed
    // app and blocked app it may have to act on.
    static double budget(const HoldenmereConfig& config);

    // Runs the step; its lines (without the tag) and records are added as it
    // goes, and `done` is raised at the end.
    void run(const Tools& tools, const Inputs& inputs);

    Signal done;
    Signal cancel;

    // The lines and records so far, taken away.
    std::pair<std::vector<LogLine>, std::vector<LaunchRecord>> take();

private:
    void add(std::string line) { add(LogLine::report(std::move(line))); }
    void add(LogLine line);

    std::mutex mutex_;
    std::vector<LogLine> lines_;
    std::vector<LaunchRecord> records_;
};

}  // namespace holdenmere
