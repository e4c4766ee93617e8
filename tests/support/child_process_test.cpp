#include "core/support/child_process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/temporary_directory.h"

#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using namespace std::chrono_literals;
using testing::runTestHelper;

TEST(ChildProcess, CapturesBothStreamsAndTheStatus) {
    auto result = runTestHelper({"pose", "--out", "print-disabled\n", "--err", "warning\n", "--exit", "3"});
    EXPECT_EQ(result.ending, ChildProcessResult::Ending::exited);
    EXPECT_EQ(result.status, 3);
    EXPECT_FALSE(result.succeeded());
    EXPECT_EQ(result.output, "print-disabled\n");
    EXPECT_EQ(result.error, "warning\n");
    EXPECT_EQ(result.describe(5s), "exit status 3");
}

TEST(ChildProcess, ArgumentsReachTheToolUntouchedByAnyShell) {
    auto result = runTestHelper({"pose", "--out", "$HOME `id` ; | \"' *"});
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(result.output, "$HOME `id` ; | \"' *");
}

TEST(ChildProcess, EnvironmentIsExactlyTheOneGiven) {
    ChildProcessRequest request;
    request.executable = testing::testHelperPath();
    request.arguments = {"pose", "--env", "HOLDENMERE_PROBE", "--out", "|", "--env", "PATH"};
    request.environment = std::vector<std::string>{"HOLDENMERE_PROBE=1"};
    auto result = runChildProcess(request);
    EXPECT_EQ(result.output, "1|(unset)");

    auto changed = environmentWith({"HOLDENMERE_PROBE=2", "PATH"});
    EXPECT_THAT(changed, ::testing::Contains("HOLDENMERE_PROBE=2"));
    EXPECT_THAT(changed, ::testing::Not(::testing::Contains(::testing::StartsWith("PATH="))));
}

TEST(ChildProcess, AHungToolIsKilledAtItsTimeLimit) {
    auto result = runTestHelper({"pose", "--out", "partial", "--hang"}, 200ms);
    EXPECT_EQ(result.ending, ChildProcessResult::Ending::timedOut);
    EXPECT_EQ(result.output, "partial");
    EXPECT_EQ(result.describe(200ms), "timed out after 0.2s");
}

TEST(ChildProcess, AChattyToolNeverBlocksOnItsStandardError) {
    auto result = runTestHelper({"pose", "--flood-err", "3000000", "--out", "done"});
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(result.output, "done");
    EXPECT_EQ(result.error.size(), 3000000u);

    ChildProcessRequest limited;
    limited.executable = testing::testHelperPath();
    limited.arguments = {"pose", "--flood-err", "100000"};
    limited.outputLimit = 1000;
    EXPECT_EQ(runChildProcess(limited).error.size(), 1000u);
}

TEST(ChildProcess, ChildrenLeftHoldingThePipesDoNotHoldTheCaller) {
    auto started = std::chrono::steady_clock::now();
    auto result = runTestHelper({"pose", "--out", "bye", "--orphan"}, 20s);
    EXPECT_TRUE(result.succeeded());
    EXPECT_EQ(result.output, "bye");
    EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
}

TEST(ChildProcess, AMissingExecutableCannotStart) {
    ChildProcessRequest request;
    request.executable = "/nonexistent/launchctl";
    auto result = runChildProcess(request);
    EXPECT_EQ(result.ending, ChildProcessResult::Ending::couldNotStart);
    EXPECT_EQ(result.startError, "could not start /nonexistent/launchctl: No such file or directory");
    EXPECT_EQ(result.describe(5s), result.startError);

    // A file that may not be run reads the same way.
    testing::TemporaryDirectory folder;
    testing::writeFile(folder / "tool", "#!/bin/sh\nexit 0\n");
    request.executable = folder / "tool";
    result = runChildProcess(request);
    EXPECT_EQ(result.ending, ChildProcessResult::Ending::couldNotStart);
    EXPECT_EQ(result.startError, "could not start " + request.executable.string() + ": Permission denied");
}

}  // namespace
}  // namespace holdenmere
