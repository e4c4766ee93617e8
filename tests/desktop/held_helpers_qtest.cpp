#include <QComboBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "app/desktop/held_helpers_model.h"
#include "app/desktop/widgets/held_helpers_panel.h"
#include "core/launchd/helper_delay.h"
#include "core/support/files.h"
#include "tests/desktop/startup_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class HeldHelpersTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::WatchedServices> services;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<HeldHelpersModel> model;
    std::string syncPlist;

    HoldenmereConfig saved() const { return services->configStore().load(); }

    std::vector<std::string> labels() const {
        std::vector<std::string> result;
        for (const auto& row : model->rows()) result.push_back(row.label);
        return result;
    }

    testing::ActionEnd change(const std::string& label, HelperRow::Mode mode) {
        QSignalSpy finished(model.get(), &HeldHelpersModel::finished);
        if (!model->setMode(label, mode)) return {};
        auto end = testing::waitForAction(finished);
        testing::scanned(*model);
        return end;
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::WatchedServices>(home->path());
        const auto& folder = home->path();
        const std::string drive = testing::writeApp(folder, "Cloud Drive", "com.example.drive", "CloudDrive");
        const std::string other = testing::writeApp(folder, "Other", "com.example.other");
        // A login helper of a managed app, and one of an app that is not managed.
        syncPlist = testing::writeAgent(folder, "com.example.drive.sync", drive + "/Contents/MacOS/drivesync");
        testing::writeAgent(folder, "com.example.other.helper", other + "/Contents/MacOS/otherhelper");
        services->fakeLaunchctl.labelOfPlist[syncPlist] = "com.example.drive.sync";
        services->fakeLaunchctl.loaded.insert("com.example.drive.sync");

        HoldenmereConfig config;
        ManagedApp app = testing::managedApp("Cloud Drive", "com.example.drive");
        app.path = drive;
        config.apps = {app};
        services->configStore().save(config);
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<HeldHelpersModel>(*session, *services);
        QVERIFY(testing::scanned(*model));
    }

    void cleanup() {
        model.reset();
        session.reset();
    }

    void helpersOfManagedAppsAreListed() {
        QCOMPARE(labels(), std::vector<std::string>{"com.example.drive.sync"});
        const HelperRow& row = model->rows()[0];
        QCOMPARE(row.name, std::string("drivesync"));
        QCOMPARE(row.appName, std::string("Cloud Drive"));
        QCOMPARE(row.mode, HelperRow::Mode::notHeld);
        QCOMPARE(row.detail(), QStringLiteral("Cloud Drive \u2014 com.example.drive.sync"));
        QVERIFY(model->repairQuestion().isEmpty());
    }

    void holdingIsRefusedWhileTheLoginAgentWillNotRun() {
        services->loginAgent = HoldenmereLoginAgentStatus::installedNotLoaded;
        QSignalSpy finished(model.get(), &HeldHelpersModel::finished);
        QVERIFY(!model->setMode("com.example.drive.sync", HelperRow::Mode::delay));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).toString(), QString::fromUtf8(HelperDelayPolicy::kRefusal.data(),
                                                                      HelperDelayPolicy::kRefusal.size()));
        QVERIFY(services->fakeLaunchctl.changes().empty());
        QVERIFY(saved().delayedHelpers.empty());
        // Keeping it off needs no login pass.
        const auto end = change("com.example.drive.sync", HelperRow::Mode::off);
        QVERIFY2(end.ok, qPrintable(end.text));
        QCOMPARE(saved().delayedHelpers.at(0).mode, DelayedHelper::Mode::off);
        // And from off to waiting is refused by the same rule.
        QVERIFY(!model->setMode("com.example.drive.sync", HelperRow::Mode::delay));
        QCOMPARE(saved().delayedHelpers.at(0).mode, DelayedHelper::Mode::off);
    }

    void holdingRecordsTheHelperBeforeDisablingIt() {
        std::optional<HoldenmereConfig> atDisable;
        services->watched.beforeChange = [&](const std::vector<std::string>& arguments) {
            if (arguments[0] == "disable") atDisable = services->configStore().load();
        };
        const auto end = change("com.example.drive.sync", HelperRow::Mode::delay);
        QVERIFY2(end.ok, qPrintable(end.text));
        QCOMPARE(end.text, QStringLiteral("drivesync now waits for the network at login."));
        QVERIFY(atDisable.has_value());
        QCOMPARE(atDisable->delayedHelpers.size(), std::size_t{1});
        const DelayedHelper expected{"com.example.drive.sync", syncPlist, "com.example.drive", "drivesync",
                                     DelayedHelper::Mode::delay};
        QCOMPARE(atDisable->delayedHelpers[0], expected);
        QCOMPARE(saved().delayedHelpers, std::vector<DelayedHelper>{expected});
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.drive.sync") == 1);
        QCOMPARE(model->rows()[0].mode, HelperRow::Mode::delay);

        // Converted to off, then given back to macOS.
        QVERIFY(change("com.example.drive.sync", HelperRow::Mode::off).ok);
        QCOMPARE(saved().delayedHelpers.at(0).mode, DelayedHelper::Mode::off);
        const auto back = change("com.example.drive.sync", HelperRow::Mode::notHeld);
        QVERIFY2(back.ok, qPrintable(back.text));
        QCOMPARE(back.text, QStringLiteral("drivesync starts with macOS again."));
        QVERIFY(saved().delayedHelpers.empty());
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.drive.sync") == 0);
    }

    void aFailedDisableLeavesNoRecord() {
        services->fakeLaunchctl.exitStatus["disable"] = 1;
        const auto end = change("com.example.drive.sync", HelperRow::Mode::delay);
        QVERIFY(!end.ok);
        QCOMPARE(end.text, QStringLiteral("drivesync could not be held: launchctl disable failed (exit 1)"));
        QVERIFY(saved().delayedHelpers.empty());
    }

    void aReleaseThatFailsKeepsTheRecord() {
        QVERIFY(change("com.example.drive.sync", HelperRow::Mode::delay).ok);
        services->fakeLaunchctl.exitStatus["enable"] = 5;
        const auto end = change("com.example.drive.sync", HelperRow::Mode::notHeld);
        QVERIFY(!end.ok);
        QCOMPARE(end.text, QStringLiteral("drivesync could not be switched back on: launchctl enable failed (exit 5)"));
        QCOMPARE(saved().delayedHelpers.size(), std::size_t{1});
    }

    void helpersSwitchedOffWithoutARecordAreOfferedForRepair() {
        services->fakeLaunchctl.disabled.insert("com.example.drive.sync");
        QVERIFY(testing::scanned(*model));
        QCOMPARE(model->repairQuestion(), QStringLiteral("Holdenmere earlier switched off 1 helper it cannot start "
                                                         "itself \u2014 switch it back on?"));
        QVERIFY(model->rows()[0].detail().endsWith(QStringLiteral("switched off in launchd")));

        const std::string drive = (home->path() / "Applications/Cloud Drive.app").string();
        testing::writeAgent(home->path(), "com.example.drive.update", drive + "/Contents/MacOS/driveupdate");
        services->fakeLaunchctl.disabled.insert("com.example.drive.update");
        QVERIFY(testing::scanned(*model));
        QCOMPARE(model->repairQuestion(), QStringLiteral("Holdenmere earlier switched off 2 helpers it cannot start "
                                                         "itself \u2014 switch them back on?"));

        QSignalSpy finished(model.get(), &HeldHelpersModel::finished);
        QVERIFY(model->repair());
        const auto end = testing::waitForAction(finished);
        QVERIFY2(end.ok, qPrintable(end.text));
        QVERIFY(end.text.startsWith(QStringLiteral("switched back on: Cloud Drive \u2014 com.example.drive.sync")));
        QVERIFY(services->fakeLaunchctl.disabled.empty());
        QVERIFY(files::read(services->logPath()).find("repair (app): Cloud Drive") != std::string::npos);
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->repairQuestion().isEmpty());
    }

    void aHelperHeldOnPurposeIsNoRepairCandidate() {
        QVERIFY(change("com.example.drive.sync", HelperRow::Mode::delay).ok);
        QVERIFY(model->repairCandidates().empty());
    }

    void thePanelChangesModesThroughTheModel() {
        HeldHelpersPanel panel(*model);
        panel.show();
        QVERIFY(testing::scanned(*model));
        QComboBox* box = panel.modeBox("com.example.drive.sync");
        QVERIFY(box != nullptr);
        QCOMPARE(box->currentText(), QStringLiteral("Starts with macOS"));
        services->loginAgent = HoldenmereLoginAgentStatus::notInstalled;
        box->setCurrentIndex(1);
        emit box->activated(1);
        // Refused: the box shows what is so again, and the panel says why.
        QCOMPARE(box->currentIndex(), 0);
        QVERIFY(panel.messageText().startsWith(QStringLiteral("Holdenmere is not set to start at login")));
    }
};

QTEST_MAIN(HeldHelpersTest)
#include "held_helpers_qtest.moc"
