#include <QSignalSpy>
#include <QTest>

#include "app/desktop/settings_model.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class SettingsModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<SettingsModel> model;

    GateSettings saved() const { return services->configStore().load().settings; }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<SettingsModel>(*session, *services);
    }

    void probeAddressMustBeAFullURL() {
        QSignalSpy notices(model.get(), &SettingsModel::notice);
        QVERIFY(!model->setProbeURL(QStringLiteral("just words")));
        QCOMPARE(notices.count(), 1);
        QVERIFY(notices.at(0).at(0).toString().startsWith(QStringLiteral("Enter a full web address")));
        QVERIFY(!std::filesystem::exists(services->configStore().url));
        QVERIFY(model->setProbeURL(QStringLiteral("  http://192.168.1.1/ok  ")));
        QCOMPARE(saved().probeURL, std::string("http://192.168.1.1/ok"));
        QVERIFY(model->resetProbeURL());
        QCOMPARE(saved().probeURL, std::string(GateSettings::kDefaultProbeURL));
    }

    void numbersAreClampedAsTheStoreClampsThem() {
        QVERIFY(model->setPollInterval(0.1));
        QCOMPARE(saved().pollInterval, 0.5);
        QVERIFY(model->setPollInterval(300));
        QCOMPARE(saved().pollInterval, 60.0);
        QVERIFY(model->setMaxAttempts(0));
        QCOMPARE(saved().maxAttempts, std::int64_t{1});
        QVERIFY(model->setMaxAttempts(100000));
        QCOMPARE(saved().maxAttempts, std::int64_t{600});
    }

    void switchesAreSaved() {
        QSignalSpy changed(model.get(), &SettingsModel::changed);
        QVERIFY(model->setLaunchAnywayOnTimeout(false));
        QVERIFY(model->setGateEnabled(false));
        QVERIFY(model->setMenuBarMode(true));
        QVERIFY(model->setOpenAppAtLogin(true));
        GateSettings settings = saved();
        QVERIFY(!settings.launchAnywayOnTimeout);
        QVERIFY(!settings.isEnabled);
        QVERIFY(settings.menuBarMode);
        QVERIFY(settings.openAppAtLogin);
        QCOMPARE(changed.count(), 4);
        QCOMPARE(model->settings(), settings);
    }

    void worstCase() {
        QCOMPARE(model->worstCaseText(), QStringLiteral("Waits at most 3 min 30 s for the network at each login."));
        model->setMaxAttempts(2);
        QCOMPARE(model->worstCaseText(), QStringLiteral("Waits at most 7.0 s for the network at each login."));
    }

    void openAtLoginDetailFollowsTheAgentAndThePresence() {
        QCOMPARE(model->openAtLoginDetail(), QStringLiteral("Opens quietly in the Dock once your apps have started."));
        model->setMenuBarMode(true);
        QCOMPARE(model->openAtLoginDetail(),
                 QStringLiteral("Opens quietly in the menu bar once your apps have started."));
        services->loginAgent = HoldenmereLoginAgentStatus::notInstalled;
        // The status is asked again when the page shows.
        QSignalSpy changed(model.get(), &SettingsModel::changed);
        model->refreshLoginAgent();
        QCOMPARE(changed.count(), 1);
        model->refreshLoginAgent();
        QCOMPARE(changed.count(), 1);
        QCOMPARE(model->openAtLoginDetail(), QStringLiteral("Needs Start at login above."));
        QCOMPARE(model->loginAgentDetail(),
                 QStringLiteral("Not installed \u2014 Holdenmere will not run at login."));
    }

    void startAtLoginGoesThroughTheServices() {
        QSignalSpy notices(model.get(), &SettingsModel::notice);
        QVERIFY(!model->canChangeStartAtLogin());
        QVERIFY(!testing::switchStartAtLogin(*model, true));
        QCOMPARE(notices.count(), 1);

        services->startAtLoginChangeable = true;
        services->loginAgent = HoldenmereLoginAgentStatus::notInstalled;
        QVERIFY(testing::switchStartAtLogin(*model, true));
        QCOMPARE(services->startAtLoginRequests, std::vector<bool>{true});
        QCOMPARE(model->loginAgentStatus(), HoldenmereLoginAgentStatus::activeAtLogin);
    }

    void heldHelpers() {
        QCOMPARE(model->helpersSummary(), QStringLiteral("No helpers of your apps are held."));
        HoldenmereConfig config;
        config.delayedHelpers = {{"l1", "/p1", "a", "One", DelayedHelper::Mode::delay},
                                 {"l2", "/p2", "a", "Two", DelayedHelper::Mode::delay},
                                 {"l3", "/p3", "b", "Three", DelayedHelper::Mode::off}};
        services->configStore().save(config);
        session->reload();
        QCOMPARE(model->helpersSummary(), QStringLiteral("2 helpers wait for the network, 1 is kept off."));
        config.delayedHelpers.erase(config.delayedHelpers.begin(), config.delayedHelpers.begin() + 2);
        services->configStore().save(config);
        session->reload();
        QCOMPARE(model->helpersSummary(), QStringLiteral("1 helper is kept off."));
    }
};

QTEST_GUILESS_MAIN(SettingsModelTest)
#include "settings_model_qtest.moc"
