#include "app/desktop/add_apps_model.h"

#include <algorithm>

namespace holdenmere::desktop {
namespace {

QString text(const std::string& value) { return QString::fromStdString(value); }

QString addedNotice(const std::vector<std::string>& names) {
    if (names.empty()) return {};
    if (names.size() == 1) {
        return QStringLiteral("%1 now opens once the network answers.").arg(text(names.front()));
    }
    return QStringLiteral("%1 apps now open once the network answers.").arg(names.size());
}

}  // namespace

AddAppsModel::AddAppsModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent), session_(session), services_(services) {
    connect(&session_, &ConfigSession::changed, this, &AddAppsModel::arrange);
}

void AddAppsModel::rescan() {
    installed_ = services_.installedApps();
    scanned_ = true;
    arrange();
}

void AddAppsModel::setQuery(const QString& query) {
    if (query == query_) return;
    query_ = query;
    arrange();
}

void AddAppsModel::arrange() {
    choices_ = AppSuggestions::arrange(installed_, session_.config(), query_.toStdString());
    emit choicesChanged();
}

std::vector<AppChoice> AddAppsModel::suggestions() const {
    return AppSuggestions::suggestions(installed_, session_.config());
}

int AddAppsModel::add(const std::vector<std::string>& bundleIdentifiers) {
    std::vector<InstalledApp> apps;
    for (const std::string& identifier : bundleIdentifiers) {
        auto it = std::find_if(installed_.begin(), installed_.end(),
                               [&](const InstalledApp& app) { return app.bundleIdentifier == identifier; });
        if (it != installed_.end()) apps.push_back(*it);
    }
    int added = 0;
    std::vector<std::string> names;
    session_.change([&](HoldenmereConfig& config) {
        names.clear();
        for (const InstalledApp& app : apps) {
            if (AppSuggestions::add(config, {app}) == 1) names.push_back(app.name);
        }
        added = static_cast<int>(names.size());
        return added > 0;
    });
    if (added > 0) emit notice(addedNotice(names));
    return added;
}

bool AddAppsModel::addBundle(const std::filesystem::path& path) {
    const InstalledApp app = services_.readBundle(path);
    if (!app.hasInfoPlist || app.bundleIdentifier.empty()) {
        emit notice(QStringLiteral("%1 has no bundle identifier, so Holdenmere cannot open it at login.")
                        .arg(text(app.name)));
        return false;
    }
    if (app.bundleIdentifier == AppSuggestions::kOwnBundleIdentifier) {
        emit notice(QStringLiteral("Holdenmere runs at every login already; it does not need to open itself."));
        return false;
    }
    bool alreadyManaged = false;
    bool added = false;
    session_.change([&](HoldenmereConfig& config) {
        alreadyManaged = AppSuggestions::markOf(app, config) == AppChoice::Mark::managed;
        added = AppSuggestions::add(config, {app}) == 1;
        return added;
    });
    if (alreadyManaged) {
        emit notice(QStringLiteral("%1 is already in your list.").arg(text(app.name)));
        return false;
    }
    if (added) emit notice(addedNotice({app.name}));
    return added;
}

}  // namespace holdenmere::desktop
