// The startup-change engine's fault table: every change it makes, against
// every way a step can go wrong (the record's read or save, the tool, a tool
// that hangs, a state that cannot be read before or after). The fakes fail
// the test whenever launchd or System Events is changed before the recovery
// entry is saved; each case also checks what is left in the ledger and that
// the outcome tells the user.
#include "core/takeover/startup_change_engine.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <optional>

#include "core/launchd/system_launchctl.h"
#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::ConfigFile;
using testing::FakeLaunchctlRunning;
using testing::FakeScriptRunning;
using ::testing::HasSubstr;
using Status = StartupChangeOutcome::Status;

const std::string kMail = "/Applications/Mail.app";
const std::string kLabel = "com.example.mail.agent";

// System Events that fails the test when a Login Item is deleted before it
// is recorded.
struct CheckedScripts final : ScriptRunning {
    CheckedScripts(FakeScriptRunning& system, const ConfigFile& config) : inner(system), file(config) {}
    std::optional<std::string> run(const std::string& script) override {
        if (script.find(" to delete ") != std::string::npos) {
            EXPECT_TRUE(testing::recordsLoginItem(file.stored, kMail)) << "deleted before it was recorded";
        }
        return inner.run(script);
    }
    FakeScriptRunning& inner;
    const ConfigFile& file;
};

struct Fixture {
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    FakeLaunchctlRunning launchd;
    testing::CheckedLaunchctl launchctl{launchd, file};
    FakeScriptRunning system;
    CheckedScripts scripts{system, file};

    Fixture() {
        system.loginItems.items = {{kMail, true}};
        file.stored.heldStartup = {
            {StartupSource::launchdJob, kLabel, "com.example.mail", "Mail", "startsAtLogin", std::nullopt, Date{0}}};
    }

    // The give-back generation a login pass read at its start, when the
    // change is one of a pass's.
    std::optional<std::uint64_t> decidedUnder;

    StartupChangeOutcome run(const std::function<StartupChangeOutcome(StartupChangeEngine&)>& action) {
        StartupTransaction transaction = file.begin();
        StartupChangeEngine engine(transaction, launchctl, scripts, nullptr, [](const std::string&) { return true; });
        if (decidedUnder) engine.decideUnder(*decidedUnder);
        return action(engine);
    }
};

// One change the engine makes, how to see whether it happened, and whether
// its recovery entry is in the file.
struct Action {
    std::string name;
    std::function<void(Fixture&)> setUp;
    std::function<StartupChangeOutcome(StartupChangeEngine&)> run;
    std::function<bool(Fixture&)> changed;
    std::function<bool(const HoldenmereConfig&)> recorded;
    bool recordsFirst = true;  // false for give-backs, whose entry exists already
};

std::vector<Action> actions() {
    const StartupChangeEngine::App mail{"com.example.mail", "Mail"};
    const auto agentRecorded = [](const HoldenmereConfig& config) { return testing::recordsAgent(config, kLabel); };
    const auto disabled = [](Fixture& f) { return f.launchd.disabled.count(kLabel) != 0; };
    return {
        {"remove a Login Item", [](Fixture&) {},
         [mail](StartupChangeEngine& engine) { return engine.removeLoginItem(mail, kMail); },
         [](Fixture& f) { return f.system.loginItems.items.empty(); },
         [](const HoldenmereConfig& config) { return testing::recordsLoginItem(config, kMail); }},
        {"take a LaunchAgent over", [](Fixture&) {},
         [mail](StartupChangeEngine& engine) {
             return engine.takeOverAgent(mail, kLabel, "/L/agent.plist", SafetyTier{}, false);
         },
         disabled, agentRecorded},
        {"hold a helper", [](Fixture&) {},
         [](StartupChangeEngine& engine) {
             return engine.holdHelper({kLabel, "/L/agent.plist", "com.example.mail", "Mail", DelayedHelper::Mode::delay});
         },
         disabled, [](const HoldenmereConfig& config) { return testing::holdsHelper(config, kLabel); }},
        {"hold a launchd job", [](Fixture& f) { f.file.stored.heldStartup.clear(); },
         [](StartupChangeEngine& engine) {
             return engine.holdJob({StartupSource::launchdJob, kLabel, "com.example.mail", "Mail", "", std::nullopt, Date{0}},
                                   SafetyTier{}, false);
         },
         disabled, [](const HoldenmereConfig& config) { return testing::holdsItem(config, kLabel); }},
        {"re-assert a held job", [](Fixture&) {},
         [](StartupChangeEngine& engine) { return engine.reassertJob(engine.config().heldStartup[0]); }, disabled,
         [](const HoldenmereConfig& config) { return testing::holdsItem(config, kLabel); }, false},
        {"give a Login Item back",
         [](Fixture& f) {
             f.system.loginItems.items.clear();
             f.file.stored.recordLoginItem("com.example.mail", "Mail", {kMail, true});
         },
         [mail](StartupChangeEngine& engine) { return engine.giveBackLoginItem(mail, {kMail, true}); },
         [](Fixture& f) { return !f.system.loginItems.items.empty(); },
         [](const HoldenmereConfig& config) { return testing::recordsLoginItem(config, kMail); }, false},
        {"give a LaunchAgent back",
         [](Fixture& f) {
             f.launchd.disabled.insert(kLabel);
             f.file.stored.recordAgent("com.example.mail", "Mail", kLabel, "/L/agent.plist", false);
         },
         [](StartupChangeEngine& engine) {
             return engine.switchOnJob("Mail", kLabel, "/L/agent.plist", [](HoldenmereConfig& config) {
                 config.forgetAgent("com.example.mail", kLabel);
             });
         },
         [](Fixture& f) { return f.launchd.disabled.count(kLabel) == 0; }, agentRecorded, false},
    };
}

// A way a step goes wrong, and what it must come to.
struct Fault {
    std::string name;
    std::function<void(Fixture&)> inject;
    // What the user is told: part of the outcome's reason.
    std::string told;
    // The change may have been made (it ran; only the check after it failed).
    bool mayHaveChanged = false;
};

std::vector<Fault> faults() {
    return {
        {"the record's read fails", [](Fixture& f) { f.file.failingLoads = {2}; }, "could not"},
        {"the record's save fails", [](Fixture& f) { f.file.failingSaves = {1}; }, "could not"},
        {"launchctl fails",
         [](Fixture& f) {
             f.launchd.exitStatus["disable"] = 5;
             f.launchd.exitStatus["enable"] = 5;
         },
         "launchctl"},
        {"launchctl hangs and is stopped at its time limit",
         [](Fixture& f) {
             f.launchd.exitStatus["disable"] = -1;
             f.launchd.exitStatus["enable"] = -1;
         },
         "exit -1"},
        {"System Events refuses", [](Fixture& f) { f.system.unavailable = true; }, "Login Items"},
        // A pass decided under generation 7; the file says startup was given
        // back since (another process, under the lock, before this change).
        {"the configuration changed under the pass", [](Fixture& f) { f.decidedUnder = 7; }, "given back since"},
        {"launchd's disabled list cannot be read", [](Fixture& f) { f.launchd.disabledListReadable = false; },
         "disabled list could not be read"},
        {"the state cannot be read back after the change",
         [](Fixture& f) {
             int reads = 0;
             f.launchd.beforeDisabledList = [&f, reads]() mutable { f.launchd.disabledListReadable = ++reads < 2; };
             int lists = 0;
             f.system.beforeEach = [&f, lists](const std::string& script) mutable {
                 if (script.ends_with("get path of every login item")) f.system.unavailable = ++lists >= 2;
             };
         },
         "could not be read", true},
    };
}

TEST(StartupChangeEngineFaults, NothingChangesWithoutARecordAndTheUserIsTold) {
    int faulted = 0;
    for (const auto& action : actions()) {
        for (const auto& fault : faults()) {
            SCOPED_TRACE(action.name + " / " + fault.name);
            Fixture f;
            action.setUp(f);
            const HoldenmereConfig before = f.file.stored;
            fault.inject(f);
            const auto outcome = f.run(action.run);
            f.launchd.beforeDisabledList = nullptr;
            f.system.beforeEach = nullptr;
            f.system.unavailable = false;
            f.launchd.disabledListReadable = true;

            const bool changed = action.changed(f);
            if (outcome.status == Status::changed || outcome.status == Status::unchanged) {
                // A fault that does not touch this action's tools.
                EXPECT_TRUE(changed || outcome.status == Status::unchanged);
                continue;
            }
            ++faulted;
            EXPECT_THAT(outcome.line(), HasSubstr(fault.told));
            if (!fault.mayHaveChanged) {
                EXPECT_FALSE(changed) << outcome.line();
            }
            // What is in the ledger afterwards says what was changed.
            const bool recorded = action.recorded(f.file.stored);
            EXPECT_EQ(outcome.recorded, recorded) << outcome.line();
            if (action.recordsFirst) {
                // A record stays only for a change that may have been made.
                EXPECT_EQ(recorded, outcome.status == Status::unconfirmed) << outcome.line();
            } else {
                EXPECT_TRUE(recorded) << "a give-back that did not happen must stay in the ledger";
            }
            if (outcome.status == Status::notChanged) {
                // A give-back notes itself before it reads the state.
                HoldenmereConfig after = f.file.stored;
                if (!action.recordsFirst) after.giveBackGeneration = before.giveBackGeneration;
                EXPECT_EQ(after, before) << outcome.line();
            }
        }
    }
    // Each fault reaches every action whose step it is part of.
    EXPECT_EQ(faulted, 39);
}

TEST(StartupChangeEngineFaults, AnUnconfirmedSwitchIsMarkedSoThatNoGiveBackSwitchesItOn) {
    Fixture f;
    int reads = 0;
    f.launchd.beforeDisabledList = [&] { f.launchd.disabledListReadable = ++reads < 2; };
    const auto outcome = f.run([](StartupChangeEngine& engine) {
        return engine.takeOverAgent({"com.example.mail", "Mail"}, kLabel, "/L/agent.plist", SafetyTier{}, false);
    });
    EXPECT_EQ(outcome.status, Status::unconfirmed);
    EXPECT_EQ(outcome.reason, StartupChangeEngine::kDisabledListUnconfirmed);
    ASSERT_NE(f.file.stored.takeover("com.example.mail"), nullptr);
    EXPECT_TRUE(f.file.stored.takeover("com.example.mail")->agents[0].unconfirmed);
}

TEST(StartupChangeEngineFaults, AHungLaunchctlEndsAtItsLimitWithTheRecordKeptForTheChangeInFlight) {
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlTool tool;
    tool.hang("disable");
    SystemLaunchctl launchctl(testing::FakeLaunchctlTool::executable(),
                              SystemLaunchctl::Limits{std::chrono::milliseconds(2000), std::chrono::milliseconds(300)});
    FakeScriptRunning scripts;
    StartupTransaction transaction = file.begin();
    StartupChangeEngine engine(transaction, launchctl, scripts);
    const auto outcome =
        engine.takeOverAgent({"com.example.mail", "Mail"}, kLabel, "/L/agent.plist", SafetyTier{}, false);
    EXPECT_EQ(outcome.status, Status::failed);
    EXPECT_EQ(outcome.reason, "launchctl disable failed (exit -1)");
    // launchd lists it enabled: nothing to give back, so no record.
    EXPECT_FALSE(testing::recordsAgent(file.stored, kLabel));
}

TEST(StartupChangeEngine, OwnItemsAreRefusedOnEveryPath) {
    Fixture f;
    const StartupChangeEngine::App own{"com.tavik.holdenmere", "Holdenmere"};
    for (const auto& outcome : std::vector<StartupChangeOutcome>{
             f.run([&](StartupChangeEngine& e) { return e.removeLoginItem(own, kMail); }),
             f.run([&](StartupChangeEngine& e) {
                 return e.takeOverAgent({"com.example.mail", "Mail"}, "com.tavik.holdenmere.agent", "", {}, false);
             }),
             f.run([&](StartupChangeEngine& e) {
                 return e.holdHelper({"com.tavik.holdenmere.axsampler", "", "com.example.x", "X", DelayedHelper::Mode::off});
             }),
             f.run([&](StartupChangeEngine& e) { return e.switchOnJob("x", "com.tavik.holdenmere.agent", "", {}); }),
             f.run([&](StartupChangeEngine& e) { return e.enableJob("x", "com.tavik.holdenmere"); }),
         }) {
        EXPECT_EQ(outcome.status, Status::notChanged);
        EXPECT_EQ(outcome.reason, StartupChangeEngine::kOwnItem);
    }
    EXPECT_TRUE(f.launchd.calls().empty());
    EXPECT_TRUE(f.system.scripts().empty());
    EXPECT_EQ(f.file.saves, 0);
}

TEST(StartupChangeEngine, OnceCancelledNoChangeStarts) {
    Fixture f;
    Signal cancellation;
    cancellation.raise();
    StartupTransaction transaction = f.file.begin();
    StartupChangeEngine engine(transaction, f.launchctl, f.scripts, &cancellation);
    EXPECT_EQ(engine.removeLoginItem({"com.example.mail", "Mail"}, kMail).reason, StartupChangeEngine::kOutOfTime);
    EXPECT_EQ(engine.takeOverAgent({"com.example.mail", "Mail"}, kLabel, "", {}, false).reason,
              StartupChangeEngine::kOutOfTime);
    EXPECT_TRUE(f.launchd.changes().empty());
    EXPECT_EQ(f.file.saves, 0);
}

TEST(StartupTransaction, TheLockIsHeldUntilItEndsAndABusyLockChangesNothing) {
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    StartupTransaction first = file.begin();
    auto second = StartupTransaction::begin(file.access(), StartupTransaction::Wait::never);
    ASSERT_TRUE(std::holds_alternative<StartupTransaction::Failure>(second));
    EXPECT_EQ(std::get<StartupTransaction::Failure>(second).kind, StartupTransaction::Failure::Kind::lockBusy);

    // A waiting begin with a cancellation gives up once it is raised.
    Signal cancellation;
    cancellation.raise();
    auto waiting = StartupTransaction::begin(file.access(), StartupTransaction::Wait::untilFree, &cancellation);
    EXPECT_TRUE(std::holds_alternative<StartupTransaction::Failure>(waiting));

    first.end();
    EXPECT_TRUE(std::holds_alternative<StartupTransaction>(
        StartupTransaction::begin(file.access(), StartupTransaction::Wait::never)));
    EXPECT_TRUE(first.commit([](HoldenmereConfig&) {}).has_value());  // ended: no more commits
}

TEST(StartupTransaction, EachCommitIsAFreshReadWithEveryEarlierChange) {
    testing::TemporaryDirectory folder;
    ConfigFile file{folder / "config.json"};
    StartupTransaction transaction = file.begin();
    ASSERT_FALSE(transaction.commit([](HoldenmereConfig& c) { c.keepOff({"a"}); }));
    // Another writer replaces the file meanwhile.
    file.stored = HoldenmereConfig{};
    file.stored.keptOff = {"other"};
    ASSERT_FALSE(transaction.commit([](HoldenmereConfig& c) { c.keepOff({"b"}); }));
    EXPECT_EQ(file.stored.keptOff, (std::vector<std::string>{"other", "a", "b"}));
    EXPECT_EQ(transaction.config(), file.stored);
    // A failed commit leaves the file and the transaction as they were.
    file.failingSaves = {file.saves + 1};
    EXPECT_EQ(transaction.commit([](HoldenmereConfig& c) { c.keepOff({"c"}); }), "Could not write config: disk full");
    EXPECT_EQ(transaction.config().keptOff, (std::vector<std::string>{"other", "a", "b"}));
}

}  // namespace
}  // namespace holdenmere
