// The gate with the system's network-change announcements: an announcement
// brings the next attempt forward, a burst of them does not use the
// attempts up, and without any the gate polls as it always did.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/reachability/reachability_gate.h"
#include "tests/support/fake_clock.h"
#include "tests/support/fake_network_changes.h"
#include "tests/support/fake_probe.h"

namespace holdenmere {
namespace {

using ::testing::DoubleNear;
using ::testing::ElementsAre;
using ::testing::Pointwise;
using testing::FakeClock;
using testing::FakeNetworkChangeListening;
using testing::FakeProbe;

class GateWithAnnouncements : public ::testing::Test {
protected:
    FakeClock clock;  // starts at 1000
    FakeProbe probe{clock};
    FakeNetworkChangeListening changes;
    ReachabilityGate gate{probe, clock, changes};
    GateSettings settings;

    void SetUp() override {
        settings.pollInterval = 2;
        settings.maxAttempts = 3;  // overall: 6 s
        probe.repeat({ProbeOutcome::failure("cannot connect to host"), 0.05});
    }

    void announceAt(double uptime) {
        clock.at(uptime, [this] { changes.announce(); });
    }

    std::vector<double> attemptStarts() const {
        std::vector<double> starts;
        for (const auto& asked : probe.asked()) starts.push_back(asked.at);
        return starts;
    }
};

// The next attempt goes once the change has settled, not at the end of the
// interval.
TEST_F(GateWithAnnouncements, AChangeDuringThePauseSendsTheNextAttemptAtOnce) {
    probe.script({{ProbeOutcome::failure("cannot connect to host"), 0.1}, {ProbeOutcome::reachable(), 0.05}});
    announceAt(1000.9);
    ASSERT_EQ(ReachabilityGate::kChangeSettle, 0.02);
    std::vector<int> seen;
    auto result = gate.waitForNetwork(settings, [&](int attempt, const ProbeOutcome&) { seen.push_back(attempt); });

    EXPECT_TRUE(result.reachable);
    EXPECT_EQ(result.attempts, 2);
    EXPECT_EQ(seen, (std::vector<int>{1, 2}));
    EXPECT_THAT(attemptStarts(), Pointwise(DoubleNear(1e-9), {1000.0, 1000.92}));
    EXPECT_THAT(result.attemptDurations, Pointwise(DoubleNear(1e-9), {0.1, 0.05}));
    EXPECT_NEAR(result.elapsed, 0.97, 1e-9);
    EXPECT_EQ(result.lastFailure, "cannot connect to host");
    // The cap, the pause the announcement cut short, the settle, the cap.
    EXPECT_THAT(clock.waits(), Pointwise(DoubleNear(1e-9), {1.5, 2.0, 0.02, 1.5}));
    // Listened to for the wait, and no longer.
    EXPECT_EQ(changes.subscriptions(), 1);
    EXPECT_FALSE(changes.subscribed());
    changes.announce();
    EXPECT_EQ(changes.delivered(), 1);
}

TEST_F(GateWithAnnouncements, AChangeDuringAnAttemptSkipsThePauseButKeepsTheSpacing) {
    // The first attempt fails fast, with a change during it: the second
    // waits for the spacing. The second takes a while, with a change during
    // it: the third follows once the change has settled.
    probe.script({{ProbeOutcome::failure("cannot connect to host"), 0.05},
                  {ProbeOutcome::failure("timed out"), 1.0},
                  {ProbeOutcome::reachable(), 0.05}});
    announceAt(1000.02);
    announceAt(1000.9);
    auto result = gate.waitForNetwork(settings);

    EXPECT_TRUE(result.reachable);
    EXPECT_EQ(result.attempts, 3);
    EXPECT_THAT(attemptStarts(),
                Pointwise(DoubleNear(1e-9), {1000.0, 1000.0 + ReachabilityGate::kMinAttemptSpacing, 1001.27}));
    EXPECT_EQ(result.lastFailure, "timed out");

    // A change during an attempt that the cap ends counts the same.
    FakeClock capClock;
    FakeProbe capProbe{capClock};
    FakeNetworkChangeListening capChanges;
    ReachabilityGate capGate{capProbe, capClock, capChanges};
    capProbe.script({{ProbeOutcome::reachable(), 0, true}, {ProbeOutcome::reachable(), 0.05}});
    capClock.at(1001.0, [&] { capChanges.announce(); });
    result = capGate.waitForNetwork(settings);
    EXPECT_TRUE(result.reachable);
    EXPECT_EQ(result.attemptDiagnostics[0].winner, ProbeAttemptDiagnostic::Winner::cap);
    ASSERT_EQ(capProbe.asked().size(), 2u);
    EXPECT_NEAR(capProbe.asked()[1].at, 1001.52, 1e-9);
    capProbe.answerHeld();
}

// A network coming up announces itself many times within a moment; the
// wait must still last the overall time when the network stays down.
TEST_F(GateWithAnnouncements, ABurstOfAnnouncementsDoesNotUseUpTheAttempts) {
    for (int i = 0; i < 20; ++i) announceAt(1001.003 + 0.01 * i);
    auto result = gate.waitForNetwork(settings);

    EXPECT_FALSE(result.reachable);
    // One early attempt for the burst's first announcements, one more for
    // those that came while it ran, at the spacing; then the interval again
    // until the overall time is up, which ends the last pause.
    EXPECT_THAT(attemptStarts(),
                Pointwise(DoubleNear(1e-9), {1000.0, 1001.023, 1001.273, 1003.323, 1005.373}));
    EXPECT_EQ(result.attempts, 5);
    EXPECT_NEAR(result.elapsed, 6.0, 1e-9);
    EXPECT_EQ(changes.delivered(), 20);
}

TEST_F(GateWithAnnouncements, AStormKeepsAttemptsApartForTheWholeOverallTime) {
    for (int i = 0; i < 70; ++i) announceAt(1000.005 + 0.1 * i);
    auto result = gate.waitForNetwork(settings);

    EXPECT_FALSE(result.reachable);
    const auto starts = attemptStarts();
    ASSERT_GE(starts.size(), 2u);
    for (std::size_t i = 1; i < starts.size(); ++i) {
        EXPECT_GE(starts[i] - starts[i - 1], ReachabilityGate::kMinAttemptSpacing - 1e-9) << "attempt " << i + 1;
        EXPECT_LE(starts[i] - starts[i - 1], 0.3 + 1e-9) << "attempt " << i + 1;
    }
    EXPECT_LT(starts.back(), 1006.0);
    EXPECT_NEAR(result.elapsed, 6.0, 1e-9);
    EXPECT_EQ(result.attempts, static_cast<int>(starts.size()));
}

TEST_F(GateWithAnnouncements, CancellationStillEndsThePauseAtOnce) {
    Signal cancel;
    clock.at(1001.0, [&] { cancel.raise(); });
    auto result = gate.waitForNetwork(settings, {}, &cancel);
    EXPECT_EQ(result.attempts, 1);
    EXPECT_NEAR(result.elapsed, 1.0, 1e-9);

    // Also while an early attempt waits for the spacing.
    FakeClock spacedClock;
    FakeProbe spacedProbe{spacedClock};
    ReachabilityGate spacedGate{spacedProbe, spacedClock, changes};
    spacedProbe.repeat({ProbeOutcome::failure("cannot connect to host"), 0.05});
    Signal cancelSpaced;
    spacedClock.at(1000.02, [&] { changes.announce(); });
    spacedClock.at(1000.1, [&] { cancelSpaced.raise(); });
    result = spacedGate.waitForNetwork(settings, {}, &cancelSpaced);
    EXPECT_EQ(result.attempts, 1);
    EXPECT_NEAR(result.elapsed, 0.1, 1e-9);
    EXPECT_FALSE(changes.subscribed());
}

// No subscription to be had, or one that never announces: the pacing, the
// waits and the counts of the plain poll.
TEST_F(GateWithAnnouncements, WithoutAnnouncementsTheGatePollsAsBefore) {
    for (bool available : {false, true}) {
        SCOPED_TRACE(available ? "silent" : "unavailable");
        FakeClock quietClock;
        FakeProbe quietProbe{quietClock};
        FakeNetworkChangeListening quiet;
        quiet.available = available;
        ReachabilityGate quietGate{quietProbe, quietClock, quiet};
        quietProbe.repeat({ProbeOutcome::failure("cannot connect to host"), 0});
        auto result = quietGate.waitForNetwork(settings);
        EXPECT_FALSE(result.reachable);
        EXPECT_EQ(result.attempts, 3);
        EXPECT_DOUBLE_EQ(result.elapsed, 6.0);
        EXPECT_THAT(quietClock.waits(), ElementsAre(1.5, 2.0, 1.5, 2.0, 1.5, 2.0));
        EXPECT_EQ(quiet.subscriptions(), 1);
    }

    // Announcements with nobody to hear them change nothing either.
    changes.available = false;
    announceAt(1000.9);
    auto result = gate.waitForNetwork(settings);
    EXPECT_THAT(attemptStarts(), Pointwise(DoubleNear(1e-9), {1000.0, 1002.05, 1004.1}));
    EXPECT_EQ(result.attempts, 3);
    EXPECT_EQ(changes.delivered(), 0);
}

}  // namespace
}  // namespace holdenmere
