#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "core/support/child_process.h"

namespace holdenmere::testing {

inline const char* testHelperPath() { return HOLDENMERE_TEST_HELPER; }
// The executable in a bundle without the desktop app's module, as the
// headless modes must run; bundleExecutablePath() is the one in the built
// bundle, module and all.
inline const char* holdenmerePath() { return HOLDENMERE_EXECUTABLE; }
inline const char* bundleExecutablePath() { return HOLDENMERE_BUNDLE_EXECUTABLE; }
// Poses as /usr/bin/osascript; see tests/support/fake_osascript_main.cpp.
inline const char* fakeOsascriptPath() { return HOLDENMERE_FAKE_OSASCRIPT; }
// Poses as /usr/bin/systemextensionsctl; see tests/support/fake_systemextensionsctl_main.cpp.
inline const char* fakeSystemextensionsctlPath() { return HOLDENMERE_FAKE_SYSTEMEXTENSIONSCTL; }
// Pose as pluginkit, lsappinfo and defaults; see tests/support/fake_tool_state.h.
inline const char* fakePluginkitPath() { return HOLDENMERE_FAKE_PLUGINKIT; }
inline const char* fakeLsappinfoPath() { return HOLDENMERE_FAKE_LSAPPINFO; }
inline const char* fakeDefaultsPath() { return HOLDENMERE_FAKE_DEFAULTS; }
// Poses as /usr/bin/sfltool; see tests/support/fake_sfltool_main.cpp.
inline const char* fakeSfltoolPath() { return HOLDENMERE_FAKE_SFLTOOL; }

// Runs the test helper with the arguments and an optional environment.
inline ChildProcessResult runTestHelper(std::vector<std::string> arguments,
                                        std::chrono::milliseconds timeout = std::chrono::seconds(10)) {
    ChildProcessRequest request;
    request.executable = testHelperPath();
    request.arguments = std::move(arguments);
    request.timeout = timeout;
    return runChildProcess(request);
}

}  // namespace holdenmere::testing
