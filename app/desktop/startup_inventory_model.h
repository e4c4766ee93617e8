#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/desktop/config_session.h"
#include "app/desktop/desktop_services.h"
#include "core/discovery/startup_entry.h"
#include "core/takeover/startup_actions.h"

namespace holdenmere::desktop {

class BackgroundQueue;

// One row of the inventory as the page shows it.
struct InventoryRow {
    StartupEntry entry;
    StartupActions::RowAction action = StartupActions::RowAction::none;

    QString title() const;        // "{name} — {handle}"
    QString stateText() const;    // "starts at login", "off", "unknown: …"
    QStringList chips() const;    // the tier's short labels
    QString actionText() const;   // "Switch Off", "Switch On", or nothing
    bool needsConfirmation() const { return entry.tier.kind == SafetyTier::Kind::needsConfirmation; }
};

// One source of the inventory: its rows, or why it could not be read, and
// what it could not read or left out.
struct InventorySection {
    StartupSource source = StartupSource::launchdJob;
    QString title;
    std::optional<QString> unreadable;
    QStringList incomplete;
    QStringList notes;
    std::vector<InventoryRow> rows;

    // "{title}: 3 items", or "{title}: unknown — {reason}".
    QString header() const;
};

// The startup inventory on the Startup Items page: every other source
// macOS starts things from, scanned on a worker thread, each row with the
// action the core allows (StartupActions::actionFor), carried out through
// the startup-change engine off the window's thread.
class StartupInventoryModel : public QObject {
    Q_OBJECT

public:
    StartupInventoryModel(ConfigSession& session, DesktopServices& services, QObject* parent = nullptr);
    ~StartupInventoryModel() override;

    bool hasScanned() const { return scanned_; }
    bool isScanning() const { return scanning_; }
    bool isBusy() const { return busy_ > 0; }
    const std::vector<InventorySection>& sections() const { return sections_; }
    const InventoryRow* row(const std::string& id) const;

    // Switch Off or Switch On, as the row allows; `confirmed`: the user
    // accepted the tier's warnings. False when nothing was started.
    bool act(const std::string& id, bool confirmed);

public slots:
    void rescan();

signals:
    void sectionsChanged();
    void busyChanged();
    // An action ended: what it did; `ok` false when something failed or was refused.
    void finished(const QString& text, bool ok);

private:
    void derive();

    ConfigSession& session_;
    DesktopServices& services_;
    std::vector<StartupSourceScan> scans_;
    std::vector<InventorySection> sections_;
    bool scanned_ = false;
    bool scanning_ = false;
    int busy_ = 0;
    std::unique_ptr<BackgroundQueue> queue_;
};

}  // namespace holdenmere::desktop
