#pragma once

#include <QObject>
#include <QString>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"
#include "core/config/managed_app_changes.h"

namespace holdenmere::desktop {

// One row of the Managed apps page.
struct ManagedAppRow {
    std::string bundleIdentifier;
    std::string name;
    std::string path;
    bool switchedOff = false;  // on the blocked list, or kept but not enabled
    bool launchHidden = false;
    int delaySeconds = 0;      // 0: opens as soon as the network answers
    bool missing = false;      // nothing at the path any more
    std::optional<std::filesystem::path> iconPath;

    friend bool operator==(const ManagedAppRow&, const ManagedAppRow&) = default;
};

// The managed apps in launch order and the switched-off ones, and every
// change the page makes to them. Apps are named by bundle identifier, since
// each change reads the file afresh and positions may have moved.
class ManagedAppsModel : public QObject {
    Q_OBJECT

public:
    ManagedAppsModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);

    // In launch order.
    const std::vector<ManagedAppRow>& apps() const { return apps_; }
    // Blocked apps, then managed apps that are kept but not enabled.
    const std::vector<ManagedAppRow>& switchedOff() const { return switchedOff_; }

    // Shown above the list when the login pass will not run at the next login.
    QString offWarning() const;

    bool move(const std::string& bundleIdentifier, int toIndex);
    bool moveUp(const std::string& bundleIdentifier);
    bool moveDown(const std::string& bundleIdentifier);
    bool setLaunchHidden(const std::string& bundleIdentifier, bool hidden);
    // On: the stored delay, or 5 s when none; off: opens at once.
    bool setDelayed(const std::string& bundleIdentifier, bool delayed);
    // Rounded to a 5-second step within 5 ... 40 s.
    bool setDelay(const std::string& bundleIdentifier, int seconds);
    // The app stays, switched off: it is not started, and the next login
    // pass moves it to the blocked list (it is then not offered either).
    bool switchOff(const std::string& bundleIdentifier);
    // Back to the end of the launch order, enabled.
    bool switchOn(const std::string& bundleIdentifier);
    // Gone from both lists.
    bool remove(const std::string& bundleIdentifier);
    // What the question before removing an app explains: for an app whose
    // Login Item or LaunchAgent Holdenmere switched off, that removing it
    // does not give that back.
    QString removeHelp(const std::string& bundleIdentifier) const;

public slots:
    void refresh();

signals:
    void rowsChanged();
    // A sentence for the status line after a change ("Driftmail will not start at login.").
    void notice(const QString& text);

private:
    ConfigSession& session_;
    DesktopServices& services_;
    std::vector<ManagedAppRow> apps_;
    std::vector<ManagedAppRow> switchedOff_;
};

}  // namespace holdenmere::desktop
