#pragma once

#include <QMap>
#include <QWidget>

#include "app/desktop/onboarding_flow.h"

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace holdenmere::desktop {

// The first-run window over an OnboardingFlow. The welcome and the choice
// of apps are built in; the pages of the other steps (switching the login
// agent on, startup take-over consent) are supplied with setStepPage().
class OnboardingWindow : public QWidget {
    Q_OBJECT

public:
    explicit OnboardingWindow(OnboardingFlow& flow, QWidget* parent = nullptr);

    void setStepPage(OnboardingFlow::Step step, QWidget* page);

    QPushButton* primaryButton() const { return primary_; }
    QListWidget* suggestionList() const { return suggestions_; }

signals:
    // The user finished or skipped the welcome.
    void done();

private:
    void showStep();
    void fillSuggestions();
    void primary();
    QWidget* pageFor(OnboardingFlow::Step step) const;

    OnboardingFlow& flow_;
    QStackedWidget* stack_ = nullptr;
    QMap<int, QWidget*> pages_;
    QListWidget* suggestions_ = nullptr;
    QLabel* noSuggestions_ = nullptr;
    QLabel* problem_ = nullptr;
    QPushButton* back_ = nullptr;
    QPushButton* skip_ = nullptr;
    QPushButton* primary_ = nullptr;
    bool filled_ = false;
};

}  // namespace holdenmere::desktop
