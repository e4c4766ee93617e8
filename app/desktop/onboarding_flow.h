#pragma once

#include <QObject>
#include <QString>

#include <set>
#include <string>
#include <vector>

#include "app/desktop/add_apps_model.h"
#include "app/desktop/desktop_preferences.h"
#include "app/desktop/settings_model.h"
#include "app/desktop/startup_items_model.h"

namespace holdenmere::desktop {

// The first-run welcome: what Holdenmere does, the apps it suggests,
// switching the login agent on, the consent to take startup items over, and
// "done" remembered so that it is not shown again. Nothing is changed before
// the welcome is finished; skipping it changes nothing.
class OnboardingFlow : public QObject {
    Q_OBJECT

public:
    enum class Step {
        welcome,         // what Holdenmere does
        chooseApps,      // the suggested apps, to tick
        startAtLogin,    // switching the login agent on
        startupConsent,  // taking over macOS startup items
    };

    // Every step, in the order above.
    static std::vector<Step> defaultSteps();
    // The welcome is shown until it has been completed or skipped once.
    static bool shouldShow(const DesktopPreferences& preferences) { return !preferences.onboardingDone(); }
    // Two sentences on what the app does.
    static QString introduction();

    OnboardingFlow(AddAppsModel& apps, DesktopPreferences& preferences, std::vector<Step> steps = defaultSteps(),
                   QObject* parent = nullptr);

    const std::vector<Step>& steps() const { return steps_; }
    Step current() const { return steps_[index_]; }
    int index() const { return static_cast<int>(index_); }
    bool isLast() const { return index_ + 1 == steps_.size(); }
    bool canGoBack() const { return index_ > 0; }
    void next();
    void back();

    // The suggestions, read from the Applications folders on first use.
    const std::vector<AppChoice>& suggestions();
    void setChosen(const std::string& bundleIdentifier, bool chosen);
    const std::set<std::string>& chosen() const { return chosen_; }

    // The login agent step acts through the settings, the consent step
    // through the startup items; without them those steps change nothing.
    void setLoginAgent(SettingsModel* settings);
    void setStartupItems(StartupItemsModel* startupItems);
    SettingsModel* loginAgent() const { return settings_; }
    StartupItemsModel* startupItems() const { return startupItems_; }

    // Whether finishing switches the login agent on. Ticked at first only
    // while the agent has never been set up (an agent the user switched off
    // stays off unless ticked); moot while it already runs at login.
    bool startAtLoginWanted() const { return startAtLoginWanted_; }
    void setStartAtLoginWanted(bool wanted) { startAtLoginWanted_ = wanted; }
    bool startAtLoginAlreadyOn() const;

    // The answer to the consent question; none leaves it undecided.
    enum class Consent { none, grant, decline };
    Consent consent() const { return consent_; }
    void setConsent(Consent consent) { consent_ = consent; }
    // Apps the user leaves to macOS when granting.
    void setLeftToMacOS(const std::string& bundleIdentifier, bool left);
    const std::set<std::string>& leftToMacOS() const { return leftToMacOS_; }

    // Adds the chosen apps (in the order suggested), saves the consent
    // answer, starts switching the login agent on when wanted, and
    // remembers that the welcome is done. False when the apps could not be saved: the welcome
    // then stays, so that nothing the user chose is lost. The login agent and
    // consent report their own failures (notices of their models).
    bool finish();
    // Remembers the welcome as done without adding anything.
    void skip();

signals:
    void stepChanged();
    void completed();

private:
    AddAppsModel& apps_;
    DesktopPreferences& preferences_;
    std::vector<Step> steps_;
    std::size_t index_ = 0;
    std::vector<AppChoice> suggestions_;
    bool loaded_ = false;
    std::set<std::string> chosen_;
    SettingsModel* settings_ = nullptr;
    StartupItemsModel* startupItems_ = nullptr;
    bool startAtLoginWanted_ = false;
    Consent consent_ = Consent::none;
    std::set<std::string> leftToMacOS_;
};

}  // namespace holdenmere::desktop
