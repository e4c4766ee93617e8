#pragma once

#include <QObject>

#include <memory>

#include "app/desktop/activity_model.h"
#include "app/desktop/add_apps_model.h"
#include "app/desktop/config_session.h"
#include "app/desktop/desktop_preferences.h"
#include "app/desktop/desktop_services.h"
#include "app/desktop/file_watch.h"
#include "app/desktop/held_helpers_model.h"
#include "app/desktop/managed_apps_model.h"
#include "app/desktop/network_test_model.h"
#include "app/desktop/settings_model.h"
#include "app/desktop/startup_inventory_model.h"
#include "app/desktop/startup_items_model.h"

namespace holdenmere::desktop {

// The desktop app's models over one set of services: what the window, the
// menu-bar item and the welcome window share.
class DesktopContext : public QObject {
public:
    DesktopContext(DesktopServices& systemServices, DesktopPreferences& appPreferences, QObject* parent = nullptr)
        : QObject(parent),
          services(systemServices),
          preferences(appPreferences),
          session(systemServices.configStore()),
          managedApps(session, systemServices),
          addApps(session, systemServices),
          activity(systemServices),
          networkTest(session, systemServices),
          settings(session, systemServices),
          startupItems(session, systemServices, appPreferences),
          helpers(session, systemServices),
          inventory(session, systemServices) {
        session.reload();
        // Giving everything back turns the login agent off.
        connect(&startupItems, &StartupItemsModel::loginAgentChanged, &settings, &SettingsModel::refreshLoginAgent);
    }

    // Follows what other processes write: the config is read again and the
    // activity refreshed whenever config.json, history.json or the log change.
    void watchFiles() {
        if (watch_) return;
        watch_ = std::make_unique<FileWatch>(std::vector<std::filesystem::path>{
            services.configStore().url, services.historyStore().url, services.logPath()});
        connect(watch_.get(), &FileWatch::changed, this, [this] {
            session.reload();
            activity.refresh();
        });
    }

    DesktopServices& services;
    DesktopPreferences& preferences;
    ConfigSession session;
    ManagedAppsModel managedApps;
    AddAppsModel addApps;
    ActivityModel activity;
    NetworkTestModel networkTest;
    SettingsModel settings;
    StartupItemsModel startupItems;
    HeldHelpersModel helpers;
    StartupInventoryModel inventory;

private:
    std::unique_ptr<FileWatch> watch_;
};

}  // namespace holdenmere::desktop
