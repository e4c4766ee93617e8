#pragma once

#include <condition_variable>
#include <mutex>
#include <vector>

#include "core/support/date.h"

namespace holdenmere {

// A flag that one thread raises and others wait for: an answer that
// arrived, or a wait that was cancelled. Raising it twice is harmless.
class Signal {
public:
    Signal() = default;
    Signal(const Signal&) = delete;
    Signal& operator=(const Signal&) = delete;

    void raise();
    bool isRaised() const;
    // Waits in real time; true when raised before `seconds` passed.
    bool waitFor(double seconds) const;
    // Waits in real time with no limit.
    void wait() const;

    // While a link lives, raising `from` raises `to` as well (at once when
    // `from` is raised already), so that one wait can end on whichever of
    // several signals comes first: link each of them to a signal of the
    // wait's own. `from` forwards while holding its lock, so once the link
    // is destroyed no raise of `from` still reaches `to`, and `to` may go.
    // Links must not form a cycle.
    class Link {
    public:
        Link(const Signal& from, Signal& to);
        ~Link();
        Link(const Link&) = delete;
        Link& operator=(const Link&) = delete;

    private:
        const Signal& from_;
        Signal& to_;
    };

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool raised_ = false;
    mutable std::vector<Signal*> forwards_;
};

// Time as the logic sees it, so that long waits (the network gate, app
// offsets, hidden-launch confirmation, the re-registration sweep) can run
// against a fake that moves only when told.
class Clock {
public:
    virtual ~Clock() = default;
    // Wall-clock time, for records and log stamps.
    virtual Date now() = 0;
    // Seconds on a clock that never jumps, for measuring durations.
    virtual double uptime() = 0;
    // Waits until `signal` is raised or `seconds` have passed; true when raised.
    virtual bool waitFor(const Signal& signal, double seconds) = 0;
    // Sleeps `seconds` unless `cancellation` is raised first; true when the
    // whole time passed, false when cancelled.
    bool sleep(double seconds, const Signal& cancellation) { return !waitFor(cancellation, seconds); }
};

// The real clocks: the system wall clock and the steady clock.
class SystemClock final : public Clock {
public:
    Date now() override;
    double uptime() override;
    bool waitFor(const Signal& signal, double seconds) override;
};

}  // namespace holdenmere
