#include <QSignalSpy>
#include <QTest>

#include <unistd.h>

#include "app/desktop/config_session.h"
#include "core/support/files.h"
#include "core/takeover/startup_mutation_lock.h"
#include "tests/desktop/desktop_test_support.h"

using namespace holdenmere;
using namespace holdenmere::desktop;

class ConfigSessionTest : public QObject {
    Q_OBJECT

private:
    std::unique_ptr<testing::TemporaryHome> home;
    std::unique_ptr<testing::FakeDesktopServices> services;
    ConfigStore store;

    void write(const std::string& text) { files::writeAtomically(store.url, text); }

private slots:
    void init() {
        home = std::make_unique<testing::TemporaryHome>();
        services = std::make_unique<testing::FakeDesktopServices>(home->path());
        store = services->configStore();
    }

    void missingFileIsTheDefaultsAndNothingIsWritten() {
        ConfigSession session(store);
        QVERIFY(session.reload());
        QVERIFY(!session.isDamaged());
        QCOMPARE(session.config(), HoldenmereConfig{});
        QVERIFY(!files::exists(store.url));
        // An edit that changes nothing writes nothing either.
        QSignalSpy failed(&session, &ConfigSession::failed);
        QVERIFY(!session.change([](HoldenmereConfig&) { return false; }));
        QCOMPARE(failed.count(), 0);
        QVERIFY(!files::exists(store.url));
    }

    void eachChangeStartsFromAFreshRead() {
        ConfigSession session(store);
        session.reload();
        // The login pass saves the config while the window shows an older read.
        HoldenmereConfig byThePass;
        byThePass.blockedApps.push_back({"com.example.newsbeam", "Newsbeam", "/Applications/Newsbeam.app"});
        byThePass.recordAgent("com.example.drift", "Drift", "com.example.drift.agent", "/p.plist", false);
        store.save(byThePass);

        QSignalSpy changed(&session, &ConfigSession::changed);
        QVERIFY(session.change([](HoldenmereConfig& config) {
            config.apps.push_back(testing::managedApp("Driftmail", "com.example.driftmail"));
            return true;
        }));
        HoldenmereConfig saved = store.load();
        QCOMPARE(saved.apps.size(), std::size_t{1});
        QCOMPARE(saved.blockedApps, byThePass.blockedApps);
        QCOMPARE(saved.takeovers, byThePass.takeovers);
        QCOMPARE(session.config(), saved);
        QCOMPARE(changed.count(), 1);
    }

    void aDamagedFileIsNeverOverwritten() {
        const std::string damaged = R"({"settings": {"probeURL": 7}, "apps": []})";
        write(damaged);
        ConfigSession session(store);
        QSignalSpy damage(&session, &ConfigSession::damageChanged);
        QVERIFY(!session.reload());
        QVERIFY(session.isDamaged());
        QVERIFY(session.damage().startsWith(QStringLiteral("Could not read config: ")));
        QCOMPARE(damage.count(), 1);

        QSignalSpy failed(&session, &ConfigSession::failed);
        bool edited = false;
        QVERIFY(!session.change([&](HoldenmereConfig&) {
            edited = true;
            return true;
        }));
        QVERIFY(!edited);
        QCOMPARE(failed.count(), 1);
        QCOMPARE(files::read(store.url), damaged);
    }

    void startingFromDefaultsKeepsACopyBesideIt() {
        // Damaged settings beside a ledger that still reads.
        const std::string damaged = R"({"settings": 1, "takeovers": [{"bundleIdentifier": "com.example.drift",
            "name": "Drift", "agents": [{"label": "com.example.drift.agent", "plistPath": "/p.plist",
            "inferred": false}]}]})";
        write(damaged);
        ConfigSession session(store);
        session.reload();
        std::filesystem::path copy = store.url;
        copy += ".damaged";
        QCOMPARE(session.damagedCopyPath(), copy);
        QSignalSpy changed(&session, &ConfigSession::changed);
        const auto started = session.startFromDefaults();
        QVERIFY(started);
        QCOMPARE(started->kind, DefaultsStart::Kind::ledgerKept);
        QVERIFY(!session.isDamaged());
        QCOMPARE(changed.count(), 1);
        QCOMPARE(files::read(copy), damaged);
        HoldenmereConfig expected;
        expected.recordAgent("com.example.drift", "Drift", "com.example.drift.agent", "/p.plist", false);
        QCOMPARE(store.load(), expected);
        QCOMPARE(session.config(), expected);

        // A second damaged file gets the next free name.
        write("[]");
        session.reload();
        std::filesystem::path second = store.url;
        second += ".damaged-2";
        QCOMPARE(session.damagedCopyPath(), second);
        QVERIFY(session.startFromDefaults());
        QCOMPARE(files::read(second), std::string("[]"));
        QCOMPARE(files::read(copy), damaged);
    }

    void aFileMendedMeanwhileIsKept() {
        write("{ not json");
        ConfigSession session(store);
        session.reload();
        HoldenmereConfig mended;
        mended.apps.push_back(testing::managedApp("Driftmail", "com.example.driftmail"));
        store.save(mended);
        QVERIFY(session.startFromDefaults());
        QCOMPARE(store.load(), mended);
        QCOMPARE(session.config(), mended);
        std::filesystem::path copy = store.url;
        copy += ".damaged";
        QVERIFY(!files::exists(copy));
    }

    void aBusyStartupLockChangesNothing() {
        HoldenmereConfig before;
        before.apps.push_back(testing::managedApp("Driftmail", "com.example.driftmail"));
        store.save(before);
        ConfigSession session(store);
        session.reload();
        auto lease = StartupMutationLock(store.url).acquire(false);
        QSignalSpy failed(&session, &ConfigSession::failed);
        QVERIFY(!session.change([](HoldenmereConfig& config) {
            config.apps.clear();
            return true;
        }));
        QCOMPARE(failed.count(), 1);
        QCOMPARE(failed.at(0).at(0).toString(), ConfigSession::lockBusyText());
        QCOMPARE(store.load(), before);
        lease.release();
        QVERIFY(session.change([](HoldenmereConfig& config) {
            config.apps.clear();
            return true;
        }));
        QVERIFY(store.load().apps.empty());
    }

    void aFailedSaveIsReportedAndTheFileStays() {
        HoldenmereConfig before;
        store.save(before);
        ConfigSession session(store);
        session.reload();
        // The folder cannot take the temporary file.
        const auto folder = store.url.parent_path();
        std::filesystem::permissions(folder, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
        if (::access(folder.c_str(), W_OK) == 0) {
            std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
            QSKIP("running as a user who can write to read-only folders");
        }
        QSignalSpy failed(&session, &ConfigSession::failed);
        QVERIFY(!session.change([](HoldenmereConfig& config) {
            config.settings.isEnabled = false;
            return true;
        }));
        std::filesystem::permissions(folder, std::filesystem::perms::owner_all);
        QCOMPARE(failed.count(), 1);
        QVERIFY(failed.at(0).at(0).toString().startsWith(QStringLiteral("Could not write config: ")));
        QVERIFY(session.config().settings.isEnabled);
        QCOMPARE(store.load(), before);
    }
};

QTEST_GUILESS_MAIN(ConfigSessionTest)
#include "config_session_qtest.moc"
