#include "core/support/clock.h"

#include <atomic>
#include <memory>
#include <thread>

#include <gtest/gtest.h>

namespace holdenmere {
namespace {

TEST(SignalLink, ForwardsARaiseOnlyWhileItLives) {
    Signal first;
    Signal second;
    Signal either;
    {
        const Signal::Link fromFirst(first, either);
        const Signal::Link fromSecond(second, either);
        EXPECT_FALSE(either.isRaised());
        second.raise();
        EXPECT_TRUE(either.isRaised());
    }
    // A link to a signal already raised raises its target at once.
    Signal late;
    const Signal::Link fromRaised(second, late);
    EXPECT_TRUE(late.isRaised());

    // Gone links forward nothing, and the others stay.
    Signal target;
    Signal other;
    {
        const Signal::Link gone(first, target);
    }
    const Signal::Link kept(first, other);
    first.raise();
    EXPECT_FALSE(target.isRaised());
    EXPECT_TRUE(other.isRaised());
    // A real wait ends on a forwarded raise.
    Signal waited;
    Signal source;
    const Signal::Link link(source, waited);
    std::thread raiser([&] { source.raise(); });
    EXPECT_TRUE(waited.waitFor(10));
    raiser.join();
}

// Targets that live for one wait each, linked to a signal another thread
// keeps raising: once its link is gone, a target may go at once (the
// sanitizer build reports a forward that reaches one afterwards).
TEST(SignalLink, ATargetMayGoAsSoonAsItsLinkHasGone) {
    Signal source;
    source.raise();
    std::atomic<bool> stop{false};
    std::thread raiser([&] {
        while (!stop) source.raise();
    });
    int raised = 0;
    for (int i = 0; i < 2000; ++i) {
        auto target = std::make_unique<Signal>();
        {
            const Signal::Link link(source, *target);
            if (target->isRaised()) ++raised;
        }
        target.reset();
    }
    stop = true;
    raiser.join();
    // The source was raised before the first link: each forwarded at once.
    EXPECT_EQ(raised, 2000);
}

}  // namespace
}  // namespace holdenmere
