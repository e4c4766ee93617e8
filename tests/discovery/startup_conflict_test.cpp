#include "core/discovery/startup_conflict.h"

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

ManagedApp app(const std::string& id) {
    ManagedApp managed;
    managed.bundleIdentifier = id;
    managed.name = id;
    managed.path = "/Applications/" + id + ".app";
    return managed;
}

LoginItemsAuditor::Conflict loginItemOf(const std::string& id) {
    return {app(id), LoginItemsAuditor::LoginItem{id, "/Applications/" + id + ".app", id, false}};
}

LaunchAgentScanner::AgentConflict agentOf(const std::string& id, const std::string& label) {
    return {app(id), label, "/Users/u/Library/LaunchAgents/" + label + ".plist"};
}

TEST(StartupConflicts, GroupsByAppInFirstSeenOrder) {
    auto merged = StartupConflicts::merge({loginItemOf("b"), loginItemOf("a")},
                                          {agentOf("c", "c.one"), agentOf("a", "a.one"), agentOf("a", "a.two"),
                                           agentOf("a", "a.one")});
    ASSERT_EQ(merged.size(), 3u);
    EXPECT_EQ(merged[0].id(), "b");
    EXPECT_EQ(merged[1].id(), "a");
    EXPECT_EQ(merged[2].id(), "c");
    EXPECT_EQ(merged[1].sourceCount(), 4u);
    EXPECT_EQ(StartupConflicts::launchdLabels(merged[1]), (std::vector<std::string>{"a.one", "a.two"}));
    EXPECT_TRUE(StartupConflicts::launchdLabels(merged[0]).empty());
    EXPECT_FALSE(StartupConflicts::opensLoginItemsSettings(merged[0]));
    EXPECT_TRUE(StartupConflicts::merge({}, {}).empty());
}

}  // namespace
}  // namespace holdenmere
