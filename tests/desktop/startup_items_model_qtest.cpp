#include <QApplication>
#include <QListWidget>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>

#include <future>

#include "app/desktop/startup_items_model.h"
#include "app/desktop/widgets/startup_items_page.h"
#include "core/takeover/startup_mutation_lock.h"
#include "tests/desktop/startup_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

namespace {

const std::string kSecurityWarning =
    "Vault is a security or network tool. Switching its startup items off can leave this Mac unprotected or offline "
    "until you switch it back on.";

bool contains(const std::vector<std::string>& list, const std::string& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

std::vector<std::string> identifiers(const std::vector<StartupItemRow>& rows) {
    std::vector<std::string> result;
    for (const auto& row : rows) result.push_back(row.bundleIdentifier);
    return result;
}

}  // namespace

class StartupItemsModelTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::WatchedServices> services;
    std::unique_ptr<DesktopPreferences> preferences;
    std::unique_ptr<ConfigSession> session;
    std::unique_ptr<StartupItemsModel> model;
    std::string notes, parcel, mail, vault, chess;

    HoldenmereConfig saved() const { return services->configStore().load(); }
    bool configWritten() const { return std::filesystem::exists(services->configStore().url); }

    void agent(const std::string& label, const std::string& program, const std::string& extra = {}) {
        const std::string plist = extra.empty() ? testing::writeAgent(home->path(), label, program)
                                                : testing::writeAgent(home->path(), label, program, extra);
        services->fakeLaunchctl.loaded.insert(label);
        services->fakeLaunchctl.labelOfPlist[plist] = label;
    }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::WatchedServices>(home->path());
        const auto& folder = home->path();
        notes = testing::writeApp(folder, "Notes", "com.example.notes");
        parcel = testing::writeApp(folder, "Parcel", "com.example.parcel");
        mail = testing::writeApp(folder, "Mail Room", "com.example.mail", "MailRoom");
        vault = testing::writeApp(folder, "Vault", "com.example.vault");
        chess = testing::writeApp(folder, "Chess", "com.example.chess");
        const std::string newsy = testing::writeApp(folder, "Newsy", "com.example.newsy");
        const std::string own = testing::writeApp(folder, "Holdenmere", "com.tavik.holdenmere", "holdenmere");
        testing::writeBytes(std::filesystem::path(vault) / "Contents/Library/SystemExtensions/tunnel.systemextension/"
                                                           "Contents/Info.plist",
                            testing::plistDocument({}));

        services->fakeScripts.loginItems.items = {
            {own, false}, {mail, false}, {notes, true}, {newsy, false}, {(folder / "Scripts/Mount.scpt").string(), false}};
        agent("com.example.mail.launcher", testing::mainExecutable(mail, "MailRoom"));
        agent("com.example.notes.agent", testing::mainExecutable(notes, "Notes"));
        agent("com.example.parcel.launcher", testing::mainExecutable(parcel, "Parcel"));
        agent("com.example.parcel.helper", parcel + "/Contents/MacOS/parcelhelper");
        agent("com.example.vault.agent", testing::mainExecutable(vault, "Vault"));
        agent("com.apple.chessagent", testing::mainExecutable(chess, "Chess"));

        HoldenmereConfig config;
        ManagedApp managed = testing::managedApp("Mail Room", "com.example.mail");
        managed.path = mail;
        config.apps = {managed};
        config.blockedApps = {{"com.example.newsy", "Newsy", newsy}};
        config.startupConsent = StartupConsent::granted;
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

    void theScanListsWhatMacOSStartsAndWhy() {
        QVERIFY(testing::scanned(*model));
        // Login Items first; Holdenmere, managed and blocked apps are not
        // offered, and an app's Login Item wins over its LaunchAgent.
        QCOMPARE(identifiers(model->items()), (std::vector<std::string>{"com.example.notes", "com.example.chess",
                                                                         "com.example.parcel", "com.example.vault"}));
        const StartupItemRow* notesRow = model->item("com.example.notes");
        QCOMPARE(sourceText(*notesRow), QStringLiteral("Login Item"));
        QVERIFY(notesRow->hidden);
        QCOMPARE(sourceText(*model->item("com.example.parcel")),
                 QStringLiteral("LaunchAgent com.example.parcel.launcher"));

        // The safety tiers: an Apple component is refused, a security tool
        // needs confirmation and carries its chip.
        QCOMPARE(model->refusal("com.example.chess"), QStringLiteral("An Apple macOS component."));
        QCOMPARE(model->confirmations("com.example.vault"), QStringList{QString::fromStdString(kSecurityWarning)});
        QCOMPARE(model->item("com.example.vault")->chips, std::vector<std::string>{"Security or network tool"});
        QVERIFY(model->confirmations("com.example.parcel").isEmpty());
        QVERIFY(model->refusal("com.example.parcel").isEmpty());

        // Left alone, with the reason.
        QCOMPARE(model->ineligible().size(), std::size_t{2});
        QCOMPARE(model->ineligible()[0].label, std::string("com.example.parcel.helper"));
        QCOMPARE(model->ineligible()[0].reason,
                 std::string("can't take over: runs parcelhelper, a helper inside Parcel, not the app itself"));
        QCOMPARE(model->ineligible()[1].reason, std::string("not an app, left in Login Items"));

        // The managed app that macOS also starts, by both mechanisms.
        QCOMPARE(model->conflicts().size(), std::size_t{1});
        const ConflictRow& conflict = model->conflicts()[0];
        QCOMPARE(conflict.bundleIdentifier, std::string("com.example.mail"));
        QCOMPARE(sourcesText(conflict), QStringLiteral("Login Item and LaunchAgent com.example.mail.launcher"));
        QVERIFY(services->fakeLaunchctl.changes().empty());
    }

    void anAppASystemDaemonRunsIsLeftAloneWithTheReason() {
        services->systemDaemonApps = {parcel};
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->item("com.example.parcel") == nullptr);
        const auto& last = model->ineligible().back();
        QCOMPARE(last.bundleIdentifier, std::string("com.example.parcel"));
        QCOMPARE(last.label, std::string("com.example.parcel.launcher"));
        QCOMPARE(last.reason, std::string("run by a system LaunchDaemon; launchd starts it, Holdenmere cannot gate it"));
    }

    void takingOverALoginItemRecordsItBeforeRemovingIt() {
        QVERIFY(testing::scanned(*model));
        std::optional<HoldenmereConfig> atRemoval;
        services->fakeScripts.beforeEach = [&](const std::string& script) {
            if (script.find(" to delete ") != std::string::npos) atRemoval = services->configStore().load();
        };
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.notes", false));
        const auto end = testing::waitForAction(finished);
        QVERIFY(end.arrived);
        QVERIFY2(end.ok, qPrintable(end.text));
        QCOMPARE(end.text, QStringLiteral("Removed Notes from Login Items \u2014 Holdenmere now gates it."));

        QVERIFY(atRemoval.has_value());
        const TakeoverRecord* record = atRemoval->takeover("com.example.notes");
        QVERIFY(record != nullptr);
        QCOMPARE(record->loginItems, (std::vector<RemovedLoginItem>{RemovedLoginItem{notes, true}}));
        QVERIFY(!contains(services->fakeScripts.paths(), notes));

        const HoldenmereConfig config = saved();
        QCOMPARE(config.apps.size(), std::size_t{2});
        QCOMPARE(config.apps[1].bundleIdentifier, std::string("com.example.notes"));
        QVERIFY(config.apps[1].launchHidden);
        QVERIFY(config.apps[1].importedFromLoginItem);

        // Now managed, its LaunchAgent shows as a conflict.
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->item("com.example.notes") == nullptr);
        QVERIFY(model->conflict("com.example.notes") != nullptr);
        QCOMPARE(sourcesText(*model->conflict("com.example.notes")), QStringLiteral("LaunchAgent com.example.notes.agent"));
    }

    void takingOverALaunchAgentRecordsItBeforeSwitchingItOff() {
        QVERIFY(testing::scanned(*model));
        std::optional<HoldenmereConfig> atDisable;
        services->watched.beforeChange = [&](const std::vector<std::string>& arguments) {
            if (arguments[0] == "disable") atDisable = services->configStore().load();
        };
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.parcel", false));
        const auto end = testing::waitForAction(finished);
        QVERIFY2(end.ok, qPrintable(end.text));
        QVERIFY(end.text.contains(QStringLiteral("LaunchAgent com.example.parcel.launcher is switched off")));

        QVERIFY(atDisable.has_value());
        const TakeoverRecord* record = atDisable->takeover("com.example.parcel");
        QVERIFY(record != nullptr);
        QCOMPARE(record->agents.size(), std::size_t{1});
        QCOMPARE(record->agents[0].label, std::string("com.example.parcel.launcher"));
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.parcel.launcher") == 1);
        // Switched off for the next login; the running app is left alone.
        QVERIFY(services->fakeLaunchctl.loaded.count("com.example.parcel.launcher") == 1);
        QVERIFY(saved().apps.back().importedFromStartup);
    }

    void aRefusedItemChangesNothing() {
        QVERIFY(testing::scanned(*model));
        const HoldenmereConfig before = saved();
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(!model->takeOver("com.example.chess", true));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).toString(), QStringLiteral("Chess was not taken over: An Apple macOS component."));
        QVERIFY(!finished.at(0).at(1).toBool());
        QVERIFY(services->fakeLaunchctl.changes().empty());
        QCOMPARE(saved(), before);
    }

    void anItemThatNeedsConfirmationChangesNothingWithoutIt() {
        QVERIFY(testing::scanned(*model));
        const HoldenmereConfig before = saved();
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(!model->takeOver("com.example.vault", false));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(finished.at(0).at(0).toString(),
                 QStringLiteral("Vault was not taken over: it needs your confirmation first."));
        QVERIFY(services->fakeLaunchctl.changes().empty());
        QCOMPARE(saved(), before);

        finished.clear();
        QVERIFY(model->takeOver("com.example.vault", true));
        const auto end = testing::waitForAction(finished);
        QVERIFY2(end.ok, qPrintable(end.text));
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.vault.agent") == 1);
        QVERIFY(saved().takeover("com.example.vault") != nullptr);
    }

    void endingAConflictRecordsEveryEntryFirst() {
        QVERIFY(testing::scanned(*model));
        std::vector<bool> recordedAtChange;
        auto record = [&] {
            const HoldenmereConfig config = services->configStore().load();
            const TakeoverRecord* found = config.takeover("com.example.mail");
            return found == nullptr ? TakeoverRecord{} : *found;
        };
        services->fakeScripts.beforeEach = [&](const std::string& script) {
            if (script.find(" to delete ") != std::string::npos) {
                recordedAtChange.push_back(record().loginItem(mail) != nullptr);
            }
        };
        services->watched.beforeChange = [&](const std::vector<std::string>& arguments) {
            if (arguments[0] == "disable") recordedAtChange.push_back(record().agents.size() == 1);
        };
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->endConflict("com.example.mail", false));
        const auto end = testing::waitForAction(finished);
        QVERIFY2(end.ok, qPrintable(end.text));
        QCOMPARE(recordedAtChange, (std::vector<bool>{true, true}));
        QVERIFY(!contains(services->fakeScripts.paths(), mail));
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.mail.launcher") == 1);
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->conflicts().empty());
    }

    void aBusyLockChangesNothing() {
        QVERIFY(testing::scanned(*model));
        auto lease = StartupMutationLock(services->configStore().url).acquire(false);
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.notes", false));
        const auto end = testing::waitForAction(finished);
        QVERIFY(!end.ok);
        QCOMPARE(end.text, ConfigSession::lockBusyText());
        QVERIFY(contains(services->fakeScripts.paths(), notes));
        QVERIFY(saved().takeovers.empty());
    }

    void consentIsAskedOnce() {
        HoldenmereConfig config = saved();
        config.startupConsent = StartupConsent::undecided;
        services->configStore().save(config);
        session->reload();
        QVERIFY(model->shouldAskConsent());
        QCOMPARE(model->consentText(),
                 QStringLiteral("Startup take-over: undecided. Holdenmere leaves Login Items and LaunchAgents to "
                                "macOS until you decide."));
        model->markConsentAsked();
        QVERIFY(!model->shouldAskConsent());
        // Remembered for the next start.
        DesktopPreferences again(home->path(), DesktopPreferences::suiteFromEnvironment());
        StartupItemsModel later(*session, *services, again);
        QVERIFY(!later.shouldAskConsent());
    }

    void grantingAndDecliningConsent() {
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->declineConsent());
        QCOMPARE(saved().startupConsent, StartupConsent::declined);
        QVERIFY(model->consentText().startsWith(QStringLiteral("Startup take-over: declined.")));
        QVERIFY(model->grantConsent({"com.example.parcel", "com.example.parcel"}));
        const HoldenmereConfig config = saved();
        QCOMPARE(config.startupConsent, StartupConsent::granted);
        QCOMPARE(config.leftToMacOS, std::vector<std::string>{"com.example.parcel"});
        QVERIFY(model->consentText().startsWith(QStringLiteral("Startup take-over: granted.")));
        QVERIFY(model->consentText().contains(QStringLiteral("except 1 app you leave to macOS")));
        QVERIFY(model->item("com.example.parcel")->leftToMacOS);
        QVERIFY(!model->shouldAskConsent());
        // Consent changes no startup state.
        QVERIFY(services->fakeLaunchctl.changes().empty());
    }

    void takingOverAnAppLeftToMacOSTakesItOffThatList() {
        QVERIFY(model->grantConsent({"com.example.parcel"}));
        QVERIFY(testing::scanned(*model));
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.parcel", false));
        QVERIFY(testing::waitForAction(finished).ok);
        QVERIFY(saved().leftToMacOS.empty());
    }

    void scanningDoesNotHoldTheWindow() {
        std::promise<void> release;
        std::shared_future<void> released = release.get_future().share();
        services->fakeScripts.beforeEach = [released](const std::string&) { released.wait(); };
        model->rescan();
        QVERIFY(model->isScanning());
        // The event loop goes on while System Events does not answer.
        QSignalSpy tick(model.get(), &QObject::objectNameChanged);
        QTimer::singleShot(0, model.get(), [this] { model->setObjectName(QStringLiteral("alive")); });
        QVERIFY(tick.wait(5000));
        QVERIFY(model->isScanning());
        release.set_value();
        QSignalSpy scanning(model.get(), &StartupItemsModel::scanningChanged);
        while (model->isScanning()) QVERIFY(scanning.wait(10000));
        QCOMPARE(model->items().size(), std::size_t{4});
        services->fakeScripts.beforeEach = nullptr;
    }

    void unreadableLoginItemsAreSaid() {
        services->fakeScripts.unavailable = true;
        QVERIFY(testing::scanned(*model));
        QVERIFY(model->loginItemsProblem().startsWith(QStringLiteral("Holdenmere could not read your Login Items.")));
        // The LaunchAgents are still listed.
        QCOMPARE(identifiers(model->items()),
                 (std::vector<std::string>{"com.example.chess", "com.example.notes", "com.example.parcel",
                                           "com.example.vault"}));
    }

    void givingEverythingBackUndoesTheLedger() {
        QVERIFY(testing::scanned(*model));
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        QVERIFY(model->takeOver("com.example.notes", false));
        QVERIFY(testing::waitForAction(finished).ok);
        QVERIFY(model->takeOver("com.example.parcel", false));
        QVERIFY(testing::waitForAction(finished).ok);
        QVERIFY(!contains(services->fakeScripts.paths(), notes));

        QSignalSpy gaveBack(model.get(), &StartupItemsModel::gaveBack);
        QSignalSpy agentChanged(model.get(), &StartupItemsModel::loginAgentChanged);
        QVERIFY(model->giveEverythingBack());
        QVERIFY(gaveBack.wait(10000));
        const QStringList lines = gaveBack.at(0).at(0).toStringList();
        QVERIFY2(gaveBack.at(0).at(1).toBool(), qPrintable(lines.join(QLatin1Char('\n'))));
        QVERIFY(lines.contains(QStringLiteral("login agent: turned off; Holdenmere no longer runs at login")));
        QCOMPARE(agentChanged.count(), 1);
        QVERIFY(contains(services->fakeScripts.paths(), notes));
        QVERIFY(services->fakeLaunchctl.disabled.count("com.example.parcel.launcher") == 0);
        const HoldenmereConfig config = saved();
        QCOMPARE(config.startupConsent, StartupConsent::declined);
        QVERIFY(config.takeovers.empty());
    }

    void thePageOffersWhatTheRulesAllow() {
        StartupItemsPage page(*model);
        page.show();
        QVERIFY(testing::scanned(*model));
        QVERIFY(page.buttonFor("com.example.chess") != nullptr);
        QVERIFY(!page.buttonFor("com.example.chess")->isEnabled());
        QVERIFY(page.buttonFor("com.example.notes")->isEnabled());
        QVERIFY(page.buttonFor("com.example.mail") != nullptr);
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        page.buttonFor("com.example.notes")->click();
        QVERIFY(testing::waitForAction(finished).ok);
        QVERIFY(page.resultText().startsWith(QStringLiteral("Removed Notes from Login Items")));
    }

    void thePageAsksForConsentOnceWhileUndecided() {
        HoldenmereConfig config = saved();
        config.startupConsent = StartupConsent::undecided;
        services->configStore().save(config);
        session->reload();
        int sheets = 0;
        // Answers the sheet when it comes up: leave Parcel to macOS, grant.
        QTimer answer;
        connect(&answer, &QTimer::timeout, this, [&] {
            auto* sheet = qobject_cast<StartupConsentDialog*>(QApplication::activeModalWidget());
            if (sheet == nullptr) return;
            ++sheets;
            for (int row = 0; row < sheet->list()->count(); ++row) {
                QListWidgetItem* item = sheet->list()->item(row);
                if (item->text().startsWith(QStringLiteral("Parcel"))) item->setCheckState(Qt::Unchecked);
            }
            sheet->grantButton()->click();
        });
        answer.start(5);
        QSignalSpy finished(model.get(), &StartupItemsModel::finished);
        {
            StartupItemsPage page(*model);
            page.show();
            QVERIFY(finished.wait(10000));
        }
        QCOMPARE(sheets, 1);
        QCOMPARE(saved().startupConsent, StartupConsent::granted);
        QCOMPARE(saved().leftToMacOS, std::vector<std::string>{"com.example.parcel"});
        QVERIFY(!model->shouldAskConsent());
        {
            StartupItemsPage page(*model);
            page.show();
            QVERIFY(testing::scanned(*model));
            QCoreApplication::processEvents();
        }
        QCOMPARE(sheets, 1);
    }
};

QTEST_MAIN(StartupItemsModelTest)
#include "startup_items_model_qtest.moc"
