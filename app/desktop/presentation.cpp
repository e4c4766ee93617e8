#include "app/desktop/presentation.h"

#include <QDateTime>
#include <QLocale>
#include <QStringList>

#include <cmath>

namespace holdenmere::desktop::presentation {

QString duration(double seconds) {
    if (seconds < 0) seconds = 0;
    if (seconds < 10) return QStringLiteral("%1 s").arg(seconds, 0, 'f', 1);
    const long long whole = std::llround(seconds);
    if (whole < 60) return QStringLiteral("%1 s").arg(whole);
    const long long minutes = whole / 60;
    const long long rest = whole % 60;
    if (minutes < 60) {
        return rest == 0 ? QStringLiteral("%1 min").arg(minutes) : QStringLiteral("%1 min %2 s").arg(minutes).arg(rest);
    }
    const long long hours = minutes / 60;
    const long long restMinutes = minutes % 60;
    return restMinutes == 0 ? QStringLiteral("%1 h").arg(hours)
                            : QStringLiteral("%1 h %2 min").arg(hours).arg(restMinutes);
}

QString outcomeTitle(LaunchOutcome outcome) {
    switch (outcome) {
        case LaunchOutcome::launched: return QStringLiteral("Opened");
        case LaunchOutcome::alreadyRunning: return QStringLiteral("Already running");
        case LaunchOutcome::missing: return QStringLiteral("Not found");
        case LaunchOutcome::disabled: return QStringLiteral("Not opened");
        case LaunchOutcome::failed: return QStringLiteral("Failed");
    }
    return {};
}

QString passTime(Date when, Date now) {
    const QDateTime moment = QDateTime::fromMSecsSinceEpoch(std::llround(when.unixTime() * 1000.0)).toLocalTime();
    const QDateTime current = QDateTime::fromMSecsSinceEpoch(std::llround(now.unixTime() * 1000.0)).toLocalTime();
    const QLocale locale = QLocale::c();
    const QString time = locale.toString(moment.time(), QStringLiteral("HH:mm"));
    const qint64 days = moment.date().daysTo(current.date());
    if (days == 0) return QStringLiteral("Today %1").arg(time);
    if (days == 1) return QStringLiteral("Yesterday %1").arg(time);
    if (moment.date().year() == current.date().year()) {
        return locale.toString(moment, QStringLiteral("ddd d MMM HH:mm"));
    }
    return locale.toString(moment, QStringLiteral("d MMM yyyy HH:mm"));
}

QString outcomeCounts(const std::array<int, 5>& counts) {
    static const char* const kWords[5] = {"opened", "already running", "not found", "not opened", "failed"};
    QStringList parts;
    for (int index = 0; index < 5; ++index) {
        if (counts[static_cast<std::size_t>(index)] > 0) parts << QStringLiteral("%1 %2").arg(counts[static_cast<std::size_t>(index)]).arg(QLatin1String(kWords[index]));
    }
    return parts.isEmpty() ? QStringLiteral("nothing to open") : parts.join(QStringLiteral(", "));
}

}  // namespace holdenmere::desktop::presentation
