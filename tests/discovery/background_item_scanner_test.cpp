#include "core/discovery/background_item_scanner.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "tests/support/background_items_text.h"
#include "tests/support/fake_tool_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using testing::FakeBackgroundItem;
using Scanner = BackgroundItemScanner;

class BackgroundItemScan : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    fs::path drive = testing::writeAppBundle(home / "Applications", "Drive", "Drive", "com.example.drive");
    fs::path notes = testing::writeAppBundle(home / "Applications", "Notes", "Notes", "com.example.notes");
    fs::path own = testing::writeAppBundle(home / "Applications", "Holdenmere", "holdenmere", "com.tavik.holdenmere");

    std::string url(const fs::path& path) const { return "file://" + path.string() + "/"; }

    FakeBackgroundItem app(const std::string& name, const fs::path& bundle, const std::string& identifier) const {
        return {name, "app (0x2)", "[disabled, allowed, notified] (0xa)", "2." + identifier, url(bundle),
                std::nullopt, identifier, std::nullopt, std::nullopt};
    }
    // An agent inside Drive.app whose plist names `program` (relative to
    // the app), registered by the app.
    FakeBackgroundItem bundledAgent(const std::string& label, const std::string& program,
                                    const std::string& extra = {}) const {
        testing::writeFile(drive / "Contents/Library/LaunchAgents" / (label + ".plist"),
                           testing::xmlPlist("<key>Label</key><string>" + label +
                                             "</string><key>BundleProgram</key><string>" + program + "</string>" +
                                             "<key>RunAtLoad</key><true/>" + extra));
        return {label, "agent (0x8)", "[enabled, allowed, notified] (0xb)", "8." + label,
                "Contents/Library/LaunchAgents/" + label + ".plist", std::nullopt, std::nullopt,
                "2.com.example.drive", std::nullopt};
    }

    Scanner::Result interpret(const std::vector<FakeBackgroundItem>& items, const std::string& uid = "501") const {
        return Scanner::interpret(BackgroundItemDump::parse(testing::btmSection(uid, items)), uid);
    }
};

TEST_F(BackgroundItemScan, AnAgentOpeningItsAppIsAnItemSwitchedOffThroughLaunchd) {
    const auto result = interpret({app("Drive", drive, "com.example.drive"),
                                   bundledAgent("com.example.drive.agent", "Contents/MacOS/Drive")});
    ASSERT_EQ(result.items.size(), 1u);
    EXPECT_EQ(result.items[0].item, (StartupItem{"com.example.drive", "Drive", drive.string(),
                                                 StartupItem::BackgroundItem{"8.com.example.drive.agent"}}));
    EXPECT_EQ(result.items[0].remedy,
              Scanner::Remedy(Scanner::LaunchAgent{
                  "com.example.drive.agent",
                  (drive / "Contents/Library/LaunchAgents/com.example.drive.agent.plist").string()}));
    EXPECT_TRUE(result.ineligible.empty());
}

TEST_F(BackgroundItemScan, HelpersServicesAndSchedulesAreLeftAloneWithTheReason) {
    auto helper = bundledAgent("com.example.drive.helper", "Contents/Resources/DriveHelper");
    auto service = bundledAgent("com.example.drive.service", "Contents/MacOS/Drive",
                                "<key>MachServices</key><dict><key>x</key><true/></dict>");
    auto hourly = bundledAgent("com.example.drive.hourly", "Contents/MacOS/Drive",
                               "<key>StartInterval</key><integer>3600</integer>");
    FakeBackgroundItem unreadable{"Gone", "agent (0x8)", "[enabled, allowed, notified] (0xb)",
                                  "8.com.example.drive.gone", "Contents/Library/LaunchAgents/gone.plist",
                                  std::nullopt, std::nullopt, "2.com.example.drive", std::nullopt};
    // A pipe where the plist should be is refused at once, not waited on.
    ASSERT_EQ(::mkfifo((drive / "Contents/Library/LaunchAgents/piped.plist").c_str(), 0600), 0);
    FakeBackgroundItem piped{"Piped",
                             "agent (0x8)",
                             "[enabled, allowed, notified] (0xb)",
                             "8.com.example.drive.piped",
                             "Contents/Library/LaunchAgents/piped.plist",
                             std::nullopt,
                             std::nullopt,
                             "2.com.example.drive",
                             std::nullopt};
    FakeBackgroundItem daemon{"vmnetd", "legacy daemon (0x10010)", "[enabled, allowed, notified] (0xb)",
                              "16.com.example.drive.daemon", "file:///Library/LaunchDaemons/d.plist",
                              "/Library/PrivilegedHelperTools/d", std::nullopt, "2.com.example.drive", std::nullopt};
    const auto result =
        interpret({app("Drive", drive, "com.example.drive"), helper, service, hourly, unreadable, piped, daemon});
    EXPECT_TRUE(result.items.empty());
    std::vector<IneligibleStartupItem> expected{
        {"Drive", "com.example.drive", "8.com.example.drive.helper",
         "can't take over: runs DriveHelper, a helper inside Drive, not the app itself"},
        {"Drive", "com.example.drive", "8.com.example.drive.service",
         "can't take over: provides a system service only launchd can start"},
        {"Drive", "com.example.drive", "8.com.example.drive.hourly",
         "can't take over: runs on a schedule, not at login"},
        {"Drive", "com.example.drive", "8.com.example.drive.gone",
         "can't take over: Holdenmere cannot tell what it runs"},
        {"Drive", "com.example.drive", "8.com.example.drive.piped",
         "can't take over: Holdenmere cannot tell what it runs"},
        {"Drive", "com.example.drive", "16.com.example.drive.daemon", std::string(Scanner::kSystemWideReason)}};
    EXPECT_EQ(result.ineligible, expected);
}

TEST_F(BackgroundItemScan, LoginItemsAbsoluteURLsOtherUsersDisabledAndOwnItems) {
    FakeBackgroundItem loginItem{"Notes", "login item (0x4)", "[enabled, allowed, notified] (0xb)",
                                 "4.com.example.notes", "file://" + notes.string() + "/", std::nullopt,
                                 "com.example.notes", std::nullopt, std::nullopt};
    FakeBackgroundItem nestedHelper = loginItem;
    nestedHelper.identifier = "4.com.example.drive.launcher";
    nestedHelper.url = "Contents/Library/LoginItems/Launcher.app";
    nestedHelper.parentIdentifier = "2.com.example.drive";
    testing::writeAppBundle(drive / "Contents/Library/LoginItems", "Launcher", "Launcher", "com.example.drive.launcher");
    FakeBackgroundItem off = loginItem;
    off.identifier = "4.com.example.off";
    off.disposition = "[disabled, allowed, notified] (0xa)";
    FakeBackgroundItem otherUser = loginItem;
    otherUser.identifier = "4.com.example.other";
    otherUser.uid = "502";
    FakeBackgroundItem ownAgent{"Holdenmere", "legacy agent (0x10008)", "[enabled, allowed, notified] (0xb)",
                                "8.com.tavik.holdenmere.agent", "file:///L/com.tavik.holdenmere.agent.plist",
                                (own / "Contents/MacOS/holdenmere").string(), std::nullopt, std::nullopt, std::nullopt};
    FakeBackgroundItem ownLogin{"Holdenmere", "login item (0x4)", "[enabled, allowed, notified] (0xb)",
                                "4.com.tavik.holdenmere", url(own), std::nullopt, std::nullopt, std::nullopt,
                                std::nullopt};

    std::vector<FakeBackgroundItem> mine{app("Drive", drive, "com.example.drive"), loginItem, nestedHelper, off,
                                         ownAgent, ownLogin};
    auto text = testing::btmSection("501", mine) + testing::btmSection("502", {otherUser});
    const auto result = Scanner::interpret(BackgroundItemDump::parse(text), "501");
    ASSERT_EQ(result.items.size(), 1u);
    EXPECT_EQ(result.items[0].item, (StartupItem{"com.example.notes", "Notes", notes.string(),
                                                 StartupItem::BackgroundItem{"4.com.example.notes"}}));
    // Only System Settings switches a login item off.
    EXPECT_EQ(result.items[0].remedy, Scanner::Remedy(Scanner::OpenLoginItemsSettings{}));
    EXPECT_EQ(result.ineligible,
              (std::vector<IneligibleStartupItem>{{"Drive", "com.example.drive", "4.com.example.drive.launcher",
                                                   "can't take over: runs Launcher, a helper inside Drive, not the app itself"}}));
}

// The captured sample (tests/fixtures/sfltool): ChatGPT's app record is
// disabled while its agent is enabled, so an app record's disposition is its
// own. Enabled, it is the app opening itself at login, which only System
// Settings switches off; the helper agent is left alone either way.
TEST_F(BackgroundItemScan, AnEnabledAppRecordIsTheAppOpeningItselfAtLogin) {
    const fs::path chat = testing::writeAppBundle(home / "Applications", "ChatGPT", "ChatGPT", "com.openai.chat");
    testing::writeFile(chat / "Contents/Library/LaunchAgents/com.openai.chat-helper.plist",
                       testing::xmlPlist("<key>Label</key><string>com.openai.chat-helper</string><key>BundleProgram"
                                         "</key><string>Contents/Resources/ChatGPTHelper</string><key>RunAtLoad</key>"
                                         "<true/>"));
    std::string captured =
        testing::readFile(fs::path(HOLDENMERE_FIXTURES_DIR) / "sfltool/dumpbtm-relative-urls.macos26.txt");
    auto replace = [](std::string text, const std::string& from, const std::string& to) {
        return text.replace(text.find(from), from.size(), to);
    };
    captured = replace(captured, "file:///Applications/ChatGPT.app/", url(chat));
    const std::string appOff = "[disabled, allowed, not notified] (0x2)";
    const std::string agentOn = "[enabled, allowed, notified] (0xb)";
    const std::string on = "[enabled, allowed, not notified] (0x3)";
    const std::string off = "[disabled, allowed, notified] (0xa)";

    const Scanner::Item opensItself{
        StartupItem{"com.openai.chat", "ChatGPT", chat.string(), StartupItem::BackgroundItem{"2.com.openai.chat"}},
        Scanner::OpenLoginItemsSettings{}, /*appRecord=*/true};
    const IneligibleStartupItem helper{
        "ChatGPT", "com.openai.chat", "8.com.openai.chat-helper",
        "can't take over: runs ChatGPTHelper, a helper inside ChatGPT, not the app itself"};
    struct Row {
        std::string app, agent;
        Scanner::Result expected;
    };
    for (const Row& row : std::vector<Row>{{appOff, agentOn, {{}, {helper}}},  // as captured
                                           {on, agentOn, {{opensItself}, {helper}}},
                                           {on, off, {{opensItself}, {}}}}) {
        // The agent's disposition comes after the app's in the capture.
        const std::string text = replace(replace(captured, agentOn, row.agent), appOff, row.app);
        EXPECT_EQ(Scanner::interpret(BackgroundItemDump::parse(text), "501"), row.expected) << row.app << row.agent;
    }
}

TEST_F(BackgroundItemScan, ConflictsOfManagedAppsInTheirOrder) {
    FakeBackgroundItem loginItem{"Notes", "login item (0x4)", "[enabled, allowed, notified] (0xb)",
                                 "4.com.example.notes", url(notes), std::nullopt, std::nullopt, std::nullopt,
                                 std::nullopt};
    const auto result = interpret({app("Drive", drive, "com.example.drive"),
                                   bundledAgent("com.example.drive.agent", "Contents/MacOS/Drive"), loginItem});
    ManagedApp managedNotes{};
    managedNotes.bundleIdentifier = "com.example.notes";
    managedNotes.name = "Notes";
    ManagedApp managedDrive{};
    managedDrive.bundleIdentifier = "com.example.drive";
    managedDrive.name = "Drive";
    const auto conflicts = Scanner::conflicts(result, {managedNotes, managedDrive});
    ASSERT_EQ(conflicts.size(), 2u);
    EXPECT_EQ(conflicts[0].identifier, "4.com.example.notes");
    EXPECT_EQ(conflicts[0].remedy, Scanner::Remedy(Scanner::OpenLoginItemsSettings{}));
    EXPECT_EQ(conflicts[1].managed, managedDrive);
    EXPECT_TRUE(std::holds_alternative<Scanner::LaunchAgent>(conflicts[1].remedy));
}

TEST(BackgroundItemScanner, AnyFailedOrUnrecognisedReadIsIncompleteNeverEmpty) {
    using testing::FakeToolRunning;
    FakeToolRunning tools;
    const Scanner scanner(tools, "501");
    auto scan = scanner.scan();
    EXPECT_FALSE(scan.result);
    EXPECT_EQ(scan.incomplete, "could not start /usr/bin/sfltool: No such file or directory");
    EXPECT_EQ(tools.calls, (std::vector<FakeToolRunning::Call>{{"sfltool", "dumpbtm"}}));
    tools.answers["sfltool"] = FakeToolRunning::printing("", 1, "sfltool: Operation not permitted \r\nmore\n");
    EXPECT_EQ(scanner.scan().incomplete, "sfltool dumpbtm failed with exit status 1: sfltool: Operation not permitted");
    // An authorization request nobody answers.
    tools.answers["sfltool"] = FakeToolRunning::timedOut();
    EXPECT_EQ(scanner.scan().incomplete,
              "sfltool dumpbtm did not finish within 60 s (an administrator's authorization nobody answered?)");
    tools.answers["sfltool"] = FakeToolRunning::printing("garbage\n");
    EXPECT_EQ(scanner.scan().incomplete, "sfltool dumpbtm printed nothing Holdenmere recognises");
    tools.answers["sfltool"] = FakeToolRunning::printing(testing::btmSection("502", {}));
    EXPECT_EQ(scanner.scan().incomplete, "sfltool dumpbtm printed no records for this user (UID 501)");
    tools.answers["sfltool"] = FakeToolRunning::printing(testing::btmSection("501", {}));
    scan = scanner.scan();
    ASSERT_TRUE(scan.result);
    EXPECT_TRUE(scan.result->items.empty());
}

// The real tool's stand-in, run as a child process, prints what the reader reads.
TEST(BackgroundItemScanner, ReadsTheFakeToolsRecordsOfTheCurrentUser) {
    testing::TemporaryDirectory folder;
    fs::create_directories(folder / "tools");
    fs::create_symlink(testing::fakeSfltoolPath(), folder / "tools/sfltool");
    const fs::path state = folder / "sfltool.json";
    FakeBackgroundItem item{"Drive", "login item (0x4)", "[enabled, allowed, notified] (0xb)", "4.com.example.drive",
                            "file:///Applications/Drive.app/", std::nullopt, std::nullopt, std::nullopt, std::nullopt};
    std::ofstream(state) << nlohmann::json{{"records", {item}}}.dump();
    ::setenv("HOLDENMERE_FAKE_SFLTOOL_STATE", state.c_str(), 1);
    SystemToolRunning tools(folder / "tools");
    const auto output = Scanner::dump(tools);
    ::unsetenv("HOLDENMERE_FAKE_SFLTOOL_STATE");
    ASSERT_TRUE(output) << output.failure().text;
    auto parsed = BackgroundItemDump::parse(*output);
    EXPECT_EQ(parsed.sections, (std::vector<std::string>{Scanner::currentUid()}));
    ASSERT_EQ(parsed.records.size(), 1u);
    EXPECT_EQ(parsed.records[0].identifier, "4.com.example.drive");
    EXPECT_EQ(testing::readFile(fs::path(state.string() + ".calls")), "dumpbtm\n");
}

}  // namespace
}  // namespace holdenmere
