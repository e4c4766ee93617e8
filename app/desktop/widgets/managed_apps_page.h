#pragma once

#include <QWidget>

#include <string>

#include "app/desktop/managed_apps_model.h"

class QCheckBox;
class QLabel;
class QLayout;
class QListWidget;
class QPushButton;
class QSpinBox;
class QStackedWidget;

namespace holdenmere::desktop {

// The managed apps in launch order, with the selected app's settings beside
// the list, and the switched-off apps below it.
class ManagedAppsPage : public QWidget {
    Q_OBJECT

public:
    explicit ManagedAppsPage(ManagedAppsModel& model, QWidget* parent = nullptr);

    // Selects an app by bundle identifier (for tests and screenshots).
    void select(const std::string& bundleIdentifier);

signals:
    void addAppsRequested();

private:
    // The parts of the page, made in the order they are tabbed through:
    // what shows while nothing is managed, the lists of apps opened and
    // switched off, the selected app's details; then their signals.
    QWidget* makeEmptyView();
    QLayout* makeLists(QWidget* content);
    QWidget* makeDetails(QWidget* content);
    void connectControls();
    // Asks before the selected app is removed.
    void confirmRemove();
    void rebuild();
    void showSelection();
    std::string selectedApp() const;
    std::string selectedSwitchedOff() const;
    void onRowsDropped();

    ManagedAppsModel& model_;
    QLabel* warning_;
    QStackedWidget* body_;
    QListWidget* apps_;
    QListWidget* switchedOff_;
    QLabel* switchedOffTitle_;
    QWidget* details_;
    QLabel* name_;
    QLabel* path_;
    QLabel* missing_;
    QCheckBox* hidden_;
    QCheckBox* delayed_;
    QSpinBox* delay_;
    QPushButton* up_;
    QPushButton* down_;
    QPushButton* switchOff_;
    QPushButton* remove_;
    QPushButton* switchOn_;
    QPushButton* forget_;
    bool rebuilding_ = false;
};

}  // namespace holdenmere::desktop
