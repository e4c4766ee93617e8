#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/config/holdenmere_config.h"
#include "core/discovery/startup_entry.h"
#include "core/discovery/tool_running.h"

namespace holdenmere {

// One app as LaunchServices lists it ("lsappinfo list"): its record header
// `N) "Name" ASN:0x0-0x69069:` and the indented lines below it.
struct RunningApp {
    std::string name;
    std::string asn;  // "0x0-0x69069"
    std::optional<std::string> bundleIdentifier;
    std::optional<std::string> bundlePath;
    std::optional<std::string> executablePath;
    std::optional<int> pid;
    std::optional<std::string> parentName;  // parentASN="Name"
    std::optional<std::string> parentAsn;

    friend bool operator==(const RunningApp&, const RunningApp&) = default;
};

// An app that another app's launcher started: a helper app inside another
// app's bundle (its login-item launcher) opened it.
struct LauncherChild {
    RunningApp child;
    RunningApp launcher;
    // The launcher is a login-item helper (Contents/Library/LoginItems),
    // which launchd starts under its bundle identifier: switching that job
    // off keeps the child from starting. Other launchers cannot be told.
    bool launcherIsLoginItem = false;

    friend bool operator==(const LauncherChild&, const LauncherChild&) = default;
};

// The launcher-children source of the startup inventory.
struct LauncherChildScanner {
    static constexpr const char* kLsappinfo = "/usr/bin/lsappinfo";
    static constexpr std::chrono::milliseconds kTimeLimit{10'000};

    using TierOf = std::function<SafetyTier(const LauncherChild&)>;

    static std::vector<std::string> listArguments() { return {"list"}; }

    // The records of "lsappinfo list"; nothing when a line is in no form
    // this reader knows (indented lines it does not use are passed over).
    static std::optional<std::vector<RunningApp>> parse(std::string_view output);
    // The apps whose parent is a helper app inside another app's bundle.
    static std::vector<LauncherChild> children(const std::vector<RunningApp>& apps);

    // The rows: one per launcher (the handle is the launcher's bundle
    // identifier, which its switch acts on), named after the child; held
    // launchers that no longer start their child are listed as off.
    static StartupSourceScan scan(ToolRunning& tools, const TierOf& tierOf,
                                  const std::vector<HeldStartupItem>& held);
    static StartupEntry entry(const LauncherChild& child, const TierOf& tierOf);
};

}  // namespace holdenmere
