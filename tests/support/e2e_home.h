#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_systemextensionsctl_state.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

namespace holdenmere::testing {

// A user's home for the end-to-end tests: a temporary folder with the fake
// launchctl, osascript and systemextensionsctl in its "tools" folder
// (HOLDENMERE_TOOLS_DIR), each with a state of its own, and the built
// executable run in it as a user would.
struct E2EHome {
    TemporaryDirectory home;
    FakeLaunchctlTool launchd;

    E2EHome() {
        std::filesystem::create_directories(home / "tools");
        std::filesystem::create_symlink(FakeLaunchctlTool::executable(), home / "tools/launchctl");
        std::filesystem::create_symlink(fakeOsascriptPath(), home / "tools/osascript");
        std::filesystem::create_symlink(fakeSystemextensionsctlPath(), home / "tools/systemextensionsctl");
        fake_systemextensionsctl::install(systemExtensions(), {});
    }

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path loginItemsFile() const { return home / "login-items.json"; }
    std::filesystem::path systemExtensions() const { return home / "systemextensionsctl.json"; }
    std::filesystem::path agentsFolder() const { return home / "Library/LaunchAgents"; }
    std::string plistOf(const std::string& label) const { return (agentsFolder() / (label + ".plist")).string(); }

    // The environment of a run, and of this process's own stand-ins.
    std::vector<std::string> environment(const std::vector<std::string>& more = {}) const {
        std::vector<std::string> variables{
            "HOME=" + home.path().string(),
            "PATH=/usr/bin:/bin",
            "HOLDENMERE_TOOLS_DIR=" + (home / "tools").string(),
            std::string(fake_launchctl::kStateVariable) + "=" + launchd.stateFolder().string(),
            std::string(fake_systemextensionsctl::kStateVariable) + "=" + systemExtensions().string(),
            "FAKE_OSASCRIPT_STATE=" + loginItemsFile().string(),
            "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string()};
        variables.insert(variables.end(), more.begin(), more.end());
        return variables;
    }

    ChildProcessResult run(const std::vector<std::string>& arguments, const std::vector<std::string>& more = {}) const {
        ChildProcessRequest request;
        request.executable = holdenmerePath();
        request.arguments = arguments;
        request.environment = environment(more);
        request.timeout = std::chrono::seconds(60);
        return runChildProcess(request);
    }
};

}  // namespace holdenmere::testing
