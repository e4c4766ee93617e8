// Held helpers started after the network answered: through the engine,
// under the lock, from the configuration as it reads then.
#include "core/takeover/held_helper_start.h"

#include <gtest/gtest.h>

#include <set>

#include "tests/support/config_file.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using Calls = std::vector<std::vector<std::string>>;
using Mode = DelayedHelper::Mode;

const std::string kLabel = "com.example.sync.agent";
const std::string kPlist = "/Users/ada/Library/LaunchAgents/com.example.sync.agent.plist";
const Date kNow{800000000};

class HeldHelperStartTest : public ::testing::Test {
public:
    testing::TemporaryDirectory folder;
    testing::ConfigFile file{folder / "config.json"};
    testing::FakeLaunchctlRunning launchctl;
    testing::FakeScriptRunning scripts;
    std::set<std::string> files{kPlist};
    DelayedHelper helper{kLabel, kPlist, "com.example.sync", "Sync", Mode::delay};
    const std::string target = launchdServiceTarget(kLabel);

    void SetUp() override {
        launchctl.labelOfPlist[kPlist] = kLabel;
        launchctl.disabled.insert(kLabel);
        file.stored.delayedHelpers = {helper};
    }

    // The pass read the configuration with generation 0 at its start.
    LaunchRecord start(const DelayedHelper& asRead) {
        HeldHelperStarting starting(file.access(), launchctl, scripts, /*giveBackGeneration=*/0, nullptr,
                                    [this](const std::string& path) { return files.count(path) != 0; });
        HoldenmereConfig read;
        read.delayedHelpers = {asRead};
        auto records = starting.startAfterGate(read, kNow);
        EXPECT_EQ(records.size(), 1u);
        return records.empty() ? LaunchRecord{} : records.front();
    }

    static LaunchRecord record(LaunchOutcome outcome, std::string detail, std::string label = kLabel,
                               std::string name = "Sync helper") {
        return LaunchRecord{std::move(label), std::move(name), outcome, kNow, std::move(detail)};
    }
};

TEST_F(HeldHelperStartTest, StartsTheHelperAndDisablesItAgainForTheNextLogin) {
    EXPECT_EQ(start(helper), record(LaunchOutcome::launched, "helper started; next login waits for network"));
    EXPECT_EQ(launchctl.changes(),
              (Calls{{"enable", target}, {"bootstrap", launchdDomain(), kPlist}, {"disable", target}}));
    EXPECT_TRUE(launchctl.loaded.count(kLabel));
    EXPECT_TRUE(launchctl.disabled.count(kLabel));

    // At the next login launchd kept it loaded: nothing to bootstrap.
    const auto before = launchctl.changes().size();
    EXPECT_EQ(start(helper), record(LaunchOutcome::alreadyRunning, "helper already loaded; next login waits for network"));
    const auto after = launchctl.changes();
    EXPECT_EQ(Calls(after.begin() + static_cast<long>(before), after.end()),
              (Calls{{"enable", target}, {"disable", target}}));
}

TEST_F(HeldHelperStartTest, CollectsEveryProblem) {
    launchctl.loaded.insert(kLabel);
    launchctl.exitStatus["enable"] = 5;
    EXPECT_EQ(start(helper), record(LaunchOutcome::failed, "launchctl enable failed (exit 5)"));

    launchctl.disabled.clear();
    launchctl.exitStatus["disable"] = 7;
    EXPECT_EQ(start(helper), record(LaunchOutcome::failed,
                                    "launchctl enable failed (exit 5); launchctl disable failed (exit 7); "
                                    "helper is still enabled for the next login"));

    // Not loaded and enable failing: no bootstrap is tried.
    launchctl.loaded.clear();
    launchctl.exitStatus.erase("disable");
    const auto before = launchctl.changes().size();
    EXPECT_EQ(start(helper),
              record(LaunchOutcome::failed, "launchctl enable failed (exit 5); helper is not loaded in launchd"));
    const auto after = launchctl.changes();
    EXPECT_EQ(Calls(after.begin() + static_cast<long>(before), after.end()),
              (Calls{{"enable", target}, {"disable", target}}));

    launchctl.exitStatus.clear();
    launchctl.exitStatus["bootstrap"] = 5;
    EXPECT_EQ(start(helper),
              record(LaunchOutcome::failed, "launchctl bootstrap failed (exit 5); helper is not loaded in launchd"));
}

// Each case leaves launchd untouched.
TEST_F(HeldHelperStartTest, StartsNothingThatIsNotStillHeldAndWanted) {
    struct Case {
        std::string name;
        std::function<void(HeldHelperStartTest&)> arrange;
        DelayedHelper asRead;
        LaunchRecord expected;
    };
    DelayedHelper off = helper;
    off.mode = Mode::off;
    const DelayedHelper own{"com.tavik.holdenmere.agent", "/L/own.plist", "com.tavik.holdenmere", "Holdenmere",
                            Mode::delay};
    const std::vector<Case> cases{
        {"its plist is gone", [](HeldHelperStartTest& t) { t.files.clear(); }, helper,
         record(LaunchOutcome::failed, "helper plist not found at " + kPlist)},
        {"held off, and off", [&](HeldHelperStartTest& t) { t.file.stored.delayedHelpers = {off}; }, off,
         record(LaunchOutcome::disabled, "helper is off; not started and stays off at the next login")},
        {"held off, but launchd has it on",
         [&](HeldHelperStartTest& t) {
             t.file.stored.delayedHelpers = {off};
             t.launchctl.disabled.clear();
         },
         off, record(LaunchOutcome::failed, "helper is off in Holdenmere but launchd lists it as enabled")},
        {"the disabled list cannot be read",
         [&](HeldHelperStartTest& t) {
             t.file.stored.delayedHelpers = {off};
             t.launchctl.disabledListReadable = false;
         },
         off, record(LaunchOutcome::failed, std::string(StartupChangeEngine::kDisabledListUnreadable))},
        {"given back while the pass waited for the network",
         [](HeldHelperStartTest& t) { t.file.stored.giveBackGeneration = 1; }, helper,
         record(LaunchOutcome::disabled, std::string(StartupChangeEngine::kGivenBackSince))},
        {"released in the desktop app meanwhile", [](HeldHelperStartTest& t) { t.file.stored.delayedHelpers.clear(); },
         helper, record(LaunchOutcome::disabled, "no longer held by Holdenmere, so it was left to launchd")},
        {"Holdenmere's own job", [&](HeldHelperStartTest& t) { t.file.stored.delayedHelpers = {own}; }, own,
         record(LaunchOutcome::failed, "Holdenmere's own job, which it never switches; left as it is", own.label,
                "Holdenmere helper")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HeldHelperStartTest& t = *this;
        t.files = {kPlist};
        t.file.stored = {};
        t.file.stored.delayedHelpers = {helper};
        t.launchctl.disabled = {kLabel};
        t.launchctl.disabledListReadable = true;
        c.arrange(t);
        const auto changes = launchctl.changes().size();
        EXPECT_EQ(start(c.asRead), c.expected);
        EXPECT_EQ(launchctl.changes().size(), changes);
    }
}

TEST_F(HeldHelperStartTest, StartsEachHelperOnceInOrder) {
    DelayedHelper kept{"com.example.mail.agent", "/nowhere.plist", "com.example.mail", "Mail", Mode::off};
    file.stored.delayedHelpers = {kept, helper};
    launchctl.disabled = {kLabel, kept.label};
    HeldHelperStarting starting(file.access(), launchctl, scripts, 0, nullptr,
                                [this](const std::string& path) { return files.count(path) != 0; });
    HelperStartingOnce once(starting);
    const auto records = once.startAfterGate(file.stored, kNow);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].name, "Mail helper");
    EXPECT_EQ(records[0].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(records[1].outcome, LaunchOutcome::launched);
    EXPECT_TRUE(once.claimed());
    const auto changes = launchctl.changes().size();
    EXPECT_TRUE(once.startAfterGate(file.stored, kNow).empty());
    EXPECT_EQ(launchctl.changes().size(), changes);
    // Nothing held: the lock is not even taken.
    EXPECT_TRUE(starting.startAfterGate(HoldenmereConfig{}, kNow).empty());
}

}  // namespace
}  // namespace holdenmere
