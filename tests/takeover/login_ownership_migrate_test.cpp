#include <gtest/gtest.h>

#include "core/takeover/login_ownership.h"

namespace holdenmere {
namespace {

ManagedApp app(const std::string& name, const std::string& path, bool enabled = true, double delay = 0) {
    ManagedApp result;
    result.bundleIdentifier = "com.example." + name;
    result.name = name;
    result.path = path;
    result.isEnabled = enabled;
    result.delaySeconds = delay;
    return result;
}

TEST(LoginOwnershipMigrate, UpToDateConfigIsUnchanged) {
    HoldenmereConfig config;
    config.apps = {app("Mail", "/Applications/Mail.app", true, 40), app("Drive", "/Applications/Drive.app", true, 0)};
    auto migration = LoginOwnership::migrate(config, {"/Applications/Other.app"});
    EXPECT_FALSE(migration.changed());
    EXPECT_TRUE(migration.logLines.empty());
    EXPECT_EQ(migration.config, config);
}

TEST(LoginOwnershipMigrate, EachKindOfChangeWithItsLine) {
    HoldenmereConfig config;
    config.apps = {
        app("Chat", "/Applications/Chat.app", false),
        app("Agent", "/Library/Vendor/Agent.app/", true),
        app("Slow", "/Applications/Slow.app", true, 90),
        app("Early", "/Applications/Early.app", true, -2.5),
        app("Mail", "/Applications/Mail.app", true, 5),
    };
    config.blockedApps.push_back({"com.example.Chat", "Chat", "/Applications/Chat.app"});
    auto migration = LoginOwnership::migrate(config, {"/Library/Vendor/./Agent.app"});
    ASSERT_TRUE(migration.changed());
    EXPECT_EQ(migration.logLines, (std::vector<std::string>{
                                      "blocked: Chat \xE2\x80\x94 was switched off in Holdenmere; it does not start at login",
                                      "dropped: Agent \xE2\x80\x94 a system LaunchDaemon; launchd starts it, Holdenmere cannot gate it",
                                      "clamped: Slow \xE2\x80\x94 stored delay 90s is outside 0-40s; it now waits 40s",
                                      "clamped: Early \xE2\x80\x94 stored delay -2.5s is outside 0-40s; it now waits 0s",
                                  }));
    ASSERT_EQ(migration.config.apps.size(), 3u);
    EXPECT_EQ(migration.config.apps[0].delaySeconds, 40);
    EXPECT_EQ(migration.config.apps[1].delaySeconds, 0);
    EXPECT_EQ(migration.config.apps[2].name, "Mail");
    // Chat was already blocked: not listed twice.
    EXPECT_EQ(migration.config.blockedApps.size(), 1u);
    EXPECT_EQ(migration.movedToBlocked.size(), 1u);
    EXPECT_EQ(migration.droppedSystemDaemons.size(), 1u);
    EXPECT_EQ(migration.clampedDelays.size(), 2u);

    config.blockedApps.clear();
    EXPECT_EQ(LoginOwnership::migrate(config, {}).config.blockedApps,
              (std::vector<BlockedApp>{{"com.example.Chat", "Chat", "/Applications/Chat.app"}}));
}

TEST(LoginOwnershipMigrate, StandardizedPaths) {
    EXPECT_EQ(LoginOwnership::standardizedPath("/Applications/./Mail.app/"), "/Applications/Mail.app");
    EXPECT_EQ(LoginOwnership::standardizedPath("/Applications/Sub/../Mail.app"), "/Applications/Mail.app");
    EXPECT_EQ(LoginOwnership::standardizedPath("/"), "/");
    EXPECT_EQ(LoginOwnership::standardizedPath(""), "");
}

}  // namespace
}  // namespace holdenmere
