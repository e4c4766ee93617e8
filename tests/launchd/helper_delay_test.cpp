#include "core/launchd/helper_delay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/support/fake_launchctl_running.h"

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using Calls = std::vector<std::vector<std::string>>;
using Status = HoldenmereLoginAgentStatus;
using Mode = DelayedHelper::Mode;

const std::string kLabel = "com.example.sync.agent";
const std::string kPlist = "/Users/ada/Library/LaunchAgents/com.example.sync.agent.plist";
const std::string kPolicyRefusal =
    "Holdenmere is not set to start at login, so a held helper would never start. Turn on Start at login in Settings "
    "first.";

class HelperDelayTest : public ::testing::Test {
protected:
    testing::FakeLaunchctlRunning launchctl;
    std::set<std::string> files{kPlist};
    HelperDelay delay{launchctl, [this](const std::string& path) { return files.count(path) != 0; }};
    DelayedHelper helper{kLabel, kPlist, "com.example.sync", "Sync", Mode::delay};
    const std::string target = launchdServiceTarget(kLabel);
    const Date now = Date{800000000};

    void SetUp() override { launchctl.labelOfPlist[kPlist] = kLabel; }

    LaunchRecord record(LaunchOutcome outcome, std::string detail) const {
        return LaunchRecord{kLabel, "Sync helper", outcome, now, std::move(detail)};
    }
};

TEST_F(HelperDelayTest, PolicyAllowsHoldingOnlyWhileTheLoginAgentRuns) {
    EXPECT_EQ(HelperDelayPolicy::refusal(Status::activeAtLogin), std::nullopt);
    for (auto status : {Status::notInstalled, Status::installedNotLoaded, Status::disabled}) {
        EXPECT_EQ(HelperDelayPolicy::refusal(status), kPolicyRefusal);
        EXPECT_EQ(HelperDelayPolicy::refusal(Mode::delay, status), kPolicyRefusal);
        EXPECT_EQ(HelperDelayPolicy::refusal(Mode::off, status), std::nullopt);
    }
    EXPECT_EQ(HelperDelayPolicy::refusal(Mode::delay, Status::activeAtLogin), std::nullopt);
    EXPECT_TRUE(HelperDelayPolicy::needsLoginAgentRepair(Status::installedNotLoaded));
    EXPECT_FALSE(HelperDelayPolicy::needsLoginAgentRepair(Status::notInstalled));
}

TEST_F(HelperDelayTest, ConvertNeedsTheLabelDisabledAndDelayNeedsTheLoginAgent) {
    helper.mode = Mode::off;
    EXPECT_EQ(*delay.convert(helper, Mode::delay, Status::activeAtLogin).refusal(),
              "helper is not disabled in launchd, so it cannot be recorded as delay");
    EXPECT_EQ(*delay.convert(helper, Mode::off, Status::activeAtLogin).refusal(),
              "helper is not disabled in launchd, so it cannot be recorded as off");

    launchctl.disabled.insert(kLabel);
    auto refused = delay.convert(helper, Mode::delay, Status::installedNotLoaded);
    EXPECT_EQ(refused, HelperDelay::Conversion::refused(kPolicyRefusal));
    EXPECT_EQ(refused.helper(), nullptr);

    helper.mode = Mode::delay;
    auto off = delay.convert(helper, Mode::off, Status::installedNotLoaded);
    ASSERT_NE(off.helper(), nullptr);
    EXPECT_EQ(off.helper()->mode, Mode::off);
    EXPECT_EQ(off.helper()->label, kLabel);
    EXPECT_EQ(off.refusal(), nullptr);

    helper.mode = Mode::off;
    auto held = delay.convert(helper, Mode::delay, Status::activeAtLogin);
    ASSERT_NE(held.helper(), nullptr);
    EXPECT_EQ(held.helper()->mode, Mode::delay);
    // Converting only asks launchd; it changes nothing.
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(HelperDelayTest, StartAfterStartsTheHelperAndDisablesItAgain) {
    launchctl.disabled.insert(kLabel);
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::launched, "helper started; next login waits for network"));
    EXPECT_EQ(launchctl.changes(),
              (Calls{{"enable", target}, {"bootstrap", launchdDomain(), kPlist}, {"disable", target}}));
    EXPECT_TRUE(launchctl.loaded.count(kLabel));
    EXPECT_TRUE(launchctl.disabled.count(kLabel));

    // At the next login launchd kept it loaded: nothing to bootstrap, and it
    // is still disabled again for the login after.
    testing::FakeLaunchctlRunning warm;
    warm.loaded.insert(kLabel);
    warm.disabled.insert(kLabel);
    HelperDelay warmDelay{warm, [](const std::string&) { return true; }};
    EXPECT_EQ(warmDelay.startAfter(helper, now),
              record(LaunchOutcome::alreadyRunning, "helper already loaded; next login waits for network"));
    EXPECT_EQ(warm.changes(), (Calls{{"enable", target}, {"disable", target}}));
    EXPECT_TRUE(warm.disabled.count(kLabel));
}

TEST_F(HelperDelayTest, StartAfterCollectsEveryProblem) {
    // Enable fails with the helper loaded: only that, since it ends disabled.
    launchctl.loaded.insert(kLabel);
    launchctl.disabled.insert(kLabel);
    launchctl.exitStatus["enable"] = 5;
    EXPECT_EQ(delay.startAfter(helper, now), record(LaunchOutcome::failed, "launchctl enable failed (exit 5)"));

    // The same with the label found enabled at the end.
    launchctl.disabled.clear();
    launchctl.exitStatus["disable"] = 7;
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::failed,
                     "launchctl enable failed (exit 5); launchctl disable failed (exit 7); "
                     "helper is still enabled for the next login"));

    // Not loaded and enable failing: no bootstrap is tried.
    launchctl.loaded.clear();
    launchctl.exitStatus.erase("disable");
    const auto before = launchctl.changes().size();
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::failed, "launchctl enable failed (exit 5); helper is not loaded in launchd"));
    const auto after = launchctl.changes();
    EXPECT_EQ(Calls(after.begin() + static_cast<long>(before), after.end()),
              (Calls{{"enable", target}, {"disable", target}}));

    launchctl.exitStatus.clear();
    launchctl.exitStatus["bootstrap"] = 5;
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::failed, "launchctl bootstrap failed (exit 5); helper is not loaded in launchd"));
}

TEST_F(HelperDelayTest, StartAfterRunsNothingForAMissingPlistOrAnOffHelper) {
    files.clear();
    EXPECT_EQ(delay.startAfter(helper, now), record(LaunchOutcome::failed, "helper plist not found at " + kPlist));
    EXPECT_TRUE(launchctl.calls().empty());

    helper.mode = Mode::off;
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::failed, "helper is off in Holdenmere but launchd lists it as enabled"));
    launchctl.disabled.insert(kLabel);
    EXPECT_EQ(delay.startAfter(helper, now),
              record(LaunchOutcome::disabled, "helper is off; not started and stays off at the next login"));
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(HelperDelayTest, StartAfterGateStartsEachRecordedHelperInOrder) {
    HoldenmereConfig config;
    DelayedHelper kept{"com.example.mail.agent", "/nowhere.plist", "com.example.mail", "Mail", Mode::off};
    config.delayedHelpers = {kept, helper};
    launchctl.disabled = {kLabel, kept.label};
    auto records = delay.startAfterGate(config, now);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].bundleIdentifier, "com.example.mail.agent");
    EXPECT_EQ(records[0].name, "Mail helper");
    EXPECT_EQ(records[0].outcome, LaunchOutcome::disabled);
    EXPECT_EQ(records[1].outcome, LaunchOutcome::launched);
    EXPECT_TRUE(delay.startAfterGate(HoldenmereConfig{}, now).empty());
}

TEST_F(HelperDelayTest, HelpersStartOncePerProcess) {
    HoldenmereConfig config;
    config.delayedHelpers = {helper};
    HelperStartingOnce once{delay};
    EXPECT_FALSE(once.claimed());
    EXPECT_EQ(once.startAfterGate(config, now).size(), 1u);
    EXPECT_TRUE(once.claimed());
    const auto changes = launchctl.changes().size();
    EXPECT_TRUE(once.startAfterGate(config, now).empty());
    EXPECT_EQ(launchctl.changes().size(), changes);
}

}  // namespace
}  // namespace holdenmere
