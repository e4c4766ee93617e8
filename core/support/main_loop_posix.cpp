// SystemMainLoop away from macOS: no platform service here delivers its
// answers through a run loop of the main thread, so a slice only waits.
#include "core/support/main_loop.h"

namespace holdenmere {

bool SystemMainLoop::runSlice(Clock& clock, const Signal& done, double seconds) { return clock.waitFor(done, seconds); }

}  // namespace holdenmere
