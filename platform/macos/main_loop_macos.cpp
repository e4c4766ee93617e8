// SystemMainLoop on macOS. On the main thread a slice runs the current run
// loop in its default mode until the slice's end, so that the workspace's
// completion handlers and the running applications' state changes reach
// this process while it waits; the done flag is tested between slices. On
// any other thread there is no main run loop to serve, and the slice is a
// wait on the clock.
#include <CoreFoundation/CoreFoundation.h>
#include <pthread.h>

#include "core/support/main_loop.h"

namespace holdenmere {

bool SystemMainLoop::runSlice(Clock& clock, const Signal& done, double seconds) {
    if (done.isRaised()) return true;
    if (seconds <= 0 || pthread_main_np() == 0) return clock.waitFor(done, seconds);
    const double start = clock.uptime();
    const auto result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, seconds, false);
    if (result == kCFRunLoopRunFinished) {
        // The default mode has no source at all, so the run loop returned at
        // once: wait out the rest of the slice instead of spinning.
        const double left = seconds - (clock.uptime() - start);
        if (left > 0) return clock.waitFor(done, left);
    }
    return done.isRaised();
}

}  // namespace holdenmere
