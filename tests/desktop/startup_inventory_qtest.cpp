#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "app/desktop/startup_inventory_model.h"
#include "app/desktop/widgets/startup_inventory_panel.h"
#include "tests/desktop/startup_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

// The startup inventory on the Startup Items page: the sections the core
// scanned, each row's state, chips and action, and the switch carried out
// through the engine, recorded before launchd is changed.
class StartupInventoryTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::WatchedServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<StartupInventoryModel> model;
    const std::string photos = "launchdJob:local.photos.sync";

    bool scanned() {
        QSignalSpy spy(model.get(), &StartupInventoryModel::sectionsChanged);
        model->rescan();
        return spy.wait(10000) && model->hasScanned();
    }

    testing::ActionEnd act(const std::string& id) {
        QSignalSpy finished(model.get(), &StartupInventoryModel::finished);
        QSignalSpy rescanned(model.get(), &StartupInventoryModel::sectionsChanged);
        if (!model->act(id, true)) return {};
        auto end = testing::waitForAction(finished);
        while (model->isScanning() || rescanned.isEmpty()) {
            if (!rescanned.wait(10000)) return {};
        }
        return end;
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::WatchedServices>(home->path());
        const std::string sync = testing::writeApp(home->path(), "Sync", "com.example.sync");
        testing::writeAgent(home->path(), "local.photos.sync", "/usr/local/bin/photos-sync");
        testing::writeAgent(home->path(), "com.example.sync.helper", sync + "/Contents/MacOS/SyncHelper");
        services->configStore().save(HoldenmereConfig{});
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<StartupInventoryModel>(*session, *services);
        QVERIFY(scanned());
    }

    void cleanup() {
        model.reset();
        session.reset();
    }

    void everySourceIsASectionAndNoneIsSilentlyEmpty() {
        const auto& sections = model->sections();
        QCOMPARE(sections.size(), kAllStartupSources.size());
        // The fake launchd lists no services and this machine has no
        // systemextensionsctl: ServiceManagement is unknown, with the reasons.
        QVERIFY(sections[0].unreadable.has_value());
        QVERIFY(sections[0].header().contains(QStringLiteral("unknown")));
        QVERIFY(sections[0].incomplete.join(QLatin1Char('\n')).contains(QStringLiteral("systemextensionsctl list could not be read")));
        QCOMPARE(sections[1].header(), QStringLiteral("Other launchd jobs: 2 items"));
        // No pluginkit on this machine: unknown, with the reason.
        QVERIFY(sections[2].header().startsWith(QStringLiteral("App extensions: unknown \u2014 pluginkit -mAD -vvv: ")));

        const InventoryRow* row = model->row(photos);
        QVERIFY(row != nullptr);
        QCOMPARE(row->title(), QStringLiteral("local.photos.sync \u2014 local.photos.sync"));
        QCOMPARE(row->stateText(), QStringLiteral("starts at login"));
        QCOMPARE(row->chips(), QStringList{QStringLiteral("asks first")});
        QCOMPARE(row->actionText(), QStringLiteral("Switch Off"));
        const InventoryRow* helper = model->row("launchdJob:com.example.sync.helper");
        QVERIFY(helper != nullptr);
        QCOMPARE(helper->chips(), QStringList{QStringLiteral("refused: Can't switch off: helper inside Sync.")});
        QVERIFY(helper->actionText().isEmpty());

        StartupInventoryPanel panel(*model);
        QVERIFY(panel.buttonFor(photos) != nullptr);
        QCOMPARE(panel.buttonFor(photos)->text(), QStringLiteral("Switch Off"));
        QVERIFY(panel.buttonFor("launchdJob:com.example.sync.helper") == nullptr);
        QVERIFY(panel.shownText().contains(QStringLiteral("Could not read: systemextensionsctl list could not be read")));
    }

    void switchingOffRecordsFirstAndSwitchingOnGivesItBack() {
        std::optional<HoldenmereConfig> atDisable;
        services->watched.beforeChange = [&](const std::vector<std::string>& arguments) {
            if (arguments[0] == "disable") atDisable = services->configStore().load();
        };
        auto end = act(photos);
        QVERIFY2(end.ok, qPrintable(end.text));
        QCOMPARE(end.text, QStringLiteral("local.photos.sync \u2014 local.photos.sync is switched off; Holdenmere "
                                          "switches it off again at each login."));
        QVERIFY(atDisable.has_value());
        QCOMPARE(atDisable->heldStartup.size(), std::size_t{1});
        QCOMPARE(atDisable->heldStartup[0].previous, std::string("startsAtLogin"));
        QVERIFY(services->fakeLaunchctl.disabled.count("local.photos.sync") == 1);
        QCOMPARE(model->row(photos)->stateText(), QStringLiteral("off"));
        QCOMPARE(model->row(photos)->actionText(), QStringLiteral("Switch On"));

        end = act(photos);
        QVERIFY2(end.ok, qPrintable(end.text));
        QVERIFY(services->configStore().load().heldStartup.empty());
        QVERIFY(services->fakeLaunchctl.disabled.count("local.photos.sync") == 0);
        QCOMPARE(model->row(photos)->actionText(), QStringLiteral("Switch Off"));
    }
};

QTEST_MAIN(StartupInventoryTest)
#include "startup_inventory_qtest.moc"
