#include "core/launchd/helper_repair.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;
using Calls = std::vector<std::vector<std::string>>;
using Candidate = HelperRepair::Candidate;
using Outcome = HelperRepair::Outcome;
using Step = HelperRepair::Step;

const std::string kReason = "disabled in launchd";
const Candidate kSync{"com.example.sync.agent", "Sync", "com.example.sync", kReason};
const Candidate kMail{"com.example.mail.agent", "Mail", "com.example.mail", kReason};

IneligibleStartupItem disabledAgent(const std::string& name, const std::string& bundleIdentifier,
                                    const std::string& label) {
    return IneligibleStartupItem{name, bundleIdentifier, label, kReason};
}

TEST(HelperRepairLines, CandidateAndSteps) {
    EXPECT_EQ(kSync.line(), "Sync \xE2\x80\x94 com.example.sync.agent: disabled in launchd");
    EXPECT_EQ((Step{kSync, Outcome::planned}.line()),
              "would switch back on: Sync \xE2\x80\x94 com.example.sync.agent: disabled in launchd");
    EXPECT_EQ((Step{kSync, Outcome::repaired}.line()), "switched back on: Sync \xE2\x80\x94 com.example.sync.agent");
    EXPECT_EQ((Step{kSync, Outcome::failed}.line()),
              "FAILED: Sync \xE2\x80\x94 com.example.sync.agent could not be switched back on");

    const Date at = Date::fromUnixTime(1772352902);  // 2026-03-01T08:15:02Z
    EXPECT_EQ(HelperRepair::logLine(Step{kSync, Outcome::repaired}, "cli", at),
              "[2026-03-01T08:15:02Z] repair (cli): Sync \xE2\x80\x94 com.example.sync.agent: switched back on");
    EXPECT_EQ(HelperRepair::logLine(Step{kSync, Outcome::failed}, "app", at),
              "[2026-03-01T08:15:02Z] repair (app): Sync \xE2\x80\x94 com.example.sync.agent: still disabled after "
              "`launchctl enable`");
    EXPECT_EQ(HelperRepair::logLine(Step{kSync, Outcome::planned}, "cli", at),
              "[2026-03-01T08:15:02Z] repair (cli): Sync \xE2\x80\x94 com.example.sync.agent: would switch back on "
              "(dry run)");

    EXPECT_EQ(HelperRepair::question(1),
              "Holdenmere earlier switched off 1 helper it cannot start itself \xE2\x80\x94 switch it back on?");
    EXPECT_EQ(HelperRepair::question(3),
              "Holdenmere earlier switched off 3 helpers it cannot start itself \xE2\x80\x94 switch them back on?");
}

TEST(HelperRepairPlan, KeepsManagedAppsAgentsThatNoRecordExplains) {
    HoldenmereConfig config;
    for (const char* name : {"sync", "mail", "drive", "notes"}) {
        config.apps.push_back(
            ManagedApp{std::string("com.example.") + name, name, std::string("/Applications/") + name + ".app"});
    }
    config.delayedHelpers = {
        DelayedHelper{"com.example.drive.held", "/p.plist", "com.example.drive", "Drive", DelayedHelper::Mode::delay}};
    config.takeovers = {TakeoverRecord{
        "com.example.mail", "Mail", {}, {DisabledAgent{"com.example.mail.taken", "/q.plist", false}}}};
    config.keptOff = {"com.example.notes.kept"};

    std::vector<IneligibleStartupItem> scanned = {
        disabledAgent("Stranger", "com.example.stranger", "com.example.stranger.agent"),  // not a managed app
        disabledAgent("Mail", "com.example.mail", "com.example.mail.taken"),              // a take-over agent
        disabledAgent("Mail", "com.example.mail", "com.example.mail.agent"),
        disabledAgent("Drive", "com.example.drive", "com.example.drive.held"),  // a delayed helper
        disabledAgent("Notes", "com.example.notes", "com.example.notes.kept"),  // kept off by the user
        disabledAgent("Sync", "com.example.sync", "com.example.sync.agent"),
    };
    EXPECT_THAT(HelperRepair::plan(config, scanned), ElementsAre(kMail, kSync));
    EXPECT_TRUE(HelperRepair::plan(HoldenmereConfig{}, scanned).empty());
    EXPECT_TRUE(HelperRepair::plan(config, {}).empty());
}

TEST(HelperRepairRun, OneStepPerLabel) {
    std::vector<std::string> enabled;
    std::set<std::string> stuck = {kMail.label};
    const HelperRepair::Enable enable = [&](const Candidate& candidate) {
        enabled.push_back(candidate.label);
        return stuck.count(candidate.label) == 0;
    };
    const std::vector<Candidate> candidates = {kSync, kMail, kSync};

    // A dry run plans and runs nothing.
    EXPECT_EQ(HelperRepair::repair(candidates, enable, /*dryRun=*/true),
              (std::vector<Step>{{kSync, Outcome::planned}, {kMail, Outcome::planned}}));
    EXPECT_TRUE(enabled.empty());

    EXPECT_EQ(HelperRepair::repair(candidates, enable, /*dryRun=*/false),
              (std::vector<Step>{{kSync, Outcome::repaired}, {kMail, Outcome::failed}}));
    EXPECT_EQ(enabled, (std::vector<std::string>{kSync.label, kMail.label}));
}

TEST(HelperRepairLog, AppendsOneLinePerStep) {
    testing::TemporaryDirectory folder;
    const auto log = folder / "Logs/Holdenmere.log";
    const Date at = Date::fromUnixTime(1772352902);
    EXPECT_EQ(HelperRepair::log({}, "cli", log, at), std::nullopt);
    EXPECT_FALSE(std::filesystem::exists(log));

    EXPECT_EQ(HelperRepair::log({{kSync, Outcome::repaired}}, "cli", log, at), std::nullopt);
    EXPECT_EQ(HelperRepair::log({{kMail, Outcome::failed}, {kSync, Outcome::repaired}}, "cli", log, at), std::nullopt);
    const std::string dash = " \xE2\x80\x94 ";
    EXPECT_EQ(testing::readFile(log), "[2026-03-01T08:15:02Z] repair (cli): Sync" + dash +
                                          "com.example.sync.agent: switched back on\n"
                                          "[2026-03-01T08:15:02Z] repair (cli): Mail" +
                                          dash +
                                          "com.example.mail.agent: still disabled after `launchctl enable`\n"
                                          "[2026-03-01T08:15:02Z] repair (cli): Sync" +
                                          dash + "com.example.sync.agent: switched back on\n");

    // A folder where the log should be: the failing call's own description.
    std::filesystem::create_directories(folder / "Folder.log");
    auto failure = HelperRepair::log({{kSync, Outcome::repaired}}, "cli", folder / "Folder.log", at);
    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(*failure, StartsWith("open(" + (folder / "Folder.log").string() + "): "));
}

}  // namespace
}  // namespace holdenmere
