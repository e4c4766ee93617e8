#pragma once

#include <QWidget>

#include "app/desktop/onboarding_flow.h"

class QCheckBox;
class QLabel;
class QListWidget;
class QRadioButton;

namespace holdenmere::desktop {

// The welcome's step that switches the login agent on.
class StartAtLoginStepPage : public QWidget {
    Q_OBJECT

public:
    explicit StartAtLoginStepPage(OnboardingFlow& flow, QWidget* parent = nullptr);

    QCheckBox* checkBox() const { return box_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();

    OnboardingFlow& flow_;
    QCheckBox* box_;
    QLabel* state_;
};

// The welcome's step that asks for consent to take startup items over,
// listing the apps found (unticked ones are left to macOS).
class StartupConsentStepPage : public QWidget {
    Q_OBJECT

public:
    explicit StartupConsentStepPage(OnboardingFlow& flow, QWidget* parent = nullptr);

    QRadioButton* grantButton() const { return grant_; }
    QRadioButton* declineButton() const { return decline_; }
    QListWidget* list() const { return list_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void fill();

    OnboardingFlow& flow_;
    QRadioButton* grant_;
    QRadioButton* decline_;
    QListWidget* list_;
    QLabel* empty_;
};

}  // namespace holdenmere::desktop
