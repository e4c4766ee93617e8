#include "core/discovery/login_items_auditor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/support/fake_script_running.h"
#include "tests/support/login_item_bundles.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"

namespace holdenmere {
namespace {

using testing::launchRecord;
using testing::managedApp;

using testing::FakeLoginItem;
using testing::FakeScriptRunning;
using Item = LoginItemsAuditor::LoginItem;

const std::string kListPaths(LoginItemsAuditor::kListPathsScript);
const std::string kListHidden(LoginItemsAuditor::kListHiddenScript);

std::string binaryInfoPlist(const std::string& bundleIdentifier) {
    return testing::binaryPlist(
        testing::xmlPlist("<key>CFBundleIdentifier</key><string>" + bundleIdentifier + "</string>"));
}

class LoginItemsAuditorTest : public ::testing::Test {
protected:
    testing::TemporaryDirectory folder;
    FakeScriptRunning runner;
    LoginItemsAuditor auditor{runner};

    std::string app(const std::string& name, const std::string& bundleIdentifier) {
        return testing::writeAppBundle(folder.path(), name, testing::infoPlistXml(bundleIdentifier));
    }
};

TEST_F(LoginItemsAuditorTest, ListsItemsWithNamesAndTheBundleIdentifiersThatCanBeRead) {
    auto mail = app("Mail", "com.example.mail");
    auto sync = testing::writeAppBundle(folder.path(), "Sync, Inc", binaryInfoPlist("com.example.sync"));
    auto array = testing::writeAppBundle(folder.path(), "Array", "<plist version=\"1.0\"><array/></plist>");
    auto number = testing::writeAppBundle(
        folder.path(), "Number",
        "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><integer>4</integer></dict></plist>");
    auto garbage = testing::writeAppBundle(folder.path(), "Garbage", "not a property list");
    auto fifo = (folder / "Fifo.app").string();
    std::filesystem::create_directories(fifo + "/Contents");
    ASSERT_EQ(::mkfifo((fifo + "/Contents/Info.plist").c_str(), 0600), 0);
    const std::string missing = (folder / "Missing.app").string();
    const std::string tool = "/usr/local/bin/tool";
    runner.loginItems.items = {{mail}, {sync}, {array}, {number}, {garbage}, {fifo}, {missing}, {tool}};

    EXPECT_EQ(auditor.loginItems(false), (std::vector<Item>{{"Mail", mail, "com.example.mail", false},
                                                            {"Sync, Inc", sync, "com.example.sync", false},
                                                            {"Array", array, std::nullopt, false},
                                                            {"Number", number, std::nullopt, false},
                                                            {"Garbage", garbage, std::nullopt, false},
                                                            {"Fifo", fifo, std::nullopt, false},
                                                            {"Missing", missing, std::nullopt, false},
                                                            {"tool", tool, std::nullopt, false}}));
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{kListPaths}));
}

TEST_F(LoginItemsAuditorTest, HiddenFlagsAreReadOnlyWhenAskedAndOnlyWhenTheyLineUp) {
    runner.loginItems.items = {{"/Apps/A.app", true}, {"/Apps/B.app", false}, {"/Apps/C.app", true}};
    auto hiddenFlags = [&] {
        std::vector<bool> flags;
        for (const auto& item : auditor.loginItems(true)) flags.push_back(item.hidden);
        return flags;
    };
    EXPECT_EQ(hiddenFlags(), (std::vector<bool>{true, false, true}));
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{kListPaths, kListHidden}));

    runner.hiddenAnswer = "true, true\n";
    EXPECT_EQ(hiddenFlags(), (std::vector<bool>{false, false, false}));
    // Empty parts are not counted; blank ones are, and are not "true".
    runner.hiddenAnswer = "true,,  false ,true\n";
    EXPECT_EQ(hiddenFlags(), (std::vector<bool>{true, false, true}));
    runner.hiddenAnswer = "true, , true\n";
    EXPECT_EQ(hiddenFlags(), (std::vector<bool>{true, false, true}));
    runner.hiddenAnswer = "yes, TRUE, true";
    EXPECT_EQ(hiddenFlags(), (std::vector<bool>{false, false, true}));
}

TEST_F(LoginItemsAuditorTest, AListThatCannotBeReadIsEmptyAndAskedOnce) {
    runner.loginItems.items = {{"/Apps/A.app", true}};
    runner.unavailable = true;
    EXPECT_TRUE(auditor.loginItems(true).empty());
    EXPECT_TRUE(auditor.startupItems().empty());
    EXPECT_TRUE(auditor.conflicts({managedApp("com.example.a", "A", "/Apps/A.app")}).empty());
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{kListPaths, kListPaths, kListPaths}));

    InertScriptRunning nothing;
    EXPECT_TRUE(LoginItemsAuditor{nothing}.loginItems(true).empty());
}

TEST_F(LoginItemsAuditorTest, StartupItemsAreTheItemsOfKnownAppsInListOrder) {
    auto mail = app("Mail", "com.example.mail");
    auto notes = app("Notes", "com.example.notes");
    runner.loginItems.items = {{notes, true}, {"/usr/local/bin/tool"}, {mail}};
    EXPECT_EQ(auditor.startupItems(),
              (std::vector<StartupItem>{{"com.example.notes", "Notes", notes, StartupItem::LoginItem{}},
                                        {"com.example.mail", "Mail", mail, StartupItem::LoginItem{}}}));
}

TEST_F(LoginItemsAuditorTest, ConflictsMatchByBundleIdentifierElseByPath) {
    auto mail = app("Mail", "com.example.mail");
    auto mailCopy = app("Mail Copy", "com.example.mail");
    auto other = app("Other", "com.example.other");
    const std::string bare = (folder / "Bare.app").string();  // no Info.plist
    runner.loginItems.items = {{mail}, {mailCopy}, {bare}, {other}};

    auto mailApp = managedApp("com.example.mail", "Mail", "/Elsewhere/Mail.app");
    auto bareApp = managedApp("com.example.bare", "Bare", bare);
    // Same path as an item that has a bundle identifier of its own: no match.
    auto impostor = managedApp("com.example.impostor", "Impostor", other);
    auto absent = managedApp("com.example.absent", "Absent", "/Apps/Absent.app");

    auto conflicts = auditor.conflicts({absent, mailApp, impostor, bareApp});
    ASSERT_EQ(conflicts.size(), 2u);
    EXPECT_EQ(conflicts[0].managed, mailApp);
    EXPECT_EQ(conflicts[0].loginItem.path, mail);  // the first match only
    EXPECT_EQ(conflicts[0].id(), "com.example.mail");
    EXPECT_EQ(conflicts[1].managed, bareApp);
    EXPECT_EQ(conflicts[1].loginItem, (Item{"Bare", bare, std::nullopt, false}));
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{kListPaths}));

    runner.clearScripts();
    EXPECT_TRUE(auditor.conflicts({}).empty());
    EXPECT_TRUE(runner.scripts().empty());
}

TEST_F(LoginItemsAuditorTest, ConflictsNotLaunchedThisRunLeaveOutOnlyAppsThePassOpened) {
    auto conflict = [](const std::string& id) {
        return LoginItemsAuditor::Conflict{managedApp(id, id, "/Apps/" + id + ".app"),
                                           Item{id, "/Apps/" + id + ".app", std::nullopt, false}};
    };
    std::vector<LoginItemsAuditor::Conflict> conflicts{conflict("launched"), conflict("running"), conflict("failed"),
                                                       conflict("unrecorded"), conflict("twice")};
    std::vector<LaunchRecord> records{
        launchRecord("launched", LaunchOutcome::launched), launchRecord("running", LaunchOutcome::alreadyRunning),
        launchRecord("failed", LaunchOutcome::failed), launchRecord("twice", LaunchOutcome::failed),
        launchRecord("twice", LaunchOutcome::launched)};
    EXPECT_EQ(
        LoginItemsAuditor::conflictsNotLaunchedThisRun(conflicts, records),
        (std::vector<LoginItemsAuditor::Conflict>{conflict("running"), conflict("failed"), conflict("unrecorded")}));
    EXPECT_EQ(LoginItemsAuditor::conflictsNotLaunchedThisRun(conflicts, {}), conflicts);
}

TEST_F(LoginItemsAuditorTest, RemovingByPathChecksTheListAfterwards) {
    const std::string odd = R"(/Apps/Say "Hi", \o/.app)";
    runner.loginItems.items = {{"/Apps/A.app"}, {odd, true}, {odd}};
    EXPECT_EQ(auditor.remove(Item{"Say \"Hi\", \\o/", odd, std::nullopt, false}), LoginItemRemoval::removed);
    EXPECT_EQ(runner.paths(), (std::vector<std::string>{"/Apps/A.app"}));
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{LoginItemsAuditor::removeByPathScript(odd), kListPaths}));

    runner.ignoreDeletes = true;
    EXPECT_EQ(auditor.remove(Item{"A", "/Apps/A.app", std::nullopt, false}), LoginItemRemoval::failed);

    // When the list cannot be read back, nothing shows the item: removed.
    runner.unavailable = true;
    EXPECT_EQ(auditor.remove(Item{"A", "/Apps/A.app", std::nullopt, false}), LoginItemRemoval::removed);
}

TEST_F(LoginItemsAuditorTest, RemovingByNameChecksNamesAfterwards) {
    runner.loginItems.items = {{"/Apps/A.app"}, {R"(/Apps/Q"\.app)"}};
    EXPECT_EQ(auditor.remove(std::string_view(R"(Q"\)")), LoginItemRemoval::removed);
    EXPECT_EQ(runner.scripts().front(), R"(tell application "System Events" to delete login item "Q\"\\")");
    EXPECT_EQ(runner.paths(), (std::vector<std::string>{"/Apps/A.app"}));
    // System Events refuses a name it does not know; the item is not there.
    EXPECT_EQ(auditor.remove(std::string_view("Unknown")), LoginItemRemoval::removed);

    runner.ignoreDeletes = true;
    EXPECT_EQ(auditor.remove(std::string_view("A")), LoginItemRemoval::failed);
}

TEST_F(LoginItemsAuditorTest, AddingReportsWhetherThePathIsThenListed) {
    EXPECT_TRUE(auditor.add("/Apps/Sync, Inc.app", true));
    EXPECT_TRUE(auditor.add("/Apps/Mail.app", false));
    EXPECT_EQ(runner.loginItems.items,
              (std::vector<FakeLoginItem>{{"/Apps/Sync, Inc.app", true}, {"/Apps/Mail.app", false}}));
    EXPECT_EQ(runner.scripts(),
              (std::vector<std::string>{LoginItemsAuditor::addScript("/Apps/Sync, Inc.app", true), kListPaths,
                                        LoginItemsAuditor::addScript("/Apps/Mail.app", false), kListPaths}));
    runner.unavailable = true;
    EXPECT_FALSE(auditor.add("/Apps/Notes.app", false));
}

TEST_F(LoginItemsAuditorTest, RecheckTellsWhichRemovedItemsAreBack) {
    runner.loginItems.items = {{"/Apps/Sync.app"}, {"/Apps/Chat.app/"}};
    EXPECT_EQ(auditor.recheck(std::vector<std::string>{"Sync", "Mail", "Chat"}),
              (std::map<std::string, LoginItemRemoval>{{"Sync", LoginItemRemoval::reregistered},
                                                       {"Mail", LoginItemRemoval::removed},
                                                       {"Chat", LoginItemRemoval::reregistered}}));
    EXPECT_EQ(runner.scripts(), (std::vector<std::string>{kListPaths}));
    EXPECT_EQ(auditor.recheck(std::string_view("Sync")), LoginItemRemoval::reregistered);
    EXPECT_EQ(auditor.recheck(std::string_view("Mail")), LoginItemRemoval::removed);
    EXPECT_TRUE(auditor.recheck(std::vector<std::string>{}).empty());
    runner.unavailable = true;
    EXPECT_EQ(auditor.recheck(std::string_view("Sync")), LoginItemRemoval::removed);
}

}  // namespace
}  // namespace holdenmere
