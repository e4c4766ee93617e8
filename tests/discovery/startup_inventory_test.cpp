#include "core/discovery/startup_inventory.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace holdenmere {
namespace {

StartupEntry entry(StartupSource source, const std::string& handle) {
    StartupEntry row;
    row.source = source;
    row.name = handle;
    row.handle = handle;
    row.state = StartupEntry::State::startsAtLogin();
    return row;
}

TEST(StartupEntry, IdIsTheSourceRawValueAndTheHandle) {
    EXPECT_EQ(entry(StartupSource::launchdJob, "com.example.agent").id(), "launchdJob:com.example.agent");
    EXPECT_EQ(entry(StartupSource::serviceManagement, "com.example.sm").id(), "serviceManagement:com.example.sm");
    EXPECT_EQ(entry(StartupSource::appExtension, "com.example.x:y").id(), "appExtension:com.example.x:y");
    EXPECT_EQ(entry(StartupSource::sessionRestore, "").id(), "sessionRestore:");
    EXPECT_EQ(entry(StartupSource::launcherChild, "com.example.child").id(), "launcherChild:com.example.child");
}

TEST(StartupInventory, EverySourceAnswersInOrderAndNoneIsSilentlyEmpty) {
    StartupInventory inventory;
    inventory.plug(StartupSource::launchdJob, [] {
        // A scanner that names the wrong source, or none on its rows, is
        // still filed under the source it was plugged in for.
        StartupSourceScan scan;
        scan.source = StartupSource::appExtension;
        scan.entries = {entry(StartupSource::appExtension, "com.example.agent")};
        scan.incomplete = {"/Library/LaunchAgents/x.plist could not be read as a property list"};
        return scan;
    });
    inventory.plug(StartupSource::serviceManagement, []() -> StartupSourceScan {
        throw std::runtime_error("out of memory");
    });

    const auto scans = inventory.scan();
    ASSERT_EQ(scans.size(), kAllStartupSources.size());
    for (std::size_t index = 0; index < scans.size(); ++index) EXPECT_EQ(scans[index].source, kAllStartupSources[index]);

    EXPECT_EQ(scans[0].unreadable, "could not be scanned: out of memory");
    EXPECT_TRUE(scans[0].entries.empty());
    EXPECT_FALSE(scans[1].unreadable);
    ASSERT_EQ(scans[1].entries.size(), 1u);
    EXPECT_EQ(scans[1].entries[0].id(), "launchdJob:com.example.agent");
    EXPECT_EQ(scans[1].incomplete.size(), 1u);
    for (auto source : {StartupSource::appExtension, StartupSource::sessionRestore, StartupSource::launcherChild}) {
        EXPECT_EQ(inventory.scan(source).unreadable, "not scanned in this build");
    }

    // A scanner plugged in later takes the source over; an empty one unplugs it.
    inventory.plug(StartupSource::appExtension, [] { return StartupSourceScan{}; });
    EXPECT_FALSE(inventory.scan(StartupSource::appExtension).unreadable);
    inventory.plug(StartupSource::appExtension, nullptr);
    EXPECT_FALSE(inventory.scans(StartupSource::appExtension));
}

}  // namespace
}  // namespace holdenmere
