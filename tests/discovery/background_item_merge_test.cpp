// Background items among the other startup sources: appended after the
// file-backed items, last in the first-occurrence rule, and grouped into the
// conflicts of managed apps with their remedies.
#include <gtest/gtest.h>

#include "core/discovery/startup_conflict.h"
#include "core/discovery/startup_discovery.h"

namespace holdenmere {
namespace {

using Scanner = BackgroundItemScanner;

ManagedApp app(const std::string& id) {
    ManagedApp managed;
    managed.bundleIdentifier = id;
    managed.name = id;
    managed.path = "/Applications/" + id + ".app";
    return managed;
}

StartupItem item(const std::string& id, StartupItem::Source source) {
    return StartupItem{id, id, "/Applications/" + id + ".app", std::move(source)};
}

Scanner::Conflict backgroundOf(const std::string& id, Scanner::Remedy remedy) {
    return {app(id), "8." + id, id, std::move(remedy)};
}

TEST(BackgroundItemMerge, AppendedLastAndBeatenByEveryOtherSourceOfTheSameApp) {
    const StartupItem loginA = item("a", StartupItem::LoginItem{});
    const StartupItem agentB = item("b", StartupItem::LaunchAgent{"b.agent", "/L/b.agent.plist"});
    const std::vector<StartupItem> background{item("a", StartupItem::BackgroundItem{"4.a"}),
                                              item("c", StartupItem::BackgroundItem{"4.c"}),
                                              item("b", StartupItem::BackgroundItem{"8.b"}),
                                              item("c", StartupItem::BackgroundItem{"8.c.agent"}),
                                              item("m", StartupItem::BackgroundItem{"4.m"}),
                                              item("com.tavik.holdenmere", StartupItem::BackgroundItem{"4.own"})};
    const auto merged = StartupDiscovery::merged({loginA, agentB}, background);
    ASSERT_EQ(merged.size(), 8u);
    EXPECT_EQ(merged[0], loginA);
    EXPECT_EQ(merged[2], background[0]);

    const auto kept = StartupDiscovery::unmanaged(merged, {app("m")});
    EXPECT_EQ(kept, (std::vector<StartupItem>{loginA, agentB, background[1]}));

    // Without a background result nothing is appended: the scan did not
    // finish, so it says nothing about what is there.
    EXPECT_EQ(StartupDiscovery::merged({loginA, agentB}, std::nullopt), (std::vector<StartupItem>{loginA, agentB}));
}

TEST(BackgroundItemMerge, ConflictsGroupAfterLoginItemsAndAgentsWithTheirRemedies) {
    const Scanner::LaunchAgent viaLaunchd{"b.helper", "/Applications/b.app/Contents/Library/LaunchAgents/b.plist"};
    auto merged = StartupConflicts::merge(
        {LoginItemsAuditor::Conflict{app("a"), LoginItemsAuditor::LoginItem{"a", "/Applications/a.app", "a", false}}},
        {LaunchAgentScanner::AgentConflict{app("b"), "b.agent", "/L/b.agent.plist"}},
        {backgroundOf("c", Scanner::OpenLoginItemsSettings{}), backgroundOf("b", viaLaunchd),
         backgroundOf("a", Scanner::OpenLoginItemsSettings{}),
         backgroundOf("b", Scanner::LaunchAgent{"b.agent", "/L/b.agent.plist"})});
    ASSERT_EQ(merged.size(), 3u);
    EXPECT_EQ(merged[0].id(), "a");
    EXPECT_EQ(merged[1].id(), "b");
    EXPECT_EQ(merged[2].id(), "c");
    EXPECT_EQ(merged[1].sourceCount(), 3u);
    EXPECT_EQ(merged[1].backgroundItems[0].remedy, Scanner::Remedy(viaLaunchd));
    // Each label once: the agent's, then the background item's own.
    EXPECT_EQ(StartupConflicts::launchdLabels(merged[1]), (std::vector<std::string>{"b.agent", "b.helper"}));
    EXPECT_TRUE(StartupConflicts::launchdLabels(merged[2]).empty());

    // Only System Settings ends c's; a's Login Item is removed by script and
    // b's items are switched off through launchd.
    EXPECT_FALSE(StartupConflicts::opensLoginItemsSettings(merged[0]));
    EXPECT_FALSE(StartupConflicts::opensLoginItemsSettings(merged[1]));
    EXPECT_TRUE(StartupConflicts::opensLoginItemsSettings(merged[2]));
}

}  // namespace
}  // namespace holdenmere
