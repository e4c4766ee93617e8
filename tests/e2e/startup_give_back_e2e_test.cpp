// Startup taken over at login and given back by --restore-startup, run as a
// user would in one temporary home that holds the hard cases at once: a
// LaunchAgent the user had switched off long before, an app with a Login
// Item in each of its two copies, launchd's disabled list unreadable for one
// run, and a configuration that holds Holdenmere's own login agent as a held
// launchd job. The fake launchctl and osascript stand in for the system's
// (HOLDENMERE_TOOLS_DIR); the probe answers on loopback.
//
// Not here: a give-back made while a pass runs (give_back_during_pass_e2e_test.cpp),
// an item that appears during the re-registration sweep (in-process in
// tests/takeover/startup_round_trip_property_test.cpp), and a step that runs
// out of time (in-process in tests/takeover/ownership_pass_test.cpp).
#include <signal.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "core/apps/app_running.h"
#include "core/config/config_store.h"
#include "core/launchd/launchctl_running.h"
#include "core/support/child_process.h"
#include "tests/support/e2e_home.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/loopback_http_server.h"
#include "tests/support/plist_files.h"
#include "tests/support/system_events_login_items.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using testing::FakeLaunchctlTool;
using testing::FakeLoginItem;
using ::testing::HasSubstr;
using ::testing::Not;
using testing::SystemEventsLoginItems;
using Calls = std::vector<std::vector<std::string>>;

const std::string kDash = " \xE2\x80\x94 ";
const std::string kOwnAgent = "com.tavik.holdenmere.agent";

class StartupGiveBack : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    FakeLaunchctlTool launchd;
    testing::LoopbackHTTPServer server{testing::LoopbackHTTPServer::Mode::status, 204};
    SystemAppRunning apps;
    const std::string suffix = home.path().filename().string();
    // Mail is managed; its agent ".login" starts it, its agent ".agent" the
    // user switched off long ago.
    const std::string mail = "com.example.mail." + suffix;
    const std::string mailLogin = mail + ".login";
    const std::string mailOff = mail + ".agent";
    // Drive is not in Holdenmere yet; each of its two copies is a Login Item.
    const std::string drive = "com.example.drive." + suffix;
    // Notes is left to macOS: its Login Item and agent stay as they are.
    const std::string notes = "com.example.notes." + suffix;
    const std::string notesAgent = notes + ".agent";
    std::string mailBundle, driveBundle, driveCopy, notesBundle, todo;
    std::vector<FakeLoginItem> found;

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path loginItemsFile() const { return home / "login-items.json"; }
    std::string plistOf(const std::string& label) const {
        return (home / "Library/LaunchAgents" / (label + ".plist")).string();
    }

    void agent(const std::string& label, const std::string& program, bool disabled) {
        testing::writeFile(plistOf(label), testing::xmlPlist("<key>Label</key><string>" + label +
                                                             "</string><key>ProgramArguments</key><array><string>" +
                                                             program + "</string></array><key>RunAtLoad</key><true/>"));
        launchd.mark(label, disabled);
        if (!disabled) launchd.load(label, plistOf(label));
    }

    void SetUp() override {
        testing::linkFakeTools(home.path());

        mailBundle = testing::writeLingeringApp(home / "Applications/Mail.app", mail);
        driveBundle = testing::writeLingeringApp(home / "Applications/Drive.app", drive);
        driveCopy = testing::writeLingeringApp(home / "Desktop/Drive.app", drive);
        notesBundle = testing::writeAppBundle(home / "Applications", "Notes", "Notes", notes).string();
        todo = (home / "Documents/todo.txt").string();
        testing::writeFile(todo, "");

        agent(mailLogin, mailBundle + "/Contents/MacOS/LingeringApp", false);
        agent(mailOff, mailBundle + "/Contents/MacOS/LingeringApp", true);
        agent(notesAgent, notesBundle + "/Contents/MacOS/Notes", false);
        testing::writeFile(plistOf(kOwnAgent),
                           testing::xmlPlist("<key>Label</key><string>" + kOwnAgent +
                                             "</string><key>Program</key><string>/bin/true</string>"));
        launchd.load(kOwnAgent, plistOf(kOwnAgent));

        found = {{driveBundle, true}, {notesBundle, false}, {todo, true}, {driveCopy, false}};
        SystemEventsLoginItems::save(loginItemsFile(), found);

        HoldenmereConfig config;
        config.settings.probeURL = server.url();
        config.settings.pollInterval = 0.5;
        config.settings.maxAttempts = 2;
        config.apps = {ManagedApp{mail, "Mail", mailBundle}};
        config.grantStartupConsent({notes});
        // An earlier version held Holdenmere's own login agent as a launchd job.
        config.heldStartup = {HeldStartupItem{StartupSource::launchdJob, kOwnAgent, "com.tavik.holdenmere",
                                              "Holdenmere agent", "on", plistOf(kOwnAgent), Date{0}}};
        ConfigStore{configPath()}.save(config);

        // macOS already opened Mail and Drive, so the passes find them
        // running and the re-registration sweep has nothing it just opened
        // to watch.
        ASSERT_EQ(apps.launch(mailBundle, OpenOptions{}), LaunchAttempt::opened());
        ASSERT_EQ(apps.launch(driveBundle, OpenOptions{}), LaunchAttempt::opened());
    }

    void TearDown() override {
        for (const auto& identifier : {mail, drive}) {
            for (int pid : apps.processIdentifiers(identifier)) ::kill(pid, SIGKILL);
        }
    }

    ChildProcessResult run(const std::vector<std::string>& arguments) {
        return testing::runInHome(home.path(), launchd, loginItemsFile(), arguments);
    }

    // launchd's mark for a label: nothing when it has none (enabled).
    bool disabled(const std::string& label) const {
        const auto state = launchd.state();
        return state.disabled.count(label) != 0 && state.disabled.at(label);
    }
    bool loaded(const std::string& label) const { return launchd.loadedLabels().count(label) != 0; }

    // The launchctl calls that change launchd and name this label.
    Calls changesOf(const std::string& label) const {
        Calls result;
        for (const auto& call : launchd.calls()) {
            if (call[0] == "print" || call[0] == "print-disabled") continue;
            if (call[1] == launchdServiceTarget(label) || (call.size() == 3 && call[2] == plistOf(label))) {
                result.push_back(call);
            }
        }
        return result;
    }

    static std::vector<FakeLoginItem> sorted(std::vector<FakeLoginItem> items) {
        std::sort(items.begin(), items.end(), [](const FakeLoginItem& a, const FakeLoginItem& b) {
            return std::tie(a.path, a.hidden) < std::tie(b.path, b.hidden);
        });
        return items;
    }
};

TEST_F(StartupGiveBack, EverythingFoundOnIsOnAgainAndWhatWasOffStaysOff) {
    // A run in which launchd's disabled list cannot be read: nothing in
    // launchd is changed or recorded, and the lines say so.
    launchd.answer("print-disabled", 5, "", "Could not print disabled services: 5: Input/output error\n");
    auto repair = run({"--repair-helpers"});
    EXPECT_NE(repair.status, 0) << repair.output;
    EXPECT_THAT(repair.error, HasSubstr("could not tell"));
    EXPECT_THAT(repair.output, Not(HasSubstr("nothing to repair")));

    auto pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] Mail" + kDash + "LaunchAgent " + mailLogin +
                                       " is NOT disabled: launchd's disabled list could not be read, so nothing was "
                                       "changed.\n"));
    EXPECT_THAT(pass.output, HasSubstr("[Holdenmere] imported: Drive" + kDash +
                                       "was a macOS Login Item; Holdenmere now starts it\n"));
    for (const auto& call : launchd.calls()) EXPECT_TRUE(call[0] == "print" || call[0] == "print-disabled") << call[0];
    auto config = ConfigStore{configPath()}.load();
    ASSERT_EQ(config.takeovers.size(), 1u);
    // Both of Drive's Login Items, each as the user had it.
    EXPECT_EQ(config.takeovers[0].bundleIdentifier, drive);
    EXPECT_EQ(config.takeovers[0].loginItems, (std::vector<RemovedLoginItem>{{driveBundle, true}, {driveCopy, false}}));
    EXPECT_TRUE(config.takeovers[0].agents.empty());
    EXPECT_EQ(SystemEventsLoginItems::load(loginItemsFile()),
              (std::vector<FakeLoginItem>{{notesBundle, false}, {todo, true}}));

    // launchd answers again: the next pass takes Mail's agent over and
    // leaves the one the user switched off alone, unrecorded.
    std::filesystem::remove_all(launchd.stateFolder() / "answers");
    pass = run({"--gate"});
    ASSERT_EQ(pass.status, 0) << pass.output << pass.error;
    EXPECT_THAT(pass.output,
                HasSubstr("[Holdenmere] taken over: Mail" + kDash + "LaunchAgent " + mailLogin + " disabled\n"));
    EXPECT_THAT(pass.output, Not(HasSubstr(mailOff)));
    EXPECT_THAT(pass.output, Not(HasSubstr("probably by Holdenmere")));
    EXPECT_TRUE(disabled(mailLogin));
    config = ConfigStore{configPath()}.load();
    const TakeoverRecord* mailRecord = config.takeover(mail);
    ASSERT_NE(mailRecord, nullptr);
    EXPECT_EQ(mailRecord->agents, (std::vector<DisabledAgent>{{mailLogin, plistOf(mailLogin), false}}));

    // Holdenmere's own login agent, held or not, was never switched off.
    EXPECT_THAT(pass.output, HasSubstr(kOwnAgent + " was not re-checked: Holdenmere's own item."));
    EXPECT_TRUE(changesOf(kOwnAgent).empty());
    EXPECT_FALSE(disabled(kOwnAgent));

    // At the next login launchd does not load a disabled job.
    launchd.unload(mailLogin);
    launchd.forgetCalls();
    auto restore = run({"--restore-startup"});
    EXPECT_EQ(restore.status, 0) << restore.output << restore.error;
    EXPECT_THAT(restore.output,
                HasSubstr("[Holdenmere] held startup items: left off: Holdenmere agent" + kDash + kOwnAgent +
                          " is Holdenmere's own item, which it never switches off; left as it is\n"));
    EXPECT_THAT(restore.output, HasSubstr("login agent: turned off"));
    EXPECT_EQ(sorted(SystemEventsLoginItems::load(loginItemsFile())), sorted(found)) << restore.output;
    // What was on is on again and loaded; what was off stays off, untouched.
    EXPECT_FALSE(disabled(mailLogin));
    EXPECT_TRUE(loaded(mailLogin));
    EXPECT_TRUE(disabled(mailOff));
    EXPECT_FALSE(loaded(mailOff));
    EXPECT_FALSE(disabled(notesAgent));
    EXPECT_TRUE(loaded(notesAgent));
    EXPECT_EQ(changesOf(mailLogin),
              (Calls{{"enable", launchdServiceTarget(mailLogin)}, {"bootstrap", launchdDomain(), plistOf(mailLogin)}}));
    EXPECT_TRUE(changesOf(mailOff).empty());
    EXPECT_TRUE(changesOf(notesAgent).empty());
    // Turning the login agent off is the only change to Holdenmere's own job.
    EXPECT_EQ(changesOf(kOwnAgent),
              (Calls{{"bootout", launchdServiceTarget(kOwnAgent)}, {"disable", launchdServiceTarget(kOwnAgent)}}));
    config = ConfigStore{configPath()}.load();
    EXPECT_TRUE(config.takeovers.empty());
    EXPECT_TRUE(config.heldStartup.empty());
    EXPECT_EQ(config.startupConsent, StartupConsent::declined);
}

}  // namespace
}  // namespace holdenmere
