#pragma once

#include <string>

namespace holdenmere::testing {

// Tests that need a network of their own, one whose loopback starts down and
// that they may bring up, run inside a network namespace. Such a test begins
//
//     if (!testing::inOwnNetworkNamespace()) return testing::runInOwnNetworkNamespace();
//
// which runs this test program again, filtered to the current test, in a
// fresh namespace (through the namespace helper), reports the inner run's
// failures as this test's, and skips the test where the system makes no
// namespace for us. The inner run takes the test's other path.

// True in the inner run.
bool inOwnNetworkNamespace();
void runInOwnNetworkNamespace();

// Sets or clears IFF_UP on loopback ("lo") in this process's namespace.
// Empty on success, otherwise "ioctl(SIOCSIFFLAGS, lo): reason".
std::string setLoopbackUp(bool up);

}  // namespace holdenmere::testing
