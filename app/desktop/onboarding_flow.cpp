#include "app/desktop/onboarding_flow.h"

namespace holdenmere::desktop {

std::vector<OnboardingFlow::Step> OnboardingFlow::defaultSteps() { return {Step::welcome, Step::chooseApps}; }

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
    preferences_.setOnboardingDone(true);
    emit completed();
    return true;
}

void OnboardingFlow::skip() {
    preferences_.setOnboardingDone(true);
    emit completed();
}

}  // namespace holdenmere::desktop
