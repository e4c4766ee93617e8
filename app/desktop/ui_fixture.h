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
//     "probe": [ "timed out", "reachable" ]      answers of the network test, in order
//   }
//
// The files live in a temporary folder that goes with the services, so a
// fixture never touches the user's real configuration. Bundles the fixture
// does not list as missing count as present.
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

    HoldenmereLoginAgentStatus loginAgentStatus() override { return loginAgent_; }

    bool onboardingDone() const { return onboardingDone_; }
    // The folder that stands in for the home folder.
    std::filesystem::path home() const;

    static plist::Value plistFromJSON(const json::Value& value);

private:
    QTemporaryDir folder_;
    std::vector<InstalledApp> installed_;
    std::set<std::filesystem::path> missing_;
    std::vector<std::string> probeAnswers_;
    std::unique_ptr<Clock> clock_;
    HoldenmereLoginAgentStatus loginAgent_ = HoldenmereLoginAgentStatus::activeAtLogin;
    bool onboardingDone_ = true;
};

}  // namespace holdenmere::desktop
