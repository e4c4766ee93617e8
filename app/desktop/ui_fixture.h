#pragma once

#include <QString>
#include <QTemporaryDir>

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "app/desktop/desktop_services.h"
#include "app/desktop/memory_system.h"
#include "core/support/json.h"

namespace holdenmere::desktop {

// A fixed state for screenshots and demonstrations, named by
// HOLDENMERE_UI_FIXTURE: "sample" (built in) or the path of a JSON file:
//
//   {
//     "now": 794045700,                  seconds since 2001-01-01 UTC (the clock stands still there)
//     "loginAgent": "activeAtLogin",     a HoldenmereLoginAgentStatus case
//     "onboardingDone": true,
//     "config": { ... },                 written as config.json
//     "history": [ ... ],                written as history.json
//     "log": [ "line", ... ],            written as the run log
//     "installed": [ {"path": "/Applications/X.app", "info": {Info.plist keys},
//                     "extensionPoints": ["com.apple.fileprovider-nonui"]} ],
//     "missing": [ "/Applications/Gone.app" ],   bundles that are not there
//     "probe": [ "timed out", "reachable" ],     answers of the network test, in order
//     "startup": {                               what macOS starts at login
//       "bundles": [ {"path": "~/Applications/X.app", "info": {Info.plist keys},
//                     "systemExtensions": ["identifier"]} ],
//       "loginItems": [ {"path": "~/Applications/X.app", "hidden": false} ],
//       "launchAgents": [ {Label, ProgramArguments, RunAtLoad, ...} ],
//       "disabled": [ "label" ],                 switched off in launchd
//       "loaded": [ "label" ]
//     }
//   }
//
// The files live in a temporary folder that goes with the services, so a
// fixture never touches the user's real configuration. A string anywhere in
// the fixture that begins with "~/" names a place in that folder. Bundles
// the fixture does not list as missing count as present. launchd and System
// Events are kept in memory: LaunchAgents are written to the folder's
// Library/LaunchAgents (the only one scanned), the login agent's plist to
// the same place when the fixture's "loginAgent" says it is installed.
class FixtureDesktopServices : public DesktopServices {
public:
    // Throws std::runtime_error when the fixture cannot be read.
    static std::unique_ptr<FixtureDesktopServices> load(const QString& nameOrPath);
    // Throws json::DecodeError for a malformed fixture.
    explicit FixtureDesktopServices(const json::Value& fixture);
    ~FixtureDesktopServices() override;

    ConfigStore configStore() const override;
    HistoryStore historyStore() const override;
    std::filesystem::path logPath() const override;

    std::vector<InstalledApp> installedApps() override { return installed_; }
    InstalledApp readBundle(const std::filesystem::path& path) override;
    bool bundleExists(const std::filesystem::path& path) override { return missing_.count(path) == 0; }

    std::unique_ptr<ReachabilityProbe> makeProbe() override;
    Clock& clock() override { return *clock_; }

    LaunchctlRunning& launchctl() override { return launchctl_; }
    ScriptRunning& scripts() override { return loginItems_; }
    std::vector<std::filesystem::path> launchAgentDirectories() override;
    std::optional<std::filesystem::path> agentExecutable() override;
    std::filesystem::path loginAgentPlistPath() const override;
    ToolRunning& backgroundItemsTool() override { return tools_; }
    SettingsOpening& settingsOpening() override { return settings_; }

    bool onboardingDone() const { return onboardingDone_; }
    // The folder that stands in for the home folder.
    std::filesystem::path home() const;

    static plist::Value plistFromJSON(const json::Value& value);

private:
    void setUpLoginAgent(HoldenmereLoginAgentStatus status);
    void setUpStartup(const json::Value& startup);

    QTemporaryDir folder_;
    std::vector<InstalledApp> installed_;
    std::set<std::filesystem::path> missing_;
    std::vector<std::string> probeAnswers_;
    std::unique_ptr<Clock> clock_;
    bool onboardingDone_ = true;
    MemoryLaunchctl launchctl_;
    MemoryLoginItems loginItems_;
    MemoryTools tools_;  // an empty background-items record
    InertSettingsOpening settings_;
};

}  // namespace holdenmere::desktop
