#pragma once

#include <QMainWindow>
#include <QString>

#include "app/desktop/desktop_context.h"

class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;

namespace holdenmere::desktop {

class ActivityPage;
class AddAppsPage;
class ManagedAppsPage;
class SettingsPage;
class StartupItemsPage;

// The main window: a sidebar of pages, a banner for problems with the
// settings file, and a status line for what a change did. Further pages
// can be added with addPage() at their place in the sidebar.
class MainWindow : public QMainWindow {
    Q_OBJECT

public:
    // The built-in pages, in sidebar order.
    enum class Page { managedApps, addApps, startupItems, activity, settings };
    // Where the startup-items page goes: after Add Apps.
    static constexpr int kStartupItemsPosition = 2;

    explicit MainWindow(DesktopContext& context, QWidget* parent = nullptr);

    // Inserts a page into the sidebar at `position` (-1: at the end) and
    // returns its index.
    int addPage(const QString& title, const QIcon& icon, QWidget* page, int position = -1);
    void showPage(Page page);
    void showPageAt(int index);
    int pageCount() const;
    QWidget* pageAt(int index) const;
    QString pageTitle(int index) const;
    int indexOf(Page page) const;

    ManagedAppsPage* managedAppsPage() const { return managedApps_; }
    AddAppsPage* addAppsPage() const { return addApps_; }
    ActivityPage* activityPage() const { return activity_; }
    SettingsPage* settingsPage() const { return settings_; }
    StartupItemsPage* startupItemsPage() const { return startupItems_; }

    // The line in the status bar; a problem stays until dismissed.
    void showNotice(const QString& text);
    void showProblem(const QString& text);
    QString problemText() const;

    // Replaces a damaged settings file (once confirmed) and says how that
    // went: a notice, or a problem when records of the ledger were lost.
    void startFromDefaults();

signals:
    void quitRequested();

protected:
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void showDamage();
    void confirmStartFromDefaults();
    void showLog();

    DesktopContext& context_;
    QListWidget* sidebar_;
    QStackedWidget* pages_;
    QWidget* damageBanner_;
    QLabel* damageText_;
    QWidget* problemBanner_;
    QLabel* problemText_;
    ManagedAppsPage* managedApps_;
    AddAppsPage* addApps_;
    ActivityPage* activity_;
    SettingsPage* settings_;
    StartupItemsPage* startupItems_;
};

}  // namespace holdenmere::desktop
