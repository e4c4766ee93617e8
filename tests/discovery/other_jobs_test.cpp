// The other launchd jobs of the inventory: which agents are rows (installed
// by apps, or the user's own), which are named apart and why, each row's
// state from launchd and its tier; launchd that cannot be read, is slow or
// answers garbage gives unknown states, never an empty list.
#include "core/discovery/other_jobs.h"

#include <gtest/gtest.h>

#include "core/launchd/system_launchctl.h"
#include "core/takeover/startup_safety.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

namespace fs = std::filesystem;
using OtherJobs = LaunchAgentScanner::OtherJobs;
using State = StartupEntry::State;
using Labels = std::vector<std::string>;

Labels handles(const std::vector<StartupEntry>& rows) {
    Labels result;
    for (const auto& row : rows) result.push_back(row.handle);
    return result;
}

class OtherJobsTest : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(agents);
        sync = testing::writeAppBundle(folder / "Applications", "Sync", "Sync", "com.example.sync").string();
        mail = testing::writeAppBundle(folder / "Applications", "Mail", "Mail", "com.example.mail").string();
        job("com.example.sync.helper", sync + "/Contents/MacOS/SyncHelper", "<key>KeepAlive</key><true/>");
        job("com.example.mail", mail + "/Contents/MacOS/Mail", "<key>RunAtLoad</key><true/>");
        job("local.backup", "/usr/local/bin/backup", "<key>StartInterval</key><integer>3600</integer>");
        job("local.photos", "/usr/local/bin/photos", "<key>Disabled</key><true/><key>RunAtLoad</key><true/>");
        job("com.apple.example", "/usr/libexec/example", "<key>RunAtLoad</key><true/>");
        job("com.example.runner.job", "/usr/local/bin/runner", "<key>RunAtLoad</key><true/>");
        job("com.example.sm.agent", sync + "/Contents/MacOS/SyncAgent", "<key>RunAtLoad</key><true/>");
        job("com.example.update.loginwindow", "/usr/local/bin/update",
            "<key>LimitLoadToSessionType</key><string>LoginWindow</string><key>RunAtLoad</key><true/>");
        job("com.tavik.holdenmere.agent", "/Applications/Holdenmere.app/Contents/MacOS/holdenmere", "");
        testing::writeFile(agents / "local.broken.plist", "this is no property list");
        brackenspur.labels = {"com.example.runner.job"};
        launchctl.disabled = {"local.backup"};
    }

    void job(const std::string& label, const std::string& program, const std::string& more) {
        testing::writeFile(agents / (label + ".plist"),
                           testing::xmlPlist("<key>Label</key><string>" + label + "</string><key>Program</key><string>" +
                                             program + "</string>" + more));
    }

    OtherJobs scan(const LaunchAgentScanner::JobSafety& safety) {
        return LaunchAgentScanner(launchctl, {agents}).otherJobs(safety, brackenspur, {"com.example.sm.agent"});
    }
    OtherJobs scan() { return scan(rules()); }

    static LaunchAgentScanner::JobSafety rules() {
        LaunchAgentScanner::JobSafety safety;
        static_cast<SafetyRules&>(safety) =
            StartupSafety::rules(StartupSafety::systemEnvironment([] { return std::vector<std::string>{}; }));
        return safety;
    }

    testing::TemporaryDirectory folder;
    fs::path agents = folder / "Library/LaunchAgents";
    testing::FakeLaunchctlRunning launchctl;
    BrackenspurLabels brackenspur;
    std::string sync, mail;
};

TEST_F(OtherJobsTest, RowsAndTheJobsNamedApart) {
    const OtherJobs jobs = scan();
    EXPECT_EQ(handles(jobs.installedByApps), Labels{"com.example.sync.helper"});
    EXPECT_EQ(handles(jobs.yourOwn), (Labels{"local.backup", "local.photos", "local.broken"}));
    EXPECT_EQ(jobs.appAgents, Labels{"com.example.mail"});
    EXPECT_EQ(jobs.appleOmitted, Labels{"com.apple.example"});
    EXPECT_EQ(jobs.brackenspurOwned, Labels{"com.example.runner.job"});
    EXPECT_EQ(jobs.alsoServiceManagement, Labels{"com.example.sm.agent"});
    EXPECT_EQ(jobs.otherSessions, Labels{"com.example.update.loginwindow"});
    EXPECT_EQ(jobs.incomplete, Labels{(agents / "local.broken.plist").string() + " could not be read as a property list"});
    EXPECT_EQ(jobs.entries().size(), 4u);

    const StartupEntry& helper = jobs.installedByApps[0];
    EXPECT_EQ(helper.id(), "launchdJob:com.example.sync.helper");
    EXPECT_EQ(helper.ownerBundleIdentifier, "com.example.sync");
    EXPECT_EQ(helper.name, "Sync");
    EXPECT_EQ(helper.state, State::startsAtLogin());
    EXPECT_EQ(helper.tier, SafetyTier::refused("Can't switch off: helper inside Sync."));

    // Off where launchd marks it, or where its plist says "Disabled".
    EXPECT_EQ(jobs.yourOwn[0].state, State::off());
    EXPECT_EQ(jobs.yourOwn[0].tier, SafetyTier::needsConfirmation(
                                        {"local.backup is your own job, outside any app, so nothing else will start it."}));
    EXPECT_EQ(jobs.yourOwn[1].state, State::off());
    EXPECT_EQ(jobs.yourOwn[2].state,
              State::unknown((agents / "local.broken.plist").string() + " could not be read as a property list"));
    EXPECT_EQ(jobs.yourOwn[2].tier, SafetyTier::needsConfirmation({std::string(OtherJobs::kDetailsUnreadable)}));

    // Marked enabled, the plist-disabled job runs.
    launchctl.enabledMarks = {"local.photos"};
    EXPECT_EQ(scan().yourOwn[1].state, State::startsAtLogin());

    const auto source = jobs.scan();
    EXPECT_EQ(source.source, StartupSource::launchdJob);
    EXPECT_FALSE(source.unreadable);
    EXPECT_EQ(source.entries, jobs.entries());
    EXPECT_EQ(source.notes, (Labels{
                                "1 of Apple's own jobs are not listed",
                                "1 LaunchAgents that open an app are under Startup Items: com.example.mail",
                                "1 jobs also registered through ServiceManagement are listed there: com.example.sm.agent",
                                "1 jobs belong to Brackenspur, which starts and stops them itself: com.example.runner.job",
                                "1 jobs never start in your session (LimitLoadToSessionType): "
                                "com.example.update.loginwindow",
                            }));
    EXPECT_TRUE(launchctl.changes().empty());
}

TEST_F(OtherJobsTest, AYourOwnJobAlwaysWarnsThatNothingElseStartsIt) {
    LaunchAgentScanner::JobSafety allowing;
    allowing.tier = [](const StartupCandidate&) { return SafetyTier::allowed(); };
    const OtherJobs jobs = scan(allowing);
    // Without an Apple test nothing is left out as Apple's.
    EXPECT_TRUE(jobs.appleOmitted.empty());
    EXPECT_EQ(handles(jobs.yourOwn), (Labels{"com.apple.example", "local.backup", "local.photos", "local.broken"}));
    EXPECT_EQ(jobs.yourOwn[1].tier,
              SafetyTier::needsConfirmation({"local.backup is your own job, so nothing else will start it."}));
}

TEST_F(OtherJobsTest, WhatCouldNotBeReadIsSaidAndNoStateIsGuessed) {
    launchctl.disabledListReadable = false;
    brackenspur.failure = "Brackenspur's owned-labels file could not be read: open(/x): No such file or directory";
    auto safety = rules();
    safety.systemExtensionsRead = false;
    const OtherJobs jobs = scan(safety);
    for (const auto& row : jobs.entries()) {
        if (row.handle == "local.broken") continue;
        EXPECT_EQ(row.state, State::unknown(std::string(OtherJobs::kNoStateKnown))) << row.handle;
    }
    EXPECT_EQ(jobs.brackenspurFailure, brackenspur.failure);
    EXPECT_EQ(jobs.incomplete, (Labels{(agents / "local.broken.plist").string() + " could not be read as a property list",
                                       *brackenspur.failure, std::string(OtherJobs::kDisabledListUnreadable),
                                       std::string(OtherJobs::kSystemExtensionsUnreadable)}));
    EXPECT_FALSE(jobs.scan().unreadable);

    // Nothing listed and launchd unreadable: the source is unknown, not empty.
    fs::remove_all(agents);
    EXPECT_EQ(scan().scan().unreadable, std::string(OtherJobs::kDisabledListUnreadable));
}

TEST_F(OtherJobsTest, ALaunchctlThatHangsOrPrintsGarbageGivesUnknownStates) {
    testing::FakeLaunchctlTool tool;
    SystemLaunchctl slow(testing::FakeLaunchctlTool::executable(),
                         SystemLaunchctl::Limits{std::chrono::milliseconds(300), std::chrono::milliseconds(300)});
    auto unknownStates = [&](LaunchctlRunning& launchd) {
        const auto rows = LaunchAgentScanner(launchd, {agents}).otherJobs(rules(), {}, {}).entries();
        return std::all_of(rows.begin(), rows.end(), [](const StartupEntry& row) {
            return row.state.kind == State::Kind::unknown;
        });
    };
    tool.hang("print-disabled");
    EXPECT_TRUE(unknownStates(slow));
    tool.answer("print-disabled", 0, "Disabled services: none\n");
    EXPECT_TRUE(unknownStates(slow));
    tool.answer("print-disabled", 0, "disabled services = {\n\t\"local.backup\" => disabled\n}\n");
    EXPECT_FALSE(unknownStates(slow));
}

TEST(BrackenspurLabels, OneLabelALineOrAJsonListAndNothingElse) {
    EXPECT_EQ(BrackenspurLabels::parse("# owned by Brackenspur\ncom.example.a\n\n  com.example.b \r\n"),
              (Labels{"com.example.a", "com.example.b"}));
    EXPECT_EQ(BrackenspurLabels::parse(" [\"com.example.a\", \"com.example.b\"]\n"), (Labels{"com.example.a", "com.example.b"}));
    EXPECT_EQ(BrackenspurLabels::parse(""), Labels{});
    for (const char* garbled : {"com.example a\n", "[\"a\", 1]", "[\"a b\"]", "{\"labels\": []}", "[", "\"quoted\"\n",
                                "a\x01"}) {
        EXPECT_EQ(BrackenspurLabels::parse(garbled), std::nullopt) << garbled;
    }

    testing::TemporaryDirectory folder;
    testing::writeFile(folder / "owned", "com.example.runner.job\n");
    EXPECT_EQ(BrackenspurLabels::read(folder / "owned").labels, Labels{"com.example.runner.job"});
    EXPECT_FALSE(BrackenspurLabels::read(folder / "owned").failure);
    const auto missing = BrackenspurLabels::read(folder / "missing");
    EXPECT_TRUE(missing.labels.empty());
    EXPECT_TRUE(missing.failure->starts_with("Brackenspur's owned-labels file could not be read: "));
    testing::writeFile(folder / "garbled", "not a list of labels");
    EXPECT_EQ(BrackenspurLabels::read(folder / "garbled").failure,
              "Brackenspur's owned-labels file " + (folder / "garbled").string() + " is not a list of launchd labels");

    ::setenv(BrackenspurLabels::kVariable, "", 1);
    EXPECT_EQ(BrackenspurLabels::fromEnvironment().failure, std::nullopt);
    ::setenv(BrackenspurLabels::kVariable, (folder / "owned").c_str(), 1);
    EXPECT_EQ(BrackenspurLabels::fromEnvironment().labels, Labels{"com.example.runner.job"});
    ::unsetenv(BrackenspurLabels::kVariable);
}

}  // namespace
}  // namespace holdenmere
