#include "app/desktop/activity_model.h"

#include <QStringList>

#include "app/desktop/presentation.h"

namespace holdenmere::desktop {

ActivityModel::ActivityModel(DesktopServices& services, QObject* parent) : QObject(parent), services_(services) {
    refresh();
}

void ActivityModel::refresh() {
    try {
        passes_ = LoginPasses::group(services_.historyStore().loadOrThrow());
        historyProblem_.clear();
    } catch (const HistoryStoreError& error) {
        passes_.clear();
        historyProblem_ = QString::fromStdString(error.what());
    }
    lastLogin_ = LastLoginConflicts::read(services_.logPath());
    emit changed();
}

QString ActivityModel::lastLoginText() const {
    if (!lastLogin_) return QStringLiteral("No login pass in the log yet.");
    const QString stamp = QString::fromStdString(lastLogin_->stamp);
    if (lastLogin_->conflicts.empty()) {
        return QStringLiteral("At the last login (%1) macOS started none of your apps before the network.").arg(stamp);
    }
    QStringList names;
    for (const std::string& name : lastLogin_->conflicts) names << QString::fromStdString(name);
    return QStringLiteral("At the last login (%1) macOS started %2 before the network: %3.")
        .arg(stamp, names.size() == 1 ? QStringLiteral("this app") : QStringLiteral("these apps"),
             names.join(QStringLiteral(", ")));
}

QString ActivityModel::passHeading(const LoginPass& pass) const {
    return presentation::passTime(pass.started(), services_.clock().now());
}

QString ActivityModel::lastPassSummary() const {
    if (passes_.empty()) return QStringLiteral("No login recorded yet");
    const LoginPass& pass = passes_.front();
    return QStringLiteral("Last login %1: %2").arg(passHeading(pass), presentation::outcomeCounts(pass.counts()));
}

}  // namespace holdenmere::desktop
