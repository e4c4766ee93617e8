#pragma once

#include "core/support/clock.h"

namespace holdenmere {

// The main thread's run loop, for code that waits. On macOS the workspace
// answers an open, and a running app's hidden, active and finished-launching
// states change, only while the main run loop turns, so a wait on the main
// thread must keep it turning, one short slice at a time. Elsewhere nothing
// is delivered that way and a slice is a plain wait on the clock. A seam, so
// that waits can be driven by a fake that delivers the platform's work
// itself.
class MainLoop {
public:
    virtual ~MainLoop() = default;
    // One waiting slice of `seconds`: serves the main run loop when there is
    // one to serve on this thread, otherwise waits on `clock` for `done`.
    // True when `done` was raised by the end of the slice.
    virtual bool runSlice(Clock& clock, const Signal& done, double seconds) = 0;
};

// Serves nothing: every slice is a wait on the clock.
class InertMainLoop final : public MainLoop {
public:
    bool runSlice(Clock& clock, const Signal& done, double seconds) override { return clock.waitFor(done, seconds); }

    // One for callers that have no main loop to serve; it holds no state.
    static InertMainLoop& shared();
};

// The platform's: on macOS, on the main thread, the current run loop in its
// default mode until the end of the slice; on other threads and other
// platforms a wait on the clock.
class SystemMainLoop final : public MainLoop {
public:
    bool runSlice(Clock& clock, const Signal& done, double seconds) override;
};

}  // namespace holdenmere
