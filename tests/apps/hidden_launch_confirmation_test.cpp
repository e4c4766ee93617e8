#include "core/apps/hidden_launch_confirmation.h"

#include <deque>
#include <functional>

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

// Drives a confirmation tick by tick: scheduled work waits in a list until
// the test runs it, and time moves one interval per tick.
class ConfirmationDriver {
public:
    HiddenAppState state;
    int hideRequests = 0;
    bool hideAccepted = true;
    bool cancelled = false;
    double now = 0;
    std::optional<LaunchAttempt> result;
    int results = 0;

    std::shared_ptr<HiddenLaunchConfirmation::Session> start(
        HiddenLaunchConfirmation::Parameters parameters = {},
        const std::shared_ptr<LaunchCancellation>& cancellation = nullptr) {
        HiddenLaunchConfirmation::Hooks hooks{
            [this] { return now; }, [this] { return cancelled; },
            [this](double delay, std::function<void()> work) {
                now += delay;
                queue_.push_back(std::move(work));
            }};
        HiddenLaunchConfirmation::Application application{[this] { return state; },
                                                          [this] {
                                                              ++hideRequests;
                                                              return hideAccepted;
                                                          }};
        return HiddenLaunchConfirmation::start(
            parameters, hooks, application,
            [this](LaunchAttempt attempt) {
                ++results;
                result = attempt;
            },
            cancellation);
    }
    std::size_t scheduled() const { return queue_.size(); }
    // Runs whatever is scheduled, result or not; returns the ticks run.
    int drain() {
        int ticks = 0;
        while (!queue_.empty()) {
            auto work = std::move(queue_.front());
            queue_.pop_front();
            work();
            ++ticks;
        }
        return ticks;
    }
    // Runs scheduled ticks until a result or `limit` ticks; returns the ticks run.
    int run(int limit = 1000) {
        int ticks = 0;
        while (!result && !queue_.empty() && ticks < limit) {
            auto work = std::move(queue_.front());
            queue_.pop_front();
            work();
            ++ticks;
        }
        return ticks;
    }

private:
    std::deque<std::function<void()>> queue_;
};

TEST(HiddenLaunchConfirmation, AnAppThatStaysHiddenIsConfirmedAfterTenChecks) {
    ConfirmationDriver driver;
    driver.state.hidden = true;
    auto session = driver.start();
    EXPECT_EQ(driver.run(), 10);
    EXPECT_EQ(driver.result, LaunchAttempt::opened());
    EXPECT_NEAR(driver.now, 1.0, 1e-9);
    session->tick();  // a tick after the end delivers nothing more
    EXPECT_EQ(session->checks(), 10);
}

TEST(HiddenLaunchConfirmation, FinalConditionsEndAtOnce) {
    struct Case {
        std::function<void(HiddenAppState&)> set;
        std::string text;
    };
    const std::vector<Case> cases = {
        {[](HiddenAppState& s) { s.referenceLost = true; }, "application reference lost before hidden confirmation"},
        {[](HiddenAppState& s) { s.terminated = true; }, "application terminated before hidden confirmation"},
        {[](HiddenAppState& s) { s.listed = false; }, "application disappeared during hidden confirmation"},
    };
    for (const auto& entry : cases) {
        ConfirmationDriver driver;
        driver.state.hidden = true;
        entry.set(driver.state);
        driver.start();
        EXPECT_EQ(driver.run(), 1);
        EXPECT_EQ(driver.result, LaunchAttempt::unconfirmed(entry.text));
    }

    ConfirmationDriver late;
    late.state.finishedLaunching = false;
    late.start({100, 0.1, 10, 0.55});
    late.run();
    EXPECT_EQ(late.result, LaunchAttempt::unconfirmed("hidden confirmation exceeded its startup deadline"));

    ConfirmationDriver cancelled;
    cancelled.cancelled = true;
    cancelled.start();
    cancelled.run();
    EXPECT_EQ(cancelled.result, LaunchAttempt::unconfirmed("launch confirmation cancelled"));
}

// The caller that stops waiting ends the watching there and then: no
// result from a later tick, and no tick scheduled after the one pending.
TEST(HiddenLaunchConfirmation, CancellingEndsTheSessionAtOnce) {
    ConfirmationDriver driver;
    driver.state.hidden = true;
    auto cancellation = std::make_shared<LaunchCancellation>();
    auto session = driver.start({}, cancellation);
    EXPECT_EQ(driver.run(3), 3);
    EXPECT_FALSE(driver.result.has_value());
    cancellation->cancel();
    EXPECT_EQ(driver.result, LaunchAttempt::unconfirmed("launch confirmation cancelled"));
    EXPECT_TRUE(session->isComplete());
    EXPECT_EQ(session->checks(), 3);
    EXPECT_EQ(driver.drain(), 1);  // the tick already scheduled finds the session over
    EXPECT_EQ(driver.scheduled(), 0u);
    EXPECT_EQ(driver.results, 1);

    // Cancelled before the platform answered: the session that starts then ends at once.
    ConfirmationDriver late;
    late.start({}, cancellation);
    EXPECT_EQ(late.result, LaunchAttempt::unconfirmed("launch confirmation cancelled"));
    EXPECT_EQ(late.drain(), 1);
    EXPECT_EQ(late.results, 1);

    // A session that ended first is not ended again.
    ConfirmationDriver confirmed;
    confirmed.state.hidden = true;
    auto other = std::make_shared<LaunchCancellation>();
    confirmed.start({}, other);
    confirmed.run();
    other->cancel();
    EXPECT_EQ(confirmed.result, LaunchAttempt::opened());
    EXPECT_EQ(confirmed.results, 1);
}

TEST(HiddenLaunchConfirmation, RetriedConditionsGiveUpAfterTheLastCheck) {
    ConfirmationDriver active;
    active.state.active = true;
    active.start({100, 0.1, 10, 1000});
    EXPECT_EQ(active.run(), 100);
    EXPECT_EQ(active.result, LaunchAttempt::unconfirmed("could not confirm application hidden after 100 startup checks: "
                                                        "application became active before hidden confirmation"));
    EXPECT_EQ(active.hideRequests, 99);  // asked again at every check but the last

    ConfirmationDriver rejecting;
    rejecting.hideAccepted = false;
    rejecting.start({20, 0.1, 10, 1000});
    rejecting.run();
    EXPECT_EQ(rejecting.result, LaunchAttempt::unconfirmed("could not confirm application hidden after 20 startup "
                                                           "checks: application rejected hide request"));

    ConfirmationDriver visible;
    visible.start({20, 0.1, 10, 1000});
    visible.run();
    EXPECT_EQ(visible.result, LaunchAttempt::unconfirmed("could not confirm application hidden after 20 startup "
                                                         "checks: application stayed visible after hide request"));

    ConfirmationDriver slow;
    slow.state.finishedLaunching = false;
    slow.start({30, 0.1, 10, 1000});
    slow.run();
    EXPECT_EQ(slow.result, LaunchAttempt::unconfirmed("could not confirm application hidden after 30 startup checks: "
                                                      "application did not finish launching before hidden confirmation"));
}

TEST(HiddenLaunchConfirmation, AnAppThatKeepsShowingItselfDoesNotSettle) {
    ConfirmationDriver driver;
    driver.start();
    // Hidden for a few checks, then visible again, three times over.
    for (int round = 0; round < 3; ++round) {
        driver.state.hidden = true;
        driver.run(3);
        driver.state.hidden = false;
        driver.run(1);
    }
    EXPECT_EQ(driver.result,
              LaunchAttempt::unconfirmed("could not confirm application hidden after 12 startup checks: hidden state "
                                         "did not settle"));

    ConfirmationDriver recovers;
    recovers.start();
    recovers.run(5);  // visible: hide requested again
    recovers.state.hidden = true;
    recovers.run();
    EXPECT_EQ(recovers.result, LaunchAttempt::opened());
}

}  // namespace
}  // namespace holdenmere
