// The planning side of login ownership: pure rules over given inputs.
#include <gtest/gtest.h>

#include "core/takeover/login_ownership.h"
#include "tests/support/plist_files.h"
#include "tests/support/records.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using testing::launchRecord;
using testing::managedApp;

using Item = LoginOwnership::LoginItem;
const std::string kDash = " \xE2\x80\x94 ";

Item item(const std::string& name, const std::string& path, std::optional<std::string> bundleIdentifier,
          bool hidden = false) {
    return Item{name, path, std::move(bundleIdentifier), hidden};
}

TEST(LoginOwnershipPlan, EachRuleInLoginItemOrder) {
    const std::vector<Item> items = {
        item("tool", "/usr/local/bin/tool", std::nullopt),
        item("Holdenmere", "/Applications/Holdenmere.app", "com.tavik.holdenmere"),
        item("Notes", "/Applications/Notes.app", "com.example.notes"),
        item("Vpn", "/Applications/./Vpn.app/", "com.example.vpn"),
        item("Mail", "/Applications/Mail.app", "com.example.mail"),
        item("Chat", "/Applications/Chat.app", "com.example.chat"),
        item("Games", "/Applications/Games.app", "com.example.games"),
        item("Drive", "/Applications/Drive.app/", "com.example.drive", /*hidden=*/true),
    };
    const auto plan = LoginOwnership::plan(
        items, {managedApp("com.example.mail", "Mail")},
        {{"com.example.chat", "Chat", "/Applications/Chat.app"}, {"com.example.games", "Games", "/G.app"}},
        {"/Applications/Vpn.app"}, {"com.example.chat"}, {"com.example.notes"});

    EXPECT_EQ(plan.logLines,
              (std::vector<std::string>{
                  "skipped: tool" + kDash + "not an app, left in Login Items",
                  "skipped: Notes" + kDash + "left to macOS at your choice",
                  "skipped: Vpn" + kDash + "run by a system LaunchDaemon; left in Login Items",
                  "taken over: Mail" + kDash + "a managed app's Login Item; removed",
                  "blocked: Chat" + kDash +
                      "was switched off in Holdenmere but macOS still started it from Login Items; its Login Item is "
                      "removed",
                  "blocked: Games" + kDash + "not in Holdenmere, so its Login Item is removed",
                  "imported: Drive" + kDash + "was a macOS Login Item; Holdenmere now starts it",
              }));
    EXPECT_EQ(plan.ignored, (std::vector<Item>{items[0]}));
    EXPECT_EQ(plan.managedRemovals, (std::vector<Item>{items[4]}));
    EXPECT_EQ(plan.blockRemovals, (std::vector<Item>{items[5], items[6]}));
    EXPECT_EQ(plan.importRemovals, (std::vector<Item>{items[7]}));
    ASSERT_EQ(plan.imports.size(), 1u);
    ManagedApp drive = managedApp("com.example.drive", "Drive", "/Applications/Drive.app");
    drive.launchHidden = true;
    drive.importedFromLoginItem = true;
    EXPECT_EQ(plan.imports[0], drive);
    EXPECT_FALSE(plan.isEmpty());

    // A system LaunchDaemon that could not be read may run any app that is
    // not managed: only the managed app's Login Item is removed.
    const auto unread = LoginOwnership::plan(
        items, {managedApp("com.example.mail", "Mail")}, {{"com.example.chat", "Chat", "/Applications/Chat.app"}},
        {"/Applications/Vpn.app"}, {}, {"com.example.notes"}, /*systemDaemonsComplete=*/false);
    const std::string mayRun = kDash + "a system LaunchDaemon that could not be read may run it; left in Login Items";
    EXPECT_EQ(
        std::vector<std::string>(unread.logLines.begin() + 3, unread.logLines.end()),
        (std::vector<std::string>{"taken over: Mail" + kDash + "a managed app's Login Item; removed",
                                  "skipped: Chat" + mayRun, "skipped: Games" + mayRun, "skipped: Drive" + mayRun}));
    EXPECT_EQ(unread.managedRemovals, (std::vector<Item>{items[4]}));
    EXPECT_TRUE(unread.blockRemovals.empty() && unread.importRemovals.empty() && unread.imports.empty());
}

TEST(LoginOwnershipPlan, HoldenmereItselfAndNoItemsGiveNothing) {
    auto own = LoginOwnership::plan({item("Holdenmere", "/Applications/Holdenmere.app", "com.tavik.holdenmere")},
                                    {managedApp("com.tavik.holdenmere", "Holdenmere")}, {}, {}, {}, {});
    EXPECT_TRUE(own.isEmpty());
    EXPECT_TRUE(own.logLines.empty());
    EXPECT_EQ(LoginOwnership::plan({}, {}, {}, {}, {}, {}), LoginOwnership::Plan{});
}

TEST(LoginOwnershipPlan, TwoItemsOfOneAppImportItOnceAndRemoveBoth) {
    const std::vector<Item> items = {item("Drive", "/Applications/Drive.app", "com.example.drive"),
                                     item("Drive 2", "/Users/sam/Applications/Drive.app", "com.example.drive", true)};
    auto plan = LoginOwnership::plan(items, {}, {}, {}, {}, {});
    ASSERT_EQ(plan.imports.size(), 1u);
    EXPECT_EQ(plan.imports[0].path, "/Applications/Drive.app");
    EXPECT_FALSE(plan.imports[0].launchHidden);
    EXPECT_EQ(plan.importRemovals, items);
    EXPECT_EQ(plan.logLines.size(), 1u);
}

TEST(LoginOwnershipPlan, NotAnAppWinsOverManaged) {
    const std::vector<Item> items = {
        item("Agent", "/Library/LaunchDaemons/Agent.app", "com.example.mail"),
        item("Mail", "/Applications/Mail.app/Contents/MacOS/Mail", "com.example.mail"),
        item("Up", "/Applications/Mail.app/..", "com.example.mail"),
    };
    auto plan = LoginOwnership::plan(items, {managedApp("com.example.mail", "Mail")}, {}, {}, {}, {});
    EXPECT_EQ(plan.ignored, items);
    EXPECT_TRUE(plan.managedRemovals.empty());
    EXPECT_EQ(plan.logLines[0], "skipped: Agent" + kDash + "not an app, left in Login Items");
}

TEST(LoginOwnershipImports, LaunchAgentItemsOfAppsNobodyDecidedOn) {
    auto agent = [](const std::string& id, const std::string& path, const std::string& label) {
        return StartupItem{id, id.substr(12), path, StartupItem::LaunchAgent{label, "/L/" + label + ".plist"}};
    };
    const std::vector<StartupItem> items = {
        agent("com.example.sync", "/Applications/Sync.app/", "com.example.sync.a"),
        agent("com.example.sync", "/Applications/Sync.app", "com.example.sync.b"),
        agent("com.example.mail", "/Applications/Mail.app", "com.example.mail.a"),
        agent("com.example.chat", "/Applications/Chat.app", "com.example.chat.a"),
        agent("com.example.notes", "/Applications/Notes.app", "com.example.notes.a"),
        agent("com.example.vpnd", "/Applications/Vpnd.app", "com.example.vpnd.a"),
        agent("com.tavik.holdenmere", "/Applications/Holdenmere.app", "com.tavik.holdenmere.x"),
        StartupItem{"com.example.login", "login", "/Applications/Login.app", StartupItem::LoginItem{}},
        StartupItem{"com.example.nopath", "nopath", std::nullopt, StartupItem::LaunchAgent{"x", "/x.plist"}},
    };
    auto imports = LoginOwnership::discoveredImports(items, {managedApp("com.example.mail", "Mail")},
                                                     {{"com.example.chat", "Chat", "/Applications/Chat.app"}},
                                                     {"/Applications/Vpnd.app"}, {"com.example.notes"});
    ManagedApp sync = managedApp("com.example.sync", "sync", "/Applications/Sync.app");
    sync.importedFromStartup = true;
    EXPECT_EQ(imports, (std::vector<ManagedApp>{sync}));
}

TEST(LoginOwnershipImports, DroppedArgumentsAreThoseAfterTheProgram) {
    using testing::xmlPlist;
    EXPECT_EQ(LoginOwnership::droppedArguments(plist::parse(
                  xmlPlist("<key>ProgramArguments</key><array><string>/A.app/Contents/MacOS/A</string>"
                           "<string>--background</string><integer>3</integer><string>-minimized</string></array>"))),
              (std::vector<std::string>{"--background", "-minimized"}));
    EXPECT_TRUE(
        LoginOwnership::droppedArguments(plist::parse(xmlPlist("<key>Program</key><string>/A</string>"))).empty());
    EXPECT_TRUE(LoginOwnership::droppedArguments(std::filesystem::path("/nonexistent/agent.plist")).empty());
}

TEST(LoginOwnershipBackfill, RecordsWhatEarlierVersionsChangedOnce) {
    HoldenmereConfig config;
    ManagedApp drive = managedApp("com.example.drive", "Drive", "/Applications/Drive.app");
    drive.importedFromLoginItem = true;
    drive.launchHidden = true;
    ManagedApp mail = managedApp("com.example.mail", "Mail", "/Applications/Mail.app");
    mail.importedFromLoginItem = true;
    config.apps = {drive, mail, managedApp("com.example.sync", "Sync")};
    config.recordLoginItem("com.example.mail", "Mail", {"/Applications/Mail.app", false});
    config.recordAgent("com.example.sync", "Sync", "com.example.sync.known", "/k.plist", false);
    config.delayedHelpers = {
        {"com.example.sync.held", "/h.plist", "com.example.sync", "Sync", DelayedHelper::Mode::delay}};
    config.keptOff = {"com.example.sync.kept"};

    auto disabled = [](const std::string& id, const std::string& label) {
        return StartupItem{id, "x", "/x.app", StartupItem::LaunchAgent{label, "/L/" + label + ".plist"}};
    };
    const std::vector<StartupItem> agents = {
        disabled("com.example.sync", "com.example.sync.agent"),
        disabled("com.example.sync", "com.example.sync.known"),
        disabled("com.example.sync", "com.example.sync.held"),
        disabled("com.example.sync", "com.example.sync.kept"),
        disabled("com.example.other", "com.example.other.agent"),
        disabled("com.example.sync", "com.tavik.holdenmere.agent"),
    };
    std::vector<std::string> lines;
    LoginOwnership::backfill(agents, config, lines);
    EXPECT_EQ(lines,
              (std::vector<std::string>{
                  "ledger: Drive" + kDash + "Login Item recorded (imported before the ledger existed)",
                  "ledger: Sync" + kDash + "LaunchAgent com.example.sync.agent is disabled; probably by Holdenmere",
              }));
    EXPECT_EQ(config.takeover("com.example.drive")->loginItems,
              (std::vector<RemovedLoginItem>{{"/Applications/Drive.app", true}}));
    EXPECT_EQ(config.takeover("com.example.sync")->agents,
              (std::vector<DisabledAgent>{{"com.example.sync.known", "/k.plist", false},
                                          {"com.example.sync.agent", "/L/com.example.sync.agent.plist", true}}));

    lines.clear();
    const HoldenmereConfig once = config;
    LoginOwnership::backfill(agents, config, lines);
    EXPECT_TRUE(lines.empty());
    EXPECT_EQ(config, once);
}

TEST(LoginOwnershipReport, DoneLineAndImportedFailures) {
    const std::vector<LaunchRecord> records = {
        launchRecord("com.example.a", LaunchOutcome::launched),
        launchRecord("com.example.b", LaunchOutcome::launched),
        launchRecord("com.example.c", LaunchOutcome::alreadyRunning),
        launchRecord("com.example.drive", LaunchOutcome::failed),
        launchRecord("com.example.sync", LaunchOutcome::failed),
        launchRecord("com.example.mail", LaunchOutcome::failed),
        launchRecord("com.example.gone", LaunchOutcome::missing),
    };
    EXPECT_EQ(LoginOwnership::doneLine(records, 2),
              "done: launched=2 already_running=1 failed=3 login_items_not_removed=2");
    EXPECT_EQ(LoginOwnership::doneLine({}, 0), "done: launched=0 already_running=0 failed=0 login_items_not_removed=0");

    ManagedApp drive = managedApp("com.example.drive", "Drive");
    drive.importedFromLoginItem = true;
    ManagedApp sync = managedApp("com.example.sync", "Sync");
    sync.importedFromStartup = true;
    ManagedApp gone = managedApp("com.example.gone", "Gone");
    gone.importedFromLoginItem = true;
    EXPECT_EQ(LoginOwnership::importedFailures(records, {managedApp("com.example.mail", "Mail"), sync, drive, gone}),
              (std::vector<std::string>{
                  "Sync was taken over from its macOS startup item and Holdenmere could not start it",
                  "Drive was moved from Login Items and Holdenmere could not start it",
              }));
}

TEST(LoginOwnershipReport, RemovalTexts) {
    EXPECT_EQ(LoginOwnership::removedMessage("Mail"), "Mail will not start at login.");
    EXPECT_NE(LoginOwnership::removeHelp("Mail").find("Mail will not start at login"), std::string::npos);
}

TEST(LoginOwnershipIneligible, ManagedAppsFirstWithoutBlockedOrOwnOrRepeats) {
    const std::vector<IneligibleStartupItem> items = {
        {"Foo", "com.example.foo", "com.example.foo.updater", "hourly"},
        {"Mail", "com.example.mail", "com.example.mail.helper", "helper"},
        {"Chat", "com.example.chat", "com.example.chat.helper", "helper"},
        {"Holdenmere", "com.tavik.holdenmere", "com.tavik.holdenmere.x", "own"},
        {"Mail", "com.example.mail", "com.example.mail.helper", "again"},
    };
    auto shown = LoginOwnership::shownIneligible(items, {managedApp("com.example.mail", "Mail")},
                                                 {{"com.example.chat", "Chat", "/C.app"}});
    EXPECT_EQ(shown, (std::vector<IneligibleStartupItem>{items[1], items[0]}));
}

}  // namespace
}  // namespace holdenmere
