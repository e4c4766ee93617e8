#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "core/support/child_process.h"
#include "tests/support/fake_launchctl.h"
#include "tests/support/fake_systemextensionsctl_state.h"
#include "tests/support/fake_tool_state.h"
#include "tests/support/plist_files.h"
#include "tests/support/temporary_directory.h"
#include "tests/support/test_executables.h"

// A temporary home as the end-to-end tests run the built executable in: the
// fake tools linked into {home}/tools, named to the executable through
// HOLDENMERE_TOOLS_DIR, each keeping its state in the home.
namespace holdenmere::testing {

inline std::filesystem::path systemExtensionsFile(const std::filesystem::path& home) {
    return home / "systemextensionsctl.json";
}

// launchctl, osascript, systemextensionsctl (no system extension
// installed), pluginkit, lsappinfo, defaults and sfltool (its records in
// {home}/sfltool.json).
inline void linkFakeTools(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / "tools");
    std::filesystem::create_symlink(FakeLaunchctlTool::executable(), home / "tools/launchctl");
    std::filesystem::create_symlink(fakeOsascriptPath(), home / "tools/osascript");
    std::filesystem::create_symlink(fakeSystemextensionsctlPath(), home / "tools/systemextensionsctl");
    std::filesystem::create_symlink(fakePluginkitPath(), home / "tools/pluginkit");
    std::filesystem::create_symlink(fakeLsappinfoPath(), home / "tools/lsappinfo");
    std::filesystem::create_symlink(fakeDefaultsPath(), home / "tools/defaults");
    std::filesystem::create_symlink(fakeSfltoolPath(), home / "tools/sfltool");
    fake_systemextensionsctl::install(systemExtensionsFile(home), {});
}

// The environment of a run in the home, with the fakes' state where the
// fakes look for it: launchd's in `launchd`, the Login Items in
// `loginItems`, the other tools' in the home itself.
inline std::vector<std::string> homeEnvironment(const std::filesystem::path& home, const FakeLaunchctlTool& launchd,
                                                const std::filesystem::path& loginItems) {
    return {"HOME=" + home.string(),
            "PATH=/usr/bin:/bin",
            "HOLDENMERE_TOOLS_DIR=" + (home / "tools").string(),
            std::string(fake_launchctl::kStateVariable) + "=" + launchd.stateFolder().string(),
            std::string(fake_systemextensionsctl::kStateVariable) + "=" + systemExtensionsFile(home).string(),
            std::string(fake_tool::kStateVariable) + "=" + home.string(),
            "HOLDENMERE_FAKE_SFLTOOL_STATE=" + (home / "sfltool.json").string(),
            "FAKE_OSASCRIPT_STATE=" + loginItems.string(),
            "HOLDENMERE_HISTORY_PATH=" + (home / "history.json").string()};
}

// An app bundle whose executable (the test helper) stays running once
// started; returns the bundle's path.
inline std::string writeLingeringApp(const std::filesystem::path& bundle, const std::string& identifier) {
    writeFile(bundle / "Contents/Info.plist",
              xmlPlist("<key>CFBundleIdentifier</key><string>" + identifier +
                       "</string><key>CFBundleExecutable</key><string>LingeringApp</string>"));
    std::filesystem::create_directories(bundle / "Contents/MacOS");
    std::filesystem::copy_file(testHelperPath(), bundle / "Contents/MacOS/LingeringApp");
    return bundle.string();
}

// Runs the executable in the home; `extra` ("NAME=value") is added.
inline ChildProcessResult runInHome(const std::filesystem::path& home, const FakeLaunchctlTool& launchd,
                                    const std::filesystem::path& loginItems, const std::vector<std::string>& arguments,
                                    const std::vector<std::string>& extra = {}) {
    ChildProcessRequest request;
    request.executable = holdenmerePath();
    request.arguments = arguments;
    request.environment = homeEnvironment(home, launchd, loginItems);
    request.environment->insert(request.environment->end(), extra.begin(), extra.end());
    request.timeout = std::chrono::seconds(60);
    return runChildProcess(request);
}

// A user's home with every fake tool, and the built executable run in it.
struct E2EHome {
    TemporaryDirectory home;
    FakeLaunchctlTool launchd;

    E2EHome() { linkFakeTools(home.path()); }

    std::filesystem::path configPath() const { return home / "Library/Application Support/Holdenmere/config.json"; }
    std::filesystem::path loginItemsFile() const { return home / "login-items.json"; }
    std::filesystem::path systemExtensions() const { return systemExtensionsFile(home.path()); }
    std::filesystem::path agentsFolder() const { return home / "Library/LaunchAgents"; }
    std::string plistOf(const std::string& label) const { return (agentsFolder() / (label + ".plist")).string(); }

    // The environment of a run, and of this process's own stand-ins.
    std::vector<std::string> environment(const std::vector<std::string>& more = {}) const {
        auto variables = homeEnvironment(home.path(), launchd, loginItemsFile());
        variables.insert(variables.end(), more.begin(), more.end());
        return variables;
    }

    ChildProcessResult run(const std::vector<std::string>& arguments, const std::vector<std::string>& more = {}) const {
        return runInHome(home.path(), launchd, loginItemsFile(), arguments, more);
    }
};

}  // namespace holdenmere::testing
