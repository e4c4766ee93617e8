// SystemMainLoop on macOS. On the main thread a slice runs the current run
// loop in its default mode until the slice's end, so that the workspace's
// completion handlers and the running applications' state changes reach
// this process while it waits. The run loop knows nothing of the done flag,
// which another thread raises: a watcher thread stops the run loop when it
// is raised, so that the slice ends as soon as the work does. On any other
// thread there is no main run loop to serve, and the slice is a wait on the
// clock.
#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>

#include <system_error>
#include <thread>

#include "core/support/main_loop.h"

namespace holdenmere {
namespace {

// Runs the run loop for up to `seconds`, or until `done` is raised.
CFRunLoopRunResult runUntilDone(CFRunLoopRef loop, const Signal& done, double seconds) {
    Signal wake;  // raised by `done`, or at the end of the slice
    std::thread watcher;
    CFRunLoopRunResult result = kCFRunLoopRunTimedOut;
    {
        const Signal::Link byDone(done, wake);
        try {
            watcher = std::thread([&wake, &done, loop] {
                wake.wait();
                // A stop that comes after the run loop returned only ends the
                // next slice at once, and that slice finds `done` raised.
                if (done.isRaised()) CFRunLoopStop(loop);
            });
        } catch (const std::system_error&) {
            // No thread to be had: the slice runs its whole length.
        }
        result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false);
        wake.raise();
    }
    if (watcher.joinable()) watcher.join();
    return result;
}

}  // namespace

bool SystemMainLoop::runSlice(Clock& clock, const Signal& done, double seconds) {
    if (done.isRaised()) return true;
    if (seconds <= 0 || pthread_main_np() == 0) return clock.waitFor(done, seconds);
    const double start = clock.uptime();
    const auto result = runUntilDone(CFRunLoopGetCurrent(), done, seconds);
    if (done.isRaised()) return true;
    if (result == kCFRunLoopRunFinished) {
        // The default mode has no source at all, so the run loop returned at
        // once: wait out the rest of the slice instead of spinning.
        const double left = seconds - (clock.uptime() - start);
        if (left > 0) return clock.waitFor(done, left);
    }
    return done.isRaised();
}

}  // namespace holdenmere
