#include "app/desktop/managed_apps_model.h"

#include <algorithm>
#include <cmath>

#include "core/config/managed_app_changes.h"
#include "core/gate/open_at_login.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere::desktop {
namespace {

QString name(const std::string& text) { return QString::fromStdString(text); }

}  // namespace

ManagedAppsModel::ManagedAppsModel(ConfigSession& session, DesktopServices& services, QObject* parent)
    : QObject(parent), session_(session), services_(services) {
    connect(&session_, &ConfigSession::changed, this, &ManagedAppsModel::refresh);
    refresh();
}

void ManagedAppsModel::refresh() {
    const HoldenmereConfig& config = session_.config();
    auto row = [this](const std::string& identifier, const std::string& appName, const std::string& path) {
        ManagedAppRow result;
        result.bundleIdentifier = identifier;
        result.name = appName;
        result.path = path;
        result.missing = !services_.bundleExists(path);
        if (!result.missing) result.iconPath = services_.readBundle(path).iconPath;
        return result;
    };
    std::vector<ManagedAppRow> apps;
    std::vector<ManagedAppRow> off;
    for (const BlockedApp& blocked : config.blockedApps) {
        ManagedAppRow result = row(blocked.bundleIdentifier, blocked.name, blocked.path);
        result.switchedOff = true;
        off.push_back(std::move(result));
    }
    for (const ManagedApp& app : config.apps) {
        ManagedAppRow result = row(app.bundleIdentifier, app.name, app.path);
        result.launchHidden = app.launchHidden;
        result.delaySeconds = app.launchMode() == ManagedApp::LaunchMode::delayed
                                  ? static_cast<int>(std::lround(app.delay(ManagedApp::LaunchMode::delayed)))
                                  : 0;
        result.switchedOff = !app.isEnabled;
        (app.isEnabled ? apps : off).push_back(std::move(result));
    }
    if (apps == apps_ && off == switchedOff_) return;
    apps_ = std::move(apps);
    switchedOff_ = std::move(off);
    emit rowsChanged();
}

QString ManagedAppsModel::offWarning() const {
    auto warning = OpenAtLogin::offWarning(services_.loginAgentStatus());
    return warning ? QString::fromUtf8(warning->data(), static_cast<qsizetype>(warning->size())) : QString();
}

QString ManagedAppsModel::removeHelp(const std::string& bundleIdentifier) const {
    const HoldenmereConfig& config = session_.config();
    auto app = std::find_if(config.apps.begin(), config.apps.end(),
                            [&](const ManagedApp& candidate) { return candidate.bundleIdentifier == bundleIdentifier; });
    if (app == config.apps.end()) return {};
    if (ManagedAppChanges::takenOver(config, *app)) return name(LoginOwnership::removeHelp(app->name));
    return QStringLiteral("Holdenmere will no longer open it at login. You can add it again at any time.");
}

bool ManagedAppsModel::move(const std::string& bundleIdentifier, int toIndex) {
    return session_.change(
        [&](HoldenmereConfig& config) { return ManagedAppChanges::move(config, bundleIdentifier, toIndex); });
}

bool ManagedAppsModel::moveUp(const std::string& bundleIdentifier) {
    for (std::size_t index = 0; index < apps_.size(); ++index) {
        if (apps_[index].bundleIdentifier == bundleIdentifier) {
            return index > 0 && move(bundleIdentifier, static_cast<int>(index) - 1);
        }
    }
    return false;
}

bool ManagedAppsModel::moveDown(const std::string& bundleIdentifier) {
    for (std::size_t index = 0; index < apps_.size(); ++index) {
        if (apps_[index].bundleIdentifier == bundleIdentifier) {
            return index + 1 < apps_.size() && move(bundleIdentifier, static_cast<int>(index) + 1);
        }
    }
    return false;
}

bool ManagedAppsModel::setLaunchHidden(const std::string& bundleIdentifier, bool hidden) {
    return session_.change(
        [&](HoldenmereConfig& config) { return ManagedAppChanges::setLaunchHidden(config, bundleIdentifier, hidden); });
}

bool ManagedAppsModel::setDelayed(const std::string& bundleIdentifier, bool delayed) {
    return session_.change(
        [&](HoldenmereConfig& config) { return ManagedAppChanges::setDelayed(config, bundleIdentifier, delayed); });
}

bool ManagedAppsModel::setDelay(const std::string& bundleIdentifier, int seconds) {
    return session_.change(
        [&](HoldenmereConfig& config) { return ManagedAppChanges::setDelay(config, bundleIdentifier, seconds); });
}

bool ManagedAppsModel::switchOff(const std::string& bundleIdentifier) {
    std::optional<std::string> appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        appName = ManagedAppChanges::switchOff(config, bundleIdentifier);
        return appName.has_value();
    });
    if (done && !appName->empty()) emit notice(name(LoginOwnership::removedMessage(*appName)));
    return done;
}

bool ManagedAppsModel::switchOn(const std::string& bundleIdentifier) {
    std::optional<std::string> appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        appName = ManagedAppChanges::switchOn(config, bundleIdentifier);
        return appName.has_value();
    });
    if (done && !appName->empty()) {
        emit notice(QStringLiteral("%1 starts again once the network answers.").arg(name(*appName)));
    }
    return done;
}

bool ManagedAppsModel::remove(const std::string& bundleIdentifier) {
    std::optional<std::string> appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        appName = ManagedAppChanges::remove(config, bundleIdentifier);
        return appName.has_value();
    });
    if (done && !appName->empty()) emit notice(QStringLiteral("Holdenmere no longer opens %1.").arg(name(*appName)));
    return done;
}

}  // namespace holdenmere::desktop
