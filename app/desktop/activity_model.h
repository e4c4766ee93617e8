#pragma once

#include <QObject>
#include <QString>

#include <optional>
#include <vector>

#include "app/desktop/desktop_services.h"
#include "core/config/login_passes.h"
#include "core/config/last_login_conflicts.h"

namespace holdenmere::desktop {

// The Activity page: what the login passes did, from the run history, and
// what macOS started before the network at the last login, from the log.
class ActivityModel : public QObject {
    Q_OBJECT

public:
    explicit ActivityModel(DesktopServices& services, QObject* parent = nullptr);

    // Newest first.
    const std::vector<LoginPass>& passes() const { return passes_; }
    // "Could not read run history: ..." when the file is damaged; empty otherwise.
    const QString& historyProblem() const { return historyProblem_; }
    const std::optional<LastLoginConflicts::Reading>& lastLogin() const { return lastLogin_; }

    // A sentence on the last login's conflicts.
    QString lastLoginText() const;
    // One line on the newest pass, for the menu-bar item.
    QString lastPassSummary() const;
    QString passHeading(const LoginPass& pass) const;

public slots:
    void refresh();

signals:
    void changed();

private:
    DesktopServices& services_;
    std::vector<LoginPass> passes_;
    QString historyProblem_;
    std::optional<LastLoginConflicts::Reading> lastLogin_;
};

}  // namespace holdenmere::desktop
