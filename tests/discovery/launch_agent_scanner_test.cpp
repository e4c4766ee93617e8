#include "core/discovery/launch_agent_scanner.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/support/fake_launchctl_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using Agent = LaunchAgentScanner::Agent;
using testing::xmlPlist;

const fs::path kFixtures = fs::path(HOLDENMERE_FIXTURES_DIR) / "launchagents";

std::optional<Agent> fixture(const std::string& name) {
    return LaunchAgentScanner::agentFrom(plist::readFile(kFixtures / name), kFixtures / name);
}

std::optional<Agent> agentOf(const std::string& body, const std::string& path = "/L/com.example.x.plist") {
    return LaunchAgentScanner::agentFrom(plist::parse(xmlPlist(body)), path);
}

TEST(LaunchAgentParse, CapturedAgents) {
    auto path = [](const char* name) { return (kFixtures / name).string(); };
    EXPECT_EQ(fixture("com.example.cloudsync.plist"),
              (Agent{"com.example.cloudsync", "/Applications/CloudSync.app/Contents/MacOS/CloudSync",
                     path("com.example.cloudsync.plist"), std::nullopt, std::nullopt, true, false}));
    EXPECT_EQ(fixture("com.example.softwareupdate.agent.plist"),
              (Agent{"com.example.softwareupdate.agent",
                     "/Users/sam/Library/Application Support/Example/Updater.app/Contents/MacOS/update_agent",
                     path("com.example.softwareupdate.agent.plist"), "hourly", std::nullopt, true, false}));
    // "Program" wins over "ProgramArguments"; a KeepAlive dictionary keeps
    // it alive conditionally but does not start it at login.
    EXPECT_EQ(fixture("com.example.mail.helper.plist"),
              (Agent{"com.example.mail.helper",
                     "/Applications/Example Mail.app/Contents/Library/LoginItems/Example Mail Helper.app/Contents/"
                     "MacOS/Example Mail Helper",
                     path("com.example.mail.helper.plist"), std::nullopt,
                     "can't take over: provides a system service only launchd can start", false, true}));
    EXPECT_EQ(fixture("com.example.usbwatcher.plist")->launchdOnly,
              "can't take over: launchd starts it on an event, not an app Holdenmere opens");
    EXPECT_EQ(fixture("com.example.backup.nightly.plist")->cadence, "scheduled");
    // No "Label": the file name is the label; KeepAlive true starts it.
    EXPECT_EQ(fixture("local.tool.serve.plist"), (Agent{"local.tool.serve", "/usr/local/bin/tool",
                                                        path("local.tool.serve.plist"), std::nullopt, std::nullopt,
                                                        true, false}));
    // Every key of the wrong type: nothing but the first argument is used.
    EXPECT_EQ(fixture("com.example.wrongtypes.plist"),
              (Agent{"com.example.wrongtypes", "/Applications/Notes.app/Contents/MacOS/Notes",
                     path("com.example.wrongtypes.plist"), std::nullopt, std::nullopt, false, false}));
    EXPECT_EQ(fixture("com.example.noprogram.plist"), std::nullopt);
    EXPECT_EQ(fixture("not-a-dictionary.plist"), std::nullopt);
}

TEST(LaunchAgentParse, BinaryPlistReadsLikeItsXml) {
    auto xml = testing::readFile(kFixtures / "com.example.mail.helper.plist");
    auto fromBinary = LaunchAgentScanner::agentFrom(plist::parse(testing::binaryPlist(xml)), "/L/com.example.mail.helper.plist");
    auto fromXml = LaunchAgentScanner::agentFrom(plist::parse(xml), "/L/com.example.mail.helper.plist");
    ASSERT_TRUE(fromBinary.has_value());
    EXPECT_EQ(fromBinary, fromXml);
}

TEST(LaunchAgentParse, StartsAtLoginAndProgramRules) {
    EXPECT_TRUE(agentOf("<key>Program</key><string>/x</string><key>RunAtLoad</key><false/><key>KeepAlive</key><true/>")
                    ->startsAtLogin);
    EXPECT_FALSE(agentOf("<key>Program</key><string>/x</string><key>RunAtLoad</key><false/>")->startsAtLogin);
    auto conditional = agentOf("<key>Program</key><string>/x</string><key>KeepAlive</key><dict/>");
    EXPECT_FALSE(conditional->startsAtLogin);
    EXPECT_FALSE(conditional->keepsAliveConditionally);
    EXPECT_EQ(agentOf("<key>Program</key><integer>1</integer><key>ProgramArguments</key><array><string>/y</string></array>")
                  ->program,
              "/y");
    EXPECT_EQ(agentOf("<key>Program</key><string></string>"), std::nullopt);
    EXPECT_EQ(agentOf("<key>ProgramArguments</key><array/>"), std::nullopt);
    EXPECT_EQ(agentOf("<key>ProgramArguments</key><string>/y</string>"), std::nullopt);
    EXPECT_EQ(agentOf("<key>Label</key><string>x</string>"), std::nullopt);
    EXPECT_EQ(agentOf("<key>Program</key><string>/x</string>", "/L/odd.name.plist")->label, "odd.name");
}

// A user and a machine LaunchAgents folder and an Applications folder, all
// in a temporary directory, scanned with launchd faked in memory.
class LaunchAgentScannerTest : public ::testing::Test {
protected:
    void SetUp() override {
        apps = folder / "Applications";
        mail = testing::writeAppBundle(apps, "Mail", "Mail", "com.example.mail").string();
        testing::writeAppBundle(mail + "/Contents/Library/LoginItems", "MailHelper", "MailHelper", "com.example.mail.helper");
        drive = testing::writeAppBundle(apps, "Drive", "Drive", "com.example.drive").string();
        chat = testing::writeAppBundle(apps, "Chat", "Chat", "com.example.chat").string();
        own = testing::writeAppBundle(apps, "Holdenmere", "holdenmere", "com.tavik.holdenmere").string();
        user = folder / "home" / "Library" / "LaunchAgents";
        machine = folder / "Library" / "LaunchAgents";
        fs::create_directories(user);
        fs::create_directories(machine);
    }

    void agent(const fs::path& where, const std::string& label, const std::string& program, const std::string& more) {
        testing::writeFile(where / (label + ".plist"),
                           xmlPlist("<key>Label</key><string>" + label + "</string><key>Program</key><string>" +
                                    program + "</string>" + more));
    }

    LaunchAgentScanner scanner() { return LaunchAgentScanner(launchctl, {user, folder / "nowhere", machine}); }

    std::size_t disabledListQueries() const {
        auto calls = launchctl.calls();
        return static_cast<std::size_t>(std::count_if(calls.begin(), calls.end(),
                                                      [](const auto& call) { return call[0] == "print-disabled"; }));
    }

    testing::TemporaryDirectory folder;
    testing::FakeLaunchctlRunning launchctl;
    fs::path apps, user, machine;
    std::string mail, drive, chat, own;
    const std::string atLoad = "<key>RunAtLoad</key><true/>";
};

TEST_F(LaunchAgentScannerTest, ReadsWhatItCanAndNamesTheRest) {
    agent(user, "b.valid", "/b", atLoad);
    testing::writeFile(user / "a.binary.plist",
                       testing::binaryPlist(xmlPlist("<key>Program</key><string>/a</string>")));
    testing::writeFile(user / "empty.plist", "");
    testing::writeFile(user / "garbage.plist", "this is no property list");
    testing::writeFile(user / "truncated.plist",
                       testing::binaryPlist(xmlPlist("<key>Program</key><string>/t</string>")).substr(0, 25));
    testing::writeFile(user / "list.plist", "<plist version=\"1.0\"><array><string>/l</string></array></plist>");
    testing::writeFile(user / "notes.txt", xmlPlist("<key>Program</key><string>/txt</string>"));
    fs::create_directories(user / "folder.plist");
    testing::writeFile(folder / "elsewhere" / "real.plist", xmlPlist("<key>Program</key><string>/linked</string>"));
    fs::create_symlink(folder / "elsewhere" / "real.plist", user / "c.link.plist");
    fs::create_symlink(folder / "elsewhere" / "gone.plist", user / "d.dangling.plist");
    agent(machine, "m.valid", "/m", "");
    testing::writeFile(folder / "file-not-folder", "");

    LaunchAgentScanner scan(launchctl, {user, folder / "nowhere", folder / "file-not-folder", machine});
    std::vector<std::string> incomplete;
    auto agents = scan.readTopLevelAgents(incomplete);
    std::vector<std::string> labels;
    for (const auto& found : agents) labels.push_back(found.label);
    EXPECT_EQ(labels, (std::vector<std::string>{"a.binary", "b.valid", "c.link", "m.valid"}));
    EXPECT_EQ(agents[2].program, "/linked");
    EXPECT_EQ(agents[2].plistPath, (user / "c.link.plist").string());
    EXPECT_EQ(incomplete, (std::vector<std::string>{
                              (user / "d.dangling.plist").string() + " could not be read as a property list",
                              (user / "empty.plist").string() + " could not be read as a property list",
                              (user / "garbage.plist").string() + " could not be read as a property list",
                              (user / "truncated.plist").string() + " could not be read as a property list",
                              (folder / "file-not-folder").string() + " could not be listed: Not a directory",
                          }));
    EXPECT_EQ(scan.allAgents(), agents);
    EXPECT_TRUE(launchctl.calls().empty());
}

TEST_F(LaunchAgentScannerTest, StartupItemsAskLaunchdOncePerScan) {
    agent(user, "com.example.mail", mail + "/Contents/MacOS/Mail", atLoad + "<key>ProcessType</key><string>Interactive</string>");
    testing::writeFile(user / "com.example.drive.plist",
                       testing::binaryPlist(xmlPlist("<key>Label</key><string>com.example.drive</string>"
                                                     "<key>ProgramArguments</key><array><string>" +
                                                     drive + "/Contents/MacOS/Drive</string><string>-b</string></array>"
                                                     "<key>KeepAlive</key><true/>")));
    agent(user, "com.example.chat", chat + "/Contents/MacOS/Chat", atLoad);
    agent(user, "com.example.drive.updater", drive + "/Contents/MacOS/Drive", atLoad + "<key>StartInterval</key><integer>600</integer>");
    agent(user, "com.example.drive.quiet", drive + "/Contents/MacOS/Drive", "");
    agent(user, "com.tavik.holdenmere.agent", own + "/Contents/MacOS/holdenmere", atLoad);
    agent(user, "com.example.relative", "Mail", atLoad);
    agent(machine, "com.example.mail.everyone", mail + "/Contents/./MacOS/Mail", atLoad);
    launchctl.disabled = {"com.example.chat"};

    auto items = scanner().startupItems().items;
    EXPECT_EQ(disabledListQueries(), 1u);
    EXPECT_EQ(items, (std::vector<StartupItem>{
                         {"com.example.drive", "Drive", drive,
                          StartupItem::LaunchAgent{"com.example.drive", (user / "com.example.drive.plist").string()}},
                         {"com.example.mail", "Mail", mail,
                          StartupItem::LaunchAgent{"com.example.mail", (user / "com.example.mail.plist").string()}},
                         {"com.example.mail", "Mail", mail,
                          StartupItem::LaunchAgent{"com.example.mail.everyone",
                                                   (machine / "com.example.mail.everyone.plist").string()}},
                     }));
    EXPECT_EQ(scanner().disabledEligibleAgents(),
              (std::vector<StartupItem>{{"com.example.chat", "Chat", chat,
                                         StartupItem::LaunchAgent{"com.example.chat",
                                                                  (user / "com.example.chat.plist").string()}}}));
    EXPECT_EQ(disabledListQueries(), 2u);

    ManagedApp managedMail{"com.example.mail", "Mail", mail};
    ManagedApp managedChat{"com.example.chat", "Chat", chat};
    EXPECT_EQ(scanner().conflicts({managedChat, managedMail}),
              (std::vector<LaunchAgentScanner::AgentConflict>{
                  {managedMail, "com.example.mail", (user / "com.example.mail.plist").string()},
                  {managedMail, "com.example.mail.everyone", (machine / "com.example.mail.everyone.plist").string()},
              }));
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(LaunchAgentScannerTest, AnUnreadableDisabledListLeavesEveryStateUnknown) {
    agent(user, "com.example.mail", mail + "/Contents/MacOS/Mail", atLoad);
    agent(user, "com.example.chat", chat + "/Contents/MacOS/Chat", atLoad);
    agent(user, "com.example.tool", "/usr/local/bin/tool", atLoad);
    launchctl.disabled = {"com.example.chat"};
    const StartupItem mailItem{
        "com.example.mail", "Mail", mail,
        StartupItem::LaunchAgent{"com.example.mail", (user / "com.example.mail.plist").string()}};
    const StartupItem chatItem{
        "com.example.chat", "Chat", chat,
        StartupItem::LaunchAgent{"com.example.chat", (user / "com.example.chat.plist").string()}};
    using Listing = LaunchAgentScanner::StartupItemListing;
    struct Row {
        bool readable;
        Listing listing;
        std::vector<StartupItem> switchedOff;
    };
    // Unreadable, Chat (switched off) cannot be told from Mail: neither is
    // listed as switched on or off.
    for (const Row& row :
         {Row{true, Listing{{mailItem}, {}, {}}, {chatItem}},
          Row{false, Listing{{}, {chatItem, mailItem}, {"launchd's disabled list could not be read"}}, {}}}) {
        launchctl.disabledListReadable = row.readable;
        const std::size_t before = disabledListQueries();
        EXPECT_EQ(scanner().startupItems(), row.listing) << row.readable;
        // The list is asked for once per scan, never label by label.
        EXPECT_EQ(disabledListQueries(), before + 1);
        EXPECT_EQ(scanner().disabledEligibleAgents(), row.switchedOff) << row.readable;
    }
    // A managed app's agent of unknown state is still a conflict: the change
    // that would end it refuses where it is made, and says why.
    ManagedApp managedChat{"com.example.chat", "Chat", chat};
    EXPECT_EQ(scanner().conflicts({managedChat}).size(), 1u);
}

TEST_F(LaunchAgentScannerTest, IneligibleAgentsOfApps) {
    const std::string helper = mail + "/Contents/Library/LoginItems/MailHelper.app/Contents/MacOS/MailHelper";
    agent(user, "com.example.mail.helper", helper, atLoad);
    agent(user, "com.example.drive.updater", drive + "/Contents/Helpers/update", "<key>StartInterval</key><integer>3600</integer>");
    agent(user, "com.example.drive.service", drive + "/Contents/MacOS/Drive",
          "<key>MachServices</key><dict><key>com.example.drive.xpc</key><true/></dict>");
    agent(user, "com.example.mail", mail + "/Contents/MacOS/Mail", atLoad);
    agent(user, "com.example.chat.idle", chat + "/Contents/MacOS/idler", "");
    agent(user, "com.example.chat.off", chat + "/Contents/MacOS/chatd", atLoad);
    agent(user, "com.example.tool", "/usr/local/bin/tool", atLoad);
    agent(user, "com.example.relative", "MailHelper", atLoad);
    agent(user, "com.tavik.holdenmere.axsampler", own + "/Contents/MacOS/sampler", atLoad);
    agent(user, "com.example.own.bundle", own + "/Contents/MacOS/other", atLoad);
    agent(machine, "com.example.mail.helper", helper, atLoad);
    launchctl.disabled = {"com.example.chat.idle", "com.example.chat.off"};

    EXPECT_EQ(scanner().ineligibleItems(),
              (std::vector<IneligibleStartupItem>{
                  {"Drive", "com.example.drive", "com.example.drive.service",
                   "can't take over: provides a system service only launchd can start"},
                  {"Drive", "com.example.drive", "com.example.drive.updater",
                   "can't take over: hourly updater inside Drive, not an app Holdenmere starts"},
                  {"Mail", "com.example.mail", "com.example.mail.helper",
                   "can't take over: runs MailHelper, a helper inside Mail, not the app itself"},
              }));
    EXPECT_EQ(disabledListQueries(), 1u);
    EXPECT_EQ(scanner().ineligible(true),
              (std::vector<IneligibleStartupItem>{
                  {"Chat", "com.example.chat", "com.example.chat.idle",
                   "can't take over: runs idler, a helper inside Chat, not the app itself"},
                  {"Chat", "com.example.chat", "com.example.chat.off",
                   "can't take over: runs chatd, a helper inside Chat, not the app itself"},
              }));
    EXPECT_EQ(disabledListQueries(), 2u);
}

TEST_F(LaunchAgentScannerTest, HelpersOfApps) {
    const std::string helper = mail + "/Contents/Library/LoginItems/MailHelper.app/Contents/MacOS/MailHelper";
    agent(user, "com.example.mail.helper", helper, atLoad);
    agent(user, "com.example.mail", mail + "/Contents/MacOS/Mail", atLoad);
    agent(user, "com.example.drive.sync", drive + "/Contents/Helpers/sync",
          "<key>KeepAlive</key><dict><key>NetworkState</key><true/></dict>");
    agent(user, "com.example.drive.never", drive + "/Contents/Helpers/never", "");
    agent(user, "com.example.chat.daemon", chat + "/Contents/MacOS/chatd",
          "<key>MachServices</key><dict><key>com.example.chat</key><true/></dict>");
    agent(user, "com.example.tool", "/usr/local/bin/tool", atLoad);
    agent(user, "com.tavik.holdenmere.axsampler", own + "/Contents/MacOS/sampler", atLoad);
    agent(machine, "com.example.mail.helper", helper, atLoad);
    launchctl.disabled = {"com.example.drive.sync"};

    EXPECT_EQ(scanner().helpers(),
              (std::vector<HelperAgent>{
                  {"com.example.chat.daemon", (user / "com.example.chat.daemon.plist").string(),
                   chat + "/Contents/MacOS/chatd", "com.example.chat", "Chat", false},
                  {"com.example.drive.sync", (user / "com.example.drive.sync.plist").string(),
                   drive + "/Contents/Helpers/sync", "com.example.drive", "Drive", true},
                  {"com.example.mail.helper", (user / "com.example.mail.helper.plist").string(), helper,
                   "com.example.mail", "Mail", false},
              }));
    EXPECT_EQ(disabledListQueries(), 1u);
}

}  // namespace
}  // namespace holdenmere
