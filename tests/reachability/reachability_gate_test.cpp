#include "core/reachability/reachability_gate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/config/last_login_conflicts.h"
#include "core/reachability/probe_log_line.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_probe.h"

namespace holdenmere {
namespace {

using ::testing::ElementsAre;
using testing::FakeClock;
using testing::FakeProbe;
using Step = FakeProbe::Step;

class ReachabilityGateTest : public ::testing::Test {
protected:
    FakeClock clock;
    FakeProbe probe{clock};
    ReachabilityGate gate{probe, clock};
    GateSettings settings;
};

TEST_F(ReachabilityGateTest, StopsAtTheFirstAnswerAndPacesTheOthers) {
    probe.script({{ProbeOutcome::failure("timed out"), 1.5}, {ProbeOutcome::failure("HTTP 500"), 0.2},
                  {ProbeOutcome::reachable(), 0.05}});
    std::vector<std::pair<int, ProbeOutcome>> seen;
    auto result = gate.waitForNetwork(settings, [&](int attempt, const ProbeOutcome& outcome) {
        seen.emplace_back(attempt, outcome);
    });
    EXPECT_TRUE(result.reachable);
    EXPECT_EQ(result.attempts, 3);
    EXPECT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen.back().second, ProbeOutcome::reachable());
    EXPECT_EQ(result.lastFailure, "HTTP 500");
    EXPECT_THAT(result.attemptDurations, ::testing::Pointwise(::testing::DoubleNear(1e-9), {1.5, 0.2, 0.05}));
    EXPECT_DOUBLE_EQ(result.elapsed, 1.5 + 2 + 0.2 + 2 + 0.05);
    EXPECT_EQ(result.warmUpDuration, 0.0);
    EXPECT_EQ(probe.warmUps, 1);
    // Three waits for answers (each capped at 1.5 s) and two pauses of the interval.
    EXPECT_THAT(clock.waits(), ElementsAre(1.5, 2.0, 1.5, 2.0, 1.5));
    EXPECT_EQ(result.attemptDiagnostics[0].winner, ProbeAttemptDiagnostic::Winner::probe);
    EXPECT_NEAR(result.attemptDiagnostics[0].callbackElapsed, 1.5, 1e-9);
}

TEST_F(ReachabilityGateTest, PacingIsClampedAndURLsFallBackToTheDefault) {
    settings.pollInterval = 0;
    settings.maxAttempts = 3;
    settings.probeURL = "";
    auto result = gate.waitForNetwork(settings);
    EXPECT_FALSE(result.reachable);
    EXPECT_EQ(result.attempts, 3);
    EXPECT_THAT(clock.waits(), ElementsAre(1.5, 0.5, 1.5, 0.5, 1.5, 0.5));
    for (const auto& asked : probe.asked()) {
        EXPECT_EQ(asked.url, GateSettings::kDefaultProbeURL);
        EXPECT_EQ(asked.timeout, 1.5);
    }

    FakeClock slowClock;
    FakeProbe slowProbe{slowClock};
    ReachabilityGate slowGate{slowProbe, slowClock};
    settings.pollInterval = 600;
    settings.maxAttempts = 2;
    settings.probeURL = "plain words";
    EXPECT_FALSE(slowGate.waitForNetwork(settings).reachable);
    EXPECT_THAT(slowClock.waits(), ElementsAre(1.5, 60.0, 1.5, 60.0));
    EXPECT_EQ(slowProbe.asked()[0].url, GateSettings::kDefaultProbeURL);
}

TEST_F(ReachabilityGateTest, TheCapEndsAnAttemptThatNeverAnswers) {
    settings.maxAttempts = 2;
    probe.repeat({ProbeOutcome::reachable(), 0, true});
    auto result = gate.waitForNetwork(settings);
    EXPECT_FALSE(result.reachable);
    EXPECT_EQ(result.attempts, 2);
    EXPECT_EQ(result.lastFailure, "attempt exceeded its 1.5s cap (URLSession did not honour it)");
    EXPECT_EQ(result.attemptDiagnostics[1].winner, ProbeAttemptDiagnostic::Winner::cap);
    EXPECT_EQ(result.attemptDiagnostics[1].callbackElapsed, 1.5);
    // The abandoned attempts answer after the gate has moved on: harmless.
    probe.answerHeld();
    EXPECT_EQ(result.attempts, 2);
}

// The wait gives up only once the overall time (interval x attempts) has
// passed: each failed attempt is followed by its pause, the last one too.
TEST_F(ReachabilityGateTest, AnUnreachableWaitLastsTheWholeOverallTime) {
    settings.pollInterval = 2;
    settings.maxAttempts = 3;  // overall: 6 s
    probe.repeat({ProbeOutcome::failure("cannot connect to host"), 0});
    auto result = gate.waitForNetwork(settings);
    EXPECT_FALSE(result.reachable);
    EXPECT_EQ(result.attempts, 3);
    EXPECT_DOUBLE_EQ(result.elapsed, 6.0);
    EXPECT_THAT(clock.waits(), ElementsAre(1.5, 2.0, 1.5, 2.0, 1.5, 2.0));

    // Slow answers: rounds of 2.1 s, and the third ends past the 6 s.
    FakeClock slowClock;
    FakeProbe slowProbe{slowClock};
    ReachabilityGate slowGate{slowProbe, slowClock};
    slowProbe.repeat({ProbeOutcome::failure("timed out"), 0.1});
    result = slowGate.waitForNetwork(settings);
    EXPECT_EQ(result.attempts, 3);
    EXPECT_NEAR(result.elapsed, 6.3, 1e-9);
}

TEST_F(ReachabilityGateTest, NoNewAttemptOnceTheOverallTimeHasPassed) {
    settings.pollInterval = 2;
    settings.maxAttempts = 60;  // overall: 120 s
    probe.repeat({ProbeOutcome::failure("timed out"), 1.5});
    auto result = gate.waitForNetwork(settings);
    EXPECT_FALSE(result.reachable);
    // Each round takes 3.5 s: the 35th ends, with its pause, at 122.5 s.
    EXPECT_EQ(result.attempts, 35);
    EXPECT_DOUBLE_EQ(result.elapsed, 35 * 3.5);
}

TEST_F(ReachabilityGateTest, CancellationStopsTheWait) {
    Signal cancel;
    auto result = gate.waitForNetwork(
        settings, [&](int attempt, const ProbeOutcome&) {
            if (attempt == 2) cancel.raise();
        },
        &cancel);
    EXPECT_EQ(result.attempts, 2);
    EXPECT_FALSE(result.reachable);

    Signal already;
    already.raise();
    EXPECT_EQ(gate.waitForNetwork(settings, {}, &already).attempts, 0);
}

TEST(ProbeLogLine, PiecesInOrder) {
    ProbeResult result;
    result.reachable = false;
    result.attempts = 2;
    result.elapsed = 3.56;
    result.lastFailure = "HTTP 500";
    result.attemptDurations = {0.0123, 1.5};
    result.warmUpDuration = 0.0004;
    result.attemptDiagnostics = {{ProbeAttemptDiagnostic::Winner::probe, 0.0123, 0.0001},
                                 {ProbeAttemptDiagnostic::Winner::cap, 1.5, 0.002}};
    Date at{794045702.75};  // 2026-03-01 08:15:02.75 UTC
    EXPECT_EQ(ProbeLogLine::text(result, "1.4.2 (57)", at),
              "[2026-03-01T08:15:02Z] network UNREACHABLE after 2 attempt(s) in 3.6s [v1.4.2 (57)] "
              "\xE2\x80\x94 last failure: HTTP 500 [per attempt: 0.012s, 1.500s] [warm-up: 0.000s] "
              "[attempt diagnostics: #1 probe 0.012s +0.000s, #2 cap 1.500s +0.002s]");
    // The audit finds the pass again by the line's head.
    auto reading = LastLoginConflicts::read(std::string_view(ProbeLogLine::text(result, "1.4.2 (57)", at) + "\n"));
    ASSERT_TRUE(reading.has_value());
    EXPECT_EQ(reading->stamp, "2026-03-01T08:15:02Z");
    EXPECT_EQ(reading->version, "1.4.2 (57)");

    result.reachable = true;
    result.lastFailure.reset();
    result.warmUpDuration.reset();
    EXPECT_EQ(ProbeLogLine::text(result, "dev", at),
              "[2026-03-01T08:15:02Z] network reachable after 2 attempt(s) in 3.6s [vdev] "
              "[per attempt: 0.012s, 1.500s] [attempt diagnostics: #1 probe 0.012s +0.000s, #2 cap 1.500s +0.002s]");
}

}  // namespace
}  // namespace holdenmere
