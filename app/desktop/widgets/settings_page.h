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

// The gate's settings, opening at login, and where Holdenmere shows itself.
// The "Start at login" and "Held helpers" rows are containers whose contents
// the login-agent and helper screens may replace (startAtLoginRow(),
// helpersRow()).
class SettingsPage : public QWidget {
    Q_OBJECT

public:
    explicit SettingsPage(SettingsModel& model, QWidget* parent = nullptr);

    QWidget* startAtLoginRow() const { return startAtLoginRow_; }
    QWidget* helpersRow() const { return helpersRow_; }

protected:
    void showEvent(QShowEvent* event) override;

private:
    void refresh();

    SettingsModel& model_;
    QWidget* startAtLoginRow_;
    QCheckBox* startAtLogin_;
    QLabel* startAtLoginDetail_;
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
