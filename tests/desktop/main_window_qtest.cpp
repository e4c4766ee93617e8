#include <QCheckBox>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include <ctime>

#include "app/desktop/desktop_app.h"
#include "app/desktop/desktop_context.h"
#include "app/desktop/widgets/main_window.h"
#include "app/desktop/widgets/managed_apps_page.h"
#include "app/desktop/widgets/menu_bar_item.h"
#include "app/desktop/widgets/onboarding_window.h"
#include "app/desktop/widgets/startup_items_page.h"
#include "core/support/files.h"
#include "core/takeover/startup_mutation_lock.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class MainWindowTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<DesktopPreferences> preferences;

    std::unique_ptr<DesktopContext> context() {
        return std::make_unique<DesktopContext>(*services, *preferences);
    }

private slots:
    void initTestCase() {
        // Times are shown in local time; these tests read them in UTC.
        qputenv("TZ", "UTC");
        tzset();
    }

    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        preferences = std::make_unique<DesktopPreferences>(home->path(), DesktopPreferences::suiteFromEnvironment());
        HoldenmereConfig config;
        config.apps = {testing::managedApp("Alpha", "a"), testing::managedApp("Beta", "b")};
        services->configStore().save(config);
    }

    void pagesInSidebarOrderWithStartupItemsAfterAddApps() {
        auto shared = context();
        MainWindow window(*shared);
        QCOMPARE(window.pageCount(), 5);
        QCOMPARE(window.pageTitle(0), QStringLiteral("Managed Apps"));
        QCOMPARE(window.pageTitle(MainWindow::kStartupItemsPosition), QStringLiteral("Startup Items"));
        QCOMPARE(window.indexOf(MainWindow::Page::startupItems), MainWindow::kStartupItemsPosition);
        QCOMPARE(window.pageAt(MainWindow::kStartupItemsPosition), static_cast<QWidget*>(window.startupItemsPage()));
        QCOMPARE(window.pageTitle(4), QStringLiteral("Settings"));
        auto* extra = new QLabel(QStringLiteral("another page"));
        QCOMPARE(window.addPage(QStringLiteral("Extra"), QIcon(), extra, 3), 3);
        QCOMPARE(window.indexOf(MainWindow::Page::activity), 4);
        window.showPage(MainWindow::Page::settings);
        QCOMPARE(window.indexOf(MainWindow::Page::settings), 5);
    }

    void aDamagedConfigShowsTheBannerAndLocksThePages() {
        files::writeAtomically(services->configStore().url, "{ damaged");
        auto shared = context();
        MainWindow window(*shared);
        window.show();
        QVERIFY(shared->session.isDamaged());
        QVERIFY(!window.pageAt(window.indexOf(MainWindow::Page::managedApps))->isEnabled());
        QVERIFY(window.pageAt(window.indexOf(MainWindow::Page::activity))->isEnabled());
        window.startFromDefaults();
        QVERIFY(window.pageAt(window.indexOf(MainWindow::Page::managedApps))->isEnabled());
        const std::string copy = services->configStore().url.string() + ".damaged";
        QCOMPARE(files::read(copy), std::string("{ damaged"));
        // Nothing of the ledger could be read: that stays in view.
        QCOMPARE(window.problemText(),
                 QStringLiteral("Started from defaults. The records of what Holdenmere switched off could not be "
                                "read; they are kept in %1.")
                     .arg(QString::fromStdString(copy)));
    }

    void aFailedChangeIsShownAsAProblem() {
        auto shared = context();
        MainWindow window(*shared);
        window.show();
        auto lease = StartupMutationLock(services->configStore().url).acquire(false);
        shared->managedApps.setLaunchHidden("a", true);
        QCOMPARE(window.problemText(), ConfigSession::lockBusyText());
    }

    void theManagedAppsPageSavesThroughItsModel() {
        auto shared = context();
        MainWindow window(*shared);
        window.show();
        window.managedAppsPage()->select("b");
        auto* hidden = window.managedAppsPage()->findChild<QCheckBox*>();
        QVERIFY(hidden != nullptr);
        QCOMPARE(hidden->text(), QStringLiteral("Open hidden"));
        hidden->click();
        QVERIFY(services->configStore().load().apps[1].launchHidden);
        QVERIFY(!services->configStore().load().apps[0].launchHidden);
    }

    void theMenuBarItemSaysHowTheLastLoginWent() {
        services->historyStore().appendOrThrow(
            {LaunchRecord{"a", "Alpha", LaunchOutcome::launched, services->clock().now(), "launched"}});
        auto shared = context();
        MenuBarItem item(shared->activity);
        QCOMPARE(item.summaryText(), QStringLiteral("Last login Today 08:31: 1 opened"));
        QSignalSpy open(&item, &MenuBarItem::openRequested);
        item.menu()->actions().first()->trigger();
        QCOMPARE(open.count(), 1);
    }

    void firstStartShowsTheWelcomeThenTheWindow() {
        auto shared = context();
        DesktopApp app(*shared, /*openedQuietly=*/false);
        app.start();
        QVERIFY(app.welcome() != nullptr);
        QVERIFY(app.welcome()->isVisible());
        QVERIFY(!app.window()->isVisible());
        for (QPushButton* button : app.welcome()->findChildren<QPushButton*>()) {
            if (button->text() == QStringLiteral("Skip")) button->click();
        }
        QVERIFY(app.window()->isVisible());
        QVERIFY(!OnboardingFlow::shouldShow(*preferences));

        // The next start goes straight to the window.
        auto again = context();
        DesktopApp second(*again, false);
        second.start();
        QVERIFY(second.welcome() == nullptr);
        QVERIFY(second.window()->isVisible());
    }

    void aQuietStartRaisesNoWindowWhenTheAppCanBeReachedOtherwise() {
        preferences->setOnboardingDone(false);
        auto shared = context();
        DesktopApp app(*shared, /*openedQuietly=*/true);
        app.start();
        QVERIFY(app.welcome() == nullptr);
        // Without a tray or a Dock (as on the offscreen platform) the window is the only way in.
        QCOMPARE(app.window()->isVisible(), !app.presence().menuBarItem && !app.presence().dockIcon);
    }
};

QTEST_MAIN(MainWindowTest)
#include "main_window_qtest.moc"
