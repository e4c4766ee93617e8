#include <gtest/gtest.h>

#include "core/takeover/startup_items_listing.h"
#include "tests/support/records.h"

namespace holdenmere {
namespace {

using Ids = std::vector<std::string>;

StartupItem agentItem(const std::string& identifier, const std::string& name, const std::string& label) {
    const std::string path = "/Applications/" + name + ".app";
    return StartupItem{identifier, name, path, StartupItem::LaunchAgent{label, "/Agents/" + label + ".plist"}};
}

LoginItemsAuditor::LoginItem loginItem(const std::string& name, std::optional<std::string> identifier,
                                       bool hidden = false) {
    return {name, "/Applications/" + name + ".app", std::move(identifier), hidden};
}

template <typename Row>
Ids identifiers(const std::vector<Row>& rows) {
    Ids ids;
    for (const auto& row : rows) ids.push_back(row.bundleIdentifier);
    return ids;
}

// What a scan found, as the scanners report it; everything below is decided
// from it and the configuration alone.
class StartupItemsListingTest : public ::testing::Test {
protected:
    StartupScan scan;
    HoldenmereConfig config;

    void SetUp() override {
        scan.loginItems = {loginItem("Holdenmere", "com.tavik.holdenmere"), loginItem("Mail", "com.example.mail"),
                           loginItem("Notes", "com.example.notes", true), loginItem("Newsy", "com.example.newsy"),
                           {"Mount", "/Users/me/Scripts/Mount.scpt", std::nullopt, false}};
        scan.agentItems = {agentItem("com.example.mail", "Mail", "com.example.mail.launcher"),
                           agentItem("com.example.notes", "Notes", "com.example.notes.agent"),
                           agentItem("com.example.parcel", "Parcel", "com.example.parcel.launcher"),
                           agentItem("com.example.vault", "Vault", "com.example.vault.agent")};
        scan.agentTiers["com.example.vault.agent"] =
            SafetyTier::needsConfirmation({"Vault is a security or network tool: it may stop protecting you."});
        scan.agentTiers["com.example.mail.launcher"] = SafetyTier::refused("An Apple macOS component.");
        scan.ineligible = {{"Parcel", "com.example.parcel", "com.example.parcel.helper", "a helper"},
                           {"Newsy", "com.example.newsy", "com.example.newsy.helper", "a blocked app's helper"}};
        ManagedApp mail = testing::managedApp("com.example.mail", "Mail", "/Applications/Mail.app");
        config.apps = {mail};
        config.blockedApps = {{"com.example.newsy", "Newsy", "/Applications/Newsy.app"}};
    }
};

TEST_F(StartupItemsListingTest, OffersTheFirstItemOfEachAppNeitherManagedNorBlocked) {
    config.leftToMacOS = {"com.example.parcel"};
    const auto listing = StartupItemsListing::from(scan, config);
    // Login Items first: Notes is offered by its Login Item, not its agent.
    EXPECT_EQ(identifiers(listing.offered), (Ids{"com.example.notes", "com.example.parcel", "com.example.vault"}));
    EXPECT_EQ(listing.offered[0].source, StartupItemsListing::Offered::Source::loginItem);
    EXPECT_TRUE(listing.offered[0].hidden);
    EXPECT_EQ(listing.offered[1].label, "com.example.parcel.launcher");
    EXPECT_TRUE(listing.offered[1].leftToMacOS);
    EXPECT_EQ(listing.offered[2].tier.kind, SafetyTier::Kind::needsConfirmation);
    EXPECT_EQ(listing.offered[2].chips, Ids{"Security or network tool"});
}

TEST_F(StartupItemsListingTest, LeavesAloneWithTheReasonAndListsConflicts) {
    scan.systemDaemonApps = {"/Applications/Vault.app"};
    const auto listing = StartupItemsListing::from(scan, config);
    EXPECT_EQ(identifiers(listing.offered), (Ids{"com.example.notes", "com.example.parcel"}));
    // A blocked app's items are not shown; a Login Item that is no app is,
    // and an app a system LaunchDaemon runs comes last.
    ASSERT_EQ(listing.leftAlone.size(), 3u);
    EXPECT_EQ(listing.leftAlone[0].label, "com.example.parcel.helper");
    EXPECT_EQ(listing.leftAlone[1].reason, "not an app, left in Login Items");
    EXPECT_EQ(listing.leftAlone[2].bundleIdentifier, "com.example.vault");
    EXPECT_EQ(listing.leftAlone[2].reason, StartupSafety::kRunBySystemDaemon);

    // The managed app macOS also starts, by its Login Item and its agent,
    // with the agent's tier.
    ASSERT_EQ(listing.conflicts.size(), 1u);
    const auto& conflict = listing.conflicts[0];
    EXPECT_EQ(conflict.bundleIdentifier, "com.example.mail");
    ASSERT_EQ(conflict.loginItems.size(), 1u);
    ASSERT_EQ(conflict.agents.size(), 1u);
    EXPECT_EQ(conflict.agents[0].tier.kind, SafetyTier::Kind::refused);
}

}  // namespace
}  // namespace holdenmere
