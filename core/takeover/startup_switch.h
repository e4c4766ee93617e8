#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/config/holdenmere_config.h"
#include "core/discovery/session_restore_scanner.h"
#include "core/startup/startup_source.h"
#include "core/discovery/tool_running.h"
#include "core/launchd/launchctl_running.h"

namespace holdenmere {

// One source's startup switch, behind a seam so that the engine's steps for
// held items (hold, re-assert, give back) are written once for every source
// and run against fakes: read whether an item is off, switch it off or on.
class StartupSwitch {
public:
    virtual ~StartupSwitch() = default;
    // Whether the item is off now; nothing when that cannot be read, with
    // the reason in `failure`.
    virtual std::optional<bool> isOff(const std::string& handle, std::string& failure) = 0;
    // The failure text, or nothing.
    virtual std::optional<std::string> switchOff(const std::string& handle) = 0;
    virtual std::optional<std::string> switchOn(const std::string& handle) = 0;
};

// An app extension through pluginkit's election: "-e ignore" keeps macOS
// from loading it, "-e use" lets it load again.
class AppExtensionSwitch final : public StartupSwitch {
public:
    explicit AppExtensionSwitch(ToolRunning& tools) : tools_(tools) {}
    std::optional<bool> isOff(const std::string& identifier, std::string& failure) override;
    std::optional<std::string> switchOff(const std::string& identifier) override { return elect(identifier, false); }
    std::optional<std::string> switchOn(const std::string& identifier) override { return elect(identifier, true); }

private:
    std::optional<std::string> elect(const std::string& identifier, bool use);
    ToolRunning& tools_;
};

// A launcher's child kept from starting by switching its launcher off: a
// login-item helper, which launchd starts under its bundle identifier.
class LauncherChildSwitch final : public StartupSwitch {
public:
    explicit LauncherChildSwitch(LaunchctlRunning& launchctl) : launchctl_(launchctl) {}
    std::optional<bool> isOff(const std::string& label, std::string& failure) override;
    std::optional<std::string> switchOff(const std::string& label) override { return run("disable", label); }
    std::optional<std::string> switchOn(const std::string& label) override { return run("enable", label); }

private:
    std::optional<std::string> run(const char* subcommand, const std::string& label);
    LaunchctlRunning& launchctl_;
};

// loginwindow's reopen-windows setting, through `defaults -currentHost`
// (cfprefsd owns the file while the user is logged in; writing it directly
// could be undone by the next flush).
class ReopenWindowsSetting {
public:
    struct Values {
        std::optional<bool> logoutSavesState;      // nothing: the key is not set
        std::optional<bool> launchesRelaunchApps;
        friend bool operator==(const Values&, const Values&) = default;
    };
    virtual ~ReopenWindowsSetting() = default;
    // Nothing when it cannot be read, with the reason in `failure`.
    virtual std::optional<Values> read(std::string& failure) = 0;
    // Sets both keys as given; an absent value deletes the key.
    virtual std::optional<std::string> write(const Values& values) = 0;
};

class SystemReopenWindowsSetting final : public ReopenWindowsSetting {
public:
    static constexpr const char* kDefaults = "/usr/bin/defaults";
    explicit SystemReopenWindowsSetting(ToolRunning& tools) : tools_(tools) {}
    std::optional<Values> read(std::string& failure) override;
    std::optional<std::string> write(const Values& values) override;

private:
    ToolRunning& tools_;
};

// Quits a running app as a person would (it may save and close its windows).
class AppQuitting {
public:
    virtual ~AppQuitting() = default;
    virtual bool isRunning(const std::string& bundleIdentifier) = 0;
    // The failure text, or nothing once the app was asked and agreed to quit.
    virtual std::optional<std::string> quit(const std::string& bundleIdentifier) = 0;
};

// What the engine switches for the sources beyond launchd and Login Items.
// A missing part means this build cannot act on that source.
struct StartupSwitches {
    StartupSwitch* appExtension = nullptr;
    StartupSwitch* launcherChild = nullptr;
    ReopenWindowsSetting* reopenWindows = nullptr;
    AppQuitting* apps = nullptr;
    // What loginwindow reopens at this login.
    std::function<SessionRestoreScanner::Read()> sessionRestore;

    StartupSwitch* find(StartupSource source) const;
};

}  // namespace holdenmere
