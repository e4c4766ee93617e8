#pragma once

#include <QObject>
#include <QString>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"
#include "core/discovery/launch_agent_scanner.h"
#include "core/launchd/helper_repair.h"
#include "core/takeover/startup_actions.h"

namespace holdenmere::desktop {

class BackgroundQueue;

// The LaunchAgents of app helpers, and those that launchd has switched off
// and that the scanner leaves alone, as one scan (made on a worker thread).
struct HelperScan {
    std::vector<HelperAgent> helpers;
    std::vector<IneligibleStartupItem> disabledIneligible;

    static HelperScan run(LaunchdReading& launchctl, const std::vector<std::filesystem::path>& agentDirectories);
};

// One helper of a managed app, or one Holdenmere holds.
struct HelperRow {
    // How Holdenmere treats it at login: macOS starts it as always, it
    // waits for the network, or it is kept off.
    enum class Mode { notHeld, delay, off };

    std::string label;
    std::string plistPath;
    std::string appBundleIdentifier;
    std::string appName;
    std::string name;  // the helper's own name
    Mode mode = Mode::notHeld;
    bool disabledInLaunchd = false;
    bool found = true;  // the scanner still finds its plist

    // "Starts with macOS", "Waits for the network", "Kept off".
    static QString modeText(Mode mode);
    // "{appName} — {label}", and a note when its plist is gone.
    QString detail() const;
    friend bool operator==(const HelperRow&, const HelperRow&) = default;
};

// The held helpers in Settings: the helpers of managed apps with how each
// is treated at login, changes of that (held off until the network answers,
// kept off, or given back to macOS) made through HelperDelay under the
// startup mutation lock and recorded in the configuration, and the repair of
// helpers an earlier version switched off without a record.
class HeldHelpersModel : public QObject {
    Q_OBJECT

public:
    HeldHelpersModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);
    ~HeldHelpersModel() override;

    bool hasScanned() const { return scanned_; }
    bool isBusy() const { return busy_ > 0; }
    const std::vector<HelperRow>& rows() const { return rows_; }
    const HelperRow* row(const std::string& label) const;

    // Changes how a helper is treated. Holding it until the network answers
    // is refused (with HelperDelayPolicy's text, nothing changed) while the
    // login agent will not run at the next login. False when nothing was
    // started.
    bool setMode(const std::string& label, HelperRow::Mode mode);

    // Helpers of managed apps that are switched off in launchd with no
    // record that explains it: nothing would ever start them.
    const std::vector<HelperRepair::Candidate>& repairCandidates() const { return candidates_; }
    // "Holdenmere earlier switched off 1 helper it cannot start itself —
    // switch it back on?"; empty with nothing to repair.
    QString repairQuestion() const;
    // Switches the candidates back on, each step written to the run log.
    bool repair();

public slots:
    void rescan();

signals:
    void rowsChanged();
    void busyChanged();
    // An action ended: what it did; `ok` false when something failed or was refused.
    void finished(const QString& text, bool ok);

private:
    StartupActions startupActions() const;
    void derive();
    void startAction(std::function<std::pair<std::vector<std::string>, bool>()> work);

    ConfigSession& session_;
    DesktopServices& services_;
    HelperScan scan_;
    bool scanned_ = false;
    bool scanning_ = false;
    bool scanAgain_ = false;
    int busy_ = 0;
    std::vector<HelperRow> rows_;
    std::vector<HelperRepair::Candidate> candidates_;
    std::unique_ptr<BackgroundQueue> queue_;
};

}  // namespace holdenmere::desktop
