#include <QSignalSpy>
#include <QTest>

#include "app/desktop/managed_apps_model.h"
#include "core/takeover/login_ownership.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

std::vector<std::string> identifiers(const std::vector<ManagedAppRow>& rows) {
    std::vector<std::string> result;
    for (const auto& row : rows) result.push_back(row.bundleIdentifier);
    return result;
}

std::vector<std::string> identifiers(const std::vector<ManagedApp>& apps) {
    std::vector<std::string> result;
    for (const auto& app : apps) result.push_back(app.bundleIdentifier);
    return result;
}

using Ids = std::vector<std::string>;

}  // namespace

class ManagedAppsModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<ManagedAppsModel> model;

    HoldenmereConfig saved() const { return services->configStore().load(); }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        HoldenmereConfig config;
        config.apps = {testing::managedApp("Alpha", "a"), testing::managedApp("Beta", "b"),
                       testing::managedApp("Gamma", "c")};
        config.apps[1].launchHidden = true;
        config.apps[2].delaySeconds = 12;
        services->configStore().save(config);
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<ManagedAppsModel>(*session, *services);
    }

    void rowsInLaunchOrderWithTheirSettings() {
        QCOMPARE(identifiers(model->apps()), (Ids{"a", "b", "c"}));
        QCOMPARE(model->apps()[0].delaySeconds, 0);
        QVERIFY(model->apps()[1].launchHidden);
        QCOMPARE(model->apps()[2].delaySeconds, 12);
        QVERIFY(model->switchedOff().empty());
    }

    void aMissingBundleIsShownAsSuch() {
        services->missing.insert("/Applications/Beta.app");
        InstalledApp alpha = testing::installedApp("Alpha", "a");
        alpha.iconPath = "/Applications/Alpha.app/Contents/Resources/AppIcon.icns";
        services->installed.push_back(alpha);
        model->refresh();
        QVERIFY(!model->apps()[0].missing);
        QCOMPARE(model->apps()[0].iconPath, alpha.iconPath);
        QVERIFY(model->apps()[1].missing);
        QCOMPARE(model->apps()[1].iconPath, std::nullopt);
    }

    void reorderingIsSaved() {
        QVERIFY(model->move("c", 0));
        QCOMPARE(identifiers(saved().apps), (Ids{"c", "a", "b"}));
        QCOMPARE(identifiers(model->apps()), (Ids{"c", "a", "b"}));
        QVERIFY(model->moveDown("c"));
        QCOMPARE(identifiers(saved().apps), (Ids{"a", "c", "b"}));
        QVERIFY(model->moveUp("b"));
        QCOMPARE(identifiers(saved().apps), (Ids{"a", "b", "c"}));
        QVERIFY(!model->moveUp("a"));
        QVERIFY(!model->moveDown("c"));
        QVERIFY(model->move("a", 99));
        QCOMPARE(identifiers(saved().apps), (Ids{"b", "c", "a"}));
        QVERIFY(!model->move("nobody", 0));
    }

    void openHiddenIsSaved() {
        QVERIFY(model->setLaunchHidden("a", true));
        QVERIFY(saved().apps[0].launchHidden);
        QVERIFY(model->setLaunchHidden("a", false));
        QVERIFY(!saved().apps[0].launchHidden);
    }

    void delaysAreSaved() {
        QVERIFY(model->setDelayed("a", true));
        QCOMPARE(saved().apps[0].delaySeconds, 5.0);
        QCOMPARE(model->apps()[0].delaySeconds, 5);
        QVERIFY(model->setDelay("a", 12));
        QCOMPARE(saved().apps[0].delaySeconds, 15.0);
        QVERIFY(model->setDelayed("a", false));
        QCOMPARE(model->apps()[0].delaySeconds, 0);
    }

    void switchingOffKeepsTheAppMarkedOffForTheNextPass() {
        QSignalSpy notices(model.get(), &ManagedAppsModel::notice);
        QVERIFY(model->switchOff("b"));
        HoldenmereConfig config = saved();
        QCOMPARE(identifiers(config.apps), (Ids{"a", "b", "c"}));
        QVERIFY(!config.apps[1].isEnabled);
        QVERIFY(config.blockedApps.empty());
        QCOMPARE(identifiers(model->apps()), (Ids{"a", "c"}));
        QCOMPARE(identifiers(model->switchedOff()), (Ids{"b"}));
        QVERIFY(model->switchedOff()[0].switchedOff);
        QCOMPARE(notices.at(0).at(0).toString(), QStringLiteral("Beta will not start at login."));
        QVERIFY(!model->switchOff("b"));

        const auto migration = LoginOwnership::migrate(config, {});
        QCOMPARE(migration.movedToBlocked.size(), std::size_t{1});
        QCOMPARE(migration.logLines,
                 (std::vector<std::string>{
                     "blocked: Beta \xE2\x80\x94 was switched off in Holdenmere; it does not start at login"}));
        QCOMPARE(migration.config.blockedApps.size(), std::size_t{1});
        QCOMPARE(migration.config.blockedApps[0].path, std::string("/Applications/Beta.app"));
        std::set<std::string> switchedOff;
        for (const auto& app : migration.movedToBlocked) switchedOff.insert(app.bundleIdentifier);
        LoginOwnership::LoginItem loginItem{"Beta", "/Applications/Beta.app", "b", false};
        const auto plan =
            LoginOwnership::plan({loginItem}, migration.config.apps, migration.config.blockedApps, {}, switchedOff, {});
        QCOMPARE(plan.logLines,
                 (std::vector<std::string>{"blocked: Beta \xE2\x80\x94 was switched off in Holdenmere but macOS still "
                                           "started it from Login Items; its Login Item is removed"}));

        // Switched on again, it keeps its place.
        QVERIFY(model->switchOn("b"));
        config = saved();
        QCOMPARE(identifiers(config.apps), (Ids{"a", "b", "c"}));
        QVERIFY(config.apps[1].isEnabled);
        QVERIFY(!model->switchOn("b"));
    }

    void switchingOnABlockedAppAddsItAtTheEnd() {
        HoldenmereConfig config = saved();
        config.blockedApps.push_back({"d", "Delta", "/Applications/Delta.app"});
        services->configStore().save(config);
        session->reload();
        QCOMPARE(identifiers(model->switchedOff()), (Ids{"d"}));
        QVERIFY(model->switchOn("d"));
        config = saved();
        QCOMPARE(identifiers(config.apps), (Ids{"a", "b", "c", "d"}));
        QVERIFY(config.apps[3].isEnabled);
        QVERIFY(config.blockedApps.empty());
    }

    void removingForgetsTheApp() {
        QVERIFY(model->switchOff("b"));
        QSignalSpy notices(model.get(), &ManagedAppsModel::notice);
        QVERIFY(model->remove("a"));
        QVERIFY(model->remove("b"));
        HoldenmereConfig config = saved();
        QCOMPARE(identifiers(config.apps), (Ids{"c"}));
        QVERIFY(config.blockedApps.empty());
        QCOMPARE(notices.at(0).at(0).toString(), QStringLiteral("Holdenmere no longer opens Alpha."));
        QVERIFY(!model->remove("a"));
    }

    void removingATakenOverAppSaysItsStartIsNotGivenBack() {
        QCOMPARE(model->removeHelp("a"),
                 QStringLiteral("Holdenmere will no longer open it at login. You can add it again at any time."));
        HoldenmereConfig config = saved();
        config.recordLoginItem("a", "Alpha", RemovedLoginItem{"/Applications/Alpha.app", false});
        services->configStore().save(config);
        session->reload();
        QCOMPARE(model->removeHelp("a"), QString::fromStdString(LoginOwnership::removeHelp("Alpha")));
        QVERIFY(model->removeHelp("a").contains(QStringLiteral("Alpha will not start at login")));
        QVERIFY(model->removeHelp("unknown").isEmpty());
    }

    void offWarningFollowsTheLoginAgent() {
        QCOMPARE(model->offWarning(), QString());
        services->loginAgent = HoldenmereLoginAgentStatus::disabled;
        QCOMPARE(model->offWarning(),
                 QStringLiteral("Holdenmere won't run at your next login, so these apps start before the network."));
    }

    void changesMadeElsewhereShowAfterTheNextRead() {
        HoldenmereConfig config = saved();
        config.apps.push_back(testing::managedApp("Delta", "d"));
        services->configStore().save(config);
        QSignalSpy rows(model.get(), &ManagedAppsModel::rowsChanged);
        QVERIFY(model->setLaunchHidden("a", true));
        QCOMPARE(identifiers(model->apps()), (Ids{"a", "b", "c", "d"}));
        QCOMPARE(rows.count(), 1);
    }
};

QTEST_GUILESS_MAIN(ManagedAppsModelTest)
#include "managed_apps_model_qtest.moc"
