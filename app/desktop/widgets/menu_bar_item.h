#pragma once

#include <QObject>

class QAction;
class QMenu;
class QSystemTrayIcon;

namespace holdenmere::desktop {

class ActivityModel;

// Holdenmere in the menu bar (the system tray elsewhere): opening the
// window, the last login's outcome, and quitting.
class MenuBarItem : public QObject {
    Q_OBJECT

public:
    explicit MenuBarItem(ActivityModel& activity, QObject* parent = nullptr);
    ~MenuBarItem() override;

    static bool isAvailable();
    void setVisible(bool visible);
    bool isVisible() const;

    QMenu* menu() const { return menu_; }
    QString summaryText() const;

signals:
    void openRequested();
    void quitRequested();

private:
    void refresh();

    ActivityModel& activity_;
    QMenu* menu_;
    QAction* summary_;
    QSystemTrayIcon* icon_;
};

}  // namespace holdenmere::desktop
