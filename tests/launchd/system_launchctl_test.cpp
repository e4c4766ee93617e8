#include "core/launchd/system_launchctl.h"

#include <gtest/gtest.h>

#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/temporary_directory.h"

namespace holdenmere {
namespace {

using namespace std::chrono_literals;
using Calls = std::vector<std::vector<std::string>>;
using testing::FakeLaunchctlTool;

std::string fixture(const std::string& name) {
    return testing::readFile(std::filesystem::path(HOLDENMERE_FIXTURES_DIR) / "launchctl" / name);
}

// The fake launchctl run directly, both streams kept apart.
ChildProcessResult runFake(std::vector<std::string> arguments) {
    ChildProcessRequest request;
    request.executable = FakeLaunchctlTool::executable();
    request.arguments = std::move(arguments);
    return runChildProcess(request);
}

class SystemLaunchctlTest : public ::testing::Test {
protected:
    FakeLaunchctlTool tool;
    SystemLaunchctl launchctl{FakeLaunchctlTool::executable()};
    const std::string domain = launchdDomain();
};

TEST_F(SystemLaunchctlTest, AsksInTheUsersGuiDomainWithTheDocumentedArguments) {
    launchctl.isLoaded("com.example.agent");
    launchctl.isDisabled("com.example.agent");
    launchctl.disabledLabels();
    launchctl.print("gui/501/com.example.agent");
    launchctl.serviceLabels();
    launchctl.run({"disable", launchdServiceTarget("com.example.agent")});
    launchctl.runCapturingOutput({"enable", launchdServiceTarget("com.example.agent")});
    EXPECT_EQ(tool.calls(), (Calls{
                                {"print", domain + "/com.example.agent"},
                                {"print-disabled", domain},
                                {"print-disabled", domain},
                                {"print", "gui/501/com.example.agent"},
                                {"print", domain},
                                {"disable", domain + "/com.example.agent"},
                                {"enable", domain + "/com.example.agent"},
                            }));
}

TEST_F(SystemLaunchctlTest, ReadsLaunchdsStateThroughTheTool) {
    tool.load("com.example.mail.helper", "/Users/u/Library/LaunchAgents/com.example.mail.helper.plist");
    tool.load("com.example.with space", "/Users/u/Library/LaunchAgents/space.plist");
    tool.mark("com.example.mail.helper", true);
    tool.mark("com.docker.helper", false);

    EXPECT_TRUE(launchctl.isLoaded("com.example.mail.helper"));
    EXPECT_FALSE(launchctl.isLoaded("com.docker.helper"));
    EXPECT_TRUE(launchctl.isDisabled("com.example.mail.helper"));
    EXPECT_FALSE(launchctl.isDisabled("com.docker.helper"));
    EXPECT_FALSE(launchctl.isDisabled("com.example.unknown"));
    EXPECT_EQ(launchctl.disabledLabels(), (std::set<std::string>{"com.example.mail.helper"}));
    EXPECT_EQ(launchctl.serviceLabels(), (std::vector<std::string>{"com.example.mail.helper", "com.example.with space"}));
    auto printed = launchctl.print(launchdServiceTarget("com.example.mail.helper"));
    ASSERT_TRUE(printed.has_value());
    EXPECT_TRUE(printed->starts_with(domain + "/com.example.mail.helper = {\n"));
    EXPECT_NE(printed->find("\tpath = /Users/u/Library/LaunchAgents/com.example.mail.helper.plist\n"), std::string::npos);
    // Not loaded: launchctl exits 113 and says so on standard error only.
    EXPECT_EQ(launchctl.print(launchdServiceTarget("com.docker.helper")), std::nullopt);
}

TEST_F(SystemLaunchctlTest, AnEmptyDomainIsAnEmptyDisabledListButNoServiceTable) {
    EXPECT_EQ(launchctl.disabledLabels(), std::set<std::string>{});
    EXPECT_EQ(launchctl.serviceLabels(), std::nullopt);
}

TEST_F(SystemLaunchctlTest, ChangesGoThroughTheToolWithItsExitStatuses) {
    testing::TemporaryDirectory home;
    const auto plist = home / "agent.plist";
    testing::writeFile(plist, "<plist version=\"1.0\"><dict><key>Label</key><string>com.example.agent</string>"
                              "<key>ProgramArguments</key><array><string>/bin/agent</string></array></dict></plist>");

    EXPECT_EQ(launchctl.run({"bootstrap", domain, plist.string()}), 0);
    EXPECT_TRUE(launchctl.isLoaded("com.example.agent"));
    // Loaded already: launchd refuses with EIO.
    EXPECT_EQ(launchctl.runCapturingOutput({"bootstrap", domain, plist.string()}),
              (LaunchctlOutput{5, fixture("bootstrap-failed.stderr.txt")}));
    EXPECT_EQ(launchctl.run({"bootout", launchdServiceTarget("com.example.agent")}), 0);
    EXPECT_EQ(launchctl.runCapturingOutput({"bootout", launchdServiceTarget("com.example.agent")}),
              (LaunchctlOutput{3, fixture("bootout-failed.stderr.txt")}));
    EXPECT_FALSE(launchctl.isLoaded("com.example.agent"));
    EXPECT_EQ(launchctl.run({"disable", launchdServiceTarget("com.example.agent")}), 0);
    EXPECT_TRUE(launchctl.isDisabled("com.example.agent"));
    EXPECT_EQ(launchctl.run({"bootstrap", domain, plist.string()}), 5);
    EXPECT_EQ(launchctl.run({"print"}), 64);
}

TEST_F(SystemLaunchctlTest, TheFakePrintsWhatLaunchctlPrints) {
    tool.mark("com.apple.ScriptMenuApp", true);
    tool.mark("com.apple.Siri.agent", true);
    tool.mark("com.docker.helper", false);
    tool.mark("com.example.mail.helper", true);
    tool.mark("com.microsoft.update.agent", false);
    auto result = runFake({"print-disabled", "gui/501"});
    EXPECT_EQ(result.output, fixture("print-disabled.txt"));

    auto missing = runFake({"print", "gui/501/com.tavik.holdenmere.agent"});
    EXPECT_EQ(missing.status, 113);
    EXPECT_EQ(missing.output, "");
    EXPECT_EQ(missing.error, fixture("could-not-find-service.stderr.txt"));

    tool.load("com.example.mail.helper", "/p.plist");
    auto domainPrint = runFake({"print", "gui/501"});
    EXPECT_NE(domainPrint.output.find("\tservices = {\n\t\t       0      - \tcom.example.mail.helper\n\t}\n"),
              std::string::npos);
}

TEST_F(SystemLaunchctlTest, OutputItDoesNotRecogniseIsAbsentNotEmpty) {
    tool.answer("print-disabled", 0, "\t\"com.a\" => disabled\n");
    tool.answer("print", 0, "gui/501 = {\n\tservices = {\n\t}\n}\n");
    EXPECT_EQ(launchctl.disabledLabels(), std::nullopt);
    EXPECT_TRUE(launchctl.isDisabled("com.a"));  // one label needs no header
    EXPECT_EQ(launchctl.serviceLabels(), std::nullopt);

    tool.answer("print-disabled", 0, "");
    tool.answer("print", 0, "\tservices = {\n\t\t0 - \tcom.a\n");
    EXPECT_EQ(launchctl.disabledLabels(), std::nullopt);
    EXPECT_FALSE(launchctl.isDisabled("com.a"));
    EXPECT_EQ(launchctl.serviceLabels(), std::nullopt);
    EXPECT_EQ(launchctl.print(domain), "\tservices = {\n\t\t0 - \tcom.a\n");
}

TEST_F(SystemLaunchctlTest, AFailingToolAnswersNothingAndLoadsNothing) {
    for (int status : {1, 5, 113, 255}) {
        tool.answer("print", status, fixture("print-gui-service.txt"));
        tool.answer("print-disabled", status, fixture("print-disabled.txt"));
        EXPECT_FALSE(launchctl.isLoaded("com.vendor.helper")) << status;
        EXPECT_EQ(launchctl.print(launchdServiceTarget("com.vendor.helper")), std::nullopt) << status;
        EXPECT_EQ(launchctl.serviceLabels(), std::nullopt) << status;
        EXPECT_EQ(launchctl.disabledLabels(), std::nullopt) << status;
        EXPECT_FALSE(launchctl.isDisabled("com.apple.Siri.agent")) << status;
    }
}

TEST_F(SystemLaunchctlTest, AFloodOnStandardErrorDoesNotDrownTheAnswer) {
    tool.answer("print-disabled", 0, fixture("print-disabled.txt"), std::string(2'000'000, 'e'));
    EXPECT_EQ(launchctl.disabledLabels()->size(), 3u);
    tool.answer("bootstrap", 5, "", std::string(2'000'000, 'e'));
    auto outcome = launchctl.runCapturingOutput({"bootstrap", domain, "/p.plist"});
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(outcome.output.size(), 2'000'000u);
}

TEST(SystemLaunchctl, AMissingToolIsNeverLoadedAndNeverAnswers) {
    SystemLaunchctl launchctl("/nonexistent/launchctl");
    EXPECT_EQ(launchctl.run({"enable", launchdServiceTarget("com.a")}), -1);
    EXPECT_FALSE(launchctl.isLoaded("com.a"));
    EXPECT_FALSE(launchctl.isDisabled("com.a"));
    EXPECT_EQ(launchctl.disabledLabels(), std::nullopt);
    EXPECT_EQ(launchctl.print(launchdDomain()), std::nullopt);
    EXPECT_EQ(launchctl.serviceLabels(), std::nullopt);
    EXPECT_EQ(launchctl.runCapturingOutput({"bootstrap"}),
              (LaunchctlOutput{-1, "failed to run launchctl: could not start /nonexistent/launchctl: No such file or "
                                   "directory"}));
    EXPECT_EQ(SystemLaunchctl().tool(), "/bin/launchctl");
}

TEST(SystemLaunchctl, AHungToolIsKilledAtItsLimit) {
    FakeLaunchctlTool tool;
    for (const char* subcommand : {"print", "print-disabled", "bootstrap"}) tool.hang(subcommand);
    SystemLaunchctl launchctl(FakeLaunchctlTool::executable(), {200ms, 300ms});
    auto started = std::chrono::steady_clock::now();
    EXPECT_FALSE(launchctl.isLoaded("com.a"));
    EXPECT_EQ(launchctl.disabledLabels(), std::nullopt);
    EXPECT_EQ(launchctl.serviceLabels(), std::nullopt);
    EXPECT_EQ(launchctl.run({"bootstrap", launchdDomain(), "/p.plist"}), -1);
    EXPECT_EQ(launchctl.runCapturingOutput({"bootstrap", launchdDomain(), "/p.plist"}),
              (LaunchctlOutput{-1, "launchctl timed out after 0.3s"}));
    // 1.2 s of limits in all; the margin is for a loaded machine.
    EXPECT_LT(std::chrono::steady_clock::now() - started, 1200ms + 3s);
    EXPECT_EQ(tool.calls().size(), 5u);
}

}  // namespace
}  // namespace holdenmere
