// Background items on the Startup Items page: listed in the same sections as
// the other sources, the scan saved for the login pass, a failed read shown
// as incomplete, a LaunchAgent behind an item taken over through the engine
// (recorded first), and the Login Items pane where only System Settings can
// switch an item off.
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "app/desktop/startup_items_model.h"
#include "app/desktop/widgets/startup_items_page.h"
#include "tests/desktop/startup_test_support.h"
#include "tests/support/background_items_text.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class StartupBackgroundItemsTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::WatchedServices> services;
    std::unique_ptr<DesktopPreferences> preferences;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<StartupItemsModel> model;
    std::string drive, notes, mail, chat, agentPlist;

    testing::FakeBackgroundItem record(const std::string& type, const std::string& identifier, const std::string& url,
                                       std::optional<std::string> parent = std::nullopt) const {
        return {identifier, type, "[enabled, allowed, notified] (0xb)", identifier, url, std::nullopt, std::nullopt,
                std::move(parent), std::nullopt};
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::WatchedServices>(home->path());
        drive = testing::writeApp(home->path(), "Drive", "com.example.drive");
        notes = testing::writeApp(home->path(), "Notes", "com.example.notes");
        mail = testing::writeApp(home->path(), "Mail", "com.example.mail");
        chat = testing::writeApp(home->path(), "Chat", "com.example.chat");
        agentPlist = drive + "/Contents/Library/LaunchAgents/com.example.drive.agent.plist";
        testing::writeBytes(agentPlist, testing::plistDocument(testing::stringEntry("Label", "com.example.drive.agent") +
                                                               testing::stringEntry("BundleProgram", "Contents/MacOS/Drive") +
                                                               "<key>RunAtLoad</key><true/>\n"));
        services->fakeLaunchctl.loaded.insert("com.example.drive.agent");
        services->backgroundTool.answers["sfltool"] = testing::FakeToolRunning::printing(testing::btmSection(
            BackgroundItemScanner::currentUid(),
            {record("app (0x2)", "2.com.example.drive", "file://" + drive + "/"),
             record("agent (0x8)", "8.com.example.drive.agent",
                    "Contents/Library/LaunchAgents/com.example.drive.agent.plist", "2.com.example.drive"),
             record("login item (0x4)", "4.com.example.notes", "file://" + notes + "/"),
             record("login item (0x4)", "4.com.example.mail", "file://" + mail + "/"),
             record("app (0x2)", "2.com.example.chat", "file://" + chat + "/")}));

        HoldenmereConfig config;
        ManagedApp managed = testing::managedApp("Mail", "com.example.mail");
        managed.path = mail;
        config.apps = {managed};
        services->configStore().save(config);
        preferences = std::make_unique<DesktopPreferences>(home->path(), DesktopPreferences::suiteFromEnvironment());
        session = std::make_unique<ConfigSession>(services->configStore());
        session->reload();
        model = std::make_unique<StartupItemsModel>(*session, *services, *preferences);
    }

    void cleanup() {
        model.reset();
        session.reset();
    }

    void backgroundItemsAreListedInTheSameSectionsAndSaved() {
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->startupDiscoveryCompleted());
        QVERIFY(!model->startupDiscoveryIncomplete());
        QCOMPARE(model->items().size(), std::size_t{3});
        // Drive's agent comes before its own registration, which only
        // System Settings could switch off.
        const StartupItemRow* driveRow = model->item("com.example.drive");
        QVERIFY(driveRow != nullptr);
        QCOMPARE(sourceText(*driveRow), QStringLiteral("Background item 8.com.example.drive.agent"));
        // Chat opens itself at login: said so, with where to switch it off.
        const StartupItemRow* chatRow = model->item("com.example.chat");
        QVERIFY(chatRow != nullptr && chatRow->opensLoginItemsSettings);
        QCOMPARE(sourceText(*chatRow), QStringLiteral("Opens itself at login \u00B7 switch it off in System Settings "
                                                       "\u203A General \u203A Login Items"));
        QCOMPARE(driveRow->label, std::string("com.example.drive.agent"));
        QVERIFY(!driveRow->opensLoginItemsSettings);
        QVERIFY(model->item("com.example.notes")->opensLoginItemsSettings);

        // Mail is managed: only System Settings can end its conflict.
        QCOMPARE(model->conflicts().size(), std::size_t{1});
        QVERIFY(model->conflicts()[0].opensLoginItemsSettings);
        QCOMPARE(sourcesText(model->conflicts()[0]), QStringLiteral("background item 4.com.example.mail"));
        StartupItemsPage page(*model);
        QCOMPARE(page.buttonFor("com.example.mail")->text(), QStringLiteral("Open Login Items Settings"));
        QCOMPARE(page.buttonFor("com.example.notes")->text(), QStringLiteral("Open Login Items Settings"));
        QCOMPARE(page.buttonFor("com.example.chat")->text(), QStringLiteral("Open Login Items Settings"));
        QCOMPARE(page.buttonFor("com.example.drive")->text(), QStringLiteral("Take Over"));
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        page.buttonFor("com.example.mail")->click();
        QCOMPARE(services->settings.opened,
                 std::vector<std::string>{std::string(BackgroundItemScanner::kLoginItemsSettingsURL)});
        QCOMPARE(finished.size(), 1);
        QVERIFY(services->fakeLaunchctl.changes().empty());

        // The login pass reads what was found.
        const auto saved = BackgroundItemStore::besideConfig(services->configStore().url).load();
        QVERIFY(saved.has_value());
        QCOMPARE(saved->result.items.size(), std::size_t{5});
    }

    void takingOverAnItemBackedByALaunchAgentRecordsItFirst() {
        QVERIFY(testing::scanned(*model));
        std::optional<HoldenmereConfig> atDisable;
        services->watched.beforeChange = [&](const std::vector<std::string>& arguments) {
            if (arguments[0] == "disable") atDisable = services->configStore().load();
        };
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.drive", false));
        QVERIFY(finished.wait(10000));
        QVERIFY2(finished.at(0).at(1).toBool(), qPrintable(finished.at(0).at(0).toString()));
        QVERIFY(atDisable.has_value());
        QCOMPARE(atDisable->takeovers.size(), std::size_t{1});
        QCOMPARE(atDisable->takeovers[0].agents[0].label, std::string("com.example.drive.agent"));
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.drive.agent") == 1);
        QVERIFY(saved().apps.size() == 2);
    }

    void aFailedReadIsIncompleteAndNeverSaved() {
        services->backgroundTool.answers["sfltool"] = testing::FakeToolRunning::timedOut();
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->startupDiscoveryIncomplete());
        QVERIFY(model->backgroundItemsProblem().contains(QStringLiteral("sfltool dumpbtm did not finish within 60 s")));
        QVERIFY(model->item("com.example.drive") == nullptr);
        QVERIFY(!BackgroundItemStore::besideConfig(services->configStore().url).load().has_value());
    }

    void aScanThatCannotBeSavedIsShownAndTheEarlierOneStays() {
        QVERIFY(testing::scanned(*model));
        const auto store = BackgroundItemStore::besideConfig(services->configStore().url);
        const auto earlier = store.load();
        QVERIFY(earlier.has_value());
        QVERIFY(model->backgroundItemsProblem().isEmpty());

        // A path that is not UTF-8 cannot be written as JSON.
        const std::string bad = testing::writeApp(home->path(), "Bad\xff", "com.example.bad");
        // QTemporaryDir cannot remove a name that is not UTF-8.
        struct RemovedAtEnd {
            std::filesystem::path path;
            ~RemovedAtEnd() {
                std::error_code ignored;
                std::filesystem::remove_all(path, ignored);
            }
        } removed{bad};
        services->backgroundTool.answers["sfltool"] = testing::FakeToolRunning::printing(testing::btmSection(
            BackgroundItemScanner::currentUid(),
            {record("login item (0x4)", "4.com.example.bad", "file://" + bad + "/")}));
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->startupDiscoveryCompleted());
        QVERIFY2(model->backgroundItemsProblem().startsWith(
                     QStringLiteral("Holdenmere could not save the background items it found, so the login pass goes "
                                    "on with the list saved before: ")),
                 qPrintable(model->backgroundItemsProblem()));
        QCOMPARE(store.load(), earlier);
    }

private:
    HoldenmereConfig saved() const { return services->configStore().load(); }
};

QTEST_MAIN(StartupBackgroundItemsTest)
#include "startup_background_items_qtest.moc"
