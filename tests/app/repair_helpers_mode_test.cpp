#include "app/repair_helpers_mode.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "core/config/config_store.h"
#include "tests/support/fake_launchctl_running.h"
#include "tests/support/fake_script_running.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::MatchesRegex;
using Calls = std::vector<std::vector<std::string>>;

const std::string kTag = "[Holdenmere] ";
const std::string kDash = " \xE2\x80\x94 ";
const std::string kNothing =
    "[Holdenmere] nothing to repair: no helper of a managed app is switched off that Holdenmere cannot start itself\n";

class RepairHelpersMode : public ::testing::Test {
protected:
    testing::TemporaryDirectory home;
    testing::FakeLaunchctlRunning launchctl;
    testing::FakeScriptRunning scripts;
    std::vector<IneligibleStartupItem> scanned;
    int scans = 0;
    RepairHelpersRun run{false, home / "config.json", home / "Logs/Holdenmere.log"};
    std::ostringstream out;
    std::ostringstream err;

    void SetUp() override {
        HoldenmereConfig config;
        config.apps = {ManagedApp{"com.example.sync", "Sync", "/Applications/Sync.app"},
                       ManagedApp{"com.example.mail", "Mail", "/Applications/Mail.app"}};
        config.delayedHelpers = {
            DelayedHelper{"com.example.mail.held", "/p.plist", "com.example.mail", "Mail", DelayedHelper::Mode::delay}};
        ConfigStore{run.configPath}.save(config);
        scanned = {
            {"Sync", "com.example.sync", "com.example.sync.agent", "disabled in launchd"},
            {"Mail", "com.example.mail", "com.example.mail.held", "disabled in launchd"},
            {"Mail", "com.example.mail", "com.example.mail.agent", "disabled in launchd"},
        };
        launchctl.disabled = {"com.example.sync.agent", "com.example.mail.held", "com.example.mail.agent"};
    }

    int repair() {
        out.str("");
        err.str("");
        return runRepairHelpers(run, out, err, launchctl, scripts, [this] {
            ++scans;
            return scanned;
        });
    }

    std::string log() const {
        return std::filesystem::exists(run.logPath) ? testing::readFile(run.logPath) : std::string();
    }
};

TEST_F(RepairHelpersMode, DryRunListsAndChangesNothing) {
    run.dryRun = true;
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(out.str(), kTag + "would switch back on: Sync" + kDash + "com.example.sync.agent: disabled in launchd\n" +
                             kTag + "would switch back on: Mail" + kDash +
                             "com.example.mail.agent: disabled in launchd\n" + kTag + "dry run: nothing changed\n");
    EXPECT_EQ(err.str(), "");
    EXPECT_TRUE(launchctl.changes().empty());
    EXPECT_THAT(log(), MatchesRegex("\\[[0-9-]+T[0-9:]+Z\\] repair \\(cli\\): Sync" + kDash +
                                    "com.example.sync.agent: would switch back on \\(dry run\\)\n"
                                    "\\[[0-9-]+T[0-9:]+Z\\] repair \\(cli\\): Mail" +
                                    kDash + "com.example.mail.agent: would switch back on \\(dry run\\)\n"));
}

TEST_F(RepairHelpersMode, SwitchesHelpersBackOnAndFailsWhenOneStaysDisabled) {
    launchctl.stuckDisabled = {"com.example.mail.agent"};
    EXPECT_EQ(repair(), 1);
    EXPECT_EQ(out.str(), kTag + "switched back on: Sync" + kDash + "com.example.sync.agent\n" + kTag + "FAILED: Mail" +
                             kDash + "com.example.mail.agent could not be switched back on\n");
    EXPECT_EQ(launchctl.changes(), (Calls{{"enable", launchdServiceTarget("com.example.sync.agent")},
                                          {"enable", launchdServiceTarget("com.example.mail.agent")}}));
    EXPECT_THAT(log(), MatchesRegex(".*\\] repair \\(cli\\): Sync" + kDash +
                                    "com.example.sync.agent: switched back on\n"
                                    ".*\\] repair \\(cli\\): Mail" +
                                    kDash + "com.example.mail.agent: still disabled after `launchctl enable`\n"));
    // The delayed helper is left to the login pass.
    EXPECT_TRUE(launchctl.disabled.count("com.example.mail.held"));

    // Appended to the same log; with every helper back on the mode succeeds.
    launchctl.stuckDisabled.clear();
    scanned.erase(scanned.begin());
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(out.str(), kTag + "switched back on: Mail" + kDash + "com.example.mail.agent\n");
    EXPECT_THAT(log(), MatchesRegex("(.*\n){2}.*: Mail" + kDash + "com.example.mail.agent: switched back on\n"));
}

TEST_F(RepairHelpersMode, NothingToRepair) {
    scanned.clear();
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(out.str(), kNothing);
    run.dryRun = true;
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(out.str(), kNothing);
    EXPECT_TRUE(launchctl.changes().empty());
    EXPECT_EQ(log(), "");

    // No configuration file: the default one manages nothing.
    run.configPath = home / "none/config.json";
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(out.str(), kNothing);
    EXPECT_FALSE(std::filesystem::exists(run.configPath));
}

TEST_F(RepairHelpersMode, UnreadableConfigRepairsNothing) {
    testing::writeFile(run.configPath, "{\"apps\": []}");
    EXPECT_EQ(repair(), 2);
    EXPECT_EQ(out.str(), "");
    EXPECT_THAT(err.str(), MatchesRegex("\\[Holdenmere\\] ERROR: config unreadable at " + run.configPath.string() +
                                        ": Could not read config: .*\\. Nothing repaired\\.\n"));
    EXPECT_EQ(scans, 0);
    EXPECT_TRUE(launchctl.calls().empty());
}

TEST_F(RepairHelpersMode, AnUnreadableDisabledListIsCouldNotTellNotNothingToRepair) {
    launchctl.disabledListReadable = false;
    EXPECT_EQ(repair(), 1);
    EXPECT_EQ(out.str(), "");
    EXPECT_EQ(err.str(), "[Holdenmere] ERROR: launchd's disabled list could not be read, so nothing was changed. "
                         "Holdenmere could not tell which helpers are switched off. Nothing repaired.\n");
    EXPECT_EQ(scans, 0);
    EXPECT_TRUE(launchctl.changes().empty());
    EXPECT_EQ(log(), "");
}

TEST_F(RepairHelpersMode, AnUnwritableLogIsAWarningOnly) {
    std::filesystem::create_directories(run.logPath);
    EXPECT_EQ(repair(), 0);
    EXPECT_EQ(launchctl.changes().size(), 2u);
    EXPECT_EQ(err.str(), "[Holdenmere] WARNING: could not write the run log" + kDash + "open(" + run.logPath.string() +
                             "): Is a directory\n");
}

}  // namespace
}  // namespace holdenmere
