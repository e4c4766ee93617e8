#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_tool_state.h"
#include "tests/support/test_executables.h"

// A temporary home as the end-to-end tests run the built executable in: the
// fake tools linked into {home}/tools, named to the executable through
// HOLDENMERE_TOOLS_DIR, each keeping its state in the home.
namespace holdenmere::testing {

// launchctl, osascript, pluginkit, lsappinfo and defaults.
inline void linkFakeTools(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / "tools");
    std::filesystem::create_symlink(FakeLaunchctlTool::executable(), home / "tools/launchctl");
    std::filesystem::create_symlink(fakeOsascriptPath(), home / "tools/osascript");
    std::filesystem::create_symlink(fakePluginkitPath(), home / "tools/pluginkit");
    std::filesystem::create_symlink(fakeLsappinfoPath(), home / "tools/lsappinfo");
    std::filesystem::create_symlink(fakeDefaultsPath(), home / "tools/defaults");
}

// Runs the executable in the home with the fakes' state where the fakes look
// for it: launchd's in `launchd`, the Login Items in `loginItems`, the other
// tools' in the home itself; `extra` ("NAME=value") is added.
inline ChildProcessResult runInHome(const std::filesystem::path& home, const FakeLaunchctlTool& launchd,
                                    const std::filesystem::path& loginItems, const std::vector<std::string>& arguments,
                                    const std::vector<std::string>& extra = {}) {
    ChildProcessRequest request;
    request.executable = holdenmerePath();
    request.arguments = arguments;
    request.environment = std::vector<std::string>{
        "HOME=" + home.string(),
        "PATH=/usr/bin:/bin",
        "HOLDENMERE_TOOLS_DIR=" + (home / "tools").string(),
        std::string(fake_launchctl::kStateVariable) + "=" + launchd.stateFolder().string(),
        std::string(fake_tool::kStateVariable) + "=" + home.string(),
        "FAKE_OSASCRIPT_STATE=" + loginItems.string(),
        "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string()};
    request.environment->insert(request.environment->end(), extra.begin(), extra.end());
    request.timeout = std::chrono::seconds(60);
    return runChildProcess(request);
}

}  // namespace holdenmere::testing
