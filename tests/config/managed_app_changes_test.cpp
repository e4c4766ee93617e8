#include <gtest/gtest.h>

#include <tuple>

#include "core/config/managed_app_changes.h"
#include "tests/support/records.h"

namespace holdenmere {
namespace {

using Ids = std::vector<std::string>;

Ids identifiers(const std::vector<ManagedApp>& apps) {
    Ids ids;
    for (const auto& app : apps) ids.push_back(app.bundleIdentifier);
    return ids;
}

HoldenmereConfig threeApps() {
    HoldenmereConfig config;
    config.apps = {testing::managedApp("a", "Alpha"), testing::managedApp("b", "Beta"),
                   testing::managedApp("c", "Gamma")};
    return config;
}

class SteppedDelay : public ::testing::TestWithParam<std::tuple<int, int>> {};

TEST_P(SteppedDelay, RoundsUpToAStepWithinTheRange) {
    EXPECT_EQ(ManagedAppChanges::steppedDelay(std::get<0>(GetParam())), std::get<1>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Seconds, SteppedDelay,
                         ::testing::Values(std::tuple{0, 5}, std::tuple{5, 5}, std::tuple{6, 10}, std::tuple{12, 15},
                                           std::tuple{40, 40}, std::tuple{41, 40}, std::tuple{400, 40},
                                           std::tuple{-3, 5}));

TEST(ManagedAppChanges, MovesAmongTheAppsSwitchedOn) {
    auto config = threeApps();
    config.apps[1].isEnabled = false;  // b keeps its place among the others
    EXPECT_TRUE(ManagedAppChanges::move(config, "c", 0));
    EXPECT_EQ(identifiers(config.apps), (Ids{"c", "a", "b"}));
    EXPECT_TRUE(ManagedAppChanges::move(config, "c", 99));
    EXPECT_EQ(identifiers(config.apps), (Ids{"a", "c", "b"}));
    EXPECT_FALSE(ManagedAppChanges::move(config, "c", 1));  // already there
    EXPECT_FALSE(ManagedAppChanges::move(config, "b", 0));  // switched off
    EXPECT_FALSE(ManagedAppChanges::move(config, "nobody", 0));
}

TEST(ManagedAppChanges, DelayedKeepsTheStoredDelayInSteps) {
    auto config = threeApps();
    config.apps[2].delaySeconds = 12;
    EXPECT_TRUE(ManagedAppChanges::setDelayed(config, "a", true));
    EXPECT_EQ(config.apps[0].delaySeconds, 5.0);
    EXPECT_FALSE(ManagedAppChanges::setDelayed(config, "a", true));
    EXPECT_TRUE(ManagedAppChanges::setDelayed(config, "c", true));
    EXPECT_EQ(config.apps[2].delaySeconds, 15.0);
    EXPECT_TRUE(ManagedAppChanges::setDelayed(config, "c", false));
    EXPECT_EQ(config.apps[2].delaySeconds, 0.0);
    EXPECT_TRUE(ManagedAppChanges::setDelay(config, "c", 400));
    EXPECT_EQ(config.apps[2].delaySeconds, 40.0);
}

TEST(ManagedAppChanges, SwitchingOnAndOffAndRemoving) {
    auto config = threeApps();
    config.blockedApps.push_back({"d", "Delta", "/Applications/Delta.app"});

    EXPECT_EQ(ManagedAppChanges::switchOff(config, "b"), "Beta");
    EXPECT_FALSE(config.apps[1].isEnabled);
    EXPECT_EQ(ManagedAppChanges::switchOff(config, "b"), std::nullopt);
    // An app kept but switched off is switched on in its place; a blocked
    // app comes back at the end.
    EXPECT_EQ(ManagedAppChanges::switchOn(config, "b"), "Beta");
    EXPECT_EQ(ManagedAppChanges::switchOn(config, "d"), "Delta");
    EXPECT_EQ(identifiers(config.apps), (Ids{"a", "b", "c", "d"}));
    EXPECT_TRUE(config.apps[1].isEnabled && config.apps[3].isEnabled);
    EXPECT_EQ(config.apps[3].path, "/Applications/Delta.app");
    EXPECT_TRUE(config.blockedApps.empty());
    EXPECT_EQ(ManagedAppChanges::switchOn(config, "b"), std::nullopt);

    config.blockedApps.push_back({"e", "Epsilon", "/Applications/Epsilon.app"});
    EXPECT_EQ(ManagedAppChanges::remove(config, "a"), "Alpha");
    EXPECT_EQ(ManagedAppChanges::remove(config, "e"), "Epsilon");
    EXPECT_EQ(ManagedAppChanges::remove(config, "e"), std::nullopt);
    EXPECT_EQ(identifiers(config.apps), (Ids{"b", "c", "d"}));
    EXPECT_TRUE(config.blockedApps.empty());
}

}  // namespace
}  // namespace holdenmere
