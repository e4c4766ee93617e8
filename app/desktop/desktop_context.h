#pragma once

#include <QObject>

#include "app/desktop/activity_model.h"
#include "app/desktop/add_apps_model.h"
#include "app/desktop/config_session.h"
#include "app/desktop/desktop_preferences.h"
#include "app/desktop/desktop_services.h"
#include "app/desktop/managed_apps_model.h"
#include "app/desktop/network_test_model.h"
#include "app/desktop/settings_model.h"

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
          settings(session, systemServices) {
        session.reload();
    }

    DesktopServices& services;
    DesktopPreferences& preferences;
    ConfigSession session;
    ManagedAppsModel managedApps;
    AddAppsModel addApps;
    ActivityModel activity;
    NetworkTestModel networkTest;
    SettingsModel settings;
};

}  // namespace holdenmere::desktop
