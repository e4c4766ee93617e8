#pragma once

#include <QObject>
#include <QString>

#include <filesystem>
#include <string>
#include <vector>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"
#include "core/apps/app_suggestions.h"

namespace holdenmere::desktop {

// The Add apps page: the installed apps, suggestions first, searched and
// marked against the configuration, and adding them.
class AddAppsModel : public QObject {
    Q_OBJECT

public:
    AddAppsModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);

    // Reads the Applications folders again.
    void rescan();
    bool hasScanned() const { return scanned_; }

    void setQuery(const QString& query);
    const QString& query() const { return query_; }

    // The installed apps matching the query, suggestions first.
    const std::vector<AppChoice>& choices() const { return choices_; }
    // The suggestions alone, whatever the query (for the welcome window).
    std::vector<AppChoice> suggestions() const;

    // Adds the installed apps with these identifiers, in the order given.
    int add(const std::vector<std::string>& bundleIdentifiers);
    // Adds a bundle the user picked anywhere on disk. False, with a notice
    // saying why, when it is no app Holdenmere can start.
    bool addBundle(const std::filesystem::path& path);

signals:
    void choicesChanged();
    void notice(const QString& text);

private:
    void arrange();

    ConfigSession& session_;
    DesktopServices& services_;
    std::vector<InstalledApp> installed_;
    std::vector<AppChoice> choices_;
    QString query_;
    bool scanned_ = false;
};

}  // namespace holdenmere::desktop
