#pragma once

#include <QWidget>

#include <string>

#include "app/desktop/startup_inventory_model.h"

class QLabel;
class QPushButton;
class QVBoxLayout;

namespace holdenmere::desktop {

// Everything else macOS starts, on the Startup Items page: a section per
// source with its rows (state, tier chips, and the Switch Off or Switch On
// the row allows), what could not be read and what was left out, and what
// the last switch did. A switch whose tier warns asks first.
class StartupInventoryPanel : public QWidget {
    Q_OBJECT

public:
    explicit StartupInventoryPanel(StartupInventoryModel& model, QWidget* parent = nullptr);

    // The row's button, by the row's id ("launchdJob:local.job").
    QPushButton* buttonFor(const std::string& id) const;
    // Every text the panel shows, one line each (for tests and screen readers).
    QString shownText() const;
    QString messageText() const;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void rebuild();
    void switchRow(const std::string& id);

    StartupInventoryModel& model_;
    QWidget* sections_;
    QVBoxLayout* sectionsLayout_;
    QLabel* scanning_;
    QLabel* message_;
};

}  // namespace holdenmere::desktop
