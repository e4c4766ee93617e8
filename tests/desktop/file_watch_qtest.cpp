#include <QSignalSpy>
#include <QTest>

#include "app/desktop/desktop_context.h"
#include "app/desktop/file_watch.h"
#include "core/support/files.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class FileWatchTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
    }

    void filesThatDoNotExistYetAreNoticedWhenTheyAppear() {
        const auto file = home->path() / "Library/Application Support/Holdenmere/config.json";
        FileWatch watch({file});
        QSignalSpy changed(&watch, &FileWatch::changed);
        files::writeAtomically(file, "{}");
        QTRY_VERIFY_WITH_TIMEOUT(changed.count() >= 1, 5000);
        // A second atomic save replaces the file; it is still followed.
        const int before = static_cast<int>(changed.count());
        files::writeAtomically(file, "{ }");
        QTRY_VERIFY_WITH_TIMEOUT(changed.count() > before, 5000);
    }

    void theWindowFollowsWhatTheLoginPassWrites() {
        HoldenmereConfig config;
        config.apps = {testing::managedApp("Alpha", "a")};
        services->configStore().save(config);
        DesktopPreferences preferences(home->path(), DesktopPreferences::suiteFromEnvironment());
        DesktopContext context(*services, preferences);
        context.watchFiles();
        QCOMPARE(context.managedApps.apps().size(), std::size_t{1});

        // The pass imports an app and records its run.
        config.apps.push_back(testing::managedApp("Beta", "b"));
        services->configStore().save(config);
        services->historyStore().appendOrThrow(
            {LaunchRecord{"a", "Alpha", LaunchOutcome::launched, services->clock().now(), "launched"}});
        QTRY_COMPARE_WITH_TIMEOUT(context.managedApps.apps().size(), std::size_t{2}, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(context.activity.passes().size(), std::size_t{1}, 5000);

        // A file damaged meanwhile shows as damaged, and is left as it is.
        files::writeAtomically(services->configStore().url, "{ damaged");
        QTRY_VERIFY_WITH_TIMEOUT(context.session.isDamaged(), 5000);
        QCOMPARE(files::read(services->configStore().url), std::string("{ damaged"));
    }
};

QTEST_GUILESS_MAIN(FileWatchTest)
#include "file_watch_qtest.moc"
