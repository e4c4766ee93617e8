#include "app/desktop/managed_apps_model.h"

#include <algorithm>
#include <cmath>

#include "core/gate/open_at_login.h"
#include "core/takeover/login_ownership.h"

namespace holdenmere::desktop {
namespace {

using Apps = std::vector<ManagedApp>;

Apps::iterator findApp(Apps& apps, const std::string& identifier) {
    return std::find_if(apps.begin(), apps.end(),
                        [&](const ManagedApp& app) { return app.bundleIdentifier == identifier; });
}

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
    // What macOS started it with was switched off for Holdenmere: removing
    // the app does not give that back.
    const bool takenOver =
        config.takeover(bundleIdentifier) != nullptr || app->importedFromLoginItem || app->importedFromStartup;
    if (takenOver) return name(LoginOwnership::removeHelp(app->name));
    return QStringLiteral("Holdenmere will no longer open it at login. You can add it again at any time.");
}

int ManagedAppsModel::clampedDelay(int seconds) {
    const int stepped = (seconds + kDelayStep - 1) / kDelayStep * kDelayStep;
    return std::clamp(stepped, kMinDelay, kMaxDelay);
}

bool ManagedAppsModel::move(const std::string& bundleIdentifier, int toIndex) {
    return session_.change([&](HoldenmereConfig& config) {
        auto it = findApp(config.apps, bundleIdentifier);
        if (it == config.apps.end()) return false;
        // Positions count the enabled apps the page shows; switched-off apps
        // that stay in the list keep their places among them.
        std::vector<std::size_t> shown;
        for (std::size_t index = 0; index < config.apps.size(); ++index) {
            if (config.apps[index].isEnabled) shown.push_back(index);
        }
        if (shown.empty() || !it->isEnabled) return false;
        const std::size_t target = shown[static_cast<std::size_t>(
            std::clamp(toIndex, 0, static_cast<int>(shown.size()) - 1))];
        const std::size_t from = static_cast<std::size_t>(it - config.apps.begin());
        if (from == target) return false;
        ManagedApp moving = std::move(*it);
        config.apps.erase(it);
        config.apps.insert(config.apps.begin() + static_cast<std::ptrdiff_t>(target), std::move(moving));
        return true;
    });
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
    return session_.change([&](HoldenmereConfig& config) {
        auto it = findApp(config.apps, bundleIdentifier);
        if (it == config.apps.end() || it->launchHidden == hidden) return false;
        it->launchHidden = hidden;
        return true;
    });
}

bool ManagedAppsModel::setDelayed(const std::string& bundleIdentifier, bool delayed) {
    return session_.change([&](HoldenmereConfig& config) {
        auto it = findApp(config.apps, bundleIdentifier);
        if (it == config.apps.end()) return false;
        const double wanted =
            delayed ? clampedDelay(static_cast<int>(std::lround(it->delay(ManagedApp::LaunchMode::delayed)))) : 0.0;
        if (it->delaySeconds == wanted) return false;
        it->delaySeconds = wanted;
        return true;
    });
}

bool ManagedAppsModel::setDelay(const std::string& bundleIdentifier, int seconds) {
    return session_.change([&](HoldenmereConfig& config) {
        auto it = findApp(config.apps, bundleIdentifier);
        if (it == config.apps.end()) return false;
        const double wanted = clampedDelay(seconds);
        if (it->delaySeconds == wanted) return false;
        it->delaySeconds = wanted;
        return true;
    });
}

bool ManagedAppsModel::switchOff(const std::string& bundleIdentifier) {
    std::string appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        // Kept, marked off: the next login pass moves it to the blocked list
        // itself, and so knows it was switched off here rather than never
        // added.
        auto it = findApp(config.apps, bundleIdentifier);
        if (it == config.apps.end() || !it->isEnabled) return false;
        appName = it->name;
        it->isEnabled = false;
        return true;
    });
    if (done && !appName.empty()) emit notice(name(LoginOwnership::removedMessage(appName)));
    return done;
}

bool ManagedAppsModel::switchOn(const std::string& bundleIdentifier) {
    std::string appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        auto kept = findApp(config.apps, bundleIdentifier);
        if (kept != config.apps.end()) {
            if (kept->isEnabled) return false;
            kept->isEnabled = true;
            appName = kept->name;
        }
        auto blocked = std::find_if(config.blockedApps.begin(), config.blockedApps.end(),
                                    [&](const BlockedApp& app) { return app.bundleIdentifier == bundleIdentifier; });
        if (blocked != config.blockedApps.end()) {
            if (kept == config.apps.end()) {
                ManagedApp app;
                app.bundleIdentifier = blocked->bundleIdentifier;
                app.name = blocked->name;
                app.path = blocked->path;
                config.apps.push_back(std::move(app));
            }
            appName = blocked->name;
            config.blockedApps.erase(blocked);
        }
        return !appName.empty();
    });
    if (done && !appName.empty()) {
        emit notice(QStringLiteral("%1 starts again once the network answers.").arg(name(appName)));
    }
    return done;
}

bool ManagedAppsModel::remove(const std::string& bundleIdentifier) {
    std::string appName;
    const bool done = session_.change([&](HoldenmereConfig& config) {
        auto it = findApp(config.apps, bundleIdentifier);
        if (it != config.apps.end()) {
            appName = it->name;
            config.apps.erase(it);
        }
        auto blocked = std::find_if(config.blockedApps.begin(), config.blockedApps.end(),
                                    [&](const BlockedApp& app) { return app.bundleIdentifier == bundleIdentifier; });
        if (blocked != config.blockedApps.end()) {
            if (appName.empty()) appName = blocked->name;
            config.blockedApps.erase(blocked);
        }
        return !appName.empty();
    });
    if (done && !appName.empty()) emit notice(QStringLiteral("Holdenmere no longer opens %1.").arg(name(appName)));
    return done;
}

}  // namespace holdenmere::desktop
