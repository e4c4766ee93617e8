#pragma once

#include <QObject>
#include <QString>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"

namespace holdenmere::desktop {

// The Settings page: the gate's settings, where Holdenmere shows itself,
// opening at login, and the rows about the login agent and held helpers.
class SettingsModel : public QObject {
    Q_OBJECT

public:
    SettingsModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);

    const GateSettings& settings() const { return session_.config().settings; }

    // False, with a notice, for text that is no absolute URL.
    bool setProbeURL(const QString& url);
    bool resetProbeURL();
    // Clamped to 0.5 ... 60 s.
    bool setPollInterval(double seconds);
    // Clamped to 1 ... 600.
    bool setMaxAttempts(int attempts);
    bool setLaunchAnywayOnTimeout(bool on);
    bool setGateEnabled(bool on);
    bool setMenuBarMode(bool on);
    bool setOpenAppAtLogin(bool on);

    // "Waits at most 3 min 30 s for the network at each login."
    QString worstCaseText() const;
    // The line under the open-at-login switch.
    QString openAtLoginDetail() const;

    // The login agent row.
    HoldenmereLoginAgentStatus loginAgentStatus() const;
    QString loginAgentDetail() const;
    bool canChangeStartAtLogin() const;
    bool setStartAtLogin(bool on);

    // The held-helpers row: "No helpers are held." or how many wait for the network.
    QString helpersSummary() const;

signals:
    void changed();
    void notice(const QString& text);

private:
    bool changeSettings(const std::function<void(GateSettings&)>& edit);

    ConfigSession& session_;
    DesktopServices& services_;
};

}  // namespace holdenmere::desktop
