#include <QSignalSpy>
#include <QTest>

#include <ctime>

#include "app/desktop/activity_model.h"
#include "app/desktop/presentation.h"
#include "core/support/files.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

// 2026-03-01 08:15:00 UTC.
constexpr double kMorning = 794045700.0;

LaunchRecord record(const std::string& identifier, LaunchOutcome outcome, double at, std::string detail = {}) {
    return LaunchRecord{identifier, "App " + identifier, outcome, Date{at}, std::move(detail)};
}

std::vector<std::size_t> sizes(const std::vector<LoginPass>& passes) {
    std::vector<std::size_t> result;
    for (const auto& pass : passes) result.push_back(pass.records.size());
    return result;
}

using Sizes = std::vector<std::size_t>;

}  // namespace

class ActivityModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;

private slots:
    void initTestCase() {
        // Times are shown in local time; these tests read them in UTC.
        qputenv("TZ", "UTC");
        tzset();
    }

    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
    }

    void readsTheHistoryNewestFirst() {
        services->historyStore().appendOrThrow({record("a", LaunchOutcome::launched, kMorning)});
        services->historyStore().appendOrThrow({record("a", LaunchOutcome::failed, kMorning + 86400, "open failed")});
        ActivityModel model(*services);
        QCOMPARE(sizes(model.passes()), (Sizes{1, 1}));
        QCOMPARE(model.passes()[0].records[0].outcome, LaunchOutcome::failed);
        QVERIFY(model.historyProblem().isEmpty());
        // The fake clock stands at 2026-03-01 08:31:40 UTC (uptime 1000 s).
        QCOMPARE(model.lastPassSummary(), QStringLiteral("Last login Mon 2 Mar 08:15: 1 failed"));
    }

    void aDamagedHistoryIsReportedNotHidden() {
        files::writeAtomically(services->historyStore().url, "{}");
        ActivityModel model(*services);
        QVERIFY(model.passes().empty());
        QVERIFY(model.historyProblem().startsWith(QStringLiteral("Could not read run history: ")));
        QCOMPARE(model.lastPassSummary(), QStringLiteral("No login recorded yet"));
    }

    void lastLoginConflictsComeFromTheLog() {
        ActivityModel model(*services);
        QCOMPARE(model.lastLoginText(), QStringLiteral("No login pass in the log yet."));

        files::writeAtomically(services->logPath(),
                               "[2026-03-01T08:15:02Z] network reachable after 1 attempt(s) in 0.1s [v0.1.0]\n"
                               "[Holdenmere] CONFLICT: Driftmail \u2014 in Login Items\n"
                               "[Holdenmere] CONFLICT: Teamtalk \u2014 in Login Items\n");
        QSignalSpy changed(&model, &ActivityModel::changed);
        model.refresh();
        QCOMPARE(changed.count(), 1);
        QCOMPARE(model.lastLoginText(),
                 QStringLiteral("At the last login (2026-03-01T08:15:02Z) macOS started these apps before the "
                                "network: Driftmail, Teamtalk."));

        files::writeAtomically(services->logPath(),
                               "[2026-03-02T08:15:02Z] network UNREACHABLE after 60 attempt(s) in 210.0s [v0.1.0]\n");
        model.refresh();
        QCOMPARE(model.lastLoginText(),
                 QStringLiteral("At the last login (2026-03-02T08:15:02Z) macOS started none of your apps before "
                                "the network."));
    }

    void durations() {
        QCOMPARE(presentation::duration(0.42), QStringLiteral("0.4 s"));
        QCOMPARE(presentation::duration(12.4), QStringLiteral("12 s"));
        QCOMPARE(presentation::duration(120), QStringLiteral("2 min"));
        QCOMPARE(presentation::duration(210), QStringLiteral("3 min 30 s"));
        QCOMPARE(presentation::duration(3900), QStringLiteral("1 h 5 min"));
        QCOMPARE(presentation::duration(-1), QStringLiteral("0.0 s"));
    }

    void passTimesAreRelativeToNow() {
        const Date now{kMorning + 3600};
        QCOMPARE(presentation::passTime(Date{kMorning}, now), QStringLiteral("Today 08:15"));
        QCOMPARE(presentation::passTime(Date{kMorning - 86400}, now), QStringLiteral("Yesterday 08:15"));
        QCOMPARE(presentation::passTime(Date{kMorning - 5 * 86400}, now), QStringLiteral("Tue 24 Feb 08:15"));
        QCOMPARE(presentation::passTime(Date{kMorning - 400 * 86400}, now), QStringLiteral("25 Jan 2025 08:15"));
    }

    void outcomeWords() {
        QCOMPARE(presentation::outcomeCounts({3, 0, 0, 0, 1}), QStringLiteral("3 opened, 1 failed"));
        QCOMPARE(presentation::outcomeCounts({0, 1, 1, 1, 0}),
                 QStringLiteral("1 already running, 1 not found, 1 not opened"));
        QCOMPARE(presentation::outcomeCounts({0, 0, 0, 0, 0}), QStringLiteral("nothing to open"));
        QCOMPARE(presentation::outcomeTitle(LaunchOutcome::alreadyRunning), QStringLiteral("Already running"));
        QCOMPARE(presentation::outcomeTitle(LaunchOutcome::missing), QStringLiteral("Not found"));
    }
};

QTEST_GUILESS_MAIN(ActivityModelTest)
#include "activity_model_qtest.moc"
