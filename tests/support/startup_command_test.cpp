#include "core/support/startup_command.h"

#include <gtest/gtest.h>

#include "core/support/text.h"
#include "tests/support/test_executables.h"

namespace holdenmere {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

std::vector<std::string> pose(std::vector<std::string> options) {
    options.insert(options.begin(), "pose");
    return options;
}

TEST(StartupCommand, RunGivesStandardOutputOnlyWhenTheToolSucceeds) {
    EXPECT_EQ(StartupCommand::run(testing::testHelperPath(), pose({"--out", "answer\n", "--err", "noise"}), 5s),
              "answer\n");
    // Empty output from a successful tool is an answer, not its absence.
    EXPECT_EQ(StartupCommand::run(testing::testHelperPath(), pose({}), 5s), "");
    // A tool that failed has not answered, whatever it printed first.
    EXPECT_EQ(StartupCommand::run(testing::testHelperPath(), pose({"--out", "partial", "--exit", "113"}), 5s),
              std::nullopt);
    EXPECT_EQ(StartupCommand::run("/nonexistent/launchctl", {"print-disabled", "gui/501"}, 5s), std::nullopt);
}

TEST(StartupCommand, OutputThatIsNotUtf8IsRepairedNotRefused) {
    auto output = StartupCommand::run(testing::testHelperPath(), pose({"--out", "caf\xC3\xA9 \xFF\"x\""}), 5s);
    EXPECT_EQ(output, "caf\xC3\xA9 \xEF\xBF\xBD\"x\"");
}

TEST(StartupCommand, AHungToolIsKilledAndAnswersNothingSoonAfterItsLimit) {
    auto started = Clock::now();
    EXPECT_EQ(StartupCommand::run(testing::testHelperPath(), pose({"--out", "half", "--hang"}), 300ms), std::nullopt);
    EXPECT_EQ(StartupCommand::exitStatus(testing::testHelperPath(), pose({"--hang"}), 300ms), -1);
    auto combined = StartupCommand::runCombined(testing::testHelperPath(), pose({"--out", "half", "--hang"}), 300ms);
    // Three calls of 0.3 s each; the margin covers a loaded machine, not a
    // tool left running to its end (which would be never).
    EXPECT_LT(Clock::now() - started, 900ms + 3s);
    EXPECT_EQ(combined.ending, CommandOutcome::Ending::timedOut);
    EXPECT_EQ(combined.status, -1);
    EXPECT_EQ(combined.output, "half");
    EXPECT_EQ(combined.failure, "timed out after 0.3s");
}

TEST(StartupCommand, AToolFloodingStandardErrorNeitherBlocksNorFillsTheAnswer) {
    EXPECT_EQ(StartupCommand::run(testing::testHelperPath(), pose({"--flood-err", "3000000", "--out", "done"}), 10s),
              "done");
    EXPECT_EQ(StartupCommand::exitStatus(testing::testHelperPath(), pose({"--flood-err", "3000000", "--exit", "4"}), 10s),
              4);
}

TEST(StartupCommand, ExitStatusIsTheToolsOwnOrMinusOne) {
    for (int status : {0, 1, 3, 5, 113, 255}) {
        EXPECT_EQ(StartupCommand::exitStatus(testing::testHelperPath(), pose({"--exit", std::to_string(status)}), 5s),
                  status);
    }
    EXPECT_EQ(StartupCommand::exitStatus("/nonexistent/launchctl", {}, 5s), -1);
}

TEST(StartupCommand, CombinedOutputKeepsBothStreamsInOnePipe) {
    auto outcome = StartupCommand::runCombined(
        testing::testHelperPath(), pose({"--out", "out\n", "--err", "Bootstrap failed: 5: Input/output error\n", "--exit", "5"}),
        5s);
    EXPECT_EQ(outcome.ending, CommandOutcome::Ending::exited);
    EXPECT_EQ(outcome.status, 5);
    EXPECT_EQ(outcome.output, "out\nBootstrap failed: 5: Input/output error\n");
    EXPECT_EQ(outcome.failure, "");

    auto missing = StartupCommand::runCombined("/nonexistent/launchctl", {"bootstrap"}, 5s);
    EXPECT_EQ(missing.ending, CommandOutcome::Ending::couldNotStart);
    EXPECT_EQ(missing.status, -1);
    EXPECT_EQ(missing.failure, "could not start /nonexistent/launchctl: No such file or directory");

    auto flooded = StartupCommand::runCombined(testing::testHelperPath(), pose({"--flood-err", "300000"}), 10s);
    EXPECT_EQ(flooded.status, 0);
    EXPECT_EQ(flooded.output.size(), 300000u);
}

TEST(ValidUtf8, KeepsWellFormedTextAndReplacesEachBadByte) {
    EXPECT_EQ(text::validUtf8("com.example.agent \xE2\x80\x94 \xF0\x9F\x98\x80"),
              "com.example.agent \xE2\x80\x94 \xF0\x9F\x98\x80");
    const std::string replacement = "\xEF\xBF\xBD";
    EXPECT_EQ(text::validUtf8("\x80"), replacement);                                  // stray continuation
    EXPECT_EQ(text::validUtf8("a\xE2\x80"), "a" + replacement + replacement);         // truncated at the end
    EXPECT_EQ(text::validUtf8("\xC0\xAF"), replacement + replacement);                // overlong '/'
    EXPECT_EQ(text::validUtf8("\xED\xA0\x80"), replacement + replacement + replacement);  // surrogate
    EXPECT_EQ(text::validUtf8("\xF4\x90\x80\x80").size(), 4 * replacement.size());   // past U+10FFFF
    EXPECT_EQ(text::validUtf8(std::string("a\0b", 3)), std::string("a\0b", 3));
}

}  // namespace
}  // namespace holdenmere
