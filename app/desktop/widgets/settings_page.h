#pragma once

#include <QWidget>

#include "app/desktop/settings_model.h"

class QCheckBox;
class QDoubleSpinBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QRadioButton;
class QSpinBox;

namespace holdenmere::desktop {

// The gate's settings, Start at login (the login agent, its status and
// launchd's warnings), opening at login, held helpers (a panel set with
// setHelpersPanel()) and where Holdenmere shows itself.
class SettingsPage : public QWidget {
    Q_OBJECT

public:
    explicit SettingsPage(SettingsModel& model, QWidget* parent = nullptr);

    QWidget* startAtLoginRow() const { return startAtLoginRow_; }
    QWidget* helpersRow() const { return helpersRow_; }
    // Puts the held-helpers panel under the helpers' summary.
    void setHelpersPanel(QWidget* panel);

    QCheckBox* startAtLoginBox() const { return startAtLogin_; }
    QString startAtLoginWarningText() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    // The page's groups, made in the order they are tabbed through: at
    // login, the network check, where Holdenmere shows; then the signals of
    // their controls.
    QWidget* makeLoginGroup(QWidget* content);
    QWidget* makeNetworkGroup(QWidget* content);
    QWidget* makePresenceGroup(QWidget* content);
    void connectControls();
    void refresh();

    SettingsModel& model_;
    QWidget* startAtLoginRow_;
    QCheckBox* startAtLogin_;
    QLabel* startAtLoginDetail_;
    QLabel* startAtLoginWarning_;
    QLabel* offWarning_;
    QCheckBox* gateEnabled_;
    QCheckBox* launchAnyway_;
    QCheckBox* openAtLogin_;
    QLabel* openAtLoginDetail_;
    QWidget* helpersRow_;
    QLabel* helpers_;
    QLineEdit* probeURL_;
    QDoubleSpinBox* interval_;
    QSpinBox* attempts_;
    QLabel* worstCase_;
    QRadioButton* menuBar_;
    QRadioButton* dock_;
    bool refreshing_ = false;
};

}  // namespace holdenmere::desktop
