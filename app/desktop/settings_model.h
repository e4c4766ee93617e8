#pragma once

#include <QObject>
#include <QString>

#include <memory>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"

namespace holdenmere::desktop {

class BackgroundQueue;

// The Settings page: the gate's settings, where Holdenmere shows itself,
// opening at login, and the rows about the login agent and held helpers.
class SettingsModel : public QObject {
    Q_OBJECT

public:
    SettingsModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);
    ~SettingsModel() override;

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

    // The login agent row. The status is asked of launchd when the model is
    // made, when refreshLoginAgent() is called (the page does on showing)
    // and after each change.
    HoldenmereLoginAgentStatus loginAgentStatus() const { return loginAgent_; }
    // The status's sentence ("Installed and loaded — runs at every login.").
    QString loginAgentDetail() const;
    // launchd's refusal to load the agent at the last install, or empty.
    QString loginAgentWarning() const { return loginAgentWarning_; }
    // While the agent will not run at the next login and apps are managed:
    // "Holdenmere won't run at your next login, so these apps start before
    // the network."; empty otherwise.
    QString offWarning() const;
    bool canChangeStartAtLogin() const;
    // Installs (on) or removes (off) the login agent on a worker thread,
    // once no other change of startup items is running. When it ends the
    // status is asked again, `changed` and `startAtLoginSwitched` are
    // emitted, and a failure is also sent as a notice.
    void setStartAtLogin(bool on);
    // A switch is running or waiting; what the last one asked for.
    bool isSwitchingStartAtLogin() const { return switching_ > 0; }
    bool startAtLoginWanted() const { return wanted_; }
    // Asks launchd again; `changed` when the status is not what it was.
    void refreshLoginAgent();
    // Run when the app starts: brings an existing agent's plist up to date.
    // "Could not update the Holdenmere login agent: {description}" (also sent
    // as a notice) when that failed; empty otherwise.
    QString updateLoginAgent();
    static QString updateFailureText(const QString& description);

    // The held-helpers row: "No helpers are held." or how many wait for the network.
    QString helpersSummary() const;

signals:
    void changed();
    void notice(const QString& text);
    // Switching the login agent ended; `ok` false when it failed.
    void startAtLoginSwitched(bool ok);

private:
    bool changeSettings(const std::function<void(GateSettings&)>& edit);
    void endStartAtLogin(const LoginAgentSwitch& outcome);

    ConfigSession& session_;
    DesktopServices& services_;
    HoldenmereLoginAgentStatus loginAgent_;
    QString loginAgentWarning_;
    int switching_ = 0;
    bool wanted_ = false;
    // Raised when the model goes, so that a switch waiting for the startup
    // mutation lock gives up; the worker goes before it.
    std::unique_ptr<Signal> closing_;
    std::unique_ptr<BackgroundQueue> queue_;
};

}  // namespace holdenmere::desktop
