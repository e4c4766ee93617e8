#include "core/launchd/helper_delay.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>


#include "tests/support/fake_launchctl_running.h"

namespace holdenmere {
namespace {

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
    HelperDelay delay{launchctl};
    DelayedHelper helper{kLabel, kPlist, "com.example.sync", "Sync", Mode::delay};
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

}  // namespace
}  // namespace holdenmere
