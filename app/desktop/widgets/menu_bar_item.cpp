#include "app/desktop/widgets/menu_bar_item.h"

#include <QAction>
#include <QMenu>
#include <QSystemTrayIcon>

#include "app/desktop/activity_model.h"
#include "app/desktop/app_icons.h"

namespace holdenmere::desktop {

MenuBarItem::MenuBarItem(ActivityModel& activity, QObject* parent)
    : QObject(parent), activity_(activity), menu_(new QMenu()), icon_(new QSystemTrayIcon(this)) {
    menu_->addAction(QStringLiteral("Open Holdenmere"), this, &MenuBarItem::openRequested);
    menu_->addSeparator();
    summary_ = menu_->addAction(QString());
    summary_->setEnabled(false);
    menu_->addSeparator();
    menu_->addAction(QStringLiteral("Quit Holdenmere"), this, &MenuBarItem::quitRequested);
    icon_->setIcon(icons::menuBar());
    icon_->setToolTip(QStringLiteral("Holdenmere"));
    icon_->setContextMenu(menu_);
    // The menu shows the newest pass each time it opens.
    connect(menu_, &QMenu::aboutToShow, &activity_, &ActivityModel::refresh);
    connect(&activity_, &ActivityModel::changed, this, &MenuBarItem::refresh);
#ifndef __APPLE__
    // Elsewhere a click on the tray icon opens the window; on macOS it opens the menu.
    connect(icon_, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger) emit openRequested();
    });
#endif
    refresh();
}

MenuBarItem::~MenuBarItem() { delete menu_; }

bool MenuBarItem::isAvailable() { return QSystemTrayIcon::isSystemTrayAvailable(); }

void MenuBarItem::setVisible(bool visible) { icon_->setVisible(visible); }

bool MenuBarItem::isVisible() const { return icon_->isVisible(); }

QString MenuBarItem::summaryText() const { return summary_->text(); }

void MenuBarItem::refresh() { summary_->setText(activity_.lastPassSummary()); }

}  // namespace holdenmere::desktop
