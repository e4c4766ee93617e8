#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <map>
#include <set>
#include <memory>
#include <string>
#include <vector>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_preferences.h"
#include "app/desktop/desktop_services.h"
#include "core/takeover/startup_actions.h"
#include "core/takeover/startup_items_listing.h"

namespace holdenmere::desktop {

class BackgroundQueue;

// The rows of the page are the core's listing of a scan under the
// configuration, as it stands.
using StartupItemRow = StartupItemsListing::Offered;
using IneligibleRow = StartupItemsListing::LeftAlone;
using ConflictRow = StartupItemsListing::Conflict;

// "Login Item", "LaunchAgent {label}" or "Background item {identifier}";
// for an app that opens itself at login, that and where to switch it off.
QString sourceText(const StartupItemRow& row);
// A conflict's sources: "Login Item", "LaunchAgent {label}", joined with
// " and ".
QString sourcesText(const ConflictRow& row);

// The Startup Items page: what macOS starts at login, taking single items
// over, ending the conflicts of managed apps, the consent to take startup
// items over at each login, and giving everything back. Scans and changes
// run on a worker thread, so that System Events cannot freeze the window;
// every change of startup state is one of StartupActions, made by the core's
// startup-change engine.
class StartupItemsModel : public QObject {
    Q_OBJECT

public:
    StartupItemsModel(ConfigSession& session, DesktopServices& services, DesktopPreferences& preferences,
                      QObject* parent = nullptr);
    ~StartupItemsModel() override;

    bool hasScanned() const { return scanned_; }
    bool isScanning() const { return scanning_; }
    // An action is running or waiting.
    bool isBusy() const { return busy_ > 0; }

    // Items Holdenmere could take over: not Holdenmere, not managed, not
    // blocked, the first of each app (a Login Item before a LaunchAgent).
    const std::vector<StartupItemRow>& items() const { return listing_.offered; }
    // What Holdenmere leaves alone, a managed app's items first.
    const std::vector<IneligibleRow>& ineligible() const { return listing_.leftAlone; }
    // Managed apps that macOS also starts.
    const std::vector<ConflictRow>& conflicts() const { return listing_.conflicts; }
    // Why the Login Items are missing, or empty.
    QString loginItemsProblem() const;
    // Why the background items are missing or were not saved, or empty.
    QString backgroundItemsProblem() const;
    // Why the LaunchAgents that open apps are missing, or empty.
    QString launchAgentsProblem() const;
    // The background scan has finished; it has finished without a result.
    bool startupDiscoveryCompleted() const { return scanned_; }
    bool startupDiscoveryIncomplete() const { return scanned_ && !scan_.background; }
    // Opens the Login Items pane of System Settings; says so when it cannot.
    void openLoginItemsSettings();

    const StartupItemRow* item(const std::string& bundleIdentifier) const;
    const ConflictRow* conflict(const std::string& bundleIdentifier) const;
    // The refusal of switching an item off, or empty.
    QString refusal(const std::string& bundleIdentifier) const;
    // The warnings to confirm before taking an item over, in order.
    QStringList confirmations(const std::string& bundleIdentifier) const;
    // The warnings of every agent of a conflict that is not refused.
    QStringList conflictConfirmations(const std::string& bundleIdentifier) const;

    // Takes one item over: the app becomes a managed app, the recovery entry
    // is saved, then the Login Item is removed or the LaunchAgent switched off
    // within its safety tier. A refused item, and one that needs
    // confirmation without `confirmed`, change nothing. False when nothing
    // was started.
    bool takeOver(const std::string& bundleIdentifier, bool confirmed);
    // Ends a conflict the same way: each Login Item removed and each
    // LaunchAgent switched off, every entry recorded first. Nothing changes
    // when an agent needs confirmation and `confirmed` is false.
    bool endConflict(const std::string& bundleIdentifier, bool confirmed);

    // Consent to take startup items over at each login.
    StartupConsent consent() const;
    // "Startup take-over: granted. …"
    QString consentText() const;
    // Undecided and not asked on this page yet: the sheet is shown once.
    bool shouldAskConsent() const;
    void markConsentAsked();
    // Granted, with the apps the user leaves to macOS.
    bool grantConsent(const std::vector<std::string>& leftToMacOS);
    bool declineConsent();

    // Gives back everything the ledger records, as --restore-startup does:
    // the opt-out saved first, Login Items and LaunchAgents put back, held
    // helpers released, the login agent turned off.
    bool giveEverythingBack();
    static QString giveBackQuestion();
    static QString giveBackDetail();

public slots:
    void rescan();

signals:
    void rowsChanged();
    void scanningChanged();
    void busyChanged();
    // An action ended: what it did, one line per item; `ok` false when
    // something could not be done.
    void finished(const QString& text, bool ok);
    // Giving everything back ended, with its lines.
    void gaveBack(const QStringList& lines, bool ok);
    // The login agent was switched off by giving everything back.
    void loginAgentChanged();

private:
    StartupActions startupActions() const;
    void adoptScan(StartupScan scan);
    void derive();
    void startAction(std::function<std::pair<QStringList, bool>()> work);
    void endAction(const QStringList& lines, bool ok);

    ConfigSession& session_;
    DesktopServices& services_;
    DesktopPreferences& preferences_;
    StartupScan scan_;
    bool scanned_ = false;
    bool scanning_ = false;
    bool scanAgain_ = false;
    int busy_ = 0;
    StartupItemsListing listing_;
    std::unique_ptr<BackgroundQueue> queue_;
};

}  // namespace holdenmere::desktop
