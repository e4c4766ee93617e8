#include "app/desktop/onboarding_flow.h"

#include <algorithm>

#include "core/gate/open_at_login.h"

namespace holdenmere::desktop {

std::vector<OnboardingFlow::Step> OnboardingFlow::defaultSteps() {
    return {Step::welcome, Step::chooseApps, Step::startAtLogin, Step::startupConsent};
}

QString OnboardingFlow::introduction() {
    return QStringLiteral(
        "macOS opens your login apps before Wi-Fi has joined, so apps that sign in or sync come up offline and fail. "
        "Holdenmere waits until the network really answers, then opens the apps you choose, in your order.");
}

OnboardingFlow::OnboardingFlow(AddAppsModel& apps, DesktopPreferences& preferences, std::vector<Step> steps,
                               QObject* parent)
    : QObject(parent), apps_(apps), preferences_(preferences), steps_(std::move(steps)) {
    if (steps_.empty()) steps_ = defaultSteps();
}

void OnboardingFlow::next() {
    if (isLast()) return;
    ++index_;
    emit stepChanged();
}

void OnboardingFlow::back() {
    if (!canGoBack()) return;
    --index_;
    emit stepChanged();
}

const std::vector<AppChoice>& OnboardingFlow::suggestions() {
    if (!loaded_) {
        if (!apps_.hasScanned()) apps_.rescan();
        suggestions_ = apps_.suggestions();
        loaded_ = true;
    }
    return suggestions_;
}

void OnboardingFlow::setChosen(const std::string& bundleIdentifier, bool chosen) {
    if (chosen) {
        chosen_.insert(bundleIdentifier);
    } else {
        chosen_.erase(bundleIdentifier);
    }
}

void OnboardingFlow::setLoginAgent(SettingsModel* settings) {
    settings_ = settings;
    startAtLoginWanted_ = settings_ != nullptr && OpenAtLogin::shouldEnableAfterWelcome(settings_->loginAgentStatus());
}

void OnboardingFlow::setStartupItems(StartupItemsModel* startupItems) { startupItems_ = startupItems; }

bool OnboardingFlow::startAtLoginAlreadyOn() const {
    return settings_ != nullptr && runsAtLogin(settings_->loginAgentStatus());
}

void OnboardingFlow::setLeftToMacOS(const std::string& bundleIdentifier, bool left) {
    if (left) {
        leftToMacOS_.insert(bundleIdentifier);
    } else {
        leftToMacOS_.erase(bundleIdentifier);
    }
}

bool OnboardingFlow::finish() {
    std::vector<std::string> identifiers;
    for (const AppChoice& choice : suggestions()) {
        if (chosen_.count(choice.app.bundleIdentifier) > 0) identifiers.push_back(choice.app.bundleIdentifier);
    }
    if (!identifiers.empty() && apps_.add(identifiers) == 0) {
        // Nothing was added: either all were added meanwhile, or the save failed.
        for (const AppChoice& choice : apps_.suggestions()) {
            if (chosen_.count(choice.app.bundleIdentifier) > 0) return false;
        }
    }
    const auto hasStep = [this](Step step) { return std::find(steps_.begin(), steps_.end(), step) != steps_.end(); };
    if (startupItems_ && hasStep(Step::startupConsent)) {
        switch (consent_) {
            case Consent::grant:
                startupItems_->grantConsent(std::vector<std::string>(leftToMacOS_.begin(), leftToMacOS_.end()));
                break;
            case Consent::decline: startupItems_->declineConsent(); break;
            case Consent::none: break;
        }
    }
    // Last: the login agent is switched on a worker thread that holds the
    // startup mutation lock, which the consent's save must not run into.
    if (settings_ && hasStep(Step::startAtLogin) && startAtLoginWanted_ && !startAtLoginAlreadyOn()) {
        settings_->setStartAtLogin(true);
    }
    preferences_.setOnboardingDone(true);
    emit completed();
    return true;
}

void OnboardingFlow::skip() {
    preferences_.setOnboardingDone(true);
    emit completed();
}

}  // namespace holdenmere::desktop
