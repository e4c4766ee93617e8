#pragma once

#include <QObject>
#include <QString>

#include <set>
#include <string>
#include <vector>

#include "app/desktop/add_apps_model.h"
#include "app/desktop/desktop_preferences.h"

namespace holdenmere::desktop {

// The first-run welcome: what Holdenmere does, the apps it suggests, and
// "done" remembered so that it is not shown again. Steps are a list, so that
// switching on the login agent and asking for startup take-over consent slot
// in after the apps are chosen.
class OnboardingFlow : public QObject {
    Q_OBJECT

public:
    enum class Step {
        welcome,         // what Holdenmere does
        chooseApps,      // the suggested apps, to tick
        startAtLogin,    // switching the login agent on (slot)
        startupConsent,  // taking over macOS startup items (slot)
    };

    // Welcome, then choosing apps.
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

    // Adds the chosen apps (in the order suggested) and remembers that the
    // welcome is done. False when the apps could not be saved: the welcome
    // then stays, so that nothing the user chose is lost.
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
};

}  // namespace holdenmere::desktop
